# tavo_test(NAME [SOURCES file...] [LABELS label...] [LOCK lock...] [TIMEOUT seconds]
#           [LIBRARIES target...] [DEPENDS target...] [DEFINITIONS def...])
#
# Declares the GoogleTest program NAME_test made of NAME_test.cpp (and SOURCES). Every case runs in
# a process of its own, because the logger, the board's descriptor and signal dispositions live as
# long as a process. LOCK names the fixed paths that the cases use, so that ctest never runs two of
# their users at once. DEPENDS names targets that must be built before (helper programs, sandbox
# tools).
include(GoogleTest)

function(tavo_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LABELS;LOCK;LIBRARIES;DEPENDS;DEFINITIONS" ${ARGN})
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    set(target ${name}_test)
    add_executable(${target} ${name}_test.cpp ${ARG_SOURCES})
    target_compile_features(${target} PRIVATE cxx_std_17)
    target_compile_definitions(${target} PRIVATE ${ARG_DEFINITIONS})
    # The library is what is to be fast; optimising the tests would only make their builds three
    # times as long.
    target_compile_options(${target} PRIVATE -O0)
    target_link_libraries(${target} PRIVATE tavo::tavo tavo_test_support ${ARG_LIBRARIES} GTest::gtest_main)
    tavo_warnings(${target})
    if(ARG_DEPENDS)
        add_dependencies(${target} ${ARG_DEPENDS})
    endif()
    if("threads" IN_LIST ARG_LABELS)
        if(NOT TARGET threads_tests)
            add_custom_target(threads_tests) # all that the thread sanitizer is to look at
        endif()
        add_dependencies(threads_tests ${target})
    endif()
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${ARG_TIMEOUT})
    set(environment "")
    if(TAVO_SANITIZER STREQUAL "tsan")
        set(environment "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp")
    endif()
    if(TAVO_EMULATED_ROOT)
        # Where the emulator finds the libraries of the programs that a test executes.
        list(APPEND environment "QEMU_LD_PREFIX=${TAVO_EMULATED_ROOT}")
    endif()
    # Lists do not survive the way through gtest_discover_tests(): only the first value would, and
    # no property after it.
    set(lists ${CMAKE_CURRENT_BINARY_DIR}/${target}_lists.cmake)
    file(WRITE ${lists}
        "foreach(test IN LISTS ${target}_TESTS)\n"
        "    set_tests_properties(\${test} PROPERTIES LABELS \"${ARG_LABELS}\" RESOURCE_LOCK \"${ARG_LOCK}\"\n"
        "        ENVIRONMENT \"${environment}\")\n"
        "endforeach()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${lists})
endfunction()
