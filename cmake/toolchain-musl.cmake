# Compiles for musl with the compiler and against the libraries that scripts/musl-sysroot makes.
# TAVO_ARCHITECTURE is x86_64, whose programs run on this machine as they are, or armhf, whose
# programs an emulator runs.
set(CMAKE_SYSTEM_NAME Linux)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TAVO_ARCHITECTURE)
get_filename_component(_root ${CMAKE_CURRENT_LIST_DIR}/../build/musl-sysroot/${TAVO_ARCHITECTURE} ABSOLUTE)
if(TAVO_ARCHITECTURE STREQUAL "x86_64")
    set(CMAKE_SYSTEM_PROCESSOR x86_64)
elseif(TAVO_ARCHITECTURE STREQUAL "armhf")
    set(CMAKE_SYSTEM_PROCESSOR armv7l)
    set(TAVO_EMULATED_ROOT ${_root})
    set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm-static;-L;${_root}")
else()
    message(FATAL_ERROR "TAVO_ARCHITECTURE is \"${TAVO_ARCHITECTURE}\"; it must be x86_64 or armhf")
endif()
if(NOT EXISTS ${_root})
    message(FATAL_ERROR "There is no sysroot in ${_root}. Run scripts/musl-sysroot ${TAVO_ARCHITECTURE} first.")
endif()

set(CMAKE_C_COMPILER ${_root}/bin/cc)
set(CMAKE_CXX_COMPILER ${_root}/bin/c++)
set(CMAKE_AR ${_root}/bin/ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${_root}/bin/ranlib CACHE FILEPATH "")

# Build tools come from this machine; headers, libraries and packages from the sysroot.
set(CMAKE_FIND_ROOT_PATH ${_root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} ${_root}/lib/pkgconfig)
