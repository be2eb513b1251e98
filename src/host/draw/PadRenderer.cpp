#include "draw/PadRenderer.h"

#include "base/Escaping.h"
#include "draw/GraphPlot.h"
#include "draw/ImagePlot.h"
#include "draw/Png.h"
#include "draw/SectionPlot.h"

#include <algorithm>
#include <cairo-svg.h>
#include <cmath>
#include <set>

namespace host {

namespace {

constexpr double pageWidth = 900;
constexpr double pageHeight = 600;
constexpr double pixelsPerPoint = 2;
constexpr std::size_t largestSvg = 262144;
constexpr std::size_t mostSvgCommands = 20000;

// Seconds; a pick of 0 is none.
double pickOf(const PadTrace& trace, bool inSeconds)
{
    if (trace.pick == 0)
        return NAN;
    return inSeconds ? trace.pick : trace.pick * 1e-3;
}

// What is drawn of the traces beside their samples.
void annotate(Section& section, const Pad& pad)
{
    section.labels.traces.name = escaped(pad.directive("x", "trace"));
    section.labels.second.name = escaped(pad.directive("xattr2"));
    const bool hasSecond = !pad.directive("xattr2").empty();
    const bool hasPicks = !pad.directive("picks").empty();
    const bool inSeconds = pad.directive("pickunit") == "s";
    std::vector<double> gathers;
    gathers.reserve(pad.traces.size());
    for (const PadTrace& trace : pad.traces) {
        section.labels.traces.values.push_back(trace.label);
        if (hasSecond)
            section.labels.second.values.push_back(trace.secondLabel);
        if (hasPicks)
            section.picks.push_back(pickOf(trace, inSeconds));
        gathers.push_back(trace.gather);
    }
    if (!pad.directive("gather").empty())
        findGathers(section, escaped(pad.directive("gather")), gathers);
}

void drawPadSection(cairo_t* cr, const Area& page, const Pad& pad)
{
    Section section;
    section.places.reserve(pad.traces.size());
    for (std::size_t i = 0; i < pad.traces.size(); ++i)
        section.places.push_back({0, static_cast<int64_t>(pad.samplesOf(i).size())});
    annotate(section, pad);
    section.interval = (pad.sampleInterval > 0 ? pad.sampleInterval * 1e-6 : 1) *
                       static_cast<double>(pad.samplesPerValue);
    section.start = pad.sampleInterval > 0 ? pad.delay * 1e-3 : 0;

    SectionStyle style;
    style.title = escaped(pad.title);
    style.mode = pad.directive("mode", style.mode);
    style.colourMap = pad.directive("colormap", style.colourMap);
    style.clipPercentile = pad.number("clip", style.clipPercentile);
    style.wiggleGain = pad.number("gain", style.wiggleGain);
    style.yLabel = escaped(pad.directive("y", pad.sampleInterval > 0 ? style.yLabel : "sample"));
    style.note = escaped(pad.directive("note"));
    style.pickMark = pad.directive("pickmark", style.pickMark);
    style.pickLabel = escaped(pad.directive("picks"));
    SectionRaster raster(sectionPlot(page, section), isWiggle(style), section.places,
                         section.gatherStarts);
    for (std::size_t i = 0; i < pad.traces.size(); ++i)
        raster.add(i, pad.samplesOf(i));
    drawSection(cr, page, section, raster, style);
}

bool isImage(const Pad& pad)
{
    return pad.directive("mode") == "image";
}

// Pens draw over the cells.
void drawPadImage(cairo_t* cr, const Area& page, const Pad& pad)
{
    Image image;
    image.columns.reserve(pad.traces.size());
    std::size_t rows = 1;
    for (std::size_t i = 0; i < pad.traces.size(); ++i) {
        image.columns.emplace_back(pad.samplesOf(i));
        rows = std::max(rows, image.columns.back().size());
    }
    image.x.to = static_cast<double>(std::max<std::size_t>(pad.traces.size(), 1));
    image.y.to = static_cast<double>(rows);
    pad.range("xrange", image.x.from, image.x.to);
    pad.range("yrange", image.y.to, image.y.from);
    widen(image.x.from, image.x.to);
    widen(image.y.from, image.y.to);
    const std::string whole = pad.directive("whole");
    if (whole.find('x') != std::string::npos)
        markWholeNumbers(image.x);
    if (whole.find('y') != std::string::npos)
        markWholeNumbers(image.y);
    image.x.label = escaped(pad.directive("x", "column"));
    image.y.label = escaped(pad.directive("y", "row"));
    if (!pad.range("values", image.low, image.high) || image.low >= image.high)
        findValueRange(image.columns, image.low, image.high);

    ImageStyle style;
    style.title = escaped(pad.title);
    style.colourMap = pad.directive("colormap", style.colourMap);
    style.barLabel = escaped(pad.directive("bar"));
    style.note = escaped(pad.directive("note"));
    style.hasWholeValues = whole.find("values") != std::string::npos;
    style.hasEqualScales = pad.directive("scales") == "equal";
    const Area plot = drawImage(cr, page, image, style);
    if (!pad.commands.empty())
        drawCommands(cr, plot, image.x, image.y, pad);
}

// What a pad shows, one above the other.
struct Parts
{
    explicit Parts(const Pad& pad)
        : section(isImage(pad) || !pad.traces.empty() || pad.type == 1),
          graph(!isImage(pad) && (!pad.commands.empty() || pad.type == 2))
    {
    }
    double height() const { return section && graph ? 2 * pageHeight : pageHeight; }

    bool section;
    bool graph;
};

void drawPad(cairo_t* cr, const Pad& pad)
{
    const Parts parts(pad);
    Area area{0, 0, pageWidth, pageHeight};
    if (isImage(pad)) {
        drawPadImage(cr, area, pad);
    } else if (parts.section) {
        drawPadSection(cr, area, pad);
        area.y += pageHeight;
    }
    if (parts.graph)
        drawGraph(cr, area, pad);
}

cairo_status_t append(void* bytes, const unsigned char* data, unsigned length)
{
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

// A drawing in memory, white and with the pictures' font.
class Canvas
{
public:
    // Takes over the surface.
    Canvas(cairo_surface_t* drawnOn, double scale) : surface(drawnOn), cr(cairo_create(drawnOn))
    {
        cairo_scale(cr, scale, scale);
        cairo_set_source_rgb(cr, 1, 1, 1);
        cairo_paint(cr);
        cairo_set_source_rgb(cr, 0, 0, 0);
        cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                               CAIRO_FONT_WEIGHT_NORMAL);
    }
    ~Canvas()
    {
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    cairo_t* context() const { return cr; }

    // The PNG file of an image surface; what a stream surface has written is whole afterwards.
    void finish(std::string* png)
    {
        cairo_status_t status = cairo_status(cr);
        if (status == CAIRO_STATUS_SUCCESS && png != nullptr)
            status = writePng(surface, *png);
        cairo_surface_finish(surface);
        if (status == CAIRO_STATUS_SUCCESS)
            status = cairo_surface_status(surface);
        if (status != CAIRO_STATUS_SUCCESS)
            throw DrawingError(std::string("the picture cannot be drawn: ") +
                               cairo_status_to_string(status));
    }

private:
    cairo_surface_t* surface;
    cairo_t* cr;
};

std::string padAsSvg(const Pad& pad)
{
    std::string svg;
    Canvas canvas(cairo_svg_surface_create_for_stream(append, &svg, pageWidth, Parts(pad).height()),
                  1);
    drawPad(canvas.context(), pad);
    canvas.finish(nullptr);
    return svg;
}

std::string padAsPng(const Pad& pad)
{
    Canvas canvas(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(pageWidth * pixelsPerPoint),
                                   static_cast<int>(Parts(pad).height() * pixelsPerPoint)),
        pixelsPerPoint);
    drawPad(canvas.context(), pad);
    std::string png;
    canvas.finish(&png);
    return png;
}

} // namespace

void renderPad(const Pad& pad, const std::string& path)
{
    Page page(path, pageWidth, Parts(pad).height(), path);
    drawPad(page.context(), pad);
    page.finish();
}

PadPicture pictureOf(const Pad& pad)
{
    PadPicture picture;
    picture.width = static_cast<int>(pageWidth);
    picture.height = static_cast<int>(Parts(pad).height());
    if (!Parts(pad).section && pad.commands.size() <= mostSvgCommands) {
        picture.mediaType = "image/svg+xml";
        picture.bytes = padAsSvg(pad);
        if (picture.bytes.size() <= largestSvg)
            return picture;
    }
    picture.mediaType = "image/png";
    picture.bytes = padAsPng(pad);
    return picture;
}

std::vector<std::string> pictureNames(const std::vector<Pad>& pads)
{
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (const Pad& pad : pads) {
        const std::string stem = pad.fileStem();
        std::string name = stem;
        for (int n = 2; !taken.insert(name).second; ++n)
            name = stem + "-" + std::to_string(n);
        names.push_back(name);
    }
    return names;
}

} // namespace host
