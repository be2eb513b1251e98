#include "ModuleTest.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

extern "C" {
void stack_add(const float* samples, int count, double* sums, int* live);
void stack_normalise(const double* sums, const int* live, int count, int traces, int normalisation,
                     float* samples);
int stack_different(double* values, int count);
}

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatEq;
using testing::IsEmpty;
using testing::SizeIs;

enum Normalisation
{
    live = 1,
    squareRoot = 2,
    count = 3,
    none = 4
};

// ---- Arithmetic ----

std::vector<float> stacked(const std::vector<std::vector<float>>& traces, Normalisation by)
{
    const size_t samples = traces.at(0).size();
    const int length = static_cast<int>(samples);
    std::vector<double> sums(samples, 0.0);
    std::vector<int> fold(samples, 0);
    for (const std::vector<float>& trace : traces)
        stack_add(trace.data(), length, sums.data(), fold.data());
    std::vector<float> result(samples, -99.0f);
    stack_normalise(sums.data(), fold.data(), length, static_cast<int>(traces.size()), by,
                    result.data());
    return result;
}

TEST(StackMathTest, SumsAreDividedAsAsked)
{
    const std::vector<std::vector<float>> traces = {
        {0, 0, 6, 1}, {0, 5, -2, 2}, {0, 0, 5, 3}, {0, -3, 3, 6}};
    EXPECT_THAT(stacked(traces, live), ElementsAre(0, 1, 3, 3));
    EXPECT_THAT(stacked(traces, squareRoot), ElementsAre(0, FloatEq(2 / std::sqrt(2.0f)), 6, 6));
    EXPECT_THAT(stacked(traces, count), ElementsAre(0, 0.5f, 3, 3));
    EXPECT_THAT(stacked(traces, none), ElementsAre(0, 2, 12, 12));
}

TEST(StackMathTest, SmallSamplesSurviveLargeOnes)
{
    const std::vector<std::vector<float>> traces = {{1e9f}, {1}, {-1e9f}};
    EXPECT_THAT(stacked(traces, none), ElementsAre(1));
}

TEST(StackMathTest, WhatIsNoFiniteNumberMakesTheStackSo)
{
    const float infinity = std::numeric_limits<float>::infinity();
    const std::vector<float> result = stacked({{NAN, infinity, 1}, {1, 1, 1}}, live);
    EXPECT_TRUE(std::isnan(result[0]));
    EXPECT_EQ(result[1], infinity);
    EXPECT_EQ(result[2], 1);
}

TEST(StackMathTest, DifferentValuesAreCountedAndSorted)
{
    std::mt19937 random(4);
    for (const int count : {0, 1, 2, 3, 4, 5, 6, 7, 8, 100, 1001}) {
        for (const int range : {1, 3, 50, 100000}) {
            std::vector<double> values;
            for (int i = 0; i < count; ++i)
                values.push_back(static_cast<int>(random() % static_cast<unsigned>(range)) - 1);
            const std::set<double> different(values.begin(), values.end());
            std::vector<double> sorted = values;
            std::sort(sorted.begin(), sorted.end());

            EXPECT_EQ(stack_different(values.data(), count), static_cast<int>(different.size()));
            EXPECT_EQ(values, sorted) << count << " values from " << range;
        }
    }
}

// ---- In a job ----

class StackTest : public ModuleTest
{
protected:
    StackTest() : ModuleTest("stack") {}

    // A trace of two samples.
    void push(float sample, int cdp, int tracl)
    {
        harness.push({sample, 0}, {{"cdp", UniVar(cdp)}, {"tracl", UniVar(tracl)}});
    }

    // Groups of 3, 1 and 2 traces.
    void pushGroups()
    {
        int tracl = 0;
        for (const int cdp : {10, 10, 10, 11, 13, 13}) {
            ++tracl;
            push(static_cast<float>(tracl * tracl), cdp, tracl);
        }
    }

    std::vector<float> first()
    {
        std::vector<float> samples;
        for (const HarnessTrace& trace : result.traces)
            samples.push_back(trace.samples.at(0));
        return samples;
    }
};

TEST_F(StackTest, GroupsOfEqualCdpBecomeOneTraceEach)
{
    pushGroups();
    add();

    run();

    EXPECT_THAT(first(), ElementsAre(FloatEq(14.0f / 3), 16, 30.5f));
    EXPECT_THAT(all("cdp"), ElementsAre(10, 11, 13));
    EXPECT_THAT(all("nhs"), ElementsAre(3, 1, 2));
    EXPECT_EQ(history(), "stack key=cdp normalise=live");
}

TEST_F(StackTest, HeaderIsThatOfTheFirstTraceOfAGroup)
{
    pushGroups();
    add();

    run();

    EXPECT_THAT(all("tracl"), ElementsAre(1, 4, 5));
}

TEST_F(StackTest, LastTraceCanBeAGroupOfItsOwn)
{
    push(1, 1, 1);
    push(3, 1, 2);
    push(7, 2, 3);
    add();

    run();

    EXPECT_THAT(first(), ElementsAre(2, 7));
    EXPECT_THAT(all("nhs"), ElementsAre(2, 1));
}

TEST_F(StackTest, SameValueFurtherOnIsAnotherGroup)
{
    push(1, 5, 1);
    push(2, 6, 2);
    push(3, 5, 3);
    add();

    run();

    EXPECT_THAT(all("cdp"), ElementsAre(5, 6, 5));
    EXPECT_THAT(messages(2),
                ElementsAre("3 groups have 2 different values of cdp: traces with the same value "
                            "did not follow each other, and became several stacked traces; sort "
                            "by cdp first"));
}

TEST_F(StackTest, SortedGroupsBringNoWarning)
{
    pushGroups();
    add();
    add();

    run();

    EXPECT_THAT(result.messagesOf(2), IsEmpty());
}

TEST_F(StackTest, ManyGroupsAreCounted)
{
    for (int i = 0; i < 300; ++i)
        push(1, i % 200, i);
    add();

    run();

    EXPECT_THAT(result.traces, SizeIs(300));
    EXPECT_THAT(messages(2),
                ElementsAre(testing::StartsWith("300 groups have 200 different values of cdp: ")));
}

TEST_F(StackTest, KeyThatIsZeroEverywhereBringsAWarning)
{
    for (int i = 0; i < 3; ++i)
        push(1, 0, i);
    add();

    run();

    EXPECT_THAT(all("nhs"), ElementsAre(3));
    EXPECT_THAT(messages(2),
                ElementsAre("cdp is 0 in all 3 traces, which became one; name a header word with "
                            "key that tells the gathers apart"));
}

TEST_F(StackTest, OneTraceOfGroupZeroBringsNoWarning)
{
    push(1, 0, 1);
    add();

    run();

    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(StackTest, TracesOfAGroupBeginAtOneTime)
{
    const int delays[] = {0, 0, 100, 100, 104};
    const int cdps[] = {7, 7, 8, 8, 8};
    for (size_t i = 0; i < 5; ++i)
        harness.push({1, 2}, {{"cdp", UniVar(cdps[i])}, {"delrt", UniVar(delays[i])}});
    add();

    result = harness.run();

    const std::string message =
        "in the group cdp = 8, trace 5 of the input begins at 104 ms (delrt) and the first one at "
        "100 ms; give the traces of a group one delay, or a key that keeps them apart";
    EXPECT_THAT(messages(4), ElementsAre(message));
    EXPECT_EQ(result.jobMetadata["vorn.failed"], "stack: " + message);
    EXPECT_THAT(all("cdp"), ElementsAre(7)) << "what came before is right";
}

TEST_F(StackTest, GroupsMayBeginAtDifferentTimes)
{
    for (const int cdp : {1, 1, 2, 2})
        harness.push({1, 2}, {{"cdp", UniVar(cdp)}, {"delrt", UniVar(100 * cdp)}});
    add();

    run();

    EXPECT_THAT(all("delrt"), ElementsAre(100, 200));
}

TEST_F(StackTest, AnyHeaderWordAndNormalisationCanBeChosen)
{
    pushGroups();
    add({{"key", UniVar("tracl")}, {"normalise", UniVar("none")}});
    add({{"key", UniVar("cdp")}, {"normalise", UniVar("none")}});

    run();

    EXPECT_THAT(first(), ElementsAre(14, 16, 61));
    EXPECT_EQ(history(), "stack key=cdp normalise=none");
}

TEST_F(StackTest, MutedSamplesDoNotCount)
{
    harness.push({4, 0, 0}, {{"cdp", UniVar(1)}});
    harness.push({2, 6, 0}, {{"cdp", UniVar(1)}});
    add();

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(3, 6, 0));
}

// The harness's source marks the end on its last trace, or later on its empty channel, whatever the
// number of traces that it emits in a call.
TEST_F(StackTest, LastGroupComesHoweverTheInputEnds)
{
    for (const int tracesPerCall : {1, 2, 3, 4, 6, 50}) {
        SCOPED_TRACE(tracesPerCall);
        restart();
        harness.tracesPerCall = tracesPerCall;
        pushGroups();
        add();
        add();

        run();

        EXPECT_THAT(all("cdp"), ElementsAre(10, 11, 13));
    }
}

TEST_F(StackTest, LastGroupComesAfterAnEndWithoutAMark)
{
    pushGroups();
    harness.add("before", "libunmarked_end.so");
    add();

    run();

    EXPECT_THAT(all("cdp"), ElementsAre(10, 11, 13));
}

TEST_F(StackTest, LastGroupComesFromAProducerThatEmitsSeveralTracesAtATime)
{
    pushGroups();
    harness.add("before", "libemit_twice.so");
    add();

    run();

    EXPECT_THAT(all("nhs"), ElementsAre(6, 2, 4));
}

TEST_F(StackTest, NormalisationIsRefused)
{
    pushGroups();
    add({{"normalise", UniVar("fold")}});

    runInVain("normalise is \"fold\"; give live, sqrt, count or none");
}

TEST_F(StackTest, TracesNeedTheHeaderWord)
{
    pushGroups();
    add({{"key", UniVar("cmp")}});

    runInVain("the traces have no header word \"cmp\"; name one that they have with key");
}

TEST_F(StackTest, TracesWithoutSamplesAreCounted)
{
    harness.push({}, {{"cdp", UniVar(1)}});
    harness.push({}, {{"cdp", UniVar(1)}});
    add();

    run();

    EXPECT_THAT(all("nhs"), ElementsAre(2));
}

TEST_F(StackTest, EmptyInputIsNoError)
{
    add();

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

TEST_F(StackTest, PartsThatBeginWithGroupsGiveWhatOneRunGives)
{
    std::vector<std::size_t> begins; // of groups
    for (int i = 0; i < 40; ++i) {
        if (i > 0 && (i / 3) % 11 != ((i - 1) / 3) % 11)
            begins.push_back(static_cast<std::size_t>(i));
        push(static_cast<float>(i) * 0.1F, (i / 3) % 11, i);
    }
    add();

    expectSameInParts(begins);

    EXPECT_THAT(messages(2), ElementsAre(testing::HasSubstr("14 groups have 11 different values")));
}

TEST_F(StackTest, GroupsInPiecesInDifferentPartsAreTold)
{
    push(1, 5, 0);
    push(1, 6, 0);
    push(1, 5, 0);
    add();

    result = harness.runInParts({1, 2});

    EXPECT_THAT(messages(2), ElementsAre(testing::HasSubstr("3 groups have 2 different values")));
}

} // namespace
