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
#include <cstdint>
#include <cstdlib>

/// Header and samples of a trace.
struct TraceBlocks
{
    AccountedBlock samples;
    AccountedBlock header;
};

/// A module takes the blocks of its output trace just before those of its input trace are freed,
/// all of a few sizes, over and over. The heap merges large blocks with their neighbours and cuts
/// them out again, and is several times slower than this with small ones. With the blocks, their
/// entries in the table of blocks stay, idle.
///
/// Single blocks are kept by their size, and the two of a trace together, by both sizes: that one
/// search finds them is half of what they cost.
///
/// A few of each size are kept, as many as several readers of one trace take and free in turns, but
/// no more than `shelfBytes`, and none above `largestKept` bytes: what a backlog leaves behind goes
/// back to the heap.
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
        const AccountedBlock* block = blocks.take(size);
        return block != nullptr ? *block : AccountedBlock{nullptr, BlockTable::nowhere};
    }

    /// The blocks of a trace, or null; valid until something is kept.
    const TraceBlocks* take(uint32_t sampleBytes, uint32_t headerBytes)
    {
        return traces.take(keyOf(sampleBytes, headerBytes));
    }

    /// Keeps a block; false when it is to be discarded. Requires: a block of malloc with `size`
    /// usable bytes or more, without holders.
    bool keep(const AccountedBlock& block, std::size_t size)
    {
        AccountedBlock* const room = blocks.roomFor(size, size);
        if (room != nullptr)
            *room = block;
        return room != nullptr;
    }

    /// Where the blocks of a trace are to be written, in order to keep them; null when they are to
    /// be kept or discarded one by one. Requires: as above, for each.
    TraceBlocks* roomFor(uint32_t sampleBytes, uint32_t headerBytes)
    {
        return traces.roomFor(keyOf(sampleBytes, headerBytes), std::size_t{sampleBytes},
                              std::size_t{headerBytes});
    }

    /// Discards all that is kept.
    void release()
    {
        blocks.release();
        traces.release();
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

    static constexpr uint64_t keyOf(uint32_t sampleBytes, uint32_t headerBytes)
    {
        return uint64_t{sampleBytes} << 32 | headerBytes;
    }
    static bool isKept(std::size_t size)
    {
        return size >= smallestKept && size <= largestKept;
    }

    static void discard(const TraceBlocks& both)
    {
        discard(both.header);
        discard(both.samples);
    }

    /// What is kept, by key; one key a shelf at a time.
    template <typename Kept>
    class Shelves
    {
    public:
        const Kept* take(uint64_t key)
        {
            Shelf& shelf = shelfOf(key);
            if (shelf.key != key || shelf.count == 0)
                return nullptr;
            return &shelf.kept[--shelf.count];
        }

        /// `sizes` are those of the blocks, in bytes.
        template <typename... Sizes>
        Kept* roomFor(uint64_t key, Sizes... sizes)
        {
            Shelf& shelf = shelfOf(key);
            if (shelf.key != key && !useFor(shelf, key, sizes...))
                return nullptr;
            return shelf.count < shelf.room ? &shelf.kept[shelf.count++] : nullptr;
        }

        void release()
        {
            for (Shelf& shelf : shelves)
                empty(shelf);
        }

    private:
        struct Shelf
        {
            uint64_t key = 0;
            std::size_t count = 0;
            std::size_t room = 0;
            std::array<Kept, mostBlocks> kept{};
        };

        // Both sizes of a trace are mixed in, and those that differ by little go to different ones.
        Shelf& shelfOf(uint64_t key)
        {
            const uint64_t size = key + (key >> 32);
            return shelves[(size / 4 + size / 256) % shelves.size()];
        }

        template <typename... Sizes>
        [[gnu::noinline]] static bool useFor(Shelf& shelf, uint64_t key, Sizes... sizes)
        {
            if (!(isKept(sizes) && ...))
                return false;
            empty(shelf);
            shelf.key = key;
            shelf.room = std::min(mostBlocks, shelfBytes / (sizes + ...));
            return true;
        }

        static void empty(Shelf& shelf)
        {
            while (shelf.count > 0)
                discard(shelf.kept[--shelf.count]);
        }

        std::array<Shelf, 16> shelves{};
    };

    Shelves<AccountedBlock> blocks;
    Shelves<TraceBlocks> traces;
};

#endif
