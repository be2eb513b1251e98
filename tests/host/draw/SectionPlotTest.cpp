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
        plot = sectionPlot(page);
        SectionRaster raster(plot, isWiggle(style), section.places);
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
