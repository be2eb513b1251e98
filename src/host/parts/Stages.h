/// @file Stages.h
///
/// Which modules of a job run in parts, and which in one process when all parts have ended.
#ifndef STAGES_H
#define STAGES_H

#include "job/ResolvedJob.h"
#include "parts/Plan.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace host {

/// Traces that must stay in one part: those of a module that works on gathers.
struct GatherRule
{
    int module = 0; ///< index in the job
    int source = 0; ///< index of the module whose traces reach it; a rule for each of several
    std::vector<std::string> words; ///< whose change begins a gather; none: all traces are one
    /// A gather may be cut after each so many traces, from its first; 0: never.
    int64_t block = 0;
};

/// A module of the first stage that writes its range of a file.
struct SinkChain
{
    int module = 0;   ///< index in the job
    int source = 0;   ///< index of the module whose traces it writes, one for one
    std::string path; ///< of the file, absolute
};

/// The stages of a job.
struct Stages
{
    std::vector<PlannedModule> modules; ///< of all modules, in the order of the job
    std::vector<PlannedSpool> spools;   ///< in the order of the job, ports ascending
    std::vector<int> sources;           ///< of the first stage
    std::vector<GatherRule> gathers;    ///< of the first stage
    std::vector<SinkChain> sinks;       ///< of the first stage

    bool isInParts(int module) const
    {
        return modules[static_cast<std::size_t>(module)].stage == Stage::parts;
    }
    /// Whether any module runs in parts.
    bool hasParts() const { return !sources.empty(); }
};

/// The modules that can give ranges of their traces, by their manifests.
std::vector<int> rangeSourcesOf(const ResolvedJob& job);

/// The stages of a checked job. `traces` has the numbers of traces that the modules of
/// rangeSourcesOf() give: all sources of the first stage are cut at the same places, so those with
/// fewer traces than the largest one go to the second stage.
///
/// A module is in the first stage if its manifest allows it, all modules before it are there, and
/// - no gather word is written by a module between its source and itself,
/// - no module that works on gathers, writes a file in place or looks at numbers of traces stands
///   behind one that changes the count of traces,
/// - its inputs have the same count.
/// A source stays there only if a module of the first stage reads it: writing its traces to a spool
/// alone would double the work. Where ResolvedJob::order says that a source gives its traces
/// sorted, the module that sorts them is in the first stage, too, if modules behind it are.
Stages stagesOf(const ResolvedJob& job, const std::map<int, int64_t>& traces);

} // namespace host

#endif
