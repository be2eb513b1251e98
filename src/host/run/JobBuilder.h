/// @file JobBuilder.h
///
/// Connects the modules of a job with data channels.
#ifndef JOBBUILDER_H
#define JOBBUILDER_H

#include "job/ResolvedJob.h"
#include "run/CountingChannel.h"

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

/// Makes a channel for every output port of `modules`, which are those of `job` in the same order,
/// and attaches producers and consumers. An output that no module reads gets a consumer of the
/// command's own, appended to `manager`'s modules, that drops what arrives: without one the traces
/// would pile up, and a module whose output ends unread is asked again for ever.
std::vector<BuiltChannel> connectModules(const ResolvedJob& job,
                                         const std::vector<ModuleEntity*>& modules,
                                         JobManager& manager);

/// Whether `module` is such a consumer.
bool isDropper(const ModuleEntity* module);

/// The places in which the kernel runs the modules of `job`, from 1, by index in the job. Loads
/// nothing.
std::vector<int> kernelOrder(const ResolvedJob& job);

} // namespace host

#endif
