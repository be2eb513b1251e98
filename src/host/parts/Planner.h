/// @file Planner.h
///
/// Makes the plan of a job that is to run in parts.
#ifndef PLANNER_H
#define PLANNER_H

#include "job/ResolvedJob.h"
#include "parts/Plan.h"

#include <string>

namespace host {

/// The order in which a source gives its traces, as it has been made for a plan; without a name.
class OrderFile
{
public:
    /// Opens `path`, which may be removed then. Throws CommandError.
    explicit OrderFile(const std::string& path);
    ~OrderFile();
    OrderFile(const OrderFile&) = delete;
    OrderFile& operator=(const OrderFile&) = delete;

    /// Throws CommandError with `exitTryAgain`, and leaves no file, where it cannot be written.
    void copyTo(const std::string& path) const;

private:
    int descriptor;
};

/// Puts the order of a plan that has one into its directory, and notes the path in the plan. Throws
/// as OrderFile::copyTo() does.
void keepOrder(Plan& plan, const std::string& directory);

/// The stages of a checked job, and cuts into at most `parts` parts: fewer where gathers or traces
/// are few, and none where no module can run in parts. The targets of its outputs are patterns that
/// end in XXXXXX; no file is made. How the job was called is the caller's to note. Throws
/// CommandError where a source cannot tell its traces.
///
/// With `sorts`, a source that a module alone reads that sorts gives its traces in that order, if
/// it can: the plan then has an order, and that module and those behind it run in parts. All
/// headers are read for that; the order takes 8 bytes for each trace in the job's scratch
/// directory.
Plan planJob(const ResolvedJob& job, int64_t parts, bool sorts = true);

/// A number of parts for a machine: four for each of `cores`, but none smaller than about a
/// gigabyte of samples, and at least one.
int64_t usefulParts(int64_t cores, int64_t bytes);

/// What a plan says, for people: a line for each module with its stage and the reason, the number
/// of parts and their traces.
std::string describePlan(const Plan& plan);

/// The number of processors that this process may use.
int usableCores();

} // namespace host

#endif
