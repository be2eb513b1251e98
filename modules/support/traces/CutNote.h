/// @file CutNote.h
///
/// Tells where a selection by numbers of traces begins or ends inside gathers.
#ifndef CUTNOTE_H
#define CUTNOTE_H

#include "segy/HeaderWords.h"
#include "traces/TracesToGive.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace traces {

/// The header of a trace of one of the files, and its byte order. Valid until the next call.
struct HeaderBytes
{
    const unsigned char* bytes = nullptr;
    bool isLittleEndian = false;
};
using HeaderOf = std::function<HeaderBytes(const TracePlace& trace)>;

/// Notes in the metadata of the job, for the host, which header words the first trace to be given
/// has in common with the one before it in its file, and the last one with the one behind it.
/// Nothing is noted unless traces are selected by their numbers alone. Needs a running module.
///
/// The value of "vorn.cut.MODULE" has a line for each end that cuts: "first" or "last", the number
/// of the neighbour in its file, and the words, as in "last 6101 fldr=51 ep=51".
void noteCuts(const TracesToGive& given, const std::vector<VORN::HeaderWord>& words,
              const HeaderOf& headerOf);

} // namespace traces

#endif
