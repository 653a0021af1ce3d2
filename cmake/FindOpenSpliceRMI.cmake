# Finds the RMI layer of an installed OpenSplice DDS, a licensed product, through OSPL_HOME. That is
# a CMake variable, or the environment variable that the product's set-up script sets.
#
# Defines OpenSpliceRMI_FOUND and the target OpenSpliceRMI::OpenSpliceRMI. The libraries are part of
# it because the inline functions of the product's headers call into them.
include(FindPackageHandleStandardArgs)

set(_ospl_home "${OSPL_HOME}")
if(NOT _ospl_home)
    set(_ospl_home "$ENV{OSPL_HOME}")
endif()

find_path(OpenSpliceRMI_INCLUDE_DIR dds_service_sdk.h
    PATHS "${_ospl_home}/include/rmi" NO_DEFAULT_PATH)
set(_ospl_libraries "")
foreach(_name IN ITEMS ddsrmi dcpssacpp ddskernel)
    find_library(OpenSpliceRMI_${_name}_LIBRARY ${_name} PATHS "${_ospl_home}/lib" NO_DEFAULT_PATH)
    mark_as_advanced(OpenSpliceRMI_${_name}_LIBRARY)
    list(APPEND _ospl_libraries OpenSpliceRMI_${_name}_LIBRARY)
endforeach()
mark_as_advanced(OpenSpliceRMI_INCLUDE_DIR)

find_package_handle_standard_args(OpenSpliceRMI
    REQUIRED_VARS OpenSpliceRMI_INCLUDE_DIR ${_ospl_libraries}
    REASON_FAILURE_MESSAGE "set OSPL_HOME to the directory OpenSplice is installed in")

if(OpenSpliceRMI_FOUND AND NOT TARGET OpenSpliceRMI::OpenSpliceRMI)
    find_package(Threads REQUIRED)
    get_filename_component(_ospl_include "${OpenSpliceRMI_INCLUDE_DIR}" DIRECTORY)
    set(_ospl_link "")
    foreach(_variable IN LISTS _ospl_libraries)
        list(APPEND _ospl_link "${${_variable}}")
    endforeach()
    add_library(OpenSpliceRMI::OpenSpliceRMI INTERFACE IMPORTED)
    set_target_properties(OpenSpliceRMI::OpenSpliceRMI PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES
            "${_ospl_include};${_ospl_include}/sys;${_ospl_include}/dcps/C++/SACPP;${_ospl_include}/rmi"
        INTERFACE_LINK_LIBRARIES "${_ospl_link};Threads::Threads;${CMAKE_DL_LIBS};rt")
endif()
