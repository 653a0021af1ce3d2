# The target `docs` builds the reference with doxygen, in doc/html below the build; the component
# `doc` installs it, if it was built. A tree without the guides, such as the copy in OpenWrt's
# recipe, has neither the target nor the component.
if(NOT EXISTS ${PROJECT_SOURCE_DIR}/docs/Doxyfile)
    return()
endif()
find_program(TAVO_DOXYGEN doxygen)
mark_as_advanced(TAVO_DOXYGEN)
if(TAVO_DOXYGEN)
    add_custom_target(docs
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${PROJECT_BINARY_DIR}/doc
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/doc
        COMMAND ${CMAKE_COMMAND} -E env TAVO_VERSION=${PROJECT_VERSION} TAVO_DOC_DIR=${PROJECT_BINARY_DIR}/doc
            TAVO_GENERATED_HEADERS=${PROJECT_BINARY_DIR}/include ${TAVO_DOXYGEN} docs/Doxyfile
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} VERBATIM)
endif()
install(DIRECTORY ${PROJECT_BINARY_DIR}/doc/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc OPTIONAL)
