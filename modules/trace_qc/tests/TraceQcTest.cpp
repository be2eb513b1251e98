#include "../gather_measures.h"
#include "../level_curve.h"
#include "../trace_measures.h"
#include "KernelFixture.h"
#include "ModuleTest.h"
#include "SegyBytes.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numbers>
#include <random>
#include <sstream>

namespace {

using testing::Contains;
using testing::DoubleNear;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double pi = std::numbers::pi;
constexpr float noNumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

using Samples = std::vector<float>;

// A tone of `frequency` cycles per sample.
Samples tone(int samples, double frequency, double amplitude = 1, double phase = 0.3)
{
    Samples values;
    for (int i = 0; i < samples; ++i)
        values.push_back(static_cast<float>(amplitude * std::sin(2 * pi * frequency * i + phase)));
    return values;
}

Samples noise(int samples, double deviation, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0, static_cast<float>(deviation));
    Samples values(static_cast<std::size_t>(samples));
    for (float& value : values)
        value = normal(random);
    return values;
}

// Adds a Ricker wavelet with its greatest amplitude at sample `at`.
void addRicker(Samples& samples, double at, double frequency, double amplitude)
{
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double a = std::pow(pi * frequency * (static_cast<double>(i) - at), 2);
        samples[i] += static_cast<float>(amplitude * (1 - 2 * a) * std::exp(-a));
    }
}

// ---- Levels ----

TEST(TraceLevelsTest, LevelsOfATraceAreThoseOfItsSamples)
{
    const TraceLevels levels = levelsOf(Samples{3, -4, 0, 5});
    EXPECT_DOUBLE_EQ(levels.rms, std::sqrt(50.0 / 4));
    EXPECT_DOUBLE_EQ(levels.peak, 5);
    EXPECT_DOUBLE_EQ(levels.mean, 1);
    EXPECT_EQ(levels.invalid, 0);
    EXPECT_FALSE(levels.isConstant);
}

TEST(TraceLevelsTest, RmsOfAToneIsItsAmplitudeOverTheRootOfTwo)
{
    const TraceLevels levels = levelsOf(tone(1000, 0.025, 7)); // 25 whole periods
    EXPECT_NEAR(levels.rms, 7 / std::sqrt(2), 1e-5);
    EXPECT_NEAR(levels.mean, 0, 1e-6);
}

TEST(TraceLevelsTest, SamplesThatAreNoFiniteNumbersAreCountedAndLeftOut)
{
    const TraceLevels levels = levelsOf(Samples{noNumber, 3, infinite, -1, -infinite});
    EXPECT_EQ(levels.invalid, 3);
    EXPECT_DOUBLE_EQ(levels.rms, std::sqrt(5));
    EXPECT_DOUBLE_EQ(levels.peak, 3);
    EXPECT_DOUBLE_EQ(levels.mean, 1);
    EXPECT_FALSE(levels.isConstant);
}

TEST(TraceLevelsTest, ConstantTracesAreThose)
{
    EXPECT_TRUE(levelsOf(Samples{}).isConstant);
    EXPECT_TRUE(levelsOf(Samples{0, 0, 0}).isConstant);
    EXPECT_TRUE(levelsOf(Samples{noNumber, -3, -3}).isConstant);
    EXPECT_FALSE(levelsOf(Samples{0, 0, 1e-30f}).isConstant);
}

TEST(TraceLevelsTest, TheGreatestAmplitudesHaveAFiniteRms)
{
    const float most = std::numeric_limits<float>::max();
    EXPECT_DOUBLE_EQ(levelsOf(Samples{most, -most, most}).rms, most);
}

// ---- Clipping ----

TEST(ClippedRunTest, RunsCountAtTheGreatestAndTheLeastValue)
{
    const struct
    {
        Samples samples;
        int run;
        const char* what;
    } rows[] = {
        {{}, 0, "no samples"},
        {{1, 2, 1}, 1, "a peak"},
        {{1, 5, 5, 5, 1, 5, 5}, 3, "the longest of two"},
        {{1, 4, 4, 4, 4, 1, 5, 5}, 2, "a plateau below the limit is none"},
        {{1, -7, -7, -7, 2, 2}, 3, "the least value"},
        {{9, 9, -9, -9, -9}, 3, "the two limits do not join"},
        {{0, 0, 0, 0, 3, 1}, 1, "zeros are no limit"},
        {{0, 0, 0, 0, -3, -1}, 1, "nor from below"},
        {{5, 5, 5, 5}, 0, "a constant trace"},
        {{5, 5, noNumber, 5, 1}, 2, "what is no number ends a run"},
        {{infinite, 5, 5, 1}, 2, "nor is infinity a limit"},
        {{2, 3, 3, 2}, 2, "positive samples have no least value that counts"},
        {{3, 2, 2, 2, 3}, 1, "however long it lasts"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(longestRunAtTheLimit(row.samples), row.run) << row.what;
}

// ---- Spikes ----

TEST(SpikeTest, ASampleFarAboveNoiseIsASpike)
{
    Samples samples = noise(400, 1, 5);
    samples[123] = 80;
    samples[250] = -60;
    samples[0] = 70;
    samples[399] = 70;
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), ElementsAre(0, 123, 250, 399));
}

TEST(SpikeTest, NoiseHasNone)
{
    for (unsigned seed = 1; seed <= 20; ++seed)
        EXPECT_THAT(findSpikes(noise(1000, 3, seed), 0, 12, 25), IsEmpty()) << seed;
}

TEST(SpikeTest, TheThresholdIsInStandardDeviations)
{
    Samples samples = noise(2000, 1, 5);
    for (int i = 996; i <= 1004; ++i)
        samples[static_cast<std::size_t>(i)] = 0; // nothing near stands in the way
    samples[1000] = 10;
    // The deviations of 900 samples to each side are 1 within some hundredths.
    EXPECT_THAT(findSpikes(samples, 0, 9, 900), ElementsAre(1000));
    EXPECT_THAT(findSpikes(samples, 0, 11, 900), IsEmpty());
}

TEST(SpikeTest, WaveletsAreNone)
{
    for (const double frequency : {0.02, 0.05, 0.1, 0.2}) {
        Samples samples = noise(400, 0.001, 5);
        addRicker(samples, 200, frequency, 100);
        addRicker(samples, 300.5, frequency, -100);
        EXPECT_THAT(findSpikes(samples, 0, 12, 25), IsEmpty()) << frequency;
    }
}

TEST(SpikeTest, TheOnsetOfASignalIsNone)
{
    Samples samples = noise(400, 0.001, 5);
    const Samples signal = noise(200, 100, 6);
    std::copy(signal.begin(), signal.end(), samples.begin() + 200);
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), IsEmpty());
}

TEST(SpikeTest, ASampleNoGreaterThanWhatFollowsIsNone)
{
    Samples samples = noise(400, 0.001, 5);
    samples[195] = 60; // far from the noise before, and alone
    const Samples signal = noise(200, 20, 6);
    std::copy(signal.begin(), signal.end(), samples.begin() + 200);
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), IsEmpty());
    std::reverse(samples.begin(), samples.end());
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), IsEmpty());
    std::fill_n(samples.begin(), 200, 0.001f);
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), ElementsAre(204));
}

TEST(SpikeTest, ASpikeInZerosIsOne)
{
    Samples samples(100, 0.0f);
    samples[40] = 1e-6f;
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), ElementsAre(40));
}

TEST(SpikeTest, SpikesOfUpToThreeSamplesAreOneEach)
{
    Samples samples = noise(300, 1, 5);
    samples[99] = samples[101] = 60;
    samples[100] = 90;
    samples[200] = samples[201] = -90;
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), ElementsAre(100, 200));
}

TEST(SpikeTest, AConstantIsNoHindrance)
{
    Samples samples = noise(300, 1, 5);
    for (float& sample : samples)
        sample += 1000;
    samples[150] += 60;
    EXPECT_THAT(findSpikes(samples, levelsOf(samples).mean, 12, 25), ElementsAre(150));
}

TEST(SpikeTest, ShortTracesAndOddSamplesHaveNone)
{
    EXPECT_THAT(findSpikes(Samples{}, 0, 12, 25), IsEmpty());
    EXPECT_THAT(findSpikes(Samples{0, 0, 0, 0, 90, 0, 0, 0, 0}, 0, 12, 25), IsEmpty());
    Samples samples = noise(300, 1, 5);
    samples[100] = noNumber;
    samples[150] = infinite;
    EXPECT_THAT(findSpikes(samples, 0, 12, 25), IsEmpty());
}

// ---- Dominant frequency ----

TEST(FrequencyMeterTest, TheFrequencyOfAToneIsFoundBetweenTheSteps)
{
    const int samples = 500;
    FrequencyMeter meter(samples);
    for (const double frequency : {0.0123, 0.05, 0.1, 0.1017, 0.1234, 0.25, 0.3333, 0.4711}) {
        const DominantFrequency dominant = meter.measure(tone(samples, frequency), 0);
        // The steps of the transform are 0.001 apart.
        EXPECT_NEAR(dominant.frequency, frequency, 0.00005) << frequency;
        EXPECT_GT(dominant.share, 0.9) << frequency;
        EXPECT_LE(dominant.share, 1) << frequency;
    }
}

TEST(FrequencyMeterTest, TheStrongestOfTwoTonesIsDominant)
{
    const int samples = 1000;
    Samples both = tone(samples, 0.05, 3);
    const Samples other = tone(samples, 0.2, 4);
    std::transform(both.begin(), both.end(), other.begin(), both.begin(), std::plus<>());
    FrequencyMeter meter(samples);
    const DominantFrequency dominant = meter.measure(both, levelsOf(both).mean);
    EXPECT_NEAR(dominant.frequency, 0.2, 0.0001);
    EXPECT_NEAR(dominant.share, 16.0 / 25, 0.05);
}

// The amplitude spectrum of a Ricker wavelet is greatest at its frequency.
TEST(FrequencyMeterTest, AWaveletHasItsPeakFrequency)
{
    Samples samples(2000, 0.0f);
    addRicker(samples, 1000, 0.1, 1);
    FrequencyMeter meter(2000);
    const DominantFrequency dominant = meter.measure(samples, levelsOf(samples).mean);
    EXPECT_NEAR(dominant.frequency, 0.1, 0.0005);
    EXPECT_LT(dominant.share, 0.05);
}

TEST(FrequencyMeterTest, AConstantDoesNotCount)
{
    Samples samples = tone(600, 0.08, 1e-3);
    for (float& sample : samples)
        sample += 10;
    FrequencyMeter meter(600);
    EXPECT_NEAR(meter.measure(samples, levelsOf(samples).mean).frequency, 0.08, 0.0005);
}

TEST(FrequencyMeterTest, AmplitudesOfAnySizeAreMeasured)
{
    FrequencyMeter meter(400);
    for (const double amplitude : {1e-35, 1e30})
        EXPECT_NEAR(meter.measure(tone(400, 0.125, amplitude), 0).frequency, 0.125, 0.0001)
            << amplitude;
}

TEST(FrequencyMeterTest, NothingHasNoFrequency)
{
    for (const int samples : {0, 1, 2, 100}) {
        FrequencyMeter meter(samples);
        const Samples constant(static_cast<std::size_t>(samples), 3.0f);
        const DominantFrequency dominant = meter.measure(constant, 3);
        EXPECT_EQ(dominant.frequency, 0) << samples;
        EXPECT_EQ(dominant.share, 0) << samples;
    }
}

TEST(FrequencyMeterTest, OddSamplesCountAsTheMean)
{
    FrequencyMeter meter(500);
    Samples samples = tone(500, 0.1);
    samples[250] = noNumber;
    samples[300] = infinite;
    EXPECT_NEAR(meter.measure(samples, 0).frequency, 0.1, 0.0002);
}

TEST(TransformLengthTest, LengthsAreEvenAndHaveSmallFactors)
{
    const struct
    {
        int least;
        int length;
    } rows[] = {{0, 2}, {1, 2}, {2, 2}, {3, 4}, {7, 8}, {14, 16}, {17, 18}, {26, 30}, {3002, 3072}};
    for (const auto& row : rows)
        EXPECT_EQ(transformLength(row.least), row.length) << row.least;
}

// ---- Running median ----

TEST(RunningMedianTest, TheMedianIsThatOfTheLiveTracesAround)
{
    const std::vector<double> values = {1, 9, 2, 0, 4, 100};
    EXPECT_THAT(runningMedian(values, 3), ElementsAre(5, 2, 5.5, 3, 52, 52));
    EXPECT_THAT(runningMedian(values, 101), Each(4));
    EXPECT_THAT(runningMedian(values, 1), ElementsAre(1, 9, 2, 0, 4, 100));
    EXPECT_THAT(runningMedian({0, 0}, 3), ElementsAre(0, 0));
    EXPECT_THAT(runningMedian({}, 3), IsEmpty());
}

TEST(RunningMedianTest, AnEvenWindowCountsAsTheNextOddOne)
{
    const std::vector<double> values = {3, 1, 4, 1, 5, 9, 2, 6};
    EXPECT_EQ(runningMedian(values, 4), runningMedian(values, 5));
    EXPECT_NE(runningMedian(values, 4), runningMedian(values, 3));
}

// ---- Polarity ----

double polarityOf(const Samples& a, const Samples& b, int lag)
{
    Correlator correlator(static_cast<int>(a.size()));
    const Correlator::Spectrum first = correlator.transform(a);
    return correlator.polarity(first, correlator.transform(b), lag);
}

// The definition, term by term.
double plainPolarity(const Samples& a, const Samples& b, int lag)
{
    const double meanA = levelsOf(a).mean;
    const double meanB = levelsOf(b).mean;
    const int count = static_cast<int>(a.size());
    double energyA = 0;
    double energyB = 0;
    for (const float sample : a)
        energyA += std::pow(sample - meanA, 2);
    for (const float sample : b)
        energyB += std::pow(sample - meanB, 2);
    double least = INFINITY;
    double greatest = -INFINITY;
    for (int shift = -lag; shift <= lag; ++shift) {
        double sum = 0;
        for (int i = 0; i < count; ++i) {
            if (i + shift >= 0 && i + shift < count)
                sum += (a[static_cast<std::size_t>(i + shift)] - meanA) *
                       (b[static_cast<std::size_t>(i)] - meanB);
        }
        least = std::min(least, sum);
        greatest = std::max(greatest, sum);
    }
    return (least + greatest) / 2 / std::sqrt(energyA * energyB);
}

TEST(CorrelatorTest, PolarityIsThatOfItsDefinition)
{
    for (const int samples : {2, 7, 100}) {
        for (const int lag : {0, 1, 5, 99}) {
            const Samples a = noise(samples, 10, 1);
            const Samples b = noise(samples, 0.1, 2);
            EXPECT_NEAR(polarityOf(a, b, lag), plainPolarity(a, b, std::min(lag, samples - 1)),
                        2e-6)
                << samples << " samples, lag " << lag;
        }
    }
}

TEST(CorrelatorTest, PolarityOfEqualAndOppositeTraces)
{
    Samples a = noise(200, 1, 3);
    Samples b = a;
    for (float& sample : b)
        sample = 5 - 2 * sample;
    EXPECT_NEAR(polarityOf(a, a, 0), 1, 1e-5);
    EXPECT_NEAR(polarityOf(a, b, 0), -1, 1e-5);
    EXPECT_GT(polarityOf(a, a, 10), 0.3);
    EXPECT_NEAR(polarityOf(a, b, 10), -polarityOf(a, a, 10), 1e-5);
}

TEST(CorrelatorTest, ALagFindsAMovedEvent)
{
    Samples a(300, 0.0f);
    Samples b(300, 0.0f);
    addRicker(a, 100, 0.08, 1);
    addRicker(b, 106, 0.08, -1);
    // The normalised autocorrelation of a Ricker wavelet is (1 - 2 u + u^2 / 3) exp(-u / 2), with u
    // the square of pi * frequency * lag: -0.5853 at 6 samples, and least at 5 with -0.6026.
    EXPECT_NEAR(polarityOf(a, b, 0), 0.5853, 2e-4);
    EXPECT_NEAR(polarityOf(a, b, 8), (0.6026 - 1) / 2, 2e-4);
}

TEST(CorrelatorTest, TracesWithoutEnergyHaveNoPolarity)
{
    Correlator correlator(50);
    const Correlator::Spectrum none = correlator.transform(Samples(50, 2.0f));
    EXPECT_THAT(none, IsEmpty());
    EXPECT_EQ(correlator.polarity(none, correlator.transform(noise(50, 1, 1)), 3), 0);
    Correlator empty(0);
    EXPECT_THAT(empty.transform(Samples()), IsEmpty());
}

// A gather of an event that moves by `moveOut` samples from trace to trace.
std::vector<Samples> gatherOf(int traces, double moveOut, unsigned seed = 1)
{
    std::vector<Samples> gather;
    for (int i = 0; i < traces; ++i) {
        gather.push_back(noise(300, 0.02, seed + static_cast<unsigned>(i)));
        addRicker(gather.back(), 60 + moveOut * i, 0.08, 1);
        addRicker(gather.back(), 150 + moveOut * i, 0.08, -0.6);
    }
    return gather;
}

void reverse(Samples& samples)
{
    for (float& sample : samples)
        sample = -sample;
}

std::vector<int> reversedOf(const std::vector<Samples>& gather, const PolarityRule& rule,
                            const std::vector<int>& leftOut = {})
{
    Correlator correlator(static_cast<int>(gather.front().size()));
    const auto samples = [&](int i) -> std::optional<std::span<const float>> {
        if (std::find(leftOut.begin(), leftOut.end(), i) != leftOut.end())
            return std::nullopt;
        return gather[static_cast<std::size_t>(i)];
    };
    const std::vector<PolarityVerdict> verdicts =
        judgePolarity(static_cast<int>(gather.size()), samples, rule, correlator);
    std::vector<int> found;
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        if (verdicts[i].isReversed)
            found.push_back(static_cast<int>(i));
    }
    return found;
}

TEST(PolarityTest, ReversedTracesAreFoundWhereverTheyAre)
{
    for (int reversed = 0; reversed < 12; ++reversed) {
        std::vector<Samples> gather = gatherOf(12, 0.5);
        reverse(gather[static_cast<std::size_t>(reversed)]);
        EXPECT_THAT(reversedOf(gather, {2, 1, 0.07}), ElementsAre(reversed));
    }
}

// Only traces in question get a verdict, and theirs is the same.
TEST(PolarityTest, TracesThatAreNotInQuestionDoNotChangeTheOthers)
{
    std::vector<Samples> gather = gatherOf(20, 0.5);
    reverse(gather[4]);
    reverse(gather[13]);
    Correlator correlator(static_cast<int>(gather[0].size()));
    std::vector<int> read(gather.size(), 0);
    const auto samples = [&](int i) -> std::optional<std::span<const float>> {
        ++read[static_cast<std::size_t>(i)];
        return gather[static_cast<std::size_t>(i)];
    };
    const PolarityRule rule{2, 1, 0.07};
    const auto all = judgePolarity(20, samples, rule, correlator);
    std::fill(read.begin(), read.end(), 0);
    const auto some =
        judgePolarity(20, samples, rule, correlator, [](int i) { return i == 13 || i == 16; });
    for (const std::size_t i : {13u, 16u}) {
        EXPECT_EQ(some[i].toNeighbours, all[i].toNeighbours) << i;
        EXPECT_EQ(some[i].among, all[i].among) << i;
    }
    EXPECT_TRUE(some[13].isReversed);
    EXPECT_FALSE(some[4].isReversed);
    EXPECT_EQ(some[4].toNeighbours, 0);
    EXPECT_THAT(read, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 0));
}

TEST(PolarityTest, GoodGathersHaveNone)
{
    for (const double moveOut : {0.0, 0.5, 2.0, 4.0, 6.0, 8.0}) {
        for (const int lag : {0, 2, 12})
            EXPECT_THAT(reversedOf(gatherOf(20, moveOut), {2, lag, 0.07}), IsEmpty())
                << moveOut << ", lag " << lag;
    }
}

TEST(PolarityTest, EventsThatMoveAreFollowedWithinTheLag)
{
    std::vector<Samples> gather = gatherOf(12, 4);
    reverse(gather[5]);
    EXPECT_THAT(reversedOf(gather, {2, 0, 0.07}), IsEmpty());
    EXPECT_THAT(reversedOf(gather, {2, 8, 0.07}), ElementsAre(5));
}

TEST(PolarityTest, TracesThatTakeNoPartAreSkipped)
{
    std::vector<Samples> gather = gatherOf(12, 0);
    reverse(gather[4]);
    reverse(gather[5]);
    EXPECT_THAT(reversedOf(gather, {2, 0, 0.07}, {5}), ElementsAre(4));
    EXPECT_THAT(reversedOf(gather, {2, 0, 0.07}, {4, 5}), IsEmpty());
}

TEST(PolarityTest, OneNeighbourIsNotEnough)
{
    std::vector<Samples> gather = gatherOf(2, 0);
    reverse(gather[1]);
    EXPECT_THAT(reversedOf(gather, {2, 0, 0.07}), IsEmpty());
    EXPECT_THAT(reversedOf({gather[0]}, {2, 0, 0.07}), IsEmpty());
}

TEST(PolarityTest, NoiseHasNoPolarity)
{
    std::vector<Samples> gather;
    for (unsigned i = 0; i < 40; ++i)
        gather.push_back(noise(500, 1, i + 1));
    EXPECT_THAT(reversedOf(gather, {2, 12, 0.07}), IsEmpty());
}

// ---- Curve ----

TEST(LevelCurveTest, FewTracesAreTheirOwnBins)
{
    LevelCurve curve(4);
    curve.add(3);
    curve.skip();
    curve.add(-1);
    ASSERT_THAT(curve.bins(), SizeIs(3));
    EXPECT_EQ(curve.bins()[1].traces, 0);
    EXPECT_EQ(curve.bins()[2].least, -1);
    EXPECT_EQ(curve.place(2), 3);
    EXPECT_EQ(curve.traces(), 3);
    EXPECT_EQ(curve.tracesPerBin(), 1);
}

// Against a search over the traces of each bin.
TEST(LevelCurveTest, ManyTracesKeepTheLeastAndTheGreatestOfEachBin)
{
    for (const std::size_t limit : {2u, 3u, 5u, 8u}) {
        for (const int traces : {1, 5, 6, 17, 64, 101}) {
            LevelCurve curve(limit);
            std::vector<double> values;
            for (int i = 0; i < traces; ++i) {
                values.push_back((i * 37) % 101);
                curve.add(values.back());
            }
            ASSERT_LE(curve.bins().size(), limit);
            const auto perBin = static_cast<std::size_t>(curve.tracesPerBin());
            ASSERT_EQ(curve.bins().size(), (values.size() + perBin - 1) / perBin)
                << traces << " in " << limit;
            for (std::size_t bin = 0; bin < curve.bins().size(); ++bin) {
                const auto first = values.begin() + static_cast<std::ptrdiff_t>(bin * perBin);
                const auto last = values.begin() + static_cast<std::ptrdiff_t>(
                                                       std::min((bin + 1) * perBin, values.size()));
                EXPECT_EQ(curve.bins()[bin].least, *std::min_element(first, last));
                EXPECT_EQ(curve.bins()[bin].greatest, *std::max_element(first, last));
                EXPECT_EQ(curve.bins()[bin].traces, last - first);
                EXPECT_EQ(curve.place(bin),
                          static_cast<double>(first - values.begin() + 1 + last - values.begin()) /
                              2);
            }
        }
    }
}

TEST(LevelCurveTest, CurvesOfPartsMakeTheCurveOfAll)
{
    for (const std::size_t limit : {2u, 3u, 5u, 8u}) {
        for (const int traces : {1, 5, 6, 17, 64, 101}) {
            for (const int step : {1, 3, 8, 40}) {
                const auto addTo = [](LevelCurve& curve, int i) {
                    if (i % 7 == 3)
                        curve.skip();
                    else
                        curve.add((i * 37) % 101);
                };
                LevelCurve whole(limit);
                LevelCurve joined(limit);
                for (int first = 0; first < traces; first += step) {
                    LevelCurve part(limit, first);
                    for (int i = first; i < std::min(first + step, traces); ++i) {
                        addTo(whole, i);
                        addTo(part, i);
                    }
                    ASSERT_TRUE(joined.append(part));
                    EXPECT_FALSE(joined.append(part));
                }
                EXPECT_EQ(joined.tracesPerBin(), whole.tracesPerBin());
                EXPECT_EQ(joined.traces(), traces);
                ASSERT_EQ(joined.bins().size(), whole.bins().size());
                for (std::size_t bin = 0; bin < whole.bins().size(); ++bin) {
                    EXPECT_EQ(joined.bins()[bin].least, whole.bins()[bin].least);
                    EXPECT_EQ(joined.bins()[bin].greatest, whole.bins()[bin].greatest);
                    EXPECT_EQ(joined.bins()[bin].traces, whole.bins()[bin].traces);
                    EXPECT_EQ(joined.place(bin), whole.place(bin));
                }
            }
        }
    }
}

// ---- In a job ----

class TraceQcTest : public ModuleTest
{
protected:
    TraceQcTest() : ModuleTest("trace_qc") { define(harness); }

    static void define(ModuleHarness& job)
    {
        for (const char* name : {"qc_rms", "qc_peak", "qc_mean", "qc_freq"})
            job.define(name, 4);
        job.sampleInterval = 4000;
    }

    void renew()
    {
        restart();
        define(harness);
    }

    void push(const Samples& samples, int fldr, int tracf)
    {
        harness.push(samples, {{"fldr", UniVar(fldr)}, {"tracf", UniVar(tracf)}});
    }

    // Good traces of one gather.
    void pushGather(int fldr, int traces)
    {
        const std::vector<Samples> gather =
            gatherOf(traces, 0.5, static_cast<unsigned>(100 * fldr));
        for (int i = 0; i < traces; ++i)
            push(gather[static_cast<std::size_t>(i)], fldr, i + 1);
    }

    Samples& samplesOf(std::size_t trace) { return harness.input[trace].samples; }

    std::string metadata(const std::string& key)
    {
        return result.moduleMetadata["module1"]["qc." + key];
    }

    float floatOf(std::size_t trace, const std::string& attribute)
    {
        return result.traces.at(trace).attributes.at(attribute).getF32Value();
    }
};

TEST_F(TraceQcTest, GoodTracesGoOnWithTheirMeasures)
{
    for (int i = 1; i <= 5; ++i)
        push(tone(1000, 0.1234, 2 * i), 7, i);
    for (std::size_t i = 0; i < 5; ++i) {
        for (float& sample : samplesOf(i))
            sample += 0.5f;
    }
    add({{"ringing", UniVar(100.0)}});

    run();

    ASSERT_THAT(result.traces, SizeIs(5));
    EXPECT_THAT(all("tracf"), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(all("qc_flags"), Each(0));
    for (std::size_t i = 0; i < 5; ++i) {
        const TraceLevels levels = levelsOf(harness.input[i].samples);
        EXPECT_EQ(result.traces[i].samples, harness.input[i].samples);
        EXPECT_FLOAT_EQ(floatOf(i, "qc_rms"), static_cast<float>(levels.rms));
        EXPECT_FLOAT_EQ(floatOf(i, "qc_peak"), static_cast<float>(levels.peak));
        EXPECT_FLOAT_EQ(floatOf(i, "qc_mean"), static_cast<float>(levels.mean));
        EXPECT_NEAR(floatOf(i, "qc_freq"), 30.85, 0.02);
    }
    EXPECT_THAT(messages(2), IsEmpty());
    EXPECT_THAT(messages(1), ElementsAre("5 traces, flagged 0"));
    EXPECT_EQ(history(), "");
}

TEST_F(TraceQcTest, BadTracesAreFlaggedAndNamed)
{
    pushGather(16, 20);
    std::fill(samplesOf(2).begin(), samplesOf(2).end(), 0.0f);
    for (float& sample : samplesOf(5))
        sample *= 0.01f;
    for (float& sample : samplesOf(8))
        sample *= 100;
    std::fill_n(samplesOf(10).begin() + 50, 4,
                *std::max_element(samplesOf(10).begin(), samplesOf(10).end()));
    samplesOf(12)[250] = 3;
    reverse(samplesOf(15));
    samplesOf(17)[3] = noNumber;
    samplesOf(19) = tone(300, 0.2, 0.2);
    add();

    run();

    EXPECT_THAT(all("qc_flags"),
                ElementsAre(0, 0, 1, 0, 0, 2, 0, 0, 4, 0, 8, 0, 16, 0, 0, 32, 0, 128, 0, 64 + 256));
    const std::vector<std::string> warnings = messages(2);
    ASSERT_THAT(warnings, SizeIs(8));
    EXPECT_EQ(warnings[0], "fldr 16 tracf 3: dead (all samples are 0)");
    EXPECT_THAT(warnings[1], testing::StartsWith("fldr 16 tracf 6: weak (RMS 0.00"));
    EXPECT_THAT(warnings[2], testing::StartsWith("fldr 16 tracf 9: noisy (RMS "));
    EXPECT_EQ(warnings[3],
              "fldr 16 tracf 11: clipped (4 samples in succession at the trace's limit)");
    EXPECT_EQ(warnings[4], "fldr 16 tracf 13: spike (1, the first at sample 251)");
    EXPECT_THAT(warnings[5], testing::MatchesRegex("fldr 16 tracf 16: reversed \\(polarity -0\\..* "
                                                   "to its neighbours\\)"));
    EXPECT_EQ(warnings[6], "fldr 16 tracf 18: invalid (1 samples are infinite or NaN)");
    EXPECT_THAT(warnings[7],
                testing::MatchesRegex("fldr 16 tracf 20: ringing \\(.* % of the energy "
                                      "near 50.0 Hz\\), hum \\(.* % of the energy at 50 Hz "
                                      "and harmonics\\)"));
    EXPECT_THAT(messages(1),
                ElementsAre("20 traces, flagged 8: dead 1, weak 1, noisy 1, clipped 1, "
                            "spike 1, reversed 1, ringing 1, invalid 1, hum 1"));
}

// Bad traces in most gathers, in some of which all traces have hum.
TEST_F(TraceQcTest, PartsFindWhatOneRunFinds)
{
    for (const std::map<std::string, UniVar>& parameters :
         {std::map<std::string, UniVar>{}, {{"messages", UniVar(4)}, {"max_gather", UniVar(5)}}})
    {
        renew();
        for (int fldr = 1; fldr <= 14; ++fldr)
            pushGather(fldr, 10);
        for (std::size_t i = 0; i < harness.input.size(); ++i) {
            for (float& sample : samplesOf(i))
                sample *= i % 13 == 4 ? 0 : (i % 17 == 5 ? 0.01f : 1);
            for (std::size_t k = 0; i / 10 % 4 == 1 && k < samplesOf(i).size(); ++k)
                samplesOf(i)[k] += static_cast<float>(
                    (2 + 0.1 * static_cast<double>(i % 7)) *
                    std::sin(2 * 3.14159265358979 * 50 * 0.004 * static_cast<double>(k)));
            if (i % 29 == 28)
                samplesOf(i)[3] = noNumber;
        }
        add(parameters);
        std::vector<std::size_t> units;
        for (std::size_t i = 1; i < 28; ++i) {
            if (i % 2 == 0 || !parameters.empty())
                units.push_back(5 * i);
        }
        expectSameInParts(units);
        EXPECT_THAT(messages(2), SizeIs(parameters.empty() ? 22 : 6));
        EXPECT_THAT(metadata("shared_hum"), testing::StartsWith("50 Hz and harmonics: "));
    }
}

// Without words that tell traces apart, names have the number of arrival.
TEST_F(TraceQcTest, PartsCountTracesFromTheFirstOfTheJob)
{
    for (int i = 0; i < 12; ++i)
        harness.push(i % 4 == 2 ? Samples(100) : noise(100, 1, static_cast<unsigned>(i)),
                     {{"cdp", UniVar(i / 4)}});
    add({{"gather", UniVar("cdp")}});
    expectSameInParts({4, 8});
    EXPECT_THAT(messages(2), testing::Contains(testing::HasSubstr("trace 11")));
}

TEST_F(TraceQcTest, PartsThatDoNotFollowEachOtherAreRefused)
{
    for (int fldr = 1; fldr <= 3; ++fldr)
        pushGather(fldr, 4);
    add();
    int merged = 0;
    std::string before;
    harness.beforeMerge = [&](const std::string& state) {
        if (++merged == 1)
            before = state;
        if (merged == 2)
            std::filesystem::copy_file(before, state,
                                       std::filesystem::copy_options::overwrite_existing);
    };

    result = harness.runInParts({4, 8});

    EXPECT_THAT(messages(4), testing::Contains(testing::HasSubstr(
                                 "its traces do not follow those of the part before")));
}

TEST_F(TraceQcTest, FindingsAreMetadata)
{
    pushGather(3, 10);
    std::fill(samplesOf(2).begin(), samplesOf(2).end(), 0.0f);
    for (float& sample : samplesOf(5))
        sample *= 0.01f;
    samplesOf(5)[200] = infinite;
    add();

    run();

    EXPECT_EQ(metadata("traces"), "10");
    EXPECT_EQ(metadata("flagged"), "2");
    EXPECT_EQ(metadata("dead"), "1");
    EXPECT_EQ(metadata("weak"), "1");
    EXPECT_EQ(metadata("reversed"), "0");
    EXPECT_EQ(metadata("list"), "fldr 3 tracf 3: dead\nfldr 3 tracf 6: weak, invalid");
}

TEST_F(TraceQcTest, TracesAreComparedWithinTheirGather)
{
    for (int fldr = 1; fldr <= 3; ++fldr) {
        for (int i = 1; i <= 6; ++i)
            push(noise(200, std::pow(1000, fldr), static_cast<unsigned>(10 * fldr + i)), fldr, i);
    }
    for (float& sample : samplesOf(7))
        sample *= 0.001f;
    add();

    run();

    EXPECT_THAT(messages(2), ElementsAre(testing::StartsWith("fldr 2 tracf 2: weak ")));
}

TEST_F(TraceQcTest, TheWindowFollowsLevelsThatChangeAlongTheGather)
{
    for (int i = 1; i <= 60; ++i)
        push(noise(200, std::exp(0.15 * i), static_cast<unsigned>(i)), 1, i);
    add({{"window", UniVar(11)}});
    run();
    EXPECT_THAT(all("qc_flags"), Each(0));

    const std::vector<HarnessTrace> input = harness.input;
    renew();
    harness.input = input;
    add({{"window", UniVar(1001)}});
    run();
    EXPECT_THAT(all("qc_flags"), Contains(2));
    EXPECT_THAT(all("qc_flags"), Contains(4));
}

TEST_F(TraceQcTest, ThresholdsAreParameters)
{
    const struct
    {
        const char* name;
        UniVar value;
        int flags; // of the second trace, which has a fifth of the level, three equal peaks
    } rows[] = {{"clip_run", UniVar(3), 8},    {"clip_run", UniVar(4), 0},
                {"weak", UniVar(0.3), 8 + 2},  {"weak", UniVar(0.1), 8},
                {"dead", UniVar(0.25), 8 + 1}, {"noisy", UniVar(20.0), 8}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        renew();
        for (int i = 1; i <= 5; ++i)
            push(noise(200, i == 2 ? 0.2 : 1, static_cast<unsigned>(i)), 1, i);
        const float most = *std::max_element(samplesOf(1).begin(), samplesOf(1).end());
        std::fill_n(samplesOf(1).begin() + 100, 3, most);
        HarnessModule& module = add({{row.name, row.value}});
        module.parameters["level"] = UniVar(1000.0); // only the factors decide
        if (std::string(row.name) == "dead")
            module.parameters["weak"] = UniVar(0.25);

        run();

        EXPECT_THAT(all("qc_flags"), ElementsAre(0, row.flags, 0, 0, 0));
    }
}

TEST_F(TraceQcTest, TracesAreNamedByWhatTheirHeadersHave)
{
    const struct
    {
        std::map<std::string, UniVar> words;
        const char* name;
    } rows[] = {
        {{{"fldr", UniVar(4)}, {"tracf", UniVar(9)}, {"cdp", UniVar(5)}}, "fldr 4 tracf 9"},
        {{{"tracf", UniVar(9)}}, "tracf 9"},
        {{{"fldr", UniVar(4)}, {"tracf", UniVar(0)}, {"cdp", UniVar(5)}}, "fldr 4 cdp 5"},
        {{{"fldr", UniVar(4)}}, "trace 1"},
    };
    for (const auto& row : rows) {
        renew();
        harness.push({0, 0, 0}, row.words);
        add();

        run();

        EXPECT_THAT(messages(2), ElementsAre(std::string(row.name) + ": dead (all samples are 0)"));
    }
}

TEST_F(TraceQcTest, MessagesAreLimited)
{
    for (int i = 1; i <= 50; ++i)
        push(Samples(20, 0.0f), 1, i);
    add({{"messages", UniVar(2)}});

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("fldr 1 tracf 1: dead (all samples are 0)",
                            "fldr 1 tracf 2: dead (all samples are 0)",
                            "48 more flagged traces are not named here; the attribute qc_flags has "
                            "them all, or raise messages"));
    EXPECT_THAT(all("qc_flags"), Each(1));
}

TEST_F(TraceQcTest, TheReportGetsATableOfTheFlaggedTraces)
{
    pushGather(16, 8);
    samplesOf(2) = Samples(300, 0.0f);
    samplesOf(5)[250] = 3;
    add();

    run();

    std::istringstream table(metadata("table"));
    std::string line;
    std::getline(table, line);
    EXPECT_EQ(line, "trace,fldr,tracf,flags,rms,rms_db_from_neighbours,bias,frequency_hz,hum_share,"
                    "run_at_limit,spikes,first_arrival_s,signal_to_noise,twin_difference")
        << "without columns that are empty";
    std::getline(table, line);
    EXPECT_THAT(line, testing::StartsWith("3,16,3,dead,0,"));
    std::getline(table, line);
    EXPECT_THAT(line, testing::StartsWith("6,16,6,spike,0.2"));
    EXPECT_FALSE(std::getline(table, line));
    EXPECT_EQ(metadata("table.note"), "Flagged traces\nall 2; with the parameter table a file gets "
                                      "all traces and measures");
}

TEST_F(TraceQcTest, TheTableOfTheReportIsLimited)
{
    for (int i = 1; i <= 1005; ++i)
        push(Samples(20, 0.0f), 1, i);
    add();

    run();

    const std::string table = metadata("table");
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1001);
    EXPECT_THAT(metadata("table.note"), HasSubstr("the first 1000 of 1005; "));
}

TEST_F(TraceQcTest, WithoutAFlaggedTraceThereIsNoTableForTheReport)
{
    pushGather(16, 8);
    add();

    run();

    EXPECT_EQ(metadata("flagged"), "0");
    EXPECT_EQ(result.moduleMetadata["module1"].count("qc.table"), 0u);
}

// A list of all traces would hide the one that is dead.
TEST_F(TraceQcTest, HumOfAllChannelsIsOneMessage)
{
    pushGather(1, 12);
    for (std::size_t i = 0; i < 12; ++i) {
        const Samples more = tone(300, 0.2, 0.2);
        for (std::size_t k = 0; k < more.size(); ++k)
            samplesOf(i)[k] += 0.5f * more[k];
    }
    samplesOf(4) = Samples(300, 0.0f);
    add({{"messages", UniVar(1)}});

    run();

    EXPECT_THAT(all("qc_flags"),
                ElementsAre(256, 256, 256, 256, 1, 256, 256, 256, 256, 256, 256, 256));
    const std::vector<std::string> warnings = messages(2);
    ASSERT_THAT(warnings, SizeIs(2));
    EXPECT_EQ(warnings[0], "fldr 1 tracf 5: dead (all samples are 0)");
    EXPECT_THAT(warnings[1], testing::MatchesRegex(
                                 "hum is shared by most channels, at 50 Hz and harmonics: 11 of 11 "
                                 "traces in 1 of 1 gather, .* % of the energy on average, .*; "
                                 "traces with no other flag are not named one by one"));
    EXPECT_THAT(metadata("shared_hum"),
                testing::StartsWith("50 Hz and harmonics: 11 of 11 traces"));
    EXPECT_EQ(metadata("hum"), "11");
}

// ---- The table ----

std::vector<std::vector<std::string>> rowsOf(const std::string& path)
{
    std::vector<std::vector<std::string>> rows;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        rows.emplace_back();
        std::istringstream cells(line + ",");
        for (std::string cell; std::getline(cells, cell, ',');)
            rows.back().push_back(cell);
    }
    return rows;
}

TEST_F(TraceQcTest, TheTableHasARowOfMeasuresForEachTrace)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/measures.csv";
    pushGather(3, 10);
    pushGather(4, 10);
    std::fill(samplesOf(12).begin(), samplesOf(12).end(), 0.0f);
    for (float& sample : samplesOf(5))
        sample *= 0.01f;
    add({{"table", UniVar(path)}});

    run();

    const auto rows = rowsOf(path);
    ASSERT_THAT(rows, SizeIs(21));
    const auto column = [&](const std::string& name) {
        return static_cast<std::size_t>(std::find(rows[0].begin(), rows[0].end(), name) -
                                        rows[0].begin());
    };
    for (std::size_t i = 1; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_THAT(rows[i], SizeIs(rows[0].size()));
        const Samples& samples = harness.input[i - 1].samples;
        double squares = 0;
        for (const float sample : samples)
            squares += static_cast<double>(sample) * sample;
        const double rms = std::sqrt(squares / static_cast<double>(samples.size()));
        EXPECT_EQ(rows[i][column("trace")], std::to_string(i));
        EXPECT_EQ(rows[i][column("filetrace")], "");
        EXPECT_EQ(rows[i][column("fldr")], i <= 10 ? "3" : "4");
        EXPECT_EQ(rows[i][column("tracf")], std::to_string((i - 1) % 10 + 1));
        EXPECT_NEAR(std::stod(rows[i][column("rms")]), rms, 1e-6 * rms);
        EXPECT_EQ(rows[i][column("flags")], i == 6 ? "weak" : i == 13 ? "dead" : "");
    }
}

TEST_F(TraceQcTest, ATableIsNotReplacedUnlessThatIsAllowed)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/measures.csv";
    std::ofstream(path) << "precious";
    pushGather(3, 3);
    add({{"table", UniVar(path)}, {"overwrite", UniVar(0)}});

    runInVain(path + ": is there already; remove it, or allow it to be overwritten");

    EXPECT_THAT(rowsOf(path), ElementsAre(ElementsAre("precious")));
}

// ---- The way of the traces ----

TEST_F(TraceQcTest, AllTracesComeHoweverTheInputEnds)
{
    for (const int tracesPerCall : {1, 2, 3, 7, 16, 17, 40}) {
        for (const int mostTraces : {1, 2, 5, 1000}) {
            SCOPED_TRACE(std::to_string(tracesPerCall) + " traces per call, max_gather " +
                         std::to_string(mostTraces));
            renew();
            harness.tracesPerCall = tracesPerCall;
            for (int i = 0; i < 16; ++i)
                push({static_cast<float>(i + 1), 0}, 1 + i / 5, i + 1);
            add({{"max_gather", UniVar(mostTraces)}});

            run();

            std::vector<int> numbers;
            for (const HarnessTrace& trace : result.traces) {
                numbers.push_back(trace.attributes.at("tracf").getI32Value());
                EXPECT_EQ(trace.samples[0], static_cast<float>(numbers.back()));
            }
            EXPECT_THAT(numbers,
                        ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
        }
    }
}

TEST_F(TraceQcTest, AllTracesComeAfterAnEndWithoutAMark)
{
    pushGather(1, 6);
    pushGather(2, 3);
    harness.add("before", "libunmarked_end.so");
    add();

    run();

    EXPECT_THAT(all("tracf"), ElementsAre(1, 2, 3, 4, 5, 6, 1, 2, 3));
}

TEST_F(TraceQcTest, TwoFollowEachOther)
{
    pushGather(1, 6);
    pushGather(2, 5);
    std::fill(samplesOf(8).begin(), samplesOf(8).end(), 0.0f);
    add({{"gather", UniVar("none")}, {"max_gather", UniVar(4)}});
    add();

    run();

    EXPECT_THAT(all("qc_flags"), ElementsAre(0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0));
    EXPECT_THAT(messages(2), ElementsAre("fldr 2 tracf 3: dead (all samples are 0)"));
}

TEST_F(TraceQcTest, WithoutAnOutputItReports)
{
    pushGather(1, 6);
    pushGather(2, 5);
    std::fill(samplesOf(8).begin(), samplesOf(8).end(), 0.0f);
    harness.withSink = false;
    add();

    run();

    EXPECT_THAT(result.traces, IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("fldr 2 tracf 3: dead (all samples are 0)"));
    EXPECT_EQ(metadata("traces"), "11");
    EXPECT_THAT(result.pads, SizeIs(1));
}

TEST_F(TraceQcTest, WithoutAnOutputAnUnmarkedEndIsNoticedAfterwards)
{
    pushGather(1, 6);
    harness.withSink = false;
    harness.add("before", "libunmarked_end.so");
    add();

    run();

    EXPECT_EQ(metadata("traces"), "6");
}

class ScratchTraceQcTest : public TraceQcTest
{
protected:
    ScratchTraceQcTest()
        : scratch("VORN_SCRATCH", scratchDirectory.path().c_str()),
          formerLimit(ScratchManager::MAX_TRACES_IN_SCRATCH_V)
    {
        ScratchManager::getInstance();
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = 3;
    }
    ~ScratchTraceQcTest() override { ScratchManager::MAX_TRACES_IN_SCRATCH_V = formerLimit; }

    TemporaryDirectory scratchDirectory;
    ScopedEnvironment scratch;
    int formerLimit;
};

TEST_F(ScratchTraceQcTest, GathersMayWaitInTheScratchFile)
{
    pushGather(1, 30);
    reverse(samplesOf(12));
    const std::vector<HarnessTrace> input = harness.input;
    add();

    run();

    ASSERT_THAT(result.traces, SizeIs(30));
    for (std::size_t i = 0; i < 30; ++i) {
        EXPECT_EQ(result.traces[i].samples, input[i].samples) << i;
        EXPECT_EQ(all("qc_flags")[i], i == 12 ? 32 : 0) << i;
    }
    EXPECT_THAT(scratchDirectory.names(), IsEmpty()) << "the file is gone";
}

TEST_F(TraceQcTest, WithoutTheGatherWordThereIsOneGather)
{
    for (int i = 1; i <= 5; ++i)
        harness.push(noise(50, i == 3 ? 1e-3 : 1, static_cast<unsigned>(i)),
                     {{"tracf", UniVar(i)}});
    add();

    run();

    EXPECT_THAT(all("qc_flags"), ElementsAre(0, 0, 2, 0, 0));
    EXPECT_THAT(messages(1), Contains("the traces have no header word \"fldr\"; gathers are taken "
                                      "to have 1000 traces; name another word with gather"));
}

TEST_F(TraceQcTest, GathersThatAreTooSmallAreSaidToBe)
{
    for (int i = 1; i <= 4; ++i)
        push(noise(50, 1, static_cast<unsigned>(i)), i, 1);
    add();

    run();

    EXPECT_THAT(messages(1), Contains("no gather has 3 traces or more; none could be found weak, "
                                      "noisy or reversed; gathers are told apart by gather=fldr"));
}

TEST_F(TraceQcTest, MeasuresWithoutADefinitionAreNotWritten)
{
    restart();
    push({1, 2, 3}, 1, 1);
    add();

    run();

    EXPECT_THAT(all("qc_flags"), ElementsAre(0));
    EXPECT_EQ(result.traces[0].attributes.count("qc_rms"), 0u);
    EXPECT_THAT(messages(0),
                Contains("the job's schema has no float attribute qc_rms; it is not written"));
}

TEST_F(TraceQcTest, WithoutASampleIntervalThereIsNoFrequency)
{
    harness.sampleInterval = 0;
    push(tone(200, 0.1), 1, 1);
    add();

    run();

    EXPECT_EQ(floatOf(0, "qc_freq"), 0);
    EXPECT_THAT(messages(2), ElementsAre(testing::MatchesRegex(
                                 "fldr 1 tracf 1: ringing \\(.* % of the energy\\)")));
}

TEST_F(TraceQcTest, ASlowTrendIsNoTone)
{
    Samples samples(200);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(i);
    push(samples, 1, 1);
    add();

    run();

    EXPECT_THAT(all("qc_flags"), ElementsAre(0));
}

TEST_F(TraceQcTest, TracesWithoutSamplesPass)
{
    harness.push({}, {{"fldr", UniVar(1)}, {"tracf", UniVar(4)}});
    harness.push({}, {{"fldr", UniVar(1)}, {"tracf", UniVar(5)}});
    add();

    run();

    EXPECT_THAT(all("tracf"), ElementsAre(4, 5));
    EXPECT_THAT(all("qc_flags"), ElementsAre(1, 1));
}

TEST_F(TraceQcTest, EmptyInputIsNoError)
{
    add();

    run();

    EXPECT_THAT(result.traces, IsEmpty());
    EXPECT_THAT(messages(1), Contains("no trace arrived; nothing was measured"));
    EXPECT_THAT(result.pads, IsEmpty());
}

TEST_F(TraceQcTest, SettingsAreRefused)
{
    const struct
    {
        const char* name;
        UniVar value;
        const char* message;
    } rows[] = {
        {"max_gather", UniVar(0), "max_gather is 0 traces; give a whole number from 1 to 100000"},
        {"window", UniVar(2), "window is 2 traces; give a whole number from 3 to 100001"},
        {"dead", UniVar(0.1), "dead is 0.1 and weak is 0.05; dead must not be above weak"},
        {"weak", UniVar(1.5), "weak is 1.5; give a number from 0 to 1"},
        {"noisy", UniVar(0.5), "noisy is 0.5; give a number from 1 to 1000000000"},
        {"clip_run", UniVar(1), "clip_run is 1 samples; give a whole number from 2 to 1000000"},
        {"spike", UniVar(0), "spike is 0; give a number from 1 to 1000000000"},
        {"spike_window", UniVar(-1.0), "spike_window is -1 s; give a number from 0 to 1000000000"},
        {"ringing", UniVar(101), "ringing is 101 percent; give a number from 0 to 100"},
        {"reversed", UniVar(std::nan("")), "reversed is nan; give a number from 0 to 1"},
        {"neighbours", UniVar(0), "neighbours is 0 traces; give a whole number from 1 to 20"},
        {"lag", UniVar(-0.1), "lag is -0.1 s; give a number from 0 to 1000000000"},
        {"messages", UniVar(-1), "messages is -1; give a whole number of at least 0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.push({1, 2, 3});
        add({{row.name, row.value}});

        runInVain(row.message);
    }
}

// ---- The picture ----

std::string directive(const HarnessPad& pad, const std::string& key)
{
    std::istringstream lines(pad.title);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(key + ": ", 0) == 0)
            return line.substr(key.size() + 2);
    }
    return "";
}

enum Command
{
    plotCommand = 1,
    symbolCommand = 3,
    newPenCommand = 5
};

TEST_F(TraceQcTest, ThePictureMarksFlaggedTraces)
{
    pushGather(1, 10);
    std::fill(samplesOf(3).begin(), samplesOf(3).end(), 0.0f);
    for (float& sample : samplesOf(6))
        sample *= 0.01f;
    add();

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    const HarnessPad& pad = result.pads[0];
    EXPECT_EQ(pad.type, 2);
    EXPECT_EQ(pad.title.substr(0, pad.title.find('\n')), "Trace levels: module1");
    EXPECT_EQ(directive(pad, "xrange"), "0.5 10.5");
    EXPECT_EQ(directive(pad, "note"),
              "10 traces, flagged 2: dead 1, weak 1; marked with the number of the trace");
    EXPECT_EQ(directive(pad, "legend"),
              "1=RMS of the trace, 7=median of the traces around it, 8:4=dead, 3:2=weak");
    std::vector<std::pair<float, int>> marks;
    for (const plotCommandStruct& command : pad.commands) {
        if (command.cmdType == symbolCommand && command.inchar <= 0)
            marks.emplace_back(command.xpage, command.inteq);
    }
    EXPECT_THAT(marks, ElementsAre(std::make_pair(4.0f, 4), std::make_pair(7.0f, 2)));
}

// Where the number stands, and what it is.
using Number = std::pair<float, std::string>;

std::vector<Number> numbersOf(const HarnessPad& pad)
{
    std::vector<Number> numbers;
    std::size_t symbols = 0;
    for (const plotCommandStruct& command : pad.commands) {
        if (command.cmdType != symbolCommand)
            continue;
        const std::string& text = pad.texts.at(symbols++);
        if (command.inchar > 0)
            numbers.emplace_back(command.xpage, text);
    }
    return numbers;
}

TEST_F(TraceQcTest, MarksHaveTheNumbersOfTheirTraces)
{
    pushGather(1, 20);
    for (const std::size_t trace : {3U, 4U, 5U, 12U})
        std::fill(samplesOf(trace).begin(), samplesOf(trace).end(), 0.0f);
    for (float& sample : samplesOf(6))
        sample *= 0.01f;
    add();

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    EXPECT_EQ(directive(result.pads[0], "texts"), "apart");
    EXPECT_THAT(numbersOf(result.pads[0]),
                ElementsAre(Number(5, "4-6"), Number(7, "7"), Number(13, "13")));
}

TEST_F(TraceQcTest, TheNumbersAreThoseOfTheFileWhereItIsKnown)
{
    pushGather(1, 10);
    for (std::size_t i = 0; i < 10; ++i)
        harness.input[i].attributes["filetrace"] = UniVar(static_cast<int>(100 + 2 * i));
    for (const std::size_t trace : {3U, 4U})
        std::fill(samplesOf(trace).begin(), samplesOf(trace).end(), 0.0f);
    add();

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    EXPECT_THAT(numbersOf(result.pads[0]), ElementsAre(Number(4, "106"), Number(5, "108")));
    EXPECT_THAT(directive(result.pads[0], "note"),
                HasSubstr("; marked with the number of the trace in the file"));
}

// In dB, and not across the dead trace.
TEST_F(TraceQcTest, TheCurveIsTheLevelOfTheTraces)
{
    for (const float level : {1.0f, 10.0f, 0.0f, 100.0f, 10.0f})
        push({level, -level, level, -level}, 1, 1);
    add();

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    std::vector<std::tuple<float, float, int>> points;
    bool isCurve = false;
    for (const plotCommandStruct& command : result.pads[0].commands) {
        if (command.cmdType == newPenCommand)
            isCurve = command.ipen == 1;
        if (command.cmdType == plotCommand && isCurve)
            points.emplace_back(command.xpage, command.ypage, command.ipen);
    }
    using Point = std::tuple<float, float, int>;
    EXPECT_THAT(points, ElementsAre(Point{1.f, 0.f, 3}, Point{2.f, 20.f, 2}, Point{4.f, 40.f, 3},
                                    Point{5.f, 20.f, 2}));
}

TEST_F(TraceQcTest, ThePictureOfManyTracesIsBounded)
{
    for (int i = 0; i < 9000; ++i)
        push({i % 3 == 0 ? 0.0f : 1.0f, i % 3 == 0 ? 0.0f : -1.0f}, i / 100, i % 100 + 1);
    add({{"messages", UniVar(0)}});

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    EXPECT_LT(result.pads[0].commands.size(), 11000u);
    EXPECT_THAT(directive(result.pads[0], "note"),
                HasSubstr("9000 traces, flagged 3000: dead 3000; marked with the number of the "
                          "trace; only the first 2000 are marked; "
                          "lines span the lowest to the highest of 8 traces"));
}

TEST_F(TraceQcTest, ThePictureCanBeLeftOut)
{
    pushGather(1, 3);
    add({{"plot", UniVar(0)}});

    run();

    EXPECT_THAT(result.pads, IsEmpty());
}

// ---- Field data ----

TEST_F(TraceQcTest, OnlyTheBadChannelsOfFieldRecordsAreFlagged)
{
    const struct
    {
        const char* file;
        std::vector<std::string> flagged; // how the warnings begin
    } rows[] = {{"oz16_shot_ieee.sgy", {"fldr 10016 tracf 2: weak (RMS 0.1031, "}},
                {"viking_shots.segy", {}},
                {"npra_31_81_stack.sgy", {}},
                {"f3_crop_int16.sgy", {}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        const std::string path = sampleFile(row.file);
        if (path.empty())
            GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
        renew();
        for (const char* word : {"fldr", "tracf", "cdp"})
            harness.define(word, 2);
        harness.withSource = false;
        harness.add("read", "libsegy_in.so").parameters["file"] = UniVar(path);
        add();

        run();

        const std::vector<std::string> warnings = messages(2);
        ASSERT_THAT(warnings, SizeIs(row.flagged.size()));
        for (std::size_t i = 0; i < warnings.size(); ++i)
            EXPECT_THAT(warnings[i], testing::StartsWith(row.flagged[i]));
    }
}

TEST_F(TraceQcTest, TheBadChannelRings)
{
    const std::string path = sampleFile("oz16_shot_ieee.sgy");
    if (path.empty())
        GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
    for (const char* word : {"fldr", "tracf"})
        harness.define(word, 2);
    harness.withSource = false;
    harness.add("read", "libsegy_in.so").parameters["file"] = UniVar(path);
    add();

    run();

    ASSERT_THAT(result.traces, SizeIs(48));
    EXPECT_EQ(all("qc_flags")[1], 2 + 64);
    EXPECT_NEAR(floatOf(1, "qc_freq"), 58.8, 0.1);
    EXPECT_EQ(metadata("list"), "fldr 10016 tracf 2: weak, ringing");
}

} // namespace
