// Slices as the host gets them.
#include "ModuleTest.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsNan;
using testing::SizeIs;
using testing::StartsWith;

class SliceTest : public ModuleTest
{
protected:
    SliceTest() : ModuleTest("slice") {}

    // Three samples of 2 ms: 100 times the inline, plus the crossline, plus 0, 0.25 and 0.5.
    void pushAt(int inlineNumber, int crossline, int delay = 0)
    {
        const auto base = static_cast<float>(100 * inlineNumber + crossline);
        harness.push({base, base + 0.25F, base + 0.5F}, {{"iline", UniVar(inlineNumber)},
                                                         {"xline", UniVar(crossline)},
                                                         {"delrt", UniVar(delay)}});
    }

    // Inlines 10, 20, 30 and crosslines 1 to 4, in any order, without 20 and 3.
    void pushCube()
    {
        std::vector<std::pair<int, int>> places;
        for (const int i : {10, 20, 30})
            for (const int x : {1, 2, 3, 4})
                if (i != 20 || x != 3)
                    places.emplace_back(i, x);
        std::shuffle(places.begin(), places.end(), std::mt19937(2));
        for (const auto& [i, x] : places)
            pushAt(i, x);
    }
};

TEST_F(SliceTest, AnInlineHasItsCrosslinesAcross)
{
    pushCube();
    add({{"inlines", UniVar("20")}});

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    const HarnessPad& pad = result.pads[0];
    EXPECT_THAT(pad.title, StartsWith("module1: inline 20\nmode: image\nxrange: 0.5 4.5\n"
                                      "yrange: 0.005 -0.001\nx: crossline (xline)\n"
                                      "y: time (s)\ncolormap: seismic\nbar: amplitude\n"));
    EXPECT_THAT(pad.traces, ElementsAre(ElementsAre(2001, 2001.25F, 2001.5F),
                                        ElementsAre(2002, 2002.25F, 2002.5F),
                                        ElementsAre(IsNan(), IsNan(), IsNan()),
                                        ElementsAre(2004, 2004.25F, 2004.5F)));
    EXPECT_THAT(result.traces, SizeIs(11));
    EXPECT_EQ(result.traces[3].samples, harness.input[3].samples);
    EXPECT_THAT(messages(1), ElementsAre("11 traces; inlines (iline) from 10 to 30, crosslines "
                                         "(xline) from 1 to 4"));
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(SliceTest, ACrosslineHasItsInlinesAcross)
{
    pushCube();
    add({{"crosslines", UniVar("3:4")}, {"tmin", UniVar(0.002)}});

    run();

    ASSERT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(result.pads[0].title, StartsWith("module1: crossline 3\nmode: image\n"
                                                 "xrange: 0 40\nyrange: 0.005 0.001\n"
                                                 "x: inline (iline)\n"));
    EXPECT_THAT(result.pads[0].traces,
                ElementsAre(ElementsAre(1003.25F, 1003.5F), ElementsAre(3003.25F, 3003.5F)));
    EXPECT_THAT(result.pads[1].traces, SizeIs(3));
}

TEST_F(SliceTest, ATimeHasInlinesUpwards)
{
    pushCube();
    add({{"times", floats({0.0031, 0})}});

    run();

    ASSERT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(result.pads[0].title,
                StartsWith("module1: time 0.0031 s\nmode: image\nxrange: 0.5 4.5\nyrange: 5 35\n"
                           "x: crossline (xline)\ny: inline (iline)\n"));
    EXPECT_THAT(result.pads[0].traces, ElementsAre(ElementsAre(3001.5F, 2001.5F, 1001.5F),
                                                   ElementsAre(3002.5F, 2002.5F, 1002.5F),
                                                   ElementsAre(3003.5F, IsNan(), 1003.5F),
                                                   ElementsAre(3004.5F, 2004.5F, 1004.5F)));
    EXPECT_THAT(result.pads[0].title, HasSubstr("\nwhole: x y\n"));
    EXPECT_THAT(result.pads[1].traces[0], ElementsAre(3001, 2001, 1001));
}

TEST_F(SliceTest, DelaysMoveTraces)
{
    pushAt(1, 1, 10);
    pushAt(1, 2, 12);
    add({{"inlines", UniVar("1")}, {"times", floats({0.014})}});

    run();

    ASSERT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(result.pads[0].title, HasSubstr("\nyrange: 0.015 0.009\n"));
    EXPECT_THAT(result.pads[0].traces,
                ElementsAre(ElementsAre(101, 101.25F, 101.5F), ElementsAre(IsNan(), 102, 102.25F)));
    EXPECT_THAT(result.pads[1].traces, ElementsAre(ElementsAre(101.5F), ElementsAre(102.25F)));
}

TEST_F(SliceTest, ColoursLieOnBothSidesOfZeroOrAboveIt)
{
    for (const float sign : {1.0F, -1.0F}) {
        SCOPED_TRACE(sign);
        restart();
        for (int x = 0; x < 100; ++x)
            harness.push({x == 50 ? 50 * sign : static_cast<float>(x)},
                         {{"iline", UniVar(1)}, {"xline", UniVar(x)}});
        add({{"inlines", UniVar("1")}, {"clip", UniVar(80.0)}});
        run();
        EXPECT_THAT(result.pads.at(0).title,
                    HasSubstr(sign > 0 ? "\nvalues: 0 79\n" : "\nvalues: -79 79\n"));
        EXPECT_THAT(result.pads.at(0).title, HasSubstr("\nnote: clip 79 (80 %)"));
    }
    restart();
    pushAt(1, 1);
    add({{"inlines", UniVar("1")}, {"values", floats({-5, 7})}});
    run();
    EXPECT_THAT(result.pads.at(0).title, HasSubstr("\nvalues: -5 7"));
}

TEST_F(SliceTest, OtherWordsMayNumberTheLines)
{
    harness.push({1, 2}, {{"fldr", UniVar(5)}, {"cdp", UniVar(8)}});
    add({{"inline_word", UniVar("fldr")},
         {"crossline_word", UniVar("cdp")},
         {"inlines", UniVar("5")}});

    run();

    EXPECT_THAT(result.pads.at(0).title, HasSubstr("\nx: crossline (cdp)\n"));
}

TEST_F(SliceTest, WhatIsNotInTheDataIsTold)
{
    pushCube();
    add({{"inlines", UniVar("10,15,25,99")}, {"crosslines", UniVar("7")}, {"times", floats({3})}});

    run();

    EXPECT_THAT(result.pads, SizeIs(1));
    EXPECT_THAT(messages(2),
                ElementsAre("no trace has the inlines 15, 25, which are chosen",
                            "no crossline of 7 is in the data, where xline goes from 1 to 4; "
                            "choose others, or name another word",
                            "no trace has a sample at 3 s; give times with their unit (900 ms)"));
}

TEST_F(SliceTest, OfSeveralTracesAtAPlaceTheFirstIsDrawn)
{
    pushAt(1, 1);
    harness.push({7, 8, 9}, {{"iline", UniVar(1)}, {"xline", UniVar(1)}});
    add({{"inlines", UniVar("1")}});

    run();

    EXPECT_THAT(result.pads[0].traces, ElementsAre(ElementsAre(101, 101.25F, 101.5F)));
    EXPECT_THAT(messages(2),
                ElementsAre("traces at a place of a slice that has one already: 1; the first one "
                            "is drawn; stack them, or choose one of each place"));
}

TEST_F(SliceTest, EmptyInputIsNotAnError)
{
    add({{"inlines", UniVar("1")}});
    run();
    EXPECT_THAT(messages(2), ElementsAre("no trace arrived; there is no slice"));
}

TEST_F(SliceTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{}, "there is nothing to draw; give inlines, crosslines or times"},
        {{{"inlines", UniVar("1")}, {"crossline_word", UniVar("iline")}},
         "inline_word and crossline_word are both iline; name two words"},
        {{{"inlines", UniVar("x")}},
         "inlines: \"x\" in \"x\" is not a number; write numbers and ranges as in 1:100:2,200"},
        {{{"inlines", UniVar("1")}, {"tmin", UniVar(2.0)}, {"tmax", UniVar(1.0)}},
         "tmin is 2 s and tmax is 1 s; tmin must be below tmax"},
        {{{"times", floats({0})}, {"tmin", UniVar(2.0)}},
         "tmin and tmax are for inlines and crosslines, and only times are given; leave them out"},
        {{{"times", floats({0, 1})}, {"max_pictures", UniVar(1)}},
         "there are 2 times, and max_pictures is 1; raise it, or give fewer times"},
        {{{"inlines", UniVar("1")}, {"values", floats({2, 1})}},
         "values are 2 and 1; give the lower one first"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushAt(1, 1);
        add(row.parameters);
        runInVain(row.message);
    }
}

TEST_F(SliceTest, TimesBesideTheRecordAreRefused)
{
    pushAt(1, 1);
    add({{"inlines", UniVar("1")}, {"tmin", UniVar(5.0)}});

    result = harness.run();

    EXPECT_THAT(messages(4), ElementsAre("the first trace has no sample from tmin to tmax; it "
                                         "begins at 0 s and ends at 0.004 s; give times with "
                                         "their unit (900 ms)"));
}

TEST_F(SliceTest, PicturesAndMemoryHaveLimits)
{
    for (int i = 1; i <= 5; ++i)
        pushAt(i, 1);
    add({{"inlines", UniVar("1:")}, {"max_pictures", UniVar(4)}});
    result = harness.run();
    EXPECT_THAT(messages(4), ElementsAre("there are more than 4 slices; raise max_pictures, or "
                                         "choose fewer, as with 100:500:100"));

    restart();
    for (int x = 0; x < 20; ++x)
        harness.push(std::vector<float>(10000, 1.0F), {{"iline", UniVar(1)}, {"xline", UniVar(x)}});
    add({{"inlines", UniVar("1")}, {"memory_limit", UniVar(1)}});
    result = harness.run();
    EXPECT_THAT(messages(4),
                ElementsAre("the slices of 13 traces would need 2 MB of memory, and memory_limit "
                            "is 1 MB; raise memory_limit, or choose fewer slices"));
}

TEST_F(SliceTest, WordsThatAreNotNumbersOfLinesAreRefused)
{
    pushAt(1, 1);
    pushAt(1, 2);
    pushAt(1, 90000);
    add({{"inlines", UniVar("1")}});

    result = harness.run();

    EXPECT_THAT(messages(4), ElementsAre("xline goes from 1 to 90000 in steps of 1; a picture has "
                                         "at most 20000 lines; name another word, or map it in "
                                         "the reader"));
}

} // namespace
