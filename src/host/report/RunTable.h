/// @file RunTable.h
///
/// What is printed after a job has run.
#ifndef RUNTABLE_H
#define RUNTABLE_H

#include "job/RunResult.h"

#include <string>

namespace host {

/// Traces, times, shares and memory of each module, of the tees that the run has noted, and of the
/// job as a whole.
std::string statisticsTable(const RunResult& result);

/// "480 traces in 0.12 s: 4000 traces/s, 10.6 MB/s"; empty when no trace came.
std::string rateLine(const RunResult& result);

/// One line for a terminal or a log, escaped: time, severity, module, text. `nameWidth`: columns
/// for names of modules.
std::string messageLine(const RunMessage& message, int nameWidth);

} // namespace host

#endif
