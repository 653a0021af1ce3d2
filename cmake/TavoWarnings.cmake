# tavo_warnings(target): the warnings every target of this project is compiled with.
function(tavo_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wnon-virtual-dtor
        -Woverloaded-virtual -Wcast-align)
    if(TAVO_DEVELOP)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
endfunction()
