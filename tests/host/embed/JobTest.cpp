// Jobs in an application: read, checked, changed and run through the library VORN::job.
#include "HostModules.h"
#include "ProcessingTree.h"
#include "embed/vorn_job.h"

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using VORN::Job;
using VORN::RunOutcome;

class JobTest : public testing::Test
{
protected:
    Job job(const std::string& modules)
    {
        return Job::fromText("schema: segy\nmodules:\n" + modules, tree.path("line.job.yaml"),
                             {tree.home(), {}});
    }

    static constexpr const char* line =
        "  - {name: make, module: synthetic, shots: 1, channels: 12, samples: 20}\n"
        "  - {name: louder, module: gain, input: make, factor: 2}\n"
        "  - {name: write, module: su_out, input: louder, file: out.su}\n";

    ProcessingTree tree;
};

TEST_F(JobTest, ARunTellsWhatItDid)
{
    const Job good = job(line);
    EXPECT_THAT(good.moduleNames(), ElementsAre("make", "louder", "write"));
    EXPECT_TRUE(good.check().empty());
    std::vector<std::string> heard;
    std::vector<VORN::JobProgress> progress;
    const VORN::JobResult result =
        good.run({[&](const VORN::JobMessage& one) { heard.push_back(one.module); },
                  [&](const VORN::JobProgress& one) { progress.push_back(one); }});

    EXPECT_EQ(result.outcome, RunOutcome::done) << result.error;
    EXPECT_EQ(result.error, "");
    ASSERT_EQ(result.modules.size(), 3u);
    EXPECT_EQ(result.modules[1].name, "louder");
    EXPECT_EQ(result.modules[1].module, "gain");
    EXPECT_EQ(result.modules[1].tracesIn, 12);
    EXPECT_EQ(result.modules[1].tracesOut, 12);
    ASSERT_EQ(result.outputs.size(), 1u);
    EXPECT_EQ(result.outputs[0].path, tree.path("out.su"));
    EXPECT_TRUE(result.outputs[0].written);
    EXPECT_EQ(result.outputs[0].bytes, 12 * (240 + 20 * 4));
    EXPECT_EQ(result.messages.size(), heard.size());
    EXPECT_THAT(heard, testing::Contains("write"));
    ASSERT_FALSE(progress.empty());
    EXPECT_EQ(progress.back().phase, "done");
    EXPECT_EQ(progress.back().traces, 12);
}

TEST_F(JobTest, TheSameJobRunsAgainAndOthersAfterAFailedOne)
{
    const Job good = job(line);
    const Job bad = job("  - {name: read, module: su_in, file: empty.su}\n"
                        "  - {name: write, module: su_out, input: read, file: bad.su}\n");
    tree.write("empty.su", "not a trace");
    ASSERT_EQ(good.run().error, "");
    const std::string first = tree.read("out.su");
    for (int i = 0; i < 3; ++i) {
        const VORN::JobResult failed = bad.run();
        EXPECT_EQ(failed.outcome, RunOutcome::failed);
        EXPECT_THAT(failed.error, HasSubstr("empty.su"));
        EXPECT_FALSE(tree.exists("bad.su"));
        EXPECT_FALSE(failed.outputs.at(0).written);

        const VORN::JobResult again = good.run();
        EXPECT_EQ(again.outcome, RunOutcome::done) << again.error;
        EXPECT_TRUE(again.outputs.at(0).written);
        EXPECT_EQ(tree.read("out.su"), first);
    }
}

// A device has no file that could have changed.
TEST_F(JobTest, WhatIsWrittenThroughADeviceIsWritten)
{
    Job through = job(line);
    through.set("write", "file", "/dev/null");
    const VORN::JobResult result = through.run();
    ASSERT_EQ(result.error, "");
    ASSERT_EQ(result.outputs.size(), 1u);
    EXPECT_TRUE(result.outputs[0].written);
}

TEST_F(JobTest, ParametersAreChangedBeforeARun)
{
    Job changed = job(line);
    changed.set("make", "channels", "3");
    changed.set("write", "file", tree.path("other.su"));
    ASSERT_EQ(changed.run().error, "");
    EXPECT_EQ(tree.read("other.su").size(), 3 * (240u + 20 * 4));
    EXPECT_FALSE(tree.exists("out.su"));
}

TEST_F(JobTest, DiagnosticsSayWhereAndWhat)
{
    Job wrong = job("  - {name: make, module: synthetic, trace: 12}\n"
                    "  - {name: louder, module: gian, input: make}\n");
    wrong.set("make", "samples", "-1");
    wrong.set("nobody", "samples", "1");
    const std::vector<VORN::JobDiagnostic> found = wrong.check();
    const auto with = [&](const std::string& text) {
        return std::find_if(found.begin(), found.end(), [&](const VORN::JobDiagnostic& one) {
            return one.text.find(text) != std::string::npos;
        });
    };
    ASSERT_NE(with("\"gian\""), found.end());
    EXPECT_EQ(with("\"gian\"")->lineNumber, 4);
    EXPECT_GT(with("\"gian\"")->column, 1);
    EXPECT_FALSE(with("\"gian\"")->isWarning);
    EXPECT_THAT(with("\"gian\"")->line, HasSubstr("line.job.yaml:4:"));
    ASSERT_NE(with("\"trace\""), found.end());
    ASSERT_NE(with("\"nobody\""), found.end());
    EXPECT_THAT(with("\"nobody\"")->source, HasSubstr("nobody.samples=1"));

    const VORN::JobResult result = wrong.run();
    EXPECT_EQ(result.outcome, RunOutcome::notStarted);
    EXPECT_NE(result.error, "");
    EXPECT_EQ(result.messages.size(), found.size());
}

TEST_F(JobTest, WhatIsNoJobIsADiagnostic)
{
    const VORN::JobModules modules{tree.home(), {}};
    const Job none = Job::fromFile(tree.path("missing.yaml"), modules);
    ASSERT_EQ(none.check().size(), 1u);
    EXPECT_THAT(none.check()[0].line, HasSubstr("missing.yaml"));
    EXPECT_TRUE(none.moduleNames().empty());
    Job broken = Job::fromText("modules: [", "broken.yaml", modules);
    EXPECT_FALSE(broken.check().empty());
    broken.set("a", "b", "c");
    EXPECT_EQ(broken.run().outcome, RunOutcome::notStarted);
    Job moved = std::move(broken);
    EXPECT_FALSE(moved.check().empty());
}

TEST_F(JobTest, ACancelledJobLeavesNoOutputAndTheNextIsWhole)
{
    Job endless = job(line);
    endless.set("make", "shots", "1000000");
    Job::cancel(); // nothing runs
    const VORN::JobResult cancelled = endless.run({[](const VORN::JobMessage& one) {
                                                       if (one.module == "make")
                                                           Job::cancel();
                                                   },
                                                   [](const VORN::JobProgress& one) {
                                                       if (one.traces > 0)
                                                           Job::cancel();
                                                   }});
    EXPECT_EQ(cancelled.outcome, RunOutcome::cancelled) << cancelled.error;
    EXPECT_FALSE(cancelled.outputs.at(0).written);
    EXPECT_THAT(tree.names(), ElementsAre()) << "nor a temporary file";
    EXPECT_EQ(job(line).run().outcome, RunOutcome::done);
    EXPECT_EQ(tree.read("out.su").size(), 12 * (240u + 20 * 4));
}

// Before the kernel has the job: here as it drops what an application has left half built.
TEST_F(JobTest, ARequestDuringTheCheckOfAJobCancelsIt)
{
    struct Left
    {
        ~Left() { Job::cancel(); }
    };
    VORN::ModuleFunctions functions;
    functions.process = [left = std::make_shared<Left>()] {};
    VORN::addModule("left", std::move(functions));

    const VORN::JobResult result = job(line).run();

    EXPECT_EQ(result.outcome, RunOutcome::cancelled) << result.error;
    EXPECT_THAT(tree.names(), ElementsAre());
    EXPECT_EQ(job(line).run().outcome, RunOutcome::done) << "the request was for one run";
}

// Nothing is left to be cancelled when the last module has ended.
TEST_F(JobTest, ARequestThatComesTooLateChangesNothing)
{
    int written = 0;
    const VORN::JobResult result =
        job(line).run({[&](const VORN::JobMessage& one) {
                           if (one.module == "write" && tree.exists("out.su")) {
                               ++written;
                               Job::cancel();
                           }
                       },
                       {}});
    EXPECT_EQ(written, 1);
    EXPECT_EQ(result.outcome, RunOutcome::done) << result.error;
    EXPECT_TRUE(result.outputs.at(0).written);
}

// The thread that runs a job may be any, one at a time.
TEST_F(JobTest, AJobRunsOnAThreadAndNoneBesideIt)
{
    const Job good = job(line);
    RunOutcome outcome = RunOutcome::notStarted;
    bool refused = false;
    std::thread worker([&] {
        outcome = good.run({[&](const VORN::JobMessage&) {
                                std::thread([&] {
                                    try {
                                        good.run();
                                    } catch (const std::logic_error&) {
                                        refused = true;
                                    }
                                }).join();
                            },
                            {}})
                      .outcome;
    });
    worker.join();
    EXPECT_EQ(outcome, RunOutcome::done);
    EXPECT_TRUE(refused);
}

} // namespace
