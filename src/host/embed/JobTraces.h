/// @file JobTraces.h
///
/// Traces of the application as sources and sinks of a job.
#ifndef JOBTRACES_H
#define JOBTRACES_H

#include "embed/vorn_job.h"
#include "job/ReplacedModule.h"

namespace VORN {

/// @name In the place of a module
/// Each run makes a source or a sink of its own, with a state of its own. `into` must live as long
/// as what is returned.
/// @{
host::ReplacedModulePointer sourceOf(const JobTraces& traces);
host::ReplacedModulePointer sourceOf(const JobTraceMaker& maker);
host::ReplacedModulePointer sinkOf(JobCollection& into);
host::ReplacedModulePointer sinkOf(const JobTraceTaker& taker);
/// @}

} // namespace VORN

#endif
