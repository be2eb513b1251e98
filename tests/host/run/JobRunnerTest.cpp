#include "run/JobRunner.h"

#include "ExpectedLeaks.h"
#include "ModuleEntity.h"
#include "ProcessingTree.h"
#include "TestTree.h"
#include "job/JobCheck.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <malloc.h>

using namespace host;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Runs jobs of the test modules in this process.
class JobRunnerTest : public KernelFixture
{
protected:
    RunResult run(const std::string& text)
    {
        Diagnostics diagnostics;
        const auto file = parseJobFile(text, tree.path("job.yaml"), diagnostics);
        resolved = checkJob(*file, ModuleCatalog(tree.home()), diagnostics);
        diagnostics.print(stdout);
        JobRunner runner(resolved, scratchDirectory.path());
        runner.watchHeaders = true;
        runner.watchTees = watchTees;
        runner.onMessage = [this](const RunMessage& message) {
            heard.push_back(message.text);
            if (onMessage)
                onMessage(message);
        };
        return runner.run();
    }

    TestTree tree;
    ResolvedJob resolved;
    bool watchTees = false;
    MessageListener onMessage; // told beside `heard`
    std::vector<std::string> heard;
};

const char* const chain = "modules:\n"
                          "  - {name: read, module: host_source, traces: 50}\n"
                          "  - {name: third, module: host_filter, input: read, every: 3}\n"
                          "  - {name: write, module: host_sink, input: third}\n"
                          "  - {name: write2, module: host_sink, inputs: [read]}\n";

} // namespace

TEST_F(JobRunnerTest, TracesAreCountedAsTheyPass)
{
    const RunResult result = run(chain);

    const auto counts = [&](std::size_t i) {
        return std::pair(result.modules[i].statistics.tracesIn,
                         result.modules[i].statistics.tracesOut);
    };
    EXPECT_EQ(counts(0), std::pair(int64_t(0), int64_t(50)));
    EXPECT_EQ(counts(1), std::pair(int64_t(50), int64_t(16)));
    EXPECT_EQ(counts(2), std::pair(int64_t(16), int64_t(0)));
    EXPECT_EQ(counts(3), std::pair(int64_t(50), int64_t(0)));
    EXPECT_EQ(result.sourceTraces, 50);
    EXPECT_EQ(result.sourceBytes, 50 * (240 + 4 * 4));
    EXPECT_EQ(result.modules[0].statistics.tracesAnnounced, 50);
    EXPECT_FALSE(result.failed);
    EXPECT_EQ(result.end, RunEnd::done);
}

TEST_F(JobRunnerTest, TimesAreFinerThanSecondsAndAddUp)
{
    const RunResult result = run("modules:\n"
                                 "  - {name: read, module: host_source, traces: 5, pause: 20 ms}\n"
                                 "  - {name: write, module: host_sink, input: read}\n");

    const RunStatistics& read = result.modules[0].statistics;
    EXPECT_GE(read.processMicros, 100000);
    EXPECT_LT(read.preprocessMicros, 100000);
    EXPECT_GE(read.microsPerTrace(), 20000);
    EXPECT_GE(result.wallMicros, result.processWallMicros);
    EXPECT_GE(result.processWallMicros, read.processMicros);
    EXPECT_NEAR(read.share,
                static_cast<double>(read.totalMicros()) / static_cast<double>(result.wallMicros),
                1e-9);
}

TEST_F(JobRunnerTest, HeaderRangesTellWhatTheSourceRead)
{
    const RunResult result = run(chain);

    ASSERT_EQ(result.sources.size(), 1u);
    const SourceData& source = result.sources[0];
    EXPECT_EQ(source.module, "read");
    EXPECT_EQ(source.traces, 50);
    EXPECT_EQ(source.samples, 4);
    EXPECT_EQ(source.intervalMicros, 2000);
    ASSERT_EQ(source.words.size(), 2u) << "words that are always 0 are left out";
    EXPECT_EQ(source.words[0].word, "fldr");
    EXPECT_EQ(source.words[0].description, "field record number");
    EXPECT_EQ(source.words[1].word, "tracl");
    EXPECT_EQ(source.words[1].minimum, 1);
    EXPECT_EQ(source.words[1].maximum, 50);
    EXPECT_EQ(source.words[1].changes, 49);
}

TEST_F(JobRunnerTest, ModulesKnowTheirPlaceInputsAndParameters)
{
    const RunResult result = run(chain);

    EXPECT_EQ(result.modules[0].order, 1);
    EXPECT_EQ(result.modules[2].order, 4);
    ASSERT_EQ(result.modules[1].inputs.size(), 1u);
    EXPECT_EQ(result.modules[1].inputs[0].module, "read");
    EXPECT_EQ(result.modules[1].inputs[0].port, 1);
    EXPECT_EQ(result.modules[1].inputs[0].portName, "data");
    const auto every =
        std::find_if(result.modules[1].parameters.begin(), result.modules[1].parameters.end(),
                     [](const RunParameter& one) { return one.name == "every"; });
    ASSERT_NE(every, result.modules[1].parameters.end());
    EXPECT_EQ(every->value, "3");
    EXPECT_TRUE(every->given);
    EXPECT_EQ(result.modules[0].version, "1.2.3");
}

TEST_F(JobRunnerTest, AFatalErrorWhilePreparingKeepsTheTracesFromFlowing)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: host_source}\n"
            "  - {name: no, module: host_filter, input: read, fault: refuse}\n"
            "  - {name: write, module: host_sink, input: no, file: out.txt}\n");

    EXPECT_TRUE(result.failed);
    EXPECT_EQ(result.modules[0].statistics.tracesOut, 0);
    EXPECT_THAT(heard, ::testing::Contains("0 calls")) << "post-processing has run";
    EXPECT_THAT(tree.names(), IsEmpty()) << "the output was not given its name";
}

TEST_F(JobRunnerTest, ThousandsOfEqualMessagesAreHeardButNotAllKept)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: host_source, traces: 10500}\n"
            "  - {name: warn, module: host_filter, input: read, fault: warning}\n"
            "  - {name: write, module: host_sink, input: warn}\n");

    EXPECT_EQ(result.countOf(warningSeverity), 10000);
    EXPECT_EQ(result.messagesLeftOut, 500);
    EXPECT_GE(heard.size(), 10500u);
    EXPECT_FALSE(result.failed);
}

TEST_F(JobRunnerTest, UnreadOutputsDoNotPileUp)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: host_source, traces: 2000, samples: 1000}\n"
            "  - {name: last, module: host_filter, input: read}\n");

    EXPECT_EQ(result.modules[1].statistics.tracesIn, 2000);
    EXPECT_EQ(result.modules[1].statistics.tracesOut, 2000);
    EXPECT_LT(result.peakJobBytes, 100000);
    EXPECT_EQ(result.modules.size(), 2u);
}

namespace {

// Two sources, and a module that takes a trace of each.
std::string joining(int first, int second, const std::string& more = "")
{
    return "modules:\n"
           "  - {name: both, module: host_sink, inputs: [pass, right]}\n"
           "  - {name: left, module: host_source, traces: " +
           std::to_string(first) + more +
           "}\n"
           "  - {name: pass, module: host_filter, input: left}\n"
           "  - {name: right, module: host_source, traces: " +
           std::to_string(second) + "}\n";
}

} // namespace

TEST_F(JobRunnerTest, ASourceThatCouldNotGiveEverythingIsToldOfOnce)
{
    const ExpectedLeaks leaks; // traces that nobody takes
    const RunResult result = run(joining(480, 49));

    EXPECT_FALSE(result.failed);
    EXPECT_EQ(result.countOf(warningSeverity), 1);
    const int64_t given = result.modules[1].statistics.tracesOut;
    EXPECT_LT(given, 60);
    EXPECT_THAT(heard,
                ::testing::Contains(
                    "module \"left\" gave " + std::to_string(given) +
                    " of the 480 traces that it announced: module \"both\", which ends with "
                    "its shortest input, ended before its input did; the rest is in no output"));
}

TEST_F(JobRunnerTest, SourcesThatGaveWhatTheyAnnouncedAreNotToldOf)
{
    const ExpectedLeaks leaks;
    for (const std::string& job : {joining(49, 49), joining(480, 49, ", announce: no")}) {
        const RunResult result = run(job);

        EXPECT_EQ(result.countOf(warningSeverity), 0) << job;
        EXPECT_FALSE(result.failed);
    }
}

TEST_F(JobRunnerTest, AModuleCanReadAnOutputTwice)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: host_source, traces: 50}\n"
            "  - {name: both, module: host_sink, inputs: [read, read], file: both.txt}\n");

    EXPECT_FALSE(result.failed);
    EXPECT_EQ(result.modules[0].statistics.tracesOut, 50);
    EXPECT_EQ(result.modules[1].statistics.tracesIn, 100);
    EXPECT_THAT(tree.names(), ElementsAre("both.txt"));
}

TEST_F(JobRunnerTest, WhatStandsBeforeSeveralReadersIsToldOfOnDemand)
{
    EXPECT_THAT(run(chain).tees, IsEmpty());

    watchTees = true;
    const RunResult result = run(chain);

    ASSERT_EQ(result.tees.size(), 1u);
    EXPECT_EQ(result.tees[0].name, "tee of read");
    EXPECT_EQ(result.tees[0].inputs[0].module, "read");
    EXPECT_EQ(result.tees[0].statistics.tracesIn, 50);
    EXPECT_EQ(result.tees[0].statistics.tracesOut, 100);
    EXPECT_GT(result.tees[0].statistics.peakBytes, 0);
    EXPECT_GT(result.tees[0].statistics.processMicros, 0);
}

TEST_F(JobRunnerTest, WhatStandsBeforeSeveralReadersIsNoModuleOfTheJob)
{
    const RunResult result = run(chain);

    ASSERT_EQ(result.modules.size(), 4u);
    EXPECT_EQ(result.modules[3].inputs[0].module, "read");
    for (const RunMessage& message : result.messages) {
        if (message.severity == detailSeverity)
            continue; // the kernel lists all modules in their order
        EXPECT_THAT(message.text, ::testing::Not(::testing::HasSubstr("tee")));
    }
}

// All 50 traces come out of "read", since "write" reads them; half of them are of no use to "join".
TEST_F(JobRunnerTest, TracesThatAJoinHasNotReadAreToldOf)
{
    const ExpectedLeaks leaks;
    const RunResult result = run("modules:\n"
                                 "  - {name: read, module: host_source, traces: 50}\n"
                                 "  - {name: half, module: host_filter, input: read, every: 2}\n"
                                 "  - {name: join, module: host_sink, inputs: [read, half]}\n"
                                 "  - {name: write, module: host_sink, input: read}\n");

    EXPECT_FALSE(result.failed);
    EXPECT_EQ(result.modules[2].statistics.tracesIn, 50);
    EXPECT_EQ(result.modules[3].statistics.tracesIn, 50);
    EXPECT_THAT(heard, ::testing::Contains("module \"join\", which ends with its shortest input, "
                                           "has not read the last 25 traces of module \"read\""));
}

TEST_F(JobRunnerTest, AModuleThatNeverEndsIsFoundBesideOutputsThatNobodyReads)
{
    const ExpectedLeaks leaks;
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: host_source, traces: 5}\n"
            "  - {name: endless, module: host_filter, input: read, fault: endless}\n"
            "  - {name: unread, module: host_filter, input: read}\n"
            "  - {name: join, module: host_sink, inputs: [read, endless], file: out.txt}\n");

    EXPECT_EQ(result.end, RunEnd::stalled);
    EXPECT_TRUE(result.failed);
    EXPECT_THAT(heard,
                ::testing::Contains(
                    "the job is deadlocked: no trace moves any more; module \"endless\" is called "
                    "after the end of its data, but does not mark the end of its output; module "
                    "\"join\" waits for \"endless\" at input 2"));
    EXPECT_THAT(tree.names(), IsEmpty()) << "the output was not given its name";
}

TEST_F(JobRunnerTest, AJobWithErrorsEndsWithTheseAlone)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: host_source, traces: 50}\n"
            "  - {name: no, module: host_filter, input: read, fault: fatal, fault_at: 5}\n"
            "  - {name: write, module: host_sink, input: no}\n");

    EXPECT_TRUE(result.failed);
    EXPECT_LT(result.modules[0].statistics.tracesOut, 50);
    EXPECT_EQ(result.countOf(warningSeverity), 0);
}

TEST_F(JobRunnerTest, TwoJobsInOneProcessDoNotMeet)
{
    run("modules:\n"
        "  - {name: read, module: host_source}\n"
        "  - {name: no, module: host_filter, input: read, fault: fatal}\n"
        "  - {name: write, module: host_sink, input: no}\n");
    const RunResult second = run(chain);

    EXPECT_FALSE(second.failed);
    EXPECT_EQ(second.sourceTraces, 50);
    EXPECT_EQ(job().getMetaDataValue(0, "vorn.failed"), "");
}

// ---- What jobs leave in the process ----

// Twice: what the modules tell each other during a job does not stay either.
// The functions of ModuleEntity are open to the application; which module runs is known by the
// active one.
TEST_F(JobRunnerTest, AModuleThatTheApplicationCallsWithoutAnActiveOneDoesNothing)
{
    int calls = 0;
    onMessage = [&](const RunMessage& message) {
        if (message.text.find("PROCESSING PHASE") == std::string::npos || ++calls > 1)
            return;
        ASSERT_EQ(job().getActiveModule(), nullptr);
        for (ModuleEntity* module : job().jobModules)
            EXPECT_EQ(module->processModule(), 0);
    };
    const RunResult result = run(chain);
    EXPECT_EQ(calls, 3);
    EXPECT_FALSE(result.failed);
    EXPECT_EQ(result.modules[0].statistics.tracesOut, 50);
}

// setenv() would keep each of their names.
TEST_F(JobRunnerTest, ScratchDirectoriesOfManyRunsTakeNoMemory)
{
    run(chain);
    std::size_t before = 0;
    std::string directory;
    for (int i = 0; i < 2000; ++i) {
        if (i == 100)
            before = mallinfo2().uordblks;
        directory = scratchDirectory / std::to_string(10000 + i);
        const JobRunner runner(resolved, directory);
        ASSERT_STREQ(std::getenv("VORN_SCRATCH"), directory.c_str());
    }
    EXPECT_LT(mallinfo2().uordblks, before + 20000);
}

TEST_F(JobRunnerTest, AJobOfTheProcessingModulesLeavesNoMemoryAndRunsAgain)
{
    const ProcessingTree processing;
    const std::string text =
        "modules:\n"
        "  - {name: shots, module: synthetic, shots: 2, channels: 12, noise: 0.1, seed: 42}\n"
        "  - {name: agc, module: agc, input: shots, window: 400 ms}\n"
        "  - {name: bandpass, module: bandpass, input: agc, corners: [15 Hz, 22 Hz, 60 Hz, 80 "
        "Hz]}\n"
        "  - {name: gain, module: gain, input: bandpass, factor: 2}\n"
        "  - {name: mute, module: mute, input: gain, offsets: [100 m, 1275 m],\n"
        "     times: [150 ms, 880 ms]}\n"
        "  - {name: math, module: header_math, input: mute, set: [cdpx = (sx + gx) / 2]}\n"
        "  - {name: window, module: window, input: math, start: 0 s, end: 1 s}\n"
        "  - {name: resample, module: resample, input: window, interval: 8 ms}\n"
        "  - {name: shift, module: shift, input: resample, time: 12.5 ms}\n"
        "  - {name: select, module: select, input: shift, where: tracf > 2}\n"
        "  - {name: qc, module: trace_qc, input: select}\n"
        "  - {name: kill, module: kill, input: qc, where: abs(offset) > 1500}\n"
        "  - {name: sort, module: sort, input: kill, keys: [cdp, offset]}\n"
        "  - {name: nmo, module: nmo, input: sort, times: [0 s, 1 s],\n"
        "     velocities: [1800 m/s, 2200 m/s]}\n"
        "  - {name: stack, module: stack, input: nmo, key: cdp}\n"
        "  - {name: auto, module: autocorrelation, input: shots, lag: 300 ms}\n"
        "  - {name: sum, module: combine, inputs: [shots, agc], operation: sum}\n"
        "  - {name: spectrum, module: spectrum, inputs: [shots, bandpass], labels: [a, b]}\n"
        "  - {name: section, module: section, input: stack}\n"
        "  - {name: section2, module: section, inputs: [auto]}\n"
        "  - {name: plot, module: header_plot, input: sum, x: tracf, y: offset}\n"
        "  - {name: histogram, module: histogram, input: shots}\n"
        "  - {name: table, module: header_table, input: shots, file: table.csv, words: [tracf],\n"
        "     overwrite: true}\n"
        "  - {name: write, module: segy_out, input: stack, file: out.sgy, overwrite: true}\n"
        "  - {name: write2, module: su_out, input: shots, file: out.su, overwrite: true}\n";
    for (int round = 0; round < 2; ++round) {
        Diagnostics diagnostics;
        const auto file = parseJobFile(text, processing.path("job.yaml"), diagnostics);
        ASSERT_TRUE(file.has_value());
        resolved = checkJob(*file, ModuleCatalog(processing.home()), diagnostics);
        diagnostics.print(stdout);
        ASSERT_FALSE(diagnostics.hasErrors());
        {
            JobRunner runner(resolved, scratchDirectory.path());
            const RunResult result = runner.run();
            for (const RunMessage& message : result.messages)
                EXPECT_LT(message.severity, 3) << message.module << ": " << message.text;
            EXPECT_FALSE(result.failed);
        }
        EXPECT_EQ(job().totalJobMemoryUsed, 0);
        EXPECT_TRUE(job().jobMemoryMap.empty());
        EXPECT_TRUE(std::filesystem::exists(processing.path("out.sgy")));
    }
}
