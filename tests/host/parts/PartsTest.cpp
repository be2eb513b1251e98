// A job in parts has the results of one process.
#include "parts/PartsFixture.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class PartsTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(tree.made.exitCode, 0) << tree.made.errors;
        const ProcessResult run = tree.run({"run", "job.yaml", "-q", "--json", "facts.json"});
        ASSERT_EQ(run.exitCode, 0) << run.errors;
        expected = tree.take();
        ASSERT_GT(expected["out.sgy"].size(), 3600U);
        ASSERT_GT(expected["out.su"].size(), 240U);
    }

    // The results of a run, and what it has left.
    void expectSame(const ProcessResult& run)
    {
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        for (const auto& [name, content] : tree.take()) {
            if (name != "facts")
                EXPECT_TRUE(content == expected[name]) << name;
            else
                EXPECT_EQ(nlohmann::json::diff(nlohmann::json::parse(expected[name]),
                                               nlohmann::json::parse(content)),
                          nlohmann::json::array());
        }
        EXPECT_THAT(tree.hidden(), IsEmpty());
    }

    PartsTree tree;
    std::map<std::string, std::string> expected;
};

} // namespace

TEST_F(PartsTest, ProcessesOfThisMachineGiveTheResultsOfOne)
{
    for (const char* jobs : {"2", "3", "7", "64"}) {
        SCOPED_TRACE(jobs);
        expectSame(tree.run({"run", "job.yaml", "-q", "--jobs", jobs, "--json", "facts.json"}));
    }
}

TEST_F(PartsTest, PartsByHandInAnyOrderGiveTheResultsOfOne)
{
    ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "4", "-o", "plan"}).exitCode, 0);
    for (const char* part : {"3", "1", "4", "2", "3"}) {
        const ProcessResult run = tree.run({"part", "plan", part});
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_FALSE(tree.exists("out.sgy"));
        EXPECT_FALSE(tree.exists("out.su"));
    }
    expectSame(tree.run({"merge", "plan", "-q", "--json", "facts.json"}));
}

TEST_F(PartsTest, TwoProcessesOfOnePartAtOnceAreHarmless)
{
    ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "2", "-o", "plan"}).exitCode, 0);
    const pid_t first = tree.start({"part", "plan", "1"});
    const ProcessResult second = tree.run({"part", "plan", "1"});
    EXPECT_EQ(second.exitCode, 0) << second.errors;
    EXPECT_EQ(tree.finish(first).exitCode, 0);
    EXPECT_EQ(tree.run({"part", "plan", "missing", "--jobs", "2"}).exitCode, 0);
    expectSame(tree.run({"merge", "plan", "-q", "--json", "facts.json"}));
}

TEST_F(PartsTest, SelectionsAreCutLikeTheyAreRead)
{
    for (const char* selection : {"read.traces=5:50:3", "read.fldr=2,4", "read.traces=7"}) {
        SCOPED_TRACE(selection);
        const ProcessResult one =
            tree.run({"run", "job.yaml", "-q", "--set", selection, "--json", "facts.json"});
        ASSERT_EQ(one.exitCode, 0) << one.errors;
        expected = tree.take();
        expectSame(tree.run(
            {"run", "job.yaml", "-q", "--set", selection, "--jobs", "3", "--json", "facts.json"}));
    }
}

TEST_F(PartsTest, PathsOfTheCommandLineBeginWhereThePlanWasMade)
{
    const ProcessResult planned = tree.run(
        {"plan", "job.yaml", "--parts", "2", "-o", "plan", "--set", "line.file=other.sgy"});
    ASSERT_EQ(planned.exitCode, 0) << planned.errors;
    EXPECT_EQ(tree.shell("cd / && \"$VORN\" part " + tree.path("plan") + " missing").exitCode, 0);
    EXPECT_EQ(tree.shell("cd / && \"$VORN\" merge -q " + tree.path("plan")).exitCode, 0);
    EXPECT_TRUE(tree.read("other.sgy") == expected["out.sgy"]);
    EXPECT_FALSE(tree.exists("out.sgy"));
}

TEST_F(PartsTest, AMessageOfAModuleComesOnce)
{
    const ProcessResult one = tree.run({"run", "job.yaml"});
    const ProcessResult parts = tree.run({"run", "job.yaml", "--jobs", "3"});
    const auto messages = [](const std::string& text) {
        std::vector<std::string> lines = linesWith(text, "information");
        for (std::string& line : lines)
            line.erase(0, line.find(' ')); // the time
        return lines;
    };
    EXPECT_EQ(messages(parts.errors), messages(one.errors));
    EXPECT_THAT(parts.output, HasSubstr("and 3 parts"));
}

TEST_F(PartsTest, AJobOfWholeModulesRunsInOneProcessAndSaysSo)
{
    tree.write("whole.yaml", "job: whole\nmodules:\n"
                             "  - {name: made, module: synthetic, samples: 100}\n"
                             "  - {name: sorted, module: sort, input: made, keys: [-tracl]}\n"
                             "  - {name: line, module: segy_out, input: sorted, file: out.sgy}\n");
    const ProcessResult run = tree.run({"run", "whole.yaml", "--jobs", "2"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.errors, HasSubstr("the job runs in one process: none of its modules can run in "
                                      "parts"));
    EXPECT_TRUE(tree.exists("out.sgy"));
}

TEST_F(PartsTest, APlanSaysWhereModulesRunAndWhy)
{
    const ProcessResult run = tree.run({"plan", "job.yaml", "--dry-run", "--parts", "4"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_THAT(run.output, HasSubstr("balanced   parts  balanced works trace by trace\n"));
    EXPECT_THAT(run.output, HasSubstr("sorted     merge  sorted needs all traces\n"));
    EXPECT_THAT(run.output, HasSubstr("60 traces in 4 parts, 15 to 15 each\n"));
    EXPECT_THAT(tree.hidden(), IsEmpty());
}

// What a module holds is what it held with one process: traces leave its account when they leave
// the memory.
TEST_F(PartsTest, TracesOfSpoolsCountOnceForTheirModule)
{
    const auto peakOf = [&](const std::vector<std::string>& options) {
        std::vector<std::string> words = {"run", "job.yaml", "-q",        "--scratch-traces",
                                          "10",  "--json",   "facts.json"};
        words.insert(words.end(), options.begin(), options.end());
        EXPECT_EQ(tree.run(words).exitCode, 0);
        const nlohmann::json facts = nlohmann::json::parse(tree.read("facts.json"));
        return facts["modules"][1]["measured"]["peak_bytes"].get<double>();
    };
    const double one = peakOf({});
    EXPECT_GT(one, 10 * 800.0);
    EXPECT_LT(peakOf({"--jobs", "3"}), 1.5 * one);
}

// Standard output is written by one process, also where it is a file.
TEST_F(PartsTest, StandardOutputIsNotWrittenInParts)
{
    for (const char* jobs : {"1", "3"}) {
        const ProcessResult run = tree.shell(std::string("\"$VORN\" run job.yaml -q --set "
                                                         "line.file=/dev/stdout --jobs ") +
                                             jobs + " > copy.sgy");
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_TRUE(tree.read("copy.sgy") == expected["out.sgy"]) << jobs;
    }
}

// What cannot be planned fails, or not, as in one process.
TEST_F(PartsTest, AJobThatCannotBePlannedEndsAsInOneProcess)
{
    for (const char* setting : {"read.fldr=77", "line.file=none/out.sgy"}) {
        SCOPED_TRACE(setting);
        const ProcessResult one =
            tree.run({"run", "job.yaml", "-q", "--set", setting, "--json", "facts.json"});
        const auto facts = tree.take();
        const ProcessResult parts = tree.run(
            {"run", "job.yaml", "-q", "--set", setting, "--jobs", "2", "--json", "facts.json"});
        EXPECT_NE(one.exitCode, 0);
        EXPECT_EQ(parts.exitCode, one.exitCode);
        EXPECT_TRUE(tree.take() == facts);
    }
}
