/// @file ModuleHarness.h
///
/// Runs modules in a real job without a job file: pushes prepared traces in at the front and hands
/// back what comes out at the end, and what the modules told the host on the way.
#ifndef MODULEHARNESS_H
#define MODULEHARNESS_H

#include "UniVar.h"
#include "hostcallbacks.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

/// A trace that goes in or has come out.
struct HarnessTrace
{
    std::vector<float> samples;
    std::map<std::string, UniVar> attributes; ///< by name; coming out, all that the trace set has
    int flag = 0;                             ///< coming out: the trace flag, 3 at the end of data
};

/// A module of the chain. Everything is set before the job runs.
struct HarnessModule
{
    std::string name;    ///< in messages
    std::string library; ///< file name in the library folder of VORN_HOME
    std::map<std::string, UniVar> parameters;
    std::map<std::string, UniVar> options;   ///< processing options
    std::map<std::string, UniVar> resources; ///< module resources
};

struct HarnessMessage
{
    int type;
    std::string module; ///< "Kernel" for the kernel's own
    std::string text;
};

struct HarnessPad
{
    int ident;
    int type;
    int align;
    int visible;
    std::string title;
    /// What was drawn. `cbcd` of a symbol is not valid any more: its texts are in `texts`, in
    /// order.
    std::vector<plotCommandStruct> commands;
    std::vector<std::string> texts;
    std::vector<std::vector<float>> traces; ///< samples of the traces that were shown
    std::vector<std::string> attributes;    ///< of each of them, as "offset=100 cdp=3"
};

/// What a job did.
struct HarnessResult
{
    bool loaded = false;              ///< every module could be loaded; else the job did not run
    std::vector<HarnessTrace> traces; ///< in the order of arrival
    int traceLength = 0;              ///< of the last channel, once a trace has come
    int sampleInterval = 0;           ///< likewise, microseconds
    std::vector<HarnessMessage> messages; ///< in order
    std::vector<std::string> arguments;   ///< message arguments, in order
    std::vector<std::string> commands;    ///< for external applications, in order
    std::vector<HarnessPad> pads;         ///< in the order of creation
    std::map<std::string, std::string> jobMetadata;
    std::map<std::string, std::map<std::string, std::string>> moduleMetadata; ///< by module name
    std::map<std::string, std::map<std::string, UniVar>> moduleOptions;       ///< by module name
    /// By module name: bytes that a module allocated through the kernel and did not return.
    std::map<std::string, int> bytesLeft;

    /// The texts of all messages of the given type that `module` sent ("" for any but the kernel).
    std::vector<std::string> messagesOf(int type, const std::string& module = "") const;

    /// All messages, one a line, for what a failed test says.
    std::string allMessages() const;
};

/// A job of a source that emits `input`, the added modules in their order, and a sink, each joined
/// to the next by one data channel.
///
///     ModuleHarness harness;
///     harness.push({1, 2, 3}, {{"offset", UniVar(100)}});
///     harness.add("gain", "libgain.so").parameters["FACTOR"] = UniVar(2.0f);
///     HarnessResult result = harness.run();
///     EXPECT_THAT(result.traces[0].samples, ElementsAre(2, 4, 6));
///
/// The job is the process's one job: schema, job metadata and call-backs are set by `run` and empty
/// again after it. Module libraries are looked for in VORN_TEST_HOME. A job that does not end is
/// not noticed here; the test's time limit ends it.
class ModuleHarness
{
public:
    std::vector<HarnessTrace> input; ///< what the source emits
    int sampleInterval = 2000;       ///< microseconds
    int tracesPerCall = 1;           ///< how many traces the source emits at a time
    bool withSource = true;          ///< false: the first added module is a source itself
    bool withSink = true;            ///< false: the last added module is a sink itself
    std::string projectDirectory;    ///< the job's, where not empty
    std::string scratchDirectory;    ///< likewise
    std::map<std::string, std::string> jobMetadata; ///< the job's, before it runs

    /// In `runInParts`, where the first added module is the source: its parameter that takes the
    /// range of its traces, and how many it gives in all.
    std::string rangeParameter;
    std::size_t sourceTraces = 0;
    /// In `runInParts`, where set: called before a part, from 1, begins, with the number of traces
    /// before it, and with 0 before the merge begins.
    std::function<void(std::size_t part, std::size_t first)> beforePart;
    /// In `runInParts`, where set: called with the file of each module before it is written, and
    /// before it is read.
    std::function<void(const std::string&state)> beforeSave, beforeMerge;

    /// Adds a trace to the input. All traces get the length of the longest, with zeros behind.
    void push(std::vector<float> samples, std::map<std::string, UniVar> attributes = {});

    /// Adds a module behind those before. The reference holds as long as the harness.
    HarnessModule& add(const std::string& name, const std::string& library);

    /// Defines a trace attribute of the job's schema: 2 and 3 integers of 32 and 64 bits, 4 and 5
    /// floats of 32 and 64 bits, arrays of them with a `dimension` from 2; 9 and 10 texts of 32 and
    /// 64 bytes.
    void define(const std::string& attribute, int type, int dimension = 1,
                const std::string& description = "");

    /// Runs the three phases once.
    HarnessResult run();

    /// Runs the job in parts, a job each, and merges them in a last job. What comes back is to be
    /// what `run` gives: traces, and messages sent while processing, of all parts in order; all
    /// else of the last job. A fatal message of a part is there too.
    ///
    /// @param cuts  traces of the input before each part but the first, ascending
    HarnessResult runInParts(const std::vector<std::size_t>& cuts);

private:
    class Run;
    struct Definition
    {
        std::string name;
        int type;
        int dimension;
        std::string description;
    };

    std::deque<HarnessModule> modules;
    std::vector<Definition> definitions;
};

/// The first difference between two results, as text; empty where messages, pads, metadata, traces
/// and all else that a user sees are equal, with all bits of floats.
std::string differenceOf(const HarnessResult& expected, const HarnessResult& actual);

#endif
