# framewell_test(NAME LABEL label SOURCES file...
#                [SHARING rows|suites [APART part...]] [LIBRARY_PATH folder]):
# one test program. Few programs, since linking many is what makes a build of tests slow.
#
# Each of its tests is an entry of ctest and a process of its own, so that none sees what another left
# there (the logger, the cache of probed files, the pool). SHARING says what takes that care itself, as
# a process takes longer to start than most tests run: "rows", the rows of a table, "suites", all tests
# of a suite. Not so suites with one of the parts of APART in their names, whose tests take long. Under a
# sanitizer or an emulator a process takes many times as long to start, and "rows" is read as "suites".
# LIBRARY_PATH: where the program finds libraries first.
function(framewell_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;SHARING;LIBRARY_PATH" "SOURCES;APART")
    if(NOT arg_SOURCES)
        return()
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE framewell_test_support framewell_test_main GTest::gtest)
    # Their own code runs for moments, and optimizing it would be most of the time that a build takes:
    # with the address sanitizer two thirds.
    target_compile_options(${name} PRIVATE $<$<NOT:$<CONFIG:Debug>>:-O0>)
    set_target_properties(${name} PROPERTIES
                          RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin"
                          CXX_EXTENSIONS OFF)
    framewell_add_entries(${name})
endfunction()

# The program is asked for its entries when ctest starts: it is built by then.
macro(framewell_add_entries name)
    set(entries "${CMAKE_CURRENT_BINARY_DIR}/${name}_entries.cmake")
    set(environment "")
    if(arg_LIBRARY_PATH)
        set(environment "LD_LIBRARY_PATH=${arg_LIBRARY_PATH}:$ENV{LD_LIBRARY_PATH}")
    endif()
    if(NOT arg_SHARING)
        set(arg_SHARING none)
    elseif(FRAMEWELL_SANITIZE OR CMAKE_CROSSCOMPILING)
        set(arg_SHARING suites)
    endif()
    file(GENERATE OUTPUT "${entries}" CONTENT "\
set(cmake \"${CMAKE_COMMAND}\")
set(name \"${name}\")
set(program \"$<TARGET_FILE:${name}>\")
set(emulator \"${CMAKE_CROSSCOMPILING_EMULATOR}\")
set(folder \"${PROJECT_BINARY_DIR}\")
set(label \"${arg_LABEL}\")
set(sharing \"${arg_SHARING};${arg_APART}\")
set(environment \"${environment}\")
include(\"${PROJECT_SOURCE_DIR}/cmake/FramewellTestEntries.cmake\")
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES "${entries}")
endmacro()
