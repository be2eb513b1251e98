#include "../Resampler.h"
#include "ModuleTest.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr double turn = 2 * std::numbers::pi;

// A cosine with a phase, as it is at any time.
struct Wave
{
    double hertz;
    double phase;
    double at(double seconds) const { return std::cos(turn * hertz * seconds + phase); }
};

std::vector<double> sampled(const Wave& wave, int microseconds, int count)
{
    std::vector<double> samples;
    for (int i = 0; i < count; ++i)
        samples.push_back(wave.at(i * microseconds * 1e-6));
    return samples;
}

// The greatest distance to `expected` at the times of the output, where the filter is all inside.
double worstError(Resampler& resampler, const std::vector<double>& in, int from, int to,
                  const std::function<double(double)>& expected)
{
    const int count = static_cast<int>(in.size());
    std::vector<float> out(static_cast<std::size_t>(Resampler::samplesFor(from, to, count)));
    resampler.apply(in.data(), out.data());
    const double margin = static_cast<double>(resampler.halfLength() + 1) * from;
    double worst = 0;
    int compared = 0;
    for (std::size_t j = 0; j < out.size(); ++j) {
        const double time = static_cast<double>(j) * to;
        if (time < margin || time > (count - 1.0) * from - margin)
            continue;
        worst = std::max(worst, std::fabs(out[j] - expected(time * 1e-6)));
        ++compared;
    }
    EXPECT_GT(compared, 20);
    return worst;
}

// ---- Arithmetic ----

TEST(ResamplerTest, WavesOfThePassBandKeepAmplitudeAndPhase)
{
    const struct
    {
        int from, to;
    } rows[] = {{4000, 2000}, {2000, 4000}, {1000, 4000}, {4000, 3000},
                {3000, 7000}, {2000, 2500}, {1000, 999},  {4000, 333}};
    for (const auto& row : rows) {
        Resampler resampler(row.from, row.to, 0.8, 80, 2000);
        const double nyquist = 0.5e6 / std::max(row.from, row.to);
        for (const double part : {0.0, 0.05, 0.3, 0.6, 0.79}) {
            const Wave wave{part * nyquist, 0.7};
            EXPECT_LT(worstError(resampler, sampled(wave, row.from, 2000), row.from, row.to,
                                 [&](double t) { return wave.at(t); }),
                      2e-4)
                << row.from << " to " << row.to << " us, " << wave.hertz << " Hz";
        }
    }
}

TEST(ResamplerTest, WavesThatTheNewIntervalCannotHoldAreRemoved)
{
    Resampler resampler(1000, 4000, 0.8, 80, 4000);
    for (const double hertz : {125.0, 126.0, 180.0, 250.0, 333.0, 499.0}) {
        const Wave wave{hertz, 0.3};
        EXPECT_LT(worstError(resampler, sampled(wave, 1000, 4000), 1000, 4000,
                             [](double) { return 0.0; }),
                  1.5e-4)
            << hertz << " Hz";
    }
}

TEST(ResamplerTest, AttenuationIsThatAskedFor)
{
    const Wave wave{130, 0.3};
    const std::vector<double> in = sampled(wave, 1000, 4000);
    const auto rest = [&](double attenuation) {
        Resampler resampler(1000, 4000, 0.8, attenuation, 4000);
        return worstError(resampler, in, 1000, 4000, [](double) { return 0.0; });
    };
    EXPECT_LT(rest(40), 0.015);
    EXPECT_LT(rest(120), 2e-6);
}

TEST(ResamplerTest, ThePassBandEndsWhereItIsAskedTo)
{
    const Wave wave{118, 0.3}; // of a Nyquist frequency of 125 Hz
    const std::vector<double> in = sampled(wave, 1000, 4000);
    const auto error = [&](double pass) {
        Resampler resampler(1000, 4000, pass, 80, 4000);
        return worstError(resampler, in, 1000, 4000, [&](double t) { return wave.at(t); });
    };
    EXPECT_LT(error(0.95), 2e-4);
    EXPECT_GT(error(0.80), 0.5);
}

// An even pulse stays even about its time: the filter has no phase.
TEST(ResamplerTest, AnEvenPulseStaysEven)
{
    std::vector<double> in(401, 0);
    in[200] = 1;
    Resampler resampler(2000, 800, 0.8, 80, 401);
    std::vector<float> out(static_cast<std::size_t>(Resampler::samplesFor(2000, 800, 401)));

    resampler.apply(in.data(), out.data());

    ASSERT_THAT(out, SizeIs(1001));
    EXPECT_GT(out[500], 0.8);
    for (std::size_t i = 1; i <= 500; ++i)
        EXPECT_NEAR(out[500 - i], out[500 + i], 1e-7) << i;
}

// Intervals without a common divisor have too many phases for the table.
TEST(ResamplerTest, ManyPhasesAreComputedOneByOne)
{
    const int from = 99991;
    const int to = 99989;
    Resampler resampler(from, to, 0.8, 80, 400);
    const Wave wave{2, 0.5};

    EXPECT_LT(worstError(resampler, sampled(wave, from, 400), from, to,
                         [&](double t) { return wave.at(t); }),
              2e-4);
}

TEST(ResamplerTest, OutputHasTheTimesOfTheInput)
{
    EXPECT_EQ(Resampler::samplesFor(4000, 2000, 100), 199);
    EXPECT_EQ(Resampler::samplesFor(2000, 4000, 100), 50);
    EXPECT_EQ(Resampler::samplesFor(2000, 4000, 101), 51);
    EXPECT_EQ(Resampler::samplesFor(4000, 3000, 4), 5);
    EXPECT_EQ(Resampler::samplesFor(1000, 5000, 1), 1);
    EXPECT_EQ(Resampler::samplesFor(1000, 5000, 0), 0);
    EXPECT_EQ(Resampler::samplesFor(1000000, 1, 2147483647), INT64_C(2147483646000001));
}

// ---- In a job ----

class ResampleTest : public ModuleTest
{
protected:
    ResampleTest() : ModuleTest("resample") {}

    void pushWave(double hertz, int count, int delay = 0)
    {
        const Wave wave{hertz, 0};
        std::vector<float> samples;
        for (int i = 0; i < count; ++i)
            samples.push_back(static_cast<float>(wave.at(i * 0.002)));
        harness.push(samples, {{"ns", UniVar(count)},
                               {"dt", UniVar(2000)},
                               {"delrt", UniVar(delay)},
                               {"cdp", UniVar(12)}});
    }
};

TEST_F(ResampleTest, HeaderSaysWhatTheTracesHave)
{
    pushWave(20, 401, 100);
    pushWave(20, 401, 104);
    add({{"interval", UniVar(0.004)}});

    run();

    EXPECT_EQ(result.traceLength, 201);
    EXPECT_EQ(result.sampleInterval, 4000);
    EXPECT_THAT(all("ns"), ElementsAre(201, 201));
    EXPECT_THAT(all("dt"), ElementsAre(4000, 4000));
    EXPECT_THAT(all("delrt"), ElementsAre(100, 104));
    EXPECT_THAT(all("cdp"), ElementsAre(12, 12));
    for (int j = 60; j < 140; ++j)
        EXPECT_NEAR(result.traces[1].samples[static_cast<std::size_t>(j)],
                    std::cos(turn * 20 * j * 0.004), 2e-4);
    EXPECT_EQ(history(), "resample interval=4 ms from=2 ms pass=80 percent attenuation=80 dB");
    EXPECT_THAT(messages(1),
                ElementsAre(HasSubstr("from 2 ms to 4 ms: frequencies up to 100 Hz pass, those "
                                      "from 125 Hz on are removed")));
}

TEST_F(ResampleTest, TheSameIntervalKeepsEverySample)
{
    harness.push({1, -2, 3}, {{"dt", UniVar(2000)}});
    add({{"interval", UniVar(0.002)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(1, -2, 3));
    EXPECT_THAT(messages(1), ElementsAre(HasSubstr("is 2 ms already")));
}

TEST_F(ResampleTest, SamplesThatAreNotFiniteCountAsZeros)
{
    std::vector<float> samples(201, 0);
    samples[10] = NAN;
    samples[20] = INFINITY;
    harness.push(samples);
    add({{"interval", UniVar(0.001)}});

    run();

    EXPECT_THAT(result.traces[0].samples, Each(0));
    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 2, in traces: 1; they "
                                         "count as 0"));
}

TEST_F(ResampleTest, AnIntervalOfTheWrongUnitIsTold)
{
    pushWave(20, 401);
    add({{"interval", UniVar(4.0)}});

    run();

    EXPECT_THAT(result.traces[0].samples, SizeIs(1));
    EXPECT_THAT(messages(2), ElementsAre(HasSubstr("with its unit (4 ms)")));
}

TEST_F(ResampleTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{}, "interval is missing; give a number above 0 and at most 1000"},
        {{{"interval", UniVar(0.0)}}, "interval is 0 s; give a number above 0 and at most 1000"},
        {{{"interval", UniVar(0.0010005)}},
         "interval is 0.0010005 s; give a whole number of microseconds, with the unit (500 us)"},
        {{{"interval", UniVar(1e-9)}},
         "interval is 1e-09 s; give a whole number of microseconds, with the unit (500 us)"},
        {{{"interval", UniVar(0.004)}, {"pass", UniVar(100.0)}},
         "pass is 100 percent; give a number from 1 to 99"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.push({1, 2, 3});
        add(row.parameters);

        result = harness.run();
        EXPECT_THAT(messages(4), SizeIs(1));
        EXPECT_EQ(messages(4)[0], row.message);
    }
}

TEST_F(ResampleTest, ALengthBeyondAnyTraceIsRefusedBeforeMemoryIsAsked)
{
    harness.sampleInterval = 2000000000;
    harness.push({1, 2, 3});
    add({{"interval", UniVar(1e-6)}});

    runInVain("interval is 1e-06 s, which makes 4000000001 samples of 3, and traces have at most "
              "536870911; give a longer one");
}

TEST_F(ResampleTest, SampleIntervalIsRequired)
{
    harness.sampleInterval = 0;
    harness.push({1, 2, 3});
    add({{"interval", UniVar(0.004)}});

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(ResampleTest, EmptyInputIsNoError)
{
    add({{"interval", UniVar(0.004)}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
