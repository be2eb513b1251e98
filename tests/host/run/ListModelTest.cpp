// Jobs made at random of modules that burst, keep, leave out, multiply, gather, look ahead, split,
// join, write into their input and end early, with the processing modules among them, run by the
// command and compared with a model of lists: each sink gets exactly the traces of the model, in
// order, once, with the right samples. Every job ends, however few of its traces are in memory.
//
// VORN_GRAPHS gives another number of jobs, VORN_SOAK_SEED another seed.
#include "ExpectedLeaks.h"
#include "ListFixture.h"
#include "ListJobs.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

using namespace host;
using ::testing::ElementsAre;

namespace {

constexpr int jobsPerTest = 500;
#ifdef __SANITIZE_ADDRESS__
constexpr int jobsRun = 30; // each takes several times as long
#else
constexpr int jobsRun = jobsPerTest;
#endif
constexpr unsigned defaultSeed = 1;

int fromEnvironment(const char* name, int otherwise)
{
    const char* value = std::getenv(name);
    return value != nullptr ? std::atoi(value) : otherwise;
}

class ListModelTest : public ListFixture
{
protected:
    // What a module makes of a list when nothing else is in the job.
    List runAlone(const std::string& module, const List* input)
    {
        const std::string from = homeDirectory / "from.list";
        const std::string to = homeDirectory / "to.list";
        const bool isSink = module.substr(0, module.find(',')).ends_with("_out");
        std::string text = "modules:\n";
        if (input != nullptr) {
            std::FILE* file = std::fopen(from.c_str(), "wb");
            for (const ListTrace& trace : *input)
                appendTrace(file, trace);
            std::fclose(file);
            text += "  - {name: from, module: list_source, file: " + from + "}\n";
        }
        text +=
            "  - {name: alone, module: " + module + (input != nullptr ? ", input: from}\n" : "}\n");
        if (!isSink)
            text += "  - {name: to, module: list_sink, input: alone, file: " + to + "}\n";
        const RunResult result = run(text, 10000);
        EXPECT_THAT(errorsOf(result), ::testing::IsEmpty()) << text;
        return isSink ? List() : readList(to);
    }

    ListJob makeJob(unsigned seed)
    {
        return ListJobMaker(
                   seed,
                   [this](const std::string& module, const List* input) {
                       return runAlone(module, input);
                   },
                   homeDirectory.path())
            .make();
    }

    static std::string textOf(const List& list)
    {
        std::string text;
        for (const ListTrace& trace : list)
            text += listText(trace);
        return text;
    }

    // Whether the sinks of the job have got what the model says.
    bool agrees(const ListJob& job, int tracesInMemory, const std::string& label)
    {
        const RunResult result = run(job.text, tracesInMemory);
        std::map<std::string, std::string> got;
        std::map<std::string, int64_t> taken;
        for (const RunModule& module : result.modules) {
            if (module.module == "list_sink")
                got[module.name] =
                    module.metadata.count("traces") ? module.metadata.at("traces") : "-";
            else if (job.taken.count(module.name) > 0)
                taken[module.name] = module.statistics.tracesIn;
        }
        EXPECT_EQ(got, job.expected) << label << job.text;
        EXPECT_EQ(taken, job.taken) << label << job.text;
        EXPECT_THAT(errorsOf(result), ::testing::IsEmpty()) << label << job.text;
        bool filesAgree = true;
        for (const ListJob::File& file : job.files) {
            const std::string written =
                textOf(runAlone(file.reader + ", file: " + file.path, nullptr));
            EXPECT_EQ(written, textOf(file.list)) << file.path << " of " << label << job.text;
            filesAgree = filesAgree && written == textOf(file.list);
            std::filesystem::remove(file.path);
        }
        return got == job.expected && taken == job.taken && filesAgree && !result.failed;
    }
};

} // namespace

TEST_F(ListModelTest, EverySinkGetsTheTracesOfTheModel)
{
    const ExpectedLeaks leaks; // where a module ends early, traces wait for it in vain
    const int jobs = fromEnvironment("VORN_GRAPHS", jobsRun);
    const auto seed =
        static_cast<unsigned>(fromEnvironment("VORN_SOAK_SEED", static_cast<int>(defaultSeed)));
    std::printf("%d jobs from seed %u\n", jobs, seed);
    int wrong = 0;
    for (unsigned i = 0; i < static_cast<unsigned>(jobs); ++i) {
        const ListJob job = makeJob(seed + i);
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
    int unread = 0;
    int longLists = 0;
    int shipped = 0;
    int files = 0;
    int pictures = 0;
    std::map<std::string, int> uses;
    std::map<std::string, int> joins;
    for (unsigned i = 0; i < jobsPerTest; ++i) {
        const auto unchanged = [](const std::string&, const List* input) {
            return input != nullptr ? *input : List{listTrace(1), listTrace(2)};
        };
        const ListJob job = ListJobMaker(defaultSeed + i, unchanged, "").make();
        for (const ListJob::Output& output : job.outputs) {
            shared += output.readers > 1 ? 1 : 0;
            unread += output.readers == 0 ? 1 : 0;
        }
        for (int kind = static_cast<int>(ListKind::pairs); kind < static_cast<int>(ListKind::count);
             ++kind) {
            const std::string parameter = ", kind: " + std::to_string(kind) + ",";
            for (const char* form : {"list_step", "list_stream"})
                joins[parameter] += job.text.find(form + parameter) != std::string::npos ? 1 : 0;
        }
        for (const auto& [name, text] : job.expected)
            longLists += text.size() > 300 ? 1 : 0;
        for (const auto& [name, count] : job.uses)
            uses[name] += count;
        shipped += job.shippedModules > 1 ? 1 : 0;
        files += static_cast<int>(job.files.size());
        pictures += static_cast<int>(job.taken.size());
    }
    EXPECT_GT(shared, 500);
    EXPECT_GT(unread, 100);
    EXPECT_GT(longLists, 500);
    EXPECT_GT(shipped, 300);
    EXPECT_GT(files, 100);
    EXPECT_GT(pictures, 100);
    EXPECT_EQ(uses.size(), 21U);
    for (const auto& [name, count] : uses)
        EXPECT_GT(count, 25) << name;
    EXPECT_EQ(joins.size(), 5U);
    for (const auto& [kind, count] : joins)
        EXPECT_GT(count, 50) << kind;
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

// A tee stands between "one" and "both", and nothing between "two" and "both".
TEST_F(ListModelTest, MetadataOfTheFirstInputAreTheNearestWhileTracesFlow)
{
    const RunResult result = run("modules:\n"
                                 "  - {name: one, module: list_source, traces: 3, from: 1}\n"
                                 "  - {name: two, module: list_source, traces: 3, from: 100}\n"
                                 "  - {name: both, module: list_sink, inputs: [one, two]}\n"
                                 "  - {name: end, module: list_sink, input: one}\n",
                                 10);

    EXPECT_EQ(result.modules[2].metadata.at("nearest"), "1");
    EXPECT_EQ(result.modules[3].metadata.at("nearest"), "1");
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

// "copy" is never called, and the kernel drops "join" with it.
TEST_F(ListModelTest, AJoinThatLosesAnInputSinceTheOtherOneIsEmptyFailsTheJob)
{
    const ExpectedLeaks leaks;
    const RunResult result =
        run("modules:\n"
            "  - {name: none, module: list_source, traces: 0}\n"
            "  - {name: copy, module: list_step, input: none}\n"
            "  - {name: read, module: list_source, traces: 5, from: 1}\n"
            "  - {name: gather, module: list_step, kind: 3, n: 3, input: read}\n"
            "  - {name: join, module: list_step, kind: 7, inputs: [copy, gather]}\n"
            "  - {name: end, module: list_sink, input: join}\n",
            10);

    EXPECT_TRUE(result.failed);
    EXPECT_THAT(
        errorsOf(result),
        ElementsAre("module \"join\" was not called at the end of its data, so what it held "
                    "back is missing: module \"copy\" before it ended without marking the "
                    "end, as no trace had reached it"));
}

// The writer stands before the module that fails, and would have ended first.
TEST_F(ListModelTest, NoOutputGetsItsNameWhereAModuleFailsAtTheVeryEnd)
{
    for (const char* how : {"", ", throws: 1"}) {
        const RunResult result =
            run("modules:\n"
                "  - {name: read, module: list_source, traces: 5, from: 1}\n"
                "  - {name: write, module: segy_out, file: out.segy, input: read}\n"
                "  - {name: copy, module: list_step, input: read}\n"
                "  - {name: check, module: fail_at_end, input: copy" +
                    std::string(how) + "}\n",
                10);

        EXPECT_TRUE(result.failed);
        const std::string told =
            *how == 0 ? "the sum does not match"
                      : "module \"check\" ended with an exception that it does not handle: the sum "
                        "does not match";
        EXPECT_THAT(errorsOf(result), ::testing::Contains(told)) << how;
        EXPECT_FALSE(std::filesystem::exists(homeDirectory / "out.segy")) << how;
    }
}
