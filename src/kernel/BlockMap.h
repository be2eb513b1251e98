/// @file BlockMap.h
///
/// Which memory blocks the job or a module holds.
#ifndef BLOCKMAP_H
#define BLOCKMAP_H

#include "vorn_export.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

class BlockTable;
class ModuleEntity;

/// A block of accounted memory, and where the kernel's table of blocks lists it: a hint, checked
/// before use.
struct AccountedBlock
{
    void* address;  ///< the block, or null
    uint32_t place; ///< in the table of blocks
};

/// The blocks of one holder, read like an ordered map from address to size in bytes. Looking one up
/// takes constant time; iterating makes a sorted list first. Written by the job manager and its
/// modules only.
class VORN_EXPORT BlockMap
{
public:
    /// @name What a map has
    /// @{

    /// As the member of `std::map<void*, int>` of this name.
    using key_type = void*;
    using mapped_type = int;
    using value_type = std::pair<void* const, int>;

    /// @}

    /// A place in the list. Two are equal when they stand at the same address.
    class VORN_EXPORT const_iterator
    {
    public:
        /// @name What an iterator has
        /// @{

        /// As the member of `std::map::const_iterator` of this name.
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
        /// @}

    private:
        friend class BlockMap;
        using Blocks = std::map<void*, int>;

        const BlockMap* owner = nullptr;
        std::shared_ptr<const Blocks> blocks; // null: at the end
        Blocks::const_iterator position;
        bool complete = false; // all blocks of the holder, not only the one that was looked up
    };
    /// A map cannot be changed through its iterators.
    using iterator = const_iterator;

    /// The map of a job, or of the module given.
    explicit BlockMap(ModuleEntity* owner = nullptr);
    BlockMap(const BlockMap&) = delete;
    BlockMap& operator=(const BlockMap&) = delete;
    /// Blocks still listed are forgotten, not freed.
    ~BlockMap();

    /// @name What a map has
    /// @{

    /// As the member of `std::map<void*, int>` of this name.
    std::size_t size() const { return listed; }
    bool empty() const { return listed == 0; }
    std::size_t count(const void* block) const;
    const_iterator find(const void* block) const;
    /// Size in bytes; throws std::out_of_range for a block that is not listed.
    const int& at(const void* block) const;
    /// Size in bytes; 0 for a block that is not listed. Lists nothing.
    int operator[](const void* block) const { return count(block) != 0 ? at(block) : 0; }
    bool contains(const void* block) const { return count(block) != 0; }
    /// A copy of the list.
    operator std::map<void*, int>() const { return {begin(), end()}; }
    const_iterator begin() const;
    const_iterator end() const;
    /// @}

    /// The module whose blocks these are; null for a job's map.
    ModuleEntity* getModule() const { return module; }

private:
    friend class BlockTable;

    std::shared_ptr<const const_iterator::Blocks> snapshot() const;

    ModuleEntity* module; // null for a job
    uint32_t number;      // in the kernel's table of blocks, among maps of the same kind
    std::size_t listed = 0;
};

#endif
