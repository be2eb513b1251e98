/// @file Status.h
///
/// How far the parts of a plan are, as the files in its directory tell.
#ifndef STATUS_H
#define STATUS_H

#include "parts/PlanFile.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// What a part is doing.
enum class PartState
{
    done,    ///< it has left its receipt
    running, ///< it has told about itself within the last `liveSeconds`
    failed,  ///< it has ended with an error of the job
    lost,    ///< it has begun, and neither ended nor told anything for longer; or its receipt is
             ///< damaged
    waiting  ///< it has not begun
};

/// Running parts tell about themselves five times a second; what has been silent for longer than
/// this has been killed, or its node has died. Seconds; some, as file systems of clusters show
/// changes late.
constexpr int64_t liveSeconds = 10;

/// One part of a plan.
struct PartStatus
{
    int part = 0; ///< from 1
    PartState state = PartState::waiting;
    int64_t traces = 0; ///< that have entered it; all of its range when it is done
    std::string reason; ///< why it failed, or what its receipt has; empty for others
};

/// All parts of a plan.
struct PlanStatus
{
    std::vector<PartStatus> parts; ///< in order
    int64_t traces = 0;            ///< of all parts, when they are done
    bool isMerged = false;         ///< the outputs have their names

    std::vector<int> inState(PartState state) const;
    /// Parts that neither have ended well nor run: those to start again.
    std::vector<int> missing() const;
    /// Traces that have entered parts so far; what failed and lost parts have read does not count.
    int64_t tracesSoFar() const;
};

/// The parts of the plan in `directory` as they are now. Only reads.
PlanStatus statusOf(const StoredPlan& stored, const std::string& directory);

/// Traces per second of the parts that ran at both times, `seconds` apart.
double tracesPerSecond(const PlanStatus& before, const PlanStatus& now, double seconds);

/// Ascending numbers as batch systems take them for an array: "3,17-19".
std::string partList(const std::vector<int>& parts);

/// A table of the states, the speed where it is above 0, and a line for each failed or damaged
/// part.
std::string describeStatus(const PlanStatus& status, double tracesPerSecond);

} // namespace host

#endif
