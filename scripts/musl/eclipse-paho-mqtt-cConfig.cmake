# The stub library beside Debian's headers; see paho_stub.c.
set(TAVO_PAHO_IS_STUB 1) # for tests that expect what only the real one does
get_filename_component(_root ${CMAKE_CURRENT_LIST_DIR}/../../.. ABSOLUTE)
add_library(eclipse-paho-mqtt-c::paho-mqtt3cs SHARED IMPORTED)
set_target_properties(eclipse-paho-mqtt-c::paho-mqtt3cs PROPERTIES
    IMPORTED_LOCATION ${_root}/lib/libpaho-mqtt3cs.so.1
    INTERFACE_INCLUDE_DIRECTORIES ${_root}/include)
