#include "../gain_math.h"
#include "ModuleTest.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace {

using testing::ElementsAre;
using testing::FloatEq;
using testing::IsEmpty;
using testing::SizeIs;

constexpr float noNumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

// ---- Arithmetic ----

TEST(GainMathTest, FactorIsAPowerOfTimeTimesAnExponential)
{
    const struct
    {
        double time, power, exponent, factor;
    } rows[] = {
        {0, 0, 0, 1},
        {2, 0, 0, 1},
        {2, 1, 0, 2},
        {3, 2, 0, 9},
        {4, -0.5, 0, 0.5},
        {0, 2, 0, 0},
        {-1, 2, 0, 0},
        {-1, 0, 5, 1},
        {1, 0, 1, std::numbers::e},
        {2, 3, -0.5, 8 / std::numbers::e},
        {0, -1, 0, 500}, // as at 2 ms
        {-3, -2, 0, 250000},
    };
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(gain_at(row.time, 0.002, row.power, row.exponent), row.factor)
            << row.time << " s to the power of " << row.power << ", exponent " << row.exponent;
}

TEST(GainMathTest, FactorIsNeverInfinite)
{
    EXPECT_EQ(gain_at(5, 0.002, 0, 1e6), std::numeric_limits<double>::max());
    EXPECT_EQ(gain_at(1e9, 0.002, 1e9, 0), std::numeric_limits<double>::max());
}

TEST(GainMathTest, CurveBeginsAtTheFirstSample)
{
    double curve[3];

    gain_curve(0.5, 0.25, 2, 0, curve, 3);

    EXPECT_THAT(curve, ElementsAre(0.25, 0.5625, 1));
}

TEST(GainMathTest, LevelsOfATrace)
{
    const std::vector<float> samples = {3, -4, 0, 5};
    const auto level = [&](gain_level kind) { return gain_level_of(kind, samples.data(), 4); };
    EXPECT_DOUBLE_EQ(level(GAIN_LEVEL_NONE), 1);
    EXPECT_DOUBLE_EQ(level(GAIN_LEVEL_RMS), std::sqrt(50.0 / 4));
    EXPECT_DOUBLE_EQ(level(GAIN_LEVEL_MAX), 5);
    EXPECT_DOUBLE_EQ(level(GAIN_LEVEL_MEAN), 3);
}

TEST(GainMathTest, LevelsLeaveOutWhatIsNoFiniteNumber)
{
    const std::vector<float> samples = {noNumber, 3, infinite, -4, -infinite};
    const auto level = [&](gain_level kind) { return gain_level_of(kind, samples.data(), 5); };
    EXPECT_DOUBLE_EQ(level(GAIN_LEVEL_RMS), std::sqrt(12.5));
    EXPECT_DOUBLE_EQ(level(GAIN_LEVEL_MAX), 4);
    EXPECT_DOUBLE_EQ(level(GAIN_LEVEL_MEAN), 3.5);
}

TEST(GainMathTest, NothingHasTheLevelZero)
{
    for (const gain_level kind : {GAIN_LEVEL_RMS, GAIN_LEVEL_MAX, GAIN_LEVEL_MEAN}) {
        EXPECT_EQ(gain_level_of(kind, nullptr, 0), 0);
        EXPECT_EQ(gain_level_of(kind, &noNumber, 1), 0);
    }
}

TEST(GainMathTest, LevelOfTheGreatestAmplitudesIsFinite)
{
    const std::vector<float> samples(1000, std::numeric_limits<float>::max());
    EXPECT_FLOAT_EQ(static_cast<float>(gain_level_of(GAIN_LEVEL_RMS, samples.data(), 1000)),
                    std::numeric_limits<float>::max());
}

TEST(GainMathTest, ScaledSamplesAreClippedToEitherSide)
{
    std::vector<float> samples = {1, -1, 3, -3, infinite, noNumber, 0};

    gain_scale(2, 5, samples.data(), 7);

    EXPECT_THAT(samples, ElementsAre(2, -2, 5, -5, 5, testing::NanSensitiveFloatEq(noNumber), 0));
}

TEST(GainMathTest, ClipOfZeroIsNone)
{
    std::vector<float> samples = {1e30f};

    gain_scale(2, 0, samples.data(), 1);

    EXPECT_THAT(samples, ElementsAre(2e30f));
}

// ---- In a job ----

class GainTest : public ModuleTest
{
protected:
    GainTest() : ModuleTest("gain")
    {
        harness.sampleInterval = 500000;
        harness.push({1, 2, 3, -4}, {{"offset", UniVar(100)}, {"delrt", UniVar(0)}});
        harness.push({0, 0, 0, 0}, {{"offset", UniVar(200)}, {"delrt", UniVar(0)}});
        harness.push({8, 8, 8, 8}, {{"offset", UniVar(300)}, {"delrt", UniVar(1000)}});
    }
};

TEST_F(GainTest, WithoutParametersNothingChanges)
{
    add();

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(1, 2, 3, -4));
    EXPECT_THAT(all("offset"), ElementsAre(100, 200, 300));
    EXPECT_EQ(history(), "gain");
}

TEST_F(GainTest, TimePowerCountsFromTheDelay)
{
    add({{"time_power", UniVar(2)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0.5f, 3, -9));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(8, 18, 32, 50));
    EXPECT_EQ(history(), "gain time_power=2");
}

TEST_F(GainTest, TracesWithoutADelayBeginAtZero)
{
    for (HarnessTrace& trace : harness.input)
        trace.attributes.erase("delrt");
    add({{"time_power", UniVar(1.0)}});

    run();

    EXPECT_THAT(result.traces[2].samples, ElementsAre(0, 4, 8, 12));
}

TEST_F(GainTest, ExponentGrowsWithTime)
{
    add({{"exponent", UniVar(1.5)}});

    run();

    EXPECT_THAT(result.traces[0].samples,
                ElementsAre(1, FloatEq(2 * std::exp(0.75f)), FloatEq(3 * std::exp(1.5f)),
                            FloatEq(-4 * std::exp(2.25f))));
}

TEST_F(GainTest, BalancedTracesHaveTheFactorAsTheirLevel)
{
    add({{"balance", UniVar("mean")}, {"factor", UniVar(5)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(2, 4, 6, -8));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(5, 5, 5, 5));
}

// (1, 2, 3, -4) -> time (0, 1, 3, -6) -> divided by 6 -> times 12 (0, 2, 6, -12) -> clip 9.
TEST_F(GainTest, StepsHaveTheirOrder)
{
    add({{"clip", UniVar(9)},
         {"factor", UniVar(12)},
         {"balance", UniVar("max")},
         {"time_power", UniVar(1)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, FloatEq(2), FloatEq(6), -9));
    EXPECT_EQ(history(), "gain time_power=1 balance=max factor=12 clip=9");
}

TEST_F(GainTest, TwoGainsHaveSettingsOfTheirOwn)
{
    add({{"factor", UniVar(2)}});
    add({{"time_power", UniVar(1)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 2, 6, -12));
}

TEST_F(GainTest, SettingsAreRefused)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const struct
    {
        const char* name;
        UniVar value;
        const char* message;
    } rows[] = {
        {"balance", UniVar("median"), "balance is \"median\"; give none, rms, max or mean"},
        {"clip", UniVar(0), "clip is 0; give a number above 0"},
        {"clip", UniVar(-1.5), "clip is -1.5; give a number above 0"},
        {"factor", UniVar(infinity), "factor is inf; give a finite number"},
        {"time_power", UniVar(-infinity), "time_power is -inf; give a finite number"},
        {"exponent", UniVar(infinity), "exponent is inf 1/s; give a finite number"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.push({1, 2, 3});
        add({{row.name, row.value}});

        runInVain(row.message);
    }
}

TEST_F(GainTest, OnlyTimesNeedASampleInterval)
{
    harness.sampleInterval = 0;
    add({{"factor", UniVar(2)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(2, 4, 6, -8));
}

TEST_F(GainTest, TimesNeedASampleInterval)
{
    harness.sampleInterval = 0;
    add({{"exponent", UniVar(2)}});

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(GainTest, TracesWithoutSamplesPass)
{
    harness.input.clear();
    harness.push({}, {{"offset", UniVar(7)}});
    add({{"time_power", UniVar(2)}, {"balance", UniVar("rms")}});

    run();

    EXPECT_THAT(all("offset"), ElementsAre(7));
}

TEST_F(GainTest, EmptyInputIsNoError)
{
    harness.input.clear();
    add({{"time_power", UniVar(2)}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
