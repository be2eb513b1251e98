/// @file SectionPlot.h
///
/// Traces side by side, time downwards: as colours (variable density) or as wiggles.
#ifndef SECTIONPLOT_H
#define SECTIONPLOT_H

#include "draw/Page.h"
#include "draw/SectionAxis.h"
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
    std::string yLabel = "time (s)";
    std::string note;              ///< printed below, beside the clip
    std::string pickMark = "line"; ///< line or cross
    std::string pickLabel;         ///< what the picks are
};

/// A section to draw, apart from its samples.
struct Section
{
    std::vector<TracePlace> places; ///< of the traces; lengths may differ
    SectionLabels labels;           ///< above the traces
    /// Traces with which another gather begins; a gap stands before each. See findGathers.
    std::vector<std::size_t> gatherStarts;
    /// One per trace, seconds on the axis of time; NaN, or a time outside of the picture, is not
    /// drawn. Empty: there are none.
    std::vector<double> picks;
    double interval = 0.004; ///< seconds between samples
    double start = 0;        ///< seconds at the top
};

/// Begins a gather wherever `values`, one per trace, change, and labels it with its value of
/// `word`.
void findGathers(Section& section, const std::string& word, const std::vector<double>& values);

/// 0xRRGGBB of an amplitude from -1 to 1 (clipped); 0xFFFFFF for an unknown map's middle.
unsigned mapColour(const std::string& map, double amplitude);
/// Whether there is a colour map of that name.
bool isColourMap(const std::string& map);

/// The area of the traces on a page. Requires: the section has its labels, gathers and picks.
Area sectionPlot(const Area& page, const Section& section);
/// Whether traces are wiggles.
bool isWiggle(const SectionStyle& style);

/// Draws the whole page: title, axes, traces, picks, and below them the clip and the polarity.
///
/// Requires: `raster` was made for `sectionPlot(page, section)`, the style, and the section's
/// places and gathers, and has all samples.
void drawSection(cairo_t* cr, const Area& page, const Section& section, SectionRaster& raster,
                 const SectionStyle& style);

} // namespace host

#endif
