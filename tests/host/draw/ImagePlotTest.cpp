// Images: which colour a cell has, and where it is.
#include "draw/ImagePlot.h"

#include "draw/PadRenderer.h"
#include "draw/PadStore.h"

#include <cairo.h>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

using namespace host;
using ::testing::Each;
using ::testing::ElementsAre;

namespace {

constexpr float none = std::numeric_limits<float>::quiet_NaN();
constexpr const char* map = "blue-yellow";

Image imageOf(const std::vector<std::vector<float>>& columns, double low, double high)
{
    Image image;
    for (const std::vector<float>& column : columns)
        image.columns.emplace_back(column);
    image.low = low;
    image.high = high;
    return image;
}

double lightness(unsigned rgb)
{
    return 0.2126 * (rgb >> 16 & 0xFF) + 0.7152 * (rgb >> 8 & 0xFF) + 0.0722 * (rgb & 0xFF);
}

// Pixel of a picture of two pixels a point, at a place in points.
unsigned pixelAt(const std::string& png, double x, double y)
{
    struct Source
    {
        const std::string* bytes;
        std::size_t at;
    } source{&png, 0};
    const auto read = [](void* from, unsigned char* to, unsigned count) {
        auto* rest = static_cast<Source*>(from);
        if (rest->at + count > rest->bytes->size())
            return CAIRO_STATUS_READ_ERROR;
        rest->bytes->copy(reinterpret_cast<char*>(to), count, rest->at);
        rest->at += count;
        return CAIRO_STATUS_SUCCESS;
    };
    cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(read, &source);
    const unsigned char* row =
        cairo_image_surface_get_data(surface) +
        static_cast<std::ptrdiff_t>(2 * y) * cairo_image_surface_get_stride(surface);
    const unsigned colour =
        reinterpret_cast<const uint32_t*>(row)[static_cast<std::ptrdiff_t>(2 * x)] & 0xFFFFFF;
    cairo_surface_destroy(surface);
    return colour;
}

} // namespace

TEST(ImagePlotTest, ColoursBecomeLighterFromEndToEnd)
{
    double before = -1;
    for (int i = 0; i <= 100; ++i) {
        const double now = lightness(imageColour(map, i / 100.0));
        EXPECT_GT(now, before) << i;
        before = now;
    }
    EXPECT_EQ(imageColour(map, -3), imageColour(map, 0));
    EXPECT_EQ(imageColour(map, 7), imageColour(map, 1));
    EXPECT_EQ(imageColour("seismic", 0.5), 0xFFFFFFU);
}

TEST(ImagePlotTest, ACellWithoutDataHasAColourOfItsOwn)
{
    for (const std::string name : {map, "gray", "seismic", "black-white-red"})
        for (int i = 0; i <= 1000; ++i)
            ASSERT_NE(imageColour(name, i / 1000.0), emptyColour(name)) << name << ' ' << i;
}

TEST(ImagePlotTest, EachCellHasItsColourAtItsPlace)
{
    const std::vector<std::vector<float>> columns = {{0, 1}, {0.5F, none}, {2, -4}};
    const std::vector<uint32_t> pixels = imagePixels(imageOf(columns, 0, 1), map, 6, 4);
    const unsigned low = imageColour(map, 0);
    const unsigned middle = imageColour(map, 512.0 / 1023);
    const unsigned high = imageColour(map, 1);
    const unsigned empty = emptyColour(map);
    EXPECT_THAT(pixels, ElementsAre(low, low, middle, middle, high, high, //
                                    low, low, middle, middle, high, high, //
                                    high, high, empty, empty, low, low,   //
                                    high, high, empty, empty, low, low));
}

TEST(ImagePlotTest, APixelOfSeveralCellsHasTheGreatestOrTheStrongest)
{
    const std::vector<std::vector<float>> columns = {{0.1F, none, 0.9F}, {0.2F, -1, none}};
    EXPECT_THAT(imagePixels(imageOf(columns, 0, 1), "gray", 1, 1),
                ElementsAre(imageColour("gray", std::lround(0.9 * 1023) / 1023.0)));
    EXPECT_THAT(imagePixels(imageOf(columns, -1, 1), "gray", 1, 1),
                ElementsAre(imageColour("gray", 0)));
}

TEST(ImagePlotTest, ColumnsMayBeShorterThanOthersAndMissing)
{
    const std::vector<std::vector<float>> columns = {{1, 1}, {1}};
    const std::vector<uint32_t> pixels = imagePixels(imageOf(columns, 0, 1), map, 2, 2);
    EXPECT_EQ(pixels[3], emptyColour(map));
    EXPECT_THAT(imagePixels(imageOf({}, 0, 1), map, 2, 2), Each(emptyColour(map)));
}

TEST(ImagePlotTest, RangesComeFromTheFiniteValues)
{
    const std::vector<float> some = {3, none, -2, std::numeric_limits<float>::infinity()};
    const std::vector<float> same = {5, 5};
    double low = 0;
    double high = 0;
    findValueRange({some}, low, high);
    EXPECT_EQ(low, -2);
    EXPECT_EQ(high, 3);
    findValueRange({same}, low, high);
    EXPECT_EQ(low, 5);
    EXPECT_EQ(high, 10);
    findValueRange({}, low, high);
    EXPECT_EQ(low, 0);
    EXPECT_EQ(high, 1);
}

TEST(ImagePlotTest, EqualScalesKeepTheProportionsOfTheAxes)
{
    const Area space{10, 20, 600, 400};
    const Axis x{1000, 4000, "", {}};
    const Axis y{9000, 8000, "", {}};
    const Area plot = imagePlot(space, x, y, true);
    EXPECT_DOUBLE_EQ(plot.width, 600);
    EXPECT_DOUBLE_EQ(plot.height, 200);
    EXPECT_DOUBLE_EQ(plot.x, 10);
    EXPECT_DOUBLE_EQ(plot.y, 120);
    EXPECT_DOUBLE_EQ(imagePlot(space, y, x, true).width, 400.0 / 3);
    EXPECT_DOUBLE_EQ(imagePlot(space, x, y, false).height, 400);
}

TEST(ImagePlotTest, WholeNumbersAloneAreMarked)
{
    Axis axis{0.5, 4.5, "", {}};
    markWholeNumbers(axis);
    EXPECT_THAT(axis.places, ElementsAre(testing::Pair(1, "1"), testing::Pair(2, "2"),
                                         testing::Pair(3, "3"), testing::Pair(4, "4")));
    axis = {2000.5, -0.5, "", {}};
    markWholeNumbers(axis);
    EXPECT_THAT(axis.places, testing::SizeIs(5));
    EXPECT_EQ(axis.places[1], std::pair(500.0, std::string("500")));
}

// The page is 900 by 600 points, its cells lie from (90, 40) to (790, 540).
TEST(ImagePlotTest, APadWithThisModeIsAnImageUnderItsPens)
{
    Pad pad;
    pad.type = 1;
    pad.title = "map";
    pad.directives = {{"mode", "image"}, {"xrange", "0 2"}, {"yrange", "0 20"}, {"values", "0 4"}};
    pad.traces.resize(2);
    pad.traces[0].samples = {4, 0};
    pad.traces[1].samples = {none, 4};
    PadCommand dot;
    dot.command.cmdType = 3;
    dot.command.inteq = 6;
    dot.command.height = 20;
    dot.command.xpage = 0.5F;
    dot.command.ypage = 15; // the middle of the upper left cell

    PadPicture picture = pictureOf(pad);
    EXPECT_EQ(picture.mediaType, "image/png");
    EXPECT_EQ(picture.height, 600);
    EXPECT_EQ(pixelAt(picture.bytes, 265, 165), imageColour(map, 1));
    EXPECT_EQ(pixelAt(picture.bytes, 265, 415), imageColour(map, 0));
    EXPECT_EQ(pixelAt(picture.bytes, 615, 165), emptyColour(map));
    EXPECT_EQ(pixelAt(picture.bytes, 615, 415), imageColour(map, 1));
    EXPECT_EQ(pixelAt(picture.bytes, 817, 45), imageColour(map, 1 - 10.5 / 1000));

    pad.commands.push_back(dot);
    picture = pictureOf(pad);
    EXPECT_EQ(picture.height, 600);
    EXPECT_EQ(pixelAt(picture.bytes, 265, 165), 0U);
    EXPECT_EQ(pixelAt(picture.bytes, 615, 415), imageColour(map, 1));
}
