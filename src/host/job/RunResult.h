/// @file RunResult.h
///
/// What a run of a job was and did: the facts that the table at the end, the HTML report and the
/// JSON file are made of. Plain data; texts are UTF-8 as files and modules gave them, not escaped.
#ifndef RUNRESULT_H
#define RUNRESULT_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// Severities of messages, as modules and the command agree on them.
enum Severity : int
{
    detailSeverity = 0,
    informationSeverity = 1,
    warningSeverity = 2,
    errorSeverity = 3, ///< the job goes on
    fatalSeverity = 4  ///< the module ends its data
};

/// "detail", "information", "warning", "error", "fatal"; "message" for other numbers below 0, and
/// "fatal" above 4.
const char* severityName(int severity);

/// One parameter as the module received it.
struct RunParameter
{
    std::string name;
    std::string type;  ///< of the manifest (int, float, …); empty for a module without manifest
    std::string value; ///< as text, in `unit`; the elements of a list are separated by ", "
    std::string unit;  ///< empty: none
    bool given = true; ///< in the job file or on the command line; false: the manifest's default
};

/// One input port of a module.
struct RunInput
{
    std::string module;   ///< name of the module that it is connected to
    int port = 1;         ///< output port of that module, counted from 1
    std::string portName; ///< of the manifest, or empty
};

/// What a module did, in numbers.
struct RunStatistics
{
    int64_t tracesIn = 0;          ///< traces taken from all inputs
    int64_t tracesOut = 0;         ///< traces written to all outputs
    int64_t tracesAnnounced = 0;   ///< on all outputs; 0: the module announced none
    int64_t preprocessMicros = 0;  ///< wall clock inside `preprocess_`
    int64_t processMicros = 0;     ///< wall clock inside `process_`, all calls
    int64_t postprocessMicros = 0; ///< wall clock inside `postprocess_`
    int64_t peakBytes = 0; ///< largest amount that the module was seen to hold, its traces included
    int64_t bytesLeft = 0; ///< still held when the last module had ended
    double share = 0;      ///< of the job's wall clock, 0 to 1

    int64_t totalMicros() const { return preprocessMicros + processMicros + postprocessMicros; }
    /// Microseconds of `process_` per trace, by the greater of in and out; 0 without traces.
    double microsPerTrace() const
    {
        const int64_t traces = tracesIn > tracesOut ? tracesIn : tracesOut;
        return traces > 0 ? static_cast<double>(processMicros) / static_cast<double>(traces) : 0;
    }
};

/// A module of the job and what it did.
struct RunModule
{
    std::string name;    ///< in the job
    std::string module;  ///< library and manifest
    std::string version; ///< of the manifest, or empty
    std::string purpose; ///< of the manifest, or empty
    std::string language;
    int order = 0; ///< place in which the kernel runs it, from 1
    std::vector<RunInput> inputs;
    std::vector<RunParameter> parameters;
    /// What it noted about itself and its data (`setMetaDataValue` in the module's scope), by key.
    /// Of whole file headers only the number of bytes is kept.
    std::map<std::string, std::string> metadata;
    /// The text headers of the file that it has read, a line for each card; empty without any.
    std::string textHeader;
    RunStatistics statistics;
};

/// A message of a module or of the kernel.
struct RunMessage
{
    double seconds = 0; ///< since the job began
    std::string time;   ///< local time, HH:MM:SS
    std::string module; ///< name in the job, or "Kernel"
    /// "job.yaml:12", the entry of the module or the parameter that the message is about; empty for
    /// messages of no module.
    std::string place;
    int severity = 0; ///< see Severity; other numbers as the module gave them
    std::string text;
    std::vector<std::string> arguments; ///< that the module added after the text
    /// Not empty: the module sends it once in a job. Of a job in parts, the first with the same
    /// module and key counts.
    std::string onceKey;
};

/// A file that the job read or was to write.
struct RunFile
{
    std::string path;   ///< absolute
    std::string module; ///< name in the job
    std::string parameter;
    bool exists = false;  ///< when the job had ended
    bool written = false; ///< an output that the job made or changed
    int64_t bytes = 0;
    std::string modified; ///< local time, YYYY-MM-DD HH:MM:SS
    /// Different bytes that the job has read of an input; -1: unknown, since the module does not
    /// read through libVORN_segy.
    int64_t bytesRead = -1;
    /// Hexadecimal, of the bytes that were read; empty when it was not asked for, when the file
    /// could not be read or changed meanwhile, and when only a part of it was read.
    std::string sha256;
};

/// What the values of one trace header word were among the traces of a source.
struct HeaderRange
{
    std::string word;
    std::string description; ///< of the schema, or empty
    int64_t minimum = 0;
    int64_t maximum = 0;
    int64_t first = 0;
    int64_t last = 0;
    int64_t changes = 0; ///< how often it differed from the trace before
};

/// What came out of one source module.
struct SourceData
{
    std::string module; ///< name in the job
    int64_t traces = 0;
    int64_t announced = 0; ///< traces that it was going to give; 0: it announced none
    int samples = 0;       ///< per trace
    int intervalMicros = 0;
    std::vector<HeaderRange>
        words; ///< in the order of the schema; those that are always 0 left out
};

/// A mistake of a module that a checked run has found.
struct RunFinding
{
    std::string module;   ///< name in the job
    std::string kind;     ///< a word for programs, as "null_handle"
    std::string place;    ///< where it was found first, as "in process_, trace 17 of its input"
    std::string function; ///< of the module interface, as the module called it; empty: none
    std::string text;     ///< what is wrong, and what to do
    int64_t count = 1;    ///< how often it was found
};

/// How a run ended.
enum class RunEnd
{
    done,      ///< the job ran to its end; see `failed` for how
    stalled,   ///< the job was deadlocked: no trace could move any more
    notStarted ///< a module could not be created
};

/// All facts of a run.
struct RunResult
{
    std::string jobName;
    std::string jobFile;     ///< absolute path
    std::string resolvedJob; ///< the whole job as YAML, defaults and --set included
    std::string graphDot;    ///< the job as a graph, in Graphviz' language
    std::string graphSvg;    ///< its picture; empty where Graphviz is not installed
    std::string projectDirectory;
    std::string scratchDirectory;
    int scratchTraces = 0;
    double timeLimitSeconds = 0; ///< 0: none
    std::string schema;          ///< as in the job file: "segy", "", or "list"

    std::vector<std::string> checkWarnings; ///< of the check before the run, one line each

    std::vector<RunModule> modules; ///< in the order of the job file
    /// The modules that the command has put before several readers of an output; empty unless they
    /// were asked for. Their memory is in that of the module before them, too.
    std::vector<RunModule> tees;
    std::vector<RunMessage> messages; ///< in order of time
    int64_t messagesLeftOut = 0; ///< further ones of modules that sent thousands of one severity
    std::vector<RunFile> inputs;
    std::vector<RunFile> outputs;
    std::vector<SourceData> sources;

    bool isChecked = false;           ///< the calls and the memory of modules were checked
    std::vector<RunFinding> findings; ///< in the order in which they were found first

    RunEnd end = RunEnd::done;
    bool failed = false; ///< some message had severity 3 or above, or the job did not end by itself
    int exitCode = 0;    ///< that the failure asks for; 0: that of a job with errors
    std::string started; ///< local time, YYYY-MM-DD HH:MM:SS
    int64_t wallMicros = 0;        ///< all three phases
    int64_t processWallMicros = 0; ///< the processing phase
    int parts = 0;          ///< ranges of traces that processes of their own worked on; 0: none
    int64_t busyMicros = 0; ///< all phases of all processes, one after the other
    int64_t peakJobBytes = 0;
    int64_t sourceTraces = 0; ///< traces that entered the job
    int64_t sourceBytes = 0;  ///< their samples and SEG-Y trace headers, 240 bytes each

    std::string vornVersion;
    std::string qtVersion;
    std::string compiler;
    std::string host; ///< name of the machine
    std::string vornHome;

    int countOf(int severity) const; ///< messages of exactly this severity
};

} // namespace host

#endif
