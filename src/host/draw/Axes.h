/// @file Axes.h
///
/// The axes that every picture has.
#ifndef AXES_H
#define AXES_H

#include "draw/Page.h"

#include <string>
#include <utility>
#include <vector>

namespace host {

/// One axis in data units; `from` may be greater than `to`.
struct Axis
{
    double from = 0;   ///< at the left end or on top
    double to = 1;     ///< at the other end; differs from `from`
    std::string label; ///< of the whole axis
    /// Values to mark and their labels; empty: round numbers are marked.
    std::vector<std::pair<double, std::string>> places;
};

/// Round values between `from` and `to`, ascending, at most about `wanted` of them, and in
/// `decimals` how many decimals print them exactly. `from` alone when the two are equal.
std::vector<double> roundTicks(double from, double to, int wanted, int& decimals);

/// Draws a frame around `plot` with ticks and labels: x on top for sections (as in the field) or
/// below for graphs, y at the left. Labels of x that would overlap are left out.
void drawAxes(cairo_t* cr, const Area& plot, const Axis& x, const Axis& y, bool xOnTop);

} // namespace host

#endif
