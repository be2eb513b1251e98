#include "MemoryBook.h"

#include "vorn_assert.h"

#include <algorithm>
#include <bit>
#include <new>
#include <stdexcept>

namespace {

constexpr uint32_t mostJobs = 1u << 8;
constexpr uint32_t mostModules = 1u << 16;

} // namespace

char MemoryBook::nullAddress = 0;

MemoryBook* MemoryBook::book = nullptr;

MemoryBook& MemoryBook::makeBook()
{
    book = new MemoryBook;
    return *book;
}

MemoryBook::MemoryBook() : jobs(1, nullptr), modules(1, nullptr)
{
    resize(fewestBuckets);
}

uint32_t MemoryBook::open(BlockMap* map)
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

void MemoryBook::close(BlockMap* map)
{
    if (!map->empty()) {
        for (Bucket& bucket : table) {
            for (Entry& entry : bucket.entries) {
                if (entry.block == nullptr || !map->lists(entry))
                    continue;
                if (map->getModule() != nullptr)
                    entry.module = 0;
                else
                    entry.job = 0;
            }
        }
        // Leaves out the entries that nobody holds now. Without memory they stay until the next
        // change of size: maps are closed by destructors.
        tryResize(table.size());
    }
    (map->getModule() != nullptr ? modules : jobs)[map->number] = nullptr;
}

// A free entry for `address`, which the holders no longer list.
MemoryBook::Entry& MemoryBook::entryFor(void* address, BlockMap* job, BlockMap* module,
                                        bool& isSole)
{
    const std::size_t bucket = home(keyOf(address));
    if (census[bucket].passed == 0) {
        Entry* found = nullptr;
        for (Entry& entry : table[bucket].entries) {
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
MemoryBook::Entry& MemoryBook::entryAgain(void* address, BlockMap* job, BlockMap* module,
                                          bool& isSole)
{
    visit(address, [&, job, module](Entry& entry) {
        isSole = false;
        entry.marks &= static_cast<uint8_t>(~sole);
        if (job != nullptr && job->lists(entry))
            removeJob(entry);
        if (module != nullptr && module->lists(entry))
            removeModule(entry);
    });
    return freeEntry(keyOf(address));
}

const MemoryBook::Entry* MemoryBook::find(const BlockMap* map, const void* address) const
{
    const void* block = keyOf(const_cast<void*>(address));
    std::size_t bucket = home(block);
    for (std::size_t looked = 0; looked <= mask; ++looked, bucket = next(bucket)) {
        for (const Entry& entry : table[bucket].entries) {
            if (entry.block == block && map->lists(entry))
                return &entry;
        }
        if (census[bucket].passed == 0)
            break;
    }
    return nullptr;
}

// Requires: there is a free place in the table.
MemoryBook::Entry& MemoryBook::freeEntry(const void* block)
{
    std::size_t bucket = home(block);
    for (; census[bucket].filled == table[bucket].entries.size(); bucket = next(bucket)) {
        if (census[bucket].passed < mostPassed)
            ++census[bucket].passed;
    }
    ++census[bucket].filled;
    Entry* entry = table[bucket].entries.data();
    while (entry->block != nullptr)
        ++entry;
    return *entry;
}

// A bucket that too many have passed to be counted is one that no search ends at, which is slower
// and not wrong; the next change of size counts anew.
void MemoryBook::erase(Entry& entry, std::size_t bucket)
{
    for (std::size_t i = home(entry.block); i != bucket; i = next(i)) {
        if (census[i].passed < mostPassed)
            --census[i].passed;
    }
    --census[bucket].filled;
    entry = Entry{};
    --used;
}

MemoryBook::Entry* MemoryBook::findSoleEntry(void* block)
{
    std::size_t bucket = home(block);
    for (std::size_t looked = 0; looked <= mask; ++looked, bucket = next(bucket)) {
        for (Entry& entry : table[bucket].entries) {
            if (entry.block == block)
                return entry.marks == (own | sole) ? &entry : nullptr;
        }
        if (census[bucket].passed == 0)
            break;
    }
    return nullptr;
}

void MemoryBook::drop(Entry& entry)
{
    erase(entry, placeOf(entry) / bucketSize);
    shrink();
}

bool MemoryBook::tryResize(std::size_t buckets)
{
    try {
        resize(buckets);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void MemoryBook::resize(std::size_t buckets)
{
    std::vector<Bucket> former(buckets, Bucket{});
    census.assign(buckets, Census{});
    former.swap(table);
    shift = 64u - static_cast<unsigned>(std::countr_zero(buckets));
    mask = buckets - 1;
    lastPlace = static_cast<uint32_t>(buckets * bucketSize - 1);
    mostUsed = buckets * bucketSize / 4 * 3;
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

BlockMap::BlockMap(ModuleEntity* owner) : module(owner), number(MemoryBook::instance().open(this))
{
}

BlockMap::~BlockMap()
{
    MemoryBook::instance().close(this);
}

std::size_t BlockMap::count(const void* block) const
{
    return MemoryBook::instance().find(this, block) != nullptr ? 1 : 0;
}

const int& BlockMap::at(const void* block) const
{
    const MemoryBook::Entry* entry = MemoryBook::instance().find(this, block);
    if (entry == nullptr)
        throw std::out_of_range("BlockMap::at");
    return entry->size;
}

BlockMap::const_iterator BlockMap::find(const void* block) const
{
    const MemoryBook::Entry* entry = MemoryBook::instance().find(this, block);
    if (entry == nullptr)
        return end();
    const_iterator found;
    found.owner = this;
    found.blocks = std::make_shared<const const_iterator::Blocks>(
        const_iterator::Blocks{{MemoryBook::addressOf(*entry), entry->size}});
    found.position = found.blocks->begin();
    return found;
}

BlockMap::const_iterator BlockMap::begin() const
{
    const_iterator first;
    first.owner = this;
    first.complete = true;
    if (!empty()) {
        first.blocks = snapshot();
        first.position = first.blocks->begin();
    }
    return first;
}

BlockMap::const_iterator BlockMap::end() const
{
    return const_iterator();
}

std::shared_ptr<const BlockMap::const_iterator::Blocks> BlockMap::snapshot() const
{
    const_iterator::Blocks blocks;
    MemoryBook::instance().forEach(this, [&](const MemoryBook::Entry& entry) {
        blocks.emplace(MemoryBook::addressOf(entry), entry.size);
    });
    return std::make_shared<const const_iterator::Blocks>(std::move(blocks));
}

BlockMap::const_iterator& BlockMap::const_iterator::operator++()
{
    if (!complete) {
        const void* here = position->first;
        blocks = owner->snapshot();
        position = blocks->upper_bound(const_cast<void*>(here));
        complete = true;
    } else {
        ++position;
    }
    if (position == blocks->end())
        blocks.reset();
    return *this;
}

bool BlockMap::const_iterator::operator==(const const_iterator& other) const
{
    if (blocks == nullptr || other.blocks == nullptr)
        return blocks == other.blocks;
    return position->first == other.position->first;
}
