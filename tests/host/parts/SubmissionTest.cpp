// The scripts for batch systems, run by a shell in which the programs of the batch system are small
// scripts: they write down how they were called, and a task is run as the system would run it.
#include "parts/Submission.h"

#include "KernelFixture.h"
#include "TextFiles.h"
#include "base/CommandError.h"
#include "base/Programs.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

using host::Engine;
using host::Submission;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

// Keeps its words and its input, and answers as sbatch, or qsub in both dialects.
constexpr const char* submitScript = R"(#!/bin/sh
n=$(ls "$PLACE" | grep -c '^call')
echo "$(basename "$0") $*" >"$PLACE/call$n"
cat >"$PLACE/script$n"
case "$*" in
*" -t "*) echo "7$n.1-8:1" ;;
*) echo "7$n${SUFFIX:-}" ;;
esac
)";

// Ends with the next of CODES, and notes its words.
constexpr const char* vornScript = R"(#!/bin/sh
echo "$*" >>"$PLACE/runs"
line=$(wc -l <"$PLACE/runs")
code=$(echo "$CODES" | cut -d' ' -f"$line")
exit "${code:-0}"
)";

class SubmissionTest : public ::testing::Test
{
protected:
    SubmissionTest()
    {
        fs::create_directories(place() + "/bin");
        fs::create_directories(place() + "/run 1");
        for (const char* name : {"sbatch", "qsub"})
            program(name, submitScript);
        program("scontrol", "#!/bin/sh\necho \"scontrol $*\" >>\"$PLACE/scontrol\"\n");
        program("sleep", "#!/bin/sh\necho \"$*\" >>\"$PLACE/sleeps\"\n");
        program("vorn", vornScript);
        submission.program = place() + "/bin/vorn";
        submission.directory = place() + "/run 1";
        submission.parts = {1, 2, 3, 4, 5, 6, 7, 8};
        submission.arrayLimit = host::arrayLimit(Engine::slurm, "");
    }

    std::string place() const { return directory / "place"; }

    void program(const std::string& name, const std::string& text) const
    {
        const std::string path = place() + "/bin/" + name;
        std::ofstream(path) << text;
        fs::permissions(path, fs::perms::owner_all);
    }

    std::string file(const std::string& name) const
    {
        std::ifstream stream(place() + "/" + name);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    std::string setting() const
    {
        return "PLACE='" + place() + "'; PATH=\"$PLACE/bin:$PATH\"; export PLACE PATH\n";
    }

    // Runs the submission; what it prints.
    std::string submit(const std::string& suffix = "") const
    {
        const std::string script =
            setting() + "export SUFFIX='" + suffix + "'\nexec >\"$PLACE/out\"\n";
        EXPECT_EQ(host::runScript(script + submissionScript(submission)), 0);
        return file("out");
    }

    // Runs what was submitted first, as a task with these variables; the exit code.
    int task(const std::string& variables, const std::string& codes = "") const
    {
        fs::remove(place() + "/runs");
        return host::runScript(setting() + "export CODES='" + codes + "' " + variables +
                               "\nsh \"$PLACE/script0\"\n");
    }

    // The parts that were run, in order.
    std::string runs() const
    {
        std::istringstream lines(file("runs"));
        std::string parts;
        for (std::string line; std::getline(lines, line);) {
            const std::string call = "part " + submission.directory + " ";
            EXPECT_THAT(line, StartsWith(call));
            parts += (parts.empty() ? "" : " ") + line.substr(std::min(call.size(), line.size()));
        }
        return parts;
    }

    Submission submission;
    TemporaryDirectory directory;
};

} // namespace

TEST_F(SubmissionTest, SlurmGetsAnArrayOfPartsAndAMergeBehindIt)
{
    submission.parts = {3, 17, 18, 19};
    submission.options = {"--partition=long"};
    submission.mergeOptions = {"--report=line.html"};

    EXPECT_EQ(submit(), "parts: job 70\nmerge: job 71\n");

    EXPECT_THAT(file("call0"),
                AllOf(HasSubstr(" --array=3,17-19 "), HasSubstr(" --requeue "),
                      HasSubstr("/run 1/task-%a.log"), HasSubstr(" --partition=long")));
    EXPECT_THAT(file("call1"),
                AllOf(HasSubstr(" --dependency=afterok:70 --kill-on-invalid-dep=yes"),
                      HasSubstr("/run 1/merge.log"), HasSubstr(" --partition=long")));
    EXPECT_THAT(file("script0"), StartsWith("#!/bin/sh\n"));
    EXPECT_EQ(file("script1"), "#!/bin/sh\nexec " + submission.program + " merge '" +
                                   submission.directory + "' --report=line.html\n");
    EXPECT_EQ(task("SLURM_ARRAY_TASK_ID=17"), 0);
    EXPECT_EQ(runs(), "17");
}

// sbatch names the cluster behind the number where there are several.
TEST_F(SubmissionTest, NameOfAClusterDoesNotGetIntoTheDependency)
{
    EXPECT_EQ(submit(";north"), "parts: job 70\nmerge: job 71\n");
    EXPECT_THAT(file("call1"), HasSubstr("afterok:70 "));
}

TEST_F(SubmissionTest, PbsAndSgeGetTheirOwnOptions)
{
    submission.engine = Engine::pbs;
    submission.arrayLimit = host::arrayLimit(Engine::pbs, "");
    EXPECT_EQ(submit("[].server"), "parts: job 70[].server\nmerge: job 71[].server\n");
    EXPECT_THAT(file("call0"), AllOf(StartsWith("qsub -V "), HasSubstr(" -J 1-8 "),
                                     HasSubstr("/run 1/task-^array_index^.log")));
    EXPECT_THAT(file("call1"), HasSubstr(" -W depend=afterok:70[].server"));
    EXPECT_EQ(task("PBS_ARRAY_INDEX=5"), 0);
    EXPECT_EQ(runs(), "5");

    for (const char* name : {"call0", "call1"})
        fs::remove(place() + "/" + name);
    submission.engine = Engine::sge;
    EXPECT_EQ(submit(), "parts: job 70\nmerge: job 71\n");
    EXPECT_THAT(file("call0"), AllOf(StartsWith("qsub -terse -V "), HasSubstr(" -t 1-8 "),
                                     HasSubstr("/run 1/task-$TASK_ID.log")));
    EXPECT_THAT(file("call1"), HasSubstr(" -hold_jid 70"));
    EXPECT_EQ(task("SGE_TASK_ID=8"), 0);
    EXPECT_EQ(runs(), "8");
}

// Arrays have at least two tasks there.
TEST_F(SubmissionTest, PbsGetsASinglePartWithoutAnArray)
{
    submission.engine = Engine::pbs;
    submission.parts = {6};
    submit();
    EXPECT_THAT(file("call0"), Not(HasSubstr(" -J ")));
    EXPECT_EQ(task("NONE="), 0);
    EXPECT_EQ(runs(), "6");
}

TEST_F(SubmissionTest, MorePartsThanTasksAreSharedAmongThem)
{
    submission.parts = {3, 17, 18, 19, 40, 41, 42};
    submission.tasks = 3;
    for (const Engine engine : {Engine::slurm, Engine::pbs, Engine::sge}) {
        for (const char* name : {"call0", "call1"})
            fs::remove(place() + "/" + name);
        submission.engine = engine;
        submit();
        EXPECT_THAT(file("call0"), HasSubstr("1-3 "));
        std::string all;
        for (const std::string number : {"1", "2", "3"}) {
            EXPECT_EQ(task("SLURM_ARRAY_TASK_ID=" + number + " PBS_ARRAY_INDEX=" + number +
                           " SGE_TASK_ID=" + number),
                      0);
            all += runs() + "|";
        }
        EXPECT_EQ(all, "3 17|18 19|40 41 42|");
    }
}

// The numbers of tasks must be below MaxArraySize, and so few of them there may be.
TEST_F(SubmissionTest, ArrayIsNotLargerThanTheSystemAllows)
{
    submission.parts.resize(2500);
    std::iota(submission.parts.begin(), submission.parts.end(), 1);
    submit();
    EXPECT_THAT(file("call0"), HasSubstr(" --array=1-1000 "));
    int64_t count = 0;
    int next = 1;
    for (int number = 1; number <= 1000; number += 333) {
        task("SLURM_ARRAY_TASK_ID=" + std::to_string(number));
        std::istringstream parts(runs());
        for (int part = 0; parts >> part; next = part)
            ++count;
    }
    EXPECT_EQ(next, 2500) << "the last task runs the last part";
    EXPECT_EQ(count, 2 + 3 + 2 + 3);

    for (const char* name : {"call0", "call1"})
        fs::remove(place() + "/" + name);
    submission.parts = {999, 1000, 1001};
    submit();
    EXPECT_THAT(file("call0"), HasSubstr(" --array=1-3 ")) << "1001 is not the number of a task";
    task("SLURM_ARRAY_TASK_ID=3");
    EXPECT_EQ(runs(), "1001");

    EXPECT_EQ(
        host::arrayLimit(Engine::slurm, "Licenses = (null)\nMaxArraySize            = 4001\n"),
        4001);
    EXPECT_EQ(host::arrayLimit(Engine::slurm, "MaxArraySize = none\n"), 1001);
}

TEST_F(SubmissionTest, OnlyTheMergeIsSubmittedWhenNoPartIsMissing)
{
    submission.parts.clear();
    EXPECT_EQ(submit(), "merge: job 70\n");
    EXPECT_THAT(file("call0"), Not(HasSubstr("dependency")));
    EXPECT_THAT(file("script0"), HasSubstr(" merge "));
}

TEST_F(SubmissionTest, TaskThatIsToTryAgainIsRequeuedThreeTimes)
{
    submit();
    const std::string task3 = "SLURM_ARRAY_TASK_ID=3 SLURM_ARRAY_JOB_ID=70";
    EXPECT_EQ(task(task3, "75"), 75);
    EXPECT_EQ(file("scontrol"), "scontrol requeue 70_3\n");
    EXPECT_EQ(task(task3 + " SLURM_RESTART_COUNT=2", "75"), 75);
    EXPECT_EQ(file("scontrol"), "scontrol requeue 70_3\nscontrol requeue 70_3\n");
    EXPECT_EQ(task(task3 + " SLURM_RESTART_COUNT=3", "75"), 75);
    EXPECT_EQ(file("scontrol"), "scontrol requeue 70_3\nscontrol requeue 70_3\n");
}

TEST_F(SubmissionTest, RequeuedTaskLeavesOutThePartsThatAreDone)
{
    submission.tasks = 2;
    submit();
    EXPECT_EQ(task("SLURM_ARRAY_TASK_ID=1 SLURM_ARRAY_JOB_ID=70", "0 75 0 0"), 75);
    EXPECT_EQ(runs(), "1 2 3 4") << "one part to try again keeps no other from being run";
    for (const int part : {1, 3, 4})
        std::ofstream(submission.directory + "/part-" + std::to_string(part) + ".json") << "{}";

    EXPECT_EQ(task("SLURM_ARRAY_TASK_ID=1 SLURM_ARRAY_JOB_ID=70 SLURM_RESTART_COUNT=1"), 0);

    EXPECT_EQ(runs(), "2");
}

TEST_F(SubmissionTest, OtherSystemsTryAgainInPlace)
{
    submission.tasks = 2;
    for (const Engine engine : {Engine::pbs, Engine::sge}) {
        for (const char* name : {"call0", "call1", "sleeps"})
            fs::remove(place() + "/" + name);
        submission.engine = engine;
        submit();
        const std::string first = "PBS_ARRAY_INDEX=1 SGE_TASK_ID=1";
        EXPECT_EQ(task(first, "0 75 0 75 0 75 0"), 0);
        EXPECT_EQ(runs(), "1 2 3 4 2 4 4");
        EXPECT_EQ(file("sleeps"), "60\n60\n");
        EXPECT_EQ(task(first, "75 0 0 0 75 75 75 75"), 75);
        EXPECT_EQ(runs(), "1 2 3 4 1 1 1");
    }
}

TEST_F(SubmissionTest, ErrorOfTheJobEndsATaskAndACrashDoesNot)
{
    submission.tasks = 2;
    for (const Engine engine : {Engine::slurm, Engine::pbs, Engine::sge}) {
        for (const char* name : {"call0", "call1"})
            fs::remove(place() + "/" + name);
        submission.engine = engine;
        submit();
        const std::string first = "SLURM_ARRAY_TASK_ID=1 PBS_ARRAY_INDEX=1 SGE_TASK_ID=1";
        EXPECT_EQ(task(first, "0 1 0 0"), 1);
        EXPECT_EQ(runs(), "1 2");
        EXPECT_EQ(task(first, "0 137 0 0"), 137);
        EXPECT_EQ(runs(), "1 2 3 4");
    }
}

TEST_F(SubmissionTest, ControlCharactersAreRefused)
{
    submission.options = {"--comment=a\nrm"};
    EXPECT_THROW(submissionScript(submission), host::CommandError);
    submission.options.clear();
    submission.directory += "\t1";
    EXPECT_THROW(submissionScript(submission), host::CommandError);
}
