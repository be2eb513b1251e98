// Jobs that end before their time, at any moment: by kill -9, and by Ctrl-C. VORN_KILLS is the
// number of times (default 15; 200 in long runs), VORN_SOAK_SEED chooses other moments.
#include "ChildProcess.h"
#include "JobDirectory.h"
#include "TraceVerbs.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <thread>

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

namespace fs = std::filesystem;

int kills()
{
    return numberFromEnvironment("VORN_KILLS", 15);
}

unsigned seed()
{
    return static_cast<unsigned>(numberFromEnvironment("VORN_SOAK_SEED", 1));
}

class KilledJobTest : public ::testing::Test
{
protected:
    static constexpr const char* older = "an older result\n";

    KilledJobTest() : expected(makeSortingJob(directory, 4000)), input(directory.read("in.sgy"))
    {
        const auto start = std::chrono::steady_clock::now();
        directory.run({"run", "job.yaml", "-q"});
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        fs::remove(directory.path("out.sgy"));
    }

    // Runs the job and sends it `signal` at a random moment, now and then after its end.
    JobEnd runAndKill(int signal)
    {
        const RunningJob job = directory.start({"run", "job.yaml", "-q"});
        const double moment = seconds * 1.1 * dice.below(10000) / 10000;
        std::this_thread::sleep_for(std::chrono::duration<double>(moment));
        kill(job.process, signal); // not yet waited for: the number is still the job's
        const JobEnd end = directory.finish(job);
        what = "seed " + std::to_string(seed()) + ", after " +
               std::to_string(static_cast<int>(moment * 1e6)) + " microseconds: exit code " +
               std::to_string(end.exitCode) + "\n" + end.errors;
        return end;
    }

    // Before every run there is no result, or an older one.
    void prepareOutput(bool thereIsOne)
    {
        fs::remove(directory.path("out.sgy"));
        if (thereIsOne)
            directory.write("out.sgy", older);
    }

    // Under the final name stands what was there before, or the whole result.
    void expectNoHalfResult(bool thereWasOne) const
    {
        const bool thereIsOne = directory.exists("out.sgy");
        if (!thereIsOne) {
            EXPECT_FALSE(thereWasOne) << "the older result is gone; " << what;
            return;
        }
        const std::string found = directory.read("out.sgy");
        EXPECT_TRUE(found == expected || (thereWasOne && found == older))
            << found.size() << " bytes look like the result; " << what;
    }

    // Names of a file that was being written.
    std::vector<std::string> temporaryFiles() const
    {
        std::vector<std::string> names;
        for (const std::string& name : directory.names()) {
            if (name == "in.sgy" || name == "job.yaml" || name == "out.sgy" || name == "scratch")
                continue;
            EXPECT_THAT(name, StartsWith(".out.sgy.vorn-")) << what;
            names.push_back(name);
        }
        return names;
    }

    void expectTheNextRunWorks()
    {
        const JobEnd end = directory.run({"run", "job.yaml", "-q"});
        EXPECT_EQ(end.exitCode, 0) << "the run after " << what << end.errors;
        EXPECT_TRUE(directory.read("out.sgy") == expected) << "the run after " << what;
        EXPECT_EQ(directory.names("scratch"), std::vector<std::string>())
            << "the run after " << what;
    }

    JobDirectory directory;
    std::string expected;
    std::string input;
    double seconds = 0; // of a whole run
    Dice dice{seed()};
    std::string what; // the run that was killed last
};

// Whether round `i` is wanted: as many rounds as asked for, and more of them while too few have hit
// a running job, as on a machine whose load has just gone. `rare` counts the hits that matter most.
bool goesOn(int i, int hits, int rare)
{
    const bool enough = hits > kills() / 3 && rare > 0;
    return i < kills() || (!enough && i < 20 * kills());
}

TEST_F(KilledJobTest, AJobKilledAtAnyMomentLeavesNothingThatLooksLikeAResult)
{
    int killed = 0, paging = 0, writing = 0;
    for (int i = 0; goesOn(i, killed, paging) && !HasFailure(); ++i) {
        const bool thereWasOne = dice.oneIn(2);
        prepareOutput(thereWasOne);
        const size_t scratchBefore = directory.names("scratch").size();
        const size_t temporaryBefore = temporaryFiles().size();

        const JobEnd end = runAndKill(SIGKILL);
        killed += end.killed ? 1 : 0;
        paging += directory.names("scratch").size() > scratchBefore ? 1 : 0;
        writing += temporaryFiles().size() > temporaryBefore ? 1 : 0;

        expectNoHalfResult(thereWasOne);
        EXPECT_TRUE(directory.read("in.sgy") == input) << "the input has changed; " << what;
        if (!end.killed) {
            EXPECT_EQ(end.exitCode, 0) << what;
        }
        // What the killed job has left must not be in the way of the next one.
        expectTheNextRunWorks();
    }
    std::printf("%d jobs killed, %d with a scratch directory, %d with half an output\n", killed,
                paging, writing);
    EXPECT_GT(killed, kills() / 3) << "most had ended before";
    EXPECT_GT(paging, 0) << "none was killed while it had a scratch file";
}

TEST_F(KilledJobTest, CtrlCAtAnyMomentLeavesNeitherScratchFileNorHalfAnOutput)
{
    int interrupted = 0, writing = 0;
    for (int i = 0; goesOn(i, interrupted, writing) && !HasFailure(); ++i) {
        const bool thereWasOne = dice.oneIn(2);
        prepareOutput(thereWasOne);

        const JobEnd end = runAndKill(SIGINT);
        interrupted += end.exitCode == 128 + SIGINT ? 1 : 0;

        EXPECT_TRUE(end.exitCode == 128 + SIGINT || end.exitCode == 0) << what;
        EXPECT_EQ(directory.names("scratch"), std::vector<std::string>()) << what;
        expectNoHalfResult(thereWasOne);
        EXPECT_TRUE(directory.read("in.sgy") == input) << "the input has changed; " << what;
        EXPECT_EQ(temporaryFiles(), std::vector<std::string>()) << what;
        if (end.errors.find("vorn: incomplete, removed: " + directory.path(".out.sgy.vorn-")) !=
            std::string::npos)
            ++writing;
        expectTheNextRunWorks();
    }
    std::printf("%d jobs interrupted, %d with half an output\n", interrupted, writing);
    EXPECT_GT(interrupted, kills() / 3) << "most had ended before";
    EXPECT_GT(writing, 0) << "none was interrupted while it wrote";
}

TEST_F(KilledJobTest, TwoJobsShareAProjectAndAScratchDirectory)
{
    const int turns = std::max(3, kills() / 5);
    for (int i = 0; i < turns && !HasFailure(); ++i) {
        const RunningJob first = directory.start({"run", "job.yaml", "-q"});
        const RunningJob second =
            directory.start({"run", "job.yaml", "-q", "--set", "write.file=other.sgy"});
        const JobEnd firstEnd = directory.finish(first);
        const JobEnd secondEnd = directory.finish(second);

        EXPECT_EQ(firstEnd.exitCode, 0) << firstEnd.errors;
        EXPECT_EQ(secondEnd.exitCode, 0) << secondEnd.errors;
        EXPECT_TRUE(directory.read("out.sgy") == expected);
        EXPECT_TRUE(directory.read("other.sgy") == expected);
        EXPECT_EQ(directory.names("scratch"), std::vector<std::string>());
        fs::remove(directory.path("out.sgy"));
        fs::remove(directory.path("other.sgy"));
    }
}

// Of two that write one file, the last one to finish stands, and as a whole.
TEST_F(KilledJobTest, TwoJobsThatWriteOneFileLeaveOneWholeFile)
{
    for (int i = 0; i < 3 && !HasFailure(); ++i) {
        const RunningJob first = directory.start({"run", "job.yaml", "-q"});
        const RunningJob second = directory.start({"run", "job.yaml", "-q"});
        EXPECT_EQ(directory.finish(first).exitCode, 0);
        EXPECT_EQ(directory.finish(second).exitCode, 0);
        EXPECT_TRUE(directory.read("out.sgy") == expected);
        EXPECT_EQ(temporaryFiles(), std::vector<std::string>());
        fs::remove(directory.path("out.sgy"));
    }
}

} // namespace
