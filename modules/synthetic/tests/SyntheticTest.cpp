#include "../synthetic_math.h"
#include "../xoshiro.h"
#include "ModuleTest.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <set>
#include <utility>

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

constexpr double pi = std::numbers::pi;

// ---- Random numbers ----

// What the published algorithms give for this seed and this state.
TEST(XoshiroTest, SplitMixGivesTheReferenceNumbers)
{
    uint64_t state = 1234567;
    for (const uint64_t expected :
         {6457827717110365317u, 3203168211198807973u, 9817491932198370423u, 4593380528125082431u})
        EXPECT_EQ(splitmix64_next(&state), expected);
}

TEST(XoshiroTest, GeneratorGivesTheReferenceNumbers)
{
    xoshiro generator = {{1, 2, 3, 4}};
    for (const uint64_t expected : {11520u, 0u, 1509978240u})
        EXPECT_EQ(xoshiro_next(&generator), expected);
    for (const uint64_t expected :
         {1215971899390074240u, 1216172134540287360u, 607988272756665600u})
        EXPECT_EQ(xoshiro_next(&generator), expected);
}

TEST(XoshiroTest, BoundedNumbersFillTheirRangeEvenly)
{
    xoshiro generator = xoshiro_seeded(7);
    std::vector<int> counts(10, 0);
    for (int i = 0; i < 100000; ++i)
        ++counts.at(xoshiro_below(&generator, 10));

    // Five standard deviations of a count: sqrt(100000 * 0.1 * 0.9) = 95.
    EXPECT_THAT(counts, Each(AllOf(Ge(10000 - 475), Le(10000 + 475))));
}

// ---- Waves ----

TEST(SyntheticWaveTest, RickerWaveletHasItsPeakTroughsAndZerosWhereTheFormulaSays)
{
    for (const double frequency : {10.0, 30.0}) {
        const double unit = 1 / (pi * frequency);
        EXPECT_DOUBLE_EQ(synthetic_ricker(0, frequency), 1);
        EXPECT_NEAR(synthetic_ricker(unit * std::sqrt(0.5), frequency), 0, 1e-15);
        EXPECT_NEAR(synthetic_ricker(-unit * std::sqrt(1.5), frequency), -2 * std::exp(-1.5),
                    1e-15);
    }
}

// By a Fourier sum, against 2 / sqrt(pi) f^2 / f0^3 exp(-f^2 / f0^2).
TEST(SyntheticWaveTest, SpectrumOfTheWaveletIsGreatestAtItsFrequency)
{
    const double interval = 0.001;
    const double peak = 25;
    for (const double frequency : {5.0, 15.0, 25.0, 40.0, 60.0}) {
        double sum = 0;
        for (int i = -200; i <= 200; ++i)
            sum += synthetic_ricker(i * interval, peak) *
                   std::cos(2 * pi * frequency * i * interval) * interval;
        const double ratio = frequency / peak;
        EXPECT_NEAR(sum, 2 / std::sqrt(pi) * ratio * ratio / peak * std::exp(-ratio * ratio), 1e-9)
            << frequency << " Hz";
    }
}

TEST(SyntheticWaveTest, TraveltimesLieOnAHyperbola)
{
    const struct
    {
        double time, velocity, offset, expected;
    } rows[] = {{0.4, 2000, 0, 0.4},
                {0.3, 1000, 400, 0.5}, // 3, 4, 5
                {0.3, 1000, -400, 0.5},
                {0, 500, -750, 1.5}};
    for (const auto& row : rows) {
        const synthetic_event event = {row.time, row.velocity, 1, 30};
        EXPECT_DOUBLE_EQ(synthetic_traveltime(&event, row.offset), row.expected) << row.offset;
    }
}

TEST(SyntheticWaveTest, EventIsAddedAtItsTraveltime)
{
    const synthetic_event event = {0.3, 1000, -2, 25};
    std::vector<float> samples(500, 10.0f);

    synthetic_add_event(&event, 400, 0.002, samples.data(), 500);

    for (int i = 0; i < 500; ++i)
        ASSERT_NEAR(samples[static_cast<size_t>(i)], 10 - 2 * synthetic_ricker(0.002 * i - 0.5, 25),
                    1e-6)
            << i;
}

TEST(SyntheticWaveTest, EventsReachOverTheEndsOfATrace)
{
    for (const double time : {0.0, 0.098, 0.1, 5.0, 1e30}) {
        const synthetic_event event = {time, 1000, 1, 25};
        std::vector<float> samples(50, 0.0f);

        synthetic_add_event(&event, 0, 0.002, samples.data(), 50);

        for (int i = 0; i < 50; ++i)
            ASSERT_NEAR(samples[static_cast<size_t>(i)], synthetic_ricker(0.002 * i - time, 25),
                        2e-8)
                << time << " s, sample " << i;
    }
}

// ---- Noise ----

double rms(const std::vector<float>& samples)
{
    const double sum = std::inner_product(samples.begin(), samples.end(), samples.begin(), 0.0);
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

TEST(SyntheticNoiseTest, NoiseIsWhiteWithoutMeanAndHasItsLevel)
{
    std::vector<float> noise(100000, 0.0f);

    synthetic_add_noise(5, 3, noise.data(), 100000);

    const double count = 100000;
    const double mean = std::accumulate(noise.begin(), noise.end(), 0.0) / count;
    const double neighbours =
        std::inner_product(noise.begin(), noise.end() - 1, noise.begin() + 1, 0.0) / count / 9;
    const double fourth =
        std::accumulate(noise.begin(), noise.end(), 0.0,
                        [](double sum, float x) { return sum + std::pow(x / 3.0, 4); }) /
        count;
    EXPECT_NEAR(mean, 0, 5 * 3 / std::sqrt(count));
    EXPECT_NEAR(rms(noise), 3, 0.03);
    EXPECT_NEAR(neighbours, 0, 5 / std::sqrt(count));
    EXPECT_NEAR(fourth, 2.7, 0.06); // 3 - 1.2 / 4 for a sum of four even distributions
    EXPECT_LE(*std::max_element(noise.begin(), noise.end()), 3 * 3.4641);
    EXPECT_GE(*std::min_element(noise.begin(), noise.end()), -3 * 3.4641);
}

TEST(SyntheticNoiseTest, NoiseIsAddedToWhatIsThere)
{
    std::vector<float> noise(20, 0.0f);
    std::vector<float> signal(20, 8.0f);

    synthetic_add_noise(5, 1, noise.data(), 20);
    synthetic_add_noise(5, 1, signal.data(), 20);

    for (size_t i = 0; i < 20; ++i)
        EXPECT_FLOAT_EQ(signal[i], 8 + noise[i]);
}

TEST(SyntheticNoiseTest, SeedsOfTracesDiffer)
{
    std::set<uint64_t> seeds;
    for (const uint64_t seed : {0u, 1u, 2u})
        for (int shot = 0; shot < 40; ++shot)
            for (int channel = 0; channel < 50; ++channel)
                seeds.insert(synthetic_trace_seed(seed, shot, channel));
    EXPECT_THAT(seeds, SizeIs(3 * 40 * 50));
}

// ---- Damage ----

std::vector<float> damaged(synthetic_defect defect, uint64_t seed = 3)
{
    std::vector<float> samples(1000, 0.5f);
    synthetic_damage(defect, seed, 2, samples.data(), 1000);
    return samples;
}

TEST(SyntheticDamageTest, DefectsAreAsDescribed)
{
    EXPECT_THAT(damaged(SYNTHETIC_GOOD), Each(0.5f));
    EXPECT_THAT(damaged(SYNTHETIC_DEAD), Each(0.0f));
    EXPECT_THAT(damaged(SYNTHETIC_REVERSED), Each(-0.5f));
    EXPECT_NEAR(rms(damaged(SYNTHETIC_NOISY)), 10, 0.7);
}

TEST(SyntheticDamageTest, ThreeSamplesOfASpikyTraceAreFarTooLarge)
{
    std::set<long> places;
    for (const uint64_t seed : {1u, 2u, 3u, 4u}) {
        const std::vector<float> samples = damaged(SYNTHETIC_SPIKY, seed);
        const auto isSpike = [](float sample) { return std::fabs(sample) == 100; };
        EXPECT_EQ(std::count_if(samples.begin(), samples.end(), isSpike), 3);
        EXPECT_EQ(std::count(samples.begin(), samples.end(), 0.5f), 997);
        places.insert(std::find_if(samples.begin(), samples.end(), isSpike) - samples.begin());
    }
    EXPECT_THAT(places, SizeIs(4)) << "each seed has its own";
}

TEST(SyntheticDamageTest, EmptyTracesCanBeDamaged)
{
    for (const synthetic_defect defect :
         {SYNTHETIC_DEAD, SYNTHETIC_NOISY, SYNTHETIC_REVERSED, SYNTHETIC_SPIKY})
        synthetic_damage(defect, 1, 1, nullptr, 0);
}

std::vector<synthetic_defect> chosen(uint64_t seed, int bad, int channels)
{
    std::vector<synthetic_defect> defects(static_cast<size_t>(channels), SYNTHETIC_SPIKY);
    synthetic_choose_defects(seed, bad, defects.data(), channels);
    return defects;
}

TEST(SyntheticDamageTest, AsManyChannelsAreChosenAsAsked)
{
    for (uint64_t seed = 0; seed < 50; ++seed) {
        for (const int bad : {0, 1, 7, 29, 30}) {
            const std::vector<synthetic_defect> defects = chosen(seed, bad, 30);
            ASSERT_EQ(std::count(defects.begin(), defects.end(), SYNTHETIC_GOOD), 30 - bad)
                << "seed " << seed;
        }
    }
}

TEST(SyntheticDamageTest, EveryChannelAndEveryDefectHasItsChance)
{
    std::vector<int> perChannel(10, 0);
    std::vector<int> perDefect(5, 0);
    for (uint64_t seed = 0; seed < 10000; ++seed) {
        const std::vector<synthetic_defect> defects = chosen(seed, 2, 10);
        for (size_t i = 0; i < defects.size(); ++i) {
            perChannel[i] += defects[i] != SYNTHETIC_GOOD;
            ++perDefect[defects[i]];
        }
    }
    EXPECT_THAT(perChannel, Each(AllOf(Ge(1800), Le(2200)))); // five standard deviations
    perDefect.erase(perDefect.begin());
    EXPECT_THAT(perDefect, Each(AllOf(Ge(4690), Le(5310))));
}

// ---- In a job ----

class SyntheticTest : public ModuleTest
{
protected:
    SyntheticTest() : ModuleTest("synthetic") { harness.withSource = false; }

    // Without anything random, and with what `more` says.
    void addClean(std::map<std::string, UniVar> more = {})
    {
        more.insert({{"shots", UniVar(2)},
                     {"channels", UniVar(3)},
                     {"samples", UniVar(200)},
                     {"noise", UniVar(0)},
                     {"direct_amplitude", UniVar(0)},
                     {"roll_amplitude", UniVar(0)}});
        add(more);
    }

    std::vector<float> samplesOf(size_t trace) { return result.traces.at(trace).samples; }
};

TEST_F(SyntheticTest, DefaultsMakeFourShots)
{
    add();

    run();

    EXPECT_THAT(result.traces, SizeIs(4 * 48));
    EXPECT_EQ(result.traceLength, 750);
    EXPECT_EQ(result.sampleInterval, 4000);
    EXPECT_EQ(history(), "synthetic shots=4 channels=48 seed=1");
}

// Everything about a trace, bad ones chosen from the seed too, as in the whole line.
TEST_F(SyntheticTest, PartsGiveTheTracesOfTheWhole)
{
    using Row = std::pair<std::vector<int>, std::vector<float>>;
    std::vector<std::string> details;
    const auto traces = [&](const std::string& part) {
        restart();
        harness.withSource = false;
        for (const char* word : {"tracl", "fldr", "tracf", "cdp", "gx"})
            harness.define(word, 2);
        HarnessModule& module = add({{"shots", UniVar(3)},
                                     {"channels", UniVar(7)},
                                     {"samples", UniVar(60)},
                                     {"bad", UniVar(3)}});
        if (!part.empty())
            module.parameters["part"] = UniVar(part);
        run();
        std::vector<Row> rows;
        for (const HarnessTrace& trace : result.traces) {
            std::vector<int> words;
            for (const char* word : {"tracl", "fldr", "tracf", "cdp", "gx"})
                words.push_back(trace.attributes.at(word).getI32Value());
            rows.emplace_back(words, trace.samples);
        }
        for (const std::string& detail : messages(0))
            details.push_back(detail);
        return rows;
    };
    const std::vector<Row> whole = traces("");
    ASSERT_THAT(whole, SizeIs(21));
    const std::vector<std::string> said = std::exchange(details, {});
    ASSERT_THAT(said, SizeIs(9));
    for (const std::size_t parts : {1, 2, 3, 7, 21}) {
        std::vector<Row> joined;
        details.clear();
        for (std::size_t part = 0; part < parts; ++part) {
            for (const Row& row : traces(std::to_string(21 * part / parts + 1) + ":" +
                                         std::to_string(21 * (part + 1) / parts)))
                joined.push_back(row);
        }
        EXPECT_TRUE(joined == whole) << parts;
        EXPECT_EQ(details, said) << parts;
    }
    EXPECT_TRUE(traces("2, 5:6,20:99") ==
                std::vector<Row>({whole[1], whole[4], whole[5], whole[19], whole[20]}));
}

TEST_F(SyntheticTest, APartThatIsNotAListOfAscendingRangesIsRefused)
{
    for (const char* part : {"", "x", "1:5:2", "3:2", "5:9,2:3", "1:4,4", "0:3", ","}) {
        restart();
        harness.withSource = false;
        addClean({{"part", UniVar(part)}});
        runInVain("part \"" + std::string(part) +
                  "\" is not a list of ranges in ascending order, as in 1:100,201:300");
    }
    restart();
    harness.withSource = false;
    addClean({{"part", UniVar("7:9")}});
    runInVain("part \"7:9\" has none of the 6 traces of the line");
}

TEST_F(SyntheticTest, AJobForHeadersOnlyGetsTheHeadersAndZeros)
{
    harness.jobMetadata["vorn.headers"] = "1";
    harness.define("tracf", 2);
    add({{"shots", UniVar(1)}, {"channels", UniVar(2)}, {"samples", UniVar(3)}});
    run();
    EXPECT_THAT(all("tracf"), ElementsAre(1, 2));
    EXPECT_THAT(samplesOf(1), ElementsAre(0, 0, 0));
}

TEST_F(SyntheticTest, HeadersDescribeTheLine)
{
    addClean({{"spacing", UniVar(12.5)},
              {"first_offset", UniVar(-20)},
              {"shot_spacing", UniVar(25)},
              {"interval", UniVar(0.0005)}});

    run();

    EXPECT_THAT(all("tracl"), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(all("tracr"), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(all("fldr"), ElementsAre(1, 1, 1, 2, 2, 2));
    EXPECT_THAT(all("ep"), ElementsAre(1, 1, 1, 2, 2, 2));
    EXPECT_THAT(all("tracf"), ElementsAre(1, 2, 3, 1, 2, 3));
    EXPECT_THAT(all("offset"), ElementsAre(-20, -8, 5, -20, -8, 5)); // -20, -7.5, 5
    EXPECT_THAT(all("sx"), ElementsAre(0, 0, 0, 2500, 2500, 2500));
    EXPECT_THAT(all("gx"), ElementsAre(-2000, -750, 500, 500, 1750, 3000));
    EXPECT_THAT(all("scalco"), Each(-100));
    EXPECT_THAT(all("cdp"), ElementsAre(1, 2, 3, 5, 6, 7)); // 6.25 m apart
    EXPECT_THAT(all("ns"), Each(200));
    EXPECT_THAT(all("dt"), Each(500));
    EXPECT_THAT(all("trid"), Each(1));
    EXPECT_THAT(all("delrt"), Each(0));
}

TEST_F(SyntheticTest, MidpointsCountFromTheBeginningOfTheLineInAnyDirection)
{
    const struct
    {
        double spacing, shotSpacing;
        std::vector<int> cdp;
    } rows[] = {
        {-10, 10, {3, 2, 1, 5, 4, 3}},  {10, -10, {3, 4, 5, 1, 2, 3}},
        {-10, -10, {5, 4, 3, 3, 2, 1}}, {0, 10, {1, 1, 1, 2, 2, 2}},
        {0, 0, {1, 1, 1, 1, 1, 1}},
    };
    for (const auto& row : rows) {
        restart();
        harness.withSource = false;
        addClean({{"spacing", UniVar(row.spacing)}, {"shot_spacing", UniVar(row.shotSpacing)}});
        run();
        EXPECT_EQ(all("cdp"), row.cdp) << row.spacing << " m, " << row.shotSpacing << " m";
    }
}

TEST_F(SyntheticTest, ReflectionsAndSurfaceWavesAddUp)
{
    addClean({{"shots", UniVar(1)},
              {"times", floats({0.2, 0.3})},
              {"velocities", floats({1500, 2000})},
              {"amplitudes", floats({1, -0.5})},
              {"frequency", UniVar(40)},
              {"first_offset", UniVar(100)},
              {"spacing", UniVar(50)},
              {"direct_amplitude", UniVar(0.25)},
              {"direct_velocity", UniVar(1000)},
              {"roll_amplitude", UniVar(3)},
              {"roll_velocity", UniVar(400)},
              {"roll_frequency", UniVar(8)}});

    run();

    const double x = 150;
    for (int i = 0; i < 200; ++i) {
        const double t = 0.004 * i;
        const double expected = synthetic_ricker(t - std::sqrt(0.04 + x * x / 2250000), 40) -
                                0.5 * synthetic_ricker(t - std::sqrt(0.09 + x * x / 4000000), 40) +
                                0.25 * synthetic_ricker(t - x / 1000, 40) +
                                3 * synthetic_ricker(t - x / 400, 8);
        ASSERT_NEAR(samplesOf(1)[static_cast<size_t>(i)], expected, 1e-6) << i;
    }
}

TEST_F(SyntheticTest, SameSeedGivesTheSameSamplesAndAnotherOneOthers)
{
    std::vector<std::vector<float>> runs;
    for (const int seed : {1, 1, 2}) {
        restart();
        harness.withSource = false;
        addClean({{"noise", UniVar(0.1)}, {"seed", UniVar(seed)}, {"bad", UniVar(1)}});
        run();
        runs.push_back({});
        for (const HarnessTrace& trace : result.traces)
            runs.back().insert(runs.back().end(), trace.samples.begin(), trace.samples.end());
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_NE(runs[0], runs[2]);
}

TEST_F(SyntheticTest, ATraceDoesNotDependOnTheNumberOfShots)
{
    addClean({{"noise", UniVar(1)}});
    run();
    const std::vector<float> before = samplesOf(4);

    restart();
    harness.withSource = false;
    addClean({{"noise", UniVar(1)}, {"shots", UniVar(5)}});
    run();

    EXPECT_EQ(samplesOf(4), before);
}

TEST_F(SyntheticTest, ListedChannelsAreBadInEveryShot)
{
    addClean({});
    run();
    const std::vector<float> clean[] = {samplesOf(3), samplesOf(4), samplesOf(5)};

    restart();
    harness.withSource = false;
    addClean({{"dead", integers({1})}, {"reversed", integers({3, 1})}});
    run();

    EXPECT_THAT(samplesOf(0), Each(0.0f));
    EXPECT_THAT(samplesOf(3), Each(0.0f));
    EXPECT_EQ(samplesOf(4), clean[1]);
    for (size_t i = 0; i < clean[2].size(); ++i)
        ASSERT_EQ(samplesOf(5)[i], -clean[2][i]);
    EXPECT_THAT(messages(0),
                ElementsAre("shot 1, channel 1 is dead", "shot 1, channel 3 is reversed",
                            "shot 2, channel 1 is dead", "shot 2, channel 3 is reversed"));
}

TEST_F(SyntheticTest, SeedChoosesAsManyBadTracesInEachShot)
{
    addClean({{"shots", UniVar(20)}, {"channels", UniVar(12)}, {"bad", UniVar(2)}});

    run();

    EXPECT_THAT(messages(0), SizeIs(40));
}

TEST_F(SyntheticTest, NoShotsAreAnEmptyLine)
{
    addClean({{"shots", UniVar(0)}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

TEST_F(SyntheticTest, EmptyListsLeaveReflectionsOut)
{
    addClean({{"times", floats({})}, {"velocities", floats({})}, {"amplitudes", floats({})}});

    run();

    EXPECT_THAT(samplesOf(0), Each(0.0f));
}

TEST_F(SyntheticTest, SettingsAreRefused)
{
    const struct
    {
        const char* name;
        UniVar value;
        const char* message;
    } rows[] = {
        {"shots", UniVar(-1), "shots is -1; give a whole number of at least 0"},
        {"channels", UniVar(0), "channels is 0; give a whole number of at least 1"},
        {"samples", UniVar("none"), "samples is 0 samples; give a whole number of at least 1"},
        {"interval", UniVar(0), "interval is 0 s; give a number from 1e-06 to 2000"},
        {"interval", UniVar(1e-7), "interval is 1e-07 s; give a number from 1e-06 to 2000"},
        {"times", floats({0.1, 0.2}),
         "times, velocities and amplitudes have 2, 4 and 4 elements; give the same number of each"},
        {"times", floats({0.1, 0.2, -1, 0.3}),
         "times holds -1 s; give a list of numbers of at least 0"},
        {"velocities", floats({1000, 0, 2000, 3000}),
         "velocities holds 0 m/s; give a list of numbers above 0"},
        {"amplitudes", floats({1, INFINITY, 1, 1}), "amplitudes holds inf; give a list of numbers"},
        {"frequency", UniVar(0), "frequency is 0 Hz; give a number above 0"},
        {"roll_velocity", UniVar(-5), "roll_velocity is -5 m/s; give a number above 0"},
        {"noise", UniVar(-0.5), "noise is -0.5; give a number of at least 0"},
        {"bad", UniVar(49), "bad is 49; a shot has 48 channels"},
        {"dead", integers({48, 49}), "dead names channel 49; the channels are 1 to 48"},
        {"spiky", integers({0}), "spiky holds 0; give a list of whole numbers of at least 1"},
        {"noisy", floats({1, 2.5}), "noisy holds 2.5; give a list of whole numbers of at least 1"},
        {"shots", UniVar(100000000),
         "100000000 shots of 48 channels are more traces than headers can number"},
        {"shot_spacing", UniVar(1e7),
         "the line is about 4.00013e+07 m long; headers hold positions up to 21474836 m"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.withSource = false;
        add({{row.name, row.value}});

        runInVain(row.message);
    }
}

} // namespace
