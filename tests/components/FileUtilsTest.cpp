// Lock files, record locks and wildcards. What one process's locks mean to another is asked of
// real processes, which speak with the test over a socket; nothing here waits for time to pass.

#include "fileUtils.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using VORN::FileLocksProvider;

constexpr int noAnswer = -999;

// One end of the talk between the test and another process.
class Line
{
public:
    explicit Line(int end) : end_(end) {}

    // A value for a side that has ended is lost; who waits for an answer to it learns that.
    void send(int value) const { ::send(end_, &value, sizeof value, MSG_NOSIGNAL); }

    // Waits for the other side; noAnswer when that has ended.
    int receive() const
    {
        int value = noAnswer;
        return recv(end_, &value, sizeof value, MSG_WAITALL) == sizeof value ? value : noAnswer;
    }

private:
    int end_;
};

// A process that runs `body` and ends. It must exist before the test locks what it wants to be
// refused: a process made later would inherit the provider's memory of the held files.
class OtherProcess
{
public:
    explicit OtherProcess(const std::function<void(const Line&)>& body)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            std::abort();
        child_ = fork();
        if (child_ == 0) {
            alarm(60); // a test that fails half-way leaves no process behind
            ::close(ends[0]);
            body(Line(ends[1]));
            _exit(0);
        }
        ::close(ends[1]);
        end_ = ends[0];
    }

    ~OtherProcess()
    {
        ::close(end_);
        wait();
    }

    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    void send(int value) const { Line(end_).send(value); }
    int receive() const { return Line(end_).receive(); }

    // Tells it to take its next step; returns what the step came to.
    int step() const
    {
        send(0);
        return receive();
    }

    void kill()
    {
        ::kill(child_, SIGKILL);
        wait();
    }

private:
    void wait()
    {
        if (child_ > 0)
            waitpid(child_, nullptr, 0);
        child_ = -1;
    }

    int end_ = -1;
    pid_t child_ = -1;
};

// The number that `body` returns in a process of its own.
int inOtherProcess(const std::function<int()>& body)
{
    const OtherProcess other([&](const Line& line) { line.send(body()); });
    return other.receive();
}

// Locks the whole of `path` by the system's own call, for the other processes' part of a test.
bool lockDirectly(const std::string& path, short type)
{
    const int descriptor = open(path.c_str(), O_RDWR);
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(descriptor, F_SETLK, &lock) == 0;
}

// The lock of this process on `path` as another one sees it: F_UNLCK, or the type of a lock that
// covers all of the file; noAnswer for a lock on a part of it.
int lockSeenElsewhere(const std::string& path)
{
    return inOtherProcess([&] {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        if (fcntl(open(path.c_str(), O_RDWR), F_GETLK, &lock) != 0)
            return noAnswer;
        if (lock.l_type != F_UNLCK && (lock.l_start != 0 || lock.l_len != 0))
            return noAnswer;
        return int{lock.l_type};
    });
}

// All descriptors of this process that lead to `path`.
std::vector<int> descriptorsOf(const std::string& path)
{
    std::vector<int> descriptors;
    struct stat file;
    if (stat(path.c_str(), &file) != 0)
        return descriptors;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename().string());
        struct stat own;
        if (fstat(descriptor, &own) == 0 && own.st_dev == file.st_dev && own.st_ino == file.st_ino)
            descriptors.push_back(descriptor);
    }
    return descriptors;
}

// A directory of the test's own, and the provider, which holds nothing when a test begins.
class FileUtilsFixture : public testing::Test
{
protected:
    FileLocksProvider& locks = *FileLocksProvider::getInstance();
    std::string dir;  // ends with "/"
    std::string file; // "a" in dir; exists only when a test writes it
    int reason = 77;  // an arbitrary value, to be found again where nothing is written

    void SetUp() override
    {
        std::string name = fs::temp_directory_path().string() + "/fileutils-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        dir = name + "/";
        file = dir + "a";
    }

    void TearDown() override
    {
        for (const std::string& name : opened)
            locks.closeFile(name);
        fs::current_path("/");
        fs::remove_all(dir);
    }

    // openSysLocked on a file that is closed when the test ends.
    FILE* openLocked(const std::string& name, int mode)
    {
        opened.push_back(name);
        return locks.openSysLocked(name, mode, &reason);
    }

    static void write(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }

    static std::string contentOf(const std::string& path)
    {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    static int permissionsOf(const std::string& path)
    {
        struct stat status;
        return stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
    }

private:
    std::vector<std::string> opened;
};

// ---- lock files

class LockFileTest : public FileUtilsFixture
{
};

TEST_F(LockFileTest, LockFileHoldsTheModeInFourBytes)
{
    struct Row
    {
        int mode;
        std::string bytes;
    };
    const std::vector<Row> rows = {{5, "\x05\0\0\0"s},
                                   {0, "\0\0\0\0"s},
                                   {-1, "\xFF\xFF\xFF\xFF"s},
                                   {0x01020380, "\x80\x03\x02\x01"s}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mode);
        EXPECT_EQ(locks.lockFile(file, row.mode), 0);
        EXPECT_EQ(contentOf(file + ".lck"), row.bytes);
        EXPECT_EQ(locks.unlockFile(file, row.mode), 0);
    }
}

TEST_F(LockFileTest, LockingAndUnlockingTwiceIsRefused)
{
    EXPECT_EQ(locks.lockFile(file, 5), 0);
    EXPECT_EQ(locks.lockFile(file, 6), -1);
    EXPECT_EQ(contentOf(file + ".lck"), "\x05\0\0\0"s);
    EXPECT_EQ(locks.unlockFile(file, 5), 0);
    EXPECT_FALSE(fs::exists(file + ".lck"));
    EXPECT_EQ(locks.unlockFile(file, 5), -2);
    EXPECT_EQ(locks.lockFile(file, 6), 0);
}

TEST_F(LockFileTest, LockedFileItselfIsNeitherNeededNorTouched)
{
    EXPECT_EQ(locks.lockFile(file, 5), 0);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(locks.unlockFile(file, 5), 0);

    write(file, "samples");
    EXPECT_EQ(locks.lockFile(file, 5), 0);
    EXPECT_EQ(locks.unlockFile(file, 5), 0);
    EXPECT_EQ(contentOf(file), "samples");
}

TEST_F(LockFileTest, UnlockingIgnoresTheModeAndWhoLocked)
{
    ASSERT_EQ(inOtherProcess([&] { return locks.lockFile(file, 5); }), 0);
    EXPECT_EQ(contentOf(file + ".lck"), "\x05\0\0\0"s) << "the lock outlives its process";
    EXPECT_EQ(locks.lockFile(file, 5), -1);
    EXPECT_EQ(locks.unlockFile(file, 1234), 0);
    EXPECT_FALSE(fs::exists(file + ".lck"));
}

TEST_F(LockFileTest, AnythingOfItsNameLocks)
{
    fs::create_directory(file + ".lck");
    EXPECT_EQ(locks.lockFile(file, 5), -1);
    EXPECT_EQ(locks.unlockFile(file, 5), 0)
        << "it existed; that it could not be removed is not told";
    EXPECT_TRUE(fs::is_directory(file + ".lck"));
}

TEST_F(LockFileTest, LinkToNowhereLocksAndCanBeUnlocked)
{
    fs::create_symlink(dir + "nowhere", file + ".lck");
    EXPECT_EQ(locks.lockFile(file, 5), -1);
    EXPECT_FALSE(fs::exists(dir + "nowhere"));
    EXPECT_EQ(locks.unlockFile(file, 5), 0);
    EXPECT_EQ(locks.lockFile(file, 5), 0);
}

TEST_F(LockFileTest, LockFileThatCannotBeMadeGivesMinusTwo)
{
    EXPECT_EQ(locks.lockFile(dir + "missing/a", 5), -2);
    EXPECT_EQ(locks.lockFile(dir + std::string(300, 'n'), 5), -2);
    EXPECT_EQ(locks.unlockFile(dir + "missing/a", 5), -2);
}

TEST_F(LockFileTest, LockFileIsWritableForTheGroup)
{
    const mode_t before = umask(0);
    EXPECT_EQ(locks.lockFile(file, 5), 0);
    EXPECT_EQ(permissionsOf(file + ".lck"), 0664);
    umask(027);
    EXPECT_EQ(locks.lockFile(file + "2", 5), 0);
    EXPECT_EQ(permissionsOf(file + "2.lck"), 0640);
    umask(before);
}

TEST_F(LockFileTest, LockingLeavesNoDescriptorOpen)
{
    ASSERT_EQ(locks.lockFile(file, 5), 0);
    EXPECT_EQ(descriptorsOf(file + ".lck"), std::vector<int>{});
}

TEST_F(LockFileTest, LockHoldsWhenItsModeCannotBeWritten)
{
    const int result = inOtherProcess([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit noBytes = {0, 0};
        return setrlimit(RLIMIT_FSIZE, &noBytes) == 0 ? locks.lockFile(file, 5) : noAnswer;
    });
    EXPECT_EQ(result, 0);
    ASSERT_TRUE(fs::exists(file + ".lck"));
    EXPECT_EQ(contentOf(file + ".lck"), "");
    EXPECT_EQ(locks.lockFile(file, 5), -1);
}

// What two racing processes share: where they wait for each other, and what each round gave them.
struct Race
{
    static constexpr int rounds = 2000;
    std::atomic<int> arrived{0};
    int results[2][rounds] = {};

    void run(int runner, const std::string& name, FileLocksProvider& locks)
    {
        for (int round = 0; round < rounds; ++round) {
            arrived.fetch_add(1);
            while (arrived.load() < 2 * (round + 1))
                sched_yield();
            results[runner][round] = locks.lockFile(name + std::to_string(round), runner);
        }
    }
};

TEST_F(LockFileTest, OfTwoProcessesRacingExactlyOneGetsTheLock)
{
    void* shared =
        mmap(nullptr, sizeof(Race), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    Race* race = new (shared) Race;
    {
        const OtherProcess first([&](const Line&) { race->run(0, file, locks); });
        const OtherProcess second([&](const Line&) { race->run(1, file, locks); });
    }
    ASSERT_EQ(race->arrived.load(), 2 * Race::rounds);
    for (int round = 0; round < Race::rounds; ++round) {
        const int winner = race->results[0][round] == 0 ? 0 : 1;
        ASSERT_EQ(race->results[winner][round], 0) << "round " << round;
        ASSERT_EQ(race->results[1 - winner][round], -1) << "round " << round;
        ASSERT_EQ(contentOf(file + std::to_string(round) + ".lck"),
                  std::string(1, static_cast<char>(winner)) + "\0\0\0"s);
    }
    munmap(shared, sizeof(Race));
}

// ---- record locks within one process

class SysLockTest : public FileUtilsFixture
{
};

TEST_F(SysLockTest, IsOneForTheProcess)
{
    EXPECT_EQ(FileLocksProvider::getInstance(), &locks);
}

TEST_F(SysLockTest, LockModeDecidesHowTheFileIsOpenedAndLocked)
{
    struct Row
    {
        int mode;
        int access;
        int lock;
        bool stream;
        bool writable;
        std::string content;
    };
    const std::vector<Row> rows = {{64, O_RDONLY, F_RDLCK, false, false, "content"},
                                   {128, O_RDWR, F_WRLCK, true, true, ""},
                                   {1, O_RDWR, F_WRLCK, true, false, "content"},
                                   {0, O_RDWR, F_WRLCK, true, true, "content"},
                                   {2, O_RDWR, F_WRLCK, true, true, "content"},
                                   {-1, O_RDWR, F_WRLCK, true, true, "content"},
                                   {65, O_RDWR, F_WRLCK, true, true, "content"},
                                   {192, O_RDWR, F_WRLCK, true, true, "content"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mode);
        write(file, "content");
        FILE* stream = openLocked(file, row.mode);
        EXPECT_EQ(stream != nullptr, row.stream);
        EXPECT_EQ(reason, 77) << "not written on success";
        EXPECT_EQ(contentOf(file), row.content);
        // contentOf has closed a descriptor of the file and with it this process's lock, as any
        // reading on the side does: what follows is asked of a file opened anew.
        EXPECT_EQ(locks.closeFile(file), 0);

        write(file, "content");
        stream = openLocked(file, row.mode);
        const std::vector<int> descriptors = descriptorsOf(file);
        ASSERT_EQ(descriptors.size(), 1U);
        EXPECT_EQ(fcntl(descriptors[0], F_GETFL) & O_ACCMODE, row.access);
        EXPECT_EQ(fcntl(descriptors[0], F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        EXPECT_EQ(lockSeenElsewhere(file), row.lock);
        if (stream != nullptr) {
            EXPECT_EQ(std::fputc('!', stream) != EOF, row.writable);
        }
        EXPECT_EQ(locks.closeFile(file), 0);
        EXPECT_EQ(lockSeenElsewhere(file), F_UNLCK);
        EXPECT_EQ(descriptorsOf(file), std::vector<int>{});
    }
}

TEST_F(SysLockTest, StreamReadsAndWritesTheFile)
{
    write(file, "abc");
    FILE* stream = openLocked(file, 0);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(std::fgetc(stream), 'a');
    std::fseek(stream, 0, SEEK_END);
    std::fputs("def", stream);
    EXPECT_EQ(locks.closeFile(file), 0);
    EXPECT_EQ(contentOf(file), "abcdef");
}

TEST_F(SysLockTest, MissingFileIsCreatedExceptForReading)
{
    const mode_t before = umask(0);
    for (const int mode : {128, 1, 0}) {
        SCOPED_TRACE(mode);
        const std::string name = file + std::to_string(mode);
        EXPECT_NE(openLocked(name, mode), nullptr);
        EXPECT_EQ(permissionsOf(name), 0664);
    }
    umask(before);
    EXPECT_EQ(reason, 77);

    EXPECT_EQ(openLocked(file, 64), nullptr);
    EXPECT_EQ(reason, -2);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(locks.closeFile(file), 0) << "nothing is held";
}

TEST_F(SysLockTest, FileThatCannotBeOpenedGivesReasonMinusTwo)
{
    for (const int mode : {64, 128, 1, 0}) {
        SCOPED_TRACE(mode);
        reason = 77;
        EXPECT_EQ(openLocked(dir + "missing/a", mode), nullptr);
        EXPECT_EQ(reason, -2);
    }
    EXPECT_EQ(locks.openSysLocked(dir + "missing/a", 0, nullptr), nullptr);
    EXPECT_EQ(locks.getFile(dir + "missing/a"), nullptr);
}

TEST_F(SysLockTest, HeldFileIsReturnedAsItIs)
{
    write(file, "content");
    FILE* stream = openLocked(file, 0);
    ASSERT_NE(stream, nullptr);
    for (const int mode : {0, 1, 64, 128}) {
        SCOPED_TRACE(mode);
        reason = 77;
        EXPECT_EQ(locks.openSysLocked(file, mode, &reason), stream);
        EXPECT_EQ(reason, 0);
        EXPECT_EQ(locks.openSysLocked(file, mode, nullptr), stream);
    }
    EXPECT_EQ(lockSeenElsewhere(file), F_WRLCK) << "64 on a held file does not lock it anew";
    EXPECT_EQ(descriptorsOf(file).size(), 1U);
    EXPECT_EQ(locks.closeFile(file), 0);
    EXPECT_EQ(contentOf(file), "content") << "128 on a held file does not empty it";
}

TEST_F(SysLockTest, HeldStreamsAreFoundByTheNameAsItWasPassed)
{
    fs::current_path(dir);
    FILE* a = openLocked("a", 0);
    FILE* b = openLocked("b", 0);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(locks.getFile("a"), a);
    EXPECT_EQ(locks.getFile("b"), b);
    EXPECT_EQ(locks.getFile("./a"), nullptr);
    EXPECT_EQ(locks.getFile(""), nullptr);
}

TEST_F(SysLockTest, ClosingOneFileLeavesTheOthersHeld)
{
    const std::vector<std::string> names = {dir + "a", dir + "b", dir + "c"};
    for (const std::string& name : names)
        ASSERT_NE(openLocked(name, 0), nullptr);

    EXPECT_EQ(locks.closeFile(locks.getFile(names[1])), 0);
    EXPECT_EQ(locks.getFile(names[1]), nullptr);
    EXPECT_EQ(lockSeenElsewhere(names[0]), F_WRLCK);
    EXPECT_EQ(lockSeenElsewhere(names[1]), F_UNLCK);
    EXPECT_EQ(lockSeenElsewhere(names[2]), F_WRLCK);

    EXPECT_EQ(locks.closeFile(names[2]), 0);
    EXPECT_EQ(lockSeenElsewhere(names[0]), F_WRLCK);
    EXPECT_EQ(lockSeenElsewhere(names[2]), F_UNLCK);
}

TEST_F(SysLockTest, ClosingByStreamAndByNameForgetTheFile)
{
    FILE* stream = openLocked(file, 0);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(locks.closeFile(stream), 0);
    EXPECT_EQ(descriptorsOf(file), std::vector<int>{});
    EXPECT_EQ(locks.closeFile(file), 0) << "not held any more";

    ASSERT_NE(openLocked(file, 0), nullptr);
    EXPECT_EQ(reason, 77) << "opened, not found held";
    EXPECT_EQ(locks.closeFile(file), 0);
    EXPECT_EQ(locks.getFile(file), nullptr);
    EXPECT_EQ(descriptorsOf(file), std::vector<int>{});
}

TEST_F(SysLockTest, UnknownStreamIsNotClosed)
{
    ASSERT_NE(openLocked(dir + "b", 0), nullptr);
    FILE* own = std::fopen(file.c_str(), "wb");
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(locks.closeFile(own), 0);
    EXPECT_EQ(lockSeenElsewhere(dir + "b"), F_WRLCK);
    EXPECT_GE(std::fputs("still open", own), 0);
    EXPECT_EQ(std::fclose(own), 0);
    EXPECT_EQ(contentOf(file), "still open");
}

TEST_F(SysLockTest, FailureToCloseIsReturnedAndTheFileForgotten)
{
    for (const bool byName : {true, false}) {
        SCOPED_TRACE(byName);
        // 128 besides: a device has no length to cut, and is opened all the same.
        FILE* stream = openLocked("/dev/full", 128);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(reason, 77);
        ASSERT_EQ(std::fputc('!', stream), '!') << "in the stream's buffer";
        EXPECT_EQ(byName ? locks.closeFile("/dev/full") : locks.closeFile(stream), EOF);
        EXPECT_EQ(locks.getFile("/dev/full"), nullptr);
        EXPECT_EQ(descriptorsOf("/dev/full"), std::vector<int>{});
    }
}

TEST_F(SysLockTest, DestructorLeavesTheStreamsOpen)
{
    EXPECT_EQ(inOtherProcess([&] {
                  FILE* stream = locks.openSysLocked(file, 0, nullptr);
                  delete FileLocksProvider::getInstance();
                  const bool open = std::fputs("open", stream) >= 0 && std::fflush(stream) == 0;
                  return open && lockSeenElsewhere(file) == F_WRLCK ? 0 : 1;
              }),
              0);
    EXPECT_EQ(contentOf(file), "open");
}

// ---- files held without a stream

// Mode 64 asks for an update stream on a read-only descriptor, which the C library refuses.
class StreamlessLockTest : public FileUtilsFixture
{
protected:
    void SetUp() override
    {
        FileUtilsFixture::SetUp();
        write(file, "content");
        ASSERT_EQ(openLocked(file, 64), nullptr);
        ASSERT_EQ(reason, 77);
    }
};

TEST_F(StreamlessLockTest, FileStaysOpenAndLocked)
{
    EXPECT_EQ(descriptorsOf(file).size(), 1U);
    EXPECT_EQ(lockSeenElsewhere(file), F_RDLCK);
}

TEST_F(StreamlessLockTest, OpeningAgainFindsItHeld)
{
    for (const int mode : {64, 128, 0}) {
        SCOPED_TRACE(mode);
        reason = 77;
        EXPECT_EQ(locks.openSysLocked(file, mode, &reason), nullptr);
        EXPECT_EQ(reason, 0);
        EXPECT_EQ(locks.openSysLocked(file, mode, nullptr), nullptr);
    }
    EXPECT_EQ(descriptorsOf(file).size(), 1U);
    EXPECT_EQ(lockSeenElsewhere(file), F_RDLCK);
    EXPECT_EQ(contentOf(file), "content");
}

TEST_F(StreamlessLockTest, ItsStreamIsNull)
{
    EXPECT_EQ(locks.getFile(file), nullptr);
}

TEST_F(StreamlessLockTest, ClosingTheNullStreamTouchesNothing)
{
    EXPECT_EQ(locks.closeFile(static_cast<FILE*>(nullptr)), 0);
    EXPECT_EQ(lockSeenElsewhere(file), F_RDLCK);
    locks.openSysLocked(file, 64, &reason);
    EXPECT_EQ(reason, 0) << "still held";
}

TEST_F(StreamlessLockTest, ClosingByNameClosesAndForgets)
{
    EXPECT_EQ(locks.closeFile(file), 0);
    EXPECT_EQ(descriptorsOf(file), std::vector<int>{});
    EXPECT_EQ(lockSeenElsewhere(file), F_UNLCK);

    EXPECT_NE(openLocked(file, 0), nullptr);
    EXPECT_EQ(reason, 77) << "opened anew";
}

TEST_F(StreamlessLockTest, ClosingReturnsTheResultOfClosing)
{
    ASSERT_EQ(descriptorsOf(file).size(), 1U);
    ::close(descriptorsOf(file)[0]); // behind the provider's back
    EXPECT_EQ(locks.closeFile(file), -1);
    EXPECT_EQ(locks.closeFile(file), 0) << "forgotten by then";
}

TEST_F(StreamlessLockTest, AskingLeavesItLocked)
{
    EXPECT_EQ(locks.isLocked(file), 0);
    EXPECT_EQ(lockSeenElsewhere(file), F_RDLCK);
    EXPECT_EQ(descriptorsOf(file).size(), 1U);
}

// ---- record locks between processes

// Another process that uses the provider as this one does: it opens `file` with `mode`, tells the
// outcome (0 when it has the lock), and closes the file at the next step, then ends at the one
// after.
class SysLockBetweenProcessesTest : public FileUtilsFixture
{
protected:
    std::function<void(const Line&)> holder(int mode)
    {
        return [this, mode](const Line& line) {
            int outcome = 0;
            locks.openSysLocked(file, mode, &outcome);
            line.send(outcome);
            line.receive();
            line.send(locks.closeFile(file));
            line.receive();
        };
    }
};

TEST_F(SysLockBetweenProcessesTest, LockIsRefusedWhereTheOtherOneExcludesIt)
{
    struct Row
    {
        int other, own;
        int reason; // 77: locked
    };
    const std::vector<Row> rows = {{0, 0, -1},   {0, 128, -1},  {0, 1, -1},  {0, 64, -1},
                                   {128, 0, -1}, {128, 64, -1}, {1, 1, -1},  {1, 64, -1},
                                   {64, 0, -1},  {64, 128, -1}, {64, 1, -1}, {64, 64, 77}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.own) + " against " + std::to_string(row.other));
        write(file, "content");
        const OtherProcess other(holder(row.other));
        ASSERT_EQ(other.receive(), 0);
        reason = 77;
        EXPECT_EQ(openLocked(file, row.own), nullptr); // with 64 there is no stream at all
        EXPECT_EQ(reason, row.reason);
        EXPECT_EQ(descriptorsOf(file).size(), row.reason == 77 ? 1U : 0U);
        EXPECT_EQ(locks.closeFile(file), 0);
        EXPECT_EQ(locks.openSysLocked(file, row.own, nullptr), nullptr);
        EXPECT_EQ(locks.closeFile(file), 0);
    }
}

TEST_F(SysLockBetweenProcessesTest, RefusedExclusiveLockLeavesTheContentAlone)
{
    for (const int others : {0, 64}) {
        SCOPED_TRACE(others);
        write(file, "content");
        const OtherProcess other(holder(others));
        ASSERT_EQ(other.receive(), 0);
        EXPECT_EQ(openLocked(file, 128), nullptr);
        EXPECT_EQ(reason, -1);
        EXPECT_EQ(contentOf(file), "content");
    }
}

TEST_F(SysLockBetweenProcessesTest, ClosingReleasesTheLock)
{
    write(file, "content");
    for (const int others : {0, 64}) {
        SCOPED_TRACE(others);
        const OtherProcess other(holder(others));
        ASSERT_EQ(other.receive(), 0);
        EXPECT_EQ(openLocked(file, 0), nullptr);
        EXPECT_EQ(reason, -1);

        ASSERT_EQ(other.step(), 0);
        EXPECT_NE(openLocked(file, 0), nullptr) << "the other process is there, its lock is not";
        EXPECT_EQ(locks.closeFile(file), 0);
    }
}

TEST_F(SysLockBetweenProcessesTest, EndOfTheProcessReleasesTheLock)
{
    OtherProcess other(holder(0));
    ASSERT_EQ(other.receive(), 0);
    EXPECT_EQ(openLocked(file, 0), nullptr);
    EXPECT_EQ(reason, -1);

    other.kill();
    EXPECT_NE(openLocked(file, 0), nullptr);
}

TEST_F(SysLockBetweenProcessesTest, LockCoversWhatIsAppendedLater)
{
    FILE* stream = openLocked(file, 0);
    ASSERT_NE(stream, nullptr);
    std::fputs("grown", stream);
    std::fflush(stream);
    const int refused = inOtherProcess([&] {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = 4;
        lock.l_len = 1;
        return fcntl(open(file.c_str(), O_RDWR), F_SETLK, &lock);
    });
    EXPECT_EQ(refused, -1);
}

// ---- asking

class IsLockedTest : public FileUtilsFixture
{
protected:
    // Another process with a lock of the given type on the file, until the test ends it.
    std::function<void(const Line&)> holder(short type)
    {
        return [this, type](const Line& line) {
            line.send(lockDirectly(file, type) ? 0 : 1);
            line.receive();
        };
    }
};

TEST_F(IsLockedTest, FileNobodyLocksIsNotLocked)
{
    write(file, "content");
    EXPECT_EQ(locks.isLocked(file), 0);
    EXPECT_EQ(descriptorsOf(file), std::vector<int>{});
}

TEST_F(IsLockedTest, FileThatCannotBeOpenedIsNotLocked)
{
    EXPECT_EQ(locks.isLocked(file), 0);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ(locks.isLocked(""), 0);
}

TEST_F(IsLockedTest, WriteLockElsewhereGivesTwo)
{
    write(file, "content");
    OtherProcess other(holder(F_WRLCK));
    ASSERT_EQ(other.receive(), 0);
    EXPECT_EQ(locks.isLocked(file), 2);
    EXPECT_EQ(descriptorsOf(file), std::vector<int>{});

    other.kill();
    EXPECT_EQ(locks.isLocked(file), 0);
}

TEST_F(IsLockedTest, ReadLockElsewhereGivesZero)
{
    write(file, "content");
    const OtherProcess other(holder(F_RDLCK));
    ASSERT_EQ(other.receive(), 0);
    EXPECT_EQ(locks.isLocked(file), 0);
}

TEST_F(IsLockedTest, LockFileIsNoRecordLock)
{
    write(file, "content");
    ASSERT_EQ(locks.lockFile(file, 5), 0);
    EXPECT_EQ(locks.isLocked(file), 0);
    EXPECT_NE(openLocked(file, 0), nullptr) << "and does not refuse one";
}

TEST_F(IsLockedTest, OwnLockGivesZeroAndStaysInForce)
{
    ASSERT_NE(openLocked(file, 0), nullptr);
    EXPECT_EQ(locks.isLocked(file), 0);
    EXPECT_EQ(lockSeenElsewhere(file), F_WRLCK);
}

TEST_F(IsLockedTest, OwnLockStaysInForceUnderAnyNameOfTheFile)
{
    ASSERT_NE(openLocked(file, 0), nullptr);
    fs::create_hard_link(file, dir + "hard");
    fs::create_symlink(file, dir + "soft");
    fs::current_path(dir);
    for (const char* name : {"a", "./a", "hard", "soft"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(locks.isLocked(name), 0);
        EXPECT_EQ(lockSeenElsewhere(file), F_WRLCK);
    }
}

TEST_F(IsLockedTest, HeldFileIsToldFromOthers)
{
    write(file, "content");
    ASSERT_NE(openLocked(dir + "b", 0), nullptr);
    const OtherProcess other(holder(F_WRLCK));
    ASSERT_EQ(other.receive(), 0);
    EXPECT_EQ(locks.isLocked(file), 2);
    EXPECT_EQ(locks.isLocked(dir + "b"), 0);
}

TEST_F(IsLockedTest, AskingAboutAPipeDoesNotWait)
{
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(inOtherProcess([&] { return locks.isLocked(file); }), 0);
}

// ---- wildcards

class GlobFilesTest : public FileUtilsFixture
{
protected:
    void SetUp() override
    {
        FileUtilsFixture::SetUp();
        for (const char* name : {"l2.sgy", "l10.sgy", "l1.sgy", "notes.txt", ".hidden.sgy"})
            write(dir + name, "");
        fs::create_directory(dir + "sub");
        write(dir + "sub/l3.sgy", "");
    }

    std::vector<std::string> paths(const std::vector<std::string>& names) const
    {
        std::vector<std::string> result;
        for (const std::string& name : names)
            result.push_back(dir + name);
        return result;
    }
};

TEST_F(GlobFilesTest, MatchesAreListedSorted)
{
    struct Row
    {
        std::string mask;
        std::vector<std::string> names;
    };
    const std::vector<Row> rows = {{"*.sgy", {"l1.sgy", "l10.sgy", "l2.sgy"}},
                                   {"l?.sgy", {"l1.sgy", "l2.sgy"}},
                                   {"l[2-9].sgy", {"l2.sgy"}},
                                   {".*.sgy", {".hidden.sgy"}},
                                   {"*/*.sgy", {"sub/l3.sgy"}},
                                   {"s*", {"sub"}},
                                   {"notes.txt", {"notes.txt"}},
                                   {"*", {"l1.sgy", "l10.sgy", "l2.sgy", "notes.txt", "sub"}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mask);
        std::vector<std::string> files;
        EXPECT_EQ(VORN::vorn_glob_files(dir + row.mask, files), static_cast<int>(row.names.size()));
        EXPECT_EQ(files, paths(row.names));
    }
}

TEST_F(GlobFilesTest, MatchesAreAppended)
{
    std::vector<std::string> files = {"before"};
    EXPECT_EQ(VORN::vorn_glob_files(dir + "l2*", files), 1);
    EXPECT_EQ(VORN::vorn_glob_files(dir + "l1*", files), 2);
    EXPECT_EQ(files, (std::vector<std::string>{"before", dir + "l2.sgy", dir + "l1.sgy",
                                               dir + "l10.sgy"}));
}

TEST_F(GlobFilesTest, NoMatchGivesMinusOneAndLeavesTheListAlone)
{
    for (const std::string& mask : {dir + "*.dat", dir + "missing/*", dir + "missing.txt", ""s}) {
        SCOPED_TRACE(mask);
        std::vector<std::string> files = {"before"};
        EXPECT_EQ(VORN::vorn_glob_files(mask, files), -1);
        EXPECT_EQ(files, std::vector<std::string>{"before"});
    }
}

TEST_F(GlobFilesTest, RelativeMaskGivesRelativePaths)
{
    fs::current_path(dir);
    std::vector<std::string> files;
    EXPECT_EQ(VORN::vorn_glob_files("sub/*", files), 1);
    EXPECT_EQ(files, std::vector<std::string>{"sub/l3.sgy"});
}

} // namespace
