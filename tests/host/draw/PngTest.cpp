// PNG files hold the pixels that were drawn, in the smallest form that has room for their colours.
#include "draw/Png.h"

#include <cstdint>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace host;
using ::testing::ElementsAre;

namespace {

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;

Surface owned(cairo_surface_t* surface)
{
    return {surface, cairo_surface_destroy};
}

uint32_t* rowOf(cairo_surface_t* surface, int y)
{
    return reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(surface) +
                                       static_cast<std::ptrdiff_t>(y) *
                                           cairo_image_surface_get_stride(surface));
}

// A picture whose pixel number i, row by row, has colour(i). What cairo keeps above it is junk.
Surface picture(int width, int height, const std::function<uint32_t(int)>& colour)
{
    Surface surface = owned(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
    int number = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            rowOf(surface.get(), y)[x] = 0xA5000000U | colour(number++);
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

std::vector<uint32_t> pixelsOf(cairo_surface_t* surface)
{
    std::vector<uint32_t> pixels;
    for (int y = 0; y < cairo_image_surface_get_height(surface); ++y) {
        for (int x = 0; x < cairo_image_surface_get_width(surface); ++x)
            pixels.push_back(rowOf(surface, y)[x] & 0xFFFFFF);
    }
    return pixels;
}

std::string fileOf(const Surface& surface)
{
    std::string file;
    EXPECT_EQ(writePng(surface.get(), file), CAIRO_STATUS_SUCCESS);
    return file;
}

// What another reader of PNG files, which checks their checksums, finds in it.
Surface decoded(const std::string& file)
{
    std::string rest = file;
    const auto read = [](void* from, unsigned char* to, unsigned count) {
        auto* bytes = static_cast<std::string*>(from);
        if (bytes->size() < count)
            return CAIRO_STATUS_READ_ERROR;
        bytes->copy(reinterpret_cast<char*>(to), count);
        bytes->erase(0, count);
        return CAIRO_STATUS_SUCCESS;
    };
    Surface surface = owned(cairo_image_surface_create_from_png_stream(read, &rest));
    EXPECT_EQ(cairo_surface_status(surface.get()), CAIRO_STATUS_SUCCESS);
    EXPECT_EQ(rest, "");
    return surface;
}

struct Chunk
{
    std::string type;
    std::string content;
};

std::vector<Chunk> chunksOf(const std::string& file)
{
    std::vector<Chunk> chunks;
    std::size_t at = 8;
    while (at + 12 <= file.size()) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < 4; ++i)
            length = length << 8 | static_cast<unsigned char>(file[at + i]);
        chunks.push_back({file.substr(at + 4, 4), file.substr(at + 8, length)});
        at += length + 12;
    }
    EXPECT_EQ(at, file.size());
    return chunks;
}

std::vector<std::string> typesOf(const std::string& file)
{
    std::vector<std::string> types;
    for (const Chunk& chunk : chunksOf(file))
        types.push_back(chunk.type);
    return types;
}

constexpr char grayLevels = 0;
constexpr char redGreenBlue = 2;
constexpr char paletteNumbers = 3;

char colourTypeOf(const std::string& file)
{
    return chunksOf(file).front().content.at(9);
}

std::string backgroundOf(const std::string& file)
{
    for (const Chunk& chunk : chunksOf(file)) {
        if (chunk.type == "bKGD")
            return chunk.content;
    }
    return "none";
}

// `count` colours, the first white, from pixel to pixel another.
std::function<uint32_t(int)> colours(int count)
{
    return [count](int number) {
        return (0xFFFFFFU - static_cast<uint32_t>(number % count) * 70001U) & 0xFFFFFFU;
    };
}

} // namespace

TEST(PngTest, GrayPicturesAreStoredAsLevelsWithTheSamePixels)
{
    const Surface drawn =
        picture(301, 203, [](int i) { return static_cast<uint32_t>(i * 7 % 256) * 0x010101U; });
    const std::string file = fileOf(drawn);
    EXPECT_EQ(colourTypeOf(file), grayLevels);
    EXPECT_THAT(typesOf(file), ElementsAre("IHDR", "bKGD", "IDAT", "IEND"));
    EXPECT_EQ(backgroundOf(file), std::string("\0\xFF", 2));
    EXPECT_EQ(pixelsOf(decoded(file).get()), pixelsOf(drawn.get()));
}

TEST(PngTest, PicturesOfUpTo256ColoursHaveAPalette)
{
    for (const int count : {1, 2, 3, 255, 256}) {
        const auto colour = [&](int i) { return count == 1 ? 0x123456U : colours(count)(i); };
        const Surface drawn = picture(97, 31, colour);
        const std::string file = fileOf(drawn);
        EXPECT_EQ(colourTypeOf(file), paletteNumbers) << count;
        EXPECT_EQ(backgroundOf(file), count == 1 ? "none" : std::string(1, '\0')) << count;
        EXPECT_EQ(chunksOf(file).at(1).content.size(), static_cast<std::size_t>(3 * count));
        EXPECT_EQ(pixelsOf(decoded(file).get()), pixelsOf(drawn.get())) << count;
    }
}

TEST(PngTest, PicturesOfMoreColoursAreStoredAsTheyAre)
{
    const Surface drawn = picture(97, 31, colours(257));
    const std::string file = fileOf(drawn);
    EXPECT_EQ(colourTypeOf(file), redGreenBlue);
    EXPECT_EQ(backgroundOf(file), std::string("\0\xFF\0\xFF\0\xFF", 6));
    EXPECT_EQ(pixelsOf(decoded(file).get()), pixelsOf(drawn.get()));
}

// The last pixel brings the last colour: all before it have been numbered by then.
TEST(PngTest, AColourTooManyAtTheEndChangesNothing)
{
    const auto colour = [](int i) { return i == 64 * 64 - 1 ? 0xABCDEFU : colours(256)(i); };
    const Surface drawn = picture(64, 64, colour);
    const std::string file = fileOf(drawn);
    EXPECT_EQ(colourTypeOf(file), redGreenBlue);
    EXPECT_EQ(pixelsOf(decoded(file).get()), pixelsOf(drawn.get()));
}

// Colours that fall into the same places of a table must stay apart.
TEST(PngTest, RandomPicturesOfEverySizeComeBackAsTheyWere)
{
    std::mt19937 random(7); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same pictures each time
    for (int round = 0; round < 300; ++round) {
        const int width = 1 + static_cast<int>(random() % 70);
        const int height = 1 + static_cast<int>(random() % 30);
        std::vector<uint32_t> some(1 + random() % 300);
        const bool isGray = round % 3 == 0;
        for (uint32_t& colour : some) {
            const auto bits = static_cast<uint32_t>(random());
            colour = isGray ? (bits & 0xFF) * 0x010101U : bits & 0xFFFFFFU;
        }
        const Surface drawn =
            picture(width, height, [&](int) { return some[random() % some.size()]; });
        ASSERT_EQ(pixelsOf(decoded(fileOf(drawn)).get()), pixelsOf(drawn.get())) << round;
    }
}

TEST(PngTest, LargePicturesAreStoredInSeveralChunks)
{
    std::mt19937 random(3); // NOLINT(cert-msc32-c,cert-msc51-cpp)
    const Surface drawn =
        picture(1024, 1024, [&](int) { return static_cast<uint32_t>(random()) & 0xFFFFFFU; });
    const std::string file = fileOf(drawn);
    EXPECT_THAT(typesOf(file), ElementsAre("IHDR", "bKGD", "IDAT", "IDAT", "IDAT", "IDAT", "IEND"));
    EXPECT_EQ(pixelsOf(decoded(file).get()), pixelsOf(drawn.get()));
}

TEST(PngTest, EqualPicturesBecomeEqualFiles)
{
    EXPECT_EQ(fileOf(picture(300, 200, colours(99))), fileOf(picture(300, 200, colours(99))));
}

TEST(PngTest, ASurfaceInErrorLeavesTheFileAlone)
{
    std::string file = "as it was";
    const Surface wrong = owned(cairo_image_surface_create(CAIRO_FORMAT_RGB24, -1, 5));
    EXPECT_EQ(writePng(wrong.get(), file), CAIRO_STATUS_INVALID_SIZE);
    const Surface other = owned(cairo_image_surface_create(CAIRO_FORMAT_A8, 5, 5));
    EXPECT_EQ(writePng(other.get(), file), CAIRO_STATUS_SURFACE_TYPE_MISMATCH);
    EXPECT_EQ(file, "as it was");
}
