// Jobs made at random of modules that burst, keep, leave out, multiply, gather, look ahead, join,
// write into their input and end early, run by the command and compared with a model of lists: each
// sink gets exactly the traces of the model, in order, once, with the right samples. Every job
// ends, however few of its traces are in memory.
//
// VORN_GRAPHS gives another number of jobs, VORN_SOAK_SEED another seed.
#include "run/JobRunner.h"

#include "ExpectedLeaks.h"
#include "TestTree.h"
#include "TraceVerbs.h"
#include "job/JobCheck.h"
#include "list_model.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

using namespace host;
using ::testing::ElementsAre;

namespace {

constexpr int jobsPerTest = 500;
constexpr unsigned defaultSeed = 1;

// It has an output also where no module reads it.
const char* const stepManifest = "module: list_step\n"
                                 "version: 0.1.0\n"
                                 "purpose: A step of the model of lists\n"
                                 "language: c++\n"
                                 "inputs: {min: 1, max: any}\n"
                                 "outputs: {min: 1, max: 1}\n"
                                 "parameters:\n"
                                 "  - {name: kind, type: int, help: ListKind}\n"
                                 "  - {name: n, type: int, help: a number of traces}\n"
                                 "  - {name: calls, type: int, help: calls for each trace}\n"
                                 "  - {name: scribbles, type: int, help: writes into its input}\n"
                                 "  - {name: defines, type: int, help: defines an attribute}\n"
                                 "reads: []\n"
                                 "writes: []\n"
                                 "draws: none\n";

using List = std::vector<ListTrace>;

int fromEnvironment(const char* name, int otherwise)
{
    const char* value = std::getenv(name);
    return value != nullptr ? std::atoi(value) : otherwise;
}

std::string textOf(const List& list)
{
    std::string text;
    for (const ListTrace& trace : list)
        text += std::to_string(trace.id) + ":" + std::to_string(trace.value) + " ";
    return text;
}

// A job file, and what the model says that its sinks get.
struct ListJob
{
    std::string text = "modules:\n";
    std::map<std::string, std::string> expected; ///< by the name of the sink
    std::vector<std::pair<std::string, List>> outputs;
    std::vector<int> readers; ///< by output
};

class JobMaker
{
public:
    explicit JobMaker(unsigned seed) : dice(seed) {}

    ListJob make()
    {
        for (int i = dice.between(1, 2); i > 0; --i)
            addSource();
        for (int i = dice.between(1, 9); i > 0; --i)
            addStep();
        const std::size_t outputs = job.outputs.size();
        for (std::size_t i = 0; i < outputs; ++i) {
            // Some outputs stay unread, but not all, and none of a source.
            const bool isNeeded = job.readers[i] == 0;
            const bool isSource = job.outputs[i].first.starts_with("source");
            if (isNeeded ? isSource || !dice.oneIn(6) || job.expected.empty() : dice.oneIn(4))
                addSink(i);
        }
        return job;
    }

private:
    void addSource()
    {
        const std::string name = "source" + std::to_string(job.outputs.size());
        const int from = 1 + static_cast<int>(job.outputs.size()) * 1000;
        const int traces = dice.oneIn(12) ? dice.below(2) : dice.between(1, 40);
        List list;
        for (int i = 0; i < traces; ++i)
            list.push_back({from + i, (from + i) % 4096});
        job.text += "  - {name: " + name + ", module: list_source" + parameter("traces", traces) +
                    parameter("from", from) + parameter("bursts", dice.oneIn(4) ? 0 : 1) +
                    parameter("seed", dice.below(1000)) + "}\n";
        addOutput(name, list);
    }

    void addStep()
    {
        ListStep step;
        step.kind = static_cast<ListKind>(dice.below(static_cast<int>(ListKind::count)));
        if (dice.oneIn(3))
            step.kind = ListKind::pass;
        step.n = dice.between(1, 6);
        step.calls = dice.oneIn(3) ? dice.between(2, 4) : 1;
        step.scribbles = dice.oneIn(2);
        step.defines = dice.oneIn(4);
        const bool joins = step.kind == ListKind::pairs || step.kind == ListKind::merge;
        std::vector<std::size_t> inputs;
        for (int i = joins ? dice.between(2, 3) : 1; i > 0; --i)
            inputs.push_back(anyOutput());

        // A module that gives one trace for each is never called when none comes: the kernel cannot
        // tell those behind it that there is none.
        const bool isEmpty = job.outputs[inputs[0]].second.empty();
        if (isEmpty && step.kind == ListKind::pass)
            step.kind = ListKind::repeat;

        const std::string name = "step" + std::to_string(job.outputs.size());
        job.text += "  - {name: " + name + ", module: list_step, inputs: [";
        std::vector<List> lists;
        for (const std::size_t input : inputs) {
            job.text += (lists.empty() ? "" : ", ") + job.outputs[input].first;
            lists.push_back(job.outputs[input].second);
            ++job.readers[input];
        }
        job.text += "]" + parameter("kind", static_cast<int>(step.kind)) + parameter("n", step.n) +
                    parameter("calls", step.calls) + parameter("scribbles", step.scribbles) +
                    parameter("defines", step.defines) + "}\n";
        addOutput(name, listOf(step, lists));
    }

    void addSink(std::size_t output)
    {
        const std::string name = "sink" + std::to_string(job.expected.size());
        job.text += "  - {name: " + name +
                    ", module: list_sink, input: " + job.outputs[output].first + "}\n";
        job.expected[name] = textOf(job.outputs[output].second);
        ++job.readers[output];
    }

    void addOutput(const std::string& name, const List& list)
    {
        job.outputs.emplace_back(name, list);
        job.readers.push_back(0);
    }

    // The last one more often than others, so that there are long ways.
    std::size_t anyOutput()
    {
        const int outputs = static_cast<int>(job.outputs.size());
        return static_cast<std::size_t>(dice.oneIn(2) ? outputs - 1 : dice.below(outputs));
    }

    static std::string parameter(const std::string& name, int value)
    {
        return ", " + name + ": " + std::to_string(value);
    }

    Dice dice;
    ListJob job;
};

class ListModelTest : public KernelFixture
{
protected:
    ListModelTest()
    {
        std::filesystem::create_directories(homeDirectory / "lib");
        for (const char* name : {"list_source", "list_step", "list_sink", "tee", "delay_one",
                                 "drop_last", "unmarked_end"})
        {
            const std::string library = std::string("lib") + name + ".so";
            std::filesystem::create_symlink(VORN_TEST_HOME "/lib/" + library,
                                            homeDirectory / ("lib/" + library));
        }
        writeFile(homeDirectory / "lib/list_step.yaml", stepManifest);
    }

    RunResult run(const std::string& text, int tracesInMemory)
    {
        Diagnostics diagnostics;
        const auto file = parseJobFile(text, homeDirectory / "job.yaml", diagnostics);
        ResolvedJob resolved = checkJob(*file, ModuleCatalog(homeDirectory.path()), diagnostics);
        EXPECT_EQ(diagnostics.errors(), 0) << text;
        resolved.scratchTraces = tracesInMemory;
        JobRunner runner(resolved, scratchDirectory.path());
        return runner.run();
    }

    static std::vector<std::string> errorsOf(const RunResult& result)
    {
        std::vector<std::string> texts;
        for (const RunMessage& message : result.messages) {
            if (message.severity >= errorSeverity)
                texts.push_back(message.text);
        }
        return texts;
    }

    // Whether the sinks of the job have got what the model says.
    bool agrees(const ListJob& job, int tracesInMemory, const std::string& label)
    {
        const RunResult result = run(job.text, tracesInMemory);
        std::map<std::string, std::string> got;
        for (const RunModule& module : result.modules) {
            if (module.module == "list_sink")
                got[module.name] = module.metadata.count("list") ? module.metadata.at("list") : "-";
        }
        EXPECT_EQ(got, job.expected) << label << job.text;
        EXPECT_THAT(errorsOf(result), ::testing::IsEmpty()) << label << job.text;
        return got == job.expected && !result.failed;
    }

    TemporaryDirectory homeDirectory;
};

} // namespace

TEST_F(ListModelTest, EverySinkGetsTheTracesOfTheModel)
{
    const ExpectedLeaks leaks; // where a module ends early, traces wait for it in vain
    const int jobs = fromEnvironment("VORN_GRAPHS", jobsPerTest);
    const auto seed =
        static_cast<unsigned>(fromEnvironment("VORN_SOAK_SEED", static_cast<int>(defaultSeed)));
    std::printf("%d jobs from seed %u\n", jobs, seed);
    int wrong = 0;
    for (unsigned i = 0; i < static_cast<unsigned>(jobs); ++i) {
        const ListJob job = JobMaker(seed + i).make();
        for (const int traces : {10000, 10, 1}) {
            if (!agrees(job, traces,
                        "seed " + std::to_string(seed + i) + ", " + std::to_string(traces) +
                            " traces in memory\n") &&
                ++wrong >= 3)
                return;
        }
    }
}

// Without jobs in which outputs have several readers, modules join, and lists are long, the test
// above would show little.
TEST_F(ListModelTest, TheJobsAreOfAllKinds)
{
    int shared = 0;
    int joins = 0;
    int unread = 0;
    int longLists = 0;
    for (unsigned i = 0; i < jobsPerTest; ++i) {
        const ListJob job = JobMaker(defaultSeed + i).make();
        for (const int readers : job.readers) {
            shared += readers > 1 ? 1 : 0;
            unread += readers == 0 ? 1 : 0;
        }
        joins += job.text.find("kind: 6") != std::string::npos ? 1 : 0;
        joins += job.text.find("kind: 7") != std::string::npos ? 1 : 0;
        for (const auto& [name, text] : job.expected)
            longLists += text.size() > 100 ? 1 : 0;
    }
    EXPECT_GT(shared, 500);
    EXPECT_GT(joins, 200);
    EXPECT_GT(unread, 100);
    EXPECT_GT(longLists, 500);
}

namespace {

// `middle` stands between a source of ten traces and a chain of a module that gives one trace for
// each and one that gathers three at a time.
std::string gathering(const std::string& middle)
{
    return "modules:\n"
           "  - {name: read, module: list_source, traces: 10, from: 1, bursts: 0, seed: 1}\n"
           "  - {name: middle, module: " +
           middle +
           ", input: read}\n"
           "  - {name: copy, module: list_step, input: middle}\n"
           "  - {name: gather, module: list_step, input: copy, kind: 3, n: 3}\n"
           "  - {name: end, module: list_sink, input: gather}\n";
}

} // namespace

TEST_F(ListModelTest, AModuleThatIsNotToldTheEndFailsTheJob)
{
    const RunResult result = run(gathering("drop_last"), 10);

    EXPECT_TRUE(result.failed);
    EXPECT_THAT(errorsOf(result),
                ElementsAre("module \"gather\" was not called at the end of its data, so what it "
                            "held back is missing: module \"copy\" before it ended without marking "
                            "its last trace"));
}

TEST_F(ListModelTest, TheModuleThatMarkedItsEndTooLateIsNamed)
{
    const RunResult result = run(gathering("unmarked_end"), 10);

    EXPECT_TRUE(result.failed);
    EXPECT_THAT(errorsOf(result),
                ElementsAre("module \"gather\" was not called at the end of its data, so what it "
                            "held back is missing: module \"copy\" before it ended without marking "
                            "its last trace, as module \"middle\" before that one did"));
}

TEST_F(ListModelTest, ALateEndIsEnoughForAModuleThatAsksForIt)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: list_source, traces: 4, from: 1, bursts: 0, seed: 1}\n"
            "  - {name: late, module: unmarked_end, input: read}\n"
            "  - {name: gather, module: list_step, input: late, kind: 3, n: 3}\n"
            "  - {name: end, module: list_sink, input: gather}\n",
            10);

    EXPECT_FALSE(result.failed);
    EXPECT_EQ(result.modules[3].metadata.at("list"), "3:3 2:2 1:1 4:4 ");
}

// Nobody wants what "gather" holds: "first" has all that it gives.
TEST_F(ListModelTest, WhatIsHeldBackForAModuleThatHasEndedIsNotMissing)
{
    const ExpectedLeaks leaks;
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: list_source, traces: 10, from: 1, bursts: 0, seed: 1}\n"
            "  - {name: late, module: drop_last, input: read}\n"
            "  - {name: gather, module: list_step, input: late, kind: 3, n: 3}\n"
            "  - {name: first, module: list_step, input: gather, kind: 5, n: 2}\n"
            "  - {name: all, module: list_sink, input: late}\n"
            "  - {name: end, module: list_sink, input: first}\n",
            10);

    EXPECT_FALSE(result.failed);
    EXPECT_EQ(result.modules[5].metadata.at("list"), "3:3 2:2 ");
}

TEST_F(ListModelTest, ModulesThatLookAheadFollowEachOtherBesideOtherReaders)
{
    const ExpectedLeaks leaks; // a module that looks ahead leaves a trace in its work buffer
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: list_source, traces: 5, from: 1, bursts: 1, seed: 3}\n"
            "  - {name: once, module: delay_one, input: read}\n"
            "  - {name: twice, module: delay_one, input: once}\n"
            "  - {name: all, module: list_sink, input: read}\n"
            "  - {name: middle, module: list_sink, input: once}\n"
            "  - {name: end, module: list_sink, input: twice}\n",
            10);

    for (const std::size_t sink : {3, 4, 5})
        EXPECT_EQ(result.modules[sink].metadata.at("list"), "1:1 2:2 3:3 4:4 5:5 ");
}

// There is nothing that could be missing.
TEST_F(ListModelTest, NoTraceAtAllIsNoError)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: list_source, traces: 0, from: 1, bursts: 0, seed: 1}\n"
            "  - {name: copy, module: list_step, input: read}\n"
            "  - {name: gather, module: list_step, input: copy, kind: 3, n: 3}\n"
            "  - {name: end, module: list_sink, input: gather}\n",
            10);

    EXPECT_FALSE(result.failed);
}
