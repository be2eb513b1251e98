/// @file SectionAxis.h
///
/// The labels of traces above a section: one row, or several, of which one names the gathers.
#ifndef SECTIONAXIS_H
#define SECTIONAXIS_H

#include "draw/Axes.h"
#include "draw/TraceColumns.h"

#include <string>
#include <vector>

namespace host {

/// A number for each trace, and the name of what it is.
struct TraceLabels
{
    std::string name;
    std::vector<double> values; ///< one per trace; empty: the row is left out
};

/// What is written above a section.
struct SectionLabels
{
    TraceLabels traces;  ///< without values: the traces' numbers, from 1
    TraceLabels second;  ///< under those of `traces`, at the same traces
    TraceLabels gathers; ///< one per gather; a row of its own, on top

    /// Height of the rows beside that of `traces`, in points.
    double moreHeight() const;
};

/// The axis of the traces, in points from the left edge of the plot: the ticks, and the labels
/// where they are the only row. Every n-th trace of a gather has a tick, or, where the labels of a
/// gather count up by ones, those with round numbers.
Axis traceAxis(const TraceColumns& across, const SectionLabels& labels, std::size_t count,
               double width);

/// Draws the rows that `traceAxis` leaves out: nothing where the traces have one row.
void drawLabelRows(cairo_t* cr, const Area& plot, const TraceColumns& across,
                   const SectionLabels& labels, std::size_t count);

} // namespace host

#endif
