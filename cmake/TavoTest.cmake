# tavo_test(NAME [SOURCES file...] [LABELS label...] [LOCK lock...] [TIMEOUT seconds]
#           [LIBRARIES target...] [DEPENDS target...] [DEFINITIONS def...])
#
# Declares the GoogleTest program NAME_test made of NAME_test.cpp (and SOURCES). Every case runs in
# its own process, because the logger, the board's descriptor and signal dispositions exist as long
# as the process. LOCK names the fixed paths that the cases use, so that ctest never runs two of
# their users concurrently. DEPENDS names targets that must be built before (helper programs,
# sandbox tools).
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
    # Only the library must be fast. Optimised tests would take three times as long to build.
    target_compile_options(${target} PRIVATE -O0)
    target_link_libraries(${target} PRIVATE tavo::tavo tavo_test_support ${ARG_LIBRARIES} GTest::gtest_main)
    tavo_warnings(${target})
    if(TAVO_PRECOMPILE_TEST_HEADERS)
        target_precompile_headers(${target} REUSE_FROM tavo_test_support)
    endif()
    if(ARG_DEPENDS)
        add_dependencies(${target} ${ARG_DEPENDS})
    endif()
    if("threads" IN_LIST ARG_LABELS)
        if(NOT TARGET threads_tests)
            add_custom_target(threads_tests) # all tests for the thread sanitizer
        endif()
        add_dependencies(threads_tests ${target})
    endif()
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${ARG_TIMEOUT})
    set(environment "")
    if(TAVO_SANITIZER STREQUAL "tsan")
        set(environment "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/tsan.supp")
    endif()
    if(TAVO_EMULATED_ROOT)
        # The emulator finds the libraries of the programs that a test executes here.
        list(APPEND environment "QEMU_LD_PREFIX=${TAVO_EMULATED_ROOT}")
    endif()
    # gtest_discover_tests() cannot pass lists on: only the first value would arrive, and no
    # property after it.
    set(lists ${CMAKE_CURRENT_BINARY_DIR}/${target}_lists.cmake)
    file(WRITE ${lists}
        "foreach(test IN LISTS ${target}_TESTS)\n"
        "    set_tests_properties(\${test} PROPERTIES LABELS \"${ARG_LABELS}\" RESOURCE_LOCK \"${ARG_LOCK}\"\n"
        "        ENVIRONMENT \"${environment}\" COST ${ARG_TIMEOUT})\n" # so that long tests begin first
        "endforeach()\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${lists})
endfunction()
