#include "draw/Axes.h"

#include "base/Numbers.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace host {

namespace {

constexpr double tickLength = 4;
constexpr double labelSize = 9;

double position(const Axis& axis, double start, double length, double value)
{
    return start + (value - axis.from) / (axis.to - axis.from) * length;
}

std::vector<std::pair<double, std::string>> places(const Axis& axis, double length)
{
    if (!axis.places.empty())
        return axis.places;
    int decimals = 0;
    std::vector<std::pair<double, std::string>> labelled;
    constexpr int mostDecimals = 6; // more make long rows of zeros
    for (const double value :
         roundTicks(axis.from, axis.to, std::max(2, static_cast<int>(length / 60)), decimals))
        labelled.emplace_back(value, decimals > mostDecimals ? fmt::format("{:.6g}", value)
                                                             : formatFixed(value, decimals));
    return labelled;
}

void line(cairo_t* cr, double x1, double y1, double x2, double y2)
{
    cairo_move_to(cr, x1, y1);
    cairo_line_to(cr, x2, y2);
    cairo_stroke(cr);
}

} // namespace

std::vector<double> roundTicks(double from, double to, int wanted, int& decimals)
{
    const double low = std::min(from, to);
    const double high = std::max(from, to);
    decimals = 0;
    if (!(high > low) || wanted < 1)
        return {low};
    const double power = std::pow(10.0, std::floor(std::log10((high - low) / wanted)));
    double step = power;
    for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
        step = factor * power;
        if ((high - low) / step <= wanted)
            break;
    }
    decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step) - 1e-9)), 0, 300);
    std::vector<double> ticks;
    const double slack = step * 1e-6;
    for (double n = std::ceil((low - slack) / step); n * step <= high + slack; ++n)
        ticks.push_back(n * step);
    return ticks;
}

void drawAxes(cairo_t* cr, const Area& plot, const Axis& x, const Axis& y, bool xOnTop)
{
    cairo_save(cr);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 0.8);
    cairo_rectangle(cr, plot.x, plot.y, plot.width, plot.height);
    cairo_stroke(cr);

    const double edge = xOnTop ? plot.y : plot.y + plot.height;
    const double outwards = xOnTop ? -1 : 1;
    double lastEnd = -1e9;
    for (const auto& [value, text] : places(x, plot.width)) {
        const double at = position(x, plot.x, plot.width, value);
        line(cr, at, edge, at, edge + outwards * tickLength);
        const double half = textWidth(cr, text, labelSize) / 2;
        if (at - half < lastEnd + 4)
            continue; // labels never run into each other
        drawText(cr, at, edge + outwards * (tickLength + 2), text, labelSize, 0.5, xOnTop ? 1 : 0);
        lastEnd = at + half;
    }
    drawText(cr, plot.x + plot.width / 2, edge + outwards * (tickLength + 16), x.label, labelSize,
             0.5, xOnTop ? 1 : 0);

    double widest = 0;
    for (const auto& [value, text] : places(y, plot.height)) {
        const double at = position(y, plot.y, plot.height, value);
        line(cr, plot.x, at, plot.x - tickLength, at);
        drawText(cr, plot.x - tickLength - 3, at, text, labelSize, 1, 0.5);
        widest = std::max(widest, textWidth(cr, text, labelSize));
    }
    drawText(cr, plot.x - tickLength - widest - 10, plot.y + plot.height / 2, y.label, labelSize,
             0.5, 1, -M_PI / 2);
    cairo_restore(cr);
}

} // namespace host
