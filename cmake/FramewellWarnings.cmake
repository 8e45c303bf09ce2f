# The warnings that all code of this project is free of, with g++ and with clang++.
add_library(framewell_warnings INTERFACE)
target_compile_options(framewell_warnings INTERFACE
                       -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                       -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef)
if(FRAMEWELL_WERROR)
    target_compile_options(framewell_warnings INTERFACE -Werror)
endif()
