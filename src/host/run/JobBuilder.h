/// @file JobBuilder.h
///
/// Connects the modules of a job with data channels.
#ifndef JOBBUILDER_H
#define JOBBUILDER_H

#include "job/ResolvedJob.h"
#include "run/CountingChannel.h"

#include <string>
#include <vector>

class JobManager;
class ModuleEntity;

namespace host {

/// The channel of one output port.
struct BuiltChannel
{
    int module = 0;                     ///< index in the job
    int port = 0;                       ///< from 0
    CountingChannel* channel = nullptr; ///< deleted by post-processing
};

/// What stands between an output port and its readers where there are several: a module of the
/// library `tee`, which is not a module of the job.
struct BuiltTee
{
    int producer = 0; ///< index in the job of the module whose output is read
    int port = 0;     ///< of that module, from 0
    ModuleEntity* module = nullptr;
    std::vector<CountingChannel*> readers; ///< one for each reader; deleted by post-processing
};

/// A reader of an output that is not a module of the job: the job says that the output has one
/// reader more than its modules are (ResolvedModule::consumers).
struct BuiltReader
{
    int module = 0; ///< index in the job of the module that is read
    int port = 0;   ///< of that module, from 0
    ModuleEntity* reader = nullptr;
    CountingChannel* channel = nullptr; ///< that it reads; deleted by post-processing
};

/// A job as the kernel sees it. The pointers are valid until post-processing has ended.
struct BuiltJob
{
    std::vector<BuiltChannel> channels; ///< of all output ports
    std::vector<BuiltTee> tees;
    std::vector<BuiltReader> readers; ///< that are not modules of the job

    /// Every channel that traces pass.
    std::vector<CountingChannel*> allChannels() const;

    /// @name What stands before the channel of a reader
    /// Modules look upstream for metadata, nearest modules first, and must find the module that
    /// wrote the traces where a tee would be. The scheduler asks modules for traces along the same
    /// connections and must find the tee, but only while it processes. Modules that look for
    /// metadata then find in the tee what the module before it had noted until showTees(), so that
    /// the order in which they meet their inputs is the same. Additive values, whose keys end with
    /// a dollar sign, are found in that module alone: twice would be once too often.
    /// @{
    void showProducers(const std::vector<ModuleEntity*>& modules) const;
    void showTees(const std::vector<ModuleEntity*>& modules) const;
    /// @}
};

/// The names of the tees that the job needs: one for each output port with several readers.
std::vector<std::string> teeNames(const ResolvedJob& job);

/// Makes a channel for every output port of `modules`, which are those of `job` in the same order,
/// and attaches producers and consumers.
///
/// By the kernel's rules the consumers of one channel all see the trace that is first in it, so a
/// consumer that is ahead of the others would meet its traces again. Therefore every reader gets a
/// channel to itself: where several modules read an output, or one reads it twice, there is a tee
/// between them. `tees` are modules of that library, one for each of teeNames(job).
///
/// An output that no module reads gets a consumer of the command's own, appended to `manager`'s
/// modules, that drops what arrives: without one the traces would pile up, and a module whose
/// output ends unread is asked again for ever. A reader that is not a module of the job is made,
/// and appended, likewise: `readerFunction` is its entry point for each trace.
BuiltJob connectModules(const ResolvedJob& job, const std::vector<ModuleEntity*>& modules,
                        const std::vector<ModuleEntity*>& tees, JobManager& manager,
                        int (*readerFunction)() = nullptr);

/// Makes a consumer of the command's own for `channel` and appends it to the modules of `manager`,
/// which deletes it: `function` is called for each trace, which is then taken; null drops traces.
ModuleEntity* addReader(CountingChannel* channel, JobManager& manager, int (*function)() = nullptr);

/// Whether `module` is a consumer that drops traces.
bool isDropper(const ModuleEntity* module);

/// The places in which the kernel runs the modules of `job`, from 1, by index in the job. Loads
/// nothing.
std::vector<int> kernelOrder(const ResolvedJob& job);

} // namespace host

#endif
