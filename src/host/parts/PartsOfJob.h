/// @file PartsOfJob.h
///
/// A job that runs in parts, as the command that merges them sees it.
#ifndef PARTSOFJOB_H
#define PARTSOFJOB_H

#include "parts/MergeRun.h"
#include "run/Progress.h"

#include <cstdint>
#include <optional>
#include <string>

namespace host {

/// The parts of a job: they do their work, and are merged then.
class PartsOfJob
{
public:
    virtual ~PartsOfJob() = default;

    /// Returns when the parts have ended, or have been stopped. `scratchDirectory` is removed with
    /// all that is in it when the job has ended. Throws CommandError.
    virtual void work(const std::string& scratchDirectory) = 0;
    /// How far they are. Called by another thread while they work.
    virtual ProgressState progress() = 0;
    /// Ends them. May be called by any thread.
    virtual void stop(int signal) = 0;
    /// Microseconds that they took; nothing where they did not run here.
    virtual std::optional<int64_t> workMicros() const = 0;
    /// What merges them, once they have ended; null where they could not begin: then the job runs
    /// in one process.
    virtual MergeRun* merge() = 0;

protected:
    PartsOfJob() = default;
    PartsOfJob(const PartsOfJob&) = default;
    PartsOfJob& operator=(const PartsOfJob&) = default;
};

} // namespace host

#endif
