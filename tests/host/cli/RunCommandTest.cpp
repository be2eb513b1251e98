// vorn run as a process: files, signals, and what is left afterwards.
#include "TestTree.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <thread>

using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

class RunCommandTest : public ::testing::Test
{
protected:
    RunCommandTest()
    {
        std::filesystem::create_directory(tree.path("scratch"));
        tree.write("job.yaml",
                   "scratch: {directory: scratch, traces: 10}\n"
                   "modules:\n"
                   "  - {name: read, module: host_source, traces: 100}\n"
                   "  - {name: pass, module: host_filter, input: read}\n"
                   "  - {name: write, module: host_sink, input: pass, file: out.txt}\n");
    }

    std::vector<std::string> scratchFiles() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(tree.path("scratch")))
            names.push_back(entry.path().filename().string());
        return names;
    }

    // Starts a job that would take minutes, sends it a signal once it has written something.
    ProcessResult interrupt(int signal)
    {
        const pid_t process =
            tree.start({"run", "job.yaml", "--set", "read.pause=2 s", "--progress", "never"});
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!tree.exists("out.txt.part") && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_THAT(scratchFiles(), Not(IsEmpty()));
        const auto sent = std::chrono::steady_clock::now();
        kill(process, signal);
        ProcessResult result = tree.finish(process);
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - sent).count();
        return result;
    }

    TestTree tree;
    double seconds = 0;
};

} // namespace

TEST_F(RunCommandTest, CtrlCRemovesScratchFilesAndNamesWhatIsIncomplete)
{
    const ProcessResult result = interrupt(SIGINT);

    EXPECT_EQ(result.exitCode, 130);
    EXPECT_THAT(scratchFiles(), IsEmpty());
    EXPECT_THAT(result.errors,
                ContainsRegex("vorn: interrupted(; module \"[a-z]+\" was running in process_, "
                              "trace [12] of its (in|out)put)?; these outputs are incomplete:\n"
                              "vorn: incomplete: " +
                              tree.path("out.txt.part") + "\n"));
    EXPECT_FALSE(tree.exists("out.txt"));
    EXPECT_LT(seconds, 1.5) << "it must not wait for the module, which sleeps";
}

TEST_F(RunCommandTest, OtherSignalsThatEndProgramsDoTheSame)
{
    EXPECT_EQ(interrupt(SIGTERM).exitCode, 128 + SIGTERM);
    EXPECT_THAT(scratchFiles(), IsEmpty());
}

TEST_F(RunCommandTest, ACrashNamesTheModuleAndLeavesNoScratchFile)
{
    const ProcessResult result =
        tree.run({"run", "job.yaml", "--set", "pass.fault=crash", "--set", "pass.fault_at=5"});

    EXPECT_EQ(result.exitCode, 128 + SIGABRT);
    EXPECT_THAT(result.errors,
                HasSubstr("vorn: module \"pass\" crashed in process_, trace 5 of its input "
                          "(SIGABRT)\n"));
    EXPECT_THAT(scratchFiles(), IsEmpty());
}

TEST_F(RunCommandTest, NothingIsLeftInTheScratchDirectory)
{
    EXPECT_EQ(tree.run({"run", "job.yaml"}).exitCode, 0);
    EXPECT_THAT(scratchFiles(), IsEmpty());
    EXPECT_THAT(tree.names(), ElementsAre("job.yaml", "out.txt", "scratch"));
}

TEST_F(RunCommandTest, TheOutputIsTheSameWithFewTracesInMemory)
{
    const ProcessResult few = tree.run({"run", "-v", "job.yaml", "--scratch-traces", "10", "--set",
                                        "read.burst=100", "--set", "write.file=few.txt"});
    const ProcessResult many =
        tree.run({"run", "-v", "job.yaml", "--scratch-traces", "1000", "--set", "read.burst=100",
                  "--set", "write.file=many.txt"});

    EXPECT_THAT(few.errors, HasSubstr("successfully created")) << "traces were to go to the file";
    EXPECT_THAT(many.errors, Not(HasSubstr("successfully created")));
    EXPECT_THAT(tree.read("few.txt"), HasSubstr("100\n"));
    EXPECT_EQ(tree.read("few.txt"), tree.read("many.txt"));
    EXPECT_THAT(scratchFiles(), IsEmpty());
}

TEST_F(RunCommandTest, AFailedJobLeavesTheOutputOfBefore)
{
    tree.write("out.txt", "precious\n");

    const ProcessResult result = tree.run({"run", "job.yaml", "--set", "pass.fault=fatal"});

    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(tree.read("out.txt"), "precious\n");
    EXPECT_THAT(result.errors,
                HasSubstr("vorn: module \"write\" did not write " + tree.path("out.txt") +
                          "; the existing file of that name is older\n"));
}

TEST_F(RunCommandTest, TheLogHasEveryMessageAndTheTable)
{
    const ProcessResult result = tree.run({"run", "job.yaml", "-q", "--log", "run.log"});

    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, "");
    const std::string log = tree.read("run.log");
    EXPECT_THAT(log, HasSubstr("PRE-PROCESSING PHASE"));
    EXPECT_THAT(log, HasSubstr("information write  100 calls\n"));
    EXPECT_THAT(log, HasSubstr("traces in  traces out"));
}

TEST_F(RunCommandTest, PicturesAreWrittenInTheFormatWanted)
{
    tree.write("draw.yaml", "modules:\n"
                            "  - {name: read, module: host_source}\n"
                            "  - {name: draw, module: host_section, input: read}\n");

    const ProcessResult png = tree.run({"run", "draw.yaml", "--pictures", "out"});
    const ProcessResult svg =
        tree.run({"run", "draw.yaml", "--pictures", "out", "--format", "svg"});

    EXPECT_EQ(png.exitCode, 0);
    EXPECT_THAT(png.output, HasSubstr("out/first.png\n"));
    EXPECT_EQ(tree.read("out/first.png").substr(1, 3), "PNG");
    EXPECT_THAT(svg.output, HasSubstr("out/first.svg\n"));
    EXPECT_THAT(tree.read("out/first.svg"), HasSubstr("<svg"));
}

TEST_F(RunCommandTest, ALogThatIsNoTerminalGetsLinesOfProgress)
{
    const ProcessResult result = tree.run({"run", "job.yaml", "--progress", "always", "--set",
                                           "read.pause=300 ms", "--set", "read.traces=8"});

    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errors, HasSubstr("processing: "));
    EXPECT_THAT(result.errors, HasSubstr(" traces/s"));
    EXPECT_THAT(result.errors, Not(HasSubstr("\x1b")));
    EXPECT_THAT(result.errors, Not(HasSubstr("\r")));
}

TEST_F(RunCommandTest, AnInputIsNeverAnOutput)
{
    tree.write("in.txt", "input\n");

    const ProcessResult result =
        tree.run({"run", "job.yaml", "--set", "write.like=in.txt", "--set", "write.file=./in.txt"});

    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.errors, HasSubstr("reads; write to another file"));
    EXPECT_EQ(tree.read("in.txt"), "input\n");
}

TEST_F(RunCommandTest, TheGraphIsDrawnWithoutAShell)
{
    tree.write("$(touch x).yaml", tree.read("job.yaml"));

    const ProcessResult result = tree.run({"graph", "$(touch x).yaml", "-o", "a b.svg"});

    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.output, "a b.svg\n");
    EXPECT_THAT(tree.read("a b.svg"), HasSubstr("</svg>"));
    EXPECT_FALSE(tree.exists("x"));
}
