# Run by ctest as it starts: adds an entry for each line that a test program prints when it is asked for
# them. What to add is in the variables that framewell_test() of FramewellTest.cmake sets.
if(NOT EXISTS "${program}")
    add_test(${name}_NOT_BUILT ${name}_NOT_BUILT)
    return()
endif()
execute_process(COMMAND "${cmake}" -E env ${environment}
                        ${emulator} "${program}" --entries ${sharing}
                WORKING_DIRECTORY "${folder}"
                TIMEOUT 120
                OUTPUT_VARIABLE lines
                RESULT_VARIABLE status)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "${program} does not tell its tests: ${status}\n${lines}")
endif()
string(REGEX MATCHALL "[^\n]+" lines "${lines}")
foreach(line IN LISTS lines)
    # The star is for the program: a name of ctest need not have it.
    string(REGEX REPLACE "\\.\\*$" "" entry "${line}")
    add_test("${entry}" ${emulator} "${program}" "--gtest_filter=${line}")
    set_tests_properties("${entry}" PROPERTIES
                         WORKING_DIRECTORY "${folder}"
                         SKIP_RETURN_CODE 77
                         LABELS "${label}"
                         ENVIRONMENT "${environment}"
                         TIMEOUT 900)
endforeach()
