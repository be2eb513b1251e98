#include "draw/PadRenderer.h"

#include "base/Escaping.h"
#include "base/Numbers.h"
#include "draw/Axes.h"
#include "draw/ImagePlot.h"
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

enum Command
{
    plotCommand = 1,
    numberCommand = 2,
    symbolCommand = 3,
    factorCommand = 4,
    newPenCommand = 5
};

constexpr int penDown = 2;

// Pens by number, from 1; larger numbers start again with the first.
constexpr unsigned pens[] = {0x000000, 0xC00000, 0x0040C0, 0x008040,
                             0xE08000, 0x8000A0, 0x808080, 0x804000};

unsigned penColour(int pen)
{
    const int count = static_cast<int>(std::size(pens));
    return pens[((pen - 1) % count + count) % count];
}

// Data coordinates of a graph to the page; y upwards.
struct Frame
{
    Area plot;
    Axis x;
    Axis y;

    double px(double value) const
    {
        return plot.x + (value - x.from) / (x.to - x.from) * plot.width;
    }
    double py(double value) const
    {
        return plot.y + (value - y.from) / (y.to - y.from) * plot.height;
    }
};

void widen(double& from, double& to)
{
    if (from == to) {
        from -= 0.5;
        to += 0.5;
    }
}

// The stated ranges, or those of everything that is drawn.
void findRanges(const Pad& pad, Axis& x, Axis& y)
{
    double box[4] = {INFINITY, -INFINITY, INFINITY, -INFINITY};
    for (const PadCommand& one : pad.commands) {
        const bool placed = one.command.cmdType <= symbolCommand;
        if (!placed || !std::isfinite(one.command.xpage) || !std::isfinite(one.command.ypage))
            continue;
        box[0] = std::min<double>(box[0], one.command.xpage);
        box[1] = std::max<double>(box[1], one.command.xpage);
        box[2] = std::min<double>(box[2], one.command.ypage);
        box[3] = std::max<double>(box[3], one.command.ypage);
    }
    if (box[0] > box[1]) {
        box[0] = box[2] = 0;
        box[1] = box[3] = 1;
    }
    x.from = box[0];
    x.to = box[1];
    y.from = box[3]; // the page's y runs down
    y.to = box[2];
    pad.range("xrange", x.from, x.to);
    double low = 0;
    double high = 0;
    if (pad.range("yrange", low, high)) {
        y.from = high;
        y.to = low;
    }
    widen(x.from, x.to);
    widen(y.from, y.to);
}

void drawSymbol(cairo_t* cr, double x, double y, double size, int code)
{
    const double r = size / 2;
    cairo_new_path(cr);
    switch (code) {
    case 0:
        cairo_rectangle(cr, x - r, y - r, size, size);
        break;
    case 2:
        cairo_move_to(cr, x, y - r);
        cairo_line_to(cr, x + r, y + r);
        cairo_line_to(cr, x - r, y + r);
        cairo_close_path(cr);
        break;
    case 3:
        cairo_move_to(cr, x - r, y);
        cairo_line_to(cr, x + r, y);
        cairo_move_to(cr, x, y - r);
        cairo_line_to(cr, x, y + r);
        break;
    case 4:
        cairo_move_to(cr, x - r, y - r);
        cairo_line_to(cr, x + r, y + r);
        cairo_move_to(cr, x - r, y + r);
        cairo_line_to(cr, x + r, y - r);
        break;
    case 5:
        cairo_move_to(cr, x, y - r);
        cairo_line_to(cr, x + r, y);
        cairo_line_to(cr, x, y + r);
        cairo_line_to(cr, x - r, y);
        cairo_close_path(cr);
        break;
    default:
        cairo_arc(cr, x, y, r, 0, 2 * M_PI);
        break;
    }
    constexpr int filledCircle = 6;
    if (code == filledCircle)
        cairo_fill(cr);
    else
        cairo_stroke(cr);
}

class GraphPen
{
public:
    GraphPen(cairo_t* context, const Frame& where) : cr(context), frame(where) {}
    ~GraphPen() { lift(); }

    void follow(const PadCommand& one)
    {
        const plotCommandStruct& command = one.command;
        const double x = frame.px(command.xpage);
        const double y = frame.py(command.ypage);
        const bool placed = std::isfinite(x) && std::isfinite(y);
        switch (command.cmdType) {
        case plotCommand:
            if (placed)
                move(x, y, command.ipen == penDown);
            else
                lift();
            break;
        case numberCommand:
            if (placed)
                write(x, y, command, formatFixed(command.fpn, std::clamp(command.ndec, 0, 9)));
            break;
        case symbolCommand:
            if (!placed)
                break;
            if (command.inchar > 0)
                write(x, y, command,
                      escaped(one.text.substr(0, static_cast<std::size_t>(command.inchar))));
            else {
                lift();
                drawSymbol(cr, x, y, height(command), command.inteq);
            }
            break;
        case factorCommand:
            factor = command.factor;
            break;
        case newPenCommand:
            lift();
            setColour(cr, penColour(command.ipen));
            break;
        default:
            break;
        }
    }

private:
    void move(double x, double y, bool down)
    {
        if (down && cairo_has_current_point(cr))
            cairo_line_to(cr, x, y);
        else
            cairo_move_to(cr, x, y);
    }
    void lift() { cairo_stroke(cr); }
    double height(const plotCommandStruct& command) const
    {
        return std::clamp<double>(command.height * factor, 1, 100);
    }
    void write(double x, double y, const plotCommandStruct& command, const std::string& text)
    {
        lift();
        drawText(cr, x, y, text, height(command), 0, 1, -command.angle * M_PI / 180);
    }

    cairo_t* cr;
    const Frame& frame;
    double factor = 1;
};

constexpr int noSymbol = -1; // a line

struct LegendEntry
{
    int pen;
    int symbol;
    std::string text;
};

// The directive `legend` names pens, or symbols that a pen draws: "1=input, 2:4=dead".
std::vector<LegendEntry> legendEntries(const std::string& legend)
{
    std::vector<LegendEntry> entries;
    std::size_t at = 0;
    while (at < legend.size()) {
        const std::size_t end = std::min(legend.find(',', at), legend.size());
        const std::string entry = legend.substr(at, end - at);
        const std::size_t equals = entry.find('=');
        const std::size_t colon = entry.find(':');
        at = end + 1;
        if (equals == std::string::npos)
            continue;
        const int symbol = colon < equals ? std::atoi(entry.c_str() + colon + 1) : noSymbol;
        entries.push_back({std::atoi(entry.c_str()), symbol, escaped(entry.substr(equals + 1))});
    }
    return entries;
}

// In the upper right corner, on an almost opaque background.
void drawLegend(cairo_t* cr, const Area& plot, const std::string& legend)
{
    constexpr double size = 9;
    constexpr double rowHeight = 14;
    const std::vector<LegendEntry> entries = legendEntries(legend);
    if (entries.empty())
        return;
    double widest = 0;
    for (const LegendEntry& entry : entries)
        widest = std::max(widest, textWidth(cr, entry.text, size));

    const double right = plot.x + plot.width - 10;
    double y = plot.y + 8;
    cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
    cairo_rectangle(cr, right - 36 - widest, y - 4, widest + 42,
                    rowHeight * static_cast<double>(entries.size()) + 4);
    cairo_fill(cr);
    for (const LegendEntry& entry : entries) {
        setColour(cr, penColour(entry.pen));
        if (entry.symbol != noSymbol) {
            drawSymbol(cr, right - 12, y + 6, size, entry.symbol);
        } else {
            cairo_move_to(cr, right - 24, y + 6);
            cairo_line_to(cr, right, y + 6);
            cairo_stroke(cr);
        }
        setColour(cr, 0);
        drawText(cr, right - 30, y, entry.text, size, 1, 0);
        y += rowHeight;
    }
}

// What pens have drawn, within the frame.
void drawCommands(cairo_t* cr, const Frame& frame, const Pad& pad)
{
    cairo_save(cr);
    cairo_rectangle(cr, frame.plot.x, frame.plot.y, frame.plot.width, frame.plot.height);
    cairo_clip(cr);
    cairo_set_line_width(cr, 1);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    {
        GraphPen pen(cr, frame);
        cairo_new_path(cr);
        for (const PadCommand& command : pad.commands)
            pen.follow(command);
    }
    cairo_restore(cr);
}

void drawGraph(cairo_t* cr, const Area& page, const Pad& pad)
{
    Frame frame;
    frame.plot = {page.x + 76, page.y + 40, page.width - 100, page.height - 100};
    findRanges(pad, frame.x, frame.y);
    frame.x.label = escaped(pad.directive("x"));
    frame.y.label = escaped(pad.directive("y"));

    setColour(cr, 0);
    drawText(cr, page.x + page.width / 2, page.y + 10, escaped(pad.title), 13, 0.5, 0);
    drawAxes(cr, frame.plot, frame.x, frame.y, false);
    drawCommands(cr, frame, pad);
    cairo_set_line_width(cr, 1.2);
    drawLegend(cr, frame.plot, pad.directive("legend"));
    setColour(cr, 0);
    drawText(cr, frame.plot.x, page.y + page.height - 18, escaped(pad.directive("note")), 9);
}

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
        drawCommands(cr, {plot, image.x, image.y}, pad);
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
            status = cairo_surface_write_to_png_stream(surface, append, png);
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
