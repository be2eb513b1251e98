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
        void* block;          // null: a free place of the table
        int32_t size;         // bytes
        uint32_t job : 8;     // number of the job's map; 0 when no job lists the block
        uint32_t module : 24; // number of the module's map; 0 when no module lists the block
    };

    /// The book of the process; never destroyed, since traces may outlive everything else.
    static MemoryBook& instance();

    /// Gives a map its number among its kind; 0 stands for nobody.
    uint32_t open(BlockMap* map);
    /// Forgets a map and what it lists.
    void close(BlockMap* map);
    ModuleEntity* moduleOf(const Entry& entry) const;

    /// Enters `block` for one holder or both (null: not); what they listed under this address
    /// before is overwritten.
    void enter(void* address, int32_t size, BlockMap* job, BlockMap* module);

    /// Calls `strike(Entry&)` for every entry of `block`; it calls `removeJob` or `removeModule`
    /// where a holder gives the block up. Entries without a holder then leave the table.
    template <typename Strike>
    void visit(void* address, Strike strike);

    void removeJob(Entry& entry);
    void removeModule(Entry& entry);

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

    MemoryBook();
    std::size_t home(const void* block) const;
    std::size_t next(std::size_t place) const { return (place + 1) & (table.size() - 1); }
    void insert(const Entry& entry);
    void eraseUnheld(const void* block);
    void erase(std::size_t place);
    void resize(std::size_t places);

    std::vector<Entry> table; // a power of two, never full: open addressing, linear probing
    std::size_t used = 0;
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

template <typename Strike>
void MemoryBook::visit(void* address, Strike strike)
{
    void* block = keyOf(address);
    bool unheld = false;
    for (std::size_t i = home(block); table[i].block != nullptr; i = next(i)) {
        Entry& entry = table[i];
        if (entry.block != block)
            continue;
        strike(entry);
        unheld = unheld || (entry.job == 0 && entry.module == 0);
    }
    if (unheld)
        eraseUnheld(block);
}

#endif
