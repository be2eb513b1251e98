#include "../checks.h"
#include "../arrivals.h"
#include "../mains_hum.h"
#include "../neighbourhood.h"
#include "../prediction.h"
#include "../shared_hum.h"
#include "../trace_names.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr double pi = std::numbers::pi;

using Samples = std::vector<float>;
using Gather = std::vector<Samples>;

Samples noise(int samples, double deviation, unsigned seed)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0, static_cast<float>(deviation));
    Samples values(static_cast<std::size_t>(samples));
    for (float& value : values)
        value = normal(random);
    return values;
}

// A tone whose frequency goes from `from` to `to` Hz within the record.
void addTone(Samples& samples, double interval, double from, double to, double amplitude)
{
    double phase = 0.4;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] += static_cast<float>(amplitude * std::sin(phase));
        const double done = static_cast<double>(i) / static_cast<double>(samples.size());
        phase += 2 * pi * (from + (to - from) * done) * interval;
    }
}

void addRicker(Samples& samples, double interval, double time, double frequency, double amplitude)
{
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double a = std::pow(pi * frequency * (static_cast<double>(i) * interval - time), 2);
        samples[i] += static_cast<float>(amplitude * (1 - 2 * a) * std::exp(-a));
    }
}

double meanOf(const Samples& samples)
{
    double sum = 0;
    for (const float sample : samples)
        sum += sample;
    return sum / static_cast<double>(samples.size());
}

// ---- What is expected of a neighbourhood ----

std::vector<double> counting(std::size_t count)
{
    std::vector<double> places(count);
    for (std::size_t i = 0; i < count; ++i)
        places[i] = static_cast<double>(i);
    return places;
}

TEST(NeighbourhoodTest, MediansAreTheMiddle)
{
    EXPECT_DOUBLE_EQ(medianOf({}), 0);
    EXPECT_DOUBLE_EQ(medianOf({3, 1, 2}), 2);
    EXPECT_DOUBLE_EQ(medianOf({4, 1, 2, 3}), 2.5);
}

TEST(NeighbourhoodTest, TheSpreadOfNormalNumbersIsTheirStandardDeviation)
{
    std::vector<double> values;
    for (const float value : noise(20000, 3, 1))
        values.push_back(value);
    EXPECT_NEAR(robustSpread(values, 0), 3, 0.06);
    for (std::size_t i = 0; i < 2000; ++i)
        values[i] = 1e6;
    EXPECT_NEAR(robustSpread(values, 0), 3, 0.5) << "a tenth of them is far away";
}

TEST(NeighbourhoodTest, ATrendIsExpectedAndAnOutlierIsNot)
{
    std::vector<std::optional<double>> values;
    for (int i = 0; i < 40; ++i)
        values.emplace_back(5 - 0.7 * i + (i % 2 == 0 ? 0.1 : -0.1));
    *values[20] += 9;
    const std::vector<Deviation> found = deviations(counting(40), values, {5, 31, false});
    for (std::size_t i = 0; i < 40; ++i) {
        EXPECT_TRUE(found[i].isKnown);
        EXPECT_NEAR(found[i].distance, i == 20 ? 9 : 0, 0.35) << i;
        EXPECT_NEAR(found[i].expected + found[i].distance, *values[i], 1e-9);
        EXPECT_EQ(found[i].isAtEnd, i < 2 || i > 37) << i;
    }
    EXPECT_LT(found[20].spread, 0.5);
    EXPECT_LT(found[19].spread, 0.5);
}

TEST(NeighbourhoodTest, PlacesNeedNotBeEven)
{
    const std::vector<double> places = {0, 1, 5, 6, 20, 21, 22, 50};
    std::vector<std::optional<double>> values;
    for (const double place : places)
        values.emplace_back(3 + 2 * place);
    for (const Deviation& d : deviations(places, values, {5, 31, false}))
        EXPECT_NEAR(d.distance, 0, 1e-9);
}

TEST(NeighbourhoodTest, FewerThanFourNeighboursSayNothing)
{
    std::vector<std::optional<double>> values = {1, std::nullopt, 2, 3, 4};
    for (const Deviation& d : deviations(counting(5), values, {5, 31, false}))
        EXPECT_FALSE(d.isKnown);
    values[1] = 1.5;
    const std::vector<Deviation> found = deviations(counting(5), values, {5, 31, false});
    EXPECT_TRUE(std::all_of(found.begin(), found.end(), [](const auto& d) { return d.isKnown; }));
}

TEST(NeighbourhoodTest, TailsWidenTheSpreadWhereTheyCount)
{
    std::vector<std::optional<double>> values;
    for (int i = 0; i < 41; ++i)
        values.emplace_back(i % 5 == 0 ? 30.0 : (i % 2 == 0 ? 0.1 : -0.1));
    EXPECT_LT(deviations(counting(41), values, {5, 31, false})[21].spread, 1);
    EXPECT_GT(deviations(counting(41), values, {5, 31, true})[21].spread, 15);
}

// ---- Hum ----

TEST(HumTest, TheShareIsThatOfTheToneInNoise)
{
    constexpr double interval = 0.002;
    for (const double mains : {50.0, 60.0}) {
        for (const double off : {-0.5, -0.2, 0.0, 0.3, 0.5}) {
            Samples samples = noise(3000, 1, 7);
            addTone(samples, interval, mains + off, mains + off, 3);
            const Hum hum = HumMeter(3000, interval).measure(samples, meanOf(samples));
            EXPECT_EQ(hum.mains, mains) << off;
            EXPECT_NEAR(hum.share, 4.5 / 5.5, 0.03) << mains << " " << off;
        }
    }
}

TEST(HumTest, ADriftingToneAndHarmonicsCount)
{
    constexpr double interval = 0.001;
    Samples samples = noise(4000, 1, 7);
    addTone(samples, interval, 49.5, 50.5, 1);
    addTone(samples, interval, 99.0, 101.0, 2);
    addTone(samples, interval, 148.5, 151.5, 1);
    const Hum hum = HumMeter(4000, interval).measure(samples, meanOf(samples));
    EXPECT_EQ(hum.mains, 50);
    EXPECT_NEAR(hum.share, 3.0 / 4.0, 0.05);
}

TEST(HumTest, OtherTonesNoiseAndWaveletsAreNoHum)
{
    constexpr double interval = 0.002;
    HumMeter meter(2000, interval);
    for (unsigned seed = 1; seed <= 20; ++seed) {
        const Samples samples = noise(2000, 1, seed);
        EXPECT_LT(meter.measure(samples, meanOf(samples)).share, 0.03) << seed;
    }
    for (const double frequency : {20.0, 46.0, 54.0, 65.0, 90.0, 110.0}) {
        Samples samples = noise(2000, 0.1, 3);
        addTone(samples, interval, frequency, frequency, 2);
        EXPECT_LT(meter.measure(samples, meanOf(samples)).share, 0.01) << frequency;
    }
    for (const double frequency : {30.0, 50.0, 60.0}) {
        Samples samples(2000, 0.0f);
        for (int i = 1; i < 12; ++i)
            addRicker(samples, interval, 0.3 * i + 0.02 * (i % 3), frequency,
                      i % 2 == 0 ? 1 : -0.6);
        EXPECT_LT(meter.measure(samples, meanOf(samples)).share, 0.15) << frequency;
    }
}

TEST(HumTest, WhatARecordCannotResolveIsNotHum)
{
    Samples samples(90, 0.0f);
    addTone(samples, 0.002, 50, 50, 1);
    EXPECT_EQ(HumMeter(90, 0.002).measure(samples, 0).share, 0) << "0.18 s";
    Samples slow(1000, 0.0f);
    addTone(slow, 0.01, 49, 49, 1);
    EXPECT_EQ(HumMeter(1000, 0.01).measure(slow, 0).share, 0) << "50 Hz is the Nyquist frequency";
    EXPECT_EQ(HumMeter(1000, 0).measure(slow, 0).share, 0) << "no interval";
    EXPECT_EQ(HumMeter(1000, 0.002).measure(Samples(1000, 4.0f), 4).share, 0) << "constant";
}

// ---- First arrivals and noise ----

TEST(ArrivalTest, TheOnsetIsWhereTheSignalBegins)
{
    for (const int onset : {40, 200, 700}) {
        Samples samples = noise(1000, 0.05, static_cast<unsigned>(onset));
        for (int i = onset; i < 1000; ++i)
            samples[static_cast<std::size_t>(i)] += static_cast<float>(
                3 * std::sin(0.5 * (i - onset + 1)) * std::exp(-0.01 * (i - onset)));
        const std::optional<int> found = firstArrival(samples, 20);
        ASSERT_TRUE(found) << onset;
        EXPECT_NEAR(*found, onset, 4) << onset;
    }
}

TEST(ArrivalTest, TheFirstOfTwoOnsetsCounts)
{
    Samples samples = noise(1000, 0.01, 3);
    addRicker(samples, 0.002, 0.5, 30, 1);
    addRicker(samples, 0.002, 1.2, 30, 2);
    EXPECT_NEAR(firstArrival(samples, 25).value_or(-1), 250, 12);
}

TEST(ArrivalTest, NoiseConstantsAndShortTracesHaveNone)
{
    EXPECT_FALSE(firstArrival(noise(1000, 1, 4), 25));
    EXPECT_FALSE(firstArrival(Samples(1000, 0.0f), 25));
    EXPECT_FALSE(firstArrival(Samples{}, 25));
    EXPECT_FALSE(firstArrival(noise(40, 1, 4), 25));
}

TEST(ArrivalTest, NoiseWindowsAreBeforeTheArrivalAndAtTheEnd)
{
    Samples samples(500);
    for (std::size_t i = 0; i < 500; ++i)
        samples[i] = (i % 2 == 0 ? 1.0f : -1.0f) * (i < 200 ? 0.5f : i < 400 ? 8.0f : 2.0f);
    const NoiseWindows windows = noiseWindows(samples, 0, 200, 20);
    EXPECT_DOUBLE_EQ(windows.before, 0.5);
    EXPECT_DOUBLE_EQ(windows.signal, 8);
    EXPECT_DOUBLE_EQ(windows.late, 2);
    EXPECT_DOUBLE_EQ(windows.ratio, 16);

    const NoiseWindows unpicked = noiseWindows(samples, 0, std::nullopt, 20);
    EXPECT_DOUBLE_EQ(unpicked.late, 2);
    EXPECT_EQ(unpicked.before, 0);
    EXPECT_EQ(unpicked.ratio, 0);
    EXPECT_EQ(noiseWindows(samples, 0, 25, 20).before, 0) << "5 samples are too few";
}

TEST(ArrivalTest, RoughnessIsThatOfTonesAndOfNoise)
{
    for (const double frequency : {0.05, 0.125, 0.3}) {
        Samples samples(4000, 0.0f);
        addTone(samples, 1, frequency, frequency, 5);
        EXPECT_NEAR(roughness(samples, 0), 2 * std::sin(pi * frequency), 0.002) << frequency;
    }
    EXPECT_NEAR(roughness(noise(20000, 4, 2), 0), std::sqrt(2), 0.02);
    EXPECT_EQ(roughness(Samples(10, 3.0f), 3), 0);
}

TEST(ArrivalTest, CubicsAreInterpolatedAndSpikesAreNot)
{
    Samples samples(60);
    for (int i = 0; i < 60; ++i) {
        const double x = i / 20.0;
        samples[static_cast<std::size_t>(i)] = static_cast<float>(2 - x + 3 * x * x - x * x * x);
    }
    for (const float error : interpolationErrors(samples))
        EXPECT_NEAR(error, 0, 1e-5);
    samples[30] += 6;
    const std::vector<float> errors = interpolationErrors(samples);
    EXPECT_NEAR(errors[30], 6, 1e-4);
    EXPECT_NEAR(errors[29], -4, 1e-4);
    EXPECT_NEAR(errors[32], 1, 1e-4);
    EXPECT_NEAR(errors[33], 0, 1e-4);
}

// ---- Prediction ----

// Two dips, the steeper one moves by 0.9 of its period from trace to trace; some noise.
Gather dippingGather(int traces, int samples = 500)
{
    constexpr double interval = 0.004;
    Gather gather;
    for (int i = 0; i < traces; ++i) {
        Samples trace = noise(samples, 0.05, static_cast<unsigned>(100 + i));
        for (const double start : {0.2, 0.7, 1.1, 1.6})
            addRicker(trace, interval, start + 0.002 * i, 30, 1);
        for (const double start : {-0.4, 0.1, 0.6, 1.2})
            addRicker(trace, interval, start + 0.03 * i, 30, -0.8);
        gather.push_back(trace);
    }
    return gather;
}

TraceSamples accessTo(const Gather& gather)
{
    return [&gather](int i) -> std::optional<std::span<const float>> {
        return std::span<const float>(gather[static_cast<std::size_t>(i)]);
    };
}

std::vector<Prediction> predictionsOf(const Gather& gather)
{
    Predictor predictor(static_cast<int>(gather[0].size()), 100);
    return predictor.predict(static_cast<int>(gather.size()), accessTo(gather), 30);
}

// What a prediction is: the least-squares coefficients of each frequency, here for one window and
// one dip, are phases, and the predicted trace is the mean of the shifted neighbours.
TEST(PredictionTest, GoodTracesAgreeAtLagZeroWithDipsThatAreAliased)
{
    for (const Prediction& p : predictionsOf(dippingGather(30))) {
        EXPECT_TRUE(p.isKnown);
        EXPECT_EQ(p.lag, 0);
        EXPECT_GT(p.zero, 0.45);
        EXPECT_GT(p.typical, 0.6);
    }
}

TEST(PredictionTest, AReversedTraceAgreesWithTheOppositeSign)
{
    Gather gather = dippingGather(30);
    for (float& sample : gather[12])
        sample = -sample;
    const std::vector<Prediction> found = predictionsOf(gather);
    EXPECT_LT(found[12].least, -0.6);
    EXPECT_LT(found[12].best, -found[12].least);
    for (const std::size_t near : {9u, 10u, 11u, 13u, 14u, 15u})
        EXPECT_GT(found[near].zero, 0.45) << near << ": its neighbour is not its fault";
}

TEST(PredictionTest, TheLagIsThatOfAShiftedTrace)
{
    for (const int late : {-9, -4, 4, 9}) {
        Gather gather = dippingGather(30);
        Samples moved(gather[17].size(), 0.0f);
        for (int i = 0; i < 500; ++i) {
            if (i - late >= 0 && i - late < 500)
                moved[static_cast<std::size_t>(i)] = gather[17][static_cast<std::size_t>(i - late)];
        }
        gather[17] = moved;
        const Prediction found = predictionsOf(gather)[17];
        EXPECT_EQ(found.lag, late);
        EXPECT_GT(found.best, 0.5);
        EXPECT_LT(found.zero, 0.5 * found.best);
    }
}

TEST(PredictionTest, NoiseAgreesWithNothing)
{
    Gather gather = dippingGather(30);
    gather[8] = noise(500, 0.3, 77);
    const std::vector<Prediction> found = predictionsOf(gather);
    EXPECT_LT(found[8].best, 0.25);
    EXPECT_GT(found[7].zero, 0.45);
}

TEST(PredictionTest, TracesThatTakeNoPartAreLeftOut)
{
    const Gather gather = dippingGather(30);
    Predictor predictor(500, 100);
    const auto found = predictor.predict(
        30,
        [&](int i) -> std::optional<std::span<const float>> {
            if (i == 4 || i == 5)
                return std::nullopt;
            return std::span<const float>(gather[static_cast<std::size_t>(i)]);
        },
        30);
    EXPECT_FALSE(found[4].isKnown);
    EXPECT_FALSE(found[5].isKnown);
    EXPECT_GT(found[3].zero, 0.35);
    EXPECT_GT(found[6].zero, 0.35);
}

TEST(PredictionTest, SmallGathersAndShortTracesAreUnknown)
{
    for (const Prediction& p : predictionsOf(dippingGather(3)))
        EXPECT_FALSE(p.isKnown);
    Predictor shortOne(10, 16);
    const Gather gather(20, Samples(10, 1.0f));
    for (const Prediction& p : shortOne.predict(20, accessTo(gather), 5))
        EXPECT_FALSE(p.isKnown);
}

// ---- Names ----

TraceIdentity identity(int arrival, std::vector<std::pair<std::string, int>> words)
{
    TraceIdentity trace;
    trace.arrival = arrival;
    for (const auto& [name, value] : words)
        trace.words[static_cast<std::size_t>(std::find(nameWords.begin(), nameWords.end(), name) -
                                             nameWords.begin())] = value;
    return trace;
}

TEST(TraceNameTest, TheWordsAreThoseThatDifferWithinTheGather)
{
    EXPECT_THAT(namesOf({identity(1, {{"fldr", 4}, {"tracf", 1}, {"cdp", 5}}),
                         identity(2, {{"fldr", 4}, {"tracf", 2}, {"cdp", 5}})}),
                ElementsAre("fldr 4 tracf 1", "fldr 4 tracf 2"));
    EXPECT_THAT(namesOf({identity(1, {{"fldr", 4}, {"tracf", 1}, {"iline", 7}, {"xline", 30}}),
                         identity(2, {{"fldr", 4}, {"tracf", 1}, {"iline", 7}, {"xline", 31}})}),
                ElementsAre("iline 7 xline 30", "iline 7 xline 31"));
    EXPECT_THAT(namesOf({identity(1, {{"cdp", 1155}, {"offset", 100}, {"fldr", 0}}),
                         identity(2, {{"cdp", 1155}, {"offset", 200}, {"fldr", 0}})}),
                ElementsAre("cdp 1155 offset 100", "cdp 1155 offset 200"));
    EXPECT_THAT(namesOf({identity(1, {{"cdp", 3}, {"offset", 0}}), identity(2, {{"cdp", 4}})}),
                ElementsAre("cdp 3", "cdp 4"));
}

TEST(TraceNameTest, WithoutWordsThatDifferTheNumberTells)
{
    EXPECT_THAT(namesOf({identity(8, {{"cdp", 1155}}), identity(9, {{"cdp", 1155}})}),
                ElementsAre("trace 8, cdp 1155", "trace 9, cdp 1155"));
    EXPECT_THAT(namesOf({identity(8, {{"fldr", 3}}), identity(9, {})}),
                ElementsAre("trace 8", "trace 9"));
}

TEST(TraceNameTest, TheNumberInTheFileComesFirst)
{
    TraceIdentity trace = identity(2, {{"fldr", 16}, {"tracf", 3}});
    trace.fileTrace = 5000000000;
    EXPECT_THAT(namesOf({trace}), ElementsAre("trace 5000000000 of the file, fldr 16 tracf 3"));
}

// ---- The rules ----

// A shot: first arrivals that move, events after them, quiet noise.
Gather shot(int traces)
{
    constexpr double interval = 0.004;
    Gather gather;
    for (int i = 0; i < traces; ++i) {
        Samples trace = noise(500, 0.02, static_cast<unsigned>(i + 1));
        addRicker(trace, interval, 0.15 + 0.012 * i, 30, 2);
        for (const double t0 : {0.5, 0.9, 1.4})
            addRicker(trace, interval, std::hypot(t0, 0.01 * i), 30, 0.8);
        gather.push_back(trace);
    }
    return gather;
}

std::vector<CheckedTrace> judged(const Gather& gather, const std::vector<double>& offsets,
                                 const CheckRule& rule = {})
{
    Checker checker(500, 0.004, rule);
    std::vector<CheckedTrace> traces;
    for (std::size_t i = 0; i < gather.size(); ++i) {
        CheckedTrace trace;
        trace.levels = levelsOf(gather[i]);
        trace.single = checker.measure(gather[i], trace.levels);
        trace.offset = offsets[i];
        traces.push_back(trace);
    }
    checker.judge(
        traces, [&](int i) { return std::span<const float>(gather[static_cast<std::size_t>(i)]); });
    return traces;
}

std::vector<double> offsetsOf(int traces)
{
    std::vector<double> offsets;
    for (int i = 0; i < traces; ++i)
        offsets.push_back(100 + 25 * i);
    return offsets;
}

std::vector<int> flagsOf(const std::vector<CheckedTrace>& traces)
{
    std::vector<int> flags;
    for (const CheckedTrace& trace : traces)
        flags.push_back(trace.flags);
    return flags;
}

TEST(CheckerTest, AGoodShotHasNoFlags)
{
    EXPECT_THAT(flagsOf(judged(shot(40), offsetsOf(40))), Each(0));
}

TEST(CheckerTest, EachFaultHasItsFlagAndItsNeighboursHaveNone)
{
    using Fault = void (*)(Gather&, std::vector<double>&);
    const struct
    {
        Flag flag;
        Fault plant; // in trace 20
    } rows[] = {
        {weak,
         [](Gather& g, auto&) {
             for (float& s : g[20])
                 s *= 0.3f;
         }},
        {noisy,
         [](Gather& g, auto&) {
             for (float& s : g[20])
                 s *= 3;
         }},
        {noisy,
         [](Gather& g, auto&) {
             const Samples more = noise(500, 0.4, 99);
             for (std::size_t i = 0; i < 500; ++i)
                 g[20][i] += more[i];
         }},
        {hum, [](Gather& g, auto&) { addTone(g[20], 0.004, 49.7, 50.2, 0.25); }},
        {hum, [](Gather& g, auto&) { addTone(g[20], 0.004, 60, 60, 0.25); }},
        {bias,
         [](Gather& g, auto&) {
             for (float& s : g[20])
                 s += 0.2f;
         }},
        {reversed,
         [](Gather& g, auto&) {
             for (float& s : g[20])
                 s = -s;
         }},
        {shifted,
         [](Gather& g, auto&) { std::rotate(g[20].rbegin(), g[20].rbegin() + 10, g[20].rend()); }},
        {geometry, [](Gather&, std::vector<double>& offsets) { offsets[20] += 250; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.flag);
        Gather gather = shot(40);
        std::vector<double> offsets = offsetsOf(40);
        row.plant(gather, offsets);
        const std::vector<int> flags = flagsOf(judged(gather, offsets));
        for (std::size_t i = 0; i < flags.size(); ++i)
            EXPECT_EQ(flags[i], i == 20 ? row.flag : 0) << "trace " << i;
    }
}

// Their first arrivals scatter: the swapped ones are not outliers, but fit where the other one is.
TEST(CheckerTest, SwappedTracesAreFlaggedAndTellEachOther)
{
    Gather gather = shot(48);
    for (const std::size_t first : {14u, 22u, 30u, 38u})
        std::swap(gather[first], gather[first + 3]);
    const std::vector<CheckedTrace> traces = judged(gather, offsetsOf(48));
    for (std::size_t i = 0; i < traces.size(); ++i) {
        const std::size_t place = i % 8;
        const bool isSwapped = i >= 14 && i < 42 && (place == 6 || place == 1);
        EXPECT_EQ((traces[i].flags & shifted) != 0, isSwapped) << i;
        if (isSwapped) {
            EXPECT_EQ(traces[i].compared.swappedBy, place == 6 ? 3 : -3) << i;
        }
    }
    Checker checker(500, 0.004);
    EXPECT_EQ(checker.reason(shifted, traces[22].single, traces[22].compared),
              "first arrival +36 ms against its neighbours, as if exchanged with the trace +3 from "
              "it");
}

// They stand side by side in the order of offsets.
TEST(CheckerTest, SeveralWrongOffsetsDoNotHideEachOther)
{
    std::vector<double> offsets = offsetsOf(48);
    for (const std::size_t wrong : {4u, 16u, 28u, 40u})
        offsets[wrong] += 1000;
    const std::vector<int> flags = flagsOf(judged(shot(48), offsets));
    for (std::size_t i = 0; i < flags.size(); ++i)
        EXPECT_EQ(flags[i], i % 12 == 4 ? geometry : 0) << i;
}

// In 0.3 s chance gives as much agreement at some lag, but not to all traces around.
TEST(CheckerTest, AShiftIsFoundInAShortRecord)
{
    constexpr int samples = 75;
    Gather gather;
    const Samples common = noise(samples, 1, 5);
    for (unsigned i = 0; i < 18; ++i) {
        Samples trace(samples, 0.0f);
        const Samples own = noise(samples, 0.15, 60 + i);
        for (std::size_t k = 2; k + 2 < trace.size(); ++k)
            trace[k] = common[k - 2] + 2 * common[k - 1] + 3 * common[k] + 2 * common[k + 1] +
                       common[k + 2] + own[k];
        gather.push_back(trace);
    }
    std::rotate(gather[9].rbegin(), gather[9].rbegin() + 10, gather[9].rend());
    Checker checker(samples, 0.004);
    std::vector<CheckedTrace> traces;
    for (const Samples& trace : gather) {
        CheckedTrace checked;
        checked.levels = levelsOf(trace);
        checked.single = checker.measure(trace, checked.levels);
        traces.push_back(checked);
    }
    checker.judge(
        traces, [&](int i) { return std::span<const float>(gather[static_cast<std::size_t>(i)]); });
    for (std::size_t i = 0; i < traces.size(); ++i)
        EXPECT_EQ(traces[i].flags, i == 9 ? shifted : 0) << i;
    EXPECT_EQ(traces[9].compared.prediction.lag, 10);
}

TEST(SharedHumTest, HumOfMostTracesIsSummedUp)
{
    SharedHum shared(0.15);
    EXPECT_EQ(shared.summary(), "");
    EXPECT_FALSE(shared.add(std::vector<Hum>{{0.3, 50}, {0.3, 50}, {0.3, 50}, {0.3, 50}}))
        << "too few traces";
    EXPECT_FALSE(shared.add(std::vector<Hum>(10, Hum{0.14, 50})));
    EXPECT_FALSE(shared.add(
        std::vector<Hum>{{0.3, 50}, {0.3, 50}, {0.3, 50}, {0.3, 60}, {0.3, 60}, {0.3, 60}}))
        << "of different mains";
    EXPECT_EQ(shared.summary(), "");
    EXPECT_TRUE(shared.add(std::vector<Hum>{
        {0.2, 50}, {0.3, 50}, {0.4, 50}, {0.5, 50}, {0.6, 50}, {0.1, 50}, {0.5, 60}, {0, 0}}));
    EXPECT_EQ(shared.summary(),
              "50 Hz and harmonics: 5 of 28 traces in 1 of 4 gathers, 40 % of the "
              "energy on average, 20 to 60 %");
    EXPECT_TRUE(shared.add(std::vector<Hum>(5, Hum{0.4, 60})));
    EXPECT_EQ(shared.summary(), "50 and 60 Hz and harmonics: 10 of 33 traces in 2 of 5 gathers, 40 "
                                "% of the energy on average, 20 to 60 %");
}

TEST(CheckerTest, ADuplicateAndItsOriginalAreFlagged)
{
    Gather gather = shot(40);
    gather[20] = gather[19];
    for (float& sample : gather[20])
        sample *= 0.9f;
    const std::vector<CheckedTrace> traces = judged(gather, offsetsOf(40));
    EXPECT_TRUE((traces[19].flags & duplicate) != 0);
    EXPECT_TRUE((traces[20].flags & duplicate) != 0);
    EXPECT_EQ(traces[20].compared.twinTrace, 19);
    EXPECT_NEAR(traces[20].compared.twin, 0, 1e-6);
    for (const std::size_t other : {17u, 18u, 21u, 22u})
        EXPECT_EQ(traces[other].flags & duplicate, 0) << other;
}

TEST(CheckerTest, TracesThatAreAllAlikeAreNotDuplicates)
{
    Gather gather;
    const Samples one = noise(500, 1, 5);
    for (unsigned i = 0; i < 20; ++i) {
        gather.push_back(one);
        const Samples other = noise(500, 0.02, 50 + i);
        for (std::size_t k = 0; k < 500; ++k)
            gather.back()[k] += other[k];
    }
    EXPECT_THAT(flagsOf(judged(gather, std::vector<double>(20, 0.0))), Each(0));
}

TEST(CheckerTest, LevelsThatScatterAreExpectedTo)
{
    Gather gather = shot(40);
    std::mt19937 random(3);
    std::normal_distribution<double> decibels(0, 3);
    for (Samples& trace : gather) {
        const double factor = std::pow(10, decibels(random) / 20);
        for (float& sample : trace)
            sample *= static_cast<float>(factor);
    }
    for (const CheckedTrace& trace : judged(gather, offsetsOf(40)))
        EXPECT_EQ(trace.flags & (weak | noisy), 0);
}

TEST(CheckerTest, ThresholdsTurnChecksOff)
{
    Gather gather = shot(40);
    addTone(gather[20], 0.004, 50, 50, 0.25);
    CheckRule rule;
    rule.hum = 1;
    EXPECT_EQ(judged(gather, offsetsOf(40), rule)[20].flags & hum, 0);
    EXPECT_NE(judged(gather, offsetsOf(40))[20].flags & hum, 0);
}

} // namespace
