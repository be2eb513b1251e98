#include "watched/GuardedMemory.h"

#include "private/BlockHeap.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <new>
#include <unordered_map>
#include <vector>

namespace watched {

namespace {

// As a float and as a double it is not a number. In memory that is not aligned the words follow the
// first byte of the guard.
constexpr std::array<unsigned char, 4> word = {0xA5, 0xA5, 0xF7, 0x7F};
constexpr std::size_t guardBytes = 128; // a multiple of the heap's alignment
constexpr std::size_t mostKeptBytes = std::size_t{8} << 20;
constexpr std::size_t patternBytes = 4096;

const std::array<unsigned char, patternBytes>& pattern()
{
    static const std::array<unsigned char, patternBytes> bytes = [] {
        std::array<unsigned char, patternBytes> all{};
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = word[i % word.size()];
        return all;
    }();
    return bytes;
}

void fill(unsigned char* at, std::size_t size)
{
    for (; size > patternBytes; size -= patternBytes, at += patternBytes)
        std::memcpy(at, pattern().data(), patternBytes);
    std::memcpy(at, pattern().data(), size);
}

// The bytes that are not the pattern: from the first to behind the last. Both 0: all are.
struct Range
{
    std::size_t first = 0;
    std::size_t last = 0;
};

bool isWhole(const unsigned char* at, std::size_t size)
{
    for (; size > patternBytes; size -= patternBytes, at += patternBytes) {
        if (std::memcmp(at, pattern().data(), patternBytes) != 0)
            return false;
    }
    return std::memcmp(at, pattern().data(), size) == 0;
}

Range damageOf(const unsigned char* at, std::size_t size)
{
    Range range;
    if (isWhole(at, size))
        return range;
    bool found = false;
    for (std::size_t i = 0; i < size; ++i) {
        if (at[i] == word[i % word.size()])
            continue;
        range.first = found ? range.first : i;
        range.last = i + 1;
        found = true;
    }
    return range;
}

struct Block
{
    std::size_t size = 0;
    unsigned tag = 0;
    bool isFreed = false;
};

class Memory final : public GuardedMemory
{
public:
    void begin(DamageListener& listens) override { listener = &listens; }

    void end() override
    {
        checkAll();
        listener = nullptr;
        while (!kept.empty())
            discardOldest();
    }

    void check(const void* block) override
    {
        const auto known = blocks.find(block);
        if (known != blocks.end())
            check(known->first, known->second);
    }

    void checkAll() override
    {
        for (const auto& [address, block] : blocks)
            check(address, block);
    }

    State stateOf(const void* block) const override
    {
        const auto known = blocks.find(block);
        if (known == blocks.end())
            return State::unknown;
        return known->second.isFreed ? State::freed : State::live;
    }

    void setTag(const void* block, unsigned tag) override
    {
        const auto known = blocks.find(block);
        if (known != blocks.end())
            known->second.tag = tag;
    }

    bool isActive() const { return listener != nullptr; }
    bool isEmpty() const { return blocks.empty(); }

    // Null where the heap has none, or for a size that only a wrong sign can have made.
    void* take(std::size_t size)
    {
        if (size > SIZE_MAX / 2)
            return nullptr;
        auto* start = static_cast<unsigned char*>(std::malloc(size + 2 * guardBytes));
        if (start == nullptr)
            return nullptr;
        unsigned char* block = start + guardBytes;
        try {
            blocks.insert_or_assign(block, Block{size, 0, false});
        } catch (const std::bad_alloc&) {
            std::free(start);
            return nullptr;
        }
        fill(start, guardBytes);
        fill(block + size, guardBytes);
        return block;
    }

    // False for a block that is not guarded. One that is freed for the second time stays as it is:
    // whoever asks is told before.
    bool give(void* address)
    {
        const auto known = blocks.find(address);
        if (known == blocks.end())
            return false;
        if (known->second.isFreed)
            return true;
        check(address, known->second);
        fill(static_cast<unsigned char*>(address), known->second.size);
        known->second.isFreed = true;
        keptBytes += known->second.size + 2 * guardBytes;
        try {
            kept.push_back(address);
        } catch (const std::bad_alloc&) {
            discard(address);
        }
        while (keptBytes > mostKeptBytes || (!isActive() && !kept.empty()))
            discardOldest();
        return true;
    }

private:
    void discardOldest()
    {
        void* oldest = kept.front();
        kept.pop_front();
        discard(oldest);
    }

    void discard(void* address)
    {
        const auto known = blocks.find(address);
        check(address, known->second);
        keptBytes -= known->second.size + 2 * guardBytes;
        blocks.erase(known);
        std::free(static_cast<unsigned char*>(address) - guardBytes);
    }

    void check(const void* address, const Block& block) const
    {
        auto* bytes = static_cast<unsigned char*>(const_cast<void*>(address));
        unsigned char* const front = bytes - guardBytes;
        const Range before = damageOf(front, guardBytes);
        if (before.last > 0) {
            tell(Damage::Kind::before, address, block, guardBytes - before.last, before);
            fill(front, guardBytes);
        }
        unsigned char* const rear = bytes + block.size;
        const Range behind = damageOf(rear, guardBytes);
        if (behind.last > 0) {
            tell(Damage::Kind::behind, address, block, behind.first, behind);
            fill(rear, guardBytes);
        }
        if (!block.isFreed)
            return;
        const Range within = damageOf(bytes, block.size);
        if (within.last > 0) {
            tell(Damage::Kind::afterFree, address, block, within.first, within);
            fill(bytes, block.size);
        }
    }

    void tell(Damage::Kind kind, const void* address, const Block& block, std::size_t distance,
              const Range& range) const
    {
        if (listener != nullptr)
            listener->damaged(
                {kind, address, block.size, distance, range.last - range.first, block.tag});
    }

    std::unordered_map<const void*, Block> blocks; // live and freed ones
    std::deque<void*> kept;                        // freed, the oldest first
    std::size_t keptBytes = 0;
    DamageListener* listener = nullptr;
};

// Never destroyed: traces may outlive everything else.
Memory& memory()
{
    static auto& one = *new Memory;
    return one;
}

} // namespace

} // namespace watched

bool heap::isGuarded()
{
    return watched::memory().isActive() || !watched::memory().isEmpty();
}

void* heap::take(std::size_t size)
{
    return watched::memory().isActive() ? watched::memory().take(size) : std::malloc(size);
}

void heap::give(void* block)
{
    if (!watched::memory().give(block))
        std::free(block);
}

watched::GuardedMemory* vornGuardedMemory()
{
    return &watched::memory();
}
