#include "segy/WordMap.h"

#include <SegyBytes.h>

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>

using namespace VORN;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

std::string refusalOf(const std::string& text)
{
    try {
        WordMap map(text);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "";
}

const HeaderWord& wordOf(const WordMap& map, std::size_t index = 0)
{
    return map.words().at(index);
}

} // namespace

TEST(SegyWordMapTest, WordsKeepTheirTypeUnlessAnotherIsGiven)
{
    const WordMap map("iline=9, scalco = 181,cdpx=73:double\nweight=201:uint24, mark2=233");
    ASSERT_THAT(map.words(), SizeIs(5));
    EXPECT_EQ(map.text(), "iline=9:int32, scalco=181:int16, cdpx=73:double, weight=201:uint24, "
                          "mark2=233:int32");
    EXPECT_TRUE(map.has("weight"));
    EXPECT_FALSE(map.has("xline"));
    EXPECT_EQ(WordMap(map.text()).text(), map.text());
}

TEST(SegyWordMapTest, AppliedWordsMoveAndNewOnesStandBehind)
{
    const WordMap map("iline=9, other=233:int16");
    const std::vector<HeaderWord> words = map.applied(traceHeaderWords());
    ASSERT_THAT(words, SizeIs(traceHeaderWords().size() + 1));
    EXPECT_STREQ(words.back().key, "other");
    for (const HeaderWord& word : words) {
        if (std::string(word.key) == "iline") {
            EXPECT_EQ(word.byte, 9);
            EXPECT_STREQ(word.text, "in-line number");
        }
    }
}

TEST(SegyWordMapTest, WrongMapsAreRefusedWithThePieceAndWhatWasExpected)
{
    const std::pair<const char*, const char*> rows[] = {
        {"", "is not WORD=BYTE"},
        {"iline", "\"iline\" is not WORD=BYTE"},
        {"iline=0", "\"iline=0\" begins at byte \"0\"; expected a number from 1 to 240"},
        {"iline=241", "begins at byte \"241\""},
        {"iline=x", "begins at byte \"x\""},
        {"iline=", "begins at byte \"\""},
        {"iline=238", "\"iline=238\" ends at byte 241; a trace header has 240"},
        {"cdpx=235:double", "ends at byte 242"},
        {"cdpx=73:int31", "has the type \"int31\"; expected int8, uint8"},
        {"cdpx=73:int72", "has the type \"int72\""},
        {"cdpx=73:int", "has the type \"int\""},
        {"cdpx=73:", "has the type \"\""},
        {"iline=9, iline=13", "\"iline=13\" maps a word that is mapped already"},
        {"ns=9", "maps the length of the traces"},
        {"dt=9", "maps the sample interval of the traces"},
        {"in line=9:text", "\"inline=9:text\" has the type \"text\""},
        {"=9", "names no word"},
    };
    for (const auto& [text, says] : rows)
        EXPECT_THAT(refusalOf(text), HasSubstr(says)) << text;
}

TEST(SegyWordMapTest, WordsThatCannotBeWrittenTogetherAreNamed)
{
    EXPECT_THAT(WordMap("iline=9, xline=13").problemOfWriting(), IsEmpty());
    EXPECT_THAT(WordMap("iline=9, xline=12").problemOfWriting(),
                HasSubstr("the words iline and xline share bytes"));
    EXPECT_THAT(WordMap("iline=112").problemOfWriting(),
                HasSubstr("the word iline takes bytes 112 to 115, and bytes 115 to 118 hold"));
}

// ---- Values of all types, against bytes put together here ----

TEST(SegyWordMapTest, IntegersOfOneToEightBytesAreReadInBothOrders)
{
    for (const bool little : {false, true}) {
        for (int bytes = 1; bytes <= 8; ++bytes) {
            const std::string type = std::to_string(8 * bytes);
            const WordMap map("a=101:int" + type + ", b=101:uint" + type);
            Bytes header(240, 0x55);
            const int64_t value = -(int64_t{1} << (8 * bytes - 2)) + 5;
            putInteger(header, 100, bytes, value, little);
            EXPECT_EQ(readWordValue(header.data(), wordOf(map), little).whole, value) << type;
            const int64_t asUnsigned = bytes == 8 ? INT64_MAX : value + (int64_t{1} << (8 * bytes));
            EXPECT_EQ(readWordValue(header.data(), wordOf(map, 1), little).whole, asUnsigned)
                << type;
            EXPECT_EQ(header[99], 0x55);
            EXPECT_EQ(header[static_cast<std::size_t>(100 + bytes) % 240], 0x55);
        }
    }
}

TEST(SegyWordMapTest, FloatsAreRead)
{
    Bytes header(240, 0);
    putInteger(header, 0, 4, 0xC276A000);         // IBM: -118.625
    putInteger(header, 4, 4, bitsOf(2.5e-3F));    // IEEE
    putInteger(header, 8, 8, 0x40DE240CCCCCCCCD); // double: 30864.2
    const WordMap map("a=1:ibm, b=5:ieee, c=9:double");
    EXPECT_EQ(readWordValue(header.data(), wordOf(map, 0), false).real, -118.625);
    EXPECT_EQ(readWordValue(header.data(), wordOf(map, 1), false).real,
              static_cast<double>(2.5e-3F));
    EXPECT_EQ(readWordValue(header.data(), wordOf(map, 2), false).real, 30864.2);
    EXPECT_TRUE(readWordValue(header.data(), wordOf(map, 0), false).isFloat);
}

TEST(SegyWordMapTest, ValuesThatDoNotFitAreWrittenAsTheNearest)
{
    Bytes header(240, 0);
    const WordMap map("a=1:int24, b=5:uint8, c=9:int64, d=17:uint64, e=25:ieee, f=29:ibm");
    const auto write = [&](std::size_t word, const WordValue& value) {
        return writeWordValue(header.data(), wordOf(map, word), false, value);
    };
    EXPECT_TRUE(write(0, -8388608));
    EXPECT_EQ(getInteger(header, 0, 3), -8388608);
    EXPECT_FALSE(write(0, 8388608));
    EXPECT_EQ(getInteger(header, 0, 3), 8388607);
    EXPECT_FALSE(write(1, -1));
    EXPECT_EQ(header[4], 0);
    EXPECT_TRUE(write(1, WordValue::ofFloat(254.6)));
    EXPECT_EQ(header[4], 255);
    EXPECT_TRUE(write(2, INT64_MIN));
    EXPECT_EQ(getInteger(header, 8, 8), INT64_MIN);
    EXPECT_FALSE(write(2, WordValue::ofFloat(1e30)));
    EXPECT_EQ(getInteger(header, 8, 8), INT64_MAX);
    EXPECT_FALSE(write(2, WordValue::ofFloat(std::numeric_limits<double>::quiet_NaN())));
    EXPECT_EQ(getInteger(header, 8, 8), 0);
    EXPECT_TRUE(write(3, INT64_MAX));
    EXPECT_TRUE(write(4, WordValue::ofFloat(0.25)));
    EXPECT_EQ(getInteger(header, 24, 4), bitsOf(0.25F));
    EXPECT_FALSE(write(4, WordValue::ofFloat(1e300)));
    EXPECT_EQ(getInteger(header, 24, 4), bitsOf(std::numeric_limits<float>::max()));
    EXPECT_TRUE(write(5, WordValue::ofFloat(-118.625)));
    EXPECT_EQ(static_cast<uint32_t>(getInteger(header, 28, 4)), 0xC276A000);
}
