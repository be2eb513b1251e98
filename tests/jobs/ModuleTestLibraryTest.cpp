// The library with which module authors test their modules on arrays.
#include "ExampleLibrary.h"
#include "vorn_module_test.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <stdlib.h>

namespace {

using testing::HasSubstr;
using testing::StrEq;

class ModuleTestLibraryTest : public testing::Test
{
protected:
    ~ModuleTestLibraryTest() override
    {
        testing::internal::CaptureStderr(); // problems that are meant
        vorn_test_close(test);
        testing::internal::GetCapturedStderr();
    }

    // Traces 1 2 3 and 4 5 6 of the amplifier.
    void amplify()
    {
        open(exampleModule("amplify"));
        const float samples[] = {1, 2, 3, 4, 5, 6};
        EXPECT_EQ(vorn_test_set_number(test, "factor", 2), 0);
        EXPECT_EQ(vorn_test_add_trace(test, 0, samples, 3), 0);
        EXPECT_EQ(vorn_test_add_trace(test, 0, samples + 3, 3), 1);
        EXPECT_EQ(vorn_test_set_header(test, 0, 1, "offset", 100), 0);
    }

    // A library of the build's module tree, by its path from there.
    void open(const std::string& library)
    {
        test = vorn_test_open((std::string(VORN_TEST_HOME) + "/lib/" + library).c_str());
        ASSERT_NE(test, nullptr);
    }

    std::string lastProblem() const
    {
        const char* text = vorn_test_problem(test, vorn_test_problems(test) - 1);
        return text != nullptr ? text : "";
    }

    vorn_test* test = nullptr;
};

const float doubled[] = {8, 10, 12};

TEST_F(ModuleTestLibraryTest, GivesWhatTheModuleMakesOfArrays)
{
    amplify();
    vorn_test_set_interval(test, 2000);

    EXPECT_EQ(vorn_test_run(test), VORN_TEST_DONE);
    EXPECT_THAT(vorn_test_reason(test), StrEq(""));
    EXPECT_EQ(vorn_test_traces(test, 0), 2);
    EXPECT_EQ(vorn_test_interval(test, 0), 2000);
    int count = -1;
    const float* samples = vorn_test_samples(test, 0, 1, &count);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(samples[2], 12);
    int offset = -1;
    EXPECT_EQ(vorn_test_header(test, 0, 0, "offset", &offset), 0);
    EXPECT_EQ(offset, 0);
    EXPECT_EQ(vorn_test_header(test, 0, 1, "offset", &offset), 0);
    EXPECT_EQ(offset, 100);
    EXPECT_EQ(vorn_test_bytes_left(test), 0);

    EXPECT_EQ(vorn_test_expect_traces(test, 0, 2), 0);
    EXPECT_EQ(vorn_test_expect_samples(test, 0, 1, doubled, 3, 0), 0);
    EXPECT_EQ(vorn_test_expect_header(test, 0, 1, "offset", 100), 0);
    EXPECT_EQ(vorn_test_expect_no_leak(test), 0);
    EXPECT_EQ(vorn_test_problems(test), 0);
    EXPECT_EQ(vorn_test_close(test), 0);
    test = nullptr;
}

TEST_F(ModuleTestLibraryTest, EachWrongExpectationIsAProblemOfItsOwn)
{
    amplify();
    vorn_test_run(test);
    const float other[] = {8, 10, 12.5f};

    EXPECT_EQ(vorn_test_expect_traces(test, 0, 3), 1);
    EXPECT_EQ(lastProblem(), "output 0 has 2 traces; expected 3");
    EXPECT_EQ(vorn_test_expect_traces(test, 1, 0), 1);
    EXPECT_EQ(lastProblem(), "output 1 does not exist");
    EXPECT_EQ(vorn_test_expect_samples(test, 0, 1, other, 3, 0.4), 1);
    EXPECT_EQ(lastProblem(), "output 0, trace 1, sample 2 is 12; expected 12.5");
    EXPECT_EQ(vorn_test_expect_samples(test, 0, 1, other, 3, 0.5), 0);
    EXPECT_EQ(vorn_test_expect_samples(test, 0, 1, other, 2, 0.5), 1);
    EXPECT_EQ(lastProblem(), "output 0, trace 1 has 3 samples; expected 2");
    EXPECT_EQ(vorn_test_expect_samples(test, 0, 2, other, 3, 0.5), 1);
    EXPECT_EQ(lastProblem(), "output 0, trace 2 does not exist");
    EXPECT_EQ(vorn_test_expect_header(test, 0, 1, "offset", 101), 1);
    EXPECT_EQ(lastProblem(), "output 0, trace 1: offset is 100; expected 101");
    EXPECT_EQ(vorn_test_expect_header(test, 0, 1, "cdp", 0), 1);
    EXPECT_EQ(lastProblem(), "output 0, trace 1 does not exist, or has no header word cdp");
    EXPECT_EQ(vorn_test_expect_message(test, "ten"), 1);
    EXPECT_EQ(lastProblem(), "no message contains \"ten\"");
    EXPECT_EQ(vorn_test_expect_failure(test, ""), 1);
    EXPECT_EQ(lastProblem(), "the module was expected to fail, and did not");

    const int problems = vorn_test_problems(test);
    EXPECT_EQ(problems, 9);
    testing::internal::CaptureStderr();
    EXPECT_EQ(vorn_test_close(test), 1);
    test = nullptr;
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("libamplify.so: output 0 has 2 traces; expected 3\n"));
}

TEST_F(ModuleTestLibraryTest, AFailureIsAProblemUnlessItIsExpected)
{
    open(exampleModule("amplify"));
    const float samples[] = {1};
    vorn_test_add_trace(test, 0, samples, 1);

    EXPECT_EQ(vorn_test_run(test), VORN_TEST_FAILED);
    EXPECT_THAT(vorn_test_reason(test), StrEq("factor is missing; give a finite number"));
    EXPECT_EQ(vorn_test_problems(test), 1);
    EXPECT_EQ(vorn_test_traces(test, 0), 0);
    int type = -1;
    EXPECT_THAT(vorn_test_message(test, 0, &type),
                StrEq("factor is missing; give a finite number"));
    EXPECT_EQ(type, 4);
    EXPECT_EQ(vorn_test_expect_message(test, "is missing"), 0);
    EXPECT_EQ(vorn_test_expect_failure(test, "factor is"), 0);
    EXPECT_EQ(vorn_test_problems(test), 0);

    // Another run begins anew.
    vorn_test_set_int(test, "factor", 3);
    EXPECT_EQ(vorn_test_run(test), VORN_TEST_DONE);
    const float tripled[] = {3};
    EXPECT_EQ(vorn_test_expect_samples(test, 0, 0, tripled, 1, 0), 0);
    EXPECT_EQ(vorn_test_messages(test), 0);
}

TEST_F(ModuleTestLibraryTest, WordsHoldIntegersNumbersAndTexts)
{
    amplify();
    vorn_test_set_header_number(test, 0, 0, "level", 2.5);
    vorn_test_set_header(test, 0, 1, "level", 3);
    vorn_test_set_header_text(test, 0, 0, "line", "A 17");

    EXPECT_EQ(vorn_test_run(test), VORN_TEST_DONE);
    EXPECT_EQ(vorn_test_expect_header(test, 0, 0, "level", 2.5), 0);
    EXPECT_EQ(vorn_test_expect_header(test, 0, 1, "level", 3), 0);
    EXPECT_EQ(vorn_test_expect_header_text(test, 0, 0, "line", "A 17"), 0);
    EXPECT_THAT(vorn_test_header_text(test, 0, 1, "line"), StrEq(""));
    EXPECT_EQ(vorn_test_expect_header_text(test, 0, 0, "line", "A 18"), 1);
    EXPECT_EQ(lastProblem(), "output 0, trace 0: line is \"A 17\"; expected \"A 18\"");

    EXPECT_EQ(vorn_test_set_header(test, 0, 0, "line", 1), 1);
    EXPECT_EQ(lastProblem(), "the header word line is set to a text and to a number");
}

TEST_F(ModuleTestLibraryTest, AnInputWithoutTracesEnds)
{
    open(exampleModule("amplify"));
    vorn_test_set_number(test, "factor", 2);
    vorn_test_set_inputs(test, 1);

    EXPECT_EQ(vorn_test_run(test), VORN_TEST_DONE);
    EXPECT_EQ(vorn_test_expect_traces(test, 0, 0), 0);
}

TEST_F(ModuleTestLibraryTest, TracesThatNobodyMarksAreNoticed)
{
    open("libunmarked_end.so");
    const float samples[] = {1};
    vorn_test_add_trace(test, 0, samples, 1);
    vorn_test_add_trace(test, 0, samples, 1);

    EXPECT_EQ(vorn_test_run(test), VORN_TEST_DONE);
    const int traces = vorn_test_traces(test, 0);
    EXPECT_EQ(vorn_test_expect_traces(test, 0, traces), 1);
    EXPECT_THAT(lastProblem(), HasSubstr("is the last one, and not marked as the end of the data"));
}

TEST_F(ModuleTestLibraryTest, ExceptionsAreReasons)
{
    open("libhost_throw.so");
    const float samples[] = {1};
    vorn_test_add_trace(test, 0, samples, 1);

    EXPECT_EQ(vorn_test_run(test), VORN_TEST_FAILED);
    EXPECT_THAT(vorn_test_reason(test), HasSubstr("an exception left the module"));
}

TEST_F(ModuleTestLibraryTest, WhatCannotBeLoadedSaysWhy)
{
    open("libnone.so");
    EXPECT_EQ(vorn_test_run(test), VORN_TEST_NOT_LOADED);
    EXPECT_THAT(vorn_test_reason(test), HasSubstr("libnone.so"));
    EXPECT_EQ(lastProblem(), vorn_test_reason(test));
    EXPECT_EQ(vorn_test_expect_failure(test, ""), 1);
    vorn_test_close(test);

    open("libmissing_process.so");
    EXPECT_EQ(vorn_test_run(test), VORN_TEST_NOT_LOADED);
    EXPECT_THAT(vorn_test_reason(test), HasSubstr("process_"));
}

TEST_F(ModuleTestLibraryTest, NamesAreLookedForInTheDirectoryOfTests)
{
    setenv("VORN_TEST_MODULES", VORN_TEST_HOME "/../examples/vorn_home/lib", 1);
    test = vorn_test_open("amplify");
    vorn_test_set_inputs(test, 1);
    vorn_test_set_int(test, "factor", 1);
    EXPECT_EQ(vorn_test_run(test), VORN_TEST_DONE) << vorn_test_reason(test);
    unsetenv("VORN_TEST_MODULES");
}

TEST_F(ModuleTestLibraryTest, WrongCallsRunNothing)
{
    amplify();
    const float sample = 1;
    EXPECT_EQ(vorn_test_set_header(test, 0, 2, "offset", 1), 1);
    EXPECT_EQ(lastProblem(), "the header word offset is set in trace 2 of input 0, which does not "
                             "exist; add the trace first");
    EXPECT_EQ(vorn_test_run(test), VORN_TEST_WRONG_CALL);
    EXPECT_EQ(vorn_test_reason(test), lastProblem());
    EXPECT_EQ(vorn_test_traces(test, 0), 0);

    EXPECT_EQ(vorn_test_add_trace(test, -1, &sample, 1), -1);
    EXPECT_EQ(vorn_test_add_trace(test, 0, nullptr, 1), -1);
    EXPECT_EQ(vorn_test_add_trace(test, 0, &sample, -1), -1);
    EXPECT_EQ(vorn_test_set_inputs(test, -1), 1);
    EXPECT_EQ(vorn_test_set_outputs(test, 101), 1);
    EXPECT_EQ(vorn_test_set_number(test, "", 1), 1);
    EXPECT_EQ(vorn_test_set_ints(test, "list", nullptr, 2), 1);

    EXPECT_EQ(vorn_test_run(nullptr), VORN_TEST_WRONG_CALL);
    EXPECT_EQ(vorn_test_close(nullptr), 1);
    EXPECT_EQ(vorn_test_traces(nullptr, 0), 0);
    EXPECT_EQ(vorn_test_problem(nullptr, 0), nullptr);
}

} // namespace
