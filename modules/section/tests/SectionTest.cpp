#include "../section_window.h"
#include "JobManager.h"
#include "KernelFixture.h"
#include "ModuleTest.h"
#include "SegyBytes.h"
#include "SeisTraceSet.h"

#include <cmath>
#include <limits>
#include <sstream>

namespace {

using testing::DoubleNear;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr float noNumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();
constexpr double unlimited = std::numeric_limits<double>::infinity();

using Samples = std::vector<float>;

// ---- Window ----

TEST(SectionWindowTest, WindowHoldsTheSamplesFromFirstToLastTime)
{
    const struct
    {
        int samples, delay;
        double interval, from, to;
        int first, count;
    } rows[] = {
        {100, 0, 0.004, -unlimited, unlimited, 0, 100},
        {100, 0, 0.004, 0, 0.396, 0, 100},
        {100, 0, 0.004, 0.1, 0.2, 25, 26},     // both ends are samples
        {100, 0, 0.004, 0.101, 0.199, 26, 24}, // neither is
        {100, 200, 0.004, 0.1, 0.3, 0, 26},    // before the delay is nothing
        {100, 200, 0.004, 0.3, 9, 25, 75},
        {100, -100, 0.004, 0, 0.02, 25, 6},
        {100, 0, 0.004, 0.5, 0.9, 100, 0},
        {100, 200, 0.004, 0, 0.1, 0, 0},
        {100, 0, 0, 0.1, 0.2, 0, 100}, // no interval, no time
        {0, 0, 0.004, 0, 1, 0, 0},
        {2000, 0, 0.00025, 0.3, 0.3001, 1200, 1},
    };
    for (const auto& row : rows) {
        const SectionWindow window =
            sectionWindow(row.samples, row.delay, row.interval, row.from, row.to);
        EXPECT_EQ(window.samples, row.count) << row.from << " to " << row.to << " s";
        if (row.count > 0) {
            EXPECT_EQ(window.first, row.first) << row.from << " to " << row.to << " s";
        }
    }
}

TEST(SectionWindowTest, WindowBeginsAtTheTimeOfItsFirstSample)
{
    EXPECT_THAT(sectionWindow(100, 200, 0.004, 0.25, 0.3).start(), DoubleNear(0.252, 1e-12));
    EXPECT_EQ(sectionWindow(100, 200, 0.004, -unlimited, unlimited).start(), 0.2);
}

TEST(SectionWindowTest, TracesAreMovedByTheirDelay)
{
    const Samples trace = {1, 2, 3, 4};
    const SectionWindow whole{0, 4, 100, 0.01};
    const SectionWindow part{1, 2, 100, 0.01};
    EXPECT_THAT(samplesInWindow(whole, trace, 100), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(samplesInWindow(whole, trace, 120), ElementsAre(0, 0, 1, 2));
    EXPECT_THAT(samplesInWindow(whole, trace, 90), ElementsAre(2, 3, 4, 0));
    EXPECT_THAT(samplesInWindow(whole, trace, 5000), Each(0));
    EXPECT_THAT(samplesInWindow(whole, trace, std::numeric_limits<int>::min()), Each(0));
    EXPECT_THAT(samplesInWindow(part, trace, 100), ElementsAre(2, 3));
    EXPECT_THAT(samplesInWindow(part, trace, 120), ElementsAre(0, 1));
}

TEST(SectionWindowTest, ShortTracesAreFilledWithZeros)
{
    EXPECT_THAT(samplesInWindow({0, 4, 0, 0.01}, Samples{1, 2}, 0), ElementsAre(1, 2, 0, 0));
    EXPECT_THAT(samplesInWindow({0, 2, 0, 0}, Samples{}, 7), ElementsAre(0, 0));
}

TEST(SectionWindowTest, OddSamplesAreCounted)
{
    EXPECT_EQ(oddSamples(Samples{1, noNumber, 0, infinite, -infinite, 2}), 3);
    EXPECT_EQ(oddSamples(Samples{}), 0);
}

TEST(SectionWindowTest, StepThatLeavesFewEnough)
{
    const struct
    {
        int64_t total, most, step;
    } rows[] = {{1, 2000, 1}, {2000, 2000, 1}, {2001, 2000, 2}, {4000, 2000, 2}, {9, 2, 5}};
    for (const auto& row : rows) {
        EXPECT_EQ(evenStep(row.total, row.most), row.step) << row.total << " of " << row.most;
        EXPECT_LE((row.total + row.step - 1) / row.step, row.most) << row.total;
    }
}

// ---- In a job ----

struct ShownTrace
{
    int pad;
    Samples samples;
    double label;
    int delay;
    int interval;
};

// The harness keeps pads and pen commands; the traces are kept here.
class SectionTest : public ModuleTest
{
protected:
    SectionTest() : ModuleTest("section")
    {
        JobManager::getInstance()->installAddTraceToPadFuncFunc(onTrace, this);
    }
    ~SectionTest() override
    {
        JobManager::getInstance()->installAddTraceToPadFuncFunc(nullptr, nullptr);
    }

    static int onTrace(int ident, void* traces, void* test)
    {
        auto* self = static_cast<SectionTest*>(test);
        auto& set = *static_cast<SeisTraceSet*>(traces);
        std::string label;
        for (const std::string& name : set.getAttributesList()) {
            if (name != "delrt")
                label = name;
        }
        self->labelName = label;
        for (int i = 0; i < set.getNumberOfTraces(); ++i) {
            const SeisTrace* trace = set.getTrace(i, true);
            self->shown.push_back(
                {ident, Samples(trace->traceSamples, trace->traceSamples + trace->traceLength),
                 set.getAttribute(label, i).getF64Value(),
                 set.getAttribute("delrt", i).getI32Value(), set.getTraceSampleInterval()});
        }
        return 0;
    }

    // Traces of four samples that tell their number.
    void push(int traces)
    {
        for (int i = 1; i <= traces; ++i) {
            const auto n = static_cast<float>(i);
            harness.push({n, n + 0.25f, n + 0.5f, n + 0.75f},
                         {{"tracf", UniVar(100 + i)}, {"delrt", UniVar(0)}});
        }
    }

    std::vector<double> labels() const
    {
        std::vector<double> values;
        for (const ShownTrace& trace : shown)
            values.push_back(trace.label);
        return values;
    }

    std::string title()
    {
        return result.pads.at(0).title.substr(0, result.pads[0].title.find('\n'));
    }

    std::string directive(const std::string& key)
    {
        std::istringstream lines(result.pads.at(0).title);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind(key + ": ", 0) == 0)
                return line.substr(key.size() + 2);
        }
        return "";
    }

    std::vector<ShownTrace> shown;
    std::string labelName;
};

TEST_F(SectionTest, TracesAreShownAndGoOn)
{
    push(3);
    add();

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    EXPECT_EQ(result.pads[0].type, 1);
    ASSERT_THAT(shown, SizeIs(3));
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(shown[i].pad, result.pads[0].ident);
        EXPECT_EQ(shown[i].samples, harness.input[i].samples);
        EXPECT_EQ(shown[i].interval, 2000);
        EXPECT_EQ(result.traces[i].samples, harness.input[i].samples);
    }
    EXPECT_THAT(all("tracf"), ElementsAre(101, 102, 103));
    EXPECT_THAT(labels(), ElementsAre(1, 2, 3));
    EXPECT_THAT(messages(1), ElementsAre("traces drawn: 3 of 3"));
    EXPECT_THAT(messages(2), IsEmpty());
    EXPECT_EQ(history(), "");
}

TEST_F(SectionTest, WithoutAnOutputItIsASink)
{
    push(3);
    harness.withSink = false;
    add();

    run();

    EXPECT_THAT(shown, SizeIs(3));
}

TEST_F(SectionTest, EachTraceIsShownOnceWhenSeveralComeTogether)
{
    push(5);
    harness.tracesPerCall = 3;
    add();

    run();

    EXPECT_THAT(labels(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(all("tracf"), ElementsAre(101, 102, 103, 104, 105));
}

TEST_F(SectionTest, ThePadIsToldHowToDraw)
{
    push(1);
    add({{"mode", UniVar("wiggle")},
         {"colormap", UniVar("seismic")},
         {"clip", UniVar(99.5)},
         {"gain", UniVar(2)},
         {"title", UniVar("one\nmode: two")},
         {"note", UniVar("raw")}});

    run();

    EXPECT_EQ(title(), "one mode: two");
    EXPECT_EQ(directive("mode"), "wiggle");
    EXPECT_EQ(directive("colormap"), "seismic");
    EXPECT_EQ(directive("clip"), "99.5");
    EXPECT_EQ(directive("gain"), "2");
    EXPECT_EQ(directive("x"), "trace");
    EXPECT_EQ(directive("note"), "raw");
}

TEST_F(SectionTest, DefaultsAreADensityOfGraysClippedAtNinetyEightPercent)
{
    push(1);
    add();

    run();

    EXPECT_EQ(title(), "module1");
    EXPECT_EQ(directive("mode"), "density");
    EXPECT_EQ(directive("colormap"), "gray");
    EXPECT_EQ(directive("clip"), "98");
    EXPECT_EQ(directive("gain"), "1.2");
    EXPECT_EQ(directive("note"), "");
}

TEST_F(SectionTest, AHeaderWordLabelsTheTraces)
{
    push(3);
    add({{"xattr", UniVar("tracf")}});

    run();

    EXPECT_EQ(labelName, "tracf");
    EXPECT_EQ(directive("xattr"), "tracf");
    EXPECT_EQ(directive("x"), "tracf");
    EXPECT_THAT(labels(), ElementsAre(101, 102, 103));
}

TEST_F(SectionTest, TracesWithoutTheHeaderWordAreNumbered)
{
    push(2);
    add({{"xattr", UniVar("azimuth")}});

    run();

    EXPECT_EQ(directive("xattr"), labelName);
    EXPECT_THAT(labels(), ElementsAre(1, 2));
    EXPECT_THAT(messages(2), ElementsAre("the traces have no header word \"azimuth\"; they are "
                                         "numbered instead; name another with xattr"));
}

TEST_F(SectionTest, EveryThirdTraceIsDrawn)
{
    push(8);
    add({{"every", UniVar(3)}, {"note", UniVar("raw")}});

    run();

    EXPECT_THAT(labels(), ElementsAre(1, 4, 7));
    EXPECT_EQ(directive("note"), "one trace of 3 is drawn; raw");
    EXPECT_THAT(result.traces, SizeIs(8));
}

TEST_F(SectionTest, ThePictureIsFullAfterSoManyTraces)
{
    push(7);
    add({{"max_traces", UniVar(3)}});

    run();

    EXPECT_THAT(labels(), ElementsAre(1, 2, 3));
    EXPECT_THAT(result.traces, SizeIs(7));
    EXPECT_THAT(messages(2), ElementsAre("the picture ends after 3 traces; 4 more are left out; "
                                         "raise max_traces, or see them all with every: 3"));
}

TEST_F(SectionTest, TimesCutTheTraces)
{
    push(2);
    add({{"tmin", UniVar(0.002)}, {"tmax", UniVar(0.005)}});

    run();

    ASSERT_THAT(shown, SizeIs(2));
    EXPECT_THAT(shown[1].samples, ElementsAre(2.25f, 2.5f));
    EXPECT_EQ(shown[1].delay, 2);
    EXPECT_THAT(result.traces[1].samples, SizeIs(4));
}

TEST_F(SectionTest, DelaysMoveTracesAgainstTheFirst)
{
    push(3);
    const int delays[] = {10, 14, 8};
    for (std::size_t i = 0; i < 3; ++i)
        harness.input[i].attributes["delrt"] = UniVar(delays[i]);
    add();

    run();

    ASSERT_THAT(shown, SizeIs(3));
    EXPECT_THAT(shown[0].samples, ElementsAre(1, 1.25f, 1.5f, 1.75f));
    EXPECT_THAT(shown[1].samples, ElementsAre(0, 0, 2, 2.25f));
    EXPECT_THAT(shown[2].samples, ElementsAre(3.25f, 3.5f, 3.75f, 0));
    EXPECT_EQ(shown[0].delay, 10);
}

TEST_F(SectionTest, OddSamplesAreSaid)
{
    push(2);
    harness.input[1].samples[2] = noNumber;
    harness.input[1].samples[3] = infinite;
    add();

    run();

    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 2; they are "
                                         "drawn as 0"));
}

TEST_F(SectionTest, WithoutTracesThePictureIsEmpty)
{
    add();

    run();

    EXPECT_THAT(result.pads, SizeIs(1));
    EXPECT_THAT(shown, IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("no trace arrived; the picture is empty"));
}

TEST_F(SectionTest, AfterAFailureBeforeItNothingIsSaidOfTheEmptyPicture)
{
    push(2);
    add({{"mode", UniVar("colour")}});
    add();

    result = harness.run();

    EXPECT_THAT(messages(2), IsEmpty());
    EXPECT_THAT(shown, IsEmpty());
}

TEST_F(SectionTest, TracesWithoutSamplesPass)
{
    harness.push({}, {{"tracf", UniVar(7)}});
    add();

    run();

    EXPECT_THAT(all("tracf"), ElementsAre(7));
}

TEST_F(SectionTest, WithoutASampleIntervalThePictureShowsSamples)
{
    push(2);
    harness.sampleInterval = 0;
    harness.input[1].attributes["delrt"] = UniVar(500);
    add();

    run();

    ASSERT_THAT(shown, SizeIs(2));
    EXPECT_EQ(shown[1].samples, harness.input[1].samples);
}

TEST_F(SectionTest, TwoSectionsHavePadsOfTheirOwn)
{
    push(2);
    add({{"every", UniVar(2)}});
    add();

    run();

    ASSERT_THAT(result.pads, SizeIs(2));
    EXPECT_NE(result.pads[0].ident, result.pads[1].ident);
    EXPECT_THAT(shown, SizeIs(3));
}

TEST_F(SectionTest, TheTitleNamesTheFile)
{
    const TemporaryDirectory directory;
    const std::string file = directory / "line.sgy";
    ieeeFile(2, 4).write(file);
    harness.withSource = false;
    harness.add("read", "libsegy_in.so").parameters["file"] = UniVar(file);
    add();

    run();

    EXPECT_EQ(title(), "module1: line.sgy");
    EXPECT_THAT(shown, SizeIs(2));
}

TEST_F(SectionTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"mode", UniVar("colour")}}, "mode is \"colour\"; give density or wiggle"},
        {{{"colormap", UniVar("grey")}},
         "colormap is \"grey\"; give gray, seismic or black-white-red"},
        {{{"clip", UniVar(0)}}, "clip is 0 percent; give a number above 0 and at most 100"},
        {{{"clip", UniVar(100.5)}}, "clip is 100.5 percent; give a number above 0 and at most 100"},
        {{{"gain", UniVar(std::nan(""))}},
         "gain is nan traces; give a number above 0 and at most 100"},
        {{{"every", UniVar(0)}}, "every is 0 traces; give a whole number of at least 1"},
        {{{"max_traces", UniVar(-1)}},
         "max_traces is -1 traces; give a whole number of at least 1"},
        {{{"tmin", UniVar(unlimited)}}, "tmin is inf s; give a finite number"},
        {{{"tmin", UniVar(2.0)}, {"tmax", UniVar(1.0)}},
         "tmin is 2 s and tmax is 1 s; tmin must be below tmax"},
        {{{"tmin", UniVar(0.5)}},
         "the first trace has no sample from tmin to tmax; it begins at 0 s and ends at 0.006 s"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        push(2);
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(SectionTest, TimesNeedASampleInterval)
{
    push(1);
    harness.sampleInterval = 0;
    add({{"tmax", UniVar(1.0)}});

    runInVain("the input has no sample interval, which tmin and tmax need; the module before this "
              "one has to set it");
}

} // namespace
