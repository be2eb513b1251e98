// Parts that end before their time.
#include "parts/PartsFixture.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

class PartsKillTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(tree.made.exitCode, 0) << tree.made.errors;
        ASSERT_EQ(tree.run({"run", "job.yaml", "-q", "--json", "facts.json"}).exitCode, 0);
        expected = tree.take();
    }

    PartsTree tree;
    std::map<std::string, std::string> expected;
};

} // namespace

// Whenever a part is killed, running it again makes it whole.
TEST_F(PartsKillTest, APartThatIsKilledIsRunAgain)
{
    ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "2", "-o", "plan"}).exitCode, 0);
    int killed = 0;
    for (int wait = 0; wait < 60; wait += 3) {
        fs::remove(tree.path("plan/part-1.json"));
        const pid_t part = tree.start({"part", "plan", "1"});
        usleep(static_cast<useconds_t>(wait) * 1000);
        kill(part, SIGKILL);
        killed += tree.finish(part).exitCode == 128 + SIGKILL ? 1 : 0;
        EXPECT_FALSE(tree.exists("out.sgy"));
    }
    EXPECT_GT(killed, 0);
    EXPECT_EQ(tree.run({"part", "plan", "missing", "--jobs", "2"}).exitCode, 0);
    EXPECT_EQ(tree.run({"merge", "plan", "-q", "--json", "facts.json"}).exitCode, 0);
    EXPECT_TRUE(tree.take() == expected);
}

// What a part has left stays whole while it runs once more.
TEST_F(PartsKillTest, APartThatRunsOnceMoreAndIsKilledTakesNothingAway)
{
    ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "2", "-o", "plan"}).exitCode, 0);
    ASSERT_EQ(tree.run({"part", "plan", "missing", "--jobs", "2"}).exitCode, 0);
    int killed = 0;
    for (int wait = 0; wait < 60; wait += 3) {
        const pid_t part = tree.start({"part", "plan", "1"});
        usleep(static_cast<useconds_t>(wait) * 1000);
        kill(part, SIGKILL);
        killed += tree.finish(part).exitCode == 128 + SIGKILL ? 1 : 0;
    }
    EXPECT_GT(killed, 0);
    EXPECT_EQ(tree.run({"merge", "plan", "-q", "--json", "facts.json"}).exitCode, 0);
    EXPECT_TRUE(tree.take() == expected);
}

// The command that waits for parts ends them, and leaves nothing.
TEST_F(PartsKillTest, AnInterruptEndsThePartsAndRemovesTheOutputs)
{
    int ended = 0;
    for (int wait = 0; wait < 80; wait += 10) {
        const pid_t run = tree.start({"run", "job.yaml", "-q", "--jobs", "4"});
        // From here on there is something to be removed, and the parts begin.
        for (int i = 0; i < 5000 && tree.hidden().empty(); ++i)
            usleep(1000);
        usleep(static_cast<useconds_t>(10 + wait) * 1000);
        kill(run, SIGINT);
        const ProcessResult result = tree.finish(run);
        if (result.exitCode == 130) {
            ++ended;
            EXPECT_THAT(result.errors, HasSubstr("interrupted"));
            // It has its name only when it is whole.
            if (tree.exists("out.sgy")) {
                EXPECT_TRUE(tree.read("out.sgy") == expected["out.sgy"]) << wait << result.errors;
            }
        }
        EXPECT_THAT(tree.hidden(), IsEmpty()) << wait;
        tree.take();
    }
    EXPECT_GT(ended, 0);
}

// What one process would say is said, and no output appears.
TEST_F(PartsKillTest, AJobThatFailsInTheMiddleFailsAsInOneProcess)
{
    // The input has been cut behind its headers when part 2 reads it.
    const std::string whole = tree.read("line.sgy");
    tree.write("line.sgy", whole.substr(0, whole.size() - 5000));
    const ProcessResult one = tree.run({"run", "job.yaml", "-q", "--json", "facts.json"});
    const auto facts = tree.take();
    const ProcessResult parts =
        tree.run({"run", "job.yaml", "-q", "--jobs", "3", "--json", "facts.json"});
    EXPECT_EQ(parts.exitCode, one.exitCode);
    EXPECT_TRUE(tree.take() == facts);
    EXPECT_THAT(tree.hidden(), IsEmpty());
}

// On a disk that is really full the part may be run again, when there is room.
TEST_F(PartsKillTest, APartOnAFullDiskSaysThatItMayBeRunAgain)
{
    if (tree.shell("mkdir disk && unshare -m mount -t tmpfs -o size=16k none disk").exitCode != 0)
        GTEST_SKIP() << "no file system can be mounted";
    const ProcessResult run = tree.shell(
        "unshare -m sh -c '\n"
        "mount -t tmpfs -o size=16k none disk || exit 99\n"
        "\"$VORN\" plan job.yaml --parts 2 -o plan --set line.file=disk/out.sgy\n"
        "\"$VORN\" part plan 2; echo code $?\n"
        "mount -o remount,size=1m none disk\n"
        "\"$VORN\" part plan missing && \"$VORN\" merge plan -q && cp disk/out.sgy out.sgy'");
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("code 75\n"));
    EXPECT_THAT(run.errors, HasSubstr("No space left on device"));
    EXPECT_TRUE(tree.read("out.sgy") == expected["out.sgy"]);
}
