// The harness itself, and what module authors rely on: how a job ends, and what modules of one
// library share.
#include "ModuleHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Traces of one sample each, which is 1 in the first of them, 2 in the second and so on.
void pushTraces(ModuleHarness& harness, int count)
{
    for (int i = 1; i <= count; ++i)
        harness.push({static_cast<float>(i)});
}

std::vector<float> firstSamples(const HarnessResult& result)
{
    std::vector<float> samples;
    for (const HarnessTrace& trace : result.traces)
        samples.push_back(trace.samples.at(0));
    return samples;
}

std::vector<int> flags(const HarnessResult& result)
{
    std::vector<int> list;
    for (const HarnessTrace& trace : result.traces)
        list.push_back(trace.flag);
    return list;
}

std::vector<int> attributes(const HarnessResult& result, const std::string& name)
{
    std::vector<int> list;
    for (const HarnessTrace& trace : result.traces)
        list.push_back(trace.attributes.at(name).getI32Value());
    return list;
}

// ---- What goes in comes out ----

TEST(ModuleHarnessTest, TracesArriveInTheirOrderWithTheEndOfDataOnTheLastOne)
{
    ModuleHarness harness;
    harness.sampleInterval = 1000;
    harness.push({1, 2});
    harness.push({3});
    harness.push({4, 5});

    const HarnessResult result = harness.run();

    ASSERT_TRUE(result.loaded);
    ASSERT_THAT(result.traces, SizeIs(3));
    EXPECT_THAT(result.traces[0].samples, ElementsAre(1, 2));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(3, 0));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(4, 5));
    EXPECT_THAT(flags(result), ElementsAre(0, 0, 3));
    EXPECT_EQ(result.traceLength, 2);
    EXPECT_EQ(result.sampleInterval, 1000);
}

TEST(ModuleHarnessTest, AttributesOfEveryTypeArrive)
{
    const int i32s[] = {1, -2};
    const int64_t i64s[] = {int64_t{1} << 40, -1};
    const float f32s[] = {0.5f, 1.5f};
    const double f64s[] = {0.1, 0.2};
    ModuleHarness harness;
    harness.define("i64", 3);
    harness.define("f32", 4);
    harness.define("f64", 5);
    harness.define("text", 9);
    harness.define("i32s", 2, 2);
    harness.define("i64s", 3, 2);
    harness.define("f32s", 4, 2);
    harness.define("f64s", 5, 2);
    harness.push({0}, {{"i32", UniVar(42)},
                       {"i64", UniVar(int64_t{1} << 40)},
                       {"f32", UniVar(1.5f)},
                       {"f64", UniVar(0.1)},
                       {"text", UniVar("some text")},
                       {"i32s", UniVar(i32s, 2)},
                       {"i64s", UniVar(i64s, 2)},
                       {"f32s", UniVar(f32s, 2)},
                       {"f64s", UniVar(f64s, 2)}});

    const HarnessResult result = harness.run();

    ASSERT_THAT(result.traces, SizeIs(1));
    const auto& arrived = result.traces[0].attributes;
    ASSERT_THAT(arrived, SizeIs(9));
    for (const auto& [name, value] : harness.input[0].attributes) {
        EXPECT_EQ(arrived.at(name).getType(), value.getType()) << name;
        EXPECT_EQ(arrived.at(name).getStrValue(), value.getStrValue()) << name;
    }
}

TEST(ModuleHarnessTest, AJobWithoutTracesEnds)
{
    ModuleHarness harness;

    const HarnessResult result = harness.run();

    EXPECT_TRUE(result.loaded);
    EXPECT_THAT(result.traces, IsEmpty());
}

// The end of data stands on the last of several traces, and is looked for on the first.
TEST(ModuleHarnessTest, ASourceOfSeveralTracesPerCallEndsWithItsNextCall)
{
    for (const int tracesPerCall : {2, 3, 5, 9}) {
        ModuleHarness harness;
        harness.tracesPerCall = tracesPerCall;
        pushTraces(harness, 5);

        const HarnessResult result = harness.run();

        EXPECT_THAT(firstSamples(result), ElementsAre(1, 2, 3, 4, 5)) << tracesPerCall;
    }
}

TEST(ModuleHarnessTest, AModuleThatCannotBeLoadedLeavesNoJob)
{
    ModuleHarness harness;
    harness.push({1});
    harness.add("absent", "libabsent.so");

    HarnessResult result = harness.run();

    EXPECT_FALSE(result.loaded);
    EXPECT_THAT(result.traces, IsEmpty());
    ASSERT_THAT(result.messages, SizeIs(2));
    EXPECT_EQ(result.messages[1].text, "Module absent can not load library libabsent.so");

    ModuleHarness next;
    next.push({1});
    result = next.run();
    EXPECT_THAT(firstSamples(result), ElementsAre(1));
}

// ---- The end of the data ----

TEST(EndOfDataTest, AModuleThatHoldsATraceBackEmitsItAtTheEnd)
{
    ModuleHarness harness;
    pushTraces(harness, 3);
    harness.add("delay", "libdelay_one.so");

    const HarnessResult result = harness.run();

    EXPECT_THAT(firstSamples(result), ElementsAre(1, 2, 3));
    EXPECT_THAT(flags(result), ElementsAre(0, 0, 3));
}

TEST(EndOfDataTest, SuchModulesCanFollowEachOther)
{
    ModuleHarness harness;
    pushTraces(harness, 2);
    for (const char* name : {"one", "two", "three"})
        harness.add(name, "libdelay_one.so");

    const HarnessResult result = harness.run();

    EXPECT_THAT(firstSamples(result), ElementsAre(1, 2));
    EXPECT_THAT(flags(result), ElementsAre(0, 3));
}

TEST(EndOfDataTest, AModuleThatHoldsATraceBackEndsWithoutAnyTrace)
{
    ModuleHarness harness;
    harness.add("delay", "libdelay_one.so");

    const HarnessResult result = harness.run();

    EXPECT_TRUE(result.loaded);
    EXPECT_THAT(result.traces, IsEmpty());
}

// ---- Two modules of one library ----

// Each trace passes both modules before the next one comes; the second one's counts arrive.
TEST(SharedLibraryTest, ModulesShareGlobalDataAndHaveResourcesOfTheirOwn)
{
    ModuleHarness harness;
    pushTraces(harness, 3);
    harness.add("first", "libcount_calls.so");
    harness.add("second", "libcount_calls.so");

    const HarnessResult result = harness.run();

    EXPECT_THAT(attributes(result, "shared"), ElementsAre(2, 4, 6));
    EXPECT_THAT(attributes(result, "own"), ElementsAre(1, 2, 3));
    EXPECT_EQ(result.bytesLeft.at("first"), 0);
    EXPECT_EQ(result.bytesLeft.at("second"), 0);
}

TEST(SharedLibraryTest, CommonBlocksOfFortranAreSuchData)
{
    ModuleHarness harness;
    pushTraces(harness, 3);
    for (const char* name : {"first", "second"})
        harness.add(name, "libfortran77.so").parameters = {
            {"WINDOW", UniVar(25)}, {"FACTOR", UniVar(1.5f)}, {"MODE", UniVar("rms")}};

    const HarnessResult result = harness.run();

    EXPECT_THAT(attributes(result, "shared"), ElementsAre(2, 4, 6));
    EXPECT_THAT(attributes(result, "own"), ElementsAre(1, 2, 3));
}

} // namespace
