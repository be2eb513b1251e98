/// @file SpareBlocks.h
///
/// Heap blocks that were freed a moment ago, kept for the next request of their size.
#ifndef SPAREBLOCKS_H
#define SPAREBLOCKS_H

#include <array>
#include <cstddef>
#include <cstdlib>

/// A module takes the blocks of its output trace just before those of its input trace are freed,
/// all of a few sizes, over and over. The heap merges large blocks with their neighbours and cuts
/// them out again, and is several times slower than this with small ones.
///
/// A few blocks of each size are kept, none of them above `largestKept` bytes: what a backlog
/// leaves behind goes back to the heap.
class SpareBlocks
{
public:
    SpareBlocks() = default;
    SpareBlocks(const SpareBlocks&) = delete;
    SpareBlocks& operator=(const SpareBlocks&) = delete;
    ~SpareBlocks() { release(); }

    /// A block of `size` bytes or null.
    void* take(std::size_t size)
    {
        Shelf& shelf = shelfOf(size);
        if (shelf.count == 0 || shelf.size != size)
            return nullptr;
        // cppcheck-suppress CastIntegerToAddressAtReturn ; it does not see the array's element type
        return shelf.blocks[--shelf.count];
    }

    /// Keeps `block`; false when it is to be freed. Requires: a block of malloc with `size` usable
    /// bytes or more.
    bool keep(void* block, std::size_t size)
    {
        if (size < smallestKept || size > largestKept)
            return false;
        Shelf& shelf = shelfOf(size);
        if (shelf.size != size) {
            empty(shelf);
            shelf.size = size;
        }
        if (shelf.count == shelf.blocks.size())
            return false;
        shelf.blocks[shelf.count++] = block;
        return true;
    }

    /// Frees all that is kept.
    void release()
    {
        for (Shelf& shelf : shelves)
            empty(shelf);
    }

private:
#if defined(__SANITIZE_ADDRESS__) || defined(VORN_NO_SPARE_BLOCKS)
    static constexpr std::size_t smallestKept = static_cast<std::size_t>(-1); // see every misuse
#else
    static constexpr std::size_t smallestKept = 64;
#endif
    static constexpr std::size_t largestKept = 262144;

    struct Shelf
    {
        std::size_t size = 0; // bytes of each block here
        std::size_t count = 0;
        std::array<void*, 4> blocks{};
    };

    Shelf& shelfOf(std::size_t size)
    {
        return shelves[(size / 4 + size / 256) % shelves.size()];
    }

    static void empty(Shelf& shelf)
    {
        while (shelf.count > 0)
            std::free(shelf.blocks[--shelf.count]);
    }

    std::array<Shelf, 16> shelves{};
};

#endif
