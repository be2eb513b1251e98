/// @file PlanFile.h
///
/// A plan on disk, and whether it still holds.
#ifndef PLANFILE_H
#define PLANFILE_H

#include "parts/Plan.h"

#include <string>
#include <vector>

namespace host {

constexpr const char* planFileName = "plan.json"; ///< in the directory of a plan

/// A plan and the checksum of its file, which receipts refer to.
struct StoredPlan
{
    Plan plan;
    std::string sha256; ///< hexadecimal
};

/// Writes DIR/plan.json beside its place and renames it. Throws CommandError with `exitTryAgain`.
void writePlan(const Plan& plan, const std::string& directory);

/// Throws CommandError, which names the file and what to do, where there is no plan, and for one
/// that is damaged, cut, or of another version.
StoredPlan readPlan(const std::string& directory);

/// The vector instructions of this machine that transforms would use: "sse2", "avx", "avx2",
/// "avx512".
std::string cpuClass();

/// Replaces the inputs of `plan` by what the files are now; files that are gone have -1 bytes.
void noteInputs(Plan& plan);

/// What has changed since the plan was made, a sentence for each with both values: version, module
/// tree, job file, inputs, machine.
std::vector<std::string> differences(const Plan& plan, const Plan& now);

} // namespace host

#endif
