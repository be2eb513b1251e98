/// @file MemoryBook.h
///
/// Which memory blocks the job and its modules hold.
#ifndef MEMORYBOOK_H
#define MEMORYBOOK_H

#include "vorn_export.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <utility>
#include <vector>

class BlockMap;
class ModuleEntity;

/// One hash table for all holders. Every trace that passes a module takes and frees two blocks, so
/// finding a block must cost the same with ten alive and with a million, and must not ask every
/// module in turn: an entry knows the block's size, whether a job lists it and which module does.
/// (An ordered map for the job and one for each module cost twice as much as the blocks
/// themselves.)
///
/// A block has one entry as a rule. It has more when a module that is no longer of the job, or one
/// whose block was freed behind the kernel's back, still lists the address.
class MemoryBook
{
public:
    struct Entry
    {
        void* block;     // null: a free place of the table
        int32_t size;    // bytes
        uint16_t module; // number of the module's map; 0 when no module lists the block
        uint8_t job;     // number of the job's map; 0 when no job lists the block
        uint8_t own;     // 1: taken from the heap by the kernel, with `size` bytes
    };

    /// The book of the process; never destroyed, since traces may outlive everything else.
    static MemoryBook& instance() { return book != nullptr ? *book : makeBook(); }

    /// Gives a map its number among its kind; 0 stands for nobody.
    uint32_t open(BlockMap* map);
    /// Forgets a map and what it lists.
    void close(BlockMap* map);
    inline ModuleEntity* moduleOf(const Entry& entry) const;

    /// Enters `block` for one holder or both (null: not); what they listed under this address
    /// before is overwritten. `own`: the block has been taken from the heap with this size.
    inline void enter(void* address, int32_t size, BlockMap* job, BlockMap* module,
                      bool own = false);

    /// Calls `strike(Entry&)` for every entry of `block`; it calls `removeJob` or `removeModule`
    /// where a holder gives the block up. Entries without a holder then leave the table.
    template <typename Strike>
    void visit(void* address, Strike strike);

    inline void removeJob(Entry& entry);
    inline void removeModule(Entry& entry);

    /// The entry of `block` that `map` listed, or null.
    const Entry* find(const BlockMap* map, const void* address) const;
    const std::vector<Entry>& entries() const { return table; }

    /// The address that an entry of `entries` stands for.
    static void* addressOf(const Entry& entry)
    {
        return entry.block == keyOf(nullptr) ? nullptr : entry.block;
    }

private:
    // Null marks a free place, so the null address is entered as one that no block can have.
    static char nullAddress;
    static void* keyOf(void* address) { return address != nullptr ? address : &nullAddress; }

    static MemoryBook* book;
    static MemoryBook& makeBook();

    MemoryBook();
    // Blocks of the heap are 16 bytes apart at least; the multiplication spreads neighbours.
    std::size_t home(const void* block) const
    {
        return ((reinterpret_cast<uintptr_t>(block) >> 4) * 0x9E3779B97F4A7C15ull) >> shift;
    }
    std::size_t next(std::size_t place) const { return (place + 1) & mask; }
    std::size_t freePlace(const void* block) const;
    std::size_t placeFor(void* address, BlockMap* job, BlockMap* module);
    template <typename Strike>
    void visitAll(void* block, Strike strike);
    void eraseUnheld(const void* block);
    inline void erase(std::size_t place);
    inline void shrink();
    void resize(std::size_t places);
    bool tryResize(std::size_t places);

    static constexpr std::size_t fewestPlaces = 1024;

    std::vector<Entry> table; // a power of two, never full: open addressing, linear probing
    std::size_t mask = 0;     // the table's size - 1
    std::size_t used = 0;     // entries
    std::size_t mostUsed = 0; // as many at this size
    unsigned shift = 0;
    std::vector<BlockMap*> jobs;    // by number
    std::vector<BlockMap*> modules; // by number
};

/// The blocks of one holder, read like an ordered map from address to size in bytes. Looking one up
/// takes constant time; iterating makes a sorted list first. Written by the job manager and its
/// modules only.
class VORN_EXPORT BlockMap
{
public:
    using key_type = void*;
    using mapped_type = int;
    using value_type = std::pair<void* const, int>;

    class VORN_EXPORT const_iterator
    {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = BlockMap::value_type;
        using difference_type = std::ptrdiff_t;
        using pointer = const value_type*;
        using reference = const value_type&;

        reference operator*() const { return *position; }
        pointer operator->() const { return &*position; }
        const_iterator& operator++();
        bool operator==(const const_iterator& other) const;
        bool operator!=(const const_iterator& other) const { return !(*this == other); }

    private:
        friend class BlockMap;
        using Blocks = std::map<void*, int>;

        const BlockMap* owner = nullptr;
        std::shared_ptr<const Blocks> blocks; // null: at the end
        Blocks::const_iterator position;
        bool complete = false; // all blocks of the holder, not only the one that was looked up
    };
    using iterator = const_iterator;

    /// The map of a job, or of the module given.
    explicit BlockMap(ModuleEntity* owner = nullptr);
    BlockMap(const BlockMap&) = delete;
    BlockMap& operator=(const BlockMap&) = delete;
    /// Blocks still listed are forgotten, not freed.
    ~BlockMap();

    std::size_t size() const { return listed; }
    bool empty() const { return listed == 0; }
    std::size_t count(const void* block) const;
    const_iterator find(const void* block) const;
    /// Size in bytes; throws std::out_of_range for a block that is not listed.
    const int& at(const void* block) const;
    /// Size in bytes; 0 for a block that is not listed. Lists nothing.
    int operator[](const void* block) const { return count(block) != 0 ? at(block) : 0; }
    bool contains(const void* block) const { return count(block) != 0; }
    operator std::map<void*, int>() const { return {begin(), end()}; }
    const_iterator begin() const;
    const_iterator end() const;

    ModuleEntity* getModule() const { return module; }
    bool lists(const MemoryBook::Entry& entry) const
    {
        return (module != nullptr ? entry.module : entry.job) == number;
    }

private:
    friend class MemoryBook;

    std::shared_ptr<const const_iterator::Blocks> snapshot() const;

    ModuleEntity* module; // null for a job
    uint32_t number;      // in the book, among maps of the same kind
    std::size_t listed = 0;
};

inline ModuleEntity* MemoryBook::moduleOf(const Entry& entry) const
{
    return modules[entry.module] != nullptr ? modules[entry.module]->getModule() : nullptr;
}

inline void MemoryBook::removeJob(Entry& entry)
{
    --jobs[entry.job]->listed;
    entry.job = 0;
}

inline void MemoryBook::removeModule(Entry& entry)
{
    --modules[entry.module]->listed;
    entry.module = 0;
}

inline void MemoryBook::enter(void* address, int32_t size, BlockMap* job, BlockMap* module,
                              bool own)
{
    void* block = keyOf(address);
    if (used >= mostUsed)
        resize(table.size() * 2);
    std::size_t place = home(block);
    if (table[place].block != nullptr)
        place = placeFor(address, job, module);

    // Field by field, each as wide as it is read: an entry copied as a whole waits for its parts.
    Entry& entry = table[place];
    entry.block = block;
    entry.size = size;
    entry.own = own ? 1 : 0;
    ++used;
    if (job != nullptr) {
        entry.job = static_cast<uint8_t>(job->number);
        ++job->listed;
    }
    if (module != nullptr) {
        entry.module = static_cast<uint16_t>(module->number);
        ++module->listed;
    }
}

// Closes the gap by moving later entries of the run towards their home, so that runs stay unbroken.
inline void MemoryBook::erase(std::size_t place)
{
    Entry* const entries = table.data();
    for (std::size_t i = next(place); entries[i].block != nullptr; i = next(i)) {
        const std::size_t fromHome = (i - home(entries[i].block)) & mask;
        if (fromHome >= ((i - place) & mask)) {
            entries[place] = entries[i];
            place = i;
        }
    }
    entries[place] = Entry{};
    --used;
}

// A table that has become far too large slows down whoever goes through all entries.
inline void MemoryBook::shrink()
{
    if (used * 8 <= mask && table.size() > fewestPlaces)
        tryResize(table.size() / 2); // freeing must not fail
}

// Most blocks have one entry, at home, with nothing behind it.
template <typename Strike>
void MemoryBook::visit(void* address, Strike strike)
{
    void* block = keyOf(address);
    const std::size_t place = home(block);
    Entry& entry = table[place];
    if (entry.block != block || table[next(place)].block != nullptr) {
        visitAll(block, strike);
        return;
    }
    strike(entry);
    if (entry.job == 0 && entry.module == 0) {
        entry = Entry{};
        --used;
        shrink();
    }
}

template <typename Strike>
[[gnu::noinline]] void MemoryBook::visitAll(void* block, Strike strike)
{
    Entry* const entries = table.data();
    std::size_t unheld = 0; // entries
    std::size_t place = 0;  // of the last one
    for (std::size_t i = home(block); entries[i].block != nullptr; i = next(i)) {
        Entry& entry = entries[i];
        if (entry.block != block)
            continue;
        strike(entry);
        if (entry.job == 0 && entry.module == 0) {
            ++unheld;
            place = i;
        }
    }
    if (unheld == 0)
        return;
    if (unheld == 1)
        erase(place);
    else
        eraseUnheld(block);
    shrink();
}

#endif
