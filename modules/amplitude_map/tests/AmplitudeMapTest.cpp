// Maps as the host gets them: labels, edges, and the value of each bin.
#include "ModuleTest.h"

#include <cmath>

namespace {

using testing::ElementsAre;
using testing::FloatNear;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsNan;
using testing::Not;
using testing::SizeIs;

class AmplitudeMapTest : public ModuleTest
{
protected:
    AmplitudeMapTest() : ModuleTest("amplitude_map") {}

    void pushAt(int x, int y, std::vector<float> samples = {1, 2}, int scalco = 1, int offset = 0)
    {
        harness.push(std::move(samples), {{"cdpx", UniVar(x)},
                                          {"cdpy", UniVar(y)},
                                          {"scalco", UniVar(scalco)},
                                          {"iline", UniVar(y)},
                                          {"xline", UniVar(x)},
                                          {"offset", UniVar(offset)},
                                          {"delrt", UniVar(0)}});
    }

    const HarnessPad& map() { return result.pads.at(0); }
};

TEST_F(AmplitudeMapTest, FoldCountsTheTracesOfEachBin)
{
    pushAt(100, 500);
    pushAt(100, 500);
    pushAt(125, 500);
    pushAt(100, 550);
    add({{"bin", floats({25})}});

    run();

    ASSERT_THAT(map().traces, SizeIs(2));
    EXPECT_THAT(map().traces[0], ElementsAre(1, IsNan(), 2)); // from the north
    EXPECT_THAT(map().traces[1], ElementsAre(IsNan(), IsNan(), 1));
    EXPECT_THAT(map().title, HasSubstr("module1: fold by cdpx and cdpy\nmode: image\n"
                                       "xrange: 87.5 137.5\nyrange: 487.5 562.5\n"
                                       "x: cdpx\ny: cdpy\ncolormap: blue-yellow\n"
                                       "bar: fold (traces per bin)\nvalues: 0 2\nwhole: values\n"
                                       "scales: equal\n"));
    EXPECT_THAT(result.traces, SizeIs(4));
    EXPECT_THAT(messages(1), ElementsAre("fold: 1 to 2 in 3 bins of 25 by 25 with 4 traces"));
    EXPECT_EQ(result.moduleMetadata["module1"]["qc.map.greatest"], "2");
}

TEST_F(AmplitudeMapTest, RmsIsThatOfAllSamplesOfABinInTheWindow)
{
    pushAt(1, 1, {9, 3, 4, 9});
    pushAt(1, 1, {9, 0, 5, 9});
    pushAt(2, 1, {9, -6, NAN, 9});
    add({{"measure", UniVar("rms")},
         {"x", UniVar("xline")},
         {"y", UniVar("iline")},
         {"tmin", UniVar(0.002)},
         {"tmax", UniVar(0.004)}});

    run();

    EXPECT_THAT(map().traces[0], ElementsAre(FloatNear(std::sqrt(50.0F / 4), 1e-6F)));
    EXPECT_THAT(map().traces[1], ElementsAre(6));
    EXPECT_THAT(map().title, HasSubstr("\nbar: RMS amplitude from 0.002 s to 0.004 s\n"));
    EXPECT_THAT(map().title, HasSubstr("\nwhole: x y\n"));
    EXPECT_THAT(map().title, Not(HasSubstr("scales")));
    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 1; they are left out"));
}

TEST_F(AmplitudeMapTest, TracesBesideTheWindowAreLeftOut)
{
    harness.push({1, 2, 3}, {{"xline", UniVar(1)}, {"iline", UniVar(1)}, {"delrt", UniVar(100)}});
    harness.push({5, 6, 7}, {{"xline", UniVar(2)}, {"iline", UniVar(1)}, {"delrt", UniVar(0)}});
    add({{"measure", UniVar("rms")},
         {"x", UniVar("xline")},
         {"y", UniVar("iline")},
         {"tmin", UniVar(0.102)}});

    run();

    EXPECT_THAT(map().traces, ElementsAre(ElementsAre(FloatNear(std::sqrt(6.5F), 1e-6F))));
    EXPECT_THAT(messages(2),
                ElementsAre("1 trace left out: no sample in the window from tmin to tmax"));
}

TEST_F(AmplitudeMapTest, WordsAreAveragedOrTheirEndsTaken)
{
    const struct
    {
        const char* measure;
        float value;
        const char* label;
    } rows[] = {{"mean", 250, "mean offset"},
                {"min", 100, "least offset"},
                {"max", 500, "greatest offset"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.measure);
        restart();
        for (const int offset : {150, 500, 100})
            pushAt(1, 1, {1}, 1, offset);
        add({{"measure", UniVar(row.measure)}, {"word", UniVar("offset")}});
        run();
        EXPECT_THAT(map().traces, ElementsAre(ElementsAre(row.value)));
        EXPECT_THAT(map().title, HasSubstr(std::string("\nbar: ") + row.label + "\n"));
    }
}

TEST_F(AmplitudeMapTest, CoordinatesAreScaledAsTheTraceSays)
{
    pushAt(10000, 50000, {1}, -100); // 100, 500
    pushAt(20, 50, {1}, 10);         // 200, 500
    pushAt(300, 500, {1}, 0);        // 300, 500
    add({{"bin", floats({100})}});

    run();

    EXPECT_THAT(map().traces, ElementsAre(ElementsAre(1), ElementsAre(1), ElementsAre(1)));
    EXPECT_THAT(map().title, HasSubstr("\nxrange: 50 350\nyrange: 450 550\n"));
}

TEST_F(AmplitudeMapTest, NumbersOfLinesAreNotScaled)
{
    pushAt(7, 11, {1}, -100);
    pushAt(9, 11, {1}, -100);
    add({{"x", UniVar("xline")}, {"y", UniVar("iline")}, {"scales", UniVar("equal")}});

    run();

    EXPECT_THAT(map().title, HasSubstr("\nxrange: 6 10\nyrange: 10.5 11.5\n"));
    EXPECT_THAT(map().title, HasSubstr("\nscales: equal\n"));
}

TEST_F(AmplitudeMapTest, AnglesAreNamed)
{
    harness.push({1}, {{"cdpx", UniVar(7200)}, {"cdpy", UniVar(3600)}, {"counit", UniVar(2)}});
    add();

    run();

    EXPECT_THAT(map().title, HasSubstr("\nx: cdpx (seconds of arc)\ny: cdpy (seconds of arc)\n"));
}

TEST_F(AmplitudeMapTest, AnglesBeyondACircleAreNotBelieved)
{
    harness.push({1}, {{"cdpx", UniVar(7200)}, {"cdpy", UniVar(3600)}, {"counit", UniVar(3)}});
    add();

    run();

    EXPECT_THAT(map().title, HasSubstr("\nx: cdpx\ny: cdpy\n"));
}

TEST_F(AmplitudeMapTest, ColoursMayHaveAGivenRange)
{
    pushAt(1, 1);
    add({{"values", floats({0, 60})}, {"colormap", UniVar("gray")}, {"title", UniVar("a\nb")}});

    run();

    EXPECT_THAT(map().title, testing::StartsWith("a b\nmode: image\n"));
    EXPECT_THAT(map().title, HasSubstr("\ncolormap: gray\n"));
    EXPECT_THAT(map().title, HasSubstr("\nvalues: 0 60\n"));
}

TEST_F(AmplitudeMapTest, TracesWithoutAPositionAreLeftOut)
{
    pushAt(0, 0);
    pushAt(100, 100);
    add();

    run();

    EXPECT_THAT(map().traces, SizeIs(1));
    EXPECT_THAT(messages(2),
                ElementsAre("1 trace with cdpx and cdpy of 0 left out: not a position"));
}

TEST_F(AmplitudeMapTest, WithoutAnyPositionThereIsNoMap)
{
    pushAt(0, 0);
    pushAt(0, 0);
    add();

    run();

    EXPECT_THAT(result.pads, IsEmpty());
    EXPECT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(messages(2),
                ElementsAre("2 traces with cdpx and cdpy of 0 left out: not a position",
                            "no trace can be placed; there is no map; name other words with x "
                            "and y, or compute them with header_math"));
}

TEST_F(AmplitudeMapTest, EmptyInputIsNotAnError)
{
    add();
    run();
    EXPECT_THAT(result.pads, IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("no trace arrived; there is no map"));
}

TEST_F(AmplitudeMapTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"measure", UniVar("mean")}},
         "measure is mean and word is missing; name the header word to map"},
        {{{"word", UniVar("offset")}},
         "word is offset and measure is fold; give mean, min or max as measure, or no word"},
        {{{"tmin", UniVar(1.0)}},
         "tmin and tmax are the window of rms, and measure is fold; give rms as measure, or no "
         "window"},
        {{{"measure", UniVar("rms")}, {"tmin", UniVar(0.102)}, {"tmax", UniVar(0.102)}},
         "tmin is 0.102 s and tmax is 0.102 s; tmin must be below tmax"},
        {{{"values", floats({3, 3})}}, "values are 3 and 3; give the lower one first"},
        {{{"x", UniVar("cdpy")}}, "x and y are both cdpy; name two words"},
        {{{"x", UniVar("nothing")}},
         "the traces have no header word \"nothing\"; name one that they have"},
        {{{"bin", floats({0})}}, "bin holds 0; give a list of 1 to 2 numbers above 0"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushAt(1, 1);
        add(row.parameters);
        result = harness.run();
        EXPECT_THAT(messages(4), ElementsAre(row.message));
    }
}

TEST_F(AmplitudeMapTest, MemoryHasALimit)
{
    for (int i = 0; i < 20000; ++i)
        pushAt(i + 1, 1, {1});
    add({{"memory_limit", UniVar(1)}, {"bin", floats({1})}});

    result = harness.run();

    EXPECT_THAT(messages(4),
                ElementsAre("the map of 6144 traces would need 2 MB of memory, and memory_limit is "
                            "1 MB; raise memory_limit, or give larger bins with bin"));
}

TEST_F(AmplitudeMapTest, TooManyBinsAreAnError)
{
    pushAt(1, 1);
    pushAt(5000, 1);
    add({{"bin", floats({1})}});

    result = harness.run();

    ASSERT_THAT(messages(4), SizeIs(1));
    EXPECT_THAT(messages(4)[0], HasSubstr("the map has 5000 by 1 of them"));
    EXPECT_THAT(result.pads, IsEmpty());
}

} // namespace
