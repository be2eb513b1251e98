# Read by ctest: a test for each suite of the GoogleTest executable `program`, started by `launcher`,
# but for the tests of the pattern `left_out`.
execute_process(COMMAND ${program} --gtest_list_tests --gtest_filter=-${left_out}
    OUTPUT_VARIABLE list
    TIMEOUT 120
    COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "(^|\n)[A-Za-z0-9_/]+\\." suites "${list}")
foreach(suite IN LISTS suites)
    string(REGEX REPLACE "[\n.]" "" suite "${suite}")
    add_test(${suite} ${launcher} ${program} "--gtest_filter=${suite}.*-${left_out}" --gtest_brief=1)
    set_tests_properties(${suite} PROPERTIES TIMEOUT 1800)
endforeach()
