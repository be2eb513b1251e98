/// @file neighbourhood.h
///
/// What the traces around a trace let expect of a measure, and how much they scatter. Independent
/// of the kernel.
#ifndef NEIGHBOURHOOD_H
#define NEIGHBOURHOOD_H

#include <optional>
#include <vector>

/// The median; the mean of the two in the middle for an even number of values, 0 for none.
double medianOf(std::vector<double> values);

/// The standard deviation of a normal distribution with the median absolute deviation of these
/// values from `centre`. Less than half of them, however far away, change it little.
double robustSpread(std::vector<double> values, double centre);

struct Deviation
{
    double expected = 0;  ///< value of the line through the traces around
    double distance = 0;  ///< value of the trace less the expected one
    double spread = 0;    ///< robust standard deviation of the distances around
    bool isKnown = false; ///< false: no value, or fewer than 4 around
    bool isAtEnd = false; ///< fewer than 2 of these on one side: the line is continued to the trace
};

struct Neighbourhood
{
    int reach = 5;   ///< traces with values to each side that the line is laid through
    int window = 31; ///< traces whose distances make the spread, the trace in the middle
    /// The spread is at least that of a normal distribution with as many far distances, beyond 85 %
    /// of them: for measures that jump now and then.
    bool countTails = false;
};

/// How far each value lies from the line through those around it. The line is that of Theil and
/// Sen, with the median of the slopes of all pairs and the median of the intercepts, so that a
/// trend, such as levels that fall with offset, is expected, and up to a quarter of bad neighbours
/// do not matter. The trace itself takes no part in its line.
///
/// @param places  place of each trace on the axis of the trend, ascending; as many as values
/// @param values  nothing where a trace has none
///
/// After P. K. Sen: Estimates of the regression coefficient based on Kendall's tau. Journal of the
/// American Statistical Association 63, 1379-1389, 1968.
std::vector<Deviation> deviations(const std::vector<double>& places,
                                  const std::vector<std::optional<double>>& values,
                                  const Neighbourhood& around);

#endif
