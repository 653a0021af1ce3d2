# Finds what the library stands on. Each dependency ends up as one imported target.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONC REQUIRED IMPORTED_TARGET json-c)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(eclipse-paho-mqtt-c CONFIG REQUIRED)
