// The module in a job: gathers, spacings, and events that are kept or taken out.
#include "ModuleTest.h"

#include <cmath>
#include <functional>
#include <limits>
#include <numbers>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr int samples = 250; // of 2 ms

// A wavelet of 30 Hz whose middle is at `time`.
float waveletAt(double time)
{
    const double u = std::pow(std::numbers::pi * 30 * time, 2);
    return static_cast<float>((1 - 2 * u) * std::exp(-u));
}

double energy(const std::vector<float>& trace)
{
    double sum = 0;
    for (const float sample : trace)
        sum += static_cast<double>(sample) * sample;
    return sum;
}

class FkTest : public ModuleTest
{
protected:
    FkTest() : ModuleTest("fk") {}

    using Event = std::function<double(int)>; // the time in trace i

    static Event straight(double start, double later)
    {
        return [=](int i) { return start + i * later; };
    }

    // A gather of 10 m, with the sum of the events.
    void pushGather(int fldr, int traces, const std::vector<Event>& events)
    {
        for (int i = 0; i < traces; ++i) {
            std::vector<float> trace(samples, 0.0F);
            for (int n = 0; n < samples; ++n)
                for (const Event& event : events)
                    trace[static_cast<std::size_t>(n)] += waveletAt(n * 0.002 - event(i));
            harness.push(trace, {{"fldr", UniVar(fldr)},
                                 {"tracf", UniVar(i + 1)},
                                 {"offset", UniVar(100 + 10 * i)}});
        }
    }

    // Root of the share of the energy of `wanted` that is missing or wrong in the traces from
    // `from` to `to` that came out.
    double errorOf(const Event& wanted, int from, int to)
    {
        double wrong = 0;
        double all = 0;
        for (int i = from; i < to; ++i) {
            std::vector<float> expected;
            std::vector<float> difference;
            for (int n = 0; n < samples; ++n) {
                expected.push_back(waveletAt(n * 0.002 - wanted(i)));
                difference.push_back(result.traces[static_cast<std::size_t>(i)]
                                         .samples[static_cast<std::size_t>(n)] -
                                     expected.back());
            }
            wrong += energy(difference);
            all += energy(expected);
        }
        return std::sqrt(wrong / all);
    }
};

// Level at 0.2 s, and 5000 m/s and 1000 m/s: 2 and 10 ms from trace to trace.
TEST_F(FkTest, RejectTakesTheSlowEventOut)
{
    const Event level = straight(0.2, 0);
    const Event slow = straight(0.02, 0.008);
    pushGather(1, 48, {level, slow});
    add({{"filter", UniVar("reject")},
         {"velocities", floats({0, 2000})},
         {"side", UniVar("positive")}});

    run();

    EXPECT_LT(errorOf(level, 8, 40), 0.12);
    EXPECT_EQ(result.traces.size(), 48U);
    EXPECT_THAT(all("tracf"), testing::Contains(17));
    EXPECT_THAT(messages(1), ElementsAre(HasSubstr("48 traces in 1 gather, spacing 10 m; the "
                                                   "filter keeps ")));
    EXPECT_EQ(history(), "fk filter=reject velocities=0,2000 m/s side=positive taper=20 %");
}

TEST_F(FkTest, PassKeepsIt)
{
    const Event level = straight(0.2, 0);
    const Event slow = straight(0.02, 0.008);
    pushGather(1, 48, {level, slow});
    add({{"filter", UniVar("pass")}, {"dips", floats({0.005, 0.011})}});

    run();

    EXPECT_LT(errorOf(slow, 8, 40), 0.12);
}

TEST_F(FkTest, TheSideIsThatOfTheTraceOrder)
{
    const Event later = straight(0.02, 0.006);
    const Event earlier = straight(0.4, -0.006);
    for (const char* side : {"positive", "negative"}) {
        SCOPED_TRACE(side);
        restart();
        pushGather(1, 48, {later, earlier});
        add({{"filter", UniVar("pass")},
             {"velocities", floats({1000, 3000})},
             {"side", UniVar(side)}});
        run();
        EXPECT_LT(errorOf(side == std::string("positive") ? later : earlier, 10, 38), 0.15);
    }
}

TEST_F(FkTest, PassAndRejectMakeUpTheInput)
{
    std::vector<std::vector<float>> parts;
    for (const char* filter : {"pass", "reject"}) {
        restart();
        pushGather(1, 20, {straight(0.1, 0.003), straight(0.3, -0.004)});
        add({{"filter", UniVar(filter)}, {"velocities", floats({1500, 4000})}});
        run();
        for (const HarnessTrace& trace : result.traces)
            parts.push_back(trace.samples);
    }
    ASSERT_THAT(parts, SizeIs(40));
    for (std::size_t i = 0; i < 20; ++i)
        for (std::size_t n = 0; n < samples; ++n)
            ASSERT_NEAR(parts[i][n] + parts[i + 20][n], harness.input[i].samples[n], 1e-5)
                << i << ' ' << n;
}

TEST_F(FkTest, GathersAreFilteredOneByOne)
{
    pushGather(1, 20, {straight(0.1, 0.003)});
    add({{"filter", UniVar("pass")}, {"velocities", floats({2000, 6000})}});
    run();
    const std::vector<HarnessTrace> alone = result.traces;

    restart();
    pushGather(7, 9, {straight(0.3, -0.004)});
    pushGather(1, 20, {straight(0.1, 0.003)});
    pushGather(9, 41, {straight(0.0, 0.01)});
    add({{"filter", UniVar("pass")}, {"velocities", floats({2000, 6000})}});
    run();

    ASSERT_THAT(result.traces, SizeIs(70));
    for (std::size_t i = 0; i < 20; ++i)
        for (std::size_t n = 0; n < samples; ++n)
            ASSERT_NEAR(result.traces[9 + i].samples[n], alone[i].samples[n], 1e-5);
    EXPECT_THAT(messages(1), ElementsAre(StartsWith("70 traces in 3 gathers, spacing 10 m")));
}

TEST_F(FkTest, WithoutAFilterTracesPassUnchanged)
{
    pushGather(1, 12, {straight(0.1, 0.003)});
    add();

    run();

    ASSERT_THAT(result.traces, SizeIs(12));
    for (std::size_t i = 0; i < 12; ++i)
        EXPECT_EQ(result.traces[i].samples, harness.input[i].samples);
    ASSERT_THAT(result.pads, SizeIs(1));
}

// 6 ms from trace to trace of 10 m: at 30 Hz 0.018 1/m.
TEST_F(FkTest, ThePictureHasTheEventWhereItsDipIs)
{
    pushGather(1, 40, {straight(0.05, 0.006)});
    add({{"fmax", UniVar(100.0)}});

    run();

    const HarnessPad& pad = result.pads.at(0);
    EXPECT_THAT(pad.title, HasSubstr("\nx: wavenumber (1/m)\ny: frequency (Hz)\n"));
    EXPECT_THAT(pad.title, HasSubstr("\nvalues: -60 0\n"));
    const std::string range = pad.title.substr(pad.title.find("xrange: ") + 8);
    const double left = std::stod(range);
    const double right = std::stod(range.substr(range.find(' ')));
    const std::string rows = pad.title.substr(pad.title.find("yrange: ") + 8);
    const double bottom = std::stod(rows);
    const double top = std::stod(rows.substr(rows.find(' ')));
    EXPECT_NEAR(left, -0.05, 0.001);
    EXPECT_NEAR(right, 0.05, 0.002);
    EXPECT_NEAR(top, 100, 3);
    // Of each frequency from 20 to 40 Hz, the strongest wavenumber.
    const std::size_t count = pad.traces[0].size();
    for (std::size_t row = 0; row < count; ++row) {
        const double f = top - (static_cast<double>(row) + 0.5) * (top - bottom) / count;
        if (f < 20 || f > 40)
            continue;
        std::size_t best = 0;
        for (std::size_t i = 0; i < pad.traces.size(); ++i)
            if (pad.traces[i][row] > pad.traces[best][row])
                best = i;
        const double width = (right - left) / static_cast<double>(pad.traces.size());
        EXPECT_NEAR(left + (static_cast<double>(best) + 0.5) * width, f * 0.0006, 0.6 * width) << f;
    }
}

TEST_F(FkTest, AFilterHasASecondPictureAndItsEdges)
{
    pushGather(1, 40, {straight(0.2, 0), straight(0.05, 0.006)});
    add({{"filter", UniVar("reject")}, {"velocities", floats({1000, 2500})}});

    run();

    ASSERT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(result.pads[0].title, StartsWith("module1: f-k spectrum, before the filter\n"));
    EXPECT_THAT(result.pads[1].title, StartsWith("module1: f-k spectrum, after the filter\n"));
    ASSERT_THAT(result.pads[0].commands, SizeIs(9)); // a pen, and four lines
    // 2500 m/s, on the left: at the Nyquist frequency of 250 Hz, 0.1 1/m is beyond 0.05.
    EXPECT_NEAR(result.pads[0].commands[2].xpage, -0.05, 1e-6);
    EXPECT_NEAR(result.pads[0].commands[2].ypage, 125, 1e-3);
    float before = -100;
    float after = -100;
    for (std::size_t i = 0; i < result.pads[0].traces.size(); ++i) {
        // The cell of 30 Hz and 0.018 1/m.
        const std::size_t row = result.pads[0].traces[0].size() - 1 -
                                static_cast<std::size_t>(std::lround(30 / (500.0 / 384)));
        if (i != static_cast<std::size_t>(std::lround((0.18 + 0.5) * 80)))
            continue;
        before = result.pads[0].traces[i][row];
        after = result.pads[1].traces[i][row];
    }
    EXPECT_GT(before, -15);
    EXPECT_LT(after, -40);
}

TEST_F(FkTest, TheSpacingMayBeGiven)
{
    for (int i = 0; i < 10; ++i)
        harness.push({1, 2, static_cast<float>(i)}, {{"fldr", UniVar(1)}, {"offset", UniVar(0)}});
    add({{"spacing", UniVar(25.0)}});

    run();

    EXPECT_THAT(messages(1), ElementsAre("10 traces in 1 gather, spacing 25 m"));
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(FkTest, WithoutASpacingWavenumbersArePerTrace)
{
    for (int i = 0; i < 10; ++i)
        harness.push({1, 2, static_cast<float>(i)}, {{"fldr", UniVar(4)}, {"offset", UniVar(0)}});
    add();

    run();

    EXPECT_THAT(result.pads[0].title, HasSubstr("\nx: wavenumber (1/trace)\n"));
    EXPECT_THAT(messages(2),
                ElementsAre("fldr 4: most neighbours have the same offset, so the distance of "
                            "traces is not known: wavenumbers are those per trace; give spacing, "
                            "or another word"));
}

TEST_F(FkTest, VelocitiesNeedASpacing)
{
    for (int i = 0; i < 10; ++i)
        harness.push({1, 2, static_cast<float>(i)}, {{"fldr", UniVar(4)}, {"offset", UniVar(0)}});
    add({{"filter", UniVar("pass")}, {"velocities", floats({1, 2})}});

    runInVain("fldr 4: most neighbours have the same offset, so the distance of traces is not "
              "known; give spacing, or another word");
}

TEST_F(FkTest, UnevenGathersAreTold)
{
    for (const int offset : {0, 10, 20, 40, 50})
        harness.push({1, 2, 3}, {{"fldr", UniVar(4)}, {"offset", UniVar(offset)}});
    add();

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("1 of 1 gathers have traces that are not evenly spaced, the first is "
                            "fldr 4; their median spacing is used"));
}

TEST_F(FkTest, SmallGathersStayAsTheyAre)
{
    harness.push({1, 2, 3}, {{"fldr", UniVar(4)}});
    harness.push({4, 5, 6}, {{"fldr", UniVar(5)}});
    add({{"filter", UniVar("pass")}, {"dips", floats({1, 2})}, {"picture", UniVar(0)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(1, 2, 3));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(4, 5, 6));
    EXPECT_THAT(messages(2), ElementsAre(StartsWith("2 of 2 gathers have fewer than 3 traces")));
}

TEST_F(FkTest, AllTracesMayBeOneGather)
{
    for (int i = 0; i < 5; ++i)
        harness.push({1, 2, 3}, {{"fldr", UniVar(i)}, {"offset", UniVar(0)}});
    add({{"whole", UniVar(1)}, {"spacing", UniVar(12.5)}});

    run();

    EXPECT_THAT(messages(1), ElementsAre("5 traces in 1 gather, spacing 12.5 m"));
}

TEST_F(FkTest, SamplesThatAreNotFiniteCountAsZeros)
{
    harness.push({1, std::numeric_limits<float>::quiet_NaN()}, {{"fldr", UniVar(1)}});
    harness.push({1, 2}, {{"fldr", UniVar(1)}});
    harness.push({1, 2}, {{"fldr", UniVar(1)}});
    add({{"filter", UniVar("reject")}, {"dips", floats({0.5, 1})}, {"picture", UniVar(0)}});

    run();

    for (const HarnessTrace& trace : result.traces)
        for (const float sample : trace.samples)
            EXPECT_TRUE(std::isfinite(sample));
    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 1, in traces: 1; they "
                                         "count as 0"));
}

TEST_F(FkTest, EmptyInputAndSilenceHaveNoPicture)
{
    add();
    run();
    EXPECT_THAT(messages(2), ElementsAre("no trace arrived; there is no spectrum"));

    restart();
    for (int i = 0; i < 3; ++i)
        harness.push({0, 0}, {{"fldr", UniVar(1)}, {"offset", UniVar(i)}});
    add();
    run();
    EXPECT_THAT(result.pads, IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("all samples are 0; there is no spectrum"));
}

TEST_F(FkTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"filter", UniVar("pass")}},
         "filter is pass and there is no range; give velocities or dips"},
        {{{"dips", floats({0, 1})}},
         "a range of dips is given and filter is none; give pass or reject as filter"},
        {{{"filter", UniVar("pass")}, {"dips", floats({0, 1})}, {"velocities", floats({0, 1})}},
         "velocities and dips are both given; give one of them"},
        {{{"filter", UniVar("pass")}, {"velocities", floats({2000, 1000})}},
         "velocities are 2000 m/s and 1000 m/s; give the lower one first"},
        {{{"picture", UniVar(0)}}, "there is nothing to do; give a filter, or let picture be true"},
        {{{"gather", UniVar("nothing")}},
         "the traces have no header word \"nothing\"; name one that they have"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushGather(1, 4, {straight(0.1, 0)});
        add(row.parameters);
        runInVain(row.message);
    }
}

TEST_F(FkTest, MemoryHasALimit)
{
    pushGather(1, 4, {straight(0.1, 0)});
    add({{"memory_limit", UniVar(1)}});

    runInVain("the transform of 1 traces of 250 samples would need 34 MB of memory, and "
              "memory_limit is 1 MB; raise memory_limit, or gather by another word, or shorten "
              "the traces");
}

} // namespace
