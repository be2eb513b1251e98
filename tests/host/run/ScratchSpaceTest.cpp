#include "run/ScratchSpace.h"

#include "KernelFixture.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using host::ScratchSpace;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

class ScratchSpaceTest : public testing::Test
{
protected:
    ScratchSpaceTest() { fs::create_directories(parent()); }

    std::string parent() const { return directory / "scratch"; }
    std::string path(const std::string& name) const { return parent() + "/" + name; }
    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(parent()))
            found.push_back(entry.path().filename().string());
        return found;
    }
    static void write(const std::string& file) { std::ofstream(file) << "content\n"; }

    // What a killed process of this user leaves, under this name.
    void leave(const std::string& name) const
    {
        fs::create_directories(path(name));
        chmod(path(name).c_str(), 0700);
        write(path(name + "/lock"));
        write(path(name + "/SF1.tmp"));
    }

    int removedByNextRun() const { return ScratchSpace(parent()).removedBefore(); }

    // Runs `body` in a process of its own, which then is killed. Returns whether it got so far.
    template <typename Body>
    static bool killedAfter(Body body)
    {
        const pid_t child = fork();
        if (child == 0) {
            body();
            kill(getpid(), HasFailure() ? SIGTERM : SIGKILL);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(ScratchSpaceTest, ItIsThereAsLongAsTheObject)
{
    {
        const ScratchSpace space(parent());
        write(space.path() + "/SF1.tmp");
        fs::create_directories(space.path() + "/of a module/deep");
        EXPECT_EQ(fs::status(space.path()).permissions(), fs::perms::owner_all);
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ScratchSpaceTest, DirectoriesOfKilledProcessesAreRemoved)
{
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(killedAfter([this] {
            auto* space = new ScratchSpace(parent());
            write(space->path() + "/SF1.tmp");
        }));
        EXPECT_EQ(names().size(), 1u) << "those of before are removed, its own is left";
    }
    leave("vorn-abcdef");

    EXPECT_EQ(removedByNextRun(), 2);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ScratchSpaceTest, DirectoriesOfLivingProcessesStay)
{
    const ScratchSpace first(parent());
    write(first.path() + "/SF1.tmp");
    {
        const ScratchSpace second(parent());
        EXPECT_EQ(second.removedBefore(), 0);
    }
    EXPECT_TRUE(killedAfter([this] { EXPECT_EQ(removedByNextRun(), 0); }));
    EXPECT_TRUE(fs::exists(first.path() + "/SF1.tmp"));
}

TEST_F(ScratchSpaceTest, AChildOfAKilledProcessKeepsItsDirectory)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_TRUE(killedAfter([this, &ends] {
        new ScratchSpace(parent());
        if (fork() == 0) {
            close(ends[1]);
            char byte = 0;
            [[maybe_unused]] const ssize_t got = read(ends[0], &byte, 1); // until the test ends it
            raise(SIGKILL);
        }
    }));
    close(ends[0]);
    EXPECT_EQ(removedByNextRun(), 0);
    close(ends[1]);
    for (int i = 0; i < 500 && !names().empty(); ++i) {
        removedByNextRun();
        usleep(10000);
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(ScratchSpaceTest, WhatIsNotSurelyAbandonedStays)
{
    struct Row
    {
        const char* what;
        void (*change)(const std::string& path);
    };
    const Row rows[] = {
        {"permissions for others", [](const std::string& path) { chmod(path.c_str(), 0755); }},
        {"a bit more", [](const std::string& path) { chmod(path.c_str(), 01700); }},
        {"no lock file", [](const std::string& path) { fs::remove(path + "/lock"); }},
        {"a lock file that is a link",
         [](const std::string& path) {
             fs::rename(path + "/lock", path + "/other");
             fs::create_symlink("other", path + "/lock");
         }},
        {"a lock file with two names",
         [](const std::string& path) { fs::create_hard_link(path + "/lock", path + "/other"); }},
        {"a lock file that is a pipe",
         [](const std::string& path) {
             fs::remove(path + "/lock");
             mkfifo((path + "/lock").c_str(), 0600);
         }},
        {"a link to a directory",
         [](const std::string& path) {
             fs::rename(path, path + ".moved");
             fs::create_directory_symlink(path + ".moved", path);
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        leave("vorn-abcdef");
        row.change(path("vorn-abcdef"));

        EXPECT_EQ(removedByNextRun(), 0);
        EXPECT_TRUE(fs::exists(path("vorn-abcdef/SF1.tmp")));
        fs::remove_all(path("vorn-abcdef"));
        fs::remove_all(path("vorn-abcdef.moved"));
    }
    leave("vorn-test-abcdef");
    leave("other-abcdef");
    EXPECT_EQ(removedByNextRun(), 0);
    EXPECT_EQ(names().size(), 2u);
}

// Processes that make, use and remove directories, or are killed, all at once.
TEST_F(ScratchSpaceTest, ManyRunsAtOnceNeverRemoveALivingOne)
{
    constexpr int processes = 8;
    constexpr int rounds = 60;
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(fork());
        if (children.back() != 0)
            continue;
        int lost = 0;
        for (int round = 0; round < rounds; ++round) {
            const ScratchSpace space(parent());
            write(space.path() + "/SF1.tmp");
            if ((round + i) % 3 == 0)
                killedAfter([this] { new ScratchSpace(parent()); });
            lost += fs::exists(space.path() + "/SF1.tmp") ? 0 : 1;
        }
        _exit(lost == 0 ? 0 : 1);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << "a directory in use has been removed";
    }
    removedByNextRun();
    EXPECT_THAT(names(), IsEmpty());
}
