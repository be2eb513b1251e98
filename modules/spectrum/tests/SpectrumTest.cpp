#include "../spectrum_math.h"
#include "DataChannel.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ModuleTest.h"
#include "harness_data.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <deque>
#include <limits>
#include <memory>
#include <numbers>
#include <sstream>

namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double pi = std::numbers::pi;
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

// ---- Weights ----

TEST(SpectrumWeightTest, WeightsFollowTheirTaper)
{
    const struct
    {
        spectrum_taper taper;
        int i;
        double weight;
    } rows[] = {
        {SPECTRUM_NONE, 0, 1},
        {SPECTRUM_NONE, 99, 1},
        {SPECTRUM_HANN, 0, std::pow(std::sin(pi * 0.005), 2)},
        {SPECTRUM_HANN, 49, std::pow(std::cos(pi * 0.005), 2)},
        {SPECTRUM_COSINE, 0, std::pow(std::sin(pi * 0.025), 2)}, // a tenth is 10 samples
        {SPECTRUM_COSINE, 9, std::pow(std::cos(pi * 0.025), 2)},
        {SPECTRUM_COSINE, 10, 1},
        {SPECTRUM_COSINE, 89, 1},
    };
    for (const auto& row : rows) {
        EXPECT_NEAR(spectrum_weight(row.taper, row.i, 100), row.weight, 1e-12) << row.i;
        EXPECT_NEAR(spectrum_weight(row.taper, 99 - row.i, 100), row.weight, 1e-12) << row.i;
    }
}

// ---- Spectra ----

using Sum = std::unique_ptr<spectrum_sum, decltype(&spectrum_free)>;

Sum makeSum(int samples, double interval, spectrum_taper taper)
{
    return Sum(spectrum_create(samples, interval, taper), spectrum_free);
}

int add(const Sum& sum, const std::vector<float>& samples, int64_t first = 0)
{
    int odd = -99;
    return spectrum_add(sum.get(), samples.data(), static_cast<int>(samples.size()), first, &odd);
}

std::vector<double> meanOf(const Sum& sum)
{
    std::vector<double> amplitudes(static_cast<size_t>(spectrum_bins(sum.get())), -99.0);
    spectrum_mean(sum.get(), amplitudes.data());
    return amplitudes;
}

std::vector<float> sinusoid(int samples, double periods, double amplitude, double phase = 0.3)
{
    std::vector<float> values;
    for (int i = 0; i < samples; ++i)
        values.push_back(
            static_cast<float>(amplitude * std::cos(2 * pi * periods * i / samples + phase)));
    return values;
}

// The discrete transform of a sinusoid with whole periods has one bin, also weighted with a squared
// sine when that is far from the ends.
TEST(SpectrumSumTest, SinusoidHasItsAmplitudeAtItsFrequency)
{
    const struct
    {
        spectrum_taper taper;
        int samples;
        int periods;
        double error;
    } rows[] = {
        {SPECTRUM_NONE, 500, 40, 1e-5},  {SPECTRUM_NONE, 501, 1, 1e-5},
        {SPECTRUM_NONE, 97, 48, 1e-5},   {SPECTRUM_HANN, 500, 40, 1e-5},
        {SPECTRUM_HANN, 211, 3, 1e-5},   {SPECTRUM_COSINE, 500, 40, 0.002},
        {SPECTRUM_COSINE, 97, 30, 0.01},
    };
    for (const auto& row : rows) {
        const Sum sum = makeSum(row.samples, 0.002, row.taper);

        EXPECT_EQ(add(sum, sinusoid(row.samples, row.periods, 7)), 1);

        const size_t bin = static_cast<size_t>(2 * row.periods); // of twice the window
        EXPECT_NEAR(meanOf(sum)[bin], 7, 7 * row.error) << row.samples << " " << row.periods;
        EXPECT_DOUBLE_EQ(spectrum_step(sum.get()) * static_cast<double>(bin),
                         row.periods / (row.samples * 0.002));
    }
}

TEST(SpectrumSumTest, ConstantAndAlternationHaveTheirAmplitudeAtTheEnds)
{
    const Sum constant = makeSum(40, 0.004, SPECTRUM_NONE);
    const Sum alternation = makeSum(40, 0.004, SPECTRUM_NONE);
    add(constant, std::vector<float>(40, -3.0f));
    add(alternation, sinusoid(40, 20, 3, 0));

    EXPECT_NEAR(meanOf(constant).front(), 3, 1e-5);
    EXPECT_NEAR(meanOf(constant)[2], 0, 1e-5);
    EXPECT_NEAR(meanOf(alternation).back(), 3, 1e-5);
    EXPECT_EQ(spectrum_step(alternation.get()) * 40, 125);
}

TEST(SpectrumSumTest, ImpulseHasAllFrequencies)
{
    const Sum sum = makeSum(64, 0.002, SPECTRUM_NONE);
    std::vector<float> impulse(64, 0.0f);
    impulse[17] = 16;

    add(sum, impulse);

    const std::vector<double> amplitudes = meanOf(sum);
    ASSERT_THAT(amplitudes, SizeIs(65));
    for (size_t bin = 1; bin < 64; ++bin)
        EXPECT_NEAR(amplitudes[bin], 2 * 16.0 / 64, 1e-6) << bin;
    EXPECT_NEAR(amplitudes[0], 16.0 / 64, 1e-6);
    EXPECT_NEAR(amplitudes[64], 16.0 / 64, 1e-6);
}

std::vector<float> numbers(int count, int factor, int offset, int modulus)
{
    std::vector<float> values;
    for (int i = 0; i < count; ++i)
        values.push_back(static_cast<float>((i * factor + offset) % modulus - modulus / 2));
    return values;
}

// The weights of the window once more, from what the page says of them.
double expectedWeight(spectrum_taper taper, int i, int samples)
{
    const double place = (i + 0.5) / samples;
    if (taper == SPECTRUM_HANN)
        return 0.5 - 0.5 * std::cos(2 * pi * place);
    const double distance = std::min(place, 1 - place);
    return taper == SPECTRUM_NONE || distance > 0.1 ? 1 : 0.5 - 0.5 * std::cos(10 * pi * distance);
}

// An amplitude by the definition of the discrete Fourier transform, sum by sum.
double expectedAmplitude(const std::vector<float>& samples, spectrum_taper taper, int bin)
{
    const int count = static_cast<int>(samples.size());
    std::complex<double> sum = 0;
    double weights = 0;
    for (int i = 0; i < count; ++i) {
        const double weight = expectedWeight(taper, i, count);
        weights += weight;
        sum += weight * samples[static_cast<size_t>(i)] *
               std::polar(1.0, -2 * pi * bin * i / (2.0 * count));
    }
    return std::abs(sum) / weights * (bin == 0 || bin == count ? 1 : 2);
}

TEST(SpectrumSumTest, MeanOfTwoTracesAgreesWithTheDefinitionOfTheTransform)
{
    const std::vector<float> first = numbers(37, 7919, 13, 101);
    const std::vector<float> second = numbers(37, 31, 7, 53);
    for (const spectrum_taper taper : {SPECTRUM_NONE, SPECTRUM_COSINE, SPECTRUM_HANN}) {
        const Sum sum = makeSum(37, 0.001, taper);
        add(sum, first);
        add(sum, second);

        const std::vector<double> mean = meanOf(sum);

        ASSERT_THAT(mean, SizeIs(38));
        for (int bin = 0; bin < 38; ++bin)
            EXPECT_NEAR(
                mean[static_cast<size_t>(bin)],
                (expectedAmplitude(first, taper, bin) + expectedAmplitude(second, taper, bin)) / 2,
                2e-5)
                << "taper " << taper << ", bin " << bin;
    }
}

TEST(SpectrumSumTest, MeanIsThatOfAmplitudesWhateverTheirPhases)
{
    const Sum sum = makeSum(100, 0.002, SPECTRUM_NONE);
    add(sum, sinusoid(100, 10, 1, 0));
    add(sum, sinusoid(100, 10, 2, pi)); // against each other, traces would leave 1
    EXPECT_NEAR(meanOf(sum)[20], 1.5, 1e-5);
    EXPECT_EQ(spectrum_traces(sum.get()), 2);
}

TEST(SpectrumSumTest, WindowIsAPartOfTheTrace)
{
    const Sum sum = makeSum(50, 0.002, SPECTRUM_NONE);
    std::vector<float> samples = sinusoid(200, 40, 5); // 10 periods in 50 samples
    for (size_t i = 0; i < samples.size(); ++i) {
        if (i < 100 || i >= 150)
            samples[i] = 1000;
    }

    add(sum, samples, 100);

    EXPECT_NEAR(meanOf(sum)[20], 5, 1e-4);
    EXPECT_NEAR(meanOf(sum)[0], 0, 1e-4);
}

TEST(SpectrumSumTest, WhatLiesOutsideTheTraceIsZero)
{
    const std::vector<float> whole = {0, 0, 0, 4, -1, 3, 2, 0};
    const std::vector<float> part = {4, -1, 3, 2};
    const Sum sumOfWhole = makeSum(8, 0.002, SPECTRUM_HANN);
    const Sum sumOfPart = makeSum(8, 0.002, SPECTRUM_HANN);
    add(sumOfWhole, whole);
    EXPECT_EQ(add(sumOfPart, part, -3), 1);
    EXPECT_EQ(meanOf(sumOfWhole), meanOf(sumOfPart));
}

TEST(SpectrumSumTest, SamplesThatAreNoNumbersCountAsZero)
{
    std::vector<float> odd = numbers(60, 17, 3, 41);
    std::vector<float> zeroed = odd;
    zeroed[7] = zeroed[21] = zeroed[22] = 0;
    odd[7] = notANumber;
    odd[21] = infinite;
    odd[22] = -infinite;
    const Sum sumOfOdd = makeSum(60, 0.002, SPECTRUM_COSINE);
    const Sum sumOfZeroed = makeSum(60, 0.002, SPECTRUM_COSINE);
    int count = -99;

    EXPECT_EQ(spectrum_add(sumOfOdd.get(), odd.data(), 60, 0, &count), 1);
    add(sumOfZeroed, zeroed);

    EXPECT_EQ(count, 3);
    EXPECT_EQ(meanOf(sumOfOdd), meanOf(sumOfZeroed));
}

TEST(SpectrumSumTest, TracesOfZerosAreNotAdded)
{
    const Sum sum = makeSum(4, 0.002, SPECTRUM_NONE);
    EXPECT_EQ(add(sum, {0, 0, 0, 0, 9}), 0); // 9 is behind the window
    EXPECT_EQ(add(sum, {0, notANumber, 0, 0}), 0);
    EXPECT_EQ(add(sum, {1, 2, 3, 4}, 4), 0);
    EXPECT_EQ(add(sum, {1, 2, 3, 4}, -4), 0);
    EXPECT_EQ(spectrum_traces(sum.get()), 0);
    EXPECT_THAT(meanOf(sum), ElementsAre(0, 0, 0, 0, 0));
}

TEST(SpectrumSumTest, VeryGreatAndVerySmallAmplitudesSurvive)
{
    for (const double amplitude : {3e38, 1e-36}) {
        const Sum sum = makeSum(1000, 0.002, SPECTRUM_HANN);
        add(sum, sinusoid(1000, 100, amplitude, 0));
        EXPECT_NEAR(meanOf(sum)[200] / amplitude, 1, 1e-5) << amplitude;
    }
}

TEST(SpectrumSumTest, OneSampleIsAWindow)
{
    const Sum sum = makeSum(1, 0.002, SPECTRUM_HANN);
    add(sum, {-5});
    EXPECT_THAT(meanOf(sum), ElementsAre(DoubleNear(5, 1e-6), DoubleNear(5, 1e-6)));
}

TEST(SpectrumSumTest, WindowsWithoutSamplesAndEndlessOnesAreRefused)
{
    for (const int samples : {0, -1, std::numeric_limits<int>::max()})
        EXPECT_EQ(spectrum_create(samples, 0.002, SPECTRUM_NONE), nullptr) << samples;
}

// ---- Bands ----

TEST(SpectrumBandTest, BandReachesToTheCrossings)
{
    const double amplitudes[] = {0, 0, 2, 10, 4, 3, 1, 0.2, 0};
    const spectrum_band band = spectrum_find_band(amplitudes, 0, 8, 2.5, 0.1);
    EXPECT_EQ(band.peak, 7.5);
    EXPECT_EQ(band.amplitude, 10);
    EXPECT_DOUBLE_EQ(band.low, 1.5 * 2.5); // half-way from 0 to 2
    EXPECT_DOUBLE_EQ(band.high, 6 * 2.5);  // where it is 1
}

TEST(SpectrumBandTest, NotchesDoNotEndTheBand)
{
    const double amplitudes[] = {0, 6, 0, 0, 8, 0.1, 4, 0};
    const spectrum_band band = spectrum_find_band(amplitudes, 0, 7, 1, 0.5);
    EXPECT_EQ(band.peak, 4);
    EXPECT_DOUBLE_EQ(band.low, 4.0 / 6);
    EXPECT_EQ(band.high, 6);
}

TEST(SpectrumBandTest, BandEndsWithTheBinsLookedAt)
{
    const double amplitudes[] = {90, 5, 6, 5, 90};
    const spectrum_band band = spectrum_find_band(amplitudes, 1, 3, 10, 0.1);
    EXPECT_EQ(band.peak, 20);
    EXPECT_EQ(band.low, 10);
    EXPECT_EQ(band.high, 30);
}

TEST(SpectrumBandTest, SpectrumOfZerosHasABandToo)
{
    const double amplitudes[] = {0, 0, 0};
    const spectrum_band band = spectrum_find_band(amplitudes, 0, 2, 1, 0.1);
    EXPECT_EQ(band.peak, 0);
    EXPECT_EQ(band.low, 0);
    EXPECT_EQ(band.high, 2);
}

// ---- Scales ----

TEST(SpectrumScaleTest, DecibelsAreRelativeAndEndAtTheFloor)
{
    EXPECT_DOUBLE_EQ(spectrum_decibels(5, 50, -60), -20);
    EXPECT_DOUBLE_EQ(spectrum_decibels(50, 50, -60), 0);
    EXPECT_EQ(spectrum_decibels(1e-9, 50, -60), -60);
    EXPECT_EQ(spectrum_decibels(0, 50, -60), -60);
    EXPECT_EQ(spectrum_decibels(0, 0, -40), -40);
}

TEST(SpectrumScaleTest, EndsOfAxesAreRoundNumbers)
{
    const struct
    {
        double value;
        double rounded;
    } rows[] = {{1, 1},   {1.01, 1.2}, {1.21, 1.5},       {1.6, 2},     {2.2, 2.5},
                {2.8, 3}, {3, 3},      {4.2, 5},          {5.2, 6},     {7, 8},
                {9, 10},  {0.3, 0.3},  {812345, 1000000}, {7e-8, 8e-8}, {0.1, 0.1},
                {0, 1},   {-3, 1},     {NAN, 1}};
    for (const auto& row : rows)
        EXPECT_NEAR(spectrum_round_up(row.value), row.rounded, 1e-12 * row.rounded) << row.value;
}

std::vector<int> thinned(const std::vector<double>& amplitudes, int from, int to, int columns)
{
    std::vector<int> chosen(static_cast<size_t>(2 * columns + 2), -99);
    chosen.resize(
        static_cast<size_t>(spectrum_thin(amplitudes.data(), from, to, columns, chosen.data())));
    return chosen;
}

TEST(SpectrumScaleTest, ShortLinesKeepAllBins)
{
    const std::vector<double> amplitudes = {5, 4, 3, 2, 1, 0};
    EXPECT_THAT(thinned(amplitudes, 1, 4, 2), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(thinned(amplitudes, 3, 3, 1), ElementsAre(3));
}

TEST(SpectrumScaleTest, LongLinesKeepTheExtremesOfEachColumnAndTheEnds)
{
    const std::vector<double> amplitudes = {9, 5, 8, 1, 5, /**/ 5, 5, 7, 5, 5, /**/ 2, 3, 4, 9, 8};
    EXPECT_THAT(thinned(amplitudes, 0, 14, 3), ElementsAre(0, 3, 5, 7, 10, 13, 14));
}

TEST(SpectrumScaleTest, LongLinesNeverHaveMoreThanTwoBinsForAColumn)
{
    std::vector<double> amplitudes(100000);
    for (size_t i = 0; i < amplitudes.size(); ++i)
        amplitudes[i] = static_cast<double>(i * 7919 % 1009);
    const std::vector<int> chosen = thinned(amplitudes, 0, 99999, 500);
    EXPECT_LE(chosen.size(), 1002u);
    EXPECT_GE(chosen.size(), 900u);
    EXPECT_TRUE(std::is_sorted(chosen.begin(), chosen.end(), std::less_equal<>()));
    EXPECT_EQ(chosen.front(), 0);
    EXPECT_EQ(chosen.back(), 99999);
}

// ---- In a job ----

class SpectrumTest : public ModuleTest
{
protected:
    SpectrumTest() : ModuleTest("spectrum") {}

    // A trace of 1 s with a sinusoid.
    void push(double frequency, double amplitude, std::map<std::string, UniVar> attributes = {})
    {
        harness.push(sinusoid(500, frequency, amplitude), std::move(attributes));
    }

    std::string note(const std::string& key)
    {
        return result.moduleMetadata["module1"]["qc.spectrum." + key];
    }

    std::vector<std::string> titleLines()
    {
        std::vector<std::string> lines;
        std::istringstream stream(result.pads.at(0).title);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
        return lines;
    }

    // Height of the line at a frequency.
    float heightAt(float frequency)
    {
        for (const plotCommandStruct& command : result.pads.at(0).commands) {
            if (command.cmdType == 1 && std::fabs(command.xpage - frequency) < 1e-3f)
                return command.ypage;
        }
        ADD_FAILURE() << "nothing is drawn at " << frequency << " Hz";
        return -99;
    }
};

TEST_F(SpectrumTest, MeanSpectrumIsDrawnAtTheEndOfAJob)
{
    harness.withSink = false;
    push(40, 3);
    push(60, 5);
    add({{"taper", UniVar("none")}});

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    EXPECT_EQ(result.pads[0].type, 2);
    EXPECT_THAT(titleLines(),
                ElementsAre("Mean amplitude spectrum", "x: frequency (Hz)", "xrange: 0 250",
                            "y: amplitude", "yrange: 0 3", "legend: 1=2 traces,",
                            testing::AllOf(testing::StartsWith("note: peak 60 Hz, -20 dB "),
                                           testing::EndsWith(" Hz; 0 to 0.998 s, no taper"))));
    EXPECT_NEAR(heightAt(40), 1.5, 1e-5);
    EXPECT_NEAR(heightAt(60), 2.5, 1e-5);
    EXPECT_NEAR(heightAt(41), 0, 1e-5);
    EXPECT_EQ(note("peak_hz"), "60");
    EXPECT_EQ(note("traces"), "2");
}

TEST_F(SpectrumTest, PartsGiveThePictureOfOneRun)
{
    for (const std::map<std::string, UniVar>& parameters :
         {std::map<std::string, UniVar>{},
          {{"word", UniVar("offset")}, {"first", UniVar(300)}, {"scale", UniVar("db")}},
          {{"tmin", UniVar(0.05)}, {"tmax", UniVar(0.1)}},
          {{"tmin", UniVar(5.0)}},
          {{"taper", UniVar("hann")}, {"fmin", UniVar(20)}}})
    {
        restart();
        pushNoise(60, 100, [](int i) {
            return std::map<std::string, UniVar>{{"offset", UniVar(10 * i)}};
        });
        add(parameters);
        expectSameInParts();
    }
}

TEST_F(SpectrumTest, PartsWithOtherWindowsAreRefused)
{
    pushNoise(20, 100, [](int i) {
        return std::map<std::string, UniVar>{{"delrt", UniVar(i < 12 ? 0 : 40)}};
    });
    add();

    result = harness.runInParts({15});

    EXPECT_THAT(messages(4),
                ElementsAre("the first traces of two parts have the window from 0 to 0.198 s and "
                            "from 0.04 to 0.238 s; give tmin and tmax within all traces, or run "
                            "the job in one process"));
    restart();
    pushNoise(20, 100, [](int i) {
        return std::map<std::string, UniVar>{{"delrt", UniVar(i < 12 ? 0 : 40)}};
    });
    add({{"tmin", UniVar(0.05)}, {"tmax", UniVar(0.15)}});
    expectSameInParts();
}

TEST_F(SpectrumTest, TracesPassOn)
{
    push(40, 3, {{"offset", UniVar(100)}});
    push(60, 5, {{"offset", UniVar(200)}});
    add();

    run();

    EXPECT_THAT(all("offset"), ElementsAre(100, 200));
    EXPECT_EQ(result.traces[1].samples, sinusoid(500, 60, 5));
    EXPECT_EQ(result.sampleInterval, 2000);
    EXPECT_THAT(result.pads, SizeIs(1));
}

TEST_F(SpectrumTest, PeakAndBandAreReported)
{
    std::vector<float> impulse(500, 0.0f);
    impulse[250] = 500;
    harness.push(impulse);
    harness.push(std::vector<float>(500, 0.0f));
    add({{"taper", UniVar("none")}, {"fmin", UniVar(10)}, {"fmax", UniVar(200)}});

    run();

    ASSERT_THAT(messages(1), SizeIs(1)); // where the peak is, rounding says
    EXPECT_THAT(messages(1)[0],
                testing::EndsWith(" Hz, amplitude 2; within 20 dB of it from 10 to 200 Hz; mean of "
                                  "1 trace, 1 of zeros left out"));
    EXPECT_EQ(note("peak_amplitude"), "2");
    EXPECT_EQ(note("low_hz"), "10");
    EXPECT_EQ(note("high_hz"), "200");
    EXPECT_EQ(note("traces"), "1");
}

TEST_F(SpectrumTest, TracesAreChosenByAHeaderWord)
{
    const struct
    {
        std::map<std::string, UniVar> range;
        float heights[3]; // at 20, 40 and 60 Hz
    } rows[] = {
        {{{"first", UniVar(7)}}, {0, 2, 3}},
        {{{"last", UniVar(7)}}, {1, 2, 0}},
        {{{"first", UniVar(6.5)}, {"last", UniVar(7.5)}}, {0, 4, 0}},
        {{}, {2.0f / 3, 4.0f / 3, 2}},
    };
    for (const auto& row : rows) {
        restart();
        push(20, 2, {{"fldr", UniVar(6)}});
        push(40, 4, {{"fldr", UniVar(7)}});
        push(60, 6, {{"fldr", UniVar(8)}});
        auto parameters = row.range;
        if (!row.range.empty())
            parameters["word"] = UniVar("fldr");
        add(parameters);

        run();

        const float frequencies[] = {20, 40, 60};
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(heightAt(frequencies[i]), row.heights[i], 0.03) << i;
    }
}

TEST_F(SpectrumTest, WindowIsInTheTimeOfTheRecord)
{
    // 10 Hz from 0.5 s to 0.7 s, loud before and after; the second trace begins 0.1 s later.
    std::vector<float> late(400, 1000.0f);
    for (size_t i = 200; i < 300; ++i)
        late[i] = static_cast<float>(4 * std::sin(2 * pi * 0.02 * static_cast<double>(i)));
    harness.push(late, {{"delrt", UniVar(100)}});
    late.erase(late.begin(), late.begin() + 50);
    harness.push(late, {{"delrt", UniVar(200)}});
    add({{"taper", UniVar("none")}, {"tmin", UniVar(0.5)}, {"tmax", UniVar(0.698)}});

    run();

    EXPECT_NEAR(heightAt(10), 4, 1e-3);
    EXPECT_NEAR(heightAt(0), 0, 1e-3);
    EXPECT_THAT(titleLines().back(), testing::EndsWith("; 0.5 to 0.698 s, no taper"));
}

TEST_F(SpectrumTest, WindowEndsWithTheTrace)
{
    push(40, 3);
    add({{"taper", UniVar("hann")}, {"tmin", UniVar(-5)}, {"tmax", UniVar(50)}});

    run();

    EXPECT_NEAR(heightAt(40), 3, 1e-4);
    EXPECT_THAT(titleLines().back(), testing::EndsWith("; 0 to 0.998 s, Hann taper"));
}

TEST_F(SpectrumTest, ScaleCanBeInDecibels)
{
    std::vector<float> both = sinusoid(500, 40, 8);
    const std::vector<float> weak = sinusoid(500, 80, 0.08);
    for (size_t i = 0; i < both.size(); ++i)
        both[i] += weak[i];
    harness.push(both);
    add({{"taper", UniVar("none")}, {"scale", UniVar("db")}, {"db_range", UniVar(50)}});

    run();

    EXPECT_THAT(titleLines(), testing::Contains("y: amplitude (dB relative to the maximum)"));
    EXPECT_THAT(titleLines(), testing::Contains("yrange: -50 5"));
    EXPECT_EQ(heightAt(40), 0);
    EXPECT_NEAR(heightAt(80), -40, 1e-3);
    EXPECT_EQ(heightAt(120), -50);
}

TEST_F(SpectrumTest, FrequenciesDrawnHaveARange)
{
    push(40, 3);
    add({{"fmin", UniVar(10)}, {"fmax", UniVar(90)}});

    run();

    EXPECT_THAT(titleLines(), testing::Contains("xrange: 10 90"));
    const std::vector<plotCommandStruct>& commands = result.pads[0].commands;
    ASSERT_THAT(commands, SizeIs(1 + 161)); // a pen; every half Hz
    EXPECT_EQ(commands[1].xpage, 10);
    EXPECT_EQ(commands[1].ipen, 3);
    EXPECT_EQ(commands[2].ipen, 2);
    EXPECT_EQ(commands.back().xpage, 90);
}

TEST_F(SpectrumTest, LongTracesMakeNoLongDrawing)
{
    harness.push(sinusoid(60000, 12000, 5));
    add();

    run();

    EXPECT_LE(result.pads[0].commands.size(), 2003u);
    EXPECT_NEAR(heightAt(100), 5, 0.01);
}

TEST_F(SpectrumTest, TitleAndLabelStayInTheirLine)
{
    push(40, 3);
    add({{"title", UniVar("Line 7\nxrange: 0 1")}, {"labels", UniVar("raw, unmuted")}});

    run();

    EXPECT_EQ(titleLines().at(0), "Line 7");
    EXPECT_THAT(titleLines(), testing::Contains("xrange: 0 250"));
    EXPECT_THAT(titleLines(), testing::Contains("legend: 1=raw (1 trace),"));
    EXPECT_THAT(messages(1), ElementsAre(testing::StartsWith("raw: peak at 40 Hz")));
}

TEST_F(SpectrumTest, OddSamplesAreReportedOnce)
{
    push(40, 3);
    push(40, 3);
    harness.input[1].samples[8] = notANumber;
    harness.input[1].samples[9] = infinite;
    add();

    run();

    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 2, in traces: "
                                         "1; they count as 0"));
    EXPECT_NEAR(heightAt(40), 3, 0.05);
}

TEST_F(SpectrumTest, NothingIsDrawnWithoutATrace)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* warning;
    } rows[] = {
        {{{"word", UniVar("fldr")}, {"first", UniVar(100)}},
         "no trace has a spectrum: 0 are chosen and zero, 0 have no sample in the window, the "
         "others are not chosen"},
        {{{"tmin", UniVar(3)}},
         "no trace has a spectrum: 0 are chosen and zero, 2 have no sample in the window, the "
         "others are not chosen; the window is from 3 s, and the traces are from 0 to "
         "0.998 s"},
        {{{"tmax", UniVar(0.1)}},
         "no trace has a spectrum: 2 are chosen and zero, 0 have no sample in the window, the "
         "others are not chosen; the window is to 0.1 s, and the traces are from 0 to "
         "0.998 s"},
        {{{"tmin", UniVar(0.5)}, {"tmax", UniVar(0.6)}, {"fmin", UniVar(2)}, {"fmax", UniVar(3)}},
         "no frequency of the spectrum lies between fmin and fmax; it has one every 4.902 Hz up to "
         "250 Hz"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.warning);
        restart();
        for (int i = 0; i < 2; ++i) {
            std::vector<float> samples(500, 0.0f);
            samples[260] = 1; // at 0.52 s
            harness.push(samples, {{"fldr", UniVar(7)}});
        }
        add(row.parameters);

        run();

        EXPECT_THAT(result.pads, IsEmpty());
        EXPECT_THAT(messages(2), ElementsAre(row.warning));
        EXPECT_THAT(result.traces, SizeIs(2));
    }
}

TEST_F(SpectrumTest, EmptyInputIsNoError)
{
    for (const bool withSink : {true, false}) {
        restart();
        harness.withSink = withSink;
        add();

        run();

        EXPECT_THAT(result.pads, IsEmpty());
        EXPECT_THAT(messages(2), SizeIs(1));
    }
}

TEST_F(SpectrumTest, TracesWithoutSamplesPass)
{
    harness.push({}, {{"offset", UniVar(5)}});
    add();

    run();

    EXPECT_THAT(all("offset"), ElementsAre(5));
    EXPECT_THAT(messages(2), SizeIs(1));
}

TEST_F(SpectrumTest, TracesNeedTheHeaderWord)
{
    push(40, 3);
    push(40, 3);
    add({{"word", UniVar("shot")}, {"first", UniVar(1)}});

    runInVain("the traces have no header word \"shot\"; name one that they have with word");
    EXPECT_THAT(result.pads, IsEmpty());
}

TEST_F(SpectrumTest, FailedSinkLetsTheJobEnd)
{
    harness.withSink = false;
    push(40, 3);
    push(40, 3);
    add({{"word", UniVar("shot")}, {"first", UniVar(1)}});

    runInVain("the traces have no header word \"shot\"; name one that they have with word");
}

TEST_F(SpectrumTest, TwoSpectraHaveSettingsOfTheirOwn)
{
    push(40, 3);
    add({{"fmax", UniVar(50)}});
    add({{"fmax", UniVar(100)}});

    run();

    ASSERT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(result.pads[0].title, HasSubstr("xrange: 0 50\n"));
    EXPECT_THAT(result.pads[1].title, HasSubstr("xrange: 0 100\n"));
}

TEST_F(SpectrumTest, FrequencyAboveNyquistGivesAWarning)
{
    push(40, 3);
    add({{"fmax", UniVar(300)}});

    run();

    EXPECT_THAT(messages(2), ElementsAre("fmax is 300 Hz, above the highest frequency of the data, "
                                         "250 Hz"));
    EXPECT_THAT(titleLines(), testing::Contains("xrange: 0 250"));
}

TEST_F(SpectrumTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"tmin", UniVar(2)}, {"tmax", UniVar(1.5)}},
         "tmin is 2 s and tmax is 1.5 s; tmin must be below tmax"},
        {{{"tmin", UniVar(static_cast<double>(infinite))}}, "tmin is inf s; give a finite number"},
        {{{"word", UniVar("fldr")}}, "word is fldr without a range; give first, last or both"},
        {{{"first", UniVar(3)}},
         "first or last is given without word; name the header word that they are of"},
        {{{"word", UniVar("fldr")}, {"first", UniVar(3)}, {"last", UniVar(2)}},
         "first is 3 and last is 2; first must not be above last"},
        {{{"taper", UniVar("hanning")}}, "taper is \"hanning\"; give none, cosine or hann"},
        {{{"scale", UniVar("log")}}, "scale is \"log\"; give linear or db"},
        {{{"fmin", UniVar(-1)}}, "fmin is -1 Hz; give a number of at least 0"},
        {{{"fmin", UniVar(250)}}, "fmin is 250 Hz, and the data end at 250 Hz; give a lower one"},
        {{{"fmin", UniVar(20)}, {"fmax", UniVar(20)}},
         "fmax is 20 Hz; give a frequency above that of fmin, 20 Hz"},
        {{{"db_range", UniVar(0)}}, "db_range is 0 dB; give a number above 0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        push(40, 3);
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(SpectrumTest, SampleIntervalIsNeeded)
{
    harness.sampleInterval = 0;
    push(40, 3);
    add();

    runInVain("input 1 has no sample interval; the module before this one has to set it");
}

// ---- Several inputs ----

class SpectrumInputsTest : public KernelFixture
{
protected:
    SpectrumInputsTest()
    {
        job().installCreatePadFunc(createPad, this);
        job().installAddPlotToPadFuncFunc(addPlot, this);
        restart(false);
    }

    // A new job, with the module as the last one or with one behind it.
    void restart(bool withOutput)
    {
        if (!job().jobModules.empty())
            job().postProcessJob(); // deletes them
        host.messages.clear();
        title = failure = "";
        commands.clear();
        passed.clear();
        job().metaDataMap.clear();
        spectrum = job().initJobModule("spectrum", "libspectrum.so");
        if (!withOutput)
            return;
        ModuleEntity* module = job().initJobModule("sink", "libharness_sink.so");
        module->setResource("HARNESS", UniVar(static_cast<void*>(&sink)));
        DataChannel* channel = new DataChannel; // the job deletes it
        spectrum->setOutputDataChannel(channel, 0);
        module->setInputDataChannel(channel, 0);
    }

    // A source of so many traces with a sinusoid, connected to the next input.
    void addInput(double periods, double amplitude, int count, int interval = 2000,
                  int tracesPerCall = 1)
    {
        spectrum->setInputDataChannel(addSource(periods, amplitude, count, interval, tracesPerCall),
                                      0);
    }

    // The same through a module that leaves out the last trace and does not mark the end.
    void addCutInput(double periods, double amplitude, int count)
    {
        ModuleEntity* module = job().initJobModule("cut", "libdrop_last.so");
        DataChannel* channel = new DataChannel; // the job deletes it
        module->setInputDataChannel(addSource(periods, amplitude, count, 2000, 1), 0);
        module->setOutputDataChannel(channel, 0);
        spectrum->setInputDataChannel(channel, 0);
    }

    void run()
    {
        job().preProcessJob();
        job().processJob();
        failure = job().getMetaDataValue(0, "vorn.failed");
        spectrum->postProcessModule(); // the job's further call finds nothing to do
        removeTraces();
        job().postProcessJob();
    }

    ModuleEntity* spectrum;
    std::string title;
    std::string failure; // that writers of files find in the end
    std::vector<plotCommandStruct> commands;
    std::vector<float> passed; // greatest samples of the traces behind the module

private:
    struct Source
    {
        std::vector<float> samples;
        std::vector<harness_trace> traces;
        harness_source record;
    };

    DataChannel* addSource(double periods, double amplitude, int count, int interval,
                           int tracesPerCall)
    {
        Source& source = sources.emplace_back();
        source.samples = sinusoid(500, periods, amplitude);
        source.traces.assign(static_cast<size_t>(count), {source.samples.data(), nullptr, 0});
        source.record = {source.traces.data(), count, 500, interval, tracesPerCall, 0, 0};
        ModuleEntity* module = job().initJobModule("source", "libharness_source.so");
        module->setResource("HARNESS", UniVar(static_cast<void*>(&source.record)));
        DataChannel* channel = new DataChannel; // the job deletes it
        module->setOutputDataChannel(channel, 0);
        return channel;
    }

    // Neither the job nor trace sets destroy the traces that are left in the end.
    void removeTraces()
    {
        for (const ModuleEntity* module : job().jobModules) {
            std::vector<SeisTraceSet*> sets = module->workTraceSets;
            sets.insert(sets.end(), module->outputDataChannels.begin(),
                        module->outputDataChannels.end());
            for (SeisTraceSet* set : sets) {
                while (set->getNumberOfTraces() > 0)
                    set->removeTrace(0);
            }
        }
    }

    static void take(void* test, void* traceSet)
    {
        SeisTraceSet* set = static_cast<SeisTraceSet*>(traceSet);
        const float* samples = set->getSamples(0);
        const float greatest = *std::max_element(samples, samples + set->getTraceLength());
        static_cast<SpectrumInputsTest*>(test)->passed.push_back(std::round(greatest));
    }

    static int createPad(int, int, int, int, const char* text, void* test)
    {
        static_cast<SpectrumInputsTest*>(test)->title = text;
        return 0;
    }

    static int addPlot(int, plotCommandStruct command, void* test)
    {
        static_cast<SpectrumInputsTest*>(test)->commands.push_back(command);
        return 0;
    }

    std::deque<Source> sources; // modules know their addresses
    harness_sink sink = {take, this};
};

TEST_F(SpectrumInputsTest, EachInputHasAPenAndALabel)
{
    addInput(40, 4, 3);
    addInput(60, 2, 3, 4000); // 30 Hz
    spectrum->setParameter("labels", UniVar("before\nafter"));
    spectrum->setParameter("taper", UniVar("none"));

    run();

    EXPECT_THAT(title, HasSubstr("\nxrange: 0 250\n"));
    EXPECT_THAT(title, HasSubstr("\nlegend: 1=before (3 traces),2=after (3 traces),\n"));
    EXPECT_THAT(title, HasSubstr("before: peak 40 Hz"));
    EXPECT_THAT(title, HasSubstr("after: peak 30 Hz"));
    EXPECT_THAT(host.textsOfType(1),
                testing::Contains(testing::StartsWith("after: peak at 30 Hz")));
    std::map<int, std::pair<float, float>> peaks; // place and height, by pen
    int pen = 0;
    for (const plotCommandStruct& command : commands) {
        if (command.cmdType == 5)
            pen = command.ipen;
        else if (command.ypage > peaks[pen].second)
            peaks[pen] = {command.xpage, command.ypage};
    }
    ASSERT_THAT(peaks, SizeIs(2));
    EXPECT_EQ(peaks[1].first, 40);
    EXPECT_NEAR(peaks[1].second, 4, 1e-4);
    EXPECT_EQ(peaks[2].first, 30);
    EXPECT_NEAR(peaks[2].second, 2, 1e-4);
}

// The source marks the end on its last trace, or later on its empty channel.
TEST_F(SpectrumInputsTest, ShorterInputFailsTheJob)
{
    for (const int tracesPerCall : {1, 2, 50}) {
        for (const bool withOutput : {false, true}) {
            SCOPED_TRACE(tracesPerCall);
            restart(withOutput);
            addInput(40, 4, 5, 2000, tracesPerCall);
            addInput(60, 2, 2);
            addInput(60, 2, 7);

            run();

            const std::string reason =
                "input 2 has ended after 2 traces, and input 1 has more than 2; give inputs with "
                "as many traces each, or each input a module of its own";
            EXPECT_THAT(host.textsOfType(4), ElementsAre(reason));
            EXPECT_EQ(failure, "spectrum: " + reason) << "before post-processing";
            EXPECT_EQ(title, "");
        }
    }
}

// Nobody is told of such an end while traces come: it shows in what is left.
TEST_F(SpectrumInputsTest, ShorterInputWithoutAMarkOfItsEndFailsTheJobAfterwards)
{
    for (const bool cutComesFirst : {false, true}) {
        restart(true);
        if (cutComesFirst)
            addCutInput(60, 2, 3);
        addInput(40, 4, 3);
        if (!cutComesFirst)
            addCutInput(60, 2, 3);

        run();

        EXPECT_THAT(host.textsOfType(4),
                    ElementsAre(HasSubstr(" has ended after 2 traces, and input ")));
        EXPECT_EQ(title, "");
    }
}

TEST_F(SpectrumInputsTest, InputsCutAlikePass)
{
    addCutInput(40, 4, 3);
    addCutInput(60, 2, 3);

    run();

    EXPECT_THAT(host.textsOfType(4), IsEmpty());
    EXPECT_THAT(title, HasSubstr("\nlegend: 1=input 1 (2 traces),2=input 2 (2 traces),\n"));
}

TEST_F(SpectrumInputsTest, InputWithoutTracesIsShorter)
{
    addInput(40, 4, 0);
    addInput(60, 2, 1);

    run();

    EXPECT_THAT(host.textsOfType(4),
                ElementsAre(HasSubstr("input 1 has ended after 0 traces, and input 2 has more")));
}

TEST_F(SpectrumInputsTest, InputsOfOneLengthPassHoweverTheyEnd)
{
    for (const int tracesPerCall : {1, 2, 3, 50}) {
        for (const int count : {0, 1, 4}) {
            SCOPED_TRACE(tracesPerCall);
            restart(true);
            addInput(40, 4, count, 2000, tracesPerCall);
            addInput(60, 2, count);

            run();

            EXPECT_THAT(host.textsOfType(4), IsEmpty());
            EXPECT_EQ(failure, "");
            EXPECT_EQ(passed, std::vector<float>(static_cast<size_t>(count), 4));
        }
    }
}

TEST_F(SpectrumInputsTest, InputWithoutASpectrumIsLeftOutOfThePicture)
{
    addInput(40, 0, 2);
    addInput(60, 2, 2);

    run();

    EXPECT_THAT(title, HasSubstr("\nlegend: 2=input 2 (2 traces),\n"));
    EXPECT_THAT(host.textsOfType(2),
                ElementsAre("input 1: no trace has a spectrum: 2 are chosen and zero, 0 have no "
                            "sample in the window, the others are not chosen"));
}

TEST_F(SpectrumInputsTest, MoreThanFourInputsAreRefused)
{
    for (int i = 0; i < 5; ++i)
        addInput(40, 4, 1);

    run();

    EXPECT_THAT(host.textsOfType(4),
                ElementsAre("the module has more than 4 inputs; connect fewer"));
    EXPECT_EQ(title, "");
}

} // namespace
