// Accounted memory: what the job and its modules are charged for blocks, and the maps of blocks.
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "SeisTrace.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <malloc.h>
#include <map>
#include <set>
#include <stdexcept>
#include <vector>

// A heap under the address sanitizer ends the process at a request that is too large, unless told
// to refuse it as other heaps do.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Pair;

using Blocks = std::map<void*, int>;

// Addresses without owners, for accounts without blocks.
void* address(uintptr_t number)
{
    return reinterpret_cast<void*>(number);
}

std::vector<std::pair<void*, int>> contentOf(const BlockMap& map)
{
    return {map.begin(), map.end()};
}

// Modules `a` and `b` are of the job and `stranger` is not; no module is active.
class MemoryTest : public KernelFixture
{
protected:
    MemoryTest() { job().jobModules = {a, b}; }

    ~MemoryTest() override
    {
        for (void* block : blocks)
            std::free(block);
    }

    // A block taken while `active` (or no module) is the active module; freed at the end of the
    // test unless `release` frees it.
    void* take(int size, ModuleEntity* active)
    {
        job().setActiveModule(active);
        void* block = job().allocateResource(size);
        if (block != nullptr)
            blocks.insert(block);
        return block;
    }

    void release(void* block)
    {
        blocks.erase(block);
        job().freeResource(block);
    }

    ModuleEntity* const a = new ModuleEntity("a"); // owned by the job
    ModuleEntity* const b = new ModuleEntity("b");
    ModuleEntity stranger{"stranger"};

private:
    std::set<void*> blocks;
};

// ----------------------------------------------------------------------------------- allocation

TEST_F(MemoryTest, ABlockThatAModuleHasShrunkIsNotTakenForItsFormerSize)
{
    void* block = job().allocateResource(50000);
    const auto former = reinterpret_cast<uintptr_t>(block);
    void* shrunk = std::realloc(block, 100);
    if (reinterpret_cast<uintptr_t>(shrunk) != former) {
        std::free(shrunk);
        GTEST_SKIP() << "this heap moves what it shrinks";
    }
    job().freeResource(shrunk);

    void* next = job().allocateResource(50000);
    EXPECT_GE(malloc_usable_size(next), 50000u);
    job().freeResource(next);
}

TEST_F(MemoryTest, BlockIsZeroFilled)
{
    for (int size : {1, 7, 100, 4096, 300000}) {
        // Dirty memory of that size, which the heap likes to hand out again.
        void* const dirty = std::malloc(static_cast<std::size_t>(size));
        std::memset(dirty, 0x5a, static_cast<std::size_t>(size));
        std::free(dirty);

        const auto* const block = static_cast<unsigned char*>(take(size, nullptr));
        ASSERT_NE(block, nullptr);
        EXPECT_TRUE(std::all_of(block, block + size, [](unsigned char c) { return c == 0; }))
            << size;
    }
}

TEST_F(MemoryTest, BlockIsChargedToTheJobAndTheActiveModule)
{
    void* const block = take(100, a);
    EXPECT_EQ(job().totalJobMemoryUsed, 100);
    EXPECT_THAT(contentOf(job().jobMemoryMap), ElementsAre(Pair(block, 100)));
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
    EXPECT_THAT(contentOf(a->moduleMemoryMap), ElementsAre(Pair(block, 100)));
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);
    EXPECT_TRUE(b->moduleMemoryMap.empty());
    EXPECT_THAT(host.messages, IsEmpty());
}

TEST_F(MemoryTest, WithoutAnActiveModuleOnlyTheJobIsCharged)
{
    void* const block = take(100, nullptr);
    EXPECT_EQ(job().totalJobMemoryUsed, 100);
    EXPECT_THAT(contentOf(job().jobMemoryMap), ElementsAre(Pair(block, 100)));
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);

    release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);
}

TEST_F(MemoryTest, BlocksAddUp)
{
    take(100, a);
    take(20, b);
    take(3, a);
    take(1000, nullptr);
    EXPECT_EQ(job().totalJobMemoryUsed, 1123);
    EXPECT_EQ(job().jobMemoryMap.size(), 4u);
    EXPECT_EQ(a->totalModuleMemoryUsed, 103);
    EXPECT_EQ(a->moduleMemoryMap.size(), 2u);
    EXPECT_EQ(b->totalModuleMemoryUsed, 20);
    EXPECT_EQ(b->moduleMemoryMap.size(), 1u);
}

TEST_F(MemoryTest, BlockTakenInsideOfAnEntryPointIsChargedToItsModule)
{
    ProbeModule probe("probe");
    void* block = nullptr;
    probe.pre = [&] { block = take(64, job().getActiveModule()); };
    probe.entity->preProcessModule();
    EXPECT_EQ(probe.entity->totalModuleMemoryUsed, 64);
    EXPECT_EQ(probe.entity->moduleMemoryMap.at(block), 64);
}

TEST_F(MemoryTest, RefusedBlockIsReportedAndNotRecorded)
{
    const struct
    {
        int size;
        const char* text;
    } rows[] = {
        {-1, "Can not allocate -1 byte memory block"},
        {-1000000, "Can not allocate -1000000 byte memory block"},
        {INT_MIN, "Can not allocate -2147483648 byte memory block"},
    };
    for (const auto& row : rows) {
        for (ModuleEntity* active : {a, static_cast<ModuleEntity*>(nullptr)}) {
            SCOPED_TRACE(row.text);
            host.messages.clear();
            EXPECT_EQ(take(row.size, active), nullptr);
            ASSERT_EQ(host.messages.size(), 1u);
            EXPECT_EQ(host.messages[0].type, 4);
            EXPECT_EQ(host.messages[0].text, row.text);
            EXPECT_EQ(host.messages[0].moduleName, active != nullptr ? "a" : "Kernel");
            EXPECT_EQ(job().totalJobMemoryUsed, 0);
            EXPECT_TRUE(job().jobMemoryMap.empty());
            EXPECT_EQ(a->totalModuleMemoryUsed, 0);
            EXPECT_TRUE(a->moduleMemoryMap.empty());
        }
    }
}

TEST_F(MemoryTest, BlockOfNoBytesIsWhatTheHeapMakesOfIt)
{
    void* const block = take(0, a);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    if (block == nullptr) {
        EXPECT_THAT(host.texts(), ElementsAre("Can not allocate 0 byte memory block"));
        EXPECT_TRUE(job().jobMemoryMap.empty());
        return;
    }
    EXPECT_THAT(host.messages, IsEmpty());
    EXPECT_THAT(contentOf(job().jobMemoryMap), ElementsAre(Pair(block, 0)));
    EXPECT_THAT(contentOf(a->moduleMemoryMap), ElementsAre(Pair(block, 0)));
    release(block);
    EXPECT_TRUE(job().jobMemoryMap.empty());
    EXPECT_TRUE(a->moduleMemoryMap.empty());
}

TEST_F(MemoryTest, TotalsWrapAround)
{
    job().totalJobMemoryUsed = INT_MAX - 9;
    a->totalModuleMemoryUsed = INT_MAX;
    void* const block = take(100, a);
    EXPECT_EQ(job().totalJobMemoryUsed, INT_MIN + 90);
    EXPECT_EQ(a->totalModuleMemoryUsed, INT_MIN + 99);

    release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, INT_MAX - 9);
    EXPECT_EQ(a->totalModuleMemoryUsed, INT_MAX);
}

// -------------------------------------------------------------------------------------- freeing

TEST_F(MemoryTest, FreedBlockIsUnchargedFromJobAndModule)
{
    void* const kept = take(7, a);
    void* const block = take(100, a);
    release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, 7);
    EXPECT_THAT(contentOf(job().jobMemoryMap), ElementsAre(Pair(kept, 7)));
    EXPECT_EQ(a->totalModuleMemoryUsed, 7);
    EXPECT_THAT(contentOf(a->moduleMemoryMap), ElementsAre(Pair(kept, 7)));
}

TEST_F(MemoryTest, BlockIsUnchargedFromTheModuleThatHoldsItWhoeverIsActive)
{
    for (ModuleEntity* active : {a, b, static_cast<ModuleEntity*>(nullptr)}) {
        void* const block = take(100, a);
        void* const other = take(30, b);
        job().setActiveModule(active);
        release(block);
        EXPECT_EQ(a->totalModuleMemoryUsed, 0);
        EXPECT_EQ(b->totalModuleMemoryUsed, 30);
        EXPECT_EQ(job().getActiveModule(), active);
        release(other);
    }
}

TEST_F(MemoryTest, BlockIsUnchargedFromEveryModuleOfTheJobThatListsIt)
{
    void* const block = take(100, a);
    b->calcAllocateResource(block, 40);
    release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);
    EXPECT_TRUE(a->moduleMemoryMap.empty());
    EXPECT_TRUE(b->moduleMemoryMap.empty());
}

TEST_F(MemoryTest, ModuleOutsideTheJobKeepsItsCharge)
{
    void* const block = take(100, &stranger);
    EXPECT_EQ(stranger.totalModuleMemoryUsed, 100);
    release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(stranger.totalModuleMemoryUsed, 100);
    EXPECT_EQ(stranger.moduleMemoryMap.count(block), 1u);
}

TEST_F(MemoryTest, JoiningAndLeavingTheJobDecidesAtFreeing)
{
    void* const joined = take(100, &stranger);
    void* const left = take(20, b);
    job().jobModules = {a, &stranger};
    release(joined);
    release(left);
    EXPECT_EQ(stranger.totalModuleMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 20);
    job().jobModules = {a, b};
}

TEST_F(MemoryTest, OrderOfTheJobDoesNotMatter)
{
    void* const ofA = take(100, a);
    void* const ofB = take(20, b);
    std::reverse(job().jobModules.begin(), job().jobModules.end());
    release(ofA);
    release(ofB);
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);
}

// ------------------------------------------------------------------------- the blocks of a trace

// Header and samples of `trace` are charged to `holder` (null: to the job alone), and to nobody
// else is anything.
void expectChargedTo(const ModuleEntity* holder, const SeisTrace& trace,
                     const std::vector<const ModuleEntity*>& modules)
{
    const Blocks expected = {{trace.traceSamples, trace.traceLength * 4},
                             {trace.traceHeader, trace.traceHeaderSize}};
    const int bytes = trace.getTraceMemorySize();
    EXPECT_EQ(JobManager::getInstance()->totalJobMemoryUsed, bytes);
    EXPECT_EQ(Blocks(JobManager::getInstance()->jobMemoryMap), expected);
    for (const ModuleEntity* module : modules) {
        EXPECT_EQ(module->totalModuleMemoryUsed, module == holder ? bytes : 0);
        EXPECT_EQ(Blocks(module->moduleMemoryMap), module == holder ? expected : Blocks());
    }
}

TEST_F(MemoryTest, TraceIsChargedToTheModuleThatMakesItWhoeverMadeTheOneBefore)
{
    for (ModuleEntity* maker : {a, b, static_cast<ModuleEntity*>(nullptr), a, &stranger}) {
        job().setActiveModule(maker);
        auto* const trace = new SeisTrace(100, 80);
        expectChargedTo(maker, *trace, {a, b, &stranger});
        std::memset(trace->traceSamples, 0x5a, 400);
        std::memset(trace->traceHeader, 0x5a, 80);
        job().setActiveModule(a);
        if (maker != &stranger) {
            delete trace;
            expectChargedTo(a, SeisTrace(100, 80), {a, b, &stranger});
        } else { // which keeps its charge
            delete trace;
            EXPECT_EQ(stranger.totalModuleMemoryUsed, 480);
            EXPECT_EQ(stranger.moduleMemoryMap.size(), 2u);
        }
        EXPECT_EQ(job().totalJobMemoryUsed, 0);
        EXPECT_TRUE(job().jobMemoryMap.empty());
    }
}

TEST_F(MemoryTest, TraceOfReusedBlocksIsAllZeros)
{
    for (int i = 0; i < 3; ++i) {
        SeisTrace trace(100, 80);
        EXPECT_TRUE(std::all_of(trace.traceSamples, trace.traceSamples + 100,
                                [](float sample) { return sample == 0; }));
        EXPECT_TRUE(std::all_of(trace.traceHeader, trace.traceHeader + 80,
                                [](unsigned char byte) { return byte == 0; }));
        std::memset(trace.traceSamples, 0x5a, 400);
        std::memset(trace.traceHeader, 0x5a, 80);
    }
}

TEST_F(MemoryTest, BlocksOfATraceThatTwoModulesHoldAreUnchargedFromBoth)
{
    job().setActiveModule(a);
    auto* const trace = new SeisTrace(100, 64);
    job().setActiveModule(b);
    trace->expandHeader(100);
    EXPECT_EQ(a->totalModuleMemoryUsed, 400);
    EXPECT_EQ(b->totalModuleMemoryUsed, 128);
    delete trace;
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_TRUE(a->moduleMemoryMap.empty());
    EXPECT_TRUE(b->moduleMemoryMap.empty());
}

TEST_F(MemoryTest, TraceWithASingleBlockGivesThatOneBack)
{
    auto* const trace = new SeisTrace(100, 80);
    job().freeResource(trace->traceHeader);
    trace->traceHeader = nullptr;
    EXPECT_EQ(job().totalJobMemoryUsed, 400);
    delete trace;
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(MemoryTest, SamplesThatAModuleHasShrunkAreNotTakenForTheirFormerSize)
{
    auto* const trace = new SeisTrace(20000, 80);
    const auto former = reinterpret_cast<uintptr_t>(trace->traceSamples);
    void* shrunk = std::realloc(trace->traceSamples, 100);
    trace->traceSamples = static_cast<float*>(shrunk);
    delete trace;
    if (reinterpret_cast<uintptr_t>(shrunk) != former)
        GTEST_SKIP() << "this heap moves what it shrinks";

    const SeisTrace next(20000, 80);
    EXPECT_GE(malloc_usable_size(next.traceSamples), 80000u);
}

TEST_F(MemoryTest, BlocksOfDeletedTracesAreEnteredAnewWhenTheTableHasGrown)
{
    job().setActiveModule(a);
    delete new SeisTrace(100, 80);
    std::vector<void*> many(5000); // enough for several sizes of the table
    for (void*& block : many)
        block = take(3, nullptr);
    for (void* block : many)
        release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);

    job().setActiveModule(b);
    auto* const trace = new SeisTrace(100, 80);
    expectChargedTo(b, *trace, {a, b, &stranger});
    delete trace;
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);
}

// In 32 bits both are 100 samples.
TEST_F(MemoryTest, TraceOfAnAbsurdLengthGetsNoBlocksOfADeletedOne)
{
    for (const int length : {(1 << 30) + 100, 100 - (1 << 30)}) {
        delete new SeisTrace(100, 80);
        const SeisTrace trace(length, 80);
        EXPECT_EQ(trace.traceSamples, nullptr) << length;
        EXPECT_EQ(job().totalJobMemoryUsed, 80) << length;
    }
    EXPECT_EQ(host.messages.size(), 2u);
}

TEST_F(MemoryTest, UnknownBlockIsFreedAndChangesNoTotal)
{
    take(100, a);
    job().freeResource(std::malloc(50)); // a leak if it were not
    EXPECT_EQ(job().totalJobMemoryUsed, 100);
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
    EXPECT_EQ(job().jobMemoryMap.size(), 1u);
}

TEST_F(MemoryTest, NullCanBeFreed)
{
    take(100, a);
    job().freeResource(nullptr);
    EXPECT_EQ(job().totalJobMemoryUsed, 100);
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
}

TEST_F(MemoryTest, BlockOfADeletedModuleStaysTheJobs)
{
    void* const block = take(100, b);
    job().setActiveModule(nullptr);
    job().jobModules = {a};
    delete b;
    EXPECT_EQ(job().totalJobMemoryUsed, 100);
    EXPECT_EQ(job().jobMemoryMap.at(block), 100);
    release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(MemoryTest, BlocksThatModulesKeepAreStillTheJobsAfterPostProcessing)
{
    ProbeModule probe("probe");
    void* freed = nullptr;
    void* kept = nullptr;
    probe.pre = [&] {
        kept = take(100, probe.entity);
        freed = take(20, probe.entity);
    };
    probe.post = [&] { release(freed); };
    job().jobModules = {probe.entity};
    job().preProcessJob();
    job().processJob();
    job().postProcessJob();

    EXPECT_EQ(job().totalJobMemoryUsed, 100);
    EXPECT_THAT(contentOf(job().jobMemoryMap), ElementsAre(Pair(kept, 100)));
    release(kept);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    job().jobModules = {a, b};
}

TEST_F(MemoryTest, NewManagerDoesNotKnowTheBlocksOfTheFormerOne)
{
    void* const block = take(100, nullptr);
    job().jobModules.clear();
    renewSingletons();
    job().jobModules = {a, b};
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(job().jobMemoryMap.count(block), 0u);
    release(block);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

// --------------------------------------------------------------------------- a module's account

TEST_F(MemoryTest, ChargingAModuleReturnsTheBlockAndDoesNotTouchTheJob)
{
    void* const block = address(0x1000);
    EXPECT_EQ(a->calcAllocateResource(block, 100), block);
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
    EXPECT_THAT(contentOf(a->moduleMemoryMap), ElementsAre(Pair(block, 100)));
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_TRUE(job().jobMemoryMap.empty());

    a->calcFreeResource(block);
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_TRUE(a->moduleMemoryMap.empty());
}

TEST_F(MemoryTest, UnchargingABlockThatTheModuleDoesNotListDoesNothing)
{
    a->calcAllocateResource(address(0x1000), 100);
    a->calcFreeResource(address(0x1001));
    a->calcFreeResource(nullptr);
    b->calcFreeResource(address(0x1000));
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
    EXPECT_EQ(a->moduleMemoryMap.size(), 1u);
    EXPECT_EQ(b->totalModuleMemoryUsed, 0);
}

TEST_F(MemoryTest, BlockIsUnchargedOnce)
{
    a->calcAllocateResource(address(0x1000), 100);
    a->calcAllocateResource(address(0x2000), 100);
    a->calcFreeResource(address(0x1000));
    a->calcFreeResource(address(0x1000));
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
}

TEST_F(MemoryTest, AddressThatComesAgainOverwritesItsStaleEntry)
{
    a->calcAllocateResource(address(0x1000), 100);
    a->calcAllocateResource(address(0x1000), 30);
    EXPECT_THAT(contentOf(a->moduleMemoryMap), ElementsAre(Pair(address(0x1000), 30)));
    EXPECT_EQ(a->totalModuleMemoryUsed, 130) << "what was lost stays counted";

    a->calcFreeResource(address(0x1000));
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
    EXPECT_TRUE(a->moduleMemoryMap.empty());
}

TEST_F(MemoryTest, StaleEntryOfAnotherModuleIsLeftToIt)
{
    a->calcAllocateResource(address(0x1000), 100);
    b->calcAllocateResource(address(0x1000), 30);
    EXPECT_EQ(a->moduleMemoryMap.at(address(0x1000)), 100);
    EXPECT_EQ(b->moduleMemoryMap.at(address(0x1000)), 30);
    a->calcFreeResource(address(0x1000));
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_EQ(b->totalModuleMemoryUsed, 30);
}

TEST_F(MemoryTest, SizesOfAnyKindAreChargedAndWrap)
{
    const struct
    {
        int before;
        int size;
        int during;
    } rows[] = {
        {0, -100, -100},       {INT_MAX, 1, INT_MIN}, {INT_MIN, -1, INT_MAX},
        {0, INT_MAX, INT_MAX}, {0, INT_MIN, INT_MIN}, {-1, INT_MIN, INT_MAX},
    };
    for (const auto& row : rows) {
        a->totalModuleMemoryUsed = row.before;
        a->calcAllocateResource(address(0x1000), row.size);
        EXPECT_EQ(a->totalModuleMemoryUsed, row.during) << row.before << " + " << row.size;
        a->calcFreeResource(address(0x1000));
        EXPECT_EQ(a->totalModuleMemoryUsed, row.before) << row.before << " + " << row.size;
    }
}

TEST_F(MemoryTest, NullIsAnAddressLikeOthersForAModulesAccount)
{
    EXPECT_EQ(a->calcAllocateResource(nullptr, 100), nullptr);
    EXPECT_EQ(a->totalModuleMemoryUsed, 100);
    EXPECT_THAT(contentOf(a->moduleMemoryMap), ElementsAre(Pair(nullptr, 100)));
    a->calcFreeResource(nullptr);
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_TRUE(a->moduleMemoryMap.empty());

    a->calcAllocateResource(nullptr, 100);
    job().freeResource(nullptr);
    EXPECT_EQ(a->totalModuleMemoryUsed, 0);
    EXPECT_TRUE(a->moduleMemoryMap.empty());
}

// -------------------------------------------------------------------------------- maps of blocks

class BlockMapTest : public MemoryTest
{
protected:
    // Addresses in no order, some of them neighbours, and their sizes.
    BlockMapTest()
    {
        for (uintptr_t number :
             {0x7000, 0x10, 0x6fff, 0x7001, 0x123450, 0x11, 0x20, 0x7010, 0x6ff0}) {
            listed[address(number)] = static_cast<int>(number) + 5;
            a->calcAllocateResource(address(number), static_cast<int>(number) + 5);
        }
    }

    Blocks listed;
    const BlockMap& map = a->moduleMemoryMap;
};

TEST_F(BlockMapTest, IterationIsInAscendingOrderOfAddresses)
{
    EXPECT_THAT(contentOf(map), ElementsAreArray(listed.begin(), listed.end()));
}

TEST_F(BlockMapTest, EmptyMapHasNothing)
{
    const BlockMap& empty = b->moduleMemoryMap;
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.size(), 0u);
    EXPECT_TRUE(empty.begin() == empty.end());
    EXPECT_TRUE(empty.find(address(0x10)) == empty.end());
    EXPECT_EQ(empty.count(address(0x10)), 0u);
}

TEST_F(BlockMapTest, SizeIsTheNumberOfBlocks)
{
    EXPECT_EQ(map.size(), listed.size());
    EXPECT_FALSE(map.empty());
    a->calcFreeResource(address(0x10));
    EXPECT_EQ(map.size(), listed.size() - 1);
}

TEST_F(BlockMapTest, BlockIsFoundWithItsSize)
{
    for (const auto& [block, size] : listed) {
        EXPECT_EQ(map.count(block), 1u);
        EXPECT_EQ(map.at(block), size);
        const auto found = map.find(block);
        ASSERT_FALSE(found == map.end());
        EXPECT_EQ(found->first, block);
        EXPECT_EQ((*found).second, size);
    }
}

TEST_F(BlockMapTest, BlockThatIsNotListedIsNotFound)
{
    for (uintptr_t number : {0x12, 0x1, 0x7002, 0x123451, 0x0}) {
        EXPECT_EQ(map.count(address(number)), 0u) << number;
        EXPECT_TRUE(map.find(address(number)) == map.end()) << number;
        EXPECT_THROW(map.at(address(number)), std::out_of_range) << number;
    }
}

TEST_F(BlockMapTest, SizeIsReadByAddress)
{
    EXPECT_EQ(map[address(0x7001)], 0x7006);
    EXPECT_TRUE(map.contains(address(0x7001)));
    EXPECT_EQ(map[address(0x12)], 0) << "a block that is not listed";
    EXPECT_FALSE(map.contains(address(0x12)));
    EXPECT_EQ(map.size(), listed.size()) << "reading lists nothing";
}

TEST_F(BlockMapTest, BlocksAreCopiedIntoAPlainMap)
{
    const std::map<void*, int> copy = map;
    EXPECT_EQ(copy, listed);
}

TEST_F(BlockMapTest, IterationGoesOnFromABlockThatWasFound)
{
    for (auto expected = listed.begin(); expected != listed.end(); ++expected) {
        const std::vector<std::pair<void*, int>> rest(map.find(expected->first), map.end());
        EXPECT_THAT(rest, ElementsAreArray(expected, listed.end()));
    }
}

TEST_F(BlockMapTest, FoundAndIteratedPlacesAreEqual)
{
    auto place = map.begin();
    for (const auto& [block, size] : listed) {
        EXPECT_TRUE(place == map.find(block));
        EXPECT_FALSE(place != map.find(block));
        EXPECT_TRUE(place != map.end());
        ++place;
    }
    EXPECT_TRUE(place == map.end());
}

TEST_F(BlockMapTest, TotalIsTheSumOfTheSizes)
{
    int sum = 0;
    for (const auto& [block, size] : map)
        sum += size;
    EXPECT_EQ(sum, a->totalModuleMemoryUsed);
}

} // namespace
