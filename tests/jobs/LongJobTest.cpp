// A long job: what it holds at any time does not grow with the number of traces that have passed.
#include "DataChannel.h"
#include "ExampleLibrary.h"
#include "KernelFixture.h"
#include "ModuleEntity.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

// Sanitizers keep freed memory back for a while, so that the size of the process says nothing.
#if defined(__SANITIZE_ADDRESS__)
#define VORN_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VORN_SANITIZED 1
#endif
#endif
#ifndef VORN_SANITIZED
#define VORN_SANITIZED 0
#endif

namespace {

constexpr int samplesPerTrace = 100;

// Bytes that a run may add to the process however long it is: the heap's own pieces and what
// libraries do when they are first called. A byte per trace would be more.
constexpr long bytesAllowed = 512 * 1024;

// Resident memory of the process in bytes.
long residentBytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        long kilobytes = 0;
        if (std::sscanf(line.c_str(), "VmRSS: %ld kB", &kilobytes) == 1)
            return kilobytes * 1024;
    }
    ADD_FAILURE() << "no VmRSS";
    return 0;
}

// source -> filter -> sink of the example host.
class LongJobTest : public KernelFixture
{
protected:
    LongJobTest() { job().installMessageFunc(nullptr, nullptr, nullptr); }

    void build(int traces)
    {
        job().addTraceAttributeDefinition("tracl", 2, 1, "", 0, 0, 0, 0, 0);
        job().addTraceAttributeDefinition("offset", 2, 1, "", 0, 0, 0, 0, 0);
        ModuleEntity* source = job().initJobModule("source", exampleLibrary("source"));
        ModuleEntity* filter = job().initJobModule("filter", exampleLibrary("filter"));
        ModuleEntity* sink = job().initJobModule("sink", exampleLibrary("sink"));
        ASSERT_TRUE(source != nullptr && filter != nullptr && sink != nullptr)
            << "the libraries of examples/host are not there";
        source->setParameter("TRACES", UniVar(traces));
        source->setParameter("SAMPLES", UniVar(samplesPerTrace));
        connect(source, filter);
        connect(filter, sink);
    }

    static void connect(ModuleEntity* producer, ModuleEntity* consumer)
    {
        DataChannel* channel = new DataChannel;
        producer->setOutputDataChannel(channel, 0);
        consumer->setInputDataChannel(channel, 0);
    }

    struct Watch
    {
        int calls = 0;
        long residentBytes = 0;
        int accountedBytes = 0;
        std::uintmax_t scratchBytes = 0;
        std::string scratchDirectory;
        jobStatisticStruct last;
    };
    Watch most; // seen by the statistics call-back, every 1001 passes

    static int watch(jobStatisticStruct* statistic, void* object)
    {
        Watch& most = *static_cast<Watch*>(object);
        most.last = *statistic;
        if (++most.calls % 100 != 0)
            return 0;
        most.residentBytes = std::max(most.residentBytes, residentBytes());
        most.accountedBytes = std::max(most.accountedBytes, statistic->jobStatistics.mem_used);
        for (const auto& file : std::filesystem::directory_iterator(most.scratchDirectory))
            most.scratchBytes = std::max(most.scratchBytes, file.file_size());
        return 0;
    }
};

TEST_F(LongJobTest, MillionTracesLeaveTheProcessAsItWas)
{
    const int traces = VORN_SANITIZED ? 20000 : 1000000;
    build(traces);
    most.scratchDirectory = scratchDirectory.path();
    job().installStatisticFunc(watch, &most);
    ASSERT_EQ(job().preProcessJob(), 0);
    const int accountedAtStart = job().totalJobMemoryUsed;
    const std::size_t blocksAtStart = job().jobMemoryMap.size();
    const long atStart = residentBytes();

    ASSERT_EQ(job().processJob(), 0);

    const long atEnd = residentBytes();
    EXPECT_EQ(job().totalJobMemoryUsed, accountedAtStart);
    EXPECT_EQ(job().jobMemoryMap.size(), blocksAtStart);
    if (!VORN_SANITIZED) {
        EXPECT_LE(atEnd, atStart + bytesAllowed);
        EXPECT_GT(most.residentBytes, 0);
        EXPECT_LE(most.residentBytes, atStart + bytesAllowed) << "on the way";
        EXPECT_LE(most.accountedBytes, accountedAtStart + 3 * (4 * samplesPerTrace + 128));
    }
    RecordProperty("bytesAdded", std::to_string(atEnd - atStart));
    RecordProperty("bytesAddedAtMost", std::to_string(most.residentBytes - atStart));

    ASSERT_EQ(job().postProcessJob(), 0);
    EXPECT_EQ(most.last.modStatistics[2].inp_traces, traces);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(LongJobTest, JobThatAlwaysPagesKeepsItsScratchFileSmall)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    const int traces = VORN_SANITIZED ? 10000 : 110000;
    build(traces);
    most.scratchDirectory = scratchDirectory.path();
    job().installStatisticFunc(watch, &most);
    ASSERT_EQ(job().preProcessJob(), 0);
    const long atStart = residentBytes();

    ASSERT_EQ(job().processJob(), 0);

    EXPECT_EQ(scratchDirectory.names().size(), 1u);
    if (!VORN_SANITIZED) {
        EXPECT_LE(residentBytes(), atStart + bytesAllowed);
        EXPECT_GT(most.scratchBytes, 0u);
        EXPECT_LE(most.scratchBytes, 8u * (4 * samplesPerTrace + 128));
    }

    ASSERT_EQ(job().postProcessJob(), 0);
    EXPECT_EQ(most.last.modStatistics[2].inp_traces, traces);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

} // namespace
