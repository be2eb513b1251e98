#include "../Autocorrelator.h"
#include "ModuleTest.h"

#include <cmath>
#include <numbers>
#include <random>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::FloatNear;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// The definition, summed directly.
double lagProduct(const std::vector<double>& x, std::size_t lag)
{
    long double sum = 0;
    for (std::size_t i = 0; i + lag < x.size(); ++i)
        sum += static_cast<long double>(x[i]) * x[i + lag];
    return static_cast<double>(sum);
}

std::vector<double> noise(std::size_t count)
{
    std::mt19937 random(20);
    std::normal_distribution<double> normal;
    std::vector<double> samples(count);
    for (double& sample : samples)
        sample = normal(random);
    return samples;
}

// ---- Arithmetic ----

TEST(AutocorrelatorTest, AgreesWithTheSumOfTheProducts)
{
    for (const int count : {1, 2, 7, 100, 331}) {
        for (const int lags : {0, 1, 50, 400}) {
            const std::vector<double> samples = noise(static_cast<std::size_t>(count));
            Autocorrelator correlator(count, lags);
            const std::vector<double>& found = correlator.of(samples.data(), count);
            ASSERT_EQ(found.size(), static_cast<std::size_t>(lags) + 1);
            for (std::size_t k = 0; k < found.size(); ++k)
                EXPECT_NEAR(found[k], lagProduct(samples, k), 1e-11 * count)
                    << count << " samples, lag " << k;
        }
    }
}

TEST(AutocorrelatorTest, AShorterTraceAfterALongerOneStandsAlone)
{
    const std::vector<double> samples = noise(60);
    Autocorrelator correlator(60, 20);
    correlator.of(samples.data(), 60);

    const std::vector<double> part(samples.begin(), samples.begin() + 15);
    const std::vector<double> found = correlator.of(part.data(), 15);

    for (std::size_t k = 0; k <= 20; ++k)
        EXPECT_NEAR(found[k], lagProduct(part, k), 1e-12) << k;
}

TEST(AutocorrelatorTest, EndsDoNotMeet)
{
    std::vector<double> samples(64, 0);
    samples.front() = 1;
    samples.back() = 1;
    Autocorrelator correlator(64, 63);

    const std::vector<double>& found = correlator.of(samples.data(), 64);

    EXPECT_NEAR(found[0], 2, 1e-12);
    EXPECT_NEAR(found[1], 0, 1e-12); // 1 if the trace were a ring
    EXPECT_NEAR(found[63], 1, 1e-12);
}

TEST(AutocorrelatorTest, AmplitudesOfAnySizeKeepTheirShape)
{
    for (const double scale : {1e-38, 1e-20, 1e20, 3e38}) {
        const std::vector<double> samples = {scale, 0, -0.5 * scale};
        Autocorrelator correlator(3, 2);
        const std::vector<double>& found = correlator.of(samples.data(), 3);
        EXPECT_NEAR(found[0] / (scale * scale), 1.25, 1e-12) << scale;
        EXPECT_NEAR(found[2] / found[0], -0.4, 1e-12) << scale;
    }
}

TEST(AutocorrelatorTest, NothingGivesZeros)
{
    Autocorrelator correlator(5, 3);
    const std::vector<double> zeros(5, 0);

    EXPECT_THAT(correlator.of(zeros.data(), 5), Each(0));
    EXPECT_THAT(correlator.of(nullptr, 0), ElementsAre(0, 0, 0, 0));
}

// ---- In a job ----

class AutocorrelationTest : public ModuleTest
{
protected:
    AutocorrelationTest() : ModuleTest("autocorrelation") {}

    // A spike and its ghost of half its amplitude, 3 samples of 2 ms later.
    void pushGhost(int delay = 0)
    {
        harness.push({0, 4, 0, 0, -2, 0, 0, 0}, {{"ns", UniVar(8)},
                                                 {"dt", UniVar(2000)},
                                                 {"delrt", UniVar(delay)},
                                                 {"cdp", UniVar(6)}});
    }
};

TEST_F(AutocorrelationTest, AGhostShowsAtItsLag)
{
    pushGhost(100);
    add({{"lag", UniVar(0.008)}});

    run();

    EXPECT_THAT(result.traces[0].samples,
                ElementsAre(1, FloatNear(0, 1e-6F), FloatNear(0, 1e-6F), FloatNear(-0.4F, 1e-6F),
                            FloatNear(0, 1e-6F)));
    EXPECT_EQ(result.traceLength, 5);
    EXPECT_EQ(result.sampleInterval, 2000);
    EXPECT_THAT(all("ns"), ElementsAre(5));
    EXPECT_THAT(all("delrt"), ElementsAre(0));
    EXPECT_THAT(all("cdp"), ElementsAre(6));
    EXPECT_EQ(history(), "autocorrelation lag=0.008 s normalise=zero_lag");
}

TEST_F(AutocorrelationTest, WithoutNormalisationItIsTheEnergy)
{
    pushGhost();
    add({{"lag", UniVar(0.006)}, {"normalise", UniVar("none")}});

    run();

    EXPECT_NEAR(result.traces[0].samples[0], 20, 1e-5);
    EXPECT_NEAR(result.traces[0].samples[3], -8, 1e-5);
}

TEST_F(AutocorrelationTest, BothSidesAreEven)
{
    pushGhost();
    add({{"lag", UniVar(0.006)}, {"two_sided", UniVar(1)}});

    run();

    const std::vector<float>& samples = result.traces[0].samples;
    ASSERT_THAT(samples, SizeIs(7));
    EXPECT_EQ(samples[3], 1);
    EXPECT_NEAR(samples[0], -0.4, 1e-6);
    EXPECT_EQ(samples[0], samples[6]);
    EXPECT_THAT(all("delrt"), ElementsAre(-6));
    EXPECT_THAT(all("ns"), ElementsAre(7));
}

TEST_F(AutocorrelationTest, TheWindowCountsFromTheShotAndIncludesItsEnds)
{
    pushGhost(0);
    pushGhost(2);
    pushGhost(4);
    add({{"lag", UniVar(0.006)},
         {"normalise", UniVar("none")},
         {"start", UniVar(0.004)},
         {"end", UniVar(0.010)}});

    run();

    // The spikes are at 2 and 8, 4 and 10, 6 and 12 ms.
    EXPECT_NEAR(result.traces[0].samples[0], 4, 1e-5);
    EXPECT_NEAR(result.traces[1].samples[0], 20, 1e-5);
    EXPECT_NEAR(result.traces[1].samples[3], -8, 1e-5);
    EXPECT_NEAR(result.traces[2].samples[0], 16, 1e-5);
    EXPECT_NEAR(result.traces[2].samples[3], 0, 1e-5);
}

TEST_F(AutocorrelationTest, AWaveRepeatsWithItsPeriod)
{
    std::vector<float> samples;
    for (int i = 0; i < 1000; ++i)
        samples.push_back(static_cast<float>(std::sin(2 * std::numbers::pi * i / 20)));
    harness.push(samples);
    add({{"lag", UniVar(0.1)}});

    run();

    // With n of N products left, the value at the lag k is cos(2 pi k / 20) (N - k) / N.
    for (int k = 0; k <= 50; k += 10)
        EXPECT_NEAR(result.traces[0].samples[static_cast<std::size_t>(k)],
                    (k % 20 == 0 ? 1 : -1) * (1000.0 - k) / 1000, 1e-4);
}

TEST_F(AutocorrelationTest, DeadTracesStayDead)
{
    harness.push({0, 0, 0, 0});
    add({{"lag", UniVar(0.004)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 0));
    EXPECT_THAT(messages(1), ElementsAre("1 of 1 traces are zeros in the window and stay so"));
}

TEST_F(AutocorrelationTest, AWindowBesideTheRecordIsTold)
{
    pushGhost();
    pushGhost();
    add({{"lag", UniVar(0.004)}, {"start", UniVar(1.0)}, {"end", UniVar(2.0)}});

    run();

    EXPECT_THAT(result.traces[1].samples, Each(0));
    EXPECT_THAT(messages(2),
                ElementsAre("trace 1 (cdp 6) has samples from 0 to 0.014 s, none of them in the "
                            "window from 1 s to 2 s: it becomes zeros; give times with their unit "
                            "(900 ms)",
                            "2 of 2 traces have no sample in the window and became zeros"));
}

TEST_F(AutocorrelationTest, ALagBeyondTheWindowIsTold)
{
    pushGhost();
    add({{"lag", UniVar(0.2)}});

    run();

    EXPECT_THAT(result.traces[0].samples, SizeIs(101));
    EXPECT_EQ(result.traces[0].samples[60], 0);
    EXPECT_THAT(
        messages(2),
        ElementsAre("lag is 0.2 s, and the window has 0.014 s: greater lags are zeros; give "
                    "lag with its unit (200 ms)"));
}

TEST_F(AutocorrelationTest, SamplesThatAreNotFiniteCountAsZeros)
{
    harness.push({1, NAN, 1, INFINITY});
    add({{"lag", UniVar(0.004)}, {"normalise", UniVar("none")}});

    run();

    EXPECT_NEAR(result.traces[0].samples[0], 2, 1e-6);
    EXPECT_NEAR(result.traces[0].samples[2], 1, 1e-6);
    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 2, in traces: 1; they "
                                         "count as 0"));
}

TEST_F(AutocorrelationTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"start", UniVar(1.0)}, {"end", UniVar(1.0)}},
         "start is 1 s and end is 1 s; end must be after start"},
        {{{"lag", UniVar(-1.0)}}, "lag is -1 s; give a number from 0 to 100000"},
        {{{"normalise", UniVar("x")}}, "normalise is \"x\"; give zero_lag or none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushGhost();
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(AutocorrelationTest, LagsBeyondMemoryAreRefusedBeforeItIsAsked)
{
    harness.sampleInterval = 1;
    pushGhost();
    add({{"lag", UniVar(1e4)}});

    runInVain(
        "lag is 10000 s, 10000000000 samples; with the trace, at most 268435456 are possible; "
        "give lag with its unit (200 ms)");
}

TEST_F(AutocorrelationTest, SampleIntervalIsRequired)
{
    harness.sampleInterval = 0;
    pushGhost();
    add();

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(AutocorrelationTest, EmptyInputIsNoError)
{
    add();

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
