# Chooses the provider of the DDS RMI runtime.
#
# TAVO_DDS           what the builder requests; AUTO takes the first of OPENSPLICE, CYCLONEDDS and
#                    OFF that is available
# TAVO_DDS_PROVIDER  what was chosen: OPENSPLICE, CYCLONEDDS (our own implementation in rmi/) or OFF
#                    (the class is left out)
# TAVO_DDS_INSTALL_INCLUDEDIR
#                    where <dds_service_sdk.h> is installed, below the prefix; empty unless
#                    CYCLONEDDS provides it. A separate directory, since the file has the name of
#                    another product's header.
# tavo_add_dds(target)  adds the class and its provider to the library
set(_tavo_dds_choices AUTO OPENSPLICE CYCLONEDDS OFF)
set(TAVO_DDS AUTO CACHE STRING "Provider of the DDS RMI runtime: AUTO, OPENSPLICE, CYCLONEDDS or OFF")
set_property(CACHE TAVO_DDS PROPERTY STRINGS ${_tavo_dds_choices})
if(NOT TAVO_DDS IN_LIST _tavo_dds_choices)
    message(FATAL_ERROR "TAVO_DDS is \"${TAVO_DDS}\"; it must be AUTO, OPENSPLICE, CYCLONEDDS or OFF")
endif()

set(TAVO_DDS_PROVIDER OFF)
if(TAVO_DDS STREQUAL "OPENSPLICE")
    find_package(OpenSpliceRMI REQUIRED)
elseif(TAVO_DDS STREQUAL "AUTO")
    find_package(OpenSpliceRMI QUIET)
endif()
if(OpenSpliceRMI_FOUND AND TAVO_DDS MATCHES "^(AUTO|OPENSPLICE)$")
    set(TAVO_DDS_PROVIDER OPENSPLICE)
elseif(TAVO_DDS MATCHES "^(AUTO|CYCLONEDDS)$")
    find_package(CycloneDDS CONFIG QUIET)
    if(CycloneDDS_FOUND)
        set(TAVO_DDS_PROVIDER CYCLONEDDS)
    elseif(TAVO_DDS STREQUAL "CYCLONEDDS")
        message(FATAL_ERROR "TAVO_DDS is CYCLONEDDS, but Eclipse Cyclone DDS was not found (Debian package cyclonedds-dev)")
    else()
        message(NOTICE "libtavo is built without NQ_DDS_RMI_RUNTIME: no DDS provider was found. To include the class, "
                       "install the Debian package cyclonedds-dev or set OSPL_HOME. TAVO_DDS=OFF suppresses this notice.")
    endif()
endif()
message(STATUS "DDS RMI runtime: ${TAVO_DDS_PROVIDER}")

set(TAVO_DDS_INSTALL_INCLUDEDIR "")
if(TAVO_DDS_PROVIDER STREQUAL "CYCLONEDDS")
    set(TAVO_DDS_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/tavo/rmi)
endif()

get_filename_component(_tavo_dds_root ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
function(tavo_add_dds target)
    if(TAVO_DDS_PROVIDER STREQUAL "OFF")
        return()
    endif()
    target_sources(${target} PRIVATE ${_tavo_dds_root}/src/NQ_DDS_RMI.cpp)
    if(TAVO_DDS_PROVIDER STREQUAL "OPENSPLICE")
        target_link_libraries(${target} PUBLIC OpenSpliceRMI::OpenSpliceRMI)
        return()
    endif()
    set(rmi ${_tavo_dds_root}/rmi)
    target_sources(${target} PRIVATE
        ${rmi}/src/CRuntime.cpp ${rmi}/src/CycloneRuntime.cpp ${rmi}/src/RuntimeOptions.cpp)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${rmi}/include> $<INSTALL_INTERFACE:${TAVO_DDS_INSTALL_INCLUDEDIR}>)
    target_link_libraries(${target} PRIVATE CycloneDDS::ddsc)
endfunction()
