/// @file JobOutcome.h
///
/// How a job has ended: what the results of the phases do not say.
#ifndef JOBOUTCOME_H
#define JOBOUTCOME_H

#include "vorn_export.h"

#include <cstdint>
#include <map>
#include <string>

/// How far a job has come, and how.
enum class JobEnd
{
    notRun,   ///< no phase has begun since the manager was made or reset
    done,     ///< every phase so far has come to its end, and nothing has failed
    failed,   ///< a module, or the kernel, has sent a message of a failure or thrown an exception
    cancelled ///< JobManager::requestCancel() has ended a phase, whatever else has failed
};

/// The outcome of a job, from the begin of JobManager::preProcessJob() to its last phase so far. A
/// copy: it stays as it is while the job goes on.
struct JobOutcome
{
    JobEnd end = JobEnd::notRun; ///< how the job has ended so far
    /// @name The first failure
    /// Empty where nothing has failed.
    /// @{
    std::string module;     ///< the module that ran or had run last, or "Kernel"
    std::string entryPoint; ///< `preprocess_`, `process_` or `postprocess_`; "" for the kernel
    std::string text;       ///< the message, or what the exception says
    /// @}
    /// The module, or "Kernel", that ran when an exception left the latest phase that one has left.
    std::string thrownBy;
    std::map<int, std::int64_t> messages; ///< how many were sent in the phases, by type
};

/// The entry of the job's metadata (scope 0) that says why a job has failed: modules that write
/// files then keep them from their names. The kernel sets it where a job is cancelled, dropped,
/// ended by an exception or not finished; modules set it themselves. JobManager::preProcessJob()
/// removes what the job before it has left.
inline constexpr char jobFailureKey[] = "vorn.failed";

/// The rule by which a message is a failure: of type 3 or above, except that a trace cannot be
/// moved to the scratch file. The trace stays in memory then, and the results are right.
VORN_EXPORT bool isFailureMessage(int msgType, const std::string& text);

#endif
