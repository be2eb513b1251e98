// Accounted memory: every block is charged to the job and to the module that was active when it was
// taken, and uncharged from whoever lists it when it is freed.
#include "JobManager.h"

#include "MemoryBook.h"
#include "ModuleEntity.h"
#include "SpareBlocks.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>

namespace {

// The totals are 32-bit words of the statistics record and wrap; a negative size takes off.
void charge(int& total, int size)
{
    total = static_cast<int>(static_cast<unsigned>(total) + static_cast<unsigned>(size));
}

void uncharge(int& total, int size)
{
    total = static_cast<int>(static_cast<unsigned>(total) - static_cast<unsigned>(size));
}

// Apart from the allocation, which would make room for the texts every time.
[[gnu::noinline, gnu::cold]] void reportNoMemory(int size)
{
    JobManager::getInstance()->sendMessage(4, "Can not allocate " + std::to_string(size) +
                                                  " byte memory block");
}

constinit SpareBlocks spareBlocks;

} // namespace

void* JobManager::allocateResource(int size)
{
    void* block = allocateUncleared(size);
    // Here and not right after malloc: the compiler would make one calloc of the two, which goes
    // past the heap's quickest lists and costs a trace on its way a third more.
    if (block != nullptr)
        std::memset(block, 0, static_cast<std::size_t>(size));
    return block;
}

void* JobManager::allocateUncleared(int size)
{
    // A negative size is a huge request for the heap, which refuses it.
    const std::size_t bytes = static_cast<std::size_t>(size);
    void* block = spareBlocks.take(bytes);
    if (block == nullptr)
        block = std::malloc(bytes);
    BlockMap* moduleMap = activeModule != nullptr ? &activeModule->moduleMemoryMap : nullptr;
    if (block != nullptr) {
        try {
            MemoryBook::instance().enter(block, size, &jobMemoryMap, moduleMap, true);
        } catch (const std::bad_alloc&) { // the book has no room for it
            std::free(block);
            block = nullptr;
        }
    }
    if (block == nullptr) {
        reportNoMemory(size);
        return nullptr;
    }

    charge(totalJobMemoryUsed, size);
    if (activeModule != nullptr)
        charge(activeModule->totalModuleMemoryUsed, size);
    return block;
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

void JobManager::freeResource(void* ptr)
{
    MemoryBook& book = MemoryBook::instance();
    std::size_t ownBytes = 0;
    book.visit(ptr, [&](MemoryBook::Entry& entry) {
        if (jobMemoryMap.lists(entry)) {
            ownBytes = entry.own != 0 ? static_cast<std::size_t>(entry.size) : 0;
            uncharge(totalJobMemoryUsed, entry.size);
            book.removeJob(entry);
        }
        ModuleEntity* module = book.moduleOf(entry);
        if (module != nullptr && isOfJob(module)) {
            uncharge(module->totalModuleMemoryUsed, entry.size);
            book.removeModule(entry);
        }
    });
    // Of blocks that a host has entered the size may be anything, and modules may have shrunk
    // theirs with realloc: only the heap knows what is there.
    if (ownBytes == 0 || malloc_usable_size(ptr) < ownBytes || !spareBlocks.keep(ptr, ownBytes))
        std::free(ptr);
}

void JobManager::releaseSpareBlocks()
{
    spareBlocks.release();
}
