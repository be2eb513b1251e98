// What a graph looks like: the pixels of its picture.
#include "draw/GraphPlot.h"

#include "draw/GraphLegend.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;

namespace {

constexpr Area page{0, 0, 900, 600};
constexpr int move = 3; // pens
constexpr int draw = 2;
constexpr unsigned red = 0xC00000; // pen 2

// Pixels from the first to the last one, none where `last` is before `first`.
struct Extent
{
    int first = 1 << 30;
    int last = -1;

    int length() const { return last - first + 1; }
};

class GraphPlotTest : public ::testing::Test
{
protected:
    GraphPlotTest()
        : surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(page.width),
                                             static_cast<int>(page.height))),
          cr(cairo_create(surface))
    {
        cairo_set_antialias(cr, CAIRO_ANTIALIAS_NONE);
        cairo_set_source_rgb(cr, 1, 1, 1);
        cairo_paint(cr);
        pad.type = 2;
    }
    ~GraphPlotTest() override
    {
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }

    void pen(int number)
    {
        PadCommand one;
        one.command.cmdType = 5;
        one.command.ipen = number;
        pad.commands.push_back(one);
    }
    void line(double x1, double y1, double x2, double y2)
    {
        for (const bool isEnd : {false, true}) {
            PadCommand one;
            one.command.cmdType = 1;
            one.command.xpage = static_cast<float>(isEnd ? x2 : x1);
            one.command.ypage = static_cast<float>(isEnd ? y2 : y1);
            one.command.ipen = isEnd ? draw : move;
            pad.commands.push_back(one);
        }
    }

    void drawPad()
    {
        plot = graphPlot(cr, page, pad);
        drawGraph(cr, page, pad);
        cairo_surface_flush(surface);
    }

    unsigned colour(int x, int y) const
    {
        const unsigned char* bytes = cairo_image_surface_get_data(surface);
        const std::ptrdiff_t row =
            static_cast<std::ptrdiff_t>(y) * cairo_image_surface_get_stride(surface);
        return reinterpret_cast<const uint32_t*>(bytes + row)[x] & 0xFFFFFF;
    }
    // Where pixels of the colour are: across or down the page.
    Extent extent(unsigned wanted, bool across) const
    {
        Extent found;
        for (int y = 0; y < static_cast<int>(page.height); ++y) {
            for (int x = 0; x < static_cast<int>(page.width); ++x) {
                if (colour(x, y) != wanted)
                    continue;
                const int at = across ? x : y;
                found.first = std::min(found.first, at);
                found.last = std::max(found.last, at);
            }
        }
        return found;
    }

    cairo_surface_t* surface;
    cairo_t* cr;
    Pad pad;
    Area plot;
};

} // namespace

// ---- Legend ----

TEST_F(GraphPlotTest, TheLegendStandsOutsideOfTheData)
{
    pad.directives["legend"] = "2=spectrum of the input, 2:6=its greatest value";
    pad.directives["xrange"] = "0 1";
    pad.directives["yrange"] = "0 1";

    drawPad();

    const Extent marks = extent(red, false);
    ASSERT_GT(marks.length(), 0);
    EXPECT_GT(marks.first, plot.y + plot.height);
    for (int y = static_cast<int>(plot.y) + 2; y < static_cast<int>(plot.y + plot.height) - 2; ++y)
    {
        for (int x = static_cast<int>(plot.x) + 2; x < static_cast<int>(plot.x + plot.width) - 2;
             ++x)
            ASSERT_EQ(colour(x, y), 0xFFFFFFu) << x << ", " << y;
    }
}

TEST_F(GraphPlotTest, RowsOfTheLegendTakeTheirRoomFromTheGraph)
{
    const Area without = graphPlot(cr, page, pad);
    pad.directives["legend"] = "1=one, 2=two";
    const Area oneRow = graphPlot(cr, page, pad);
    std::string many = "1=one";
    for (int i = 0; i < 20; ++i)
        many += ", 2=a rather long name of a curve";
    pad.directives["legend"] = many;
    const Area moreRows = graphPlot(cr, page, pad);

    EXPECT_EQ(without.height - oneRow.height, 14);
    EXPECT_GT(oneRow.height - moreRows.height, 14 * 3);
    EXPECT_EQ(without.width, moreRows.width);
}

TEST_F(GraphPlotTest, LegendEntriesArePensOrSymbols)
{
    const std::vector<LegendEntry> entries = legendEntries("1=input, 8:4=dead,no entry,3:0= a:b ");

    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].pen, 1);
    EXPECT_EQ(entries[0].symbol, LegendEntry::line);
    EXPECT_EQ(entries[0].text, "input");
    EXPECT_EQ(entries[1].pen, 8);
    EXPECT_EQ(entries[1].symbol, 4);
    EXPECT_EQ(entries[1].text, "dead");
    EXPECT_EQ(entries[2].symbol, 0);
    EXPECT_EQ(entries[2].text, "a:b ");
}

// ---- Scales ----

TEST_F(GraphPlotTest, OnAMapAUnitIsAsLongInBothDirections)
{
    for (const double width : {100.0, 5000.0}) {
        pad.commands.clear();
        pad.directives = {
            {"scales", "equal"}, {"xrange", "0 " + std::to_string(width)}, {"yrange", "1000 1100"}};
        cairo_set_source_rgb(cr, 1, 1, 1);
        cairo_paint(cr);
        pen(2);
        line(20, 1010, 90, 1010);
        line(20, 1010, 20, 1080);

        drawPad();

        EXPECT_NEAR(extent(red, true).length(), extent(red, false).length(), 2) << width;
        EXPECT_GT(extent(red, true).length(), 8) << width;
    }
}

TEST_F(GraphPlotTest, OtherGraphsFillThePicture)
{
    pad.directives = {{"xrange", "0 100"}, {"yrange", "1000 1100"}};
    pen(2);
    line(1, 1050, 99, 1050);
    line(50, 1001, 50, 1099);

    drawPad();

    EXPECT_NEAR(extent(red, true).length(), plot.width * 0.98, 2);
    EXPECT_NEAR(extent(red, false).length(), plot.height * 0.98, 2);
}
