#include "draw/SectionPlot.h"

#include "base/Numbers.h"
#include "base/Quantities.h"
#include "draw/SectionAxis.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

namespace host {

namespace {

constexpr double wiggleTolerance = 0.2; // points: less than half a pixel of a PNG page
constexpr double narrowLobe = 0.4;      // points

struct ColourMap
{
    const char* name;
    std::array<unsigned, 3> colours; // at -1, 0 and 1
};

constexpr ColourMap colourMaps[] = {
    {"gray", {0xFFFFFF, 0x808080, 0x000000}},
    {"seismic", {0x0000C0, 0xFFFFFF, 0xC00000}},
    {"black-white-red", {0x000000, 0xFFFFFF, 0xC00000}},
};

const ColourMap* findMap(const std::string& name)
{
    const auto* map = std::find_if(std::begin(colourMaps), std::end(colourMaps),
                                   [&](const ColourMap& one) { return name == one.name; });
    return map != std::end(colourMaps) ? map : nullptr;
}

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

// Places are sample centres: sample 0 lies at the top edge and the last one at the bottom edge.
void drawDensity(cairo_t* cr, const Area& plot, const SectionRaster& raster,
                 const SectionStyle& style, double clip)
{
    const int width = raster.columns();
    const int height = static_cast<int>(raster.rows());
    cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    unsigned char* pixels = cairo_image_surface_get_data(image);
    const int stride = cairo_image_surface_get_stride(image);
    std::array<unsigned, 511> colours;
    for (std::size_t i = 0; i < colours.size(); ++i)
        colours[i] = mapColour(style.colourMap, (static_cast<double>(i) - 255) / 255);

    std::vector<unsigned> column(raster.rows());
    std::size_t drawn = raster.traces();
    for (int x = 0; x < width; ++x) {
        const std::optional<std::size_t> index = raster.traceOf(x);
        if (!index) {
            drawn = raster.traces();
            std::fill(column.begin(), column.end(), 0xFFFFFFU); // between two gathers
        } else if (*index != drawn) {
            drawn = *index;
            const std::vector<double>& rows = raster.of(drawn);
            for (std::size_t y = 0; y < column.size(); ++y) {
                const double value = (y < rows.size() ? rows[y] : 0) / clip;
                const double place = std::clamp(value, -1.0, 1.0) * 255 + 255;
                column[y] = colours[static_cast<std::size_t>(std::lround(place))];
            }
        }
        for (int y = 0; y < height; ++y)
            reinterpret_cast<uint32_t*>(pixels + static_cast<std::ptrdiff_t>(y) * stride)[x] =
                column[static_cast<std::size_t>(y)];
    }
    cairo_surface_mark_dirty(image);
    paintPixels(cr, plot, image);
    cairo_surface_destroy(image);
}

struct Point
{
    double deflection; // in points, to the right
    double y;
};

// One point per row of the picture at most; rows that several samples share have the strongest.
std::vector<Point> wigglePoints(const SectionRaster& raster, std::size_t trace, const Area& plot,
                                double scale, double most)
{
    const double span = static_cast<double>(std::max<int64_t>(raster.samples(), 2)) - 1;
    const double perRow = raster.perRow();
    const std::vector<double>& values = raster.of(trace);
    std::vector<Point> points;
    points.reserve(raster.rows());
    for (std::size_t row = 0; row < raster.rows(); ++row) {
        const double from = static_cast<double>(row) * perRow;
        const double middle = std::min(from + perRow / 2 - 0.5, span);
        const double value = (row < values.size() ? values[row] : 0) * scale;
        points.push_back(
            {std::clamp(value, -most, most), plot.y + std::max(0.0, middle) / span * plot.height});
    }
    return points;
}

// Rounded to an eighth of a point: no difference can be seen, and files have fewer digits.
double snapped(double place)
{
    return std::round(place * 8) / 8;
}

// Leaves out the points that lie within `tolerance` of the line through those kept (U. Ramer: An
// iterative procedure for the polygonal approximation of plane curves, Computer Graphics and Image
// Processing 1, 244-256, 1972). Deflections are measured, as rows have their places.
std::vector<Point> simplified(const std::vector<Point>& points, double tolerance)
{
    std::vector<char> kept(points.size(), 0);
    kept.front() = kept.back() = 1;
    std::vector<std::pair<std::size_t, std::size_t>> spans = {{0, points.size() - 1}};
    while (!spans.empty()) {
        const auto [first, last] = spans.back();
        spans.pop_back();
        const Point& a = points[first];
        const Point& b = points[last];
        double most = tolerance;
        std::size_t farthest = first;
        for (std::size_t i = first + 1; i < last; ++i) {
            const double share = (points[i].y - a.y) / (b.y - a.y);
            const double line = a.deflection + (b.deflection - a.deflection) * share;
            const double off = std::fabs(points[i].deflection - line);
            if (off > most) {
                most = off;
                farthest = i;
            }
        }
        if (farthest == first)
            continue;
        kept[farthest] = 1;
        spans.emplace_back(first, farthest);
        spans.emplace_back(farthest, last);
    }
    std::vector<Point> result;
    for (std::size_t i = 0; i < points.size(); ++i) {
        if (kept[i] != 0)
            result.push_back(points[i]);
    }
    return result;
}

void lineTo(cairo_t* cr, double x, double y)
{
    cairo_line_to(cr, snapped(x), snapped(y));
}

// The points, with one added wherever the line between two of them crosses the zero line.
std::vector<Point> withCrossings(const std::vector<Point>& points)
{
    std::vector<Point> result;
    for (const Point& here : points) {
        if (!result.empty() && result.back().deflection * here.deflection < 0) {
            const Point& before = result.back();
            const double share = before.deflection / (before.deflection - here.deflection);
            result.push_back({0, before.y + (here.y - before.y) * share});
        }
        result.push_back(here);
    }
    return result;
}

// The path of the parts of a trace, from one zero crossing to the next, that are lobes to the right
// or are not.
void addParts(cairo_t* cr, const std::vector<Point>& points, double centre, bool lobes)
{
    for (std::size_t begin = 0; begin < points.size();) {
        std::size_t end = begin + 1; // of the part that begins here and ends in the middle
        double widest = points[begin].deflection;
        while (end < points.size() && (end == begin + 1 || points[end - 1].deflection != 0)) {
            widest = std::max(widest, points[end].deflection);
            ++end;
        }
        if ((widest > narrowLobe) == lobes) {
            cairo_new_sub_path(cr);
            if (lobes)
                lineTo(cr, centre, points[begin].y);
            for (std::size_t i = begin; i < end; ++i)
                lineTo(cr, centre + points[i].deflection, points[i].y);
            if (lobes)
                lineTo(cr, centre, points[end - 1].y);
        }
        begin = end < points.size() ? end - 1 : end;
    }
}

// Every part is stroked: the ends of a lobe are thinner than any pixel, and filled only, the trace
// would have gaps there. The lobes' outline is also their filling, which files hold as one path;
// a lobe hardly wider than the line is part of the line.
void drawWiggle(cairo_t* cr, const std::vector<Point>& points, double centre)
{
    addParts(cr, points, centre, true);
    cairo_fill_preserve(cr);
    cairo_stroke(cr);
    addParts(cr, points, centre, false);
    cairo_stroke(cr);
}

void drawWiggles(cairo_t* cr, const Area& plot, const SectionRaster& raster,
                 const SectionStyle& style, double clip)
{
    const double spacing = raster.across().spacing();
    const double most = spacing * style.wiggleGain;
    cairo_save(cr);
    cairo_rectangle(cr, plot.x, plot.y, plot.width, plot.height);
    cairo_clip(cr);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, std::clamp(spacing / 8, 0.1, 0.5));
    cairo_set_line_cap(cr, CAIRO_LINE_CAP_ROUND); // parts meet without a notch
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    for (std::size_t i = 0; i < raster.traces(); i += raster.step()) {
        const double centre = plot.x + raster.across().centre(i);
        drawWiggle(cr,
                   withCrossings(simplified(wigglePoints(raster, i, plot, most / clip, most),
                                            wiggleTolerance)),
                   centre);
    }
    cairo_restore(cr);
}

// ---- Picks ----

// Which colour stands out from the traces.
unsigned pickColour(const SectionStyle& style)
{
    constexpr unsigned red = 0xE00000;
    constexpr unsigned green = 0x009000;
    return isWiggle(style) || style.colourMap == "gray" ? red : green;
}

// From one trace with a pick to the next one of the same gather; a pick alone is a dash.
void addPickLines(cairo_t* cr, const std::vector<std::optional<double>>& heights, const Area& plot,
                  const TraceColumns& across)
{
    const double dash = std::max(across.spacing(), 3.0) / 2;
    for (std::size_t gather = 0; gather < across.gathers(); ++gather) {
        const std::size_t end = across.end(gather);
        for (std::size_t i = across.begin(gather); i < end; ++i) {
            if (!heights[i])
                continue;
            const bool goesOn = i > across.begin(gather) && heights[i - 1];
            const bool isAlone = !goesOn && (i + 1 == end || !heights[i + 1]);
            const double x = plot.x + across.centre(i);
            if (goesOn)
                cairo_line_to(cr, x, *heights[i]);
            else
                cairo_move_to(cr, isAlone ? x - dash : x, *heights[i]);
            if (isAlone)
                cairo_line_to(cr, x + dash, *heights[i]);
        }
    }
}

void addCross(cairo_t* cr, double x, double y, double half)
{
    cairo_move_to(cr, x - half, y - half);
    cairo_line_to(cr, x + half, y + half);
    cairo_move_to(cr, x - half, y + half);
    cairo_line_to(cr, x + half, y - half);
}

constexpr double crossHalf = 2.5; // points

// On a light margin, to be seen on dark traces.
void strokePicks(cairo_t* cr, unsigned colour)
{
    cairo_set_source_rgba(cr, 1, 1, 1, 0.6);
    cairo_set_line_width(cr, 2.6);
    cairo_stroke_preserve(cr);
    setColour(cr, colour);
    cairo_set_line_width(cr, 1.2);
    cairo_stroke(cr);
}

void drawPicks(cairo_t* cr, const Area& plot, const Section& section, const TraceColumns& across,
               const SectionStyle& style, double lastTime)
{
    if (section.picks.empty())
        return;
    std::vector<std::optional<double>> heights(section.picks.size());
    for (std::size_t i = 0; i < heights.size(); ++i) {
        const double time = section.picks[i];
        if (time >= section.start && time <= lastTime)
            heights[i] = plot.y + (time - section.start) / (lastTime - section.start) * plot.height;
    }
    cairo_save(cr);
    cairo_rectangle(cr, plot.x, plot.y, plot.width, plot.height);
    cairo_clip(cr);
    cairo_new_path(cr);
    if (style.pickMark == "cross") {
        for (std::size_t i = 0; i < heights.size(); ++i) {
            if (heights[i])
                addCross(cr, plot.x + across.centre(i), *heights[i], crossHalf);
        }
    } else {
        addPickLines(cr, heights, plot, across);
    }
    strokePicks(cr, pickColour(style));
    cairo_restore(cr);
}

// Below the line of the clip.
void drawPickLegend(cairo_t* cr, const Area& plot, const SectionStyle& style)
{
    constexpr double length = 22;
    const double y = plot.y + plot.height + 27;
    cairo_save(cr);
    cairo_new_path(cr);
    if (style.pickMark == "cross") {
        addCross(cr, plot.x + length / 2, y, crossHalf);
    } else {
        cairo_move_to(cr, plot.x, y);
        cairo_line_to(cr, plot.x + length, y);
    }
    strokePicks(cr, pickColour(style));
    cairo_restore(cr);
    drawText(cr, plot.x + length + 6, y, style.pickLabel, 9, 0, 0.5);
}

} // namespace

bool isColourMap(const std::string& map)
{
    return findMap(map) != nullptr;
}

unsigned mapColour(const std::string& map, double amplitude)
{
    const ColourMap* colours = findMap(map);
    if (colours == nullptr)
        colours = &colourMaps[0];
    const double place = std::clamp(amplitude, -1.0, 1.0);
    return place < 0 ? mixed(colours->colours[1], colours->colours[0], -place)
                     : mixed(colours->colours[1], colours->colours[2], place);
}

void findGathers(Section& section, const std::string& word, const std::vector<double>& values)
{
    section.labels.gathers.name = word;
    for (std::size_t i = 0; i < values.size(); ++i) {
        // A value that is not a number differs from itself.
        const bool isSame = i > 0 && (values[i] == values[i - 1] ||
                                      (std::isnan(values[i]) && std::isnan(values[i - 1])));
        if (isSame)
            continue;
        section.labels.gathers.values.push_back(values[i]);
        if (i > 0)
            section.gatherStarts.push_back(i);
    }
}

Area sectionPlot(const Area& page, const Section& section)
{
    const double above = 66 + section.labels.moreHeight();
    const double below = section.picks.empty() ? 34 : 48;
    return {page.x + 58, page.y + above, page.width - 76, page.height - above - below};
}

bool isWiggle(const SectionStyle& style)
{
    return style.mode == "wiggle";
}

void drawSection(cairo_t* cr, const Area& page, const Section& section, SectionRaster& raster,
                 const SectionStyle& style)
{
    const Area plot = sectionPlot(page, section);
    cairo_set_source_rgb(cr, 0, 0, 0);
    drawText(cr, page.x + page.width / 2, page.y + 10, style.title, 13, 0.5, 0);
    const int64_t samples = raster.samples();
    if (raster.traces() == 0 || samples == 0 || plot.width <= 0 || plot.height <= 0) {
        drawText(cr, page.x + page.width / 2, page.y + page.height / 2, "no traces", 12, 0.5, 0.5);
        return;
    }

    double clip = raster.clipAmplitude(style.clipPercentile);
    if (clip <= 0) // most samples are zero: show what is there
        clip = raster.clipAmplitude(100);
    const double scale = clip > 0 ? clip : 1;
    if (isWiggle(style))
        drawWiggles(cr, plot, raster, style, scale);
    else
        drawDensity(cr, plot, raster, style, scale);

    Axis time;
    time.from = section.start;
    time.to =
        section.start + section.interval * static_cast<double>(std::max<int64_t>(samples, 2) - 1);
    time.label = style.yLabel;
    const TraceColumns& across = raster.across();
    drawPicks(cr, plot, section, across, style, time.to);
    drawAxes(cr, plot, traceAxis(across, section.labels, raster.traces(), plot.width), time, true);
    drawLabelRows(cr, plot, across, section.labels, raster.traces());

    std::string below =
        "clip " + formatSignificant(clip) + " (" + formatNumber(style.clipPercentile) + " %)";
    const ColourMap* map = findMap(style.colourMap);
    if (isWiggle(style))
        below += ", positive amplitudes to the right, filled";
    else if (map != nullptr && style.colourMap == "gray")
        below += ", positive amplitudes black";
    else
        below += ", positive amplitudes red";
    if (across.gathers() > 1 && across.gap() <= 0)
        below += "; " + std::to_string(across.gathers()) + " gathers, too many for gaps";
    if (!style.note.empty())
        below += "; " + style.note;
    drawText(cr, plot.x, plot.y + plot.height + 8, below, 9);
    if (!section.picks.empty())
        drawPickLegend(cr, plot, style);
}

} // namespace host
