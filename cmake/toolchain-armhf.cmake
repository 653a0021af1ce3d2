# Cross-compiles for 32-bit ARM with hardware floating point, with Debian's cross compiler, against the sysroot that
# scripts/armhf-sysroot makes. TAVO_ARMHF_SYSROOT (a variable, or in the environment) names another place for it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(_triplet arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${_triplet}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${_triplet})

if(NOT TAVO_ARMHF_SYSROOT)
    if(DEFINED ENV{TAVO_ARMHF_SYSROOT})
        set(TAVO_ARMHF_SYSROOT $ENV{TAVO_ARMHF_SYSROOT})
    else()
        get_filename_component(TAVO_ARMHF_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot ABSOLUTE)
    endif()
endif()
set(CMAKE_SYSROOT ${TAVO_ARMHF_SYSROOT})
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TAVO_ARMHF_SYSROOT)

# Programs come from this machine, all else from the sysroot.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${_triplet}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

# Programs built are run, while tests are discovered and run, by the emulator. Those that they execute in turn need the kernel's
# help: scripts/lib/armhf.sh.
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-arm-static;-L;${CMAKE_SYSROOT}")
