# tavo_program(NAME source...): a program that uses the library as applications do.
function(tavo_program name)
    add_executable(${name} ${ARGN})
    target_compile_features(${name} PRIVATE cxx_std_17)
    set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF)
    target_link_libraries(${name} PRIVATE tavo::tavo)
    tavo_warnings(${name})
endfunction()
