// Eight processes that want the same locks at the same time. VORN_LOCK_ROUNDS is the number of
// rounds (default 4000; 10000 in long runs).
#include "fileUtils.h"

#include "ChildProcess.h"
#include "KernelFixture.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sched.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using VORN::FileLocksProvider;

constexpr int processes = 8;
constexpr unsigned secondsAtMost = 600;

int rounds()
{
    return numberFromEnvironment("VORN_LOCK_ROUNDS", 4000);
}

// What the processes tell each other past the locks that are tested.
struct Witness
{
    std::atomic<int> inside{0};  // processes that hold the exclusive lock
    std::atomic<int> readers{0}; // processes that hold a shared one
    std::atomic<int> holds{0};   // how often the lock was held
    std::atomic<int> refused{0}; // and how often somebody did not get it
    std::atomic<int> faults{0};  // what must not happen
    std::atomic<int> arrived{0};
    std::atomic<int> winners[20000] = {};

    void fault(const char* what, int process)
    {
        if (faults.fetch_add(1) < 10)
            std::fprintf(stderr, "process %d: %s\n", process, what);
    }

    // Between these two, nobody else may be inside.
    void enter(int process)
    {
        holds.fetch_add(1); // first: who sees `inside` at 1 twice then knows whether it is one hold
        if (inside.fetch_add(1) != 0)
            fault("another process holds the lock, too", process);
        if (readers.load() != 0)
            fault("a reader holds the lock, too", process);
    }
    void leave() { inside.fetch_sub(1); }
};

class LockContentionTest : public ::testing::Test
{
protected:
    TemporaryDirectory directory;
    const std::string file = directory / "data";
    FileLocksProvider& locks = *FileLocksProvider::getInstance();
    Shared<Witness> witness;
    const std::vector<int> allWell = std::vector<int>(processes, 0);
};

std::string contentOf(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST_F(LockContentionTest, NoTwoProcessesHoldOneLockFile)
{
    const int wanted = rounds();
    const std::vector<int> results = runProcesses(processes, secondsAtMost, [&](int process) {
        while (witness->holds.load() < wanted) {
            const int result = locks.lockFile(file, process);
            if (result == -1) {
                witness->refused.fetch_add(1);
                sched_yield();
                continue;
            }
            if (result != 0) {
                witness->fault("neither 0 nor -1", process);
                return 1;
            }
            witness->enter(process);
            if (locks.lockFile(file, process) != -1)
                witness->fault("locked twice", process);
            sched_yield(); // let the others try
            witness->leave();
            if (locks.unlockFile(file, process) != 0)
                witness->fault("the lock is gone", process);
        }
        return 0;
    });

    EXPECT_EQ(results, allWell);
    EXPECT_EQ(witness->faults.load(), 0);
    EXPECT_GE(witness->holds.load(), wanted);
    EXPECT_GT(witness->refused.load(), 0) << "nobody contended";
    EXPECT_EQ(directory.names(), std::vector<std::string>());
}

TEST_F(LockContentionTest, OfEightProcessesAtTheSameMomentOneMakesTheLockFile)
{
    const int wanted = std::min(rounds(), 20000);
    std::vector<int> results = runProcesses(processes, secondsAtMost, [&](int process) {
        for (int round = 0; round < wanted; ++round) {
            witness->arrived.fetch_add(1);
            while (witness->arrived.load() < processes * (round + 1))
                sched_yield();
            const int result = locks.lockFile(file + std::to_string(round), process);
            if (result == 0)
                witness->winners[round].fetch_add(1 + 100 * process);
            else if (result != -1)
                witness->fault("neither 0 nor -1", process);
        }
        return 0;
    });

    EXPECT_EQ(results, allWell);
    EXPECT_EQ(witness->faults.load(), 0);
    for (int round = 0; round < wanted; ++round) {
        const int winners = witness->winners[round].load();
        ASSERT_EQ(winners % 100, 1) << "so many made the file of round " << round;
        const std::string mode = {static_cast<char>(winners / 100), 0, 0, 0};
        ASSERT_EQ(contentOf(file + std::to_string(round) + ".lck"), mode) << "round " << round;
    }
}

// Adds one to the number in the file, through the stream that holds the lock.
bool addOne(FILE* stream)
{
    int number = 0;
    if (std::fscanf(stream, "%d", &number) != 1)
        number = 0;
    std::rewind(stream);
    return std::fprintf(stream, "%d\n", number + 1) > 0 && std::fflush(stream) == 0;
}

TEST_F(LockContentionTest, NoTwoProcessesHoldOneRecordLock)
{
    const int wanted = rounds();
    const std::vector<int> results = runProcesses(processes, secondsAtMost, [&](int process) {
        while (witness->holds.load() < wanted) {
            int reason = 7;
            FILE* stream = locks.openSysLocked(file, 0, &reason);
            if (stream == nullptr) {
                if (reason != -1)
                    witness->fault("neither held nor refused", process);
                witness->refused.fetch_add(1);
                sched_yield();
                continue;
            }
            witness->enter(process);
            if (locks.isLocked(file) != 0) // asking must not give the lock away
                witness->fault("its own lock keeps it out", process);
            sched_yield();
            if (!addOne(stream))
                witness->fault("cannot write", process);
            witness->leave();
            if (locks.closeFile(file) != 0)
                witness->fault("cannot close", process);
        }
        return 0;
    });

    EXPECT_EQ(results, allWell);
    EXPECT_EQ(witness->faults.load(), 0);
    EXPECT_GE(witness->holds.load(), wanted);
    EXPECT_GT(witness->refused.load(), 0) << "nobody contended";
    EXPECT_EQ(contentOf(file), std::to_string(witness->holds.load()) + "\n")
        << "an update was lost";
}

TEST_F(LockContentionTest, WhoIsRefusedHasNotEmptiedTheFile)
{
    const int wanted = rounds();
    const std::string content = "what the holder has written";
    const std::vector<int> results = runProcesses(processes, secondsAtMost, [&](int process) {
        while (witness->holds.load() < wanted) {
            FILE* stream = locks.openSysLocked(file, 128, nullptr);
            if (stream == nullptr) {
                witness->refused.fetch_add(1);
                sched_yield();
                continue;
            }
            witness->enter(process);
            std::fwrite(content.data(), 1, content.size(), stream);
            std::fflush(stream);
            sched_yield();
            std::string found(content.size() + 1, '\0');
            const ssize_t size = pread(fileno(stream), found.data(), found.size(), 0);
            if (size != static_cast<ssize_t>(content.size()) ||
                found.substr(0, content.size()) != content)
                witness->fault("somebody has touched the content", process);
            witness->leave();
            locks.closeFile(stream);
        }
        return 0;
    });

    EXPECT_EQ(results, allWell);
    EXPECT_EQ(witness->faults.load(), 0);
    EXPECT_GT(witness->refused.load(), 0) << "nobody contended";
}

// Mode 64 gives no stream where the C library refuses one; the file is held all the same.
TEST_F(LockContentionTest, ReadersHoldTheLockTogetherAndKeepWritersOut)
{
    std::ofstream(file) << "data";
    const int wanted = rounds();
    Shared<std::atomic<int>> together;
    together->store(0);
    const std::vector<int> results = runProcesses(processes, secondsAtMost, [&](int process) {
        const bool reads = process % 2 == 0;
        for (int turn = 0; witness->holds.load() < wanted; ++turn) {
            int reason = 7;
            locks.openSysLocked(file, reads ? 64 : 0, &reason);
            if (reason != 7) {
                witness->refused.fetch_add(1);
                sched_yield();
                continue;
            }
            if (reads) {
                if (witness->readers.fetch_add(1) > 0)
                    together->fetch_add(1);
                if (witness->inside.load() != 0)
                    witness->fault("reads while another process writes", process);
                witness->holds.fetch_add(1);
                sched_yield();
                witness->readers.fetch_sub(1);
            } else {
                witness->enter(process);
                sched_yield();
                witness->leave();
            }
            locks.closeFile(file);
            usleep(static_cast<useconds_t>(process * 10)); // else readers never all let go
        }
        return 0;
    });

    EXPECT_EQ(results, allWell);
    EXPECT_EQ(witness->faults.load(), 0);
    EXPECT_GT(together->load(), 0) << "no two readers at once";
    EXPECT_GT(witness->refused.load(), 0) << "nobody contended";
}

// What another process asks never disturbs the holder, and is answered right.
TEST_F(LockContentionTest, AskingFromOtherProcessesSeesTheHolderAndLeavesItTheLock)
{
    std::ofstream(file) << "data";
    const int wanted = rounds();
    constexpr int fewer = 3; // who only asks never waits, and would take the holder's time
    const std::vector<int> results = runProcesses(fewer, secondsAtMost, [&](int process) {
        while (witness->holds.load() < wanted) {
            if (process != 0) {
                const bool before = witness->inside.load() == 1;
                const int holds = witness->holds.load();
                const int answer = locks.isLocked(file);
                const bool throughout =
                    before && witness->inside.load() == 1 && witness->holds.load() == holds;
                if (throughout && answer != 2)
                    witness->fault("does not see the writer", process);
                witness->refused.fetch_add(answer == 2 ? 1 : 0);
                sched_yield();
                continue;
            }
            int reason = 7;
            if (locks.openSysLocked(file, 0, &reason) == nullptr) {
                witness->fault("is kept out by somebody who only asks", process);
                continue;
            }
            witness->enter(process);
            sched_yield();
            witness->leave();
            locks.closeFile(file);
        }
        return 0;
    });

    EXPECT_EQ(results, std::vector<int>(fewer, 0));
    EXPECT_EQ(witness->faults.load(), 0);
    EXPECT_GT(witness->refused.load(), 0) << "nobody saw the lock";
}

// A process that dies leaves its record lock to the next, and its lock file to whoever removes it.
TEST_F(LockContentionTest, ADeadProcessHoldsNoRecordLockButItsLockFileStays)
{
    const std::vector<int> killed = runProcesses(1, secondsAtMost, [&](int) {
        locks.lockFile(file, 5);
        locks.openSysLocked(file, 0, nullptr);
        return raise(SIGKILL);
    });
    ASSERT_EQ(killed, std::vector<int>{128 + SIGKILL});

    int reason = 7;
    EXPECT_EQ(locks.isLocked(file), 0);
    EXPECT_NE(locks.openSysLocked(file, 0, &reason), nullptr);
    EXPECT_EQ(locks.closeFile(file), 0);
    EXPECT_EQ(locks.lockFile(file, 6), -1);
    EXPECT_EQ(locks.unlockFile(file, 6), 0);
    EXPECT_EQ(locks.lockFile(file, 6), 0);
}

} // namespace
