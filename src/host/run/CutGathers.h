/// @file CutGathers.h
///
/// Gathers that the selection of a source has cut.
#ifndef CUTGATHERS_H
#define CUTGATHERS_H

#include "job/ResolvedJob.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace host {

/// A module whose first or last gather is not whole.
struct CutGather
{
    std::size_t module = 0; ///< index in the job
    std::string text;       ///< one sentence, which names trace, word and value
};

/// The modules of a job whose manifests say that they work on gathers, and whose source has noted
/// that a gather of theirs goes on behind its selection. `noteOf` gives the note of a source by its
/// name, "" without one. Modules behind one that changes the count or order of traces, or writes
/// their words, are left out: their gathers are others than those of the file.
std::vector<CutGather>
cutGathers(const ResolvedJob& job,
           const std::function<std::string(const std::string& source)>& noteOf);

} // namespace host

#endif
