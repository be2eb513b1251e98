// The example modules, as they lie in examples/ to be copied.
#include "ExampleLibrary.h"
#include "ModuleHarness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using testing::ElementsAre;
using testing::FloatEq;
using testing::IsEmpty;
using testing::SizeIs;

class ExampleModulesTest : public testing::Test
{
protected:
    ExampleModulesTest()
    {
        harness.push({2, 4, 6}, {{"offset", UniVar(100)}});
        harness.push({0, 0, 0}, {{"offset", UniVar(200)}});
        harness.push({-1, 1, -1}, {{"offset", UniVar(300)}});
    }

    HarnessModule& add(const std::string& example)
    {
        names.push_back(example + std::to_string(names.size() + 1));
        return harness.add(names.back(), exampleModule(example));
    }

    // Runs the job, of which all traces arrive with their headers and the end of data on the last.
    void run()
    {
        result = harness.run();
        ASSERT_TRUE(result.loaded) << result.allMessages();
        EXPECT_THAT(result.messagesOf(4), IsEmpty());
        ASSERT_THAT(result.traces, SizeIs(3));
        for (int i = 0; i < 3; ++i) {
            const HarnessTrace& trace = result.traces[static_cast<size_t>(i)];
            EXPECT_EQ(trace.attributes.at("offset").getI32Value(), 100 * (i + 1));
            EXPECT_EQ(trace.flag, i == 2 ? 3 : 0);
        }
        for (const std::string& name : names)
            EXPECT_EQ(result.bytesLeft.at(name), 0) << name;
    }

    // Runs the job, which the last added module ends at once with this message.
    void runInVain(const std::string& message)
    {
        result = harness.run();
        ASSERT_TRUE(result.loaded) << result.allMessages();
        EXPECT_THAT(result.messagesOf(4, names.back()), ElementsAre(message));
        EXPECT_THAT(result.traces, IsEmpty());
    }

    ModuleHarness harness;
    HarnessResult result;
    std::vector<std::string> names;
};

// ---- amplify, in C ----

TEST_F(ExampleModulesTest, AmplifyMultipliesSamples)
{
    add("amplify").parameters["factor"] = UniVar(2.5f);

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(5, 10, 15));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(-2.5f, 2.5f, -2.5f));
}

TEST_F(ExampleModulesTest, TwoAmplifiersHaveFactorsOfTheirOwn)
{
    add("amplify").parameters["factor"] = UniVar(3);
    add("amplify").parameters["factor"] = UniVar("0.5");

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(3, 6, 9));
}

TEST_F(ExampleModulesTest, AmplifyAsksForItsFactor)
{
    add("amplify");

    runInVain("factor is missing; give a finite number");
}

TEST_F(ExampleModulesTest, AmplifyRefusesAFactorThatIsNoNumber)
{
    add("amplify").parameters["factor"] = UniVar(std::numeric_limits<float>::infinity());

    runInVain("factor is inf; give a finite number");
}

// ---- balance, in modern Fortran ----

TEST_F(ExampleModulesTest, BalanceDividesByTheMeanAmplitudeOfAWindow)
{
    add("balance").parameters["window"] = UniVar(0.004f); // one sample to either side

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(FloatEq(2.0f / 3), 1, FloatEq(6.0f / 5)));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(0, 0, 0));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(-1, 1, -1));
}

TEST_F(ExampleModulesTest, BalanceTakesTheWholeTraceForALongWindow)
{
    add("balance").parameters = {{"window", UniVar(1.0e30f)}, {"level", UniVar(8)}};

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(4, 8, 12));
}

TEST_F(ExampleModulesTest, TwoBalancesHaveSettingsOfTheirOwn)
{
    add("balance").parameters = {{"window", UniVar(0.004f)}, {"level", UniVar(30)}}; // 20, 30, 36
    add("balance").parameters = {{"level", UniVar(43)}};                             // mean 86 / 3

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(FloatEq(30), FloatEq(45), FloatEq(54)));
}

TEST_F(ExampleModulesTest, BalanceRefusesAWindowOfNothing)
{
    add("balance").parameters["window"] = UniVar(0);

    runInVain("window is 0 s; give a number above 0");
}

TEST_F(ExampleModulesTest, BalanceNeedsASampleInterval)
{
    harness.sampleInterval = 0;
    add("balance");

    runInVain("the input has no sample interval; the module before this one has to set it");
}

// ---- tpow, in old-style Fortran ----

TEST_F(ExampleModulesTest, TpowMultipliesByTheSquareOfTheTime)
{
    harness.sampleInterval = 500000;
    add("tpow");

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 1, 6)); // times 0, 0.5 and 1
}

TEST_F(ExampleModulesTest, TwoTpowsHavePowersOfTheirOwn)
{
    harness.sampleInterval = 500000;
    add("tpow").parameters["power"] = UniVar(0);
    add("tpow").parameters["power"] = UniVar(1.0f);

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 2, 6));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(0, 0.5f, -1));
}

TEST_F(ExampleModulesTest, TpowRefusesANegativePower)
{
    add("tpow").parameters["power"] = UniVar(-1);

    runInVain("power is  -1.0000    ; give a number of 0 or above");
}

} // namespace
