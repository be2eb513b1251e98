#include "private/BlockTable.h"

#include "vorn_assert.h"

#include <algorithm>
#include <bit>
#include <new>

namespace {

constexpr uint32_t mostJobs = 1u << 8;
constexpr uint32_t mostModules = 1u << 16;

} // namespace

char BlockTable::nullAddress = 0;

BlockTable* BlockTable::table = nullptr;

BlockTable& BlockTable::makeTable()
{
    table = new BlockTable;
    return *table;
}

BlockTable::BlockTable() : jobs(1, nullptr), modules(1, nullptr)
{
    resize(fewestBuckets);
}

uint32_t BlockTable::open(BlockMap* map)
{
    std::vector<BlockMap*>& kind = map->getModule() != nullptr ? modules : jobs;
    const auto unused = std::find(kind.begin() + 1, kind.end(), nullptr);
    const uint32_t number = static_cast<uint32_t>(unused - kind.begin());
    if (unused != kind.end())
        *unused = map;
    else
        kind.push_back(map);
    VORN_ASSERT(number < (map->getModule() != nullptr ? mostModules : mostJobs));
    return number;
}

void BlockTable::close(BlockMap* map)
{
    if (!map->empty()) {
        for (Bucket& bucket : buckets) {
            for (Entry& entry : bucket.entries) {
                if (entry.block == nullptr || !lists(*map, entry))
                    continue;
                if (map->getModule() != nullptr)
                    entry.module = 0;
                else
                    entry.job = 0;
            }
        }
        // Leaves out the entries without a holder. Without memory they stay until the next
        // change of size: maps are closed by destructors.
        tryResize(buckets.size());
    }
    (map->getModule() != nullptr ? modules : jobs)[map->number] = nullptr;
}

// A free entry for `address`, which the holders no longer list.
BlockTable::Entry& BlockTable::entryFor(void* address, BlockMap* job, BlockMap* module,
                                        bool& isSole)
{
    const std::size_t bucket = home(keyOf(address));
    if (census[bucket].passed == 0) {
        Entry* found = nullptr;
        for (Entry& entry : buckets[bucket].entries) {
            if (entry.block == nullptr)
                found = &entry;
            else if (entry.block == keyOf(address))
                return entryAgain(address, job, module, isSole);
        }
        if (found != nullptr) {
            ++census[bucket].filled;
            return *found;
        }
    }
    return entryAgain(address, job, module, isSole);
}

// The same for an address that may be listed already.
BlockTable::Entry& BlockTable::entryAgain(void* address, BlockMap* job, BlockMap* module,
                                          bool& isSole)
{
    visit(address, [&, job, module](Entry& entry) {
        isSole = false;
        entry.marks &= static_cast<uint8_t>(~sole);
        if (job != nullptr && lists(*job, entry))
            removeJob(entry);
        if (module != nullptr && lists(*module, entry))
            removeModule(entry);
    });
    return freeEntry(keyOf(address));
}

const BlockTable::Entry* BlockTable::find(const BlockMap* map, const void* address) const
{
    const void* block = keyOf(const_cast<void*>(address));
    std::size_t bucket = home(block);
    for (std::size_t looked = 0; looked <= mask; ++looked, bucket = next(bucket)) {
        for (const Entry& entry : buckets[bucket].entries) {
            if (entry.block == block && lists(*map, entry))
                return &entry;
        }
        if (census[bucket].passed == 0)
            break;
    }
    return nullptr;
}

// Requires: there is a free place in the table.
BlockTable::Entry& BlockTable::freeEntry(const void* block)
{
    std::size_t bucket = home(block);
    for (; census[bucket].filled == buckets[bucket].entries.size(); bucket = next(bucket)) {
        if (census[bucket].passed < mostPassed)
            ++census[bucket].passed;
    }
    ++census[bucket].filled;
    Entry* entry = buckets[bucket].entries.data();
    while (entry->block != nullptr)
        ++entry;
    return *entry;
}

// A bucket that too many have passed to be counted is one that no search ends at, which is slower
// and not wrong; the next change of size counts anew.
void BlockTable::erase(Entry& entry, std::size_t bucket)
{
    for (std::size_t i = home(entry.block); i != bucket; i = next(i)) {
        if (census[i].passed < mostPassed)
            --census[i].passed;
    }
    --census[bucket].filled;
    entry = Entry{};
    --used;
}

BlockTable::Entry* BlockTable::findSoleEntry(void* block)
{
    std::size_t bucket = home(block);
    for (std::size_t looked = 0; looked <= mask; ++looked, bucket = next(bucket)) {
        for (Entry& entry : buckets[bucket].entries) {
            if (entry.block == block)
                return entry.marks == (own | sole) ? &entry : nullptr;
        }
        if (census[bucket].passed == 0)
            break;
    }
    return nullptr;
}

void BlockTable::drop(Entry& entry)
{
    erase(entry, placeOf(entry) / bucketSize);
    shrink();
}

bool BlockTable::tryResize(std::size_t count)
{
    try {
        resize(count);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void BlockTable::resize(std::size_t count)
{
    std::vector<Bucket> former(count, Bucket{});
    census.assign(count, Census{});
    former.swap(buckets);
    shift = 64u - static_cast<unsigned>(std::countr_zero(count));
    mask = count - 1;
    lastPlace = static_cast<uint32_t>(count * bucketSize - 1);
    mostUsed = count * bucketSize / 4 * 3;
    used = 0;
    for (const Bucket& bucket : former) {
        for (const Entry& entry : bucket.entries) {
            if (entry.block != nullptr && (entry.job != 0 || entry.module != 0)) {
                freeEntry(entry.block) = entry;
                ++used;
            }
        }
    }
}
