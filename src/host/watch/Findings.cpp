#include "watch/Findings.h"

#include "run/RunningModule.h"

namespace host {

void Findings::add(const std::string& module, const char* kind, const std::string& detail,
                   const std::function<void(RunFinding&)>& describe)
{
    const std::lock_guard lock(mutex);
    const auto [place, isNew] =
        known.try_emplace({module, std::string(kind) + ' ' + detail}, findings.size());
    if (!isNew) {
        ++findings[place->second].count;
        return;
    }
    RunFinding finding;
    finding.module = module;
    finding.kind = kind;
    finding.place = placeOf(runningCode());
    describe(finding);
    findings.push_back(finding);
    if (listener)
        listener(findings.back());
}

std::vector<RunFinding> Findings::all() const
{
    const std::lock_guard lock(mutex);
    return findings;
}

} // namespace host
