/// @file JsonResult.h
///
/// The facts of a run for programs, and for comparing one run with another.
#ifndef JSONRESULT_H
#define JSONRESULT_H

#include "draw/PadStore.h"
#include "job/RunResult.h"

#include <string>
#include <vector>

namespace host {

/// JSON text that ends with a line feed; docs/report.md describes its keys, which always come in
/// the same order. What differs from one run of the same job to the next (times, memory) is in
/// objects under the key "measured" and nowhere else. Bytes that are not UTF-8 become U+FFFD.
std::string jsonResult(const RunResult& result, const std::vector<Pad>& pads);

} // namespace host

#endif
