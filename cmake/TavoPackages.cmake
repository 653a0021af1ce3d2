# Debian packages, made by `cpack -G DEB`: libtavo1 and libtavo-dev. scripts/package configures a build for them, so that the
# files go where Debian wants them.
set(CPACK_PACKAGE_NAME libtavo)
set(CPACK_PACKAGE_CONTACT "The libtavo maintainers <root@localhost>" CACHE STRING "Maintainer that the packages name")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

set(_tavo_soname ${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtavo${_tavo_soname})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}\nThe shared library.")

# What our headers include, and what the pkg-config file requires. shlibdeps gives the shared library its own.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libtavo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libtavo${_tavo_soname} (= ${PROJECT_VERSION}), libpaho-mqtt-dev, libjson-c-dev, libssl-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION}\nHeaders, and what CMake and pkg-config need.")
include(CPack)
