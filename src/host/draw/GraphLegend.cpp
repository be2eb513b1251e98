#include "draw/GraphLegend.h"

#include "base/Escaping.h"

#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace host {

namespace {

constexpr double textSize = 9;
constexpr double rowHeight = 14;
constexpr double markWidth = 24;
constexpr double beforeText = 6;
constexpr double betweenEntries = 20;

// Pens by number, from 1; larger numbers start again with the first.
constexpr unsigned pens[] = {0x000000, 0xC00000, 0x0040C0, 0x008040,
                             0xE08000, 0x8000A0, 0x808080, 0x804000};

} // namespace

unsigned penColour(int pen)
{
    const int count = static_cast<int>(std::size(pens));
    return pens[((pen - 1) % count + count) % count];
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
        const int symbol =
            colon < equals ? std::atoi(entry.c_str() + colon + 1) : LegendEntry::line;
        const std::size_t first = entry.find_first_not_of(' ', equals + 1);
        entries.push_back({std::atoi(entry.c_str()), symbol,
                           first == std::string::npos ? "" : escaped(entry.substr(first))});
    }
    return entries;
}

GraphLegend::GraphLegend(cairo_t* cr, std::vector<LegendEntry> entries, double width)
{
    double x = 0;
    placed.reserve(entries.size());
    for (LegendEntry& entry : entries) {
        const double room = markWidth + beforeText + textWidth(cr, entry.text, textSize);
        if (rows == 0 || x + room > width) {
            ++rows;
            x = 0;
        }
        placed.push_back({std::move(entry), x, rows - 1});
        x += room + betweenEntries;
    }
}

double GraphLegend::height() const
{
    return rows * rowHeight;
}

void GraphLegend::draw(cairo_t* cr, double x, double y) const
{
    cairo_save(cr);
    cairo_set_line_width(cr, 1.2);
    for (const Placed& one : placed) {
        const double left = x + one.x;
        const double middle = y + (one.row + 0.5) * rowHeight;
        setColour(cr, penColour(one.entry.pen));
        if (one.entry.symbol != LegendEntry::line) {
            drawSymbol(cr, left + markWidth / 2, middle, textSize, one.entry.symbol);
        } else {
            cairo_move_to(cr, left, middle);
            cairo_line_to(cr, left + markWidth, middle);
            cairo_stroke(cr);
        }
        setColour(cr, 0);
        drawText(cr, left + markWidth + beforeText, middle, one.entry.text, textSize, 0, 0.5);
    }
    cairo_restore(cr);
}

} // namespace host
