/// @file GraphLegend.h
///
/// Pens and symbols of graphs, and the legend that names them.
#ifndef GRAPHLEGEND_H
#define GRAPHLEGEND_H

#include "draw/Page.h"

#include <string>
#include <vector>

namespace host {

/// 0xRRGGBB of a pen. Pens count from 1; those behind the last one begin again with the first.
unsigned penColour(int pen);

/// Draws symbol `code` (docs/pads.md lists them) with its middle at (x, y), in the current colour.
void drawSymbol(cairo_t* cr, double x, double y, double size, int code);

/// One name of a legend, and what it stands for.
struct LegendEntry
{
    static constexpr int line = -1; ///< in place of a symbol

    int pen;
    int symbol;
    std::string text;
};

/// The entries of a directive such as "1=input, 2:4=dead": pens, or symbols that a pen draws.
std::vector<LegendEntry> legendEntries(const std::string& legend);

/// A legend in rows, as many as its entries need. It stands below the graph, never on the data.
class GraphLegend
{
public:
    /// Arranges the entries in rows of `width` points. Sets the font size of the context.
    GraphLegend(cairo_t* cr, std::vector<LegendEntry> entries, double width);

    /// Points from the top of the first row to the bottom of the last; 0 without entries.
    double height() const;
    /// Draws it with its upper left corner at (x, y).
    void draw(cairo_t* cr, double x, double y) const;

private:
    struct Placed
    {
        LegendEntry entry;
        double x; // from the left edge
        int row;
    };

    std::vector<Placed> placed;
    int rows = 0;
};

} // namespace host

#endif
