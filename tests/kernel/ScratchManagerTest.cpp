#include "ScratchManager.h"

#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "SeisTraceSet.h"
#include "TraceVerbs.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

class ScratchManagerTest : public KernelFixture
{
protected:
    static void setLimit(int traces) { ScratchManager::MAX_TRACES_IN_SCRATCH_V = traces; }

    // A trace filled with the pattern of its `seed`; owned by the test.
    SeisTrace* newTrace(int seed, int samples = 10, int headerSize = 8)
    {
        traces.push_back(ownedTrace(samples, headerSize));
        fill(*traces.back(), seed);
        seeds[traces.back().get()] = seed;
        return traces.back().get();
    }
    SeisTrace* touch(SeisTrace* trace)
    {
        scratch().touchTrace(trace);
        return trace;
    }
    void destroy(SeisTrace* trace)
    {
        std::erase_if(traces, [=](const OwnedTrace& one) { return one.get() == trace; });
    }
    std::vector<SeisTrace*> order()
    {
        return {scratch().traces_cache.begin(), scratch().traces_cache.end()};
    }
    std::vector<int64_t> freeOf(int recordSize)
    {
        const auto found = scratch().free_blocks.find(recordSize);
        if (found == scratch().free_blocks.end())
            return {};
        return {found->second.begin(), found->second.end()};
    }
    // Touches the trace and says where it differs from its pattern.
    std::string differs(SeisTrace* trace, int seed)
    {
        touch(trace);
        return differsFromFill(*trace, seed);
    }
    // Touches all traces and says which are not as they were made.
    std::string damaged()
    {
        std::string found;
        for (const OwnedTrace& trace : traces) {
            const std::string place = differs(trace.get(), seeds.at(trace.get()));
            if (!place.empty())
                found += "trace " + std::to_string(seeds.at(trace.get())) + ": " + place + "; ";
        }
        return found;
    }
    // Pairs of paged-out traces whose records overlap.
    std::string overlaps() const
    {
        std::string found;
        for (const OwnedTrace& a : traces) {
            for (const OwnedTrace& b : traces) {
                if (a.get() < b.get() && a->traceOffset >= 0 && b->traceOffset >= 0 &&
                    a->traceOffset < b->traceOffset + b->getTraceMemorySize() &&
                    b->traceOffset < a->traceOffset + a->getTraceMemorySize())
                    found += std::to_string(a->traceOffset) + " and " +
                             std::to_string(b->traceOffset) + "; ";
            }
        }
        return found;
    }

    std::vector<OwnedTrace> traces;
    std::map<const SeisTrace*, int> seeds;
};

constexpr int recordSize = 48; // 10 samples and 8 bytes of header

TEST_F(ScratchManagerTest, ThereIsOneManagerMadeOnFirstUse)
{
    renewSingletons();
    EXPECT_EQ(ScratchManager::ScratchManagerInstance, nullptr);
    ScratchManager* manager = ScratchManager::getInstance();
    EXPECT_EQ(ScratchManager::ScratchManagerInstance, manager);
    EXPECT_EQ(ScratchManager::getInstance(), manager);
    installRecorder();
}

TEST_F(ScratchManagerTest, FieldsStandInTheirOrder)
{
    const ScratchManager& manager = scratch();
    const auto place = [&](const void* member) {
        return static_cast<const char*>(member) - reinterpret_cast<const char*>(&manager);
    };
    EXPECT_EQ(place(&manager.scratchFile), 0);
    EXPECT_LT(place(&manager.scratchFile), place(&manager.traces_cache));
    EXPECT_LT(place(&manager.traces_cache), place(&manager.free_blocks));
    EXPECT_LT(place(&manager.free_blocks), place(&manager.scratchFileName));
}

TEST_F(ScratchManagerTest, NewManagerHoldsNothing)
{
    EXPECT_EQ(scratch().scratchFile, nullptr);
    EXPECT_TRUE(scratch().traces_cache.empty());
    EXPECT_TRUE(scratch().free_blocks.empty());
    EXPECT_EQ(scratch().scratchFileName, "");
    EXPECT_EQ(ScratchManager::MAX_TRACES_IN_SCRATCH_V, 10000);
}

TEST_F(ScratchManagerTest, LimitIsReadFromTheEnvironmentWhenTheManagerIsMade)
{
    const struct
    {
        const char* text;
        int limit;
    } rows[] = {
        {"1", 1},
        {"250", 250},
        {"99999999", 99999999},
        {" 42", 42},
        {"+7", 7},
        {"12 traces", 12},
        {"12.9", 12},
        {"007", 7},
        {"0", 10000},
        {"-5", 10000},
        {"100000000", 10000},
        {"2147483648", 10000},
        {"4294967297", 10000},
        {"18446744073709551617", 10000},
        {"", 10000},
        {"many", 10000},
        {"x12", 10000},
        {"0x10", 10000},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string("\"") + row.text + "\"");
        const ScopedEnvironment size("VORN_SCRATCH_SIZE", row.text);
        renewSingletons();
        ScratchManager::getInstance();
        EXPECT_EQ(ScratchManager::MAX_TRACES_IN_SCRATCH_V, row.limit);
    }
    installRecorder();
}

TEST_F(ScratchManagerTest, LimitIsNotReadAgain)
{
    scratch();
    const ScopedEnvironment size("VORN_SCRATCH_SIZE", "5");
    touch(newTrace(1));
    EXPECT_EQ(ScratchManager::MAX_TRACES_IN_SCRATCH_V, 10000);
}

TEST_F(ScratchManagerTest, LastTouchedTraceIsInFront)
{
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    SeisTrace* c = touch(newTrace(3));
    EXPECT_THAT(order(), ElementsAre(c, b, a));
    touch(a);
    EXPECT_THAT(order(), ElementsAre(a, c, b));
    touch(c);
    EXPECT_THAT(order(), ElementsAre(c, a, b));
}

TEST_F(ScratchManagerTest, TouchingTheFrontTraceChangesNothing)
{
    setLimit(2);
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    setLimit(1);
    touch(b);
    EXPECT_THAT(order(), ElementsAre(b, a)) << "not even the new limit is looked at";
    EXPECT_TRUE(isResident(*a));
}

TEST_F(ScratchManagerTest, UpToTheLimitNothingIsWritten)
{
    setLimit(3);
    for (int i = 0; i < 3; ++i)
        touch(newTrace(i));
    touch(traces[0].get());
    EXPECT_EQ(scratch().scratchFile, nullptr);
    EXPECT_THAT(scratchDirectory.names(), IsEmpty());
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(ScratchManagerTest, LeastRecentlyTouchedTraceIsPagedOut)
{
    setLimit(2);
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    SeisTrace* c = touch(newTrace(3));
    EXPECT_THAT(order(), ElementsAre(c, b));
    EXPECT_EQ(a->traceSamples, nullptr);
    EXPECT_EQ(a->traceHeader, nullptr);
    EXPECT_EQ(a->traceOffset, 0);
    EXPECT_EQ(a->traceLength, 10);
    EXPECT_EQ(a->traceHeaderSize, 8);
    EXPECT_TRUE(isResident(*b));
    EXPECT_EQ(b->traceOffset, -1);
}

TEST_F(ScratchManagerTest, TraceIsReadBackAndTheNextTakesOverItsRecord)
{
    setLimit(2);
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    SeisTrace* c = touch(newTrace(3));
    ASSERT_EQ(a->traceOffset, 0);

    touch(a);

    EXPECT_EQ(differsFromFill(*a, 1), "");
    EXPECT_EQ(a->traceOffset, -1);
    EXPECT_EQ(b->traceOffset, 0) << "the record that a left";
    EXPECT_THAT(order(), ElementsAre(a, c));
    EXPECT_THAT(freeOf(recordSize), IsEmpty());
}

TEST_F(ScratchManagerTest, RecordOfAnotherSizeGoesToTheEnd)
{
    setLimit(2);
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2, 9));
    touch(newTrace(3));
    ASSERT_EQ(a->traceOffset, 0);

    touch(a);

    EXPECT_EQ(b->traceOffset, recordSize);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0)) << "too large by one sample";
}

TEST_F(ScratchManagerTest, SizeOfARecordIsWhatCountsNotItsParts)
{
    setLimit(2);
    SeisTrace* a = touch(newTrace(1, 10, 8));
    SeisTrace* b = touch(newTrace(2, 8, 16));
    touch(newTrace(3));
    touch(a);
    EXPECT_EQ(b->traceOffset, 0);
    EXPECT_EQ(differs(b, 2), "");
}

TEST_F(ScratchManagerTest, RecordFreedFirstIsReusedFirst)
{
    setLimit(1);
    SeisTrace* paged[4];
    for (int i = 0; i < 4; ++i)
        paged[i] = touch(newTrace(i));
    touch(newTrace(4));
    for (int i = 0; i < 4; ++i)
        ASSERT_EQ(paged[i]->traceOffset, i * recordSize);

    destroy(paged[2]);
    destroy(paged[0]);
    destroy(paged[3]);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(2 * recordSize, 0, 3 * recordSize));

    SeisTrace* first = traces.back().get();
    SeisTrace* second = touch(newTrace(5));
    SeisTrace* third = touch(newTrace(6));
    touch(newTrace(7));
    EXPECT_EQ(first->traceOffset, 2 * recordSize);
    EXPECT_EQ(second->traceOffset, 0);
    EXPECT_EQ(third->traceOffset, 3 * recordSize);
}

TEST_F(ScratchManagerTest, RecordsAreTheTracesOwnBytesOneBehindTheOther)
{
    setLimit(1);
    SeisTrace* a = newTrace(1, 3, 5);
    SeisTrace* b = newTrace(2, 0, 7);
    std::string expected;
    for (const SeisTrace* trace : {a, b}) {
        expected.append(reinterpret_cast<const char*>(trace->traceHeader),
                        static_cast<size_t>(trace->traceHeaderSize));
        expected.append(reinterpret_cast<const char*>(trace->traceSamples),
                        static_cast<size_t>(trace->traceLength) * 4);
    }
    for (SeisTrace* trace : {a, b, newTrace(3)})
        touch(trace);

    std::ifstream file(scratch().scratchFileName, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    EXPECT_EQ(bytes, expected);
}

TEST_F(ScratchManagerTest, TracesOfAllShapesComeBack)
{
    setLimit(1);
    const struct
    {
        int samples, headerSize;
    } rows[] = {{0, 0}, {0, 7}, {7, 0}, {0, 0}, {1, 1}, {700000, 100}, {700000, 0}, {10, 64}};
    int seed = 0;
    for (const auto& row : rows)
        touch(newTrace(++seed, row.samples, row.headerSize));
    for (int round = 0; round < 3; ++round)
        EXPECT_EQ(damaged(), "");
    EXPECT_EQ(overlaps(), "");
}

TEST_F(ScratchManagerTest, FlagStaysWithAPagedOutTrace)
{
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    a->setTraceFlag(3);
    touch(newTrace(2));
    EXPECT_EQ(a->getTraceFlag(), 3);
    touch(a);
    EXPECT_EQ(a->getTraceFlag(), 3);
}

TEST_F(ScratchManagerTest, LowerLimitPagesOutAllTheExcessAtOnce)
{
    for (int i = 0; i < 5; ++i)
        touch(newTrace(i));
    setLimit(2);
    SeisTrace* last = touch(newTrace(5));
    EXPECT_THAT(order(), ElementsAre(last, traces[4].get()));
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(traces[static_cast<size_t>(i)]->traceOffset, i * recordSize)
            << "the least recent first";
}

TEST_F(ScratchManagerTest, TraceThatGrewWhileItWasInMemoryGetsARecordOfItsNewSize)
{
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    touch(newTrace(2));
    touch(a);
    a->expandHeader(100);
    fill(*a, 3);
    SeisTrace* c = touch(newTrace(4));
    EXPECT_EQ(a->traceOffset, 2 * recordSize - recordSize) << "behind the other's record";
    EXPECT_EQ(differs(a, 3), "");
    EXPECT_EQ(differs(c, 4), "");
    EXPECT_EQ(overlaps(), "");
}

TEST_F(ScratchManagerTest, PagingOutReturnsTheMemoryAndPagingInTakesIt)
{
    setLimit(1);
    SeisTrace* a = touch(newTrace(1, 10, 8));
    EXPECT_EQ(job().totalJobMemoryUsed, 48);
    touch(newTrace(2, 1, 0));
    EXPECT_EQ(job().totalJobMemoryUsed, 4);
    EXPECT_EQ(job().jobMemoryMap.size(), 2u);
    touch(a);
    EXPECT_EQ(job().totalJobMemoryUsed, 48);
    EXPECT_EQ(job().jobMemoryMap.at(a->traceSamples), 40);
    EXPECT_EQ(job().jobMemoryMap.at(a->traceHeader), 8);
}

TEST_F(ScratchManagerTest, PagingOutUnchargesTheHolderAndPagingInChargesTheRunningModule)
{
    setLimit(1);
    ModuleEntity* holder = new ModuleEntity("holder");
    ModuleEntity* runner = new ModuleEntity("runner");
    job().jobModules = {holder, runner};
    job().setActiveModule(holder);
    SeisTrace* a = touch(newTrace(1, 10, 8));
    EXPECT_EQ(holder->getTotalModuleMemoryUsed(), 48);

    job().setActiveModule(runner);
    touch(newTrace(2, 1, 0));
    EXPECT_EQ(holder->getTotalModuleMemoryUsed(), 0);
    EXPECT_EQ(runner->getTotalModuleMemoryUsed(), 4);

    touch(a);
    EXPECT_EQ(holder->getTotalModuleMemoryUsed(), 0);
    EXPECT_EQ(runner->getTotalModuleMemoryUsed(), 48);
}

TEST_F(ScratchManagerTest, ResidentTraceIsNotRestored)
{
    SeisTrace* a = newTrace(1);
    EXPECT_EQ(scratch().restoreFromScratch(a), 0);
    EXPECT_EQ(differsFromFill(*a, 1), "");
    EXPECT_EQ(scratch().scratchFile, nullptr);
}

TEST_F(ScratchManagerTest, RestoringSaysWhetherTheTraceCameBack)
{
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    touch(newTrace(2));
    EXPECT_EQ(scratch().restoreFromScratch(a), 1);
    EXPECT_EQ(differsFromFill(*a, 1), "");
    EXPECT_EQ(a->traceOffset, -1);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0));
    EXPECT_EQ(scratch().restoreFromScratch(a), 0);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0));
}

TEST_F(ScratchManagerTest, RestoringLeavesTheOrder)
{
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    scratch().restoreFromScratch(a);
    EXPECT_THAT(order(), ElementsAre(b));
}

TEST_F(ScratchManagerTest, TraceWithoutARecordIsNotRestored)
{
    newTrace(1, -1, -1);
    SeisTrace* none = traces.back().get();
    EXPECT_EQ(scratch().restoreFromScratch(none), 0);
    EXPECT_EQ(none->traceSamples, nullptr);
    EXPECT_EQ(none->traceHeader, nullptr);
    EXPECT_EQ(none->traceOffset, -1);
    EXPECT_THAT(freeOf(none->getTraceMemorySize()), IsEmpty());
}

TEST_F(ScratchManagerTest, RecordThatTheFileHasLostComesBackAsZeros)
{
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    touch(newTrace(2));
    std::filesystem::resize_file(scratch().scratchFileName, 0);
    EXPECT_EQ(scratch().restoreFromScratch(a), 1);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(a->traceSamples[i], 0.0f);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(a->traceHeader[i], 0);
    EXPECT_EQ(a->traceOffset, -1);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0));
}

TEST_F(ScratchManagerTest, PositionThatAHostHasSetIsReadAndFreed)
{
    setLimit(1);
    touch(newTrace(1));
    SeisTrace* paged = touch(newTrace(2));
    touch(newTrace(3));
    SeisTrace* mine = newTrace(4);
    job().freeResource(mine->traceSamples);
    job().freeResource(mine->traceHeader);
    mine->traceSamples = nullptr;
    mine->traceHeader = nullptr;
    mine->traceOffset = paged->traceOffset;
    ASSERT_EQ(mine->traceOffset, recordSize);

    EXPECT_EQ(scratch().restoreFromScratch(mine), 1);
    EXPECT_EQ(differsFromFill(*mine, 2), "");
    EXPECT_THAT(freeOf(recordSize), ElementsAre(recordSize));
}

TEST_F(ScratchManagerTest, NoTraceIsNothingToTouch)
{
    SeisTrace* a = touch(newTrace(1));
    scratch().touchTrace(nullptr);
    EXPECT_THAT(order(), ElementsAre(a));
}

TEST_F(ScratchManagerTest, PuttingOutSaysWhetherTheTraceWasWritten)
{
    SeisTrace* a = newTrace(1);
    EXPECT_EQ(scratch().putToScratch(a), 1);
    EXPECT_FALSE(isResident(*a));
    EXPECT_EQ(a->traceOffset, 0);
    EXPECT_EQ(scratch().putToScratch(a), 0) << "it has no blocks any more";
    EXPECT_EQ(a->traceOffset, 0);
    EXPECT_EQ(differs(a, 1), "");
}

TEST_F(ScratchManagerTest, TraceWithoutABlockIsNotPutOut)
{
    const SeisTrace* none = newTrace(1, -1, 8);
    ASSERT_EQ(none->traceSamples, nullptr);
    host.messages.clear();
    EXPECT_EQ(scratch().putToScratch(traces.back().get()), 0);
    EXPECT_EQ(none->traceOffset, -1);
    EXPECT_EQ(scratch().scratchFile, nullptr);
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(ScratchManagerTest, RemovedTraceLeavesTheOrderAndFreesNothingWithoutARecord)
{
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    scratch().removeTrace(a);
    EXPECT_THAT(order(), ElementsAre(b));
    EXPECT_THAT(freeOf(recordSize), IsEmpty());
    scratch().removeTrace(newTrace(3));
    EXPECT_THAT(order(), ElementsAre(b));
}

TEST_F(ScratchManagerTest, DestroyedPagedOutTraceFreesItsRecord)
{
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    touch(newTrace(2));
    destroy(a);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0));
    EXPECT_EQ(order().size(), 1u);
}

TEST_F(ScratchManagerTest, FileIsMadeOnceAndAnnounced)
{
    setLimit(1);
    for (int i = 0; i < 4; ++i)
        touch(newTrace(i));
    const std::string path = scratch().scratchFileName;
    EXPECT_THAT(host.textsOfType(0), ElementsAre("Scratch file " + path + " successfully created"));
    EXPECT_EQ(host.messages.size(), 1u);
    EXPECT_THAT(path, StartsWith(scratchDirectory.path() + "/SF"));
    EXPECT_THAT(path.substr(scratchDirectory.path().size()), MatchesRegex("/SF[0-9]+\\.tmp"));
    EXPECT_THAT(scratchDirectory.names(),
                ElementsAre(path.substr(scratchDirectory.path().size() + 1)));
}

TEST_F(ScratchManagerTest, CheckingMakesTheFileOnce)
{
    EXPECT_EQ(scratch().checkScratchFile(), 1);
    FILE* file = scratch().scratchFile;
    EXPECT_NE(file, nullptr);
    EXPECT_EQ(scratch().checkScratchFile(), 1);
    EXPECT_EQ(scratch().scratchFile, file);
    EXPECT_EQ(host.messages.size(), 1u);
}

TEST_F(ScratchManagerTest, CleaningHookDoesNothing)
{
    std::ofstream(scratchDirectory / "SF1.tmp") << "of another job";
    scratch().selfCleaning();
    EXPECT_THAT(scratchDirectory.names(), ElementsAre("SF1.tmp"));
    scratch().checkScratchFile();
    EXPECT_EQ(scratchDirectory.names().size(), 2u);
}

TEST_F(ScratchManagerTest, FileBelongsToItsOwnerAlone)
{
    const mode_t former = umask(0);
    scratch().checkScratchFile();
    umask(former);
    struct stat status;
    ASSERT_EQ(stat(scratch().scratchFileName.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

// Names come from the C library's numbers; with a known seed a stranger could lay out a link first.
TEST_F(ScratchManagerTest, FileIsNeverMadeThroughALinkOrOverAnotherFile)
{
    const std::string victim = scratchDirectory / "victim";
    std::ofstream(victim) << "precious";
    std::srand(4711);
    const auto nextName = [&] {
        return scratchDirectory / ("SF" + std::to_string(std::rand()) + ".tmp");
    };
    const std::string toVictim = nextName(), toNowhere = nextName(), file = nextName();
    std::filesystem::create_symlink(victim, toVictim);
    std::filesystem::create_symlink(scratchDirectory / "nowhere", toNowhere);
    std::ofstream(file) << "of another job";
    setLimit(1);
    std::srand(4711);

    SeisTrace* a = touch(newTrace(1));
    touch(newTrace(2));

    ASSERT_FALSE(isResident(*a)) << "a fresh name was found";
    EXPECT_FALSE(std::filesystem::is_symlink(scratch().scratchFileName));
    EXPECT_FALSE(std::filesystem::exists(scratchDirectory / "nowhere"));
    std::string word;
    std::ifstream(victim) >> word;
    EXPECT_EQ(word, "precious");
    std::ifstream(file) >> word;
    EXPECT_EQ(word, "of");
    EXPECT_EQ(std::filesystem::file_size(file), 14u);

    scratch().deleteScratch();
    EXPECT_TRUE(std::filesystem::is_symlink(toVictim));
    EXPECT_TRUE(std::filesystem::exists(victim));
    EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(ScratchManagerTest, DirectoryMayHoldPercentSigns)
{
    const std::string directory = scratchDirectory / "100%d %s%n%";
    std::filesystem::create_directory(directory);
    const ScopedEnvironment variable("VORN_SCRATCH", directory.c_str());
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    touch(newTrace(2));
    EXPECT_THAT(scratch().scratchFileName, StartsWith(directory + "/SF"));
    EXPECT_THAT(host.texts(),
                ElementsAre("Scratch file " + scratch().scratchFileName + " successfully created"));
    EXPECT_EQ(differs(a, 1), "");
}

TEST_F(ScratchManagerTest, DirectoryMayBeVeryLong)
{
    std::string directory = scratchDirectory.path();
    while (directory.size() < 3500) {
        directory += "/" + std::string(200, 'd');
        ASSERT_EQ(mkdir(directory.c_str(), 0700), 0);
    }
    const ScopedEnvironment variable("VORN_SCRATCH", directory.c_str());
    setLimit(1);
    SeisTrace* a = touch(newTrace(1));
    touch(newTrace(2));
    EXPECT_THAT(scratch().scratchFileName, StartsWith(directory + "/SF"));
    EXPECT_EQ(differs(a, 1), "");
    scratch().deleteScratch();
    ASSERT_EQ(host.messages.size(), 2u);
    EXPECT_THAT(host.messages[1].text, EndsWith(".tmp successfully removed"));
}

TEST_F(ScratchManagerTest, DirectoryIsLookedUpForEachFile)
{
    TemporaryDirectory other;
    scratch().checkScratchFile();
    scratch().deleteScratch();
    const ScopedEnvironment variable("VORN_SCRATCH", other.path().c_str());
    scratch().checkScratchFile();
    EXPECT_THAT(scratch().scratchFileName, StartsWith(other.path() + "/SF"));
    scratch().deleteScratch();
}

TEST_F(ScratchManagerTest, DeletingRemovesTheFileAndSaysSo)
{
    scratch().checkScratchFile();
    const std::string path = scratch().scratchFileName;
    scratch().deleteScratch();
    EXPECT_EQ(scratch().scratchFile, nullptr);
    EXPECT_THAT(scratchDirectory.names(), IsEmpty());
    EXPECT_THAT(host.textsOfType(0), ElementsAre("Scratch file " + path + " successfully created",
                                                 "Scratch file " + path + " successfully removed"));
}

TEST_F(ScratchManagerTest, DeletingWithoutAFileDoesNothing)
{
    scratch().deleteScratch();
    EXPECT_THAT(host.messages, IsEmpty());
    scratch().checkScratchFile();
    scratch().deleteScratch();
    host.messages.clear();
    scratch().deleteScratch();
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(ScratchManagerTest, FileThatIsGoneAlreadyIsNotReportedAsRemoved)
{
    scratch().checkScratchFile();
    std::filesystem::remove(scratch().scratchFileName);
    host.messages.clear();
    scratch().deleteScratch();
    EXPECT_THAT(host.messages, IsEmpty());
    EXPECT_EQ(scratch().scratchFile, nullptr);
}

TEST_F(ScratchManagerTest, DestructorDeletesTheFile)
{
    scratch().checkScratchFile();
    const std::string path = scratch().scratchFileName;
    delete ScratchManager::ScratchManagerInstance;
    ScratchManager::ScratchManagerInstance = nullptr;
    EXPECT_THAT(scratchDirectory.names(), IsEmpty());
    EXPECT_EQ(host.texts().back(), "Scratch file " + path + " successfully removed");
}

TEST_F(ScratchManagerTest, DeletingLeavesTheOrderAndTheFreePositions)
{
    setLimit(2);
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    SeisTrace* c = touch(newTrace(3));
    destroy(a);
    scratch().deleteScratch();
    EXPECT_THAT(order(), ElementsAre(c, b));
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0));
    EXPECT_EQ(differsFromFill(*b, 2), "");
}

TEST_F(ScratchManagerTest, NextFileHasANewName)
{
    scratch().checkScratchFile();
    const std::string path = scratch().scratchFileName;
    scratch().deleteScratch();
    scratch().checkScratchFile();
    EXPECT_NE(scratch().scratchFileName, path);
}

class ScratchOfSeveralJobsTest : public ScratchManagerTest
{
protected:
    // Pages `n` traces of a shape out and destroys all but the last, which is resident.
    void runJob(int n, int samples, int headerSize)
    {
        for (int i = 0; i < n; ++i)
            touch(newTrace(i, samples, headerSize));
        traces.clear();
        scratch().deleteScratch();
    }
    ScratchOfSeveralJobsTest() { setLimit(1); }
};

TEST_F(ScratchOfSeveralJobsTest, FreePositionsServeTheNextFile)
{
    runJob(3, 10, 8);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0, recordSize));
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2));
    touch(newTrace(3));
    EXPECT_EQ(a->traceOffset, 0);
    EXPECT_EQ(b->traceOffset, recordSize);
    EXPECT_THAT(freeOf(recordSize), IsEmpty());
    EXPECT_EQ(differs(a, 1), "");
    EXPECT_EQ(differs(b, 2), "");
}

TEST_F(ScratchOfSeveralJobsTest, FirstRecordOfANewSizeIsAtTheStartOfTheNextFile)
{
    runJob(3, 10, 8);
    SeisTrace* first = touch(newTrace(1, 5, 0));
    SeisTrace* second = touch(newTrace(2, 5, 0));
    touch(newTrace(3, 5, 0));
    EXPECT_EQ(first->traceOffset, 0);
    EXPECT_EQ(second->traceOffset, 20);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0, recordSize)) << "listed as they were";
}

TEST_F(ScratchOfSeveralJobsTest, FreeRecordThatAnotherWasAppendedAcrossIsPassedOver)
{
    runJob(4, 10, 8);
    ASSERT_THAT(freeOf(recordSize), ElementsAre(0, recordSize, 2 * recordSize));
    SeisTrace* small = touch(newTrace(1, 5, 0));
    SeisTrace* large = touch(newTrace(2, 10, 0));
    SeisTrace* reuses = touch(newTrace(3));
    SeisTrace* appended = touch(newTrace(4));
    touch(newTrace(5));
    EXPECT_EQ(small->traceOffset, 0);
    EXPECT_EQ(large->traceOffset, 20) << "across the second as well";
    EXPECT_EQ(reuses->traceOffset, 2 * recordSize);
    EXPECT_EQ(appended->traceOffset, 3 * recordSize);
    EXPECT_THAT(freeOf(recordSize), IsEmpty());
    EXPECT_EQ(overlaps(), "");
    EXPECT_EQ(damaged(), "");
}

TEST_F(ScratchOfSeveralJobsTest, FreeRecordThatWasPassedOverServesAgainInTheFileAfter)
{
    runJob(2, 10, 8);
    runJob(2, 5, 0);
    ASSERT_THAT(freeOf(recordSize), ElementsAre(0));
    ASSERT_THAT(freeOf(20), ElementsAre(0));
    scratch().free_blocks.erase(20);

    SeisTrace* reuses = touch(newTrace(1));
    touch(newTrace(2));
    EXPECT_EQ(reuses->traceOffset, 0);
}

TEST_F(ScratchOfSeveralJobsTest, FreeRecordUpToWhichOthersWereAppendedIsTaken)
{
    touch(newTrace(1, 100, 0));
    touch(newTrace(2, 10, 8));
    touch(newTrace(3));
    ASSERT_EQ(traces[1]->traceOffset, 400);
    traces.clear();
    scratch().free_blocks.erase(400);
    scratch().deleteScratch();

    SeisTrace* fits = touch(newTrace(4, 60, 0));
    SeisTrace* fitsTo = touch(newTrace(5, 40, 0));
    SeisTrace* reuses = touch(newTrace(6, 10, 8));
    SeisTrace* behind = touch(newTrace(7, 1, 0));
    touch(newTrace(8));
    EXPECT_EQ(fits->traceOffset, 0);
    EXPECT_EQ(fitsTo->traceOffset, 240) << "up to the free record";
    EXPECT_EQ(reuses->traceOffset, 400);
    EXPECT_EQ(behind->traceOffset, 448);
    EXPECT_EQ(overlaps(), "");
    EXPECT_EQ(damaged(), "");
}

TEST_F(ScratchOfSeveralJobsTest, DestroyedTraceOfAFormerFileListsItsRecordAndHarmsNone)
{
    SeisTrace* former = touch(newTrace(1));
    touch(newTrace(2));
    ASSERT_EQ(former->traceOffset, 0);
    scratch().deleteScratch();
    touch(newTrace(3));
    touch(newTrace(4));
    ASSERT_EQ(traces[1]->traceOffset, 0);

    destroy(former);
    EXPECT_THAT(freeOf(recordSize), ElementsAre(0));
    touch(newTrace(5));
    touch(newTrace(6));
    EXPECT_EQ(overlaps(), "");
    EXPECT_EQ(differs(traces[0].get(), 2), "");
}

TEST_F(ScratchOfSeveralJobsTest, TraceOfALostFileComesBackEmptyAndHarmsNoRecord)
{
    SeisTrace* lost = touch(newTrace(1));
    touch(newTrace(2));
    ASSERT_EQ(lost->traceOffset, 0);
    scratch().deleteScratch();
    SeisTrace* small = touch(newTrace(3, 3, 0));
    SeisTrace* other = touch(newTrace(4, 4, 0));

    touch(lost);
    ASSERT_TRUE(isResident(*lost));
    EXPECT_EQ(lost->traceOffset, -1);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(lost->traceSamples[i], 0.0f);
    fill(*lost, 9);

    SeisTrace* same = touch(newTrace(5));
    EXPECT_EQ(differs(small, 3), "");
    EXPECT_EQ(differs(other, 4), "");
    EXPECT_EQ(differs(same, 5), "");
    EXPECT_EQ(differs(lost, 9), "");
    EXPECT_EQ(differs(traces[1].get(), 2), "");
}

TEST_F(ScratchOfSeveralJobsTest, JobsOfDifferentShapesInARowKeepTheirTraces)
{
    const struct
    {
        int samples, headerSize;
    } jobs[] = {{10, 8}, {3, 1}, {10, 8}, {57, 0}, {3, 1}, {0, 13}, {10, 8}, {57, 0}, {4, 64}};
    for (const auto& shape : jobs) {
        SCOPED_TRACE(std::to_string(shape.samples) + " samples, header " +
                     std::to_string(shape.headerSize));
        for (int i = 0; i < 12; ++i)
            touch(newTrace(i, i % 3 == 0 ? 10 : shape.samples, i % 3 == 0 ? 8 : shape.headerSize));
        for (int i = 1; i < 12; i += 4)
            destroy(traces[static_cast<size_t>(12 - i)].get());
        EXPECT_EQ(overlaps(), "");
        EXPECT_EQ(damaged(), "");
        traces.clear();
        scratch().deleteScratch();
    }
}

TEST_F(ScratchManagerTest, PositionsBeyondFourGigabytesAreUsedAsTheyAre)
{
    setLimit(1);
    const int64_t far = int64_t(5) << 30;
    scratch().free_blocks[recordSize].push_back(far);
    SeisTrace* a = touch(newTrace(1));
    SeisTrace* b = touch(newTrace(2, 7));
    SeisTrace* c = touch(newTrace(3));
    EXPECT_EQ(a->traceOffset, far);
    EXPECT_EQ(b->traceOffset, far + recordSize) << "at the end";
    EXPECT_EQ(static_cast<int64_t>(std::filesystem::file_size(scratch().scratchFileName)),
              far + recordSize + 36);
    EXPECT_EQ(differs(a, 1), "");
    EXPECT_EQ(differs(b, 2), "");
    EXPECT_EQ(differs(c, 3), "");
}

class ScratchFaultTest : public ScratchManagerTest
{
protected:
    ScratchFaultTest() { setLimit(2); }

    // `n` more traces with their numbers as seeds.
    void touchNew(int n)
    {
        for (int i = 0; i < n; ++i)
            touch(newTrace(static_cast<int>(traces.size())));
    }
    void expectAllResident() const
    {
        for (const OwnedTrace& trace : traces) {
            EXPECT_EQ(differsFromFill(*trace, seeds.at(trace.get())), "");
            EXPECT_EQ(trace->traceOffset, -1);
        }
    }
    void expectAllWhole()
    {
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(damaged(), "");
            EXPECT_EQ(overlaps(), "");
        }
    }
};

TEST_F(ScratchFaultTest, WithoutADirectoryEveryAttemptSaysSoAndTracesStay)
{
    const ScopedEnvironment none("VORN_SCRATCH", nullptr);
    touchNew(5);
    EXPECT_THAT(host.texts(), ElementsAre("VORN_SCRATCH environment variable is not set",
                                          "VORN_SCRATCH environment variable is not set",
                                          "VORN_SCRATCH environment variable is not set"));
    EXPECT_EQ(host.textsOfType(3).size(), 3u);
    EXPECT_THAT(order(), ElementsAre(traces[4].get(), traces[3].get()));
    expectAllResident();
    EXPECT_EQ(scratch().scratchFile, nullptr);
}

TEST_F(ScratchFaultTest, DirectoryThatTakesNoFileIsReportedWithTheWholePath)
{
    std::ofstream(scratchDirectory / "file") << "x";
    std::string tooLong = scratchDirectory.path();
    while (tooLong.size() < 5000)
        tooLong += "/" + std::string(200, 'd');
    for (const std::string& directory :
         {scratchDirectory / "missing", scratchDirectory / "file", std::string("/proc"), tooLong,
          scratchDirectory / "100%d%s%n"})
    {
        SCOPED_TRACE(directory.substr(0, 100));
        const ScopedEnvironment variable("VORN_SCRATCH", directory.c_str());
        host.messages.clear();
        traces.clear();
        touchNew(4);
        ASSERT_EQ(host.messages.size(), 2u);
        for (const HostMessage& message : host.messages) {
            EXPECT_EQ(message.type, 3);
            EXPECT_THAT(message.text,
                        StartsWith("Can not create scratch file " + directory + "/SF"));
            EXPECT_THAT(message.text.substr(message.text.rfind('/')),
                        MatchesRegex("/SF[0-9]+\\.tmp"));
        }
        EXPECT_NE(host.messages[0].text, host.messages[1].text) << "a new name each time";
        EXPECT_EQ(scratch().scratchFile, nullptr);
        expectAllResident();
    }
}

TEST_F(ScratchFaultTest, DirectoryWithoutPermissionIsReportedAndTracesStay)
{
    const uid_t user = geteuid();
    ASSERT_EQ(chmod(scratchDirectory.path().c_str(), 0500), 0);
    if (user == 0) { // whom no permission stops
        ASSERT_EQ(seteuid(65534), 0);
    }
    touchNew(4);
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(host.textsOfType(3).size(), 2u);
    expectAllResident();

    ASSERT_EQ(chmod(scratchDirectory.path().c_str(), 0700), 0);
    expectAllWhole();
}

TEST_F(ScratchFaultTest, TraceThatCouldNotBeWrittenComesBackIntoTheOrderWhenTouched)
{
    {
        const ScopedEnvironment none("VORN_SCRATCH", nullptr);
        touchNew(3);
    }
    SeisTrace* left = traces[0].get();
    ASSERT_TRUE(isResident(*left));
    touch(left);
    EXPECT_THAT(order(), ElementsAre(left, traces[2].get()));
    EXPECT_FALSE(isResident(*traces[1])) << "there is a directory now";
    expectAllWhole();
}

TEST_F(ScratchFaultTest, PagedOutTraceStaysAsItIsWhileNoFileCanBeHad)
{
    setLimit(1);
    touchNew(2);
    ASSERT_EQ(traces[0]->traceOffset, 0);
    scratch().deleteScratch();
    const ScopedEnvironment none("VORN_SCRATCH", nullptr);
    EXPECT_EQ(scratch().restoreFromScratch(traces[0].get()), 0);
    EXPECT_EQ(traces[0]->traceOffset, 0);
    EXPECT_EQ(traces[0]->traceSamples, nullptr);
    EXPECT_EQ(traces[0]->traceHeader, nullptr);
    EXPECT_EQ(host.textsOfType(3).size(), 1u);
}

// A set that pages its only other trace reports, and survives, what the directory refuses.
TEST_F(ScratchFaultTest, SetWithoutAScratchDirectoryKeepsWorking)
{
    setLimit(1);
    const ScopedEnvironment none("VORN_SCRATCH", nullptr);
    Owning<SeisTraceSet> set;
    set.setTraceLength(4);
    for (int i = 0; i < 10; ++i)
        set.setAttribute("number", UniVar(i), i);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(set.getAttribute("number", i).getI32Value(), i);
}

// How many bytes of the file are there when it takes no more, from none to the end of a record.
TEST_F(ScratchFaultTest, WriteThatFailsHalfWayLeavesTheTraceUnharmed)
{
    for (int bytes = 0; bytes <= 3 * recordSize; bytes += 4) {
        SCOPED_TRACE(bytes);
        traces.clear();
        renewSingletons();
        installRecorder();
        setLimit(2);
        {
            const FileSizeLimit full(static_cast<rlim_t>(bytes));
            touchNew(6);
        }
        size_t pagedOut = 0;
        for (const OwnedTrace& trace : traces) {
            if (isResident(*trace))
                EXPECT_EQ(differsFromFill(*trace, seeds.at(trace.get())), "");
            else
                ++pagedOut;
        }
        EXPECT_EQ(pagedOut, static_cast<size_t>(bytes / recordSize));
        EXPECT_EQ(order().size(), 2u);
        EXPECT_EQ(overlaps(), "");

        touchNew(3);
        expectAllWhole();
    }
}

TEST_F(ScratchFaultTest, FreePlaceIsStillFreeAfterAFailedAttempt)
{
    setLimit(1);
    touchNew(3);
    destroy(traces[0].get());
    ASSERT_THAT(freeOf(recordSize), ElementsAre(0));
    {
        const FileSizeLimit full(10);
        touch(newTrace(3));
    }
    SeisTrace* next = traces.back().get();
    touch(newTrace(4));
    EXPECT_EQ(next->traceOffset, 0);
    EXPECT_EQ(damaged(), "");
}

TEST_F(ScratchFaultTest, FailedRecordsPlaceIsNotAppendedAcross)
{
    for (const int failedSamples : {10, 100, 5}) {
        for (const int nextSamples : {3, 10, 100, 1000}) {
            SCOPED_TRACE(std::to_string(failedSamples) + " then " + std::to_string(nextSamples));
            traces.clear();
            renewSingletons();
            installRecorder();
            setLimit(1);
            SeisTrace* failed = touch(newTrace(1, failedSamples));
            {
                const FileSizeLimit full(20);
                touch(newTrace(2, nextSamples));
            }
            ASSERT_EQ(differsFromFill(*failed, 1), "");
            ASSERT_EQ(failed->traceOffset, -1);

            touch(newTrace(3, nextSamples));
            touch(failed);
            touch(newTrace(4, nextSamples));
            touch(newTrace(5, failedSamples));
            EXPECT_EQ(overlaps(), "");
            EXPECT_EQ(damaged(), "");
        }
    }
}

TEST_F(ScratchFaultTest, FailureInTheMiddleOfTheFileSparesTheNeighbours)
{
    setLimit(1);
    touchNew(5);
    const int64_t hole = traces[1]->traceOffset;
    ASSERT_EQ(hole, recordSize);
    SeisTrace* moved = touch(traces[1].get());
    ASSERT_EQ(traces[4]->traceOffset, hole);
    touch(traces[4].get());
    ASSERT_EQ(moved->traceOffset, hole);
    touch(moved);
    ASSERT_EQ(traces[4]->traceOffset, hole);
    touch(traces[4].get());
    {
        // Records before the limit can be written, the one across it cannot.
        const FileSizeLimit full(static_cast<rlim_t>(hole + 10));
        touch(traces[0].get());
        touch(traces[4].get());
        touch(traces[3].get());
    }
    EXPECT_EQ(overlaps(), "");
    expectAllWhole();
}

TEST_F(ScratchFaultTest, PagedInTraceSurvivesWhenItCannotGoOutAgain)
{
    setLimit(1);
    touchNew(4);
    {
        const FileSizeLimit full(0);
        for (const OwnedTrace& trace : traces)
            touch(trace.get());
        for (const OwnedTrace& trace : traces)
            EXPECT_TRUE(isResident(*trace));
    }
    expectAllWhole();
}

TEST_F(ScratchFaultTest, DestroyingDuringTheFaultLeavesTheRestWhole)
{
    setLimit(1);
    touchNew(6);
    {
        const FileSizeLimit full(2 * recordSize + 7);
        touch(traces[3].get());
        touch(traces[1].get());
        traces.pop_back();
        touch(traces[4].get());
    }
    touchNew(4);
    expectAllWhole();
}

TEST_F(ScratchManagerTest, TouchingCostsTheSameWithManyTracesResident)
{
    const auto costPerTouch = [&](int resident, bool reverse) {
        setLimit(resident);
        traces.clear();
        for (int i = 0; i < resident; ++i)
            touch(newTrace(0, 0, 0));
        constexpr int touches = 20000;
        // Always the least recently touched one; or the latest first, each deeper than the one
        // before.
        return fastestRun([] {},
                          [&] {
                              for (int i = 0; i < touches; ++i) {
                                  const int at = i % resident;
                                  const int traceNo = reverse ? resident - 1 - at : at;
                                  touch(traces[static_cast<size_t>(traceNo)].get());
                              }
                          });
    };
    for (const bool reverse : {false, true}) {
        const double few = costPerTouch(1000, reverse);
        const double many = costPerTouch(100000, reverse);
        EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
    }
}

TEST_F(ScratchManagerTest, DestroyingCostsTheSameWithManyTracesResident)
{
    const auto costPerTrace = [&](int resident) {
        setLimit(resident);
        return fastestRun(
                   [&] {
                       for (int i = 0; i < resident; ++i)
                           touch(newTrace(0, 0, 0));
                   },
                   [&] { traces.clear(); }) /
               resident;
    };
    const double few = costPerTrace(1000);
    const double many = costPerTrace(100000);
    EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
}

TEST_F(ScratchManagerTest, PagingCostsTheSameWithManyRecordsInTheFile)
{
    const auto costPerTouch = [&](int paged) {
        setLimit(1);
        traces.clear();
        for (int i = 0; i < paged; ++i)
            touch(newTrace(0, 1, 0));
        constexpr int touches = 2000;
        return fastestRun(
            [] {},
            [&] {
                for (int i = 0; i < touches; ++i)
                    touch(traces[static_cast<size_t>(i) * 7919 % static_cast<size_t>(paged)].get());
            });
    };
    const double few = costPerTouch(500);
    const double many = costPerTouch(50000);
    EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
}

TEST_F(ScratchManagerTest, AppendingCostsTheSameWithManyFreePositionsOfAFormerFile)
{
    const auto costPerRecord = [&](int freed) {
        constexpr int appended = 2000;
        return fastestRun(
            [&] {
                traces.clear();
                renewSingletons();
                setLimit(1);
                // Free records with gaps between them: every other trace is still there.
                std::vector<SeisTrace*> every;
                for (int i = 0; i < 2 * freed; ++i)
                    every.push_back(touch(newTrace(0, 1, 0)));
                std::vector<OwnedTrace> kept;
                for (size_t i = 0; i < traces.size(); i += 2)
                    kept.push_back(std::move(traces[i]));
                traces = std::move(kept);
                scratch().deleteScratch();
                setLimit(2);
                touch(newTrace(0, 2, 0));
                scratch().checkScratchFile();
            },
            [&] {
                for (int i = 0; i < appended; ++i)
                    touch(newTrace(0, 2 + i % 3, 0));
            });
    };
    const double few = costPerRecord(200);
    const double many = costPerRecord(20000);
    EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
}

} // namespace
