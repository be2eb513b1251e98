/// @file BlockTable.h
///
/// Private to the kernel: which memory blocks the job and its modules hold.
#ifndef BLOCKTABLE_H
#define BLOCKTABLE_H

#include "BlockMap.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

/// One hash table for all holders. Every trace that passes a module takes and frees two blocks, so
/// finding a block must cost the same with ten alive and with a million, and must not ask every
/// module in turn: an entry knows the block's size, whether a job lists it and which module does.
/// (An ordered map for the job and one for each module cost twice as much as the blocks
/// themselves.)
///
/// The table consists of buckets of the size of a cache line, so that taking and freeing a block
/// each look at one line of memory, however full the table is. An entry lies in the bucket that its
/// address leads to, or, where that is full, in one behind it; each bucket counts the entries that
/// have gone past it, and a search ends at one that none has passed.
///
/// A block has one entry as a rule. It has more when a module that is no longer of the job, or one
/// whose block was freed behind the kernel's back, still lists the address.
class BlockTable
{
public:
    struct Entry
    {
        void* block;     // null: a free place of its bucket
        int32_t size;    // bytes
        uint16_t module; // number of the module's map; 0 when no module lists the block
        uint8_t job;     // number of the job's map; 0 when no job lists the block
        uint8_t marks;   // bits of Mark
    };

    enum Mark : uint8_t
    {
        own = 1,  // taken from the heap by the kernel, with `size` bytes
        sole = 2, // its block has no other entry
    };

    /// The table of the process; never destroyed, since traces may outlive everything else.
    static BlockTable& instance() { return table != nullptr ? *table : makeTable(); }

    /// Gives a map its number among its kind; 0 stands for no map.
    uint32_t open(BlockMap* map);
    /// Forgets a map and what it lists.
    void close(BlockMap* map);
    /// The module that lists the block, or null.
    inline ModuleEntity* moduleOf(const Entry& entry) const;
    /// Whether `map` is the job's or the module's that lists the block.
    static bool lists(const BlockMap& map, const Entry& entry)
    {
        return (map.module != nullptr ? entry.module : entry.job) == map.number;
    }
    /// The same for a map that is known to be a job's.
    static bool jobLists(const BlockMap& map, const Entry& entry)
    {
        return entry.job == map.number;
    }
    /// Whether two blocks have the same holders.
    static bool haveSameHolders(const Entry& one, const Entry& other)
    {
        return one.job == other.job && one.module == other.module;
    }

    /// Enters `block` for one holder or both (null: not); what they listed under this address
    /// before is overwritten. `marks` is `own` or 0. Returns the entry's place.
    inline uint32_t enter(void* address, int32_t size, BlockMap* job, BlockMap* module,
                          uint8_t marks = 0);

    /// Calls `strike(Entry&)` for every entry of `block`; it calls `removeJob` or `removeModule`
    /// where a holder gives the block up. Entries without a holder then leave the table.
    template <typename Strike>
    void visit(void* address, Strike strike);

    inline void removeJob(Entry& entry);
    inline void removeModule(Entry& entry);
    /// Both holders give up two blocks. Requires: the blocks have the same holders, of which the
    /// job's map is `job`.
    inline void removeHolders(Entry& one, Entry& other, BlockMap& job);

    /// @name Blocks that are soon taken again
    /// The entry of a block without holders may stay, idle, for its next holders. It is
    /// gone when the table changes its size or the address is entered otherwise.
    /// @{

    /// The entry of a block of the kernel's own that has no other one, or null. It is searched for
    /// where it is not at `place`.
    Entry* soleEntry(uint32_t place, void* block)
    {
        Entry* entry = soleEntryAt(place, block);
        return entry != nullptr ? entry : findSoleEntry(block);
    }
    /// The same, or null where it is not at `place`.
    Entry* soleEntryAt(uint32_t place, void* block)
    {
        if (place > lastPlace)
            return nullptr;
        Entry& entry = entryAt(place);
        return entry.block == block && entry.marks == (own | sole) ? &entry : nullptr;
    }
    Entry* findSoleEntry(void* block);
    /// Where an entry lies.
    uint32_t placeOf(const Entry& entry) const
    {
        return static_cast<uint32_t>(&entry - &buckets[0].entries[0]);
    }
    static constexpr uint32_t nowhere = UINT32_MAX;
    /// The entry at `place` if it is idle and of `block`, else null.
    Entry* idleEntry(uint32_t place, const void* block)
    {
        if (place > lastPlace)
            return nullptr;
        Entry& entry = entryAt(place);
        return entry.block == block && entry.job == 0 && entry.module == 0 ? &entry : nullptr;
    }
    /// Lists an idle entry for one holder or both.
    inline void reenter(Entry& entry, BlockMap* job, BlockMap* module);
    /// Lists two idle entries for a job and, if not null, a module.
    inline void reenter(Entry& one, Entry& other, BlockMap& job, BlockMap* module);
    /// Removes an entry without holders.
    void drop(Entry& entry);
    /// @}

    /// The entry of `block` that `map` listed, or null.
    const Entry* find(const BlockMap* map, const void* address) const;
    /// Calls `look(const Entry&)` for every entry that `map` lists, in no order.
    template <typename Look>
    void forEach(const BlockMap* map, Look look) const;

    /// The address that an entry stands for.
    static void* addressOf(const Entry& entry)
    {
        return entry.block == keyOf(nullptr) ? nullptr : entry.block;
    }

private:
    // Null marks a free place, so the null address is entered as one that no block can have.
    static char nullAddress;
    static void* keyOf(void* address) { return address != nullptr ? address : &nullAddress; }

    static BlockTable* table;
    static BlockTable& makeTable();

    static constexpr uint32_t bucketSize = 4; // entries
    struct alignas(64) Bucket
    {
        std::array<Entry, bucketSize> entries;
    };
    struct Census
    {
        uint8_t filled; // entries in the bucket
        uint8_t passed; // entries that were led here and lie further on; stays at `mostPassed`
        bool operator==(const Census&) const = default;
    };

    BlockTable();
    // The bucket that a block is led to. Blocks of the heap are 16 bytes apart at least; the
    // multiplication spreads neighbours.
    std::size_t home(const void* block) const
    {
        return ((reinterpret_cast<uintptr_t>(block) >> 4) * 0x9E3779B97F4A7C15ull) >> shift;
    }
    std::size_t next(std::size_t bucket) const { return (bucket + 1) & mask; }
    // Buckets are nothing but their entries, one behind the other: no division into both.
    Entry& entryAt(uint32_t place)
    {
        static_assert(sizeof(Bucket) == bucketSize * sizeof(Entry));
        return *reinterpret_cast<Entry*>(reinterpret_cast<unsigned char*>(buckets.data()) +
                                         place * sizeof(Entry));
    }
    Entry& freeEntry(const void* block);
    Entry& entryFor(void* address, BlockMap* job, BlockMap* module, bool& isSole);
    Entry& entryAgain(void* address, BlockMap* job, BlockMap* module, bool& isSole);
    template <typename Strike>
    void visitAll(void* block, Strike strike);
    void erase(Entry& entry, std::size_t bucket);
    inline void shrink();
    void resize(std::size_t count);
    bool tryResize(std::size_t count);

    static constexpr std::size_t fewestBuckets = 256;
    static constexpr uint8_t mostPassed = 255;

    std::vector<Bucket> buckets; // a power of two
    std::vector<Census> census;  // of each bucket
    std::size_t mask = 0;        // the table's size - 1
    uint32_t lastPlace = 0;      // of all entries
    std::size_t used = 0;        // entries
    std::size_t mostUsed = 0;    // as many at this size: three quarters of all places
    unsigned shift = 0;
    std::vector<BlockMap*> jobs;    // by number
    std::vector<BlockMap*> modules; // by number
};

inline ModuleEntity* BlockTable::moduleOf(const Entry& entry) const
{
    return modules[entry.module] != nullptr ? modules[entry.module]->getModule() : nullptr;
}

inline void BlockTable::removeJob(Entry& entry)
{
    --jobs[entry.job]->listed;
    entry.job = 0;
}

inline void BlockTable::removeModule(Entry& entry)
{
    --modules[entry.module]->listed;
    entry.module = 0;
}

inline void BlockTable::removeHolders(Entry& one, Entry& other, BlockMap& job)
{
    job.listed -= 2;
    if (BlockMap* const module = modules[one.module])
        module->listed -= 2;
    one.job = other.job = 0;
    one.module = other.module = 0;
}

inline uint32_t BlockTable::enter(void* address, int32_t size, BlockMap* job, BlockMap* module,
                                  uint8_t marks)
{
    void* block = keyOf(address);
    if (used >= mostUsed)
        resize(buckets.size() * 2);
    const std::size_t bucket = home(block);
    const bool nobodyHere = census[bucket] == Census{0, 0};
    Entry* free = buckets[bucket].entries.data();
    bool isSole = true;
    if (nobodyHere)
        census[bucket].filled = 1;
    else
        free = &entryFor(address, job, module, isSole);

    // Field by field, each as wide as it is read: an entry copied as a whole waits for its parts.
    Entry& entry = *free;
    entry.block = block;
    entry.size = size;
    entry.marks = static_cast<uint8_t>(marks | (isSole ? sole : 0));
    ++used;
    reenter(entry, job, module);
    return placeOf(entry);
}

inline void BlockTable::reenter(Entry& entry, BlockMap* job, BlockMap* module)
{
    if (job != nullptr) {
        entry.job = static_cast<uint8_t>(job->number);
        ++job->listed;
    }
    if (module != nullptr) {
        entry.module = static_cast<uint16_t>(module->number);
        ++module->listed;
    }
}

inline void BlockTable::reenter(Entry& one, Entry& other, BlockMap& job, BlockMap* module)
{
    one.job = other.job = static_cast<uint8_t>(job.number);
    job.listed += 2;
    if (module != nullptr) {
        one.module = other.module = static_cast<uint16_t>(module->number);
        module->listed += 2;
    }
}

// A table that has become far too large makes going through all entries slow.
inline void BlockTable::shrink()
{
    if (used * 2 <= mask && buckets.size() > fewestBuckets)
        tryResize(buckets.size() / 2); // freeing must not fail
}

// Where few blocks are alive, most are alone in their bucket.
template <typename Strike>
void BlockTable::visit(void* address, Strike strike)
{
    void* block = keyOf(address);
    const std::size_t bucket = home(block);
    Entry& entry = buckets[bucket].entries[0];
    if (census[bucket] != Census{1, 0} || entry.block != block) {
        visitAll(block, strike);
        return;
    }
    strike(entry);
    if (entry.job == 0 && entry.module == 0) {
        entry = Entry{};
        census[bucket].filled = 0;
        --used;
        shrink();
    }
}

template <typename Strike>
[[gnu::noinline]] void BlockTable::visitAll(void* block, Strike strike)
{
    bool erased = false;
    std::size_t bucket = home(block);
    for (std::size_t looked = 0; looked <= mask; ++looked, bucket = next(bucket)) {
        for (Entry& entry : buckets[bucket].entries) {
            if (entry.block != block)
                continue;
            strike(entry);
            if (entry.job == 0 && entry.module == 0) {
                erase(entry, bucket);
                erased = true;
            }
        }
        if (census[bucket].passed == 0)
            break;
    }
    if (erased)
        shrink();
}

template <typename Look>
void BlockTable::forEach(const BlockMap* map, Look look) const
{
    for (const Bucket& bucket : buckets) {
        for (const Entry& entry : bucket.entries) {
            if (entry.block != nullptr && lists(*map, entry))
                look(entry);
        }
    }
}

#endif
