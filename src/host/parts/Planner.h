/// @file Planner.h
///
/// Makes the plan of a job that is to run in parts.
#ifndef PLANNER_H
#define PLANNER_H

#include "job/ResolvedJob.h"
#include "parts/Plan.h"

#include <string>

namespace host {

/// The stages of a checked job, and cuts into at most `parts` parts: fewer where gathers or traces
/// are few, and none where no module can run in parts. The targets of its outputs are patterns that
/// end in XXXXXX; no file is made. How the job was called is the caller's to note. Throws
/// CommandError where a source cannot tell its traces.
Plan planJob(const ResolvedJob& job, int64_t parts);

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
