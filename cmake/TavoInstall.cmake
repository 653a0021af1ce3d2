# Installs the library in two components: `runtime`, only the shared library, which is all that a
# gateway needs, and `development`, the rest. The folders agent/ and sandbox/ install the components
# `agent` and `sandbox`.
include(CMakePackageConfigHelpers)

install(TARGETS tavo EXPORT tavoTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)

set(_tavo_left_out "")
if(TAVO_DDS_PROVIDER STREQUAL "OFF")
    set(_tavo_left_out PATTERN mdw EXCLUDE)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kvr
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
    FILES_MATCHING PATTERN *.h ${_tavo_left_out})
install(FILES ${PROJECT_BINARY_DIR}/include/kvr/api/version.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvr/api COMPONENT development)
if(TAVO_DDS_INSTALL_INCLUDEDIR)
    install(FILES ${PROJECT_SOURCE_DIR}/rmi/include/dds_service_sdk.h
        DESTINATION ${TAVO_DDS_INSTALL_INCLUDEDIR} COMPONENT development)
endif()

# For find_package().
set(_tavo_package ${CMAKE_INSTALL_LIBDIR}/cmake/tavo)
set(TAVO_CONFIG_DDS_DEPENDENCY "")
if(TAVO_DDS_PROVIDER STREQUAL "OPENSPLICE")
    set(TAVO_CONFIG_DDS_DEPENDENCY "
list(INSERT CMAKE_MODULE_PATH 0 \${CMAKE_CURRENT_LIST_DIR})
find_dependency(OpenSpliceRMI)
list(REMOVE_AT CMAKE_MODULE_PATH 0)
")
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/FindOpenSpliceRMI.cmake
        DESTINATION ${_tavo_package} COMPONENT development)
endif()
configure_package_config_file(cmake/tavoConfig.cmake.in tavoConfig.cmake INSTALL_DESTINATION ${_tavo_package})
write_basic_package_version_file(tavoConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavoConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/tavoConfigVersion.cmake
    DESTINATION ${_tavo_package} COMPONENT development)
install(EXPORT tavoTargets NAMESPACE tavo:: DESTINATION ${_tavo_package} COMPONENT development)

# For pkg-config. Paths are relative to the file, so that the installed tree can be moved. The
# directories of Paho's headers and of json-c are named when the compiler does not search them by
# default. These paths omit the root of a cross build, since our headers will be below it too.
# json-c's own file is not required: it adds a directory in which <json.h> is found.
set(_tavo_pkgconfig ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TAVO_PC_PREFIX /x/${_tavo_pkgconfig} /x)
string(REGEX REPLACE "/$" "" TAVO_PC_PREFIX "${TAVO_PC_PREFIX}")
set(TAVO_PC_CFLAGS "")
set(TAVO_PC_LIBS "")
set(TAVO_PC_LIBS_PRIVATE " -lpaho-mqtt3cs")
if(CMAKE_THREAD_LIBS_INIT)
    string(APPEND TAVO_PC_LIBS_PRIVATE " ${CMAKE_THREAD_LIBS_INIT}")
endif()
if(TAVO_DDS_PROVIDER STREQUAL "CYCLONEDDS")
    string(REPLACE "${CMAKE_INSTALL_INCLUDEDIR}" "\${includedir}" _tavo_rmi "${TAVO_DDS_INSTALL_INCLUDEDIR}")
    string(APPEND TAVO_PC_CFLAGS " -I${_tavo_rmi}")
    string(APPEND TAVO_PC_LIBS_PRIVATE " -lddsc")
elseif(TAVO_DDS_PROVIDER STREQUAL "OPENSPLICE")
    get_target_property(_tavo_directories OpenSpliceRMI::OpenSpliceRMI INTERFACE_INCLUDE_DIRECTORIES)
    foreach(_directory IN LISTS _tavo_directories)
        string(APPEND TAVO_PC_CFLAGS " -I${_directory}")
    endforeach()
    foreach(_name IN ITEMS ddsrmi dcpssacpp ddskernel)
        string(APPEND TAVO_PC_LIBS " ${OpenSpliceRMI_${_name}_LIBRARY}")
    endforeach()
endif()
set(_tavo_searched ${CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES} ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES})
foreach(_root IN ITEMS "${CMAKE_SYSROOT}" ${CMAKE_FIND_ROOT_PATH})
    foreach(_directory IN ITEMS include lib lib/${CMAKE_LIBRARY_ARCHITECTURE})
        list(APPEND _tavo_searched ${_root}/usr/${_directory} ${_root}/${_directory})
    endforeach()
endforeach()
get_target_property(_tavo_directories eclipse-paho-mqtt-c::paho-mqtt3cs INTERFACE_INCLUDE_DIRECTORIES)
list(APPEND _tavo_directories ${TAVO_JSONC_INCLUDE_DIR})
list(REMOVE_DUPLICATES _tavo_directories)
list(REMOVE_ITEM _tavo_directories ${_tavo_searched})
foreach(_directory IN LISTS _tavo_directories)
    string(APPEND TAVO_PC_CFLAGS " -I${_directory}")
endforeach()
get_filename_component(_tavo_directories ${TAVO_JSONC_LIBRARY} DIRECTORY)
list(REMOVE_ITEM _tavo_directories ${_tavo_searched})
foreach(_directory IN LISTS _tavo_directories)
    string(APPEND TAVO_PC_LIBS " -L${_directory}")
endforeach()
string(APPEND TAVO_PC_LIBS " -ljson-c")
configure_file(cmake/tavo.pc.in tavo.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavo.pc DESTINATION ${_tavo_pkgconfig} COMPONENT development)
