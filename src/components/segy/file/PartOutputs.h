/// @file PartOutputs.h
///
/// Outputs that several processes write in place, each a range of the traces of one file.
///
/// The traces of a job may be divided among processes. Where the place of every trace in an output
/// is known from its number, each process writes its traces where they belong, all into one hidden
/// file, and a last process gives that file its final name. The process announces here, before its
/// outputs begin, which of them are of that kind; OutputFile and the writers of trace files do the
/// rest, so that modules only ask for the number of their first trace.
///
///     setPartOutput("line.sgy", ".line.sgy.parts", 6000);  // in a process that writes traces
///     setWholeOutput("line.sgy", ".line.sgy.parts");       // in the last one
///
/// Paths are compared as places (see `canonicalPath`). May be used by several threads.
#ifndef PARTOUTPUTS_H
#define PARTOUTPUTS_H

#include "segy_export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace VORN {

/// What an output is in this process.
struct PartOutput
{
    std::string target;     ///< the file that has the bytes, which exists
    bool isWhole = false;   ///< whether it has all of them
    int64_t firstTrace = 0; ///< the number, from 0, of the first trace that this process writes
};

/// The output `path` is a range of `target`, which exists: the first trace that this process writes
/// is number `firstTrace` (from 0) of the whole file. Replaces what has been said of the path.
VORN_SEGY_EXPORT void setPartOutput(const std::string& path, const std::string& target,
                                    int64_t firstTrace);

/// All bytes of the output `path` are in `target` already, which becomes the output when it is
/// committed. Replaces what has been said of the path.
VORN_SEGY_EXPORT void setWholeOutput(const std::string& path, const std::string& target);

/// From now on, all outputs are ordinary ones again.
VORN_SEGY_EXPORT void clearPartOutputs();

/// What has been said of the output `path`; none for an ordinary one.
VORN_SEGY_EXPORT std::optional<PartOutput> findPartOutput(const std::string& path);

} // namespace VORN

#endif
