/// @file HeaderScan.h
///
/// What the sources of a job would give, without running the job: how many traces, and the values
/// of some header words in ranges of them.
#ifndef HEADERSCAN_H
#define HEADERSCAN_H

#include "job/ResolvedJob.h"
#include "parts/Plan.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// Both functions know of ResolvedJob::order: ranges are those of the sorted traces then.

/// The number of traces that the source `module` (index in the job) announces when it prepares,
/// over all that the job asks for.
///
/// Both functions run the source in a child process, so that this one's kernel, its memory and its
/// files stay as they are, whatever the module does. They throw CommandError with the module's own
/// words when it fails. Requires: no other thread runs.
int64_t announcedTraces(const ResolvedJob& job, int module);

/// The values of `words` in the traces of `ranges` (ascending, not overlapping) of the source
/// `module`: those of the first trace of the first range, then those of the next trace, and so on.
/// A word that the traces do not have is 0. Samples are not read where the source can leave them:
/// the job's metadata has `vorn.headers`.
std::vector<double> headerValues(const ResolvedJob& job, int module,
                                 const std::vector<PlannedPart>& ranges,
                                 const std::vector<std::string>& words);

/// The ranges as modules take them, from 1: "1:100,201:300".
std::string rangesText(const std::vector<PlannedPart>& ranges);

} // namespace host

#endif
