# Finds the library's dependencies. Each becomes one imported target.
find_package(Threads REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(eclipse-paho-mqtt-c CONFIG REQUIRED)

# json-c, by header and library: its older releases have no CMake package. The header is named with
# its directory, since <json-c/json_object.h> is what the public headers include.
find_path(TAVO_JSONC_INCLUDE_DIR json-c/json_object.h)
find_library(TAVO_JSONC_LIBRARY json-c)
mark_as_advanced(TAVO_JSONC_INCLUDE_DIR TAVO_JSONC_LIBRARY)
if(NOT TAVO_JSONC_INCLUDE_DIR OR NOT TAVO_JSONC_LIBRARY)
    message(FATAL_ERROR "json-c was not found (Debian package libjson-c-dev); CMAKE_PREFIX_PATH may name where it is installed")
endif()
if(NOT TARGET JSONC::JSONC)
    # Global, since users of the library link it too, also when this project is part of another one.
    add_library(JSONC::JSONC UNKNOWN IMPORTED GLOBAL)
    set_target_properties(JSONC::JSONC PROPERTIES
        IMPORTED_LOCATION "${TAVO_JSONC_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${TAVO_JSONC_INCLUDE_DIR}")
endif()
