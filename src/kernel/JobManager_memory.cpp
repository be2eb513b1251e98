// Accounted memory: every block is charged to the job and to the module that was active when it was
// taken, and uncharged from every holder that lists it when it is freed.
#include "JobManager.h"

#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "kernel_messages.h"
#include "private/BlockBytes.h"
#include "private/BlockHeap.h"
#include "private/BlockTable.h"
#include "private/JobRun.h"
#include "private/SpareBlocks.h"
#include "private/wrapping.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

// Apart from the allocation, which would make room for the texts every time.
[[gnu::noinline, gnu::cold]] void reportNoMemory(int size)
{
    JobManager::getInstance()->sendMessage(4, kernel_messages::canNotAllocate +
                                                  std::to_string(size) +
                                                  kernel_messages::byteMemoryBlock);
}

constinit SpareBlocks spareBlocks;

// Modules may have shrunk a block with realloc: only the heap knows what is there.
bool isWhole(void* block, int size)
{
    return malloc_usable_size(block) >= static_cast<std::size_t>(size);
}

// Keeps a block of the kernel's own, which no holder lists any more, or frees it.
void keepOrDiscard(AccountedBlock block, int size)
{
    if (!isWhole(block.address, size) || !spareBlocks.keep(block, static_cast<std::size_t>(size)))
        SpareBlocks::discard(block);
}

[[gnu::noinline]] void keepOrDiscard(const TraceBlocks& both, int sampleBytes, int headerBytes)
{
    const AccountedBlock samples = both.samples;
    keepOrDiscard(both.header, headerBytes);
    keepOrDiscard(samples, sampleBytes);
}

} // namespace

void* JobManager::allocateResource(int size)
{
    void* block = allocateUncleared(size).address;
    // Here and not right after malloc: the compiler would make one calloc of the two, which goes
    // past the heap's quickest lists and costs a trace on its way a third more.
    if (block == nullptr)
        return nullptr;
    blocks::clear(block, static_cast<std::size_t>(size));
    if (JobRun::isAsked(JobRun::releasesMemory) && activeModule != nullptr)
        noteBlock(block);
    return block;
}

AccountedBlock JobManager::allocateUncleared(int size)
{
    if (heap::isGuarded())
        return enterBlock(nullptr, size);
    BlockTable& table = BlockTable::instance();
    const AccountedBlock spare = spareBlocks.take(static_cast<std::size_t>(size));
    BlockTable::Entry* entry = table.idleEntry(spare.place, spare.address);
    if (entry == nullptr)
        return enterBlock(spare.address, size);
    table.reenter(*entry, &jobMemoryMap, activeModuleMap());
    chargeActive(size);
    return spare;
}

bool JobManager::reuseTraceBlocks(SeisTrace& trace, int sampleBytes, int headerBytes)
{
    if (heap::isGuarded())
        return false;
    const TraceBlocks* spare =
        spareBlocks.take(static_cast<uint32_t>(sampleBytes), static_cast<uint32_t>(headerBytes));
    if (spare == nullptr)
        return false;
    BlockTable& table = BlockTable::instance();
    BlockTable::Entry* const samples =
        table.idleEntry(spare->samples.place, spare->samples.address);
    BlockTable::Entry* const header = table.idleEntry(spare->header.place, spare->header.address);
    if (samples == nullptr || header == nullptr) [[unlikely]] {
        // The table has changed its size since: they are entered anew when they are next taken.
        keepOrDiscard(*spare, sampleBytes, headerBytes);
        return false;
    }
    table.reenter(*samples, *header, jobMemoryMap, activeModuleMap());
    chargeActive(wrapping::sum(sampleBytes, headerBytes));
    trace.traceSamples = static_cast<float*>(spare->samples.address);
    trace.samplesPlace = spare->samples.place;
    trace.traceHeader = static_cast<unsigned char*>(spare->header.address);
    trace.headerPlace = spare->header.place;
    return true;
}

// A block that the table does not list, from the heap where there is none yet.
AccountedBlock JobManager::enterBlock(void* block, int size)
{
    // A negative size is a huge request for the heap, which refuses it.
    if (block == nullptr)
        block = heap::take(static_cast<std::size_t>(size));
    if (block != nullptr) {
        try {
            const uint32_t place = BlockTable::instance().enter(block, size, &jobMemoryMap,
                                                                activeModuleMap(), BlockTable::own);
            chargeActive(size);
            return {block, place};
        } catch (const std::bad_alloc&) { // the table has no room for it
            heap::give(block);
        }
    }
    reportNoMemory(size);
    return {nullptr, BlockTable::nowhere};
}

inline BlockMap* JobManager::activeModuleMap() const
{
    return activeModule != nullptr ? &activeModule->moduleMemoryMap : nullptr;
}

inline void JobManager::chargeActive(int size)
{
    totalJobMemoryUsed = wrapping::sum(totalJobMemoryUsed, size);
    if (activeModule != nullptr)
        activeModule->totalModuleMemoryUsed =
            wrapping::sum(activeModule->totalModuleMemoryUsed, size);
}

// Modules keep their place in the job, so that freeing a block does not search them.
inline bool JobManager::isOfJob(ModuleEntity* module) const
{
    const std::size_t place = static_cast<std::size_t>(module->jobIndex);
    return (place < jobModules.size() && jobModules[place] == module) || isFoundInJob(module);
}

bool JobManager::isFoundInJob(ModuleEntity* module) const
{
    const auto found = std::find(jobModules.begin(), jobModules.end(), module);
    if (found == jobModules.end())
        return false;
    module->jobIndex = static_cast<int>(found - jobModules.begin());
    return true;
}

// Traces take theirs otherwise, and end with their sets.
void JobManager::noteBlock(void* block)
{
    try {
        JobRun::of(*this).blocks.insert(block);
    } catch (const std::bad_alloc&) { // the module itself may still free it
    }
}

void JobManager::freeResource(void* ptr)
{
    if (JobRun::isAsked(JobRun::releasesMemory))
        JobRun::of(*this).blocks.erase(ptr);
    freeBlock({ptr, BlockTable::nowhere});
}

void JobManager::freeBlock(const AccountedBlock& block)
{
    BlockTable& table = BlockTable::instance();
    BlockTable::Entry* entry = table.soleEntry(block.place, block.address);
    if (entry == nullptr || !BlockTable::lists(jobMemoryMap, *entry)) {
        freeListed(block.address);
        return;
    }
    ModuleEntity* module = table.moduleOf(*entry);
    if (module != nullptr && !isOfJob(module)) {
        freeListed(block.address);
        return;
    }

    const int size = entry->size;
    totalJobMemoryUsed = wrapping::difference(totalJobMemoryUsed, size);
    table.removeJob(*entry);
    if (module != nullptr) {
        module->totalModuleMemoryUsed = wrapping::difference(module->totalModuleMemoryUsed, size);
        table.removeModule(*entry);
    }
    const AccountedBlock spare{block.address, table.placeOf(*entry)};
    if (heap::isGuarded()) {
        if (BlockTable::Entry* idle = table.idleEntry(spare.place, spare.address))
            table.drop(*idle);
        heap::give(spare.address);
        return;
    }
    keepOrDiscard(spare, size);
}

void JobManager::freeTraceBlocks(const SeisTrace& trace)
{
    if (freeTogether(trace))
        return;
    if (trace.traceHeader != nullptr)
        freeBlock({trace.traceHeader, trace.headerPlace});
    if (trace.traceSamples != nullptr)
        freeBlock({trace.traceSamples, trace.samplesPlace});
}

// The blocks of a trace as they were taken: the job lists both, and so does one of its modules or
// none. False, and nothing done, where they are not like that.
[[gnu::always_inline]] inline bool JobManager::freeTogether(const SeisTrace& trace)
{
    if (heap::isGuarded())
        return false;
    BlockTable& table = BlockTable::instance();
    BlockTable::Entry* const samples = table.soleEntryAt(trace.samplesPlace, trace.traceSamples);
    BlockTable::Entry* const header = table.soleEntryAt(trace.headerPlace, trace.traceHeader);
    if (samples == nullptr || header == nullptr || samples == header ||
        !BlockTable::haveSameHolders(*samples, *header) ||
        !BlockTable::jobLists(jobMemoryMap, *samples))
        return false;
    ModuleEntity* module = table.moduleOf(*samples);
    if (module != nullptr && !isOfJob(module))
        return false;

    const int sampleBytes = samples->size;
    const int headerBytes = header->size;
    const int bytes = wrapping::sum(sampleBytes, headerBytes);
    totalJobMemoryUsed = wrapping::difference(totalJobMemoryUsed, bytes);
    if (module != nullptr)
        module->totalModuleMemoryUsed = wrapping::difference(module->totalModuleMemoryUsed, bytes);
    table.removeHolders(*samples, *header, jobMemoryMap);

    TraceBlocks* const room =
        isWhole(trace.traceSamples, sampleBytes) && isWhole(trace.traceHeader, headerBytes)
            ? spareBlocks.roomFor(static_cast<uint32_t>(sampleBytes),
                                  static_cast<uint32_t>(headerBytes))
            : nullptr;
    if (room != nullptr) {
        room->samples = {trace.traceSamples, trace.samplesPlace};
        room->header = {trace.traceHeader, trace.headerPlace};
    } else {
        keepOrDiscard({trace.traceHeader, trace.headerPlace}, headerBytes);
        keepOrDiscard({trace.traceSamples, trace.samplesPlace}, sampleBytes);
    }
    return true;
}

// Of blocks that a host has entered, or that others list, too.
void JobManager::freeListed(void* ptr)
{
    BlockTable& table = BlockTable::instance();
    table.visit(ptr, [&](BlockTable::Entry& entry) {
        if (BlockTable::lists(jobMemoryMap, entry)) {
            totalJobMemoryUsed = wrapping::difference(totalJobMemoryUsed, entry.size);
            table.removeJob(entry);
        }
        ModuleEntity* module = table.moduleOf(entry);
        if (module != nullptr && isOfJob(module)) {
            module->totalModuleMemoryUsed =
                wrapping::difference(module->totalModuleMemoryUsed, entry.size);
            table.removeModule(entry);
        }
    });
    heap::give(ptr);
}

void JobManager::releaseSpareBlocks()
{
    spareBlocks.release();
}
