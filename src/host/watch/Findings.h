/// @file Findings.h
///
/// The mistakes of modules that a checked run finds: each kind once for each module, with a count.
#ifndef FINDINGS_H
#define FINDINGS_H

#include "job/RunResult.h"

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// Told of each finding that is the first of its kind, at once: the process may crash next.
using FindingListener = std::function<void(const RunFinding&)>;

/// May be used by several threads.
class Findings
{
public:
    explicit Findings(FindingListener listens) : listener(std::move(listens)) {}

    /// Counts a finding of this module and kind; `detail` tells findings of one kind apart, the
    /// name of a parameter for one. `describe` is called for the first one: it fills in what the
    /// finding says besides.
    void add(const std::string& module, const char* kind, const std::string& detail,
             const std::function<void(RunFinding&)>& describe);

    std::vector<RunFinding> all() const;

private:
    FindingListener listener;
    mutable std::mutex mutex;
    std::map<std::pair<std::string, std::string>, std::size_t> known; ///< module, kind and detail
    std::vector<RunFinding> findings;
};

} // namespace host

#endif
