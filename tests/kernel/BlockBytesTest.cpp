// Copying and clearing in pieces: every byte that is meant, and no other, on both sides of the
// sizes at which the way changes.
#include "private/BlockBytes.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace {

constexpr std::size_t margin = 64;

std::vector<unsigned char> pattern(std::size_t size, unsigned start)
{
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>((start + i * 31 + i / 251) % 255 + 1); // never 0
    return bytes;
}

class BlockBytesTest : public testing::TestWithParam<std::size_t>
{
protected:
    const std::size_t size = GetParam();
    const std::vector<unsigned char> former = pattern(size + 2 * margin, 7);
    std::vector<unsigned char> memory = former;
};

TEST_P(BlockBytesTest, CopyWritesTheBytesAndNothingAround)
{
    const std::vector<unsigned char> source = pattern(size, 100);
    blocks::copy(memory.data() + margin, source.data(), size);
    for (std::size_t i = 0; i < memory.size(); ++i) {
        const bool within = i >= margin && i < margin + size;
        ASSERT_EQ(memory[i], within ? source[i - margin] : former[i]) << "byte " << i;
    }
}

TEST_P(BlockBytesTest, CopyToAPlaceBeforeMayOverlap)
{
    blocks::copy(memory.data(), memory.data() + margin, size);
    for (std::size_t i = 0; i < memory.size(); ++i)
        ASSERT_EQ(memory[i], former[i < size ? i + margin : i]) << "byte " << i;
}

TEST_P(BlockBytesTest, CopyToTheSamePlaceChangesNothing)
{
    blocks::copy(memory.data() + margin, memory.data() + margin, size);
    EXPECT_EQ(memory, former);
}

TEST_P(BlockBytesTest, ClearWritesZerosAndNothingAround)
{
    blocks::clear(memory.data() + margin, size);
    for (std::size_t i = 0; i < memory.size(); ++i) {
        const bool within = i >= margin && i < margin + size;
        ASSERT_EQ(memory[i], within ? 0 : former[i]) << "byte " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, BlockBytesTest,
                         testing::Values(0, 1, 240, blocks::piece - 1, blocks::piece,
                                         blocks::piece + 1, 2 * blocks::piece, 6000,
                                         blocks::largestInPieces - 4, blocks::largestInPieces,
                                         blocks::largestInPieces + 1, 100000));

} // namespace
