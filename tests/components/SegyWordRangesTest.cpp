#include "segy/WordRanges.h"

#include <SegyBytes.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

using namespace VORN;

namespace {

std::vector<const HeaderWord*> allWords()
{
    std::vector<const HeaderWord*> words;
    for (const HeaderWord& word : traceHeaderWords())
        words.push_back(&word);
    return words;
}

} // namespace

TEST(SegyWordRangesTest, RangesAreThoseOfTheWordsReadOneByOne)
{
    const std::vector<const HeaderWord*> words = allWords();
    std::mt19937 dice(3);
    for (const bool little : {false, true}) {
        WordRanges ranges(words);
        std::vector<WordRanges::Range> expected(words.size());
        Bytes header(segyTraceHeaderBytes);
        for (int trace = 0; trace < 500; ++trace) {
            for (unsigned char& byte : header) {
                if (dice() % 8 == 0) // most words stay what they were
                    byte = static_cast<unsigned char>(dice());
            }
            ranges.see(header.data(), little);
            for (std::size_t i = 0; i < words.size(); ++i) {
                const int32_t value = readWord(header.data(), *words[i], little);
                WordRanges::Range& range = expected[i];
                if (trace == 0)
                    range = {value, value, value, value, 0};
                range.minimum = std::min(range.minimum, value);
                range.maximum = std::max(range.maximum, value);
                range.changes += value != range.last ? 1 : 0;
                range.last = value;
            }
        }
        for (std::size_t i = 0; i < words.size(); ++i) {
            const WordRanges::Range found = ranges.range(i);
            EXPECT_EQ(found.minimum, expected[i].minimum) << words[i]->key;
            EXPECT_EQ(found.maximum, expected[i].maximum) << words[i]->key;
            EXPECT_EQ(found.first, expected[i].first) << words[i]->key;
            EXPECT_EQ(found.last, expected[i].last) << words[i]->key;
            EXPECT_EQ(found.changes, expected[i].changes) << words[i]->key;
            EXPECT_GT(found.changes, 50) << words[i]->key;
        }
    }
}

TEST(SegyWordRangesTest, WithoutHeadersEverythingIsZero)
{
    const WordRanges ranges(allWords());
    EXPECT_EQ(ranges.range(0).maximum, 0);
    EXPECT_EQ(ranges.range(0).changes, 0);
}

TEST(SegyWordRangesTest, FloatsAndWordsBeyond32BitsAreNotServed)
{
    EXPECT_TRUE(WordRanges::canSee(*findTraceHeaderWord("ns")));
    EXPECT_TRUE(WordRanges::canSee(*findTraceHeaderWord("cdp")));
    EXPECT_FALSE(WordRanges::canSee({"x", 1, 4, true, ""}));
    EXPECT_FALSE(WordRanges::canSee({"x", 1, 3, false, ""}));
    EXPECT_FALSE(WordRanges::canSee({"x", 1, 8, false, ""}));
    EXPECT_FALSE(WordRanges::canSee({"x", 1, 4, false, "", true}));
}
