/// @file HostModules.h
///
/// Modules that are functions of the host: how an application brings its own traces into a job, and
/// takes results out, without a module library.
///
/// They are modules like any other: attach channels with `setInputDataChannel` and
/// `setOutputDataChannel` or connect(), and call the module interface (knl.h, MOXKernel.h) from
/// within. They belong to the job: post-processing deletes them, and with them the functions and
/// what these have captured. Exceptions pass through the phase that runs them, like those of any
/// module.
#ifndef HOSTMODULES_H
#define HOSTMODULES_H

#include "vorn_export.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

class DataChannel;
class ModuleEntity;

namespace VORN {

/// The entry points of a module, as functions of any kind; an empty one does nothing. For plain
/// functions with a context there is JobManager::addModule().
struct ModuleFunctions
{
    std::function<void()> preprocess;  ///< once, before the first trace
    std::function<void()> process;     ///< for each trace, as `process_` of a library
    std::function<void()> postprocess; ///< once, at the end
};

/// A new module of the job, which owns the functions. Never null.
VORN_EXPORT ModuleEntity* addModule(const std::string& name, ModuleFunctions functions);

/// A new channel from an output of `producer` to an input of `consumer`, each the next one in
/// order; the job deletes it when it ends. For a further reader of the channel call its
/// `setInputDataChannel`. Null, and nothing done, when a module is null.
VORN_EXPORT DataChannel* connect(ModuleEntity* producer, ModuleEntity* consumer);

/// Traces of the host, in its own memory.
struct TraceArray
{
    const float* samples = nullptr; ///< `count` rows of `traceLength`; must live as long as the job
    int count = 0;                  ///< traces
    int traceLength = 0;            ///< samples of a trace, at least 1
    int sampleInterval = 0;         ///< microseconds
    /// Header words: for each name of the job's schema `count` values, which must live as long as
    /// the job. A name that is not in the schema ends the job with a fatal message.
    std::map<std::string, const int*> words;
};

/// A source that gives the traces of `traces` in their order, each copied once, to its first
/// output. With no traces it gives the end of data alone. Wrong sizes are fatal messages (type 4)
/// when the job is prepared: attach messages, and look at the outcome of the job.
VORN_EXPORT ModuleEntity* addTraceSource(const std::string& name, TraceArray traces);

/// What a call-back that makes traces has done.
enum class MadeTrace
{
    more, ///< there is a trace, and more will come
    last, ///< there is a trace; it is the last one
    none  ///< there is none, and none will come
};

/// Makes one trace in place: `samples` are those of the trace, zeros, in the order of time; `trace`
/// is the set for knl_setI32TraceAttribute() and its like, as trace 0.
using MakeTrace = std::function<MadeTrace(void* trace, float* samples)>;

/// A source that calls `make` for each trace. `words` are the header words that it sets. Prefer
/// MadeTrace::last to `none`: a module that looks one trace ahead then has its last call with a
/// trace. Errors as for the one above.
VORN_EXPORT ModuleEntity* addTraceSource(const std::string& name, int traceLength,
                                         int sampleInterval, std::vector<std::string> words,
                                         MakeTrace make);

/// Traces that a job has given to the host.
struct CollectedTraces
{
    std::vector<float> samples; ///< `count` rows of `traceLength`
    int count = 0;              ///< traces
    int traceLength = 0;        ///< samples; 0 before the first trace
    int sampleInterval = 0;     ///< microseconds; 0 before the first trace
    /// For each name that was asked for `count` values; 0 where a trace does not have it.
    std::map<std::string, std::vector<int>> words;
};

/// A sink that appends each trace of its first input to `*traces`, which must live as long as the
/// job, with the words whose names `traces->words` has when the job is prepared. What `traces` held
/// before is dropped. Room is made for `expected` traces at once; with 0 for as many as the modules
/// before announce. Beyond that the rows move as they grow, as a std::vector does.
VORN_EXPORT ModuleEntity* addTraceSink(const std::string& name, CollectedTraces* traces,
                                       int expected = 0);

/// Takes one trace: `samples` of `traceLength` floats are valid during the call, and not to be
/// changed; `trace` is the set for knl_getI32TraceAttribute() and its like, as trace 0.
using TakeTrace = std::function<void(void* trace, const float* samples, int traceLength)>;

/// A sink that calls `take` for each trace, without a copy.
VORN_EXPORT ModuleEntity* addTraceSink(const std::string& name, TakeTrace take);

} // namespace VORN

#endif
