/// @file RecordWatch.h
///
/// Notices at run time what parameters have made of the data by mistake: times that lie off the
/// record, windows longer than it, outputs of zeros.
#ifndef RECORDWATCH_H
#define RECORDWATCH_H

#include "base/Diagnostics.h"
#include "job/ResolvedJob.h"
#include "run/JobBuilder.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

class ModuleEntity;
class SeisTrace;

namespace host {

/// Watches the outputs of modules, call by call. A channel is looked at until its first trace has
/// come and its first sample that is not zero has been found; then it costs nothing any more.
///
/// Usual order: `afterCall` after each call of a module, `finish` when processing has ended. Valid
/// as long as the modules and channels are.
class RecordWatch
{
public:
    /// Gets the number of the module in the job, the place of what the warning is about (line 0:
    /// the module as a whole), and the text.
    using Warn = std::function<void(std::size_t module, const Place& place, const std::string&)>;

    /// Keeps a reference to `job`. `modules` are those of the job, in its order.
    RecordWatch(const ResolvedJob& job, const std::vector<ModuleEntity*>& modules,
                const BuiltJob& wiring, Warn warn);

    /// After each call of `process_`; what the module has written is looked at.
    void afterCall(const ModuleEntity& module)
    {
        if (open > 0)
            look(module);
    }

    /// When all modules have ended: warns of those whose outputs are all zeros.
    void finish();

private:
    // An output port of a module of the job.
    struct Output
    {
        std::size_t module;
        int port;
        const CountingChannel* channel;
        int64_t examined = 0;   // traces
        bool hasRecord = false; // the first trace has been seen
        bool hasSignal = false; // a sample that is not zero has been found
        bool isPartial = false; // some traces could not be looked at
    };

    void look(const ModuleEntity& module);
    void examine(Output& output);
    void checkTimes(const Output& output, const SeisTrace& trace);
    void checkParameter(std::size_t module, const ResolvedParameter& parameter, double begin,
                        const Output& output);
    bool inputHasSignal(std::size_t module) const;
    void warnOfZeros(std::size_t module, bool atEnd);
    std::string settingsOf(std::size_t module) const;

    const ResolvedJob& job;
    Warn warn;
    std::unordered_map<const ModuleEntity*, std::size_t> placeOf; // of modules in the job
    std::vector<Output> outputs;
    std::vector<std::vector<std::size_t>> outputsOf; // by module
    std::vector<bool> isTold;                        // by module: of zeros
    std::size_t open = 0;                            // outputs that are still looked at
};

} // namespace host

#endif
