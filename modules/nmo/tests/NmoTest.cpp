#include "../nmo_math.h"
#include "ModuleTest.h"
#include "TextFiles.h"

#include <cmath>
#include <numbers>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// A wavelet of 25 Hz (Ricker) about the time 0, in seconds.
double wavelet(double time)
{
    const double a = std::numbers::pi * 25 * time;
    return (1 - 2 * a * a) * std::exp(-a * a);
}

// ---- Arithmetic ----

TEST(NmoMathTest, ArrivalsLieOnAHyperbola)
{
    const VelocityFunction constant({0}, {2000});
    EXPECT_DOUBLE_EQ(arrivalTime(constant, 0, 1.5), 1.5);
    EXPECT_DOUBLE_EQ(arrivalTime(constant, 1500, 1.0), 1.25); // 3-4-5
    EXPECT_DOUBLE_EQ(arrivalTime(constant, 2000, 0), 1);
    const VelocityFunction growing({0, 2}, {1000, 3000});
    EXPECT_DOUBLE_EQ(arrivalTime(growing, 1500, 1.0), 1.25);
}

TEST(NmoMathTest, TheTimeAtZeroOffsetIsTheInverse)
{
    const VelocityFunction growing({0, 0.5, 2, 3}, {1500, 1800, 3000, 3500});
    const struct
    {
        double offset, origin;
    } rows[] = {{10, 0.1},   {10, 0.5},   {10, 4},     {400, 0.3}, {400, 1.234},
                {1800, 0.5}, {1800, 2.9}, {5000, 2.9}, {5000, 4}};
    for (const auto& row : rows) {
        const double arrival =
            std::sqrt(row.origin * row.origin + std::pow(row.offset / growing.at(row.origin), 2));
        EXPECT_NEAR(
            zeroOffsetTime(growing, row.offset, arrival, row.origin - 0.004, row.origin + 0.013),
            row.origin, 1e-8)
            << row.offset << " m, " << row.origin << " s";
    }
}

TEST(NmoMathTest, StretchIsMutedUpToItsLastSampleAndTapered)
{
    const sampling::SincInterpolator interpolator;
    const VelocityFunction constant({0}, {2000});
    const std::vector<double> in(501, 1);
    std::vector<double> out(501, 77);

    // (t - t0) / t0 > 0.5 up to t0 = x / v / sqrt(1.5^2 - 1) = 0.4472 s.
    const int muted = correctMoveout(interpolator, constant, 1000, {0, 0.004, 501}, {0.5, 0.04},
                                     in.data(), out.data());

    EXPECT_EQ(muted, 112); // samples 0 to 111, which is at 0.444 s
    EXPECT_EQ(out[111], 0);
    EXPECT_NEAR(out[112], 0.5 * (1 - std::cos(std::numbers::pi * 0.1)), 1e-6);
    EXPECT_NEAR(out[116], 0.5, 1e-6);
    EXPECT_NEAR(out[121], 1, 1e-6);
}

// ---- In a job ----

class NmoTest : public ModuleTest
{
protected:
    NmoTest() : ModuleTest("nmo") { harness.sampleInterval = interval; }

    static constexpr int interval = 4000; // microseconds
    static constexpr int length = 501;

    // When the reflection of t0 = `origin` arrives, worked out by hand for this test.
    static double arrival(double origin, double offset, double velocity)
    {
        return std::sqrt(origin * origin + offset * offset / (velocity * velocity));
    }

    // A trace with reflections at `origins`, all with one velocity.
    void pushReflections(int offset, double velocity, const std::vector<double>& origins,
                         std::map<std::string, UniVar> more = {}, int delay = 0)
    {
        std::vector<float> samples;
        for (int i = 0; i < length; ++i) {
            double sum = 0;
            for (const double origin : origins)
                sum += wavelet(i * 0.004 + delay * 0.001 - arrival(origin, offset, velocity));
            samples.push_back(static_cast<float>(sum));
        }
        more["offset"] = UniVar(offset);
        more["delrt"] = UniVar(delay);
        harness.push(samples, more);
    }

    // The corrected trace has the wavelet of `origin`, stretched as the formula says.
    void expectFlat(std::size_t trace, double origin, double offset, double velocity, double from,
                    double to, double delay = 0)
    {
        for (double time = from; time <= to; time += 0.004) {
            const auto i = static_cast<std::size_t>(std::lround((time - delay) / 0.004));
            const double exact = static_cast<double>(i) * 0.004 + delay;
            EXPECT_NEAR(
                result.traces[trace].samples[i],
                wavelet(arrival(exact, offset, velocity) - arrival(origin, offset, velocity)), 5e-4)
                << "trace " << trace << " at " << exact << " s";
        }
    }

    TextFiles files;
};

TEST_F(NmoTest, ReflectionsMoveToTheirTimesAtZeroOffset)
{
    for (const int offset : {0, 300, -900, 1500})
        pushReflections(offset, 2200, {1.0});
    add({{"times", floats({0})}, {"velocities", floats({2200})}, {"stretch", UniVar(100.0)}});

    run();

    const double offsets[] = {0, 300, 900, 1500};
    for (std::size_t trace = 0; trace < 4; ++trace) {
        expectFlat(trace, 1.0, offsets[trace], 2200, 0.9, 1.1);
        EXPECT_NEAR(result.traces[trace].samples[250], 1, 1e-3) << "the peak is at 1 s";
    }
    EXPECT_EQ(history(), "nmo velocities=2200..2200 m/s at 1 of cdp stretch=100 percent taper=0.02 "
                         "s");
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(NmoTest, VelocitiesDependOnTheTimeAtZeroOffset)
{
    pushReflections(1200, 2000, {0.8});
    pushReflections(1200, 3000, {1.6});
    add({{"times", floats({0.8, 1.6})},
         {"velocities", floats({2000, 3000})},
         {"stretch", UniVar(200.0)}});

    run();

    EXPECT_NEAR(result.traces[0].samples[200], 1, 1e-3);
    EXPECT_NEAR(result.traces[1].samples[400], 1, 1e-3);
}

TEST_F(NmoTest, VelocitiesDependOnTheLocation)
{
    // 2000 m/s at CDP 100, 3000 m/s at CDP 200: 2250 m/s at CDP 125.
    pushReflections(1000, 2000, {1.0}, {{"cdp", UniVar(90)}});
    pushReflections(1000, 2250, {1.0}, {{"cdp", UniVar(125)}});
    pushReflections(1000, 3000, {1.0}, {{"cdp", UniVar(200)}});
    add({{"times", floats({0, 0})},
         {"velocities", floats({2000, 3000})},
         {"locations", floats({100, 200})}});

    run();

    for (std::size_t trace = 0; trace < 3; ++trace)
        EXPECT_NEAR(result.traces[trace].samples[250], 1, 1e-3) << trace;
}

TEST_F(NmoTest, ATableHasTheVelocities)
{
    pushReflections(1000, 2250, {1.0}, {{"ep", UniVar(125)}});
    add({{"table", UniVar(files.write("v.csv", "ep,time,velocity,note\n100,0,2000,a\n"
                                               "200,0.5,3000,b\n200,1.5,3000,c\n"))},
         {"key", UniVar("ep")}});

    run();

    EXPECT_NEAR(result.traces[0].samples[250], 1, 1e-3);
    EXPECT_THAT(history(), HasSubstr("nmo table=v.csv velocities=2000..3000 m/s at 2 of ep"));
}

TEST_F(NmoTest, ATableWithoutLocationsIsForAllTraces)
{
    pushReflections(1000, 2500, {1.0});
    add({{"table", UniVar(files.write("v.csv", "time,velocity\n0,2500\n"))}});

    run();

    EXPECT_NEAR(result.traces[0].samples[250], 1, 1e-3);
}

TEST_F(NmoTest, TimesCountFromTheShot)
{
    pushReflections(1000, 2500, {1.0}, {}, 500);
    add({{"times", floats({0})}, {"velocities", floats({2500})}});

    run();

    EXPECT_NEAR(result.traces[0].samples[125], 1, 1e-3);
    expectFlat(0, 1.0, 1000, 2500, 0.95, 1.05, 0.5);
}

TEST_F(NmoTest, InverseGivesTheReflectionsBack)
{
    pushReflections(800, 2200, {0.8, 1.4});
    const std::map<std::string, UniVar> settings = {{"times", floats({0, 1, 2})},
                                                    {"velocities", floats({2000, 2300, 2700})},
                                                    {"stretch", UniVar(100.0)}};
    add(settings);
    auto reversed = settings;
    reversed["inverse"] = UniVar(1);
    add(reversed);

    run();

    // From 0.7 s on the mute (up to 0.22 s at zero offset) plays no part; at the end of the record
    // there are samples that the correction has lost.
    for (int i = 175; i < 440; ++i)
        EXPECT_NEAR(result.traces[0].samples[static_cast<std::size_t>(i)],
                    harness.input[0].samples[static_cast<std::size_t>(i)], 1e-3)
            << i;
    EXPECT_EQ(result.traces[0].samples[50], 0); // before reflections arrive
    EXPECT_EQ(history(), "nmo inverse velocities=2000..2700 m/s at 1 of cdp");
}

// Inverse alone: a flat event becomes the hyperbola.
TEST_F(NmoTest, InverseMovesAFlatEventToItsHyperbola)
{
    for (const int offset : {0, 600, 1200})
        harness.push({}, {{"offset", UniVar(offset)}});
    for (HarnessTrace& trace : harness.input)
        for (int i = 0; i < length; ++i)
            trace.samples.push_back(static_cast<float>(wavelet(i * 0.004 - 1.0)));
    add({{"times", floats({0})}, {"velocities", floats({2000})}, {"inverse", UniVar(1)}});

    run();

    const double offsets[] = {0, 600, 1200};
    for (std::size_t trace = 0; trace < 3; ++trace) {
        for (int i = 200; i < 400; ++i) {
            const double time = i * 0.004;
            const double delay = offsets[trace] / 2000;
            const double origin = std::sqrt(time * time - delay * delay);
            EXPECT_NEAR(result.traces[trace].samples[static_cast<std::size_t>(i)],
                        wavelet(origin - 1.0), 5e-4)
                << trace << " " << i;
        }
    }
}

// At 1800 m, the time 0 arrives at 1.2 s and 0.6 s at 1.13 s: only the order of later reflections
// is that of their times.
TEST_F(NmoTest, ReflectionsThatArriveBeforeEarlierOnesAreNotLost)
{
    const auto velocities = floats({1500, 1800, 3000});
    for (const int inverse : {0, 1}) {
        restart();
        harness.sampleInterval = interval;
        std::vector<float> samples;
        const double velocity = 1880; // at 0.6 s
        const double from = inverse == 1 ? 0.6 : arrival(0.6, 1800, velocity);
        const double to = inverse == 1 ? arrival(0.6, 1800, velocity) : 0.6;
        for (int i = 0; i < length; ++i)
            samples.push_back(
                static_cast<float>(std::exp(-std::pow((i * 0.004 - from) / 0.06, 2))));
        harness.push(samples, {{"offset", UniVar(1800)}});
        add({{"times", floats({0, 0.5, 2})},
             {"velocities", velocities},
             {"stretch", UniVar(1000.0)},
             {"inverse", UniVar(inverse)}});

        run();

        const auto& out = result.traces[0].samples;
        const auto peak = std::max_element(out.begin() + 100, out.end());
        EXPECT_GT(*peak, 0.9);
        EXPECT_NEAR(static_cast<double>(peak - out.begin()) * 0.004, to, 0.005);
    }
}

TEST_F(NmoTest, SamplesThatArriveOutOfOrderAreMuted)
{
    harness.push(std::vector<float>(length, 1), {{"offset", UniVar(1800)}});
    add({{"times", floats({0, 0.5, 2})},
         {"velocities", floats({1500, 1800, 3000})},
         {"stretch", UniVar(1e6)},
         {"taper", UniVar(0.0)}});

    run();

    // dt/dt0 = 0 where t0 v^3 = x^2 v': 600 (0.32 s) before 0.5 s.
    double turn = 0;
    for (double time = 0.1; time < 0.5; time += 1e-4)
        if (time * std::pow(1500 + 600 * time, 3) < 1800.0 * 1800 * 600)
            turn = time;
    const auto& out = result.traces[0].samples;
    for (int i = 0; i <= 400; ++i) { // behind them, the record ends before reflections arrive
        if (std::fabs(i * 0.004 - turn) < 0.005)
            continue;
        EXPECT_NEAR(out[static_cast<std::size_t>(i)], i * 0.004 < turn ? 0 : 1, 1e-3)
            << i << " of " << turn;
    }
}

TEST_F(NmoTest, AnotherWordHasTheOffset)
{
    pushReflections(1000, 2500, {1.0});
    harness.input[0].attributes["laga"] = harness.input[0].attributes["offset"];
    harness.input[0].attributes.erase("offset");
    add({{"times", floats({0})}, {"velocities", floats({2500})}, {"header", UniVar("laga")}});

    run();

    EXPECT_NEAR(result.traces[0].samples[250], 1, 1e-3);
}

TEST_F(NmoTest, TracesThatAreMutedEverywhereAreTold)
{
    pushReflections(100, 2000, {1.0}, {{"cdp", UniVar(3)}});
    pushReflections(30000, 2000, {1.0}, {{"cdp", UniVar(3)}});
    add({{"times", floats({0})}, {"velocities", floats({2000})}});

    run();

    EXPECT_THAT(result.traces[1].samples, Each(0));
    EXPECT_THAT(messages(2),
                ElementsAre(HasSubstr("trace 2 (cdp 3, offset 30000): at the offset 30000 m every "
                                      "sample is stretched by more than 50 percent"),
                            HasSubstr("1 of 2 traces were stretched everywhere")));
}

TEST_F(NmoTest, UnitsThatCannotBeMeantAreTold)
{
    pushReflections(0, 2000, {1.0});
    add({{"times", floats({0, 500})}, {"velocities", floats({1.5, 2.5})}});

    run();

    EXPECT_THAT(
        messages(2),
        ElementsAre("velocities are from 1.5 to 2.5 m/s; give them with their unit (2 km/s)",
                    "the first velocity after time 0 is at 500 s, and the traces have "
                    "2.004 s; give times with their unit (900 ms)",
                    HasSubstr("offset is 0 in all 1 traces, and none was corrected")));
}

TEST_F(NmoTest, SettingsAreRefused)
{
    const std::string wrong = files.write("v.csv", "ep,time,velocity\n1,0,2000\n");
    const std::string falling = files.write("f.csv", "time,velocity\n1,2000\n0.5,2000\n");
    const struct
    {
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {{}, "times are missing; give times and velocities, or a table"},
        {{{"times", floats({0})}}, "velocities are missing; give times and velocities, or a table"},
        {{{"times", floats({0, 1})}, {"velocities", floats({2000})}},
         "times has 2 elements and velocities has 1 element; give the same number of each"},
        {{{"times", floats({0})}, {"velocities", floats({2000})}, {"locations", floats({1, 2})}},
         "times has 1 element and locations has 2 elements; give the same number of each"},
        {{{"times", floats({0, 1})}, {"velocities", floats({2000, -1})}},
         "time 1 s: the velocity is -1 m/s; give one above 0"},
        {{{"times", floats({0})}, {"velocities", floats({2000})}, {"table", UniVar(wrong)}},
         "velocities are given as lists and as a table; give one of them"},
        {{{"table", UniVar(wrong)}},
         wrong + ": the column \"cdp\" does not exist; the columns are ep, time, velocity"},
        {{{"table", UniVar(falling)}},
         falling + ": time 0.5 s comes after 1 s; give the times of a location in ascending order"},
        {{{"times", floats({0})}, {"velocities", floats({2000})}, {"header", UniVar("x")}},
         "the traces have no header word \"x\"; name one that they have"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        harness.sampleInterval = interval;
        pushReflections(100, 2000, {1.0});
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(NmoTest, SampleIntervalIsRequired)
{
    harness.sampleInterval = 0;
    harness.push({1}, {{"offset", UniVar(1)}});
    add({{"times", floats({0})}, {"velocities", floats({2000})}});

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(NmoTest, SamplesThatAreNotFiniteCountAsZeros)
{
    harness.push({0, 0, INFINITY, 0, 0, 0}, {{"offset", UniVar(1)}});
    add({{"times", floats({0})}, {"velocities", floats({2000})}});

    run();

    EXPECT_THAT(result.traces[0].samples, Each(0));
    EXPECT_THAT(messages(2), ElementsAre(HasSubstr("samples that are infinite or NaN: 1")));
}

TEST_F(NmoTest, EmptyInputIsNoError)
{
    add({{"times", floats({0})}, {"velocities", floats({2000})}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
