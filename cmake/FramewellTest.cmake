# framewell_test(NAME LABEL label SOURCES file...): one test program, each of its tests an entry of
# ctest of its own, so that no test sees what another left in the process (the logger, the cache of
# probed files, the pool). Few programs, since linking many is what makes a build of tests slow.
include(GoogleTest)

function(framewell_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL" "SOURCES")
    if(NOT arg_SOURCES)
        return()
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE framewell_test_support GTest::gtest GTest::gtest_main)
    framewell_precompile(${name} <gtest/gtest.h> <framewell/framewell.h> <string> <thread> <vector>)
    # Their own code runs for moments; at -O3 it would be most of the time that a build takes.
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O1>)
    set_target_properties(${name} PROPERTIES
                          RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin"
                          CXX_EXTENSIONS OFF)
    if(TARGET framewell_tool)
        add_dependencies(${name} framewell_tool)
        target_compile_definitions(${name} PRIVATE
                                   FRAMEWELL_TOOL_PATH="$<TARGET_FILE:framewell_tool>")
        if(CMAKE_CROSSCOMPILING_EMULATOR)
            target_compile_definitions(${name} PRIVATE
                                       FRAMEWELL_TOOL_EMULATOR="${CMAKE_CROSSCOMPILING_EMULATOR}")
        endif()
    endif()
    gtest_discover_tests(${name}
                         DISCOVERY_MODE PRE_TEST
                         DISCOVERY_TIMEOUT 120
                         NO_PRETTY_VALUES
                         WORKING_DIRECTORY "${PROJECT_BINARY_DIR}"
                         PROPERTIES LABELS "${arg_LABEL}" TIMEOUT 900)
endfunction()
