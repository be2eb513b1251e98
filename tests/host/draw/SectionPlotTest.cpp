// What a section looks like: the pixels of its picture.
#include "draw/SectionPlot.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;

namespace {

constexpr double scale = 2; // pixels per point, as in a PNG file
constexpr Area page{0, 0, 900, 600};

struct Pixel
{
    int x;
    int y;
};

// A picture in memory, white at first.
class SectionPlotTest : public ::testing::Test
{
protected:
    SectionPlotTest()
        : surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(page.width),
                                             pixels(page.height))),
          cr(cairo_create(surface))
    {
        cairo_scale(cr, scale, scale);
        cairo_set_source_rgb(cr, 1, 1, 1);
        cairo_paint(cr);
    }
    ~SectionPlotTest() override
    {
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }

    static int pixels(double points) { return static_cast<int>(std::lround(points * scale)); }

    void draw(const std::vector<std::vector<float>>& traces)
    {
        for (const std::vector<float>& trace : traces)
            section.places.push_back({0, static_cast<int64_t>(trace.size())});
        plot = sectionPlot(page, section);
        SectionRaster raster(plot, isWiggle(style), section.places, section.gatherStarts);
        for (std::size_t i = 0; i < traces.size(); ++i)
            raster.add(i, traces[i]);
        drawSection(cr, page, section, raster, style);
        cairo_surface_flush(surface);
    }

    // 0xRRGGBB
    unsigned colour(Pixel at) const
    {
        const unsigned char* bytes = cairo_image_surface_get_data(surface);
        const std::ptrdiff_t row =
            static_cast<std::ptrdiff_t>(at.y) * cairo_image_surface_get_stride(surface);
        return reinterpret_cast<const uint32_t*>(bytes + row)[at.x] & 0xFFFFFF;
    }
    // How dark, from 0 for white to 255.
    unsigned darkness(Pixel at) const { return 255 - (colour(at) & 0xFF); }

    // Rows of pixels, one after the other, in which the trace leaves no mark from `left` to
    // `right`.
    int longestGap(int left, int right) const
    {
        int gap = 0;
        int longest = 0;
        // The frame's lines do not count.
        for (int y = pixels(plot.y) + 2; y < pixels(plot.y + plot.height) - 2; ++y) {
            unsigned darkest = 0;
            for (int x = left; x < right; ++x)
                darkest = std::max(darkest, darkness({x, y}));
            gap = darkest >= 0x40 ? 0 : gap + 1;
            longest = std::max(longest, gap);
        }
        return longest;
    }

    // Pixels of a colour in a column, from the top to the bottom of the plot.
    int count(unsigned wanted, int x) const
    {
        int found = 0;
        for (int y = pixels(plot.y) + 2; y < pixels(plot.y + plot.height) - 2; ++y)
            found += colour({x, y}) == wanted ? 1 : 0;
        return found;
    }
    // The rows, in points from the top of the plot, that have a reddish pixel in the column.
    std::vector<double> redRows(double x) const
    {
        std::vector<double> rows;
        for (int y = pixels(plot.y); y < pixels(plot.y + plot.height); ++y) {
            const unsigned seen = colour({pixels(x), y});
            if ((seen >> 16) > (seen >> 8 & 0xFF) + 100)
                rows.push_back((y + 0.5) / scale - plot.y);
        }
        return rows;
    }

    cairo_surface_t* surface;
    cairo_t* cr;
    Section section;
    SectionStyle style;
    Area plot;
};

} // namespace

// Lobes that begin and end with small amplitudes, which are narrower than a pixel.
TEST_F(SectionPlotTest, WigglesHaveNoGapsWhereLobesAreThin)
{
    std::vector<std::vector<float>> traces(20, std::vector<float>(500));
    for (std::size_t trace = 0; trace < traces.size(); ++trace) {
        for (std::size_t i = 0; i < 500; ++i) {
            const double t =
                (static_cast<double>(i) - 250) / (10.0 + 5 * static_cast<double>(trace));
            traces[trace][i] = static_cast<float>(std::exp(-t * t) + 1e-3);
        }
    }
    style.mode = "wiggle";
    style.clipPercentile = 100;

    draw(traces);

    const double spacing = plot.width / 20;
    for (int trace = 0; trace < 20; ++trace) {
        const double centre = plot.x + (trace + 0.5) * spacing;
        const double right = std::min(centre + 1.2 * spacing, plot.x + plot.width - 1);
        EXPECT_LE(longestGap(pixels(centre - 2), pixels(right)), 0) << "trace " << trace + 1;
    }
    // The lobe's inside, and the same place to the left of the trace.
    const int peak = pixels(plot.y + plot.height / 2);
    const double centre = plot.x + 10.5 * spacing;
    EXPECT_EQ(darkness({pixels(centre + spacing / 4), peak}), 255U);
    EXPECT_EQ(darkness({pixels(centre - spacing / 4), peak + 300}), 0U);
}

// ---- Gathers ----

TEST_F(SectionPlotTest, GathersBeginWhereTheirWordChanges)
{
    findGathers(section, "fldr", {7, 7, 9, 7, 7, NAN, NAN});

    EXPECT_THAT(section.gatherStarts, testing::ElementsAre(2, 3, 5));
    EXPECT_EQ(section.labels.gathers.name, "fldr");
    EXPECT_THAT(section.labels.gathers.values, testing::ElementsAre(7, 9, 7, testing::IsNan()));
}

TEST_F(SectionPlotTest, BetweenTwoGathersThePictureIsWhite)
{
    findGathers(section, "fldr", {1, 1, 2, 2});

    draw(std::vector<std::vector<float>>(4, std::vector<float>(100, 1.0F)));

    const int middle = pixels(plot.x + plot.width / 2);
    const int height = pixels(plot.height) - 4;
    EXPECT_EQ(count(0xFFFFFF, middle), height);
    EXPECT_EQ(count(0x000000, middle - 9), height); // the gap has 8 points
    EXPECT_EQ(count(0x000000, middle + 9), height);
}

TEST_F(SectionPlotTest, RowsOfLabelsTakeTheirRoomFromTheTraces)
{
    const Area before = sectionPlot(page, section);
    findGathers(section, "fldr", {1, 2});
    section.labels.second = {"offset", {100, 200}};

    const Area after = sectionPlot(page, section);

    EXPECT_EQ(after.y, before.y + 26);
    EXPECT_EQ(after.y + after.height, before.y + before.height);
}

TEST_F(SectionPlotTest, EveryGatherHasALabelledTrace)
{
    SectionLabels labels;
    labels.traces = {"tracf", {1, 2, 3, 1, 2, 3, 18, 19, 20, 5, 9, 2}};
    const TraceColumns across(100, 12, {3, 6, 9});

    const Axis axis = traceAxis(across, labels, 12, 100); // a label for each ten traces

    std::vector<std::string> texts;
    for (const auto& [place, text] : axis.places)
        texts.push_back(text);
    EXPECT_THAT(texts, testing::ElementsAre("1", "1", "20", "5"));
    EXPECT_EQ(axis.places[2].first, across.centre(8));
    EXPECT_EQ(axis.label, "tracf");
}

TEST_F(SectionPlotTest, GathersWithoutGapsAreLabelledAsOne)
{
    SectionLabels labels;
    std::vector<std::size_t> starts;
    for (int cdp = 1; cdp <= 1000; ++cdp) {
        labels.traces.values.push_back(cdp);
        if (cdp > 1)
            starts.push_back(static_cast<std::size_t>(cdp - 1));
    }
    const TraceColumns across(800, 1000, starts);

    EXPECT_EQ(traceAxis(across, labels, 1000, 800).places.size(), 10u);
}

// ---- Picks ----

TEST_F(SectionPlotTest, PicksAreALineThatEndsWhereOneIsMissing)
{
    section.interval = 0.004;
    section.start = 0.1;
    const double last = 0.1 + 99 * 0.004;
    section.picks = {0.2, 0.2, NAN, 0.3, 0.3, last + 0.1, 0.25};

    draw(std::vector<std::vector<float>>(7, std::vector<float>(100)));

    const double spacing = plot.width / 7;
    const auto rowsAt = [&](double trace) { return redRows(plot.x + trace * spacing); };
    const auto heightOf = [&](double time) { return (time - 0.1) / (last - 0.1) * plot.height; };
    ASSERT_THAT(rowsAt(1), testing::Not(testing::IsEmpty()));
    EXPECT_NEAR(rowsAt(1)[rowsAt(1).size() / 2], heightOf(0.2), 1);
    EXPECT_THAT(rowsAt(2), testing::IsEmpty());
    EXPECT_THAT(rowsAt(3), testing::IsEmpty());
    ASSERT_THAT(rowsAt(4), testing::Not(testing::IsEmpty()));
    EXPECT_NEAR(rowsAt(4)[0], heightOf(0.3), 1.5);
    EXPECT_THAT(rowsAt(5.5), testing::IsEmpty()) << "outside of the picture";
    ASSERT_THAT(rowsAt(6.5), testing::Not(testing::IsEmpty())) << "alone";
    EXPECT_NEAR(rowsAt(6.5)[0], heightOf(0.25), 1.5);
}

TEST_F(SectionPlotTest, PicksOfTwoGathersAreNotJoined)
{
    findGathers(section, "fldr", {1, 1, 2, 2});
    section.picks = {0.1, 0.1, 0.1, 0.1};

    draw(std::vector<std::vector<float>>(4, std::vector<float>(100)));

    EXPECT_THAT(redRows(plot.x + plot.width / 2), testing::IsEmpty());
    EXPECT_THAT(redRows(plot.x + plot.width / 4), testing::Not(testing::IsEmpty()));
}

TEST_F(SectionPlotTest, CrossesStandAtThePicks)
{
    section.picks = {0.1, NAN, 0.1};
    style.pickMark = "cross";

    draw(std::vector<std::vector<float>>(3, std::vector<float>(100)));

    const double spacing = plot.width / 3;
    EXPECT_THAT(redRows(plot.x + spacing / 2), testing::Not(testing::IsEmpty()));
    EXPECT_THAT(redRows(plot.x + spacing / 2 + 10), testing::IsEmpty());
    EXPECT_THAT(redRows(plot.x + spacing * 1.5), testing::IsEmpty());
}
