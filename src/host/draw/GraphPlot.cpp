#include "draw/GraphPlot.h"

#include "base/Escaping.h"
#include "base/Numbers.h"
#include "draw/GraphLegend.h"
#include "draw/SeparateTexts.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace host {

namespace {

enum Command
{
    plotCommand = 1,
    numberCommand = 2,
    symbolCommand = 3,
    factorCommand = 4,
    newPenCommand = 5
};

constexpr int penDown = 2;

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

void stretch(Axis& axis, double factor)
{
    const double middle = (axis.from + axis.to) / 2;
    axis.from = middle + (axis.from - middle) * factor;
    axis.to = middle + (axis.to - middle) * factor;
}

// A unit of x as long as one of y, as on a map: the axis with more room shows more.
void makeScalesEqual(Frame& frame)
{
    const double perX = std::fabs(frame.x.to - frame.x.from) / frame.plot.width;
    const double perY = std::fabs(frame.y.to - frame.y.from) / frame.plot.height;
    if (perX < perY)
        stretch(frame.x, perY / perX);
    else
        stretch(frame.y, perX / perY);
}

class GraphPen
{
public:
    // `isApart`: texts that would overlap others are moved or left out.
    GraphPen(cairo_t* context, const Frame& where, bool isApart)
        : cr(context), frame(where), texts(where.plot), apart(isApart)
    {
    }
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
                texts.avoid({x - height(command) / 2, y - height(command) / 2, height(command),
                             height(command)});
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
        if (apart)
            writeApart(x, y, text, height(command));
        else
            drawText(cr, x, y, text, height(command), 0, 1, -command.angle * M_PI / 180);
    }

    void writeApart(double x, double y, const std::string& text, double size)
    {
        constexpr double margin = 2;
        const auto room = texts.place(x, y, textWidth(cr, text, size) + 2 * margin, size + margin);
        if (room)
            SeparateTexts::draw(cr, x, *room, text, size);
    }

    cairo_t* cr;
    const Frame& frame;
    SeparateTexts texts;
    bool apart;
    double factor = 1;
};

constexpr double aboveGraph = 40; // points: the title
constexpr double belowGraph = 60; // the labels of x and the note
constexpr double toLegend = 36;   // from the lower axis
constexpr double leftOfGraph = 76;
constexpr double rightOfGraph = 24;

GraphLegend legendOf(cairo_t* cr, const Area& page, const Pad& pad)
{
    return {cr, legendEntries(pad.directive("legend")), page.width - leftOfGraph - rightOfGraph};
}

} // namespace

void widen(double& from, double& to)
{
    if (from == to) {
        from -= 0.5;
        to += 0.5;
    }
}

void drawCommands(cairo_t* cr, const Area& plot, const Axis& x, const Axis& y, const Pad& pad)
{
    const Frame frame{plot, x, y};
    cairo_save(cr);
    cairo_rectangle(cr, plot.x, plot.y, plot.width, plot.height);
    cairo_clip(cr);
    cairo_set_line_width(cr, 1);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    {
        GraphPen pen(cr, frame, pad.directive("texts") == "apart");
        cairo_new_path(cr);
        for (const PadCommand& command : pad.commands)
            pen.follow(command);
    }
    cairo_restore(cr);
}

Area graphPlot(cairo_t* cr, const Area& page, const Pad& pad)
{
    return {page.x + leftOfGraph, page.y + aboveGraph, page.width - leftOfGraph - rightOfGraph,
            page.height - aboveGraph - belowGraph - legendOf(cr, page, pad).height()};
}

void drawGraph(cairo_t* cr, const Area& page, const Pad& pad)
{
    Frame frame;
    frame.plot = graphPlot(cr, page, pad);
    findRanges(pad, frame.x, frame.y);
    if (pad.directive("scales") == "equal")
        makeScalesEqual(frame);
    frame.x.label = escaped(pad.directive("x"));
    frame.y.label = escaped(pad.directive("y"));

    setColour(cr, 0);
    drawText(cr, page.x + page.width / 2, page.y + 10, escaped(pad.title), 13, 0.5, 0);
    drawAxes(cr, frame.plot, frame.x, frame.y, false);
    drawCommands(cr, frame.plot, frame.x, frame.y, pad);
    legendOf(cr, page, pad).draw(cr, frame.plot.x, frame.plot.y + frame.plot.height + toLegend);
    setColour(cr, 0);
    drawText(cr, frame.plot.x, page.y + page.height - 18, escaped(pad.directive("note")), 9);
}

} // namespace host
