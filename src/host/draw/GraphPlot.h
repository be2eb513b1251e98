/// @file GraphPlot.h
///
/// What modules draw with pens, on axes.
#ifndef GRAPHPLOT_H
#define GRAPHPLOT_H

#include "draw/Axes.h"
#include "draw/PadStore.h"
#include "draw/Page.h"

namespace host {

/// Makes room where both ends of an axis are the same.
void widen(double& from, double& to);

/// Draws what pens have drawn on `pad`, within `plot`, whose ends are those of the axes.
void drawCommands(cairo_t* cr, const Area& plot, const Axis& x, const Axis& y, const Pad& pad);

/// Where the axes of a graph stand on its page; the legend is below, outside of the data.
Area graphPlot(cairo_t* cr, const Area& page, const Pad& pad);

/// Draws the pen commands of `pad` with title, axes, legend and note.
void drawGraph(cairo_t* cr, const Area& page, const Pad& pad);

} // namespace host

#endif
