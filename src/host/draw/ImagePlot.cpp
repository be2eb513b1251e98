#include "draw/ImagePlot.h"

#include "base/Numbers.h"
#include "draw/SectionPlot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

namespace host {

namespace {

constexpr double pixelsPerPoint = 2;
constexpr double barWidth = 14;
constexpr double leastBarHeight = 160;

// At equal distances; the lightness grows evenly.
constexpr std::array<unsigned, 6> sequentialColours = {0x1B1464, 0x20508C, 0x1F858C,
                                                       0x4BB36B, 0xAED63F, 0xFFF05A};

constexpr unsigned white = 0xFFFFFF;
constexpr unsigned paleGreen = 0xDFE8D2; // in no map of sections

unsigned mixed(unsigned a, unsigned b, double share)
{
    unsigned colour = 0;
    for (int shift = 16; shift >= 0; shift -= 8) {
        const double from = a >> shift & 0xFF;
        const double to = b >> shift & 0xFF;
        colour |= static_cast<unsigned>(std::lround(from + (to - from) * share)) << shift;
    }
    return colour;
}

// The cells that pixel `index` of `pixels` covers, the last one excluded. Where cells are larger
// than pixels: the one at the pixel's middle.
struct Cells
{
    std::size_t from;
    std::size_t to;
};

Cells cellsOf(int index, int pixels, std::size_t cells)
{
    const double perPixel = static_cast<double>(cells) / pixels;
    if (perPixel <= 1) {
        const auto at = std::min(static_cast<std::size_t>((index + 0.5) * perPixel), cells - 1);
        return {at, at + 1};
    }
    const auto from = static_cast<std::size_t>(index * perPixel);
    const auto to = static_cast<std::size_t>(std::ceil((index + 1) * perPixel));
    return {from, std::clamp(to, from + 1, cells)};
}

std::size_t rowsOf(const Image& image)
{
    std::size_t rows = 0;
    for (const std::span<const float>& column : image.columns)
        rows = std::max(rows, column.size());
    return rows;
}

// The value that a pixel shows of several.
class Shown
{
public:
    explicit Shown(const Image& image) : isSigned(image.low < 0 && image.high > 0) {}

    void add(double value)
    {
        if (!std::isfinite(value))
            return;
        const bool isStronger = isSigned ? std::fabs(value) > std::fabs(best) : value > best;
        if (!std::isfinite(best) || isStronger)
            best = value;
    }
    double value() const { return best; }

private:
    bool isSigned;
    double best = std::numeric_limits<double>::quiet_NaN();
};

double shownAt(const Image& image, Cells columns, Cells rows)
{
    Shown shown(image);
    for (std::size_t x = columns.from; x < columns.to; ++x) {
        const std::span<const float>& column = image.columns[x];
        for (std::size_t y = rows.from; y < std::min(rows.to, column.size()); ++y)
            shown.add(column[y]);
    }
    return shown.value();
}

// Paints `pixels`, row by row, onto `plot`.
void paint(cairo_t* cr, const Area& plot, const std::vector<uint32_t>& pixels, int width,
           int height)
{
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    unsigned char* data = cairo_image_surface_get_data(surface);
    if (data != nullptr) {
        const int stride = cairo_image_surface_get_stride(surface);
        for (int y = 0; y < height; ++y)
            std::copy_n(
                pixels.begin() + static_cast<std::ptrdiff_t>(y) * width, width,
                reinterpret_cast<uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride));
        cairo_surface_mark_dirty(surface);
    }
    paintPixels(cr, plot, surface);
    cairo_surface_destroy(surface);
}

// Very large and very small values are written with an exponent that all ticks share.
int sharedExponent(double low, double high)
{
    const double greatest = std::max(std::fabs(low), std::fabs(high));
    const int power = greatest > 0 ? static_cast<int>(std::floor(std::log10(greatest))) : 0;
    return power >= 6 || power <= -4 ? power : 0;
}

bool isWhole(double value)
{
    return std::fabs(value - std::round(value)) < 1e-6;
}

// Colours from the lowest value at the bottom to the highest on top, with ticks to the right.
void drawBar(cairo_t* cr, const Area& bar, const Image& image, const ImageStyle& style)
{
    constexpr double size = 9;
    const int steps = std::max(2, static_cast<int>(bar.height * pixelsPerPoint));
    std::vector<uint32_t> colours;
    colours.reserve(static_cast<std::size_t>(steps));
    for (int i = 0; i < steps; ++i)
        colours.push_back(imageColour(style.colourMap, 1 - (i + 0.5) / steps));
    paint(cr, bar, colours, 1, steps);
    setColour(cr, 0);
    cairo_set_line_width(cr, 0.8);
    cairo_rectangle(cr, bar.x, bar.y, bar.width, bar.height);
    cairo_stroke(cr);

    const int power = sharedExponent(image.low, image.high);
    const double unit = std::pow(10.0, power);
    int decimals = 0;
    double widest = 0;
    for (const double tick : roundTicks(image.low / unit, image.high / unit,
                                        std::max(2, static_cast<int>(bar.height / 40)), decimals))
    {
        if (style.hasWholeValues && !isWhole(tick * unit))
            continue;
        const double share = (tick * unit - image.low) / (image.high - image.low);
        const double y = bar.y + (1 - share) * bar.height;
        const std::string text =
            formatFixed(tick, style.hasWholeValues && power == 0 ? 0 : decimals);
        cairo_move_to(cr, bar.x + bar.width, y);
        cairo_line_to(cr, bar.x + bar.width + 4, y);
        cairo_stroke(cr);
        drawText(cr, bar.x + bar.width + 7, y, text, size, 0, 0.5);
        widest = std::max(widest, textWidth(cr, text, size));
    }
    std::string label = style.barLabel;
    if (power != 0)
        label += (label.empty() ? "" : ", ") + ("x 1e" + std::to_string(power));
    drawText(cr, bar.x + bar.width + 12 + widest, bar.y + bar.height / 2, label, size, 0.5, 0,
             -M_PI / 2);
}

} // namespace

void findValueRange(const std::vector<std::span<const float>>& columns, double& low, double& high)
{
    low = std::numeric_limits<double>::infinity();
    high = -low;
    for (const std::span<const float>& column : columns) {
        for (const float value : column) {
            if (!std::isfinite(value))
                continue;
            low = std::min<double>(low, value);
            high = std::max<double>(high, value);
        }
    }
    if (low > high) {
        low = 0;
        high = 1;
    } else if (low == high) {
        high = low + std::max(1.0, std::fabs(low));
    }
}

unsigned imageColour(const std::string& map, double share)
{
    const double place = std::clamp(share, 0.0, 1.0);
    if (isColourMap(map))
        return mapColour(map, 2 * place - 1);
    constexpr double last = sequentialColours.size() - 1;
    const auto index =
        std::min(static_cast<std::size_t>(place * last), sequentialColours.size() - 2);
    return mixed(sequentialColours[index], sequentialColours[index + 1],
                 place * last - static_cast<double>(index));
}

unsigned emptyColour(const std::string& map)
{
    return isColourMap(map) ? paleGreen : white;
}

void markWholeNumbers(Axis& axis)
{
    constexpr int wanted = 10;
    int decimals = 0;
    axis.places.clear();
    for (const double value : roundTicks(axis.from, axis.to, wanted, decimals))
        if (isWhole(value))
            axis.places.emplace_back(value, formatFixed(value, 0));
}

Area imagePlot(const Area& space, const Axis& x, const Axis& y, bool hasEqualScales)
{
    if (!hasEqualScales)
        return space;
    const double across = std::fabs(x.to - x.from);
    const double down = std::fabs(y.to - y.from);
    const double scale = std::min(space.width / across, space.height / down);
    const double width = std::max(across * scale, 1.0);
    const double height = std::max(down * scale, 1.0);
    return {space.x + (space.width - width) / 2, space.y + (space.height - height) / 2, width,
            height};
}

std::vector<uint32_t> imagePixels(const Image& image, const std::string& colourMap, int width,
                                  int height)
{
    constexpr int last = 1023;
    std::vector<uint32_t> colours;
    colours.reserve(last + 1);
    for (int i = 0; i <= last; ++i)
        colours.push_back(imageColour(colourMap, static_cast<double>(i) / last));
    std::vector<uint32_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                                 emptyColour(colourMap));
    const std::size_t rows = rowsOf(image);
    if (image.columns.empty() || rows == 0)
        return pixels;
    auto pixel = pixels.begin();
    for (int y = 0; y < height; ++y) {
        const Cells down = cellsOf(y, height, rows);
        for (int x = 0; x < width; ++x, ++pixel) {
            const double value = shownAt(image, cellsOf(x, width, image.columns.size()), down);
            if (!std::isfinite(value))
                continue;
            const double share =
                std::clamp((value - image.low) / (image.high - image.low), 0.0, 1.0);
            *pixel = colours[static_cast<std::size_t>(std::lround(share * last))];
        }
    }
    return pixels;
}

Area drawImage(cairo_t* cr, const Area& page, const Image& image, const ImageStyle& style)
{
    const Area space = {page.x + 90, page.y + 40, page.width - 200, page.height - 100};
    const Area plot = imagePlot(space, image.x, image.y, style.hasEqualScales);
    const int width = std::max(1, static_cast<int>(std::lround(plot.width * pixelsPerPoint)));
    const int height = std::max(1, static_cast<int>(std::lround(plot.height * pixelsPerPoint)));
    paint(cr, plot, imagePixels(image, style.colourMap, width, height), width, height);
    setColour(cr, 0);
    drawText(cr, page.x + page.width / 2, page.y + 10, style.title, 13, 0.5, 0);
    drawAxes(cr, plot, image.x, image.y, false);
    const double barHeight = std::max(plot.height, std::min(leastBarHeight, space.height));
    drawBar(cr,
            {plot.x + plot.width + 20, plot.y + (plot.height - barHeight) / 2, barWidth, barHeight},
            image, style);
    setColour(cr, 0);
    drawText(cr, space.x, page.y + page.height - 18, style.note, 9);
    return plot;
}

} // namespace host
