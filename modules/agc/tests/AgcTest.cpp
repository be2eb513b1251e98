#include "ModuleTest.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

extern "C" void agc_balance(float* samples, int count, int half, int measure, double level,
                            double* forward, double* backward);

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatEq;
using testing::IsEmpty;
using testing::NanSensitiveFloatEq;

constexpr float noNumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

enum Measure
{
    rms = 1,
    mean = 2
};

// ---- Arithmetic ----

std::vector<float> balanced(std::vector<float> samples, int half, Measure measure, double level = 1)
{
    std::vector<double> forward(samples.size());
    std::vector<double> backward(samples.size());
    agc_balance(samples.data(), static_cast<int>(samples.size()), half, measure, level,
                forward.data(), backward.data());
    return samples;
}

// Window by window, as the formula says.
std::vector<double> slowlyBalanced(const std::vector<float>& samples, int half, Measure measure,
                                   double level)
{
    const int count = static_cast<int>(samples.size());
    std::vector<double> result;
    for (int i = 0; i < count; ++i) {
        const int first = std::max(i - half, 0);
        const int last = std::min(i + half, count - 1);
        double sum = 0;
        for (int j = first; j <= last; ++j) {
            const double amplitude = std::fabs(samples[static_cast<size_t>(j)]);
            sum += measure == rms ? amplitude * amplitude : amplitude;
        }
        sum /= last - first + 1;
        const double amplitude = measure == rms ? std::sqrt(sum) : sum;
        result.push_back(amplitude > 0 ? samples[static_cast<size_t>(i)] * level / amplitude : 0);
    }
    return result;
}

TEST(AgcMathTest, EveryWindowOfEveryTraceIsTheSumOfItsSamples)
{
    std::mt19937 random(1);
    std::normal_distribution<float> normal;
    for (const int count : {1, 2, 3, 7, 50, 101}) {
        std::vector<float> samples(static_cast<size_t>(count));
        std::generate(samples.begin(), samples.end(), [&] { return normal(random); });
        for (const int half : {0, 1, 2, 3, 8, 24, 25, 26, 49, 50, 51, 100, 1000}) {
            for (const Measure measure : {rms, mean}) {
                const std::vector<float> fast = balanced(samples, half, measure, 2.5);
                const std::vector<double> slow = slowlyBalanced(samples, half, measure, 2.5);
                for (size_t i = 0; i < slow.size(); ++i)
                    ASSERT_NEAR(fast[i], slow[i], 1e-6 * std::fabs(slow[i]))
                        << count << " samples, half window " << half << ", measure " << measure
                        << ", sample " << i;
            }
        }
    }
}

TEST(AgcMathTest, ConstantAmplitudeBecomesTheLevel)
{
    EXPECT_THAT(balanced({-4, -4, -4, -4}, 1, rms, 3), Each(FloatEq(-3)));
    EXPECT_THAT(balanced({-4, -4, -4, -4}, 1, mean, 3), Each(FloatEq(-3)));
}

TEST(AgcMathTest, WindowOfOneSampleLeavesTheSign)
{
    EXPECT_THAT(balanced({5, -2, 0, 1e-30f}, 0, rms), ElementsAre(1, -1, 0, FloatEq(1)));
}

TEST(AgcMathTest, WindowsWithoutAmplitudeStayZero)
{
    EXPECT_THAT(balanced({0, 0, 0, 0, 0, 6}, 1, mean), ElementsAre(0, 0, 0, 0, 0, FloatEq(2)));
    EXPECT_THAT(balanced({0, 0, 0}, 100, rms), Each(0.0f));
}

TEST(AgcMathTest, ASpikeLeavesNoTraceInWindowsWithoutIt)
{
    std::vector<float> samples(300, 1e-15f);
    samples[100] = 1e30f;

    for (const Measure measure : {rms, mean}) {
        const std::vector<float> result = balanced(samples, 10, measure);
        for (size_t i = 0; i < samples.size(); ++i) {
            const bool seesSpike = i >= 90 && i <= 110;
            if (i != 100) {
                ASSERT_NEAR(result[i], seesSpike ? 0 : 1, 1e-6) << i;
            }
        }
    }
}

TEST(AgcMathTest, TheGreatestAndTheSmallestSamplesCanBeSquared)
{
    const float greatest = std::numeric_limits<float>::max();
    const float smallest = std::numeric_limits<float>::denorm_min();
    EXPECT_THAT(balanced({greatest, -greatest}, 5, rms), ElementsAre(FloatEq(1), FloatEq(-1)));
    EXPECT_THAT(balanced({smallest, -smallest}, 5, rms), ElementsAre(FloatEq(1), FloatEq(-1)));
}

// Single precision has no squares of these, of one of them only, or not their gain.
TEST(AgcMathTest, AnyRangeOfAmplitudesHasItsGain)
{
    std::mt19937 random(2);
    const struct
    {
        float begin, end;
        double level;
    } rows[] = {{1, 1, 1},      {1e-25F, 1e-25F, 1}, {1e25F, 1e25F, 1},
                {1e-25F, 1, 1}, {1, 1e25F, 1},       {1, 1, 1e-20},
                {1, 1, 1e20},   {1e-38F, 1e38F, 5},  {1e-10F, 1e-10F, 1e12}};
    for (const auto& row : rows) {
        std::vector<float> samples(200);
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = (i < 100 ? row.begin : row.end) *
                         (static_cast<float>(random()) / 4294967296.0F - 0.5F);
        for (const Measure measure : {rms, mean}) {
            const std::vector<float> result = balanced(samples, 10, measure, row.level);
            const std::vector<double> expected = slowlyBalanced(samples, 10, measure, row.level);
            for (std::size_t i = 0; i < samples.size(); ++i)
                ASSERT_NEAR(result[i], expected[i], 4e-7 * std::fabs(expected[i]) + 1e-45)
                    << row.begin << " " << row.end << " " << row.level << ", sample " << i;
        }
    }
}

TEST(AgcMathTest, WhatIsNoFiniteNumberStaysAndCountsAsZero)
{
    const std::vector<float> result = balanced({2, noNumber, 4, -infinite, 8}, 1, mean);

    EXPECT_THAT(result, ElementsAre(FloatEq(2), NanSensitiveFloatEq(noNumber), FloatEq(3),
                                    -infinite, FloatEq(2)));
}

TEST(AgcMathTest, TraceWithoutSamplesIsNothingToDo)
{
    EXPECT_THAT(balanced({}, 3, rms), IsEmpty());
}

// ---- In a job ----

class AgcTest : public ModuleTest
{
protected:
    AgcTest() : ModuleTest("agc")
    {
        harness.push({2, 4, 6}, {{"offset", UniVar(100)}});
        harness.push({0, 0, 0}, {{"offset", UniVar(200)}});
        harness.push({-1, 1, -1}, {{"offset", UniVar(300)}});
    }
};

TEST_F(AgcTest, WindowIsATimeAroundASample)
{
    add({{"window", UniVar(0.004)}, {"mode", UniVar("mean")}}); // one sample to either side

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(FloatEq(2.0f / 3), 1, FloatEq(6.0f / 5)));
    EXPECT_THAT(result.traces[1].samples, Each(0.0f));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(-1, 1, -1));
    EXPECT_THAT(all("offset"), ElementsAre(100, 200, 300));
    EXPECT_EQ(history(), "agc window=0.004 s mode=mean");
}

// The traces have 6 ms, three samples.
TEST_F(AgcTest, WindowIsAShareOfTheTraces)
{
    add({{"share", UniVar(200.0 / 3)}, {"mode", UniVar("mean")}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(FloatEq(2.0f / 3), 1, FloatEq(6.0f / 5)));
    EXPECT_EQ(history(), "agc window=0.004 s mode=mean");
    EXPECT_THAT(messages(1),
                testing::Contains("window is 0.004 s, 66.6666667 percent of the traces"));
}

TEST_F(AgcTest, RootMeanSquareOfHalfASecondIsTheDefault)
{
    add();

    run();

    const float amplitude = std::sqrt(56.0f / 3);
    EXPECT_THAT(
        result.traces[0].samples,
        ElementsAre(FloatEq(2 / amplitude), FloatEq(4 / amplitude), FloatEq(6 / amplitude)));
    EXPECT_EQ(history(), "agc window=0.5 s mode=rms");
}

TEST_F(AgcTest, LongWindowsAreTheWholeTrace)
{
    add({{"window", UniVar(1e30)}, {"mode", UniVar("mean")}, {"level", UniVar(8)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(4, 8, 12));
}

TEST_F(AgcTest, WindowLongerThanTheTracesBringsAWarning)
{
    const struct
    {
        double window;
        bool isLong;
    } rows[] = {{0.006, false}, {0.0061, true}, {500, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.window);
        restart();
        harness.push({1, 2, 3});
        harness.push({1, 2, 3});
        add({{"window", UniVar(row.window)}});

        run();

        EXPECT_THAT(messages(2), testing::SizeIs(row.isLong ? 1 : 0));
    }
    EXPECT_THAT(messages(2),
                ElementsAre("window is 500 s, longer than the traces, which have 0.006 s: "
                            "amplitudes along a trace are hardly balanced; give a shorter window, "
                            "with its unit (500 ms)"));
}

TEST_F(AgcTest, TwoModulesHaveSettingsOfTheirOwn)
{
    add({{"window", UniVar(0.004)}, {"mode", UniVar("mean")}, {"level", UniVar(30)}}); // 20, 30, 36
    add({{"mode", UniVar("mean")}, {"level", UniVar(43)}}); // mean 86 / 3

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(FloatEq(30), FloatEq(45), FloatEq(54)));
}

TEST_F(AgcTest, SettingsAreRefused)
{
    const struct
    {
        const char* name;
        UniVar value;
        const char* message;
    } rows[] = {
        {"window", UniVar(0), "window is 0 s; give a number above 0"},
        {"window", UniVar(-0.25), "window is -0.25 s; give a number above 0"},
        {"level", UniVar(0), "level is 0; give a number above 0"},
        {"mode", UniVar("median"), "mode is \"median\"; give rms or mean"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.push({1, 2, 3});
        add({{row.name, row.value}});

        runInVain(row.message);
    }
}

TEST_F(AgcTest, SampleIntervalIsNeeded)
{
    harness.sampleInterval = 0;
    add();

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(AgcTest, AfterAFailureUpstreamOnlyThatIsSaid)
{
    harness.sampleInterval = 0;
    add();
    add();

    result = harness.run();

    EXPECT_THAT(result.messagesOf(4, "module1"), testing::SizeIs(1));
    EXPECT_THAT(result.messagesOf(4, "module2"), IsEmpty());
    EXPECT_THAT(result.traces, IsEmpty());
}

TEST_F(AgcTest, TracesWithoutSamplesPass)
{
    harness.input.clear();
    harness.push({}, {{"offset", UniVar(7)}});
    add();

    run();

    EXPECT_THAT(all("offset"), ElementsAre(7));
}

TEST_F(AgcTest, EmptyInputIsNoError)
{
    harness.input.clear();
    add();

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
