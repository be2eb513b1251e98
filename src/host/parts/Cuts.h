/// @file Cuts.h
///
/// Where a job is cut: equal shares of the traces, each moved on to a place at which no module that
/// works on gathers minds.
///
///     share 1        share 2        share 3
///     |--------------|--------------|--------------|     equal shares
///     |fldr 1  |fldr 2  |fldr 3  |fldr 4  |fldr 5  |
///     |part 1           |part 2           |part 3  |
///
/// Only headers around the ends of shares are read.
#ifndef CUTS_H
#define CUTS_H

#include "job/ResolvedJob.h"
#include "parts/Plan.h"
#include "parts/Stages.h"

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace host {

/// One demand on cuts: a gather is a run of traces with equal values in `columns`.
struct CutRule
{
    std::vector<std::size_t> columns; ///< of the values that are read; none: all traces are one run
    int64_t block = 0; ///< a run may be cut after each so many traces from its first; 0: never
};

/// The values of header words of ranges of traces (ascending, not overlapping), trace by trace.
using ValueReader = std::function<std::vector<double>(const std::vector<PlannedPart>& ranges)>;

/// Cuts traces 0 to `traces` - 1 into at most `parts` ranges, in order and without gaps; fewer
/// where a gather is longer than a share. One range without traces when there are none. `width` is
/// how many values `read` gives for a trace; it is called a few times at most, with more traces
/// each time, and never when no rule has columns.
std::vector<PlannedPart> cutsFor(int64_t traces, int64_t parts, const std::vector<CutRule>& rules,
                                 std::size_t width, const ValueReader& read);

/// The same for the traces of the sources of a job. Throws CommandError when a source fails, as
/// headerValues() does.
std::vector<PlannedPart> cutsFor(const ResolvedJob& job, const Stages& stages, int64_t traces,
                                 int64_t parts);

/// The traces that each of rangeSourcesOf() announces: what stagesOf() asks for. Throws
/// CommandError when a source fails.
std::map<int, int64_t> tracesOfSources(const ResolvedJob& job);

} // namespace host

#endif
