#include "../bandpass_math.h"
#include "ModuleTest.h"

#include <cmath>
#include <limits>
#include <memory>
#include <numbers>

namespace {

using testing::DoubleNear;
using testing::Each;
using testing::ElementsAre;
using testing::FloatNear;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double pi = std::numbers::pi;
constexpr double interval = 0.002; // seconds

// ---- Amplitudes ----

TEST(BandpassAmplitudeTest, TrapezoidHasStraightFlanks)
{
    const double corners[] = {10, 20, 60, 100};
    const struct
    {
        double frequency;
        double amplitude;
    } rows[] = {{0, 0},  {10, 0},   {12.5, 0.25}, {20, 1},  {40, 1},
                {60, 1}, {70, .75}, {90, .25},    {100, 0}, {250, 0}};
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(bandpass_trapezoid(corners, row.frequency), row.amplitude)
            << row.frequency << " Hz";
}

TEST(BandpassAmplitudeTest, EqualCornersAreAStepThatPassesItself)
{
    const double lowPass[] = {0, 0, 40, 40};
    const double highPass[] = {5, 5, 300, 300};
    EXPECT_EQ(bandpass_trapezoid(lowPass, 0), 1);
    EXPECT_EQ(bandpass_trapezoid(lowPass, 40), 1);
    EXPECT_EQ(bandpass_trapezoid(lowPass, 40.001), 0);
    EXPECT_EQ(bandpass_trapezoid(highPass, 4.999), 0);
    EXPECT_EQ(bandpass_trapezoid(highPass, 5), 1);
}

double decibels(double amplitude)
{
    return 20 * std::log10(amplitude);
}

TEST(BandpassAmplitudeTest, ButterworthIsThreeDecibelsDownAtItsFrequencies)
{
    const bandpass_band low = {10, 18, 0, 0};
    const bandpass_band high = {0, 0, 60, 36};
    EXPECT_DOUBLE_EQ(bandpass_butterworth(&low, 10), std::sqrt(0.5));
    EXPECT_DOUBLE_EQ(bandpass_butterworth(&high, 60), std::sqrt(0.5));
}

TEST(BandpassAmplitudeTest, ButterworthFallsAsManyDecibelsPerOctaveAsAsked)
{
    for (const double slope : {6.0, 18.0, 25.0, 72.0}) {
        const bandpass_band low = {64, slope, 0, 0};
        const bandpass_band high = {0, 0, 1, slope};
        EXPECT_THAT(decibels(bandpass_butterworth(&low, 2) / bandpass_butterworth(&low, 1)),
                    DoubleNear(slope, 0.01));
        EXPECT_THAT(decibels(bandpass_butterworth(&high, 64) / bandpass_butterworth(&high, 128)),
                    DoubleNear(slope, 0.01));
    }
}

TEST(BandpassAmplitudeTest, OnlyALowCutOffStopsTheMean)
{
    const bandpass_band low = {10, 18, 0, 0};
    const bandpass_band high = {0, 0, 60, 36};
    EXPECT_EQ(bandpass_butterworth(&low, 0), 0);
    EXPECT_EQ(bandpass_butterworth(&high, 0), 1);
}

TEST(BandpassAmplitudeTest, ButterworthBandIsTheProductOfItsSides)
{
    const bandpass_band low = {10, 18, 0, 0};
    const bandpass_band high = {0, 0, 60, 36};
    const bandpass_band both = {10, 18, 60, 36};
    for (const double frequency : {1.0, 9.0, 30.0, 55.0, 120.0})
        EXPECT_DOUBLE_EQ(bandpass_butterworth(&both, frequency),
                         bandpass_butterworth(&low, frequency) *
                             bandpass_butterworth(&high, frequency));
}

// ---- Length of the transform ----

TEST(BandpassLengthTest, TransformHasAtLeastTwiceTheSamplesAndSmallFactors)
{
    const struct
    {
        int samples;
        int length;
    } rows[] = {{0, 0},        {1, 32},     {5, 32},       {17, 40},
                {25, 64},      {751, 1536}, {1500, 3000},  {1501, 3072},
                {1024, 2048},  {-1, 0},     {8191, 16384}, {536870912, 1073741824},
                {536870913, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(bandpass_transform_length(row.samples), row.length) << row.samples;
}

// ---- Filtering ----

double trapezoid(const void* corners, double frequency)
{
    return bandpass_trapezoid(static_cast<const double*>(corners), frequency);
}

// Filters in place; the number of samples that are infinite or NaN.
int filter(std::vector<float>& samples, const double (&corners)[4])
{
    const std::unique_ptr<bandpass_filter, decltype(&bandpass_free)> made(
        bandpass_create(static_cast<int>(samples.size()), interval, trapezoid, corners),
        bandpass_free);
    return bandpass_apply(made.get(), samples.data());
}

double sincSquared(double x)
{
    return x == 0 ? 1 : std::pow(std::sin(pi * x) / (pi * x), 2);
}

// The inverse Fourier integral of the trapezoid: the Ormsby wavelet in closed form.
double ormsby(const double (&f)[4], double time)
{
    const auto flank = [time](double from, double to) {
        return (to * to * sincSquared(to * time) - from * from * sincSquared(from * time)) /
               (to - from);
    };
    return flank(f[2], f[3]) - flank(f[0], f[1]);
}

TEST(BandpassFilterTest, ImpulseBecomesTheOrmsbyWavelet)
{
    const double corners[] = {10, 30, 60, 100};
    for (const int place : {500, 0, 1000}) { // in the middle and at both ends
        std::vector<float> samples(1001, 0.0f);
        samples[static_cast<size_t>(place)] = 1;

        EXPECT_EQ(filter(samples, corners), 0);

        for (int i = 0; i <= 1000; ++i)
            ASSERT_NEAR(samples[static_cast<size_t>(i)],
                        interval * ormsby(corners, (i - place) * interval), 2e-5)
                << "impulse at " << place << ", sample " << i;
    }
}

// Away from the ends, where the filter sees the zeros around the trace.
TEST(BandpassFilterTest, SinusoidIsScaledByTheAmplitudeAtItsFrequency)
{
    const double corners[] = {10, 30, 60, 100};
    for (const double frequency : {5.0, 20.0, 45.0, 90.0, 180.0}) {
        std::vector<float> samples(2001);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = static_cast<float>(
                std::sin(2 * pi * frequency * interval * static_cast<double>(i) + 0.3));
        const std::vector<float> before = samples;

        filter(samples, corners);

        const double amplitude = bandpass_trapezoid(corners, frequency);
        for (size_t i = 800; i < 1200; ++i)
            ASSERT_NEAR(samples[i], amplitude * before[i], 2e-3)
                << frequency << " Hz, sample " << i;
    }
}

TEST(BandpassFilterTest, LateEnergyDoesNotComeBackAtTheBeginning)
{
    const double corners[] = {0, 0, 20, 30};
    std::vector<float> samples(1000, 0.0f);
    for (size_t i = 950; i < samples.size(); ++i)
        samples[i] = 100;

    filter(samples, corners);

    for (size_t i = 0; i < 300; ++i)
        ASSERT_NEAR(samples[i], 0, 0.05) << i;
}

TEST(BandpassFilterTest, FilterThatPassesEverythingChangesNothing)
{
    const double corners[] = {0, 0, 250, 250};
    std::vector<float> samples = {3, -1, 4, 1, -5, 9, -2};
    const std::vector<float> before = samples;

    filter(samples, corners);

    for (size_t i = 0; i < samples.size(); ++i)
        EXPECT_NEAR(samples[i], before[i], 2e-6) << i;
}

TEST(BandpassFilterTest, SamplesThatAreNoNumbersStayAndCountAsZero)
{
    const double corners[] = {5, 10, 60, 80};
    std::vector<float> odd(200);
    for (size_t i = 0; i < odd.size(); ++i)
        odd[i] = static_cast<float>(i % 17) - 8;
    std::vector<float> zeroed = odd;
    zeroed[20] = zeroed[150] = 0;
    odd[20] = std::numeric_limits<float>::quiet_NaN();
    odd[150] = -std::numeric_limits<float>::infinity();

    EXPECT_EQ(filter(odd, corners), 2);
    EXPECT_EQ(filter(zeroed, corners), 0);

    EXPECT_TRUE(std::isnan(odd[20]));
    EXPECT_EQ(odd[150], -std::numeric_limits<float>::infinity());
    for (const size_t i : {0u, 19u, 21u, 149u, 151u, 199u})
        EXPECT_EQ(odd[i], zeroed[i]) << i;
}

TEST(BandpassFilterTest, OneFilterServesTraceAfterTrace)
{
    const double corners[] = {5, 10, 60, 80};
    std::vector<float> first(100, 0.0f);
    std::vector<float> second(100, 0.0f);
    first[50] = second[50] = 1;
    const auto made = bandpass_create(100, interval, trapezoid, corners);

    bandpass_apply(made, first.data());
    std::vector<float> loud(100, 1e6f);
    bandpass_apply(made, loud.data());
    bandpass_apply(made, second.data());
    bandpass_free(made);

    EXPECT_EQ(first, second);
}

// ---- In a job ----

class BandpassTest : public ModuleTest
{
protected:
    BandpassTest() : ModuleTest("bandpass")
    {
        std::vector<float> impulse(201, 0.0f);
        impulse[100] = 1;
        harness.push(impulse, {{"offset", UniVar(100)}});
        harness.push(std::vector<float>(201, 0.0f), {{"offset", UniVar(200)}});
    }
};

TEST_F(BandpassTest, TracesAreFilteredWithTheIntervalOfTheData)
{
    const double corners[] = {10, 30, 60, 100};
    add({{"corners", floats({10.0, 30.0, 60.0, 100.0})}});

    run();

    ASSERT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(result.traces[0].samples[100], FloatNear(0.24f, 1e-4f)); // ormsby(0)
    EXPECT_THAT(result.traces[0].samples[110],
                FloatNear(static_cast<float>(interval * ormsby(corners, 0.02)), 2e-4f));
    EXPECT_THAT(result.traces[1].samples, Each(0.0f));
    EXPECT_THAT(all("offset"), ElementsAre(100, 200));
    EXPECT_EQ(result.sampleInterval, 2000);
    EXPECT_EQ(history(), "bandpass corners=10,30,60,100 Hz");
}

// The Nyquist frequency is 250 Hz.
TEST_F(BandpassTest, RelativeCornersAreSharesOfTheNyquistFrequency)
{
    const double corners[] = {10, 30, 60, 100};
    add({{"relative", floats({4.0, 12.0, 24.0, 40.0})}});

    run();

    EXPECT_THAT(result.traces[0].samples[100], FloatNear(0.24f, 1e-4f)); // ormsby(0)
    EXPECT_THAT(result.traces[0].samples[110],
                FloatNear(static_cast<float>(interval * ormsby(corners, 0.02)), 2e-4f));
    EXPECT_EQ(history(), "bandpass corners=10,30,60,100 Hz");
    EXPECT_THAT(messages(1), testing::Contains("corners are 10, 30, 60 and 100 Hz, in percent of "
                                               "the Nyquist frequency, 250 Hz: 4, 12, 24 and 40"));
}

TEST_F(BandpassTest, LowAndHighHaveSlopesOfTheirOwn)
{
    add({{"low", UniVar(8)}, {"high", UniVar(60.0)}, {"high_slope", UniVar(24)}});

    run();

    EXPECT_EQ(history(), "bandpass low=8 Hz 18 dB/octave high=60 Hz 24 dB/octave");
    // The response at time 0 is the mean of the amplitudes at all frequencies of the transform.
    const bandpass_band band = {8, 18, 60, 24};
    const int length = bandpass_transform_length(201);
    double sum = 0;
    for (int i = 0; i < length; ++i)
        sum += bandpass_butterworth(&band, std::min(i, length - i) / (length * interval));
    EXPECT_THAT(result.traces[0].samples[100], FloatNear(static_cast<float>(sum / length), 1e-6f));
}

TEST_F(BandpassTest, TwoFiltersHaveBandsOfTheirOwn)
{
    add({{"high", UniVar(40)}, {"high_slope", UniVar(200)}});
    add({{"low", UniVar(80)}, {"low_slope", UniVar(200)}});

    run();

    for (const float sample : result.traces[0].samples)
        ASSERT_NEAR(sample, 0, 1e-3); // nothing is in both
}

TEST_F(BandpassTest, FilterIsRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{}, "no frequencies are given; give corners, or low, high or both"},
        {{{"corners", floats({1.0, 2.0, 3.0, 4.0})}, {"low", UniVar(5)}},
         "corners and low or high are given; give one or the other"},
        {{{"corners", floats({1.0, 2.0, 3.0})}},
         "corners has 3 elements; give a list of 4 numbers of at least 0"},
        {{{"corners", UniVar(5.0)}},
         "corners has 0 elements; give a list of 4 numbers of at least 0"},
        {{{"corners", floats({1.0, 3.0, 2.0, 4.0})}},
         "corners are 1, 3, 2 and 4 Hz; give four frequencies in ascending order"},
        {{{"corners", floats({-1.0, 3.0, 4.0, 5.0})}},
         "corners holds -1 Hz; give a list of 4 numbers of at least 0"},
        {{{"corners", floats({7.0, 7.0, 7.0, 7.0})}}, "corners are all 7 Hz; give a band"},
        {{{"relative", floats({1.0, 2.0, 3.0, 4.0})}, {"high", UniVar(5)}},
         "corners and low or high are given; give one or the other"},
        {{{"relative", floats({1.0, 2.0, 3.0, 4.0})}, {"corners", floats({1.0, 2.0, 3.0, 4.0})}},
         "corners and relative are given; give one or the other"},
        {{{"low", UniVar(0)}}, "low is 0 Hz; give a number above 0"},
        {{{"high", UniVar("high")}}, "high is 0 Hz; give a number above 0"},
        {{{"low", UniVar(10)}, {"low_slope", UniVar(-6)}},
         "low_slope is -6 dB/octave; give a number above 0"},
        {{{"low", UniVar(60)}, {"high", UniVar(20)}},
         "low is 60 Hz and high is 20 Hz; low must be below high"},
        {{{"low", UniVar(250)}},
         "the band begins at 250 Hz, and a sample interval of 2 ms holds frequencies below 250 Hz "
         "only; nothing would pass"},
        {{{"corners", floats({300.0, 310.0, 350.0, 400.0})}},
         "the band begins at 300 Hz, and a sample interval of 2 ms holds frequencies below 250 Hz "
         "only; nothing would pass"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.push({1, 2, 3});
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(BandpassTest, BandThatEndsAboveTheNyquistFrequencyGivesAWarning)
{
    add({{"corners", floats({0.0, 0.0, 400.0, 500.0})}});

    run();

    EXPECT_THAT(messages(2), ElementsAre("the band ends at 500 Hz, above the highest frequency of "
                                         "the data, 250 Hz"));
    EXPECT_THAT(result.traces[0].samples[100], FloatNear(1, 1e-5f));
}

TEST_F(BandpassTest, SampleIntervalIsNeeded)
{
    harness.sampleInterval = 0;
    add({{"low", UniVar(5)}});

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(BandpassTest, OddSamplesAreReportedOnce)
{
    harness.input[0].samples[3] = std::numeric_limits<float>::quiet_NaN();
    harness.input[0].samples[5] = std::numeric_limits<float>::infinity();
    add({{"low", UniVar(5)}});

    run();

    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 2, in traces: 1; "
                                         "they stay as they are and count as 0"));
    EXPECT_TRUE(std::isnan(result.traces[0].samples[3]));
    EXPECT_FALSE(std::isnan(result.traces[0].samples[4]));
}

TEST_F(BandpassTest, TracesWithoutSamplesPass)
{
    harness.input.clear();
    harness.push({}, {{"offset", UniVar(1)}});
    harness.push({}, {{"offset", UniVar(2)}});
    add({{"low", UniVar(5)}});

    run();

    EXPECT_THAT(all("offset"), ElementsAre(1, 2));
    EXPECT_THAT(result.traces[0].samples, IsEmpty());
}

TEST_F(BandpassTest, EmptyInputIsNoError)
{
    harness.input.clear();
    add({{"low", UniVar(5)}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
