# Cross-compiles for ARM with Debian's cross compiler, against the sysroot that
# scripts/debian-sysroot makes. TAVO_ARCHITECTURE is Debian's name of the machine: armhf (32 bits,
# hardware floating point) or arm64. TAVO_SYSROOT (a variable, or in the environment) names another
# place for the sysroot.
set(CMAKE_SYSTEM_NAME Linux)
if(TAVO_ARCHITECTURE STREQUAL "armhf")
    set(CMAKE_SYSTEM_PROCESSOR armv7l)
    set(_triplet arm-linux-gnueabihf)
    set(_emulator qemu-arm-static)
elseif(TAVO_ARCHITECTURE STREQUAL "arm64")
    set(CMAKE_SYSTEM_PROCESSOR aarch64)
    set(_triplet aarch64-linux-gnu)
    set(_emulator qemu-aarch64-static)
else()
    message(FATAL_ERROR "TAVO_ARCHITECTURE is \"${TAVO_ARCHITECTURE}\"; it must be armhf or arm64")
endif()
set(CMAKE_C_COMPILER ${_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${_triplet})

if(NOT TAVO_SYSROOT)
    if(DEFINED ENV{TAVO_SYSROOT})
        set(TAVO_SYSROOT $ENV{TAVO_SYSROOT})
    else()
        get_filename_component(TAVO_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/${TAVO_ARCHITECTURE}-sysroot ABSOLUTE)
    endif()
endif()
set(CMAKE_SYSROOT ${TAVO_SYSROOT})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TAVO_ARCHITECTURE TAVO_SYSROOT)

# Programs are those of this machine; everything else is from the sysroot.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${_triplet}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

# The emulator runs the tests, also to discover them. Programs that they execute in turn need
# support by the kernel: see scripts/lib/emulated.sh.
set(TAVO_EMULATED_ROOT ${CMAKE_SYSROOT})
set(CMAKE_CROSSCOMPILING_EMULATOR "${_emulator};-L;${CMAKE_SYSROOT}")
