/// @file SectionPlot.h
///
/// Traces side by side, time downwards: as colours (variable density) or as wiggles.
#ifndef SECTIONPLOT_H
#define SECTIONPLOT_H

#include "draw/Page.h"

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

/// A section to draw.
struct Section
{
    std::vector<std::vector<float>> traces; ///< lengths may differ
    std::vector<int> leads;     ///< samples from `start` to each trace's first; empty: none for all
    std::vector<double> labels; ///< one per trace, for the trace axis
    double interval = 0.004;    ///< seconds between samples
    double start = 0;           ///< seconds at the top
};

/// The amplitude below which `percentile` percent of the finite absolute amplitudes lie; 0 when
/// there is none. Every amplitude counts in sections of up to four million samples, every
/// n-th in larger ones.
double clipAmplitude(const Section& section, double percentile);

/// 0xRRGGBB of an amplitude from -1 to 1 (clipped); 0xFFFFFF for an unknown map's middle.
unsigned mapColour(const std::string& map, double amplitude);
/// Whether there is a colour map of that name.
bool isColourMap(const std::string& map);

/// Draws the whole page: title, axes, traces, and below them the clip and the polarity.
void drawSection(cairo_t* cr, const Area& page, const Section& section, const SectionStyle& style);

} // namespace host

#endif
