// Jobs on a file system of 1 MB that is really full: a tmpfs, mounted where nobody else sees it.
#include "CommandRun.h"
#include "FaultRun.h"
#include "JobManager.h"
#include "ScratchManager.h"
#include "SeisTraceSet.h"
#include "TestDirectory.h"
#include "failing.h"
#include "metadataprovider.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;

const Fault nothing = {"malloc", 0, VORN_FAULT_ONCE};

// Whether this process may mount: with the rights of the system, or else with those of a user in a
// space of names of its own. Mounts made afterwards end with the process.
std::string becomeMounter()
{
    const uid_t user = getuid();
    const gid_t group = getgid();
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return std::string("no space of names for mounts: ") + std::strerror(errno);
        const auto map = [](const char* file, const std::string& text) {
            std::ofstream(file) << text;
        };
        map("/proc/self/setgroups", "deny");
        map("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        map("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return std::string("mounts cannot be kept private: ") + std::strerror(errno);
    return "";
}

class FullDiskTest : public testing::Test
{
protected:
    void SetUp() override
    {
        static const std::string refused = becomeMounter();
        if (!refused.empty())
            GTEST_SKIP() << refused;
        fs::create_directory(disk());
        if (mount("tmpfs", disk().c_str(), "tmpfs", 0, "size=1m,mode=0700") != 0)
            GTEST_SKIP() << "no file system can be mounted: " << std::strerror(errno);
        mounted = true;
        setenv("VORN_SCRATCH", disk().c_str(), 1);
    }
    void TearDown() override
    {
        if (mounted)
            umount2(disk().c_str(), MNT_DETACH);
    }

    std::string disk() const { return command / "disk"; }

    int64_t freeBytes() const
    {
        struct statvfs status = {};
        statvfs(disk().c_str(), &status);
        return static_cast<int64_t>(status.f_bavail) * static_cast<int64_t>(status.f_frsize);
    }

    // Leaves `bytes` of room, a multiple of the page size.
    void fill(int64_t bytes) const
    {
        std::ofstream file(disk() + "/filler", std::ios::binary);
        file << std::string(static_cast<std::size_t>(freeBytes() - bytes), 'f');
        file.close();
        ASSERT_TRUE(file.good());
        ASSERT_EQ(freeBytes(), bytes);
    }

    Files onDisk() const
    {
        Files files = filesIn(disk());
        files.erase("filler");
        return files;
    }

    CommandRun command;
    bool mounted = false;
};

// ---- Traces that do not fit ----

int recordMessage(int, char*, const char*, const char* text, void* messages)
{
    static_cast<std::vector<std::string>*>(messages)->push_back(text);
    return 0;
}

struct PagedSet
{
    const char* name;
    int64_t room; // bytes on the disk
    int traces;
    int samples;
};

void PrintTo(const PagedSet& row, std::ostream* stream)
{
    *stream << row.name;
}

class FullScratchTest : public FullDiskTest, public testing::WithParamInterface<PagedSet>
{
protected:
    void SetUp() override
    {
        FullDiskTest::SetUp();
        delete ScratchManager::ScratchManagerInstance;
        ScratchManager::ScratchManagerInstance = nullptr;
        ScratchManager::getInstance();
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = 2;
        JobManager::getInstance()->installMessageFunc(recordMessage, nullptr, &messages);
        JobManager::getInstance()->addTraceAttributeDefinition("number", int32AttType, 1, "", 0, 0,
                                                               0, 0, 0);
    }
    void TearDown() override
    {
        ScratchManager::getInstance()->deleteScratch();
        JobManager::getInstance()->installMessageFunc(nullptr, nullptr, nullptr);
        FullDiskTest::TearDown();
    }

    static float sample(int trace, int i) { return static_cast<float>(trace * 100000 + i); }

    void make(SeisTraceSet& set)
    {
        set.setTraceLength(GetParam().samples);
        set.setUseScratch(true);
        for (int trace = 0; trace < GetParam().traces; ++trace) {
            std::vector<float> samples;
            for (int i = 0; i < GetParam().samples; ++i)
                samples.push_back(sample(trace, i));
            set.setSamples(samples.data(), trace);
            set.setAttribute("number", UniVar(trace), trace);
        }
    }

    void expectEverything(SeisTraceSet& set)
    {
        for (int trace = 0; trace < GetParam().traces; ++trace) {
            const float* samples = set.getSamples(trace);
            ASSERT_NE(samples, nullptr) << "trace " << trace;
            for (int i = 0; i < GetParam().samples; ++i)
                ASSERT_EQ(samples[i], sample(trace, i)) << "trace " << trace << ", sample " << i;
            ASSERT_EQ(set.getAttribute("number", trace).getI32Value(), trace);
        }
    }

    // Traces that are neither in the order of use nor in the file.
    int keptOutside(const SeisTraceSet& set) const
    {
        int count = 0;
        for (const SeisTrace* trace : set.traces)
            count += trace->traceSamples != nullptr && trace->order == nullptr ? 1 : 0;
        return count;
    }

    static void deleteTraces(SeisTraceSet& set)
    {
        for (SeisTrace* trace : set.traces)
            delete trace;
        set.traces.clear();
    }

    int failures() const
    {
        int count = 0;
        for (const std::string& text : messages)
            count += text.find("No space left on device") != std::string::npos ? 1 : 0;
        return count;
    }

    std::vector<std::string> messages;
};

} // namespace

TEST_P(FullScratchTest, TracesThatCannotBeWrittenStayAndEachAttemptIsReported)
{
    fill(GetParam().room);
    SeisTraceSet set;

    make(set);

    const int kept = keptOutside(set);
    EXPECT_GT(kept, 0) << "the disk has room for all";
    EXPECT_LT(kept, GetParam().traces - 2) << "nothing was written at all";
    EXPECT_EQ(failures(), kept);
    expectEverything(set);
    // Once more, from the last to the first: records are read back and written again.
    for (int trace = GetParam().traces - 1; trace >= 0; --trace)
        set.getTrace(trace, true);
    expectEverything(set);
    deleteTraces(set);
}

TEST_P(FullScratchTest, RoomThatComesBackIsUsed)
{
    fill(GetParam().room);
    SeisTraceSet set;
    make(set);
    const int kept = keptOutside(set);

    fs::remove(disk() + "/filler");
    for (int round = 0; round < 4; ++round)
        expectEverything(set);

    EXPECT_LT(keptOutside(set), kept);
    deleteTraces(set);
}

// Records far smaller than a stream's buffer, on a disk with room for a few of them: with a buffer
// the writing would succeed and the next seek would lose what the disk does not take.
INSTANTIATE_TEST_SUITE_P(Records, FullScratchTest,
                         testing::Values(PagedSet{"larger_than_a_page", 512 * 1024, 200, 2000},
                                         PagedSet{"smaller_than_a_buffer", 8192, 100, 60},
                                         PagedSet{"of_a_few_bytes", 4096, 3000, 1}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(FullDiskTest, PagingJobWritesWhatOneWithRoomWrites)
{
    command.makeInputs();
    command.writeJob("  - {name: make, module: synthetic, shots: 4, channels: 24, samples: 4000}\n"
                     "  - {name: turned, module: sort, keys: [-tracl], input: make}\n"
                     "  - {name: write, module: segy_out, input: turned, file: out/line.sgy}\n");
    ASSERT_EQ(command.run({"--scratch-traces", "10000"}, nothing, 0).exitCode, 0);
    const Files expected = command.outputs();
    ASSERT_GT(expected.at("line.sgy").size(), 1u << 20);
    command.clear();

    const ChildResult result = command.run({"--scratch-traces", "10"}, nothing, 0, disk());

    EXPECT_EQ(result.signal, 0);
    EXPECT_THAT(command.errors(), HasSubstr("No space left on device"));
    EXPECT_TRUE(command.outputs() == expected);
    EXPECT_THAT(onDisk(), IsEmpty());
}

// ---- Outputs that do not fit ----

namespace {

struct FullOutput
{
    const char* name;
    std::vector<std::string> options;
    std::string writer;
    int64_t room;
    int exitCode;
    const char* file; // named in the message
};

void PrintTo(const FullOutput& row, std::ostream* stream)
{
    *stream << row.name;
}

class FullOutputTest : public FullDiskTest, public testing::WithParamInterface<FullOutput>
{
protected:
    ChildResult run()
    {
        command.writeJob(
            "  - {name: make, module: synthetic, shots: 1, channels: 24, samples: 1000}\n" +
            GetParam().writer);
        return command.run(GetParam().options, nothing, 0);
    }
};

} // namespace

TEST_P(FullOutputTest, FailsClearlyAndLeavesNoHalfFile)
{
    fill(GetParam().room);

    const ChildResult result = run();

    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.exitCode, GetParam().exitCode) << command.errors();
    EXPECT_THAT(command.errors(), HasSubstr("No space left on device"));
    EXPECT_THAT(command.errors(), HasSubstr(GetParam().file));
    for (const auto& [name, content] : onDisk())
        ADD_FAILURE() << name << " is left, of " << content.size() << " bytes";
}

TEST_P(FullOutputTest, LeavesAFormerFileAsItIs)
{
    // Of a kind that is replaced where there is room.
    const bool isJson = std::string(GetParam().file).ends_with(".json");
    const std::string former = isJson ? "{\"was\": \"here before\"}" : "<p>what was here before";
    std::ofstream(disk() + "/" + GetParam().file) << former;
    fill(GetParam().room);

    EXPECT_EQ(run().exitCode, GetParam().exitCode) << command.errors();
    EXPECT_THAT(command.errors(), HasSubstr("No space left on device"));

    const Files expected = {{GetParam().file, former}};
    EXPECT_TRUE(onDisk() == expected);
}

TEST_P(FullOutputTest, SucceedsWithRoom)
{
    EXPECT_EQ(run().exitCode, 0) << command.errors();
    EXPECT_EQ(onDisk().count(GetParam().file), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Outputs, FullOutputTest,
    testing::Values(
        FullOutput{"segy_out",
                   {},
                   "  - {name: write, module: segy_out, input: make, file: disk/line.sgy}\n",
                   8192,
                   1,
                   "line.sgy"},
        FullOutput{"su_out",
                   {},
                   "  - {name: write, module: su_out, input: make, file: disk/line.su}\n",
                   8192,
                   1,
                   "line.su"},
        // The last bytes go out when a file is closed.
        FullOutput{"segy_out_but_for_the_last_page",
                   {},
                   "  - {name: write, module: segy_out, input: make, file: disk/line.sgy}\n",
                   102400,
                   1,
                   "line.sgy"},
        FullOutput{"report",
                   {"--report", "disk/report.html"},
                   "  - {name: write, module: su_out, input: make, file: out/line.su}\n",
                   8192,
                   2,
                   "report.html"},
        FullOutput{"report_without_any_room",
                   {"--report", "disk/report.html"},
                   "  - {name: write, module: su_out, input: make, file: out/line.su}\n",
                   0,
                   2,
                   "report.html"},
        // Smaller than the buffer of a stream: what fails is the closing.
        FullOutput{"json_without_any_room",
                   {"--json", "disk/result.json"},
                   "  - {name: write, module: su_out, input: make, file: out/line.su}\n",
                   0,
                   2,
                   "result.json"}),
    [](const auto& row) { return std::string(row.param.name); });

// ---- The log ----

// It grows during the run, so what fits stays; the outputs of the job are elsewhere, and whole.
TEST_F(FullDiskTest, ALogThatDoesNotFitIsAnErrorOfTheRun)
{
    command.writeJob("  - {name: make, module: synthetic, shots: 1, channels: 4, samples: 100}\n"
                     "  - {name: write, module: su_out, input: make, file: out/line.su}\n");
    fill(0);

    const ChildResult result = command.run({"--log", "disk/run.log"}, nothing, 0);

    EXPECT_EQ(result.exitCode, 1) << command.errors();
    EXPECT_THAT(command.errors(),
                HasSubstr("vorn: the log file \"disk/run.log\" cannot be written: "
                          "No space left on device"));
    EXPECT_EQ(command.outputs().at("line.su").size(), 4u * (240 + 400));

    fs::remove(disk() + "/filler");
    EXPECT_EQ(command.run({"--log", "disk/run.log"}, nothing, 0).exitCode, 0) << command.errors();
    EXPECT_THAT(onDisk().at("run.log"), HasSubstr("traces in"));
}

// ---- Metadata ----

TEST_F(FullDiskTest, MetadataAreWholeOrTheFormerOnes)
{
    const std::map<std::string, std::string> former = {{"units", "m"}};
    std::map<std::string, std::string> data = {{"units", "ft"}, {"text", std::string(20000, 'x')}};
    VORN::MetadataProvider& provider = *VORN::MetadataProvider::getInstance();
    fs::create_directory(disk() + "/.metadata");
    provider.setRefDir(disk());
    ASSERT_TRUE(provider.storeMetadata(disk() + "/line.sgy", former));
    fill(4096);

    EXPECT_FALSE(provider.storeMetadata(disk() + "/line.sgy", data));

    std::map<std::string, std::string> found;
    const auto collect = [](void* map, const std::string& key, const std::string& value) {
        (*static_cast<std::map<std::string, std::string>*>(map))[key] = value;
    };
    EXPECT_TRUE(provider.loadMetadata(disk() + "/line.sgy", collect, &found));
    EXPECT_EQ(found, former);
    EXPECT_EQ(filesIn(disk() + "/.metadata").size(), 1u);
}
