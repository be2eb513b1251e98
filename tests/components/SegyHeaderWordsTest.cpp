#include "segy/HeaderWords.h"

#include <SegyBytes.h>

#include <climits>
#include <gtest/gtest.h>
#include <set>

using namespace VORN;

TEST(SegyHeaderWordsTest, TheTraceHeaderWordsCoverEachByteOnce)
{
    std::vector<int> covered(241, 0);
    for (const HeaderWord& word : traceHeaderWords()) {
        for (int byte = word.byte; byte < word.byte + word.bytes; ++byte)
            ++covered.at(static_cast<std::size_t>(byte));
    }
    for (int byte = 1; byte <= 240; ++byte)
        EXPECT_EQ(covered[static_cast<std::size_t>(byte)], 1) << "byte " << byte;
}

TEST(SegyHeaderWordsTest, WordsStandWhereTheStandardPutsThem)
{
    struct Row
    {
        const char* key;
        int byte;
        int bytes;
    };
    const Row rows[] = {
        {"tracl", 1, 4},   {"fldr", 9, 4},    {"tracf", 13, 4},  {"cdp", 21, 4},
        {"trid", 29, 2},   {"offset", 37, 4}, {"scalel", 69, 2}, {"scalco", 71, 2},
        {"sx", 73, 4},     {"gy", 85, 4},     {"delrt", 109, 2}, {"ns", 115, 2},
        {"dt", 117, 2},    {"year", 157, 2},  {"otrav", 179, 2}, {"cdpx", 181, 4},
        {"iline", 189, 4}, {"xline", 193, 4}, {"sp", 197, 4},    {"scalsp", 201, 2}};
    for (const Row& row : rows) {
        const HeaderWord* word = findTraceHeaderWord(row.key);
        ASSERT_NE(word, nullptr) << row.key;
        EXPECT_EQ(word->byte, row.byte) << row.key;
        EXPECT_EQ(word->bytes, row.bytes) << row.key;
    }
    EXPECT_EQ(findBinaryHeaderWord("hdt")->byte, 17);
    EXPECT_EQ(findBinaryHeaderWord("hns")->byte, 21);
    EXPECT_EQ(findBinaryHeaderWord("format")->byte, 25);
    EXPECT_EQ(findBinaryHeaderWord("rev")->byte, 301);
}

TEST(SegyHeaderWordsTest, NoKeyStandsTwice)
{
    for (const auto* words : {&traceHeaderWords(), &binaryHeaderWords(), &suHeaderWords()}) {
        std::set<std::string> keys;
        for (const HeaderWord& word : *words)
            EXPECT_TRUE(keys.insert(word.key).second) << word.key;
    }
}

TEST(SegyHeaderWordsTest, AnUnknownKeyHasNoWord)
{
    EXPECT_EQ(findTraceHeaderWord("offse"), nullptr);
    EXPECT_EQ(findTraceHeaderWord(""), nullptr);
    EXPECT_EQ(findBinaryHeaderWord("fldr"), nullptr);
}

TEST(SegyHeaderWordsTest, EveryWordComesBackInBothOrdersAndTouchesNothingElse)
{
    for (const auto* words : {&traceHeaderWords(), &suHeaderWords()}) {
        for (const HeaderWord& word : *words) {
            for (const bool little : {false, true}) {
                Bytes header(240, 0xA5);
                const int32_t value = word.bytes == 4 ? -123456789 : word.isUnsigned ? 54321 : -321;
                EXPECT_TRUE(writeWord(header.data(), word, little, value));
                EXPECT_EQ(readWord(header.data(), word, little), value) << word.key;
                const auto start = static_cast<std::size_t>(word.byte) - 1;
                const auto read = getInteger(header, start, word.bytes, little);
                EXPECT_EQ(static_cast<int16_t>(read), static_cast<int16_t>(value)) << word.key;
                for (std::size_t i = 0; i < header.size(); ++i) {
                    if (i < start || i >= start + static_cast<std::size_t>(word.bytes)) {
                        ASSERT_EQ(header[i], 0xA5) << word.key << ", byte " << i + 1;
                    }
                }
            }
        }
    }
}

TEST(SegyHeaderWordsTest, CountsOf16BitsGoUpTo65535)
{
    Bytes header(240);
    putInteger(header, 114, 2, 60000);
    EXPECT_EQ(readWord(header.data(), *findTraceHeaderWord("ns"), false), 60000);
    putInteger(header, 108, 2, 60000);
    EXPECT_EQ(readWord(header.data(), *findTraceHeaderWord("delrt"), false), 60000 - 65536);
}

TEST(SegyHeaderWordsTest, ValuesThatDoNotFitBecomeTheNearest)
{
    struct Row
    {
        const char* key;
        int64_t value;
        int32_t written;
    };
    const Row rows[] = {{"scalco", 40000, 32767},
                        {"scalco", -40000, -32768},
                        {"ns", 70000, 65535},
                        {"ns", -1, 0},
                        {"delrt", 32768, 32767},
                        {"dt", INT_MIN, 0},
                        {"delrt", INT_MAX, 32767},
                        {"tracl", int64_t{INT_MAX} + 1, INT_MAX},
                        {"sx", int64_t{-1} << 40, INT_MIN},
                        {"scalco", int64_t{1} << 32, 32767}};
    for (const Row& row : rows) {
        const HeaderWord& word = *findTraceHeaderWord(row.key);
        Bytes header(240);
        EXPECT_FALSE(writeWord(header.data(), word, false, row.value)) << row.key << row.value;
        EXPECT_EQ(readWord(header.data(), word, false), row.written) << row.key << row.value;
    }
}

TEST(SegyHeaderWordsTest, SeismicUnixWordsAreThoseOfSegyUpToByte180)
{
    for (const HeaderWord& word : suHeaderWords()) {
        if (word.byte > 180)
            continue;
        const HeaderWord* same = findTraceHeaderWord(word.key);
        ASSERT_NE(same, nullptr) << word.key;
        EXPECT_EQ(word.byte, same->byte) << word.key;
        EXPECT_FALSE(word.isFloat) << word.key;
    }
    EXPECT_EQ(suHeaderWords().size(), 71u + 9u);
}

TEST(SegyHeaderWordsTest, ScalarsMultiplyDivideOrDoNothing)
{
    EXPECT_EQ(applyScalar(1234, 10), 12340.0);
    EXPECT_EQ(applyScalar(1234, -10), 123.4);
    EXPECT_EQ(applyScalar(1234, 0), 1234.0);
    EXPECT_EQ(applyScalar(1234, 1), 1234.0);
    EXPECT_EQ(applyScalar(-32768, -32768), -1.0);
    EXPECT_EQ(applyScalar(INT_MAX, 10000), 2147483647.0 * 10000);
}
