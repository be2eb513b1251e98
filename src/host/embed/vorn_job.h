/// @file vorn_job.h
///
/// Job files in an application: the library VORN::job reads a job (docs/job-file.md), says what is
/// wrong with it, changes its parameters, runs it in this process, and tells what it did. It is the
/// code with which the command `vorn` does so.
///
///     VORN::Job job = VORN::Job::fromFile("line.job.yaml");
///     job.set("read", "file", "line.sgy");
///     for (const VORN::JobDiagnostic& one : job.check())
///         std::cerr << one.line << '\n';
///     const VORN::JobResult result = job.run();
///
/// The traces of the application itself go in and out through modules of the job: one that reads a
/// file in the text may get its traces from an array or a function here, one that writes a file may
/// give them to an array or a function. All modules between stay as they are.
///
///     job.setSource("read", VORN::JobTraces{samples, 500, 2000, {{"offset", offsets}}});
///     VORN::JobCollection traces;
///     job.setSink("write", traces);
///     job.run();
///
/// Needs neither Qt nor the kernel's headers. All texts are UTF-8. One job runs in a process at a
/// time, on the thread that calls run(), which may be any; other threads may run on. While
/// it runs, a job sets the environment variables VORN_HOME, VORN_SCRATCH and VORN_SCRATCH_SIZE and
/// a message handler of Qt, and uses the call-backs for messages, statistics and commands of the
/// kernel's job manager; those for pads are left to the application.
#ifndef VORN_JOB_H
#define VORN_JOB_H

#include "vorn_export.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace VORN {

/// An error or a warning about a job.
struct JobDiagnostic
{
    std::string source; ///< name of the job file, or the setting "agc.window=1", or source "read"
    int lineNumber = 0; ///< from 1; 0: the source as a whole
    int column = 0;     ///< from 1, in bytes; 0: the line as a whole
    bool isWarning = false; ///< a job with warnings alone can run
    std::string text;       ///< one sentence
    std::string line;       ///< all of it, "job.yaml:12:5: warning: …"
};

/// A message of a module, of the "Kernel" or of "vorn".
struct JobMessage
{
    int severity = 0; ///< 0 detail, 1 information, 2 warning, 3 error, 4 fatal
    std::string module;
    std::string text;
    double seconds = 0; ///< since the run began
    std::string place;  ///< "job.yaml:12", or empty
};

/// How far a run is.
struct JobProgress
{
    std::string phase;       ///< "preparing", "processing", "finishing", "done"
    std::int64_t traces = 0; ///< that have entered the job
    double share = -1;       ///< of the work that modules have announced, 0 to 1; -1: none
    double seconds = 0;      ///< since processing began; 0 before
};

/// What a module did.
struct JobModuleFacts
{
    std::string name;   ///< in the job
    std::string module; ///< its library; empty where the application has replaced it
    std::int64_t tracesIn = 0;
    std::int64_t tracesOut = 0;
    double seconds = 0;                          ///< wall clock within its entry points
    std::int64_t peakBytes = 0;                  ///< of accounted memory
    std::map<std::string, std::string> metadata; ///< what it noted about its data
};

/// A file that a parameter of the job names as an output.
struct JobOutput
{
    std::string path; ///< absolute
    std::string module;
    std::string parameter;
    bool written = false; ///< whole, by this run
    std::int64_t bytes = 0;
};

/// How a run ended.
enum class RunOutcome
{
    done,      ///< without errors
    failed,    ///< a module sent an error (severity 3 or 4), threw, or no trace could move any more
    cancelled, ///< Job::cancel() was called in time; outputs that had no name yet are not written
    notStarted ///< the job has errors, or a module library could not be loaded
};

/// All about a run.
struct JobResult
{
    RunOutcome outcome = RunOutcome::notStarted;
    std::string error; ///< the first error, "module: text"; empty for a job that is done
    std::vector<JobMessage> messages;    ///< in order; of thousands alike the first
    std::vector<JobModuleFacts> modules; ///< in the order of the job file
    std::vector<JobOutput> outputs;
    double seconds = 0; ///< wall clock
};

/// Where the modules are.
struct JobModules
{
    std::string home; ///< the module tree; empty: as VORN_HOME says, else that of this library
    std::vector<std::string> directories; ///< with further module libraries and their manifests
};

/// What an application sees of a run. Either may be empty.
struct JobListener
{
    /// Called on the thread of run(), in the middle of the work of the module that sent it.
    std::function<void(const JobMessage&)> onMessage;
    /// Called every quarter of a second on a thread of its own, also while a module works for long,
    /// and once at the end.
    std::function<void(const JobProgress&)> onProgress;
};

/// Traces of the application, in its own memory, in the place of a module without inputs. What the
/// spans refer to must stay unchanged until the last run with it has ended. Each trace is copied
/// once. Without samples the job gets the end of the data alone.
struct JobTraces
{
    std::span<const float> samples; ///< rows of `traceLength` samples, one for each trace
    int traceLength = 0;            ///< samples of a trace, at least 1
    int sampleInterval = 0;         ///< microseconds, at least 1
    /// Header words by name, a value for each trace, converted to the type of the word in the job:
    /// in the schema "segy" all are integers of 32 bits. The job must know the names. A double
    /// holds every value of an integer of 32 bits, or of a float.
    std::map<std::string, std::span<const double>> words;
};

/// A function of the application that makes traces, in the place of a module without inputs.
struct JobTraceMaker
{
    int traceLength = 0;            ///< samples of a trace, at least 1
    int sampleInterval = 0;         ///< microseconds, at least 1
    std::vector<std::string> words; ///< names of the header words that it gives
    /// Makes one trace: `samples` and `values`, one for each of `words`, in that order, are zeros
    /// to be filled. False: there is no further trace, and this one is dropped. It is called one
    /// trace ahead of the job, so that the last trace is known as such, and not again after it has
    /// said false. Integers outside of the range of their word become the nearest one in it.
    std::function<bool(std::span<float> samples, std::span<double> values)> make;
};

/// Traces that a job has given to the application, in the place of a module without outputs.
struct JobCollection
{
    std::vector<float> samples; ///< `count` rows of `traceLength`
    int count = 0;              ///< traces
    int traceLength = 0;        ///< samples of a trace; 0 without traces
    int sampleInterval = 0;     ///< microseconds; 0 without traces
    /// For each name that it has when it becomes a sink `count` values; 0 where the traces do not
    /// have the word.
    std::map<std::string, std::vector<double>> words;
};

/// A trace that a job gives to the application, valid until the function returns.
struct JobTrace
{
    std::span<const float> samples; ///< in the order of time
    std::span<const double> values; ///< of the header words that were named, in that order
    int sampleInterval = 0;         ///< microseconds
};

/// A function of the application that takes traces, in the place of a module without outputs. The
/// samples are not copied.
struct JobTraceTaker
{
    std::vector<std::string> words; ///< names of the header words that it wants
    std::function<void(const JobTrace& trace)> take;
};

/// A job: its text with the changes made to it. Movable; used by one thread at a time.
class VORN_EXPORT Job
{
public:
    /// `text` is YAML; `path` is the name of the file in messages, and relative paths in it begin
    /// in that file's directory. What is wrong is told by check(). Throws std::runtime_error when
    /// the module tree is missing.
    static Job fromText(const std::string& text, const std::string& path = "job.yaml",
                        const JobModules& modules = {});
    /// The same from a file; one that cannot be read is an error of check().
    static Job fromFile(const std::string& path, const JobModules& modules = {});

    Job(Job&& other) noexcept;
    Job& operator=(Job&& other) noexcept;
    ~Job();

    /// Names of the modules, in the order of the text.
    std::vector<std::string> moduleNames() const;

    /// Sets or replaces a parameter; `value` is written as in the job file, "250 ms" or "[1, 2]".
    /// Relative paths begin in the current directory. A wrong one is an error of check().
    void set(const std::string& module, const std::string& parameter, const std::string& value);

    /// @name Traces of the application
    /// Puts a source or a sink in the place of a module, in this and all later runs; its library,
    /// its parameters and its files do not matter then. A source has one output, which any number
    /// of modules may read, and no input; a sink has one input and no output. What is given last
    /// for a module counts. Functions are called on the thread of run(), each for one trace after
    /// the other; Job::cancel() may be called in them, and an exception that leaves one ends the
    /// job as failed. Wrong names, numbers and connections are errors of check().
    /// @{
    void setSource(const std::string& module, const JobTraces& traces);
    void setSource(const std::string& module, const JobTraceMaker& maker);
    /// `into` must live as long as the job, or until restore(). It is emptied now and when a run
    /// begins, and keeps its capacity; a run that fails or is cancelled leaves the traces that came
    /// before. Each trace is copied once, into rows that move as they grow, as a std::vector does.
    void setSink(const std::string& module, JobCollection& into);
    void setSink(const std::string& module, const JobTraceTaker& taker);
    /// The module of the text is itself again.
    void restore(const std::string& module);
    /// @}

    /// Errors and warnings, all of them, in the order of the text. Module libraries are loaded in a
    /// child process; no module is called.
    std::vector<JobDiagnostic> check() const;

    /// Checks and runs the job; a job with errors is not started, and its diagnostics are messages
    /// of the result. May be called again: each run begins with nothing of the one before. Never
    /// throws for what modules do. Throws std::runtime_error when the scratch directory cannot be
    /// made, and std::logic_error when a job is running in this process.
    JobResult run(const JobListener& listener = {}) const;

    /// Asks the job that runs in this process to end soon; nothing when none does. May be called
    /// from any thread and from signal handlers, from the moment when run() has been entered. run()
    /// then returns with RunOutcome::cancelled, and no output gets its name; one that has it
    /// already, since the request came at the very end, is whole. A request after that changes
    /// nothing.
    static void cancel() noexcept;

private:
    struct Content;
    explicit Job(std::unique_ptr<Content> content);
    std::unique_ptr<Content> all;
};

} // namespace VORN

#endif
