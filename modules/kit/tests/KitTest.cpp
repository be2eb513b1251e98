// The kit and the parameters that are made from a manifest, in each language: three modules of one
// manifest tell what they were given, and all of them must tell the same.
#include "ModuleTest.h"

#include "knl.h"

#include <cmath>
#include <limits>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class KitTest : public ModuleTest, public testing::WithParamInterface<const char*>
{
protected:
    KitTest() : ModuleTest(GetParam()) { push(); }

    void push()
    {
        for (int i = 0; i < 3; ++i)
            harness.push({1, 2}, {{"tracf", UniVar(i + 1)}});
    }

    // The parameter that must be given is, unless `parameters` say otherwise.
    void addWith(std::map<std::string, UniVar> parameters)
    {
        parameters.emplace("needed", UniVar(0.5));
        add(std::move(parameters));
    }

    // What the module told of one parameter.
    std::vector<std::string> told(const std::string& name)
    {
        std::vector<std::string> found;
        for (const std::string& line : messages(1)) {
            if (line.rfind(name + "=", 0) == 0 || line.rfind(name + " ", 0) == 0)
                found.push_back(line);
        }
        return found;
    }
};

INSTANTIATE_TEST_SUITE_P(Languages, KitTest, testing::Values("kit_c", "kit_cxx", "kit_fortran"));

TEST_P(KitTest, DefaultsStandForWhatIsAbsent)
{
    addWith({});

    run();

    EXPECT_THAT(messages(1),
                ElementsAre("real=0.25", "free=1", "absent_real absent", "count=3",
                            "wide=9007199254740993", "absent_count absent", "flag=1",
                            "absent_flag absent", "word=it's \"a\" \\ ?\?/ é", "absent_word absent",
                            "mode=1", "called=rms", "absent_mode absent", "reals=2", "sum=1.5",
                            "ints=0", "last int absent", "wides=5000000000", "four=4", "words=a",
                            "words=b c", "infile absent", "needed=0.5", "hard names=306",
                            "traces=3"));
}

TEST_P(KitTest, NumbersThatHaveNamesAreThoseOfTheInterface)
{
    constexpr int numbers[] = {KNL_MESSAGE_DETAIL,
                               KNL_MESSAGE_INFORMATION,
                               KNL_MESSAGE_WARNING,
                               KNL_MESSAGE_ERROR,
                               KNL_MESSAGE_FATAL,
                               KNL_SCOPE_JOB,
                               KNL_SCOPE_MODULE,
                               KNL_END_OF_DATA,
                               KNL_KEEP_TRACE,
                               KNL_TYPE_TEXT,
                               KNL_TYPE_I32,
                               KNL_TYPE_I64,
                               KNL_TYPE_F32,
                               KNL_TYPE_F64,
                               KNL_TYPE_TEXT32,
                               KNL_TYPE_TEXT64,
                               KNL_PAD_SECTION,
                               KNL_PAD_GRAPH,
                               KNL_PAD_SECTION_AND_GRAPH,
                               KNL_PEN_DRAW,
                               KNL_PEN_MOVE};
    std::string text = "numbers:";
    for (const int number : numbers)
        text += " " + std::to_string(number);
    EXPECT_EQ(text, "numbers: 0 1 2 3 4 0 1 3 1 1 2 3 4 5 9 10 1 2 3 2 3");
    addWith({});

    run();

    EXPECT_THAT(messages(0), Contains(text));
}

TEST_P(KitTest, ValuesOfTheJobArriveInTheirTypes)
{
    const int64_t wides[] = {INT64_MIN, INT64_MAX};
    addWith({{"real", UniVar(10)},
             {"free", UniVar(-2.5)},
             {"absent_real", UniVar(4.5)},
             {"count", UniVar(5)},
             {"wide", UniVar(INT64_MIN)},
             {"absent_count", UniVar(-7)},
             {"flag", UniVar(0)},
             {"absent_flag", UniVar(1)},
             {"word", UniVar("")},
             {"absent_word", UniVar(" a blank")},
             {"mode", UniVar("black-white")},
             {"absent_mode", UniVar("b")},
             {"reals", floats({0, 1, 2})},
             {"ints", integers({1, 2, 9})},
             {"wides", UniVar(wides, 2)},
             {"four", floats({1, 2, 3, 8})},
             {"words", UniVar("one\n\n three")},
             {"picks", UniVar("why\nx")},
             {"infile", UniVar("/a/b")},
             {"needed", UniVar("3.5")},
             {"default", UniVar(110)}});

    run();

    EXPECT_THAT(messages(1),
                ElementsAre("real=10", "free=-2.5", "absent_real=4.5", "count=5",
                            "wide=-9223372036854775808", "absent_count=-7", "flag=0",
                            "absent_flag=1", "word=", "absent_word= a blank", "mode=2",
                            "called=black-white", "absent_mode=1", "reals=3", "sum=3", "ints=3",
                            "last int=9", "wides=-9223372036854775808", "wides=9223372036854775807",
                            "four=8", "words=one", "words=", "words= three", "picks=why", "picks=x",
                            "infile=/a/b", "needed=3.5", "hard names=406", "traces=3"));
}

TEST_P(KitTest, ListsOfAnyKindOfNumbersAreTaken)
{
    const float narrow[] = {0.5F, 0.25F};
    const int64_t wide[] = {3, 4};
    addWith({{"reals", UniVar(narrow, 2)},
             {"ints", floats({1, 2})},
             {"four", integers({1, 2, 3, 4})},
             {"wides", integers({7})}});
    addWith({{"reals", UniVar(wide, 2)}, {"ints", UniVar(wide, 2)}});

    run();

    EXPECT_THAT(result.messagesOf(1, "module1"), Contains("sum=0.75"));
    EXPECT_THAT(result.messagesOf(1, "module1"), Contains("last int=2"));
    EXPECT_THAT(result.messagesOf(1, "module1"), Contains("four=4"));
    EXPECT_THAT(result.messagesOf(1, "module1"), Contains("wides=7"));
    EXPECT_THAT(result.messagesOf(1, "module2"), Contains("sum=7"));
    EXPECT_THAT(result.messagesOf(1, "module2"), Contains("last int=4"));
}

TEST_P(KitTest, EmptyListsStandForThemselves)
{
    addWith({{"reals", floats({})}, {"words", UniVar("")}});

    run();

    EXPECT_THAT(told("reals"), ElementsAre("reals=0"));
    EXPECT_THAT(told("words"), IsEmpty());
}

TEST_P(KitTest, LongTextsAndListsArriveWhole)
{
    const std::string text = std::string(200000, 'x') + "y";
    addWith({{"word", UniVar(text)},
             {"words", UniVar(text + "\n" + text)},
             {"reals", floats(std::vector<double>(100000, 0.5))}});

    run();

    EXPECT_THAT(told("word"), ElementsAre("word has 200001 bytes, the last is y"));
    EXPECT_THAT(told("words"), ElementsAre("words has 200001 bytes, the last is y",
                                           "words has 200001 bytes, the last is y"));
    EXPECT_THAT(told("sum"), ElementsAre("sum=50000"));
}

TEST_P(KitTest, ValuesThatTheManifestDoesNotAllowAreRefused)
{
    const double nan = std::nan("");
    const int64_t beyond = 5000000000;
    const struct
    {
        const char* name;
        UniVar value;
        const char* message;
    } rows[] = {
        {"real", UniVar(0), "real is 0 s; give a number above 0 and at most 10"},
        {"real", UniVar(10.5), "real is 10.5 s; give a number above 0 and at most 10"},
        {"absent_real", UniVar(5), "absent_real is 5; give a number of below 5"},
        {"count", UniVar(0), "count is 0 traces; give a whole number from 1 to 5"},
        {"count", UniVar(6), "count is 6 traces; give a whole number from 1 to 5"},
        {"absent_count", UniVar(int64_t{1} << 40),
         "absent_count is 1099511627776; give a number from -2147483648 to 2147483647"},
        {"flag", UniVar(2), "flag is 2; give true or false"},
        {"mode", UniVar("red"), "mode is \"red\"; give none, rms, black-white, default or int"},
        {"mode", UniVar(std::string(300, 'n')),
         "mode is \"nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn\"; give none, rms, black-white, "
         "default "
         "or int"},
        {"absent_mode", UniVar(""), "absent_mode is \"\"; give a or b"},
        {"reals", floats({1, -1}),
         "reals holds -1 m; give a list of at most 100000 numbers of at "
         "least 0"},
        {"ints", integers({1, 0}), "ints holds 0; give a list of whole numbers of at least 1"},
        {"ints", floats({1, 2.5}), "ints holds 2.5; give a list of whole numbers of at least 1"},
        {"absent_count", UniVar(INT64_MIN),
         "absent_count is -9223372036854775808; give a number from -2147483648 to 2147483647"},
        {"least", UniVar(int64_t{5000000000}),
         "least is 5000000000; give a number from 1 to 2147483647"},
        {"greatest", UniVar(int64_t{-5000000000}),
         "greatest is -5000000000; give a number from -2147483648 to 6"},
        {"ints", UniVar(&beyond, 1), "ints is 5000000000; give a number from 1 to 2147483647"},
        {"four", floats({1, 2, 3}), "four has 3 elements; give a list of 4 numbers"},
        {"four", floats({1}), "four has 1 element; give a list of 4 numbers"},
        {"four", floats({}), "four has 0 elements; give a list of 4 numbers"},
        {"words", UniVar("a\nb\nc\nd"), "words has 4 elements; give a list of at most 3 texts"},
        {"picks", UniVar("x\nhow"), "picks holds \"how\"; give a list of words out of x, why"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        push();
        addWith({{row.name, row.value}});

        runInVain(row.message);

        EXPECT_THAT(result.jobMetadata["vorn.failed"],
                    std::string(GetParam()) + ": " + row.message);
    }
    restart();
    push();
    addWith({{"free", UniVar(nan)}});
    result = harness.run();
    EXPECT_THAT(result.messagesOf(4), SizeIs(1)) << "no number";
}

TEST_P(KitTest, NumbersThat64BitsDoNotHoldAreRefused)
{
    const double limit = 9223372036854775808.0;
    addWith({{"wides", floats({limit})}});

    result = harness.run();

    ASSERT_THAT(result.messagesOf(4), SizeIs(1));
    EXPECT_THAT(result.messagesOf(4)[0], testing::StartsWith("wides holds 9.2233"));

    restart();
    push();
    addWith({{"wides", floats({-limit})}});

    run();

    EXPECT_THAT(told("wides"), ElementsAre("wides=-9223372036854775808"));
}

TEST_P(KitTest, WhatIsRequiredMustBeThere)
{
    add();

    runInVain("needed is missing; give a finite number");
}

TEST_P(KitTest, AFailureEndsTheModuleWhereverItHappens)
{
    const struct
    {
        const char* where;
        const char* message;
        std::size_t traces; // that came out before
    } rows[] = {{"prepare", "told to fail in prepare", 0},
                {"process", "told to fail in process", 2},
                {"unknown", "an unknown exception was thrown", 2},
                {"finish", "told to fail in finish", 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.where);
        restart();
        push();
        addWith({{"fails", UniVar(row.where)}});

        result = harness.run();

        EXPECT_THAT(result.messagesOf(4), ElementsAre(row.message));
        EXPECT_EQ(result.jobMetadata["vorn.failed"], std::string(GetParam()) + ": " + row.message);
        ASSERT_THAT(result.traces, SizeIs(row.traces));
        if (row.traces > 0) {
            EXPECT_EQ(result.traces.back().flag, 3);
        }
        EXPECT_THAT(told("traces"), IsEmpty()) << "finish is not called, or fails itself";
        EXPECT_EQ(result.bytesLeft.at("module1"), 0);
    }
}

TEST_P(KitTest, TwoModulesOfALibraryHaveStatesOfTheirOwn)
{
    addWith({{"real", UniVar(1)}});
    addWith({{"real", UniVar(2)}});

    run();

    EXPECT_THAT(result.messagesOf(1, "module1"), Contains("real=1"));
    EXPECT_THAT(result.messagesOf(1, "module2"), Contains("real=2"));
    EXPECT_THAT(result.messagesOf(1, "module1"), Contains("traces=3"));
    EXPECT_THAT(result.messagesOf(1, "module2"), Contains("traces=3"));
}

TEST_P(KitTest, AnInputAndAnOutputAreNeeded)
{
    harness.withSource = false;
    addWith({});

    result = harness.run();

    EXPECT_THAT(result.messagesOf(4), ElementsAre("the module has no input; connect one"));

    restart();
    push();
    harness.withSink = false;
    addWith({});

    result = harness.run();

    EXPECT_THAT(result.messagesOf(4), ElementsAre("the module has no output; connect one"));
}

} // namespace
