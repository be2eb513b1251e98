/// @file SpareBlocks.h
///
/// Private to the kernel: heap blocks that were freed a moment ago, kept for the next request of
/// their size.
#ifndef SPAREBLOCKS_H
#define SPAREBLOCKS_H

#include "private/BlockTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>

/// A module takes the blocks of its output trace just before those of its input trace are freed,
/// all of a few sizes, over and over. The heap merges large blocks with their neighbours and cuts
/// them out again, and is several times slower than this with small ones. With the blocks, their
/// entries in the table of blocks stay, idle.
///
/// A few blocks of each size are kept, as many as several readers of one trace take and free in
/// turns, but no more than `shelfBytes`, and none above `largestKept` bytes: what a backlog leaves
/// behind goes back to the heap.
class SpareBlocks
{
public:
    SpareBlocks() = default;
    SpareBlocks(const SpareBlocks&) = delete;
    SpareBlocks& operator=(const SpareBlocks&) = delete;
    ~SpareBlocks() { release(); }

    /// A block of `size` bytes or null.
    AccountedBlock take(std::size_t size)
    {
        Shelf& shelf = shelfOf(size);
        if (shelf.count == 0 || shelf.size != size)
            return {nullptr, BlockTable::nowhere};
        return shelf.blocks[--shelf.count];
    }

    /// Keeps a block; false when it is to be discarded. Requires: a block of malloc with `size`
    /// usable bytes or more, without holders.
    bool keep(const AccountedBlock& block, std::size_t size)
    {
        if (size < smallestKept || size > largestKept)
            return false;
        Shelf& shelf = shelfOf(size);
        if (shelf.size != size)
            useFor(shelf, size);
        if (shelf.count == shelf.room)
            return false;
        shelf.blocks[shelf.count++] = block;
        return true;
    }

    /// Discards all that is kept.
    void release()
    {
        for (Shelf& shelf : shelves)
            empty(shelf);
    }

    /// Frees a block and removes its idle entry.
    static void discard(const AccountedBlock& block)
    {
        BlockTable& table = BlockTable::instance();
        if (BlockTable::Entry* entry = table.idleEntry(block.place, block.address))
            table.drop(*entry);
        std::free(block.address);
    }

private:
#if defined(__SANITIZE_ADDRESS__) || defined(VORN_NO_SPARE_BLOCKS)
    static constexpr std::size_t smallestKept = static_cast<std::size_t>(-1); // see every misuse
#else
    static constexpr std::size_t smallestKept = 64;
#endif
    static constexpr std::size_t largestKept = 262144;
    static constexpr std::size_t mostBlocks = 16;
    static constexpr std::size_t shelfBytes = 4 * largestKept;

    struct Shelf
    {
        std::size_t size = 0; // bytes of each block here
        std::size_t count = 0;
        std::size_t room = 0;
        std::array<AccountedBlock, mostBlocks> blocks{};
    };

    Shelf& shelfOf(std::size_t size)
    {
        return shelves[(size / 4 + size / 256) % shelves.size()];
    }

    [[gnu::noinline]] static void useFor(Shelf& shelf, std::size_t size)
    {
        empty(shelf);
        shelf.size = size;
        shelf.room = std::min(mostBlocks, shelfBytes / size);
    }

    static void empty(Shelf& shelf)
    {
        while (shelf.count > 0)
            discard(shelf.blocks[--shelf.count]);
    }

    std::array<Shelf, 16> shelves{};
};

#endif
