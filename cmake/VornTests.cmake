# vorn_discover_tests(<target> [TIMEOUT <seconds>] [NOT_UNDER_VALGRIND <pattern>...])
#
# Makes each test of the GoogleTest executable one of ctest's, of at most 600 seconds by default. With
# VORN_TESTS_BY_SUITE, a test of ctest is a whole suite: with sanitizers each start takes longer than
# most tests. With VORN_VALGRIND, too, and it runs under valgrind; NOT_UNDER_VALGRIND leaves tests out
# there (patterns as for --gtest_filter), besides those that say in their name that they are about
# costs: they compare times or processors' counts.
#
# vorn_precompile_test_headers(<target>)
#
# The headers that each test includes, compiled once for all executables of tests: one for each took
# 130 megabytes each, four gigabytes of a build. <target> must be compiled with the options and
# definitions of the others; a source file with more of them has SKIP_PRECOMPILE_HEADERS.
#
# vorn_add_program_test(<name> <target> [<argument>...])
#
# The test <name> of a program that is no GoogleTest, under valgrind with VORN_VALGRIND.
include(GoogleTest)

set(VORN_TEST_LAUNCHER "")
if(VORN_VALGRIND)
    find_program(VORN_VALGRIND_PROGRAM valgrind REQUIRED)
    set(VORN_TEST_LAUNCHER ${PROJECT_SOURCE_DIR}/tests/support/valgrind.sh)
endif()
set(VORN_SUITES_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/VornTestSuites.cmake)

function(vorn_discover_tests target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "NOT_UNDER_VALGRIND")
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 600)
    endif()
    if(NOT VORN_VALGRIND AND NOT VORN_TESTS_BY_SUITE)
        # Of a build with the thread sanitizer, the preset runs what it builds.
        set(labels "")
        if(VORN_SANITIZE STREQUAL thread)
            set(labels LABELS threads)
        endif()
        gtest_discover_tests(${target}
            DISCOVERY_MODE PRE_TEST
            DISCOVERY_TIMEOUT 120
            PROPERTIES TIMEOUT ${arg_TIMEOUT} ${labels})
        return()
    endif()
    set(left_out "")
    if(VORN_VALGRIND)
        list(JOIN arg_NOT_UNDER_VALGRIND ":" left_out)
        set(left_out "*Cost*:${left_out}")
    endif()
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}_suites.cmake)
    file(GENERATE OUTPUT ${script} CONTENT
"set(program [==[$<TARGET_FILE:${target}>]==])
set(launcher [==[${VORN_TEST_LAUNCHER}]==])
set(left_out [==[${left_out}]==])
include([==[${VORN_SUITES_SCRIPT}]==])
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()

function(vorn_precompile_test_headers target)
    # Compiling the tests takes far longer than running them. Arithmetic in C and Fortran stays
    # compiled as in the module.
    set(options "$<$<COMPILE_LANGUAGE:CXX>:-O0;-U_FORTIFY_SOURCE>")
    if(VORN_SANITIZE)
        # Undefined behaviour is looked for in what is tested: checks in each assertion of a test would
        # double the time that it takes to compile.
        set(options "${options}" "$<$<COMPILE_LANGUAGE:CXX>:-fno-sanitize=undefined>")
    endif()
    if(NOT TARGET vorn_test_headers)
        # CMake asks for headers of each language of the targets that use them: arithmetic is C.
        set(source ${PROJECT_BINARY_DIR}/vorn_test_headers)
        file(GENERATE OUTPUT ${source}.cpp CONTENT "")
        file(GENERATE OUTPUT ${source}.c CONTENT "typedef int vorn_test_headers;\n")
        add_executable(vorn_test_headers ${source}.cpp ${source}.c)
        target_link_libraries(vorn_test_headers PRIVATE vorn_test_support)
        vorn_enable_warnings(vorn_test_headers)
        target_compile_options(vorn_test_headers PRIVATE ${options})
        foreach(header IN ITEMS gmock/gmock.h gtest/gtest.h map memory string vector)
            target_precompile_headers(vorn_test_headers PRIVATE
                "$<$<COMPILE_LANGUAGE:CXX>:<${header}$<ANGLE-R>>")
        endforeach()
        target_precompile_headers(vorn_test_headers PRIVATE
            "$<$<COMPILE_LANGUAGE:C>:<stddef.h$<ANGLE-R>>")
    endif()
    target_compile_options(${target} PRIVATE ${options})
    target_precompile_headers(${target} REUSE_FROM vorn_test_headers)
endfunction()

function(vorn_add_program_test name target)
    add_test(NAME ${name} COMMAND ${VORN_TEST_LAUNCHER} $<TARGET_FILE:${target}> ${ARGN})
endfunction()
