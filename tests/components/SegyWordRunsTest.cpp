#include "segy/WordRuns.h"

#include <SegyBytes.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace VORN;

namespace {

using Words = std::vector<const HeaderWord*>;

Words pointersTo(const std::vector<HeaderWord>& words)
{
    Words pointers;
    for (const HeaderWord& word : words)
        pointers.push_back(&word);
    return pointers;
}

// Lists as modules have them, with words that are neighbours and words that are not.
std::vector<Words> lists()
{
    const Words all = pointersTo(traceHeaderWords());
    Words integersOfSu = pointersTo(suHeaderWords());
    std::erase_if(integersOfSu, [](const HeaderWord* word) { return word->isFloat; });
    Words some;
    std::copy_if(all.begin(), all.end(), std::back_inserter(some),
                 [](const HeaderWord* word) { return word->byte % 3 != 0; });
    return {all, integersOfSu, some, Words(all.rbegin(), all.rend()), {all[0], all[0]}, {}};
}

// Values that 16 bits hold, signed or unsigned, and values that they do not.
int32_t anyValue(std::mt19937& dice)
{
    constexpr int32_t edges[] = {0,
                                 1,
                                 -1,
                                 32767,
                                 32768,
                                 -32768,
                                 -32769,
                                 65535,
                                 65536,
                                 -65536,
                                 70000,
                                 -70000,
                                 std::numeric_limits<int32_t>::max(),
                                 std::numeric_limits<int32_t>::min()};
    const auto bits = static_cast<int32_t>(dice());
    switch (dice() % 4) {
    case 0:
        return edges[dice() % std::size(edges)];
    case 1:
        return bits;
    default:
        return bits >> 17;
    }
}

} // namespace

TEST(SegyWordRunsTest, WordsAreReadAsOneByOne)
{
    std::mt19937 dice(1);
    Bytes bytes(1 + segyTraceHeaderBytes);
    for (const Words& words : lists()) {
        const WordRuns runs(words);
        ASSERT_EQ(runs.size(), words.size());
        for (int round = 0; round < 200; ++round) {
            for (unsigned char& byte : bytes)
                byte = static_cast<unsigned char>(dice());
            const unsigned char* header = bytes.data() + round % 2;
            const bool little = round % 4 < 2;
            std::vector<int32_t> values(words.size() + 1, -77);
            runs.read(header, little, values.data());
            for (std::size_t i = 0; i < words.size(); ++i)
                ASSERT_EQ(values[i], readWord(header, *words[i], little)) << words[i]->key;
            ASSERT_EQ(values.back(), -77) << "behind the end";
        }
    }
}

TEST(SegyWordRunsTest, WordsAreWrittenAsOneByOne)
{
    std::mt19937 dice(2);
    int fitting = 0;
    for (const Words& words : lists()) {
        const WordRuns runs(words);
        for (int round = 0; round < 400; ++round) {
            std::vector<int32_t> values(words.size());
            for (int32_t& value : values)
                value = round % 2 == 0 ? anyValue(dice) : static_cast<int32_t>(dice() % 32768);
            const bool little = round % 4 < 2;
            Bytes single(1 + segyTraceHeaderBytes + 1, 0x55);
            Bytes together = single;
            bool allFit = true;
            for (std::size_t i = 0; i < words.size(); ++i)
                allFit = writeWord(single.data() + 1, *words[i], little, values[i]) && allFit;
            ASSERT_EQ(runs.write(together.data() + 1, little, values.data()), allFit);
            ASSERT_EQ(together, single) << "list of " << words.size();
            fitting += allFit ? 1 : 0;
        }
    }
    EXPECT_GT(fitting, 1000);
    EXPECT_LT(fitting, 1800);
}

TEST(SegyWordRunsTest, OneValueThatDoesNotFitIsNoticedWhereverItStands)
{
    const Words words = pointersTo(traceHeaderWords());
    const WordRuns runs(words);
    Bytes header(segyTraceHeaderBytes);
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::vector<int32_t> values(words.size(), 7);
        values[i] = words[i]->isUnsigned ? -1 : -32769;
        EXPECT_EQ(runs.write(header.data(), false, values.data()), words[i]->bytes == 4)
            << words[i]->key;
    }
}
