/// @file TraceColumns.h
///
/// Where the traces of a section stand across the picture: side by side, with a gap wherever
/// another gather begins.
#ifndef TRACECOLUMNS_H
#define TRACECOLUMNS_H

#include <cstddef>
#include <optional>
#include <vector>

namespace host {

/// All positions are in points from the left edge of the plot.
class TraceColumns
{
public:
    /// `starts` are the traces, ascending and above 0, with which another gather begins. Gaps take
    /// at most a quarter of the `width`; where they would be too narrow to be seen there are none.
    TraceColumns(double width, std::size_t traces, std::vector<std::size_t> starts = {});

    std::size_t gathers() const { return starts.size(); }
    /// The first trace of gather `gather`.
    std::size_t begin(std::size_t gather) const { return starts[gather]; }
    /// The trace behind the last one of gather `gather`.
    std::size_t end(std::size_t gather) const
    {
        return gather + 1 < starts.size() ? starts[gather + 1] : traces;
    }
    /// The gather that trace `trace` is in.
    std::size_t gatherOf(std::size_t trace) const;

    /// From one trace to the next.
    double spacing() const { return perTrace; }
    /// Between two gathers; 0 where there is no room for gaps.
    double gap() const { return perGap; }
    /// The middle of trace `trace`.
    double centre(std::size_t trace) const { return left(trace) + perTrace / 2; }
    /// The left edge of trace `trace`.
    double left(std::size_t trace) const;
    /// The trace at `x`; none in a gap.
    std::optional<std::size_t> traceAt(double x) const;

private:
    std::size_t traces;
    std::vector<std::size_t> starts; // of each gather, the first included
    double perTrace = 1;
    double perGap = 0;
};

} // namespace host

#endif
