#include "ModuleTest.h"

#include <cmath>
#include <limits>

extern "C" {
double mute_interpolate(double position, const double* positions, const double* values, int count);
double mute_edge(double time, double start, double interval);
void mute_between(float* samples, int count, double first, double last, double taper);
}

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatNear;
using testing::IsEmpty;
using testing::NanSensitiveFloatEq;

constexpr float noNumber = std::numeric_limits<float>::quiet_NaN();

// ---- Arithmetic ----

TEST(MuteMathTest, ValuesLieOnStraightLinesAndStayTheSameOutside)
{
    const double positions[] = {100, 200, 600};
    const double values[] = {1, 3, 2};
    const struct
    {
        double position, value;
    } rows[] = {{-1e9, 1},   {100, 1}, {125, 1.5}, {200, 3}, {300, 2.75},
                {500, 2.25}, {600, 2}, {601, 2},   {1e9, 2}};
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(mute_interpolate(row.position, positions, values, 3), row.value)
            << "at " << row.position;
}

TEST(MuteMathTest, OnePointHoldsEverywhere)
{
    const double position = 5;
    const double value = 0.25;
    for (const double place : {-7.0, 5.0, 1e6})
        EXPECT_EQ(mute_interpolate(place, &position, &value, 1), 0.25);
}

TEST(MuteMathTest, TimesOfSamplesAreWholeNumbersOfSamples)
{
    for (int i = 0; i < 3000; ++i)
        for (const double interval : {0.001, 0.002, 0.004, 0.000125})
            ASSERT_EQ(mute_edge(i * 1e-3 * (interval / 1e-3), 0, interval), i) << interval;
    EXPECT_EQ(mute_edge(0.3, 0.1, 0.1), 2);
    EXPECT_DOUBLE_EQ(mute_edge(0.101, 0, 0.002), 50.5);
    EXPECT_EQ(mute_edge(0, 1, 0.25), -4);
}

std::vector<float> muted(double first, double last, double taper, size_t count = 8)
{
    std::vector<float> samples(count, 1.0f);
    mute_between(samples.data(), static_cast<int>(count), first, last, taper);
    return samples;
}

constexpr double before = -2e9;
constexpr double behind = 2e9;

TEST(MuteMathTest, WithoutATaperSamplesOnTheEdgeStay)
{
    EXPECT_THAT(muted(before, 3, 0), ElementsAre(0, 0, 0, 1, 1, 1, 1, 1));
    EXPECT_THAT(muted(before, 3.01, 0), ElementsAre(0, 0, 0, 0, 1, 1, 1, 1));
    EXPECT_THAT(muted(5, behind, 0), ElementsAre(1, 1, 1, 1, 1, 1, 0, 0));
    EXPECT_THAT(muted(2, 5, 0), ElementsAre(1, 1, 1, 0, 0, 1, 1, 1));
}

TEST(MuteMathTest, TaperRisesOutsideOfTheZoneLikeACosine)
{
    const auto weight = [](double share) {
        return FloatNear(static_cast<float>(0.5 - 0.5 * std::cos(M_PI * share)), 1e-7f);
    };
    EXPECT_THAT(muted(before, 2, 4),
                ElementsAre(0, 0, 0, weight(0.25), weight(0.5), weight(0.75), 1, 1));
    EXPECT_THAT(muted(4, behind, 2), ElementsAre(1, 1, 1, weight(0.5), 0, 0, 0, 0));
    EXPECT_THAT(muted(2.5, 4.5, 2),
                ElementsAre(1, weight(0.75), weight(0.25), 0, 0, weight(0.25), weight(0.75), 1));
}

TEST(MuteMathTest, ZoneOutsideOfTheTraceMutesNothingOrAll)
{
    EXPECT_THAT(muted(before, -1, 1), Each(1.0f));
    EXPECT_THAT(muted(before, 1e300, 3), Each(0.0f));
    EXPECT_THAT(muted(9, behind, 1), Each(1.0f));
    EXPECT_THAT(muted(-1e300, behind, 3), Each(0.0f));
    EXPECT_THAT(muted(-50, -20, 5), Each(1.0f));
    EXPECT_THAT(muted(20, 50, 5), Each(1.0f));
}

TEST(MuteMathTest, NothingLiesInAZoneWithoutLength)
{
    EXPECT_THAT(muted(3, 3, 2), Each(1.0f));
    EXPECT_THAT(muted(5, 3, 2), Each(1.0f));
}

TEST(MuteMathTest, WhatIsNoNumberIsMutedLikeTheRest)
{
    std::vector<float> samples = {noNumber, INFINITY, noNumber, INFINITY};

    mute_between(samples.data(), 4, before, 2, 0);

    EXPECT_THAT(samples, ElementsAre(0, 0, NanSensitiveFloatEq(noNumber), INFINITY));
}

TEST(MuteMathTest, TraceWithoutSamplesIsNothingToDo)
{
    mute_between(nullptr, 0, before, behind, 3);
    EXPECT_THAT(muted(before, behind, 3, 0), IsEmpty());
}

// ---- In a job ----

class MuteTest : public ModuleTest
{
protected:
    MuteTest() : ModuleTest("mute")
    {
        harness.sampleInterval = 100000;
        for (const int offset : {100, -200, 300})
            harness.push({1, 1, 1, 1, 1, 1}, {{"offset", UniVar(offset)}, {"cdp", UniVar(7)}});
    }

    // Mutes from 0.2 s at an offset of 100 to 0.4 s at 300.
    void addMute(const std::string& mode, std::map<std::string, UniVar> more = {})
    {
        more.insert({{"mode", UniVar(mode)},
                     {"offsets", floats({100, 300})},
                     {"times", floats({0.2, 0.4})},
                     {"taper", UniVar(0)}});
        add(more);
    }
};

TEST_F(MuteTest, TopMuteFollowsTheOffset)
{
    addMute("top");

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 1, 1, 1, 1));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(0, 0, 0, 1, 1, 1));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(0, 0, 0, 0, 1, 1));
    EXPECT_THAT(all("offset"), ElementsAre(100, -200, 300));
    EXPECT_EQ(history(),
              "mute mode=top header=offset taper=0 s points=2 (offset:s) 100:0.2 300:0.4");
}

TEST_F(MuteTest, BottomMuteFollowsTheOffset)
{
    addMute("bottom");

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(1, 1, 1, 0, 0, 0));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(1, 1, 1, 1, 0, 0));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(1, 1, 1, 1, 1, 0));
}

TEST_F(MuteTest, SurgicalMuteCutsOutAZone)
{
    addMute("surgical", {{"end_times", floats({0.3, 0.9})}});

    run();

    EXPECT_THAT(result.traces[0].samples, Each(1.0f)); // nothing between 0.2 and 0.3 s
    EXPECT_THAT(result.traces[1].samples, ElementsAre(1, 1, 1, 1, 0, 0)); // 0.3 to 0.6 s
    EXPECT_THAT(result.traces[2].samples, ElementsAre(1, 1, 1, 1, 1, 0)); // 0.4 to 0.9 s
    EXPECT_EQ(history(), "mute mode=surgical header=offset taper=0 s points=2 (offset:s:s) "
                         "100:0.2:0.3 300:0.4:0.9");
}

TEST_F(MuteTest, HistoryHasAsManyPointsAsItHasRoomFor)
{
    std::vector<double> offsets;
    std::vector<double> times;
    for (int i = 0; i < 100; ++i) {
        offsets.push_back(1000 + i);
        times.push_back(0.125);
    }
    add({{"offsets", floats(offsets)}, {"times", floats(times)}});

    run();

    EXPECT_THAT(history(),
                testing::StartsWith("mute mode=top header=offset taper=0.02 s points=100 "
                                    "(offset:s) 1000:0.125 1001:0.125 "));
    EXPECT_THAT(history(), testing::EndsWith(" 1016:0.125 1017:0.125 and 82 more"));
}

TEST_F(MuteTest, OffsetsThatAreAllZeroBringAWarning)
{
    harness.input.clear();
    for (int i = 0; i < 3; ++i)
        harness.push({1, 1, 1, 1}, {{"offset", UniVar(0)}});
    addMute("top");

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("offset is 0 in all 3 traces, which all got the mute of offset 0; name "
                            "a header word that has values with header"));
}

TEST_F(MuteTest, OneOffsetOrOnePointIsEnough)
{
    addMute("top");
    add({{"header", UniVar("offset")}, {"offsets", floats({0})}, {"times", floats({0.1})}});
    harness.input[0].attributes["offset"] = harness.input[1].attributes["offset"] = UniVar(0);

    run();

    EXPECT_THAT(result.messagesOf(2, "module1"), IsEmpty());
    EXPECT_THAT(result.messagesOf(2, "module2"), IsEmpty());

    restart();
    harness.push({1, 1, 1, 1}, {{"offset", UniVar(0)}});
    add({{"offsets", floats({0})}, {"times", floats({0.1})}});

    run();

    EXPECT_THAT(messages(2), IsEmpty()) << "the times depend on nothing";
}

TEST_F(MuteTest, SignOfTheOffsetCanCount)
{
    addMute("top", {{"absolute", UniVar(0)}});

    run();

    EXPECT_THAT(result.traces[1].samples, ElementsAre(0, 0, 1, 1, 1, 1));
    EXPECT_THAT(history(), testing::StartsWith("mute mode=top header=offset absolute=no taper="));
}

TEST_F(MuteTest, AnotherHeaderWordCanTakeThePlaceOfTheOffset)
{
    add({{"header", UniVar("cdp")}, {"offsets", floats({7})}, {"times", floats({0.5})}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 0, 0, 0, 0)); // 0.02 s of taper
    EXPECT_EQ(history(), "mute mode=top header=cdp taper=0.02 s points=1 (cdp:s) 7:0.5");
}

TEST_F(MuteTest, TaperIsATime)
{
    addMute("top", {{"taper", UniVar(0.2)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 0, FloatNear(0.5f, 1e-7f), 1, 1));
}

TEST_F(MuteTest, TimesCountFromTheDelay)
{
    harness.input[0].attributes["delrt"] = UniVar(100);
    harness.input[1].attributes["delrt"] = UniVar(-200);
    addMute("top");

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 1, 1, 1, 1, 1));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(0, 0, 0, 0, 0, 1));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(0, 0, 0, 0, 1, 1));
}

TEST_F(MuteTest, TwoMutesHaveTimesOfTheirOwn)
{
    addMute("top");
    add({{"mode", UniVar("bottom")},
         {"offsets", floats({0})},
         {"times", floats({0.4})},
         {"taper", UniVar(0)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 1, 1, 1, 0));
}

TEST_F(MuteTest, TracesNeedTheHeaderWord)
{
    addMute("top", {{"header", UniVar("distance")}});

    runInVain("the traces have no header word \"distance\"; name one that they have with header");
}

TEST_F(MuteTest, SettingsAreRefused)
{
    const auto list = [](std::vector<double> values) { return floats(values); };
    const double infinity = std::numeric_limits<double>::infinity();
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{}, "offsets is missing; give a list of numbers"},
        {{{"offsets", UniVar(5)}}, "offsets is missing; give a list of numbers"},
        {{{"offsets", list({1, 2})}}, "times is missing; give a list of numbers"},
        {{{"offsets", list({1, 2})}, {"times", list({1})}},
         "offsets and times have 2 and 1 elements; give the same number of each"},
        {{{"offsets", list({1, 2})}, {"times", list({1, 2})}, {"mode", UniVar("surgical")}},
         "offsets and end_times have 2 and 0 elements; give the same number of each"},
        {{{"offsets", list({1})}, {"times", list({1})}, {"end_times", list({1})}},
         "end_times are given and mode is top; only mode surgical uses them"},
        {{{"offsets", list({1, 1})}, {"times", list({1, 2})}},
         "offsets have 1 after 1; give them in ascending order"},
        {{{"offsets", list({1.225e-9, 1.224e-9})}, {"times", list({1, 2})}},
         "offsets have 1.224E-09 after 1.225E-09; give them in ascending order"},
        {{{"offsets", list({0.1, 0.000123456789})}, {"times", list({1, 2})}},
         "offsets have 0.000123456789 after 0.1; give them in ascending order"},
        {{{"offsets", list({1})}, {"times", list({infinity})}},
         "times holds Infinity s; give a list of numbers"},
        {{{"offsets", list({1, 50})},
          {"times", list({1, 2.5})},
          {"end_times", list({1, 2.25})},
          {"mode", UniVar("surgical")}},
         "at offset 50 the mute begins at 2.5 s and ends at 2.25 s; give an end that is not before "
         "the beginning"},
        {{{"mode", UniVar("left")}}, "mode is \"left\"; give top, bottom or surgical"},
        {{{"offsets", list({1})}, {"times", list({1})}, {"taper", UniVar(-0.1)}},
         "taper is -0.1 s; give a number of at least 0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.push({1, 2, 3}, {{"offset", UniVar(1)}});
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(MuteTest, SampleIntervalIsNeeded)
{
    harness.sampleInterval = 0;
    addMute("top");

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(MuteTest, TracesWithoutSamplesPass)
{
    harness.input.clear();
    harness.push({}, {{"offset", UniVar(7)}});
    addMute("bottom");

    run();

    EXPECT_THAT(all("offset"), ElementsAre(7));
}

TEST_F(MuteTest, EmptyInputIsNoError)
{
    harness.input.clear();
    addMute("top");

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

TEST_F(MuteTest, PartsGiveWhatOneRunGives)
{
    addMute("top");
    expectSameInParts();
    EXPECT_THAT(messages(2), testing::IsEmpty());
}

TEST_F(MuteTest, OffsetsThatAreZeroInAllPartsBringAWarning)
{
    harness.input.clear();
    for (int i = 0; i < 9; ++i)
        harness.push({1, 1, 1, 1}, {{"offset", UniVar(0)}});
    addMute("top");
    expectSameInParts();
    EXPECT_THAT(messages(2), ElementsAre(testing::HasSubstr("offset is 0 in all 9 traces")));

    harness.input.clear();
    for (int i = 0; i < 9; ++i)
        harness.push({1, 1, 1, 1}, {{"offset", UniVar(i == 4 ? 100 : 0)}});
    expectSameInParts();
    EXPECT_THAT(messages(2), testing::IsEmpty());
}

} // namespace
