// Outputs of a process that ends without destroying its objects. What stops all outputs for good
// runs in processes of their own.
#include "file/UnfinishedOutputs.h"

#include "TraceFileFixture.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class UnfinishedOutputsTest : public TraceFileFixture
{
protected:
    // The exit code of a child process that runs `action`; a signal that ends it counts as 128
    // more.
    template <typename Action>
    static int inChild(Action action)
    {
        const pid_t child = fork();
        if (child == 0) {
            action();
            _exit(HasFailure() ? 1 : 0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
};

std::vector<std::string> removedOutputs()
{
    std::vector<std::string> removed;
    removeUnfinishedOutputs(
        [](void* paths, const char* name) {
            static_cast<std::vector<std::string>*>(paths)->emplace_back(name);
        },
        &removed);
    return removed;
}

bool isCompleted(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && isCompletedOutput(status);
}

} // namespace

TEST_F(UnfinishedOutputsTest, OutputsThatAreCompleteAreKnown)
{
    writeBytes(path, {'o', 'l', 'd'});
    OutputFile whole(directory / "whole.sgy", true);
    EXPECT_FALSE(isCompleted(whole.temporaryPath()));
    whole.commit();
    OutputFile begun(path, true);

    EXPECT_TRUE(isCompleted(directory / "whole.sgy"));
    EXPECT_FALSE(isCompleted(path)) << "the old file is not an output of this process";
    begun.discard();
    EXPECT_FALSE(isCompleted(path));
    EXPECT_FALSE(isCompletedOutput({}));
}

TEST_F(UnfinishedOutputsTest, WhatIsBeingWrittenCanBeRemovedWithoutItsObjects)
{
    writeBytes(path, {'o', 'l', 'd'});
    OutputFile whole(directory / "whole.sgy", true);
    whole.commit();
    OutputFile first(path, true);
    OutputFile second(directory / "second.sgy", true);
    put(second, std::string(3000000, 'x'));
    const std::vector<std::string> expected = {first.temporaryPath(), second.temporaryPath()};

    EXPECT_THAT(removedOutputs(), ::testing::UnorderedElementsAreArray(expected));
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy", "whole.sgy"));
    EXPECT_THAT(removedOutputs(), IsEmpty());

    EXPECT_THAT(failure([&] { second.commit(); }), HasSubstr("cannot be given its name"));
    EXPECT_EQ(content(path), "old");
}

// Names alone prove nothing: files of this kind may be somebody else's, or be read to save what
// they hold.
// On a file system that cannot rename without replacing, a commit makes a second name first.
TEST_F(UnfinishedOutputsTest, AFileThatHasItsFinalNameIsNotCalledIncomplete)
{
    OutputFile file(path, false);
    put(file, "whole");
    ASSERT_EQ(link(file.temporaryPath().c_str(), path.c_str()), 0);

    EXPECT_THAT(removedOutputs(), IsEmpty());
    EXPECT_THAT(directory.names(), ElementsAre("out.sgy"));
}

TEST_F(UnfinishedOutputsTest, TheLimitIsNamedAndEndedOutputsMakeRoom)
{
    rlimit files;
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &files);
    if (files.rlim_cur < 2048)
        GTEST_SKIP() << "this process may not open so many files";
    std::vector<std::unique_ptr<OutputFile>> open;
    const auto begin = [&](int i) {
        open.push_back(std::make_unique<OutputFile>(directory / std::to_string(i), true));
    };
    for (int i = 0; i < mostUnfinishedOutputs; ++i)
        begin(i);

    EXPECT_EQ(failure([&] { begin(mostUnfinishedOutputs); }),
              directory / "1024" + ": cannot be written: this process is writing 1024 files "
                                   "already, which is the limit; complete some of them first");
    open[7]->commit();
    EXPECT_EQ(failure([&] { begin(mostUnfinishedOutputs); }), "it did not fail");
    open[9]->discard();
    EXPECT_EQ(failure([&] { begin(mostUnfinishedOutputs + 1); }), "it did not fail");
}

TEST_F(UnfinishedOutputsTest, WhatThisProcessIsNotWritingStays)
{
    const std::string read = directory / ".read.sgy.vorn-aaaaaa";
    const std::string closed = directory / ".closed.sgy.vorn-bbbbbb";
    const std::string inherited = directory / ".inherited.sgy.vorn-cccccc";
    const std::string other = directory / "other.vorn-dddddd";
    for (const std::string& name : {read, closed, inherited, other})
        writeBytes(name, {'x'});
    const int descriptors[] = {open(read.c_str(), O_RDONLY | O_CLOEXEC),
                               open(inherited.c_str(), O_RDWR),
                               open(other.c_str(), O_RDWR | O_CLOEXEC)};
    OutputFile replaced(path, true);
    std::filesystem::rename(replaced.temporaryPath(), directory / "moved");
    ASSERT_EQ(symlink("moved", replaced.temporaryPath().c_str()), 0);
    const auto before = directory.names();

    EXPECT_THAT(removedOutputs(), IsEmpty());

    EXPECT_EQ(directory.names(), before);
    for (const int descriptor : descriptors)
        close(descriptor);
}

// ---- The end of a process ----

// What a process leaves undestroyed when it ends.
TEST_F(UnfinishedOutputsTest, AProcessThatEndsRemovesWhatIsNotComplete)
{
    const pid_t child = fork();
    if (child == 0) {
        auto* first = new OutputFile(directory / "first.sgy", true);
        auto* second = new OutputFile(directory / "second.sgy", true);
        auto* third = new OutputFile(directory / "third.sgy", true);
        put(*first, "half");
        put(*second, "whole");
        second->commit();
        delete second;
        put(*third, "half");
        std::exit(0);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(directory.names(), ElementsAre("second.sgy"));
    EXPECT_EQ(content(directory / "second.sgy"), "whole");
}

TEST_F(UnfinishedOutputsTest, AChildThatEndsLeavesItsParentsFileAlone)
{
    OutputFile file(path, true);
    put(file, "whole");
    const pid_t child = fork();
    if (child == 0)
        std::exit(0);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    file.commit();
    EXPECT_EQ(content(path), "whole");
}

// As the state of a module whose library is unloaded without its post-processing.
TEST_F(UnfinishedOutputsTest, AnOutputIsRemovedThoughItsObjectIsGone)
{
    const std::string second = directory / "second.sgy";
    alignas(OutputFile) unsigned char room[sizeof(OutputFile)];
    static unsigned char kept[sizeof(OutputFile)]; // refers to the object's memory, for leak checks
    const auto child = [&] {
        new (room) OutputFile(path, true);
        std::memcpy(kept, room, sizeof room);
        std::memset(room, 0xA5, sizeof room);
        OutputFile other(second, true);
        other.commit();
        removeUnfinishedOutputs(nullptr, nullptr); // not at exit: the object's memory is lost
    };
    EXPECT_EQ(inChild(child), 0);
    EXPECT_THAT(directory.names(), ElementsAre("second.sgy"));
}

TEST_F(UnfinishedOutputsTest, AChangeOfDirectoryDoesNotHideAnOutput)
{
    const auto child = [&] {
        EXPECT_EQ(chdir(directory.path().c_str()), 0);
        OutputFile removed("out.sgy", true);
        OutputFile whole("whole.sgy", true);
        EXPECT_EQ(chdir("/"), 0);
        whole.commit();
        EXPECT_THAT(removedOutputs(), ElementsAre(HasSubstr(directory / ".out.sgy.vorn-")));
    };
    EXPECT_EQ(inChild(child), 0);
    EXPECT_THAT(directory.names(), ElementsAre("whole.sgy"));
}

// ---- Children ----

TEST_F(UnfinishedOutputsTest, AChildNeverRemovesWhatItsParentWrites)
{
    auto file = std::make_unique<OutputFile>(path, true);
    put(*file, "whole");
    const auto child = [&] {
        EXPECT_THAT(removedOutputs(), IsEmpty());
        stopOutputs();
        EXPECT_THAT(removedOutputs(), IsEmpty());
        file.reset();
        std::exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EQ(inChild(child), 0);
    EXPECT_TRUE(std::filesystem::exists(file->temporaryPath()));

    file->commit();

    EXPECT_EQ(content(path), "whole") << "the parent's outputs are not stopped";
}

TEST_F(UnfinishedOutputsTest, AChildCannotWriteWhatItsParentHasBegun)
{
    OutputFile file(path, true);
    put(file, "whole");
    const auto child = [&] {
        EXPECT_THAT(failure([&] { file.commit(); }),
                    HasSubstr("out.sgy: belongs to the process that started this one"));
    };
    EXPECT_EQ(inChild(child), 0);
    file.commit();
    EXPECT_EQ(content(path), "whole");
}

TEST_F(UnfinishedOutputsTest, AChildRemovesItsOwnOutputs)
{
    OutputFile parents(path, true);
    const auto child = [&] {
        OutputFile own(directory / "own.sgy", true);
        EXPECT_THAT(removedOutputs(), ElementsAre(HasSubstr(".own.sgy.vorn-")));
    };
    EXPECT_EQ(inChild(child), 0);
    EXPECT_THAT(directory.names(), ElementsAre(HasSubstr(".out.sgy.vorn-")));
}

// ---- Stopping ----

TEST_F(UnfinishedOutputsTest, OnceOutputsAreStoppedNoneBeginsAndNoneIsCommitted)
{
    const auto child = [&] {
        OutputFile begun(path, true);
        put(begun, "whole");
        EXPECT_FALSE(outputsAreStopped());

        stopOutputs();

        EXPECT_TRUE(outputsAreStopped());
        EXPECT_EQ(failure([&] { OutputFile late(directory / "late.sgy", true); }),
                  directory / "late.sgy" + ": cannot be written: the process is ending");
        EXPECT_EQ(failure([&] { begun.commit(); }),
                  path + ": cannot be given its name: the process is ending");
    };
    EXPECT_EQ(inChild(child), 0);
    EXPECT_THAT(directory.names(), IsEmpty());
}

// Threads begin, commit and abandon outputs while another one stops and removes them, and the
// process ends at once, as at an interruption. What has a final name is whole, and nothing else is
// there.
TEST_F(UnfinishedOutputsTest, NoMomentOfAnOutputEscapesTheEnd)
{
#ifdef __SANITIZE_THREAD__
    constexpr int rounds = 20; // it takes half a second for each process
#else
    constexpr int rounds = 150;
#endif
    const std::string whole(3000, 'w');
    int committed = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        const auto child = [&] {
            std::atomic<int> running = 0;
            std::vector<std::thread> writers;
            for (int i = 0; i < 3; ++i) {
                writers.emplace_back([&, i] {
                    ++running;
                    for (int k = 0;; ++k) {
                        const std::string name =
                            directory / (std::to_string(i) + "-" + std::to_string(k % 20));
                        failure([&] {
                            OutputFile file(name, k % 2 == 0);
                            put(file, whole);
                            if (k % 5 != 0)
                                file.commit();
                        });
                    }
                });
            }
            while (running < 3)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::microseconds(100 * (round % 20)));
            stopOutputs();
            removeUnfinishedOutputs(nullptr, nullptr);
            _exit(0);
        };
        ASSERT_EQ(inChild(child), 0);
        for (const std::string& name : directory.names()) {
            EXPECT_THAT(name, Not(HasSubstr("vorn"))) << "round " << round;
            EXPECT_EQ(content(directory / name).size(), whole.size()) << "round " << round;
            std::filesystem::remove(directory / name);
            ++committed;
        }
    }
    EXPECT_GT(committed, rounds) << "the writers hardly ran";
}

// A crash handler walks the registry wherever its thread has been.
TEST_F(UnfinishedOutputsTest, ASignalHandlerRemovesWhatItsThreadIsWriting)
{
    for (int round = 0; round < 60 && !HasFailure(); ++round) {
        const auto child = [&] {
            std::signal(SIGALRM, [](int) {
                stopOutputs();
                removeUnfinishedOutputs(nullptr, nullptr);
                _exit(0);
            });
            ualarm(static_cast<useconds_t>(2000 + 37 * round), 0);
            for (;;) {
                OutputFile file(path, true);
                put(file, "whole");
                if (round % 2 == 0)
                    file.commit();
            }
        };
        ASSERT_EQ(inChild(child), 0);
        for (const std::string& name : directory.names())
            EXPECT_EQ(name, "out.sgy") << "round " << round;
        std::filesystem::remove(path);
    }
}
