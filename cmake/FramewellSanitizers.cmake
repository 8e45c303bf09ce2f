# The sanitizers of a build, by FRAMEWELL_SANITIZE. FRAMEWELL_SANITIZE_LINK_FLAGS is for targets whose
# objects were compiled elsewhere and that only link.
set(flags "")
if(FRAMEWELL_SANITIZE STREQUAL "address")
    set(flags -fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(FRAMEWELL_SANITIZE STREQUAL "thread")
    set(flags -fsanitize=thread)
elseif(FRAMEWELL_SANITIZE)
    message(FATAL_ERROR "FRAMEWELL_SANITIZE is \"${FRAMEWELL_SANITIZE}\"; it can be \"address\", "
                        "\"thread\" or empty")
endif()
set(FRAMEWELL_SANITIZE_LINK_FLAGS ${flags})
if(FRAMEWELL_SANITIZE STREQUAL "address" AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"
   AND NOT FRAMEWELL_BUILD_FUZZ)
    # The runtime as a library, as is g++'s custom: tests that refuse memory or threads put functions of
    # their own before it. Not so for fuzzers, which come with a library of their own.
    execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-runtime-dir
                    OUTPUT_VARIABLE runtime_folder OUTPUT_STRIP_TRAILING_WHITESPACE)
    list(APPEND FRAMEWELL_SANITIZE_LINK_FLAGS -shared-libasan "-Wl,-rpath,${runtime_folder}")
endif()

if(FRAMEWELL_BUILD_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "Fuzzers are built with clang++: set CMAKE_CXX_COMPILER")
    endif()
    if(NOT FRAMEWELL_SANITIZE STREQUAL "address")
        message(FATAL_ERROR "A fuzzer sees little without FRAMEWELL_SANITIZE=address")
    endif()
endif()

add_library(framewell_sanitizers INTERFACE)
if(FRAMEWELL_SANITIZE)
    # Reports name functions and lines, nothing else of what -g would write.
    target_compile_options(framewell_sanitizers INTERFACE
                           ${flags} -g1 -fno-omit-frame-pointer)
    # g++ says itself that sanitizers make this warning guess: it then points into std::regex.
    target_compile_options(framewell_sanitizers INTERFACE
                           $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(framewell_sanitizers INTERFACE ${FRAMEWELL_SANITIZE_LINK_FLAGS})
endif()
if(FRAMEWELL_BUILD_FUZZ)
    # Counts the edges that a run takes; the fuzzer itself comes with the programs' main.
    target_compile_options(framewell_sanitizers INTERFACE -fsanitize=fuzzer-no-link)
endif()
