/// @file TraceComparison.h
///
/// Two Seismic Unix files of the same traces: what a module gave, and what it is expected to give.
#ifndef TRACECOMPARISON_H
#define TRACECOMPARISON_H

#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// How two files compare.
struct TraceDifferences
{
    std::vector<std::string> findings; ///< what differs, one line each; empty: nothing
    double largest = 0; ///< difference of two samples, as a share of the largest expected one
    int64_t traces = 0; ///< that were compared
};

/// Compares headers exactly and samples within `tolerance` times the largest absolute sample of the
/// expected file. At most `mostTraces` traces that differ are described; how many others differ is
/// said in one line. Throws VORN::TraceFileError where a file cannot be read.
TraceDifferences compareTraces(const std::string& expected, const std::string& given,
                               double tolerance, int mostTraces = 3);

/// The samples of a file that are not numbers or infinite: "sample 12 of trace 3 is nan", the
/// first; empty when there are none.
std::string notFinite(const std::string& path);

} // namespace host

#endif
