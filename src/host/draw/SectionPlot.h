/// @file SectionPlot.h
///
/// Traces side by side, time downwards: as colours (variable density) or as wiggles.
#ifndef SECTIONPLOT_H
#define SECTIONPLOT_H

#include "draw/Page.h"
#include "draw/SectionRaster.h"

#include <string>
#include <vector>

namespace host {

/// How a section is drawn.
struct SectionStyle
{
    std::string title;
    std::string mode = "density";   ///< density or wiggle
    std::string colourMap = "gray"; ///< gray, seismic (blue, white, red) or black-white-red
    double clipPercentile = 98;     ///< of the absolute amplitudes; what is above is clipped
    double wiggleGain = 1.2;        ///< deflection of a clipped amplitude, in traces
    std::string xLabel = "trace";
    std::string yLabel = "time (s)";
    std::string note; ///< printed below, beside the clip
};

/// A section to draw, apart from its samples.
struct Section
{
    std::vector<TracePlace> places; ///< of the traces; lengths may differ
    std::vector<double> labels;     ///< one per trace, for the trace axis
    double interval = 0.004;        ///< seconds between samples
    double start = 0;               ///< seconds at the top
};

/// 0xRRGGBB of an amplitude from -1 to 1 (clipped); 0xFFFFFF for an unknown map's middle.
unsigned mapColour(const std::string& map, double amplitude);
/// Whether there is a colour map of that name.
bool isColourMap(const std::string& map);

/// The area of the traces on a page.
Area sectionPlot(const Area& page);
/// Whether traces are wiggles.
bool isWiggle(const SectionStyle& style);

/// Draws the whole page: title, axes, traces, and below them the clip and the polarity.
///
/// Requires: `raster` was made for `sectionPlot(page)`, the style and the section's places, and has
/// all samples.
void drawSection(cairo_t* cr, const Area& page, const Section& section, SectionRaster& raster,
                 const SectionStyle& style);

} // namespace host

#endif
