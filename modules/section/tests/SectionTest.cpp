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
    std::map<std::string, double> values; // of its attributes
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
        const std::string label = labelOf(set);
        self->labelName = label;
        for (int i = 0; i < set.getNumberOfTraces(); ++i) {
            const SeisTrace* trace = set.getTrace(i, true);
            std::map<std::string, double> values;
            for (const std::string& name : set.getAttributesList())
                values[name] = set.getAttribute(name, i).getF64Value();
            self->shown.push_back(
                {values, ident,
                 Samples(trace->traceSamples, trace->traceSamples + trace->traceLength),
                 set.getAttribute(label, i).getF64Value(),
                 set.getAttribute("delrt", i).getI32Value(), set.getTraceSampleInterval()});
        }
        return 0;
    }

    // The attribute that no other directive than xattr names.
    static std::string labelOf(SeisTraceSet& set)
    {
        std::string label;
        for (const std::string& name : set.getAttributesList()) {
            if (name != "delrt" && name != "fldr" && name != "offset" && name != "pick")
                label = name;
        }
        return label;
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
         {"ylabel", UniVar("lag (s)")},
         {"note", UniVar("raw")}});

    run();

    EXPECT_EQ(title(), "one mode: two");
    EXPECT_EQ(directive("mode"), "wiggle");
    EXPECT_EQ(directive("colormap"), "seismic");
    EXPECT_EQ(directive("clip"), "99.5");
    EXPECT_EQ(directive("gain"), "2");
    EXPECT_EQ(directive("x"), "trace");
    EXPECT_EQ(directive("note"), "raw");
    EXPECT_EQ(directive("y"), "lag (s)");
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
    EXPECT_EQ(directive("y"), "");
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

// Three shots of two channels; the second trace has no pick.
class AnnotatedSectionTest : public SectionTest
{
protected:
    void pushShots(double unit = 1)
    {
        harness.define("pick", 5);
        for (int i = 0; i < 6; ++i)
            harness.push(Samples(4, 1.0F), {{"fldr", UniVar(10 + i / 2)},
                                            {"tracf", UniVar(i % 2 + 1)},
                                            {"offset", UniVar(100 * i)},
                                            {"delrt", UniVar(0)},
                                            {"pick", UniVar(i == 1 ? 0.0 : unit * i / 2)}});
    }

    std::vector<double> allShown(const std::string& name) const
    {
        std::vector<double> values;
        for (const ShownTrace& trace : shown)
            values.push_back(trace.values.at(name));
        return values;
    }
};

TEST_F(AnnotatedSectionTest, GathersSecondLabelsAndPicksGoToThePad)
{
    pushShots();
    add({{"gather", UniVar("fldr")},
         {"xattr", UniVar("tracf")},
         {"xattr2", UniVar("offset")},
         {"picks", UniVar("pick")}});

    run();

    EXPECT_EQ(directive("gather"), "fldr");
    EXPECT_EQ(directive("xattr"), "tracf");
    EXPECT_EQ(directive("xattr2"), "offset");
    EXPECT_EQ(directive("picks"), "pick");
    EXPECT_EQ(directive("pickunit"), "ms");
    EXPECT_EQ(directive("pickmark"), "line");
    EXPECT_THAT(allShown("fldr"), ElementsAre(10, 10, 11, 11, 12, 12));
    EXPECT_THAT(allShown("tracf"), ElementsAre(1, 2, 1, 2, 1, 2));
    EXPECT_THAT(allShown("offset"), ElementsAre(0, 100, 200, 300, 400, 500));
    EXPECT_THAT(allShown("pick"), ElementsAre(0, 0, 1, 1.5, 2, 2.5));
    EXPECT_THAT(messages(1), ElementsAre("traces drawn: 6 of 6", "picks: 4 in 6 traces"));
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(AnnotatedSectionTest, EachGatherCanHaveAPicture)
{
    pushShots();
    add({{"gather", UniVar("fldr")}, {"pictures", UniVar("gather")}, {"title", UniVar("shots")}});

    run();

    ASSERT_THAT(result.pads, SizeIs(3));
    EXPECT_THAT(result.pads[0].title,
                testing::StartsWith("shots, fldr 10\nname: module1-fldr-10\n"));
    EXPECT_THAT(result.pads[2].title,
                testing::StartsWith("shots, fldr 12\nname: module1-fldr-12\n"));
    ASSERT_THAT(shown, SizeIs(6));
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_EQ(shown[i].pad, result.pads[i / 2].ident) << i;
    EXPECT_THAT(messages(1), ElementsAre("traces drawn: 6 of 6"));
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(AnnotatedSectionTest, MostTracesAreThoseOfEachPicture)
{
    pushShots();
    add({{"gather", UniVar("fldr")}, {"pictures", UniVar("gather")}, {"max_traces", UniVar(1)}});

    run();

    EXPECT_THAT(allShown("fldr"), ElementsAre(10, 11, 12));
    EXPECT_THAT(messages(2), ElementsAre("pictures end after 1 trace; 3 more are left out; raise "
                                         "max_traces"));
}

TEST_F(AnnotatedSectionTest, ThereAreNoMorePicturesThanAsked)
{
    pushShots();
    add({{"gather", UniVar("fldr")}, {"pictures", UniVar("gather")}, {"max_pictures", UniVar(2)}});

    run();

    EXPECT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(allShown("fldr"), ElementsAre(10, 10, 11, 11));
    EXPECT_THAT(result.traces, SizeIs(6));
    EXPECT_THAT(messages(2), ElementsAre("the first 2 gathers have a picture; 1 is left out; "
                                         "raise max_pictures"));
}

TEST_F(AnnotatedSectionTest, PicturesOfGathersNeedTheirWord)
{
    pushShots();
    add({{"pictures", UniVar("gather")}});

    runInVain("pictures is gather, and no header word tells gathers apart; name one with gather");
}

TEST_F(AnnotatedSectionTest, WithoutThemThePadIsToldNothing)
{
    pushShots();
    add();

    run();

    for (const char* key : {"gather", "xattr2", "picks", "pickunit", "pickmark"})
        EXPECT_EQ(directive(key), "") << key;
}

TEST_F(AnnotatedSectionTest, PicksCanBeSecondsAndCrosses)
{
    pushShots(1e-3);
    add({{"picks", UniVar("pick")}, {"picks_unit", UniVar("s")}, {"picks_as", UniVar("cross")}});

    run();

    EXPECT_EQ(directive("pickunit"), "s");
    EXPECT_EQ(directive("pickmark"), "cross");
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(AnnotatedSectionTest, PicksInTheWrongUnitGiveAWarning)
{
    pushShots(); // milliseconds; the traces end at 6 ms
    add({{"picks", UniVar("pick")}, {"picks_unit", UniVar("s")}});

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("picks outside of their traces: 4 of 4; the first is at 1 s, of trace "
                            "3, where pick is taken as s; picks_unit says in which unit it is"));
}

TEST_F(AnnotatedSectionTest, PicksBelowAWindowAreNotOutsideOfTheirTraces)
{
    pushShots();
    add({{"picks", UniVar("pick")}, {"tmax", UniVar(0.002)}});

    run();

    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(AnnotatedSectionTest, PicksThatAreAllZeroGiveAWarning)
{
    pushShots(0);
    add({{"picks", UniVar("pick")}});

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("no trace that is drawn has a pick: pick is 0 in all of them"));
}

TEST_F(AnnotatedSectionTest, WordsThatTheTracesLackAreLeftOutWithAWarning)
{
    pushShots();
    add({{"gather", UniVar("shot")}, {"xattr2", UniVar("x")}, {"picks", UniVar("first\nbreak")}});

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("the traces have no header word \"x\"; there is no second row of "
                            "labels; name another with xattr2",
                            "the traces have no header word \"shot\"; they are drawn without "
                            "gaps; name another with gather",
                            "the traces have no header word \"first break\"; no picks are drawn; "
                            "name another with picks"));
    EXPECT_EQ(directive("gather"), "");
    EXPECT_EQ(directive("picks"), "");
    EXPECT_THAT(shown, SizeIs(6));
}

TEST_F(AnnotatedSectionTest, PicksNeedASampleInterval)
{
    pushShots();
    harness.sampleInterval = 0;
    add({{"picks", UniVar("pick")}});

    runInVain("the input has no sample interval, which picks need; the module before this one has "
              "to set it");
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
