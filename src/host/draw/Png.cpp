// PNG as ISO/IEC 15948 describes it: a signature, then chunks of length, type, content and
// checksum.
//
// Sections are pixels of noise in a few levels of gray. A byte a pixel has a third of what red,
// green and blue have to be compressed; filters, which make photographs smaller, make such pictures
// larger, so no row has one. Of the compressor's levels the fourth is where more time no longer
// makes them smaller.
#include "draw/Png.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <libdeflate.h>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

namespace host {

namespace {

constexpr int compressionLevel = 4;
constexpr std::size_t chunkBytes = 1 << 20; // of compressed pixels
constexpr std::string_view signature("\x89PNG\r\n\x1a\n", 8);
constexpr uint32_t white = 0xFFFFFF;

enum class ColourType : unsigned char
{
    gray = 0,
    rgb = 2,
    palette = 3,
};

struct Image
{
    const unsigned char* data;
    std::size_t stride; // bytes
    uint32_t width, height;

    const uint32_t* row(uint32_t y) const
    {
        return reinterpret_cast<const uint32_t*>(data + y * stride); // cairo aligns rows
    }
};

bool isGray(uint32_t colour)
{
    return (colour >> 16) == (colour & 0xFF) && (colour >> 8 & 0xFF) == (colour & 0xFF);
}

// Up to 256 colours, each with its number in the order in which they come.
class Palette
{
public:
    static constexpr std::size_t most = 256;

    // The number of `colour`; none where it is one too many.
    std::optional<unsigned char> numberOf(uint32_t colour)
    {
        std::size_t slot = (colour * 2654435761U) >> 22;
        while (slots[slot] != 0 && known[slots[slot] - 1U] != colour)
            slot = (slot + 1) % slots.size();
        if (slots[slot] == 0) {
            if (known.size() == most)
                return std::nullopt;
            known.push_back(colour);
            slots[slot] = static_cast<uint16_t>(known.size());
        }
        return static_cast<unsigned char>(slots[slot] - 1U);
    }

    const std::vector<uint32_t>& colours() const { return known; }

private:
    std::array<uint16_t, 1024> slots{}; // number in `known` and 1; 0: free
    std::vector<uint32_t> known;
};

// The pixels as the file has them, each row behind the number of its filter: none.
struct Pixels
{
    ColourType type = ColourType::rgb;
    std::vector<uint32_t> palette;
    std::vector<unsigned char> bytes;
};

// A byte a pixel; false where there are too many colours.
bool takeByNumber(const Image& image, Pixels& pixels)
{
    Palette palette;
    pixels.bytes.resize((std::size_t(image.width) + 1) * image.height);
    unsigned char* to = pixels.bytes.data();
    uint32_t last = ~0U; // no colour
    unsigned char number = 0;
    for (uint32_t y = 0; y < image.height; ++y) {
        const uint32_t* row = image.row(y);
        *to++ = 0;
        for (uint32_t x = 0; x < image.width; ++x) {
            const uint32_t colour = row[x] & 0xFFFFFF;
            if (colour != last) {
                const std::optional<unsigned char> found = palette.numberOf(colour);
                if (!found)
                    return false;
                number = *found;
                last = colour;
            }
            *to++ = number;
        }
    }
    pixels.type = ColourType::palette;
    pixels.palette = palette.colours();
    return true;
}

void takeColours(const Image& image, Pixels& pixels)
{
    pixels.bytes.resize((3 * std::size_t(image.width) + 1) * image.height);
    unsigned char* to = pixels.bytes.data();
    for (uint32_t y = 0; y < image.height; ++y) {
        const uint32_t* row = image.row(y);
        *to++ = 0;
        for (uint32_t x = 0; x < image.width; ++x) {
            *to++ = static_cast<unsigned char>(row[x] >> 16);
            *to++ = static_cast<unsigned char>(row[x] >> 8);
            *to++ = static_cast<unsigned char>(row[x]);
        }
    }
}

// Numbers of grays become their levels, which need no palette.
void turnIntoLevels(Pixels& pixels, const Image& image)
{
    std::array<unsigned char, Palette::most> levels{};
    for (std::size_t i = 0; i < pixels.palette.size(); ++i)
        levels[i] = static_cast<unsigned char>(pixels.palette[i]);
    unsigned char* at = pixels.bytes.data();
    for (uint32_t y = 0; y < image.height; ++y) {
        ++at;
        for (uint32_t x = 0; x < image.width; ++x, ++at)
            *at = levels[*at];
    }
    pixels.type = ColourType::gray;
    pixels.palette.clear();
}

Pixels pixelsOf(const Image& image)
{
    Pixels pixels;
    if (!takeByNumber(image, pixels))
        takeColours(image, pixels);
    else if (std::all_of(pixels.palette.begin(), pixels.palette.end(), isGray))
        turnIntoLevels(pixels, image);
    return pixels;
}

void addNumber(std::string& bytes, uint32_t number)
{
    for (const int shift : {24, 16, 8, 0})
        bytes += static_cast<char>(number >> shift & 0xFF);
}

void addChunk(std::string& file, std::string_view type, std::string_view content)
{
    addNumber(file, static_cast<uint32_t>(content.size()));
    const std::size_t begin = file.size();
    file += type;
    file += content;
    addNumber(file, libdeflate_crc32(0, file.data() + begin, file.size() - begin));
}

void addHeader(std::string& file, const Image& image, ColourType type)
{
    std::string content;
    addNumber(content, image.width);
    addNumber(content, image.height);
    content += '\x08'; // bits
    content += static_cast<char>(type);
    content.append(3, '\0'); // the only compression, the only set of filters, not interlaced
    addChunk(file, "IHDR", content);
}

void addPalette(std::string& file, const std::vector<uint32_t>& palette)
{
    std::string content;
    for (const uint32_t colour : palette) {
        for (const int shift : {16, 8, 0})
            content += static_cast<char>(colour >> shift & 0xFF);
    }
    addChunk(file, "PLTE", content);
}

// What viewers show behind the picture: white, as the page is.
void addBackground(std::string& file, const Pixels& pixels)
{
    const std::string level("\0\xFF", 2);
    if (pixels.type == ColourType::gray) {
        addChunk(file, "bKGD", level);
    } else if (pixels.type == ColourType::rgb) {
        addChunk(file, "bKGD", level + level + level);
    } else {
        const auto found = std::find(pixels.palette.begin(), pixels.palette.end(), white);
        if (found != pixels.palette.end())
            addChunk(file, "bKGD",
                     std::string(1, static_cast<char>(found - pixels.palette.begin())));
    }
}

std::string compressed(const std::vector<unsigned char>& bytes)
{
    const std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> compressor(
        libdeflate_alloc_compressor(compressionLevel), libdeflate_free_compressor);
    if (compressor == nullptr)
        throw std::bad_alloc();
    std::string result(libdeflate_zlib_compress_bound(compressor.get(), bytes.size()), '\0');
    result.resize(libdeflate_zlib_compress(compressor.get(), bytes.data(), bytes.size(),
                                           result.data(), result.size()));
    return result;
}

std::string fileOf(const Image& image)
{
    const Pixels pixels = pixelsOf(image);
    std::string file(signature);
    addHeader(file, image, pixels.type);
    if (pixels.type == ColourType::palette)
        addPalette(file, pixels.palette);
    addBackground(file, pixels);
    const std::string content = compressed(pixels.bytes);
    for (std::size_t at = 0; at < content.size(); at += chunkBytes)
        addChunk(file, "IDAT", std::string_view(content).substr(at, chunkBytes));
    addChunk(file, "IEND", "");
    return file;
}

} // namespace

cairo_status_t writePng(cairo_surface_t* surface, std::string& file)
{
    cairo_surface_flush(surface);
    const cairo_status_t status = cairo_surface_status(surface);
    if (status != CAIRO_STATUS_SUCCESS)
        return status;
    const unsigned char* data = cairo_image_surface_get_data(surface);
    if (data == nullptr || cairo_image_surface_get_format(surface) != CAIRO_FORMAT_RGB24)
        return CAIRO_STATUS_SURFACE_TYPE_MISMATCH;
    try {
        file = fileOf({data, static_cast<std::size_t>(cairo_image_surface_get_stride(surface)),
                       static_cast<uint32_t>(cairo_image_surface_get_width(surface)),
                       static_cast<uint32_t>(cairo_image_surface_get_height(surface))});
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
    return CAIRO_STATUS_SUCCESS;
}

} // namespace host
