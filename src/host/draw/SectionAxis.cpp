#include "draw/SectionAxis.h"

#include "base/Numbers.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <utility>

namespace host {

namespace {

constexpr double rowHeight = 13;
constexpr double labelSize = 9;
constexpr double tickLength = 4;
constexpr double perLabel = 55; // points that a label of the traces may take

using Places = std::vector<std::pair<double, std::string>>; // points and texts

std::string labelText(double value)
{
    return value == std::floor(value) ? formatNumber(value) : fmt::format("{:.6g}", value);
}

double labelOf(const TraceLabels& labels, std::size_t trace)
{
    return trace < labels.values.size() ? labels.values[trace] : static_cast<double>(trace + 1);
}

bool hasRows(const SectionLabels& labels)
{
    return labels.moreHeight() > 0;
}

// Whether the labels of the traces are whole numbers, each greater than the one before by 1; round
// ones are marked then.
bool countUp(const TraceLabels& labels, std::size_t begin, std::size_t end)
{
    const double first = labelOf(labels, begin);
    for (std::size_t i = begin; i < end; ++i) {
        if (labelOf(labels, i) != first + static_cast<double>(i - begin))
            return false;
    }
    return first == std::floor(first);
}

// The next of 1, 2, 5, 10, 20, 50, ...
std::size_t roundStep(double least)
{
    std::size_t step = 1;
    for (std::size_t next = 0; static_cast<double>(step) < least; ++next)
        step = next % 3 == 1 ? step / 2 * 5 : step * 2;
    return step;
}

// Gathers that are too many for gaps are labelled as if they were one.
bool standApart(const TraceColumns& across)
{
    return across.gap() > 0 || across.gathers() == 1;
}

// Every n-th trace is labelled: values of header words need be neither evenly spaced nor ascending.
std::vector<std::size_t> markedTraces(const TraceColumns& across, const TraceLabels& labels,
                                      std::size_t count, double width)
{
    const std::size_t step =
        roundStep(static_cast<double>(count) / std::max(2.0, width / perLabel));
    std::vector<std::size_t> marked;
    const std::size_t gathers = standApart(across) ? across.gathers() : 1;
    for (std::size_t gather = 0; gather < gathers; ++gather) {
        const std::size_t begin = across.begin(gather);
        const std::size_t end = gathers > 1 ? across.end(gather) : count;
        const bool counts = countUp(labels, begin, end);
        const std::size_t before = marked.size();
        for (std::size_t i = begin; i < end; ++i) {
            if (counts ? std::fmod(labelOf(labels, i), static_cast<double>(step)) == 0
                       : (i - begin) % step == 0)
                marked.push_back(i);
        }
        if (marked.size() == before && begin < end) // fewer traces than a step
            marked.push_back(begin);
    }
    return marked;
}

// The name of the row beside it, small enough for the margin.
void drawName(cairo_t* cr, const Area& plot, const std::string& name, double bottom)
{
    constexpr double smallest = 5;
    const double room = plot.x - 26; // the first trace's label sticks out to the left
    const double width = textWidth(cr, name, labelSize);
    const double size = width > room ? std::max(smallest, labelSize * room / width) : labelSize;
    drawText(cr, plot.x - 22, bottom, name, size, 1, 1);
}

// Labels never run into each other.
void drawRow(cairo_t* cr, const Area& plot, const Places& places, double bottom)
{
    double lastEnd = -INFINITY;
    for (const auto& [at, text] : places) {
        const double half = textWidth(cr, text, labelSize) / 2;
        if (at - half < lastEnd + 4)
            continue;
        drawText(cr, plot.x + at, bottom, text, labelSize, 0.5, 1);
        lastEnd = at + half;
    }
}

// A line over the traces of each gather, and its value in the middle.
void drawGathers(cairo_t* cr, const Area& plot, const TraceColumns& across,
                 const TraceLabels& labels, double bottom)
{
    Places places;
    places.reserve(across.gathers());
    for (std::size_t gather = 0; gather < across.gathers(); ++gather) {
        const double left = across.left(across.begin(gather));
        const double right = across.left(across.end(gather) - 1) + across.spacing();
        places.emplace_back((left + right) / 2, labelText(labelOf(labels, gather)));
        if (!standApart(across))
            continue;
        cairo_move_to(cr, plot.x + left, bottom);
        cairo_line_to(cr, plot.x + right, bottom);
        cairo_stroke(cr);
    }
    drawRow(cr, plot, places, bottom - 1);
}

} // namespace

double SectionLabels::moreHeight() const
{
    return rowHeight * ((second.values.empty() ? 0 : 1) + (gathers.values.empty() ? 0 : 1));
}

Axis traceAxis(const TraceColumns& across, const SectionLabels& labels, std::size_t count,
               double width)
{
    Axis axis;
    axis.from = 0;
    axis.to = width;
    const bool isOnly = !hasRows(labels);
    if (isOnly)
        axis.label = labels.traces.name;
    for (const std::size_t i : markedTraces(across, labels.traces, count, width))
        axis.places.emplace_back(across.centre(i),
                                 isOnly ? labelText(labelOf(labels.traces, i)) : "");
    return axis;
}

void drawLabelRows(cairo_t* cr, const Area& plot, const TraceColumns& across,
                   const SectionLabels& labels, std::size_t count)
{
    if (!hasRows(labels))
        return;
    cairo_save(cr);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_set_line_width(cr, 0.8);
    const std::vector<std::size_t> marked = markedTraces(across, labels.traces, count, plot.width);
    double bottom = plot.y - tickLength - 2;
    for (const TraceLabels* row : {&labels.second, &labels.traces}) {
        if (row == &labels.second && row->values.empty())
            continue;
        Places places;
        places.reserve(marked.size());
        for (const std::size_t i : marked)
            places.emplace_back(across.centre(i), labelText(labelOf(*row, i)));
        drawRow(cr, plot, places, bottom);
        drawName(cr, plot, row->name, bottom);
        bottom -= rowHeight;
    }
    if (!labels.gathers.values.empty()) {
        drawGathers(cr, plot, across, labels.gathers, bottom - 1);
        drawName(cr, plot, labels.gathers.name, bottom - 2);
    }
    cairo_restore(cr);
}

} // namespace host
