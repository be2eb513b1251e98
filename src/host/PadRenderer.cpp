#include "PadRenderer.h"

#include "Drawing.h"
#include "SectionPlot.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace vorn {

namespace {

constexpr double pageWidth = 900;
constexpr double pageHeight = 600;

enum Command
{
    plotCommand = 1,
    numberCommand = 2,
    symbolCommand = 3,
    factorCommand = 4,
    newPenCommand = 5
};

constexpr int penDown = 2;

// Pens by number, from 1; others are taken round.
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
                write(x, y, command, formatNumber(command.fpn, std::clamp(command.ndec, 0, 9)));
            break;
        case symbolCommand:
            if (!placed)
                break;
            if (command.inchar > 0)
                write(x, y, command, one.text.substr(0, static_cast<std::size_t>(command.inchar)));
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

// The directive `legend` names pens: "1=input, 2=output".
void drawLegend(cairo_t* cr, const Area& plot, const std::string& legend)
{
    double y = plot.y + 8;
    std::size_t at = 0;
    while (at < legend.size()) {
        const std::size_t end = std::min(legend.find(',', at), legend.size());
        const std::string entry = legend.substr(at, end - at);
        const std::size_t equals = entry.find('=');
        at = end + 1;
        if (equals == std::string::npos)
            continue;
        const int pen = std::atoi(entry.c_str());
        const double right = plot.x + plot.width - 10;
        setColour(cr, penColour(pen));
        cairo_move_to(cr, right - 24, y + 6);
        cairo_line_to(cr, right, y + 6);
        cairo_stroke(cr);
        setColour(cr, 0);
        drawText(cr, right - 30, y, entry.substr(equals + 1), 9, 1, 0);
        y += 14;
    }
}

void drawGraph(cairo_t* cr, const Area& page, const Pad& pad)
{
    Frame frame;
    frame.plot = {page.x + 76, page.y + 40, page.width - 100, page.height - 100};
    findRanges(pad, frame.x, frame.y);
    frame.x.label = pad.directive("x");
    frame.y.label = pad.directive("y");

    setColour(cr, 0);
    drawText(cr, page.x + page.width / 2, page.y + 10, pad.title, 13, 0.5, 0);
    drawAxes(cr, frame.plot, frame.x, frame.y, false);
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
    cairo_set_line_width(cr, 1.2);
    drawLegend(cr, frame.plot, pad.directive("legend"));
    setColour(cr, 0);
    drawText(cr, frame.plot.x, page.y + page.height - 18, pad.directive("note"), 9);
}

void drawPadSection(cairo_t* cr, const Area& page, const Pad& pad)
{
    Section section;
    for (const PadTrace& trace : pad.traces) {
        section.traces.push_back(trace.samples);
        section.labels.push_back(trace.label);
    }
    section.interval = pad.sampleInterval > 0 ? pad.sampleInterval * 1e-6 : 1;
    section.start = pad.sampleInterval > 0 ? pad.delay * 1e-3 : 0;

    SectionStyle style;
    style.title = pad.title;
    style.mode = pad.directive("mode", style.mode);
    style.colourMap = pad.directive("colormap", style.colourMap);
    style.clipPercentile = pad.number("clip", style.clipPercentile);
    style.wiggleGain = pad.number("gain", style.wiggleGain);
    style.xLabel = pad.directive("x", style.xLabel);
    style.yLabel = pad.directive("y", pad.sampleInterval > 0 ? style.yLabel : "sample");
    style.note = pad.directive("note");
    drawSection(cr, page, section, style);
}

} // namespace

void renderPad(const Pad& pad, const std::string& path)
{
    const bool section = !pad.traces.empty() || pad.type == 1;
    const bool graph = !pad.commands.empty() || pad.type == 2;
    const double pages = section && graph ? 2 : 1;
    Page page(path, pageWidth, pageHeight * pages);
    Area area{0, 0, pageWidth, pageHeight};
    if (section) {
        drawPadSection(page.context(), area, pad);
        area.y += pageHeight;
    }
    if (graph)
        drawGraph(page.context(), area, pad);
    page.finish();
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

} // namespace vorn
