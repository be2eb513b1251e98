#include "segy/Samples.h"

#include <SegyBytes.h>

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace VORN;

namespace {

constexpr float largestFloat = std::numeric_limits<float>::max();

// What the bits of an IBM float say, by the definition of the coding.
long double ibmValue(uint32_t bits)
{
    const long double fraction = static_cast<long double>(bits & 0xFFFFFFu) / 16777216.0L;
    const int exponent = static_cast<int>(bits >> 24 & 0x7F) - 64;
    const long double magnitude = std::ldexp(fraction, 4 * exponent);
    return bits >> 31 != 0 ? -magnitude : magnitude;
}

Bytes bigEndian(const std::vector<uint32_t>& words)
{
    Bytes bytes(4 * words.size());
    for (std::size_t i = 0; i < words.size(); ++i)
        putInteger(bytes, 4 * i, 4, words[i]);
    return bytes;
}

float decodeOne(const Bytes& bytes, SampleFormat format, bool little)
{
    float value = -77;
    decodeSamples(bytes.data(), format, little, 1, &value);
    return value;
}

uint32_t encodeIbm(float value)
{
    unsigned char bytes[4];
    encodeSamples(&value, 1, SampleFormat::ibmFloat, false, bytes);
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

struct IbmRow
{
    const char* name;
    uint32_t bits;
    float value;
};

// The fourth and fifth are the examples of the IBM System/360 manuals.
const IbmRow ibmRows[] = {
    {"zero", 0x00000000, 0.0f},
    {"one", 0x41100000, 1.0f},
    {"minus one", 0xC1100000, -1.0f},
    {"minus 118.625", 0xC276A000, -118.625f},
    {"one half", 0x40800000, 0.5f},
    {"sixteen", 0x42100000, 16.0f},
    {"all digits", 0x46FFFFFF, 16777215.0f},
    {"a tenth, nearest below", 0x40199999, 0.0999999642372131f},
};

} // namespace

TEST(SegySamplesTest, KnownIbmFloatsAreRead)
{
    for (const IbmRow& row : ibmRows)
        EXPECT_EQ(decodeOne(bigEndian({row.bits}), SampleFormat::ibmFloat, false), row.value)
            << row.name;
}

TEST(SegySamplesTest, KnownIbmFloatsAreWritten)
{
    for (const IbmRow& row : ibmRows)
        EXPECT_EQ(encodeIbm(row.value), row.bits) << row.name;
}

TEST(SegySamplesTest, EveryIbmFloatIsReadAsTheNearestFloat)
{
    std::mt19937 dice(1);
    for (int i = 0; i < 200000; ++i) {
        const uint32_t bits = dice();
        const float read = decodeOne(bigEndian({bits}), SampleFormat::ibmFloat, false);
        const long double exact = ibmValue(bits);
        const float nearest = std::fabs(exact) >= largestFloat
                                  ? std::copysign(largestFloat, static_cast<float>(exact))
                                  : static_cast<float>(exact);
        ASSERT_EQ(bitsOf(read), bitsOf(nearest)) << std::hex << bits;
    }
}

TEST(SegySamplesTest, NormalisedIbmFloatsComeBackBitForBit)
{
    std::mt19937 dice(2);
    for (int i = 0; i < 200000; ++i) {
        const uint32_t exponent = 34 + dice() % 62; // 2^-123 to 2^124, all of them normal floats
        const uint32_t digits = 0x100000u + dice() % 0xF00000u;
        const uint32_t bits = (dice() % 2) << 31 | exponent << 24 | digits;
        ASSERT_EQ(encodeIbm(decodeOne(bigEndian({bits}), SampleFormat::ibmFloat, false)), bits)
            << std::hex << bits;
    }
}

TEST(SegySamplesTest, UnnormalisedIbmFloatsKeepTheirValue)
{
    EXPECT_EQ(decodeOne(bigEndian({0x42010000}), SampleFormat::ibmFloat, false), 1.0f);
    EXPECT_EQ(encodeIbm(1.0f), 0x41100000u);
}

TEST(SegySamplesTest, EveryFloatIsWrittenAsTheNearestIbmFloat)
{
    std::mt19937 dice(3);
    for (int i = 0; i < 200000; ++i) {
        const float value = floatOf(dice());
        if (!std::isfinite(value))
            continue;
        const uint32_t bits = encodeIbm(value);
        const long double digit =
            std::ldexp(1.0L, 4 * (static_cast<int>(bits >> 24 & 0x7F) - 64) - 24);
        ASSERT_LE(std::fabs(ibmValue(bits) - static_cast<long double>(value)), digit / 2) << value;
        ASSERT_TRUE(value == 0 || (bits & 0x00F00000u) != 0) << value << " is not normalised";
    }
}

TEST(SegySamplesTest, DenormalFloatsAreWrittenExactly)
{
    for (const uint32_t bits : {0x00000001u, 0x00000007u, 0x00400000u, 0x007FFFFFu, 0x807FFFFFu}) {
        const float value = floatOf(bits);
        const uint32_t written = encodeIbm(value);
        const long double digit =
            std::ldexp(1.0L, 4 * (static_cast<int>(written >> 24 & 0x7F) - 64) - 24);
        EXPECT_LE(std::fabs(ibmValue(written) - static_cast<long double>(value)), digit / 2)
            << std::hex << bits;
    }
}

TEST(SegySamplesTest, MinusZeroKeepsItsSign)
{
    EXPECT_EQ(encodeIbm(-0.0f), 0x80000000u);
    EXPECT_EQ(bitsOf(decodeOne(bigEndian({0x80000000}), SampleFormat::ibmFloat, false)),
              0x80000000u);
}

TEST(SegySamplesTest, WhatIbmFloatsCannotHoldIsCounted)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float values[] = {1, infinity, nan, -infinity, -nan, largestFloat};
    Bytes bytes(4 * 6, 0x55);
    EXPECT_EQ(encodeSamples(values, 6, SampleFormat::ibmFloat, false, bytes.data()), 4u);
    EXPECT_EQ(getInteger(bytes, 4, 4) & 0xFFFFFFFF, 0x7FFFFFFF);
    EXPECT_EQ(getInteger(bytes, 8, 4), 0);
    EXPECT_EQ(getInteger(bytes, 12, 4) & 0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_EQ(getInteger(bytes, 16, 4), 0);
}

TEST(SegySamplesTest, IeeeFloatsPassInBothOrdersBitForBit)
{
    std::vector<float> values;
    std::mt19937 dice(4);
    for (int i = 0; i < 1000; ++i)
        values.push_back(floatOf(dice()));
    for (const bool little : {false, true}) {
        Bytes bytes(4 * values.size());
        encodeSamples(values.data(), values.size(), SampleFormat::ieeeFloat, little, bytes.data());
        EXPECT_EQ(getInteger(bytes, 0, 4, little) & 0xFFFFFFFF, bitsOf(values[0]));
        std::vector<float> back(values.size());
        decodeSamples(bytes.data(), SampleFormat::ieeeFloat, little, back.size(), back.data());
        EXPECT_EQ(std::memcmp(back.data(), values.data(), 4 * values.size()), 0) << little;
    }
}

struct IntegerRow
{
    SampleFormat format;
    int64_t bits;
    float value;
};

TEST(SegySamplesTest, IntegersOfAllWidthsAreReadInBothOrders)
{
    const IntegerRow rows[] = {
        {SampleFormat::int8, -128, -128},
        {SampleFormat::int8, 127, 127},
        {SampleFormat::uint8, 255, 255},
        {SampleFormat::int16, -2, -2},
        {SampleFormat::int16, 0x1234, 4660},
        {SampleFormat::uint16, 65535, 65535},
        {SampleFormat::int24, -8388608, -8388608},
        {SampleFormat::int24, 0x123456, 1193046},
        {SampleFormat::uint24, 0xFFFFFF, 16777215},
        {SampleFormat::int32, -134871, -134871},
        {SampleFormat::int32, 0x12345678, 305419904}, // the nearest float
        {SampleFormat::uint32, 4294967295, 4294967296.0f},
        {SampleFormat::int64, -1, -1},
        {SampleFormat::int64, int64_t(1) << 40, 1099511627776.0f},
        {SampleFormat::uint64, -1, 18446744073709551616.0f},
    };
    for (const IntegerRow& row : rows) {
        const int width = sampleBytes(row.format);
        for (const bool little : {false, true}) {
            Bytes bytes(static_cast<std::size_t>(width));
            putInteger(bytes, 0, width, row.bits, little);
            EXPECT_EQ(decodeOne(bytes, row.format, little), row.value)
                << sampleFormatName(row.format) << " " << row.bits << (little ? " little" : " big");
        }
    }
}

TEST(SegySamplesTest, DoublesAreReadAsTheNearestFloat)
{
    struct Row
    {
        double value;
        float nearest;
    };
    const double infinity = std::numeric_limits<double>::infinity();
    for (const Row& row : {Row{0.1, 0.1f}, Row{-1e300, -largestFloat}, Row{1e-300, 0.0f},
                           Row{infinity, std::numeric_limits<float>::infinity()}})
    {
        int64_t bits;
        std::memcpy(&bits, &row.value, sizeof bits);
        for (const bool little : {false, true}) {
            Bytes bytes(8);
            putInteger(bytes, 0, 8, bits, little);
            EXPECT_EQ(decodeOne(bytes, SampleFormat::ieeeDouble, little), row.nearest) << row.value;
        }
    }
}

TEST(SegySamplesTest, NoNumberInADoubleStaysNoNumber)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    int64_t bits;
    std::memcpy(&bits, &nan, sizeof bits);
    Bytes bytes(8);
    putInteger(bytes, 0, 8, bits);
    EXPECT_TRUE(std::isnan(decodeOne(bytes, SampleFormat::ieeeDouble, false)));
}

// Long runs go through in pieces and in vectors; each sample must come out as it does alone.
TEST(SegySamplesTest, LongRunsAtOddAddressesGiveWhatSingleSamplesGive)
{
    std::mt19937 dice(5);
    Bytes bytes(8 * 3000 + 1);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(dice());
    for (int code = 1; code <= 16; ++code) {
        if (!isSampleFormat(code))
            continue;
        const auto format = static_cast<SampleFormat>(code);
        const auto width = static_cast<std::size_t>(sampleBytes(format));
        for (const bool little : {false, true}) {
            for (const std::size_t count :
                 {std::size_t(1), std::size_t(5), std::size_t(1024), std::size_t(2999)})
            {
                std::vector<float> all(count + 1, -77);
                decodeSamples(bytes.data() + 1, format, little, count, all.data());
                EXPECT_EQ(all[count], -77) << "behind the end";
                for (std::size_t i = 0; i < count; ++i) {
                    float one;
                    decodeSamples(bytes.data() + 1 + i * width, format, little, 1, &one);
                    ASSERT_EQ(bitsOf(all[i]), bitsOf(one)) << sampleFormatName(format) << " " << i;
                }
            }
        }
    }
}

TEST(SegySamplesTest, LongRunsAreWrittenAsSingleSamplesAre)
{
    std::mt19937 dice(6);
    std::vector<float> values;
    for (int i = 0; i < 2999; ++i)
        values.push_back(floatOf(dice()));
    for (const bool little : {false, true}) {
        Bytes all(4 * values.size() + 4, 0x55);
        encodeSamples(values.data(), values.size(), SampleFormat::ibmFloat, little, all.data() + 1);
        EXPECT_EQ(all.back(), 0x55) << "behind the end";
        for (std::size_t i = 0; i < values.size(); ++i) {
            Bytes one(4);
            encodeSamples(&values[i], 1, SampleFormat::ibmFloat, little, one.data());
            ASSERT_TRUE(std::equal(one.begin(), one.end(), all.data() + 1 + 4 * i)) << i;
        }
    }
}

TEST(SegySamplesTest, CodesThatCannotBeReadAreKnownAsSuch)
{
    for (const int code : {-1, 0, 4, 13, 14, 17, 256, 1280})
        EXPECT_FALSE(isSampleFormat(code)) << code;
    EXPECT_EQ(sampleBytes(static_cast<SampleFormat>(4)), 0);
    EXPECT_STREQ(sampleFormatName(static_cast<SampleFormat>(4)), "unknown");
}

TEST(SegySamplesTest, EachFormatIsFoundByItsKey)
{
    for (int code = 1; code <= 16; ++code) {
        if (isSampleFormat(code)) {
            const auto format = static_cast<SampleFormat>(code);
            EXPECT_EQ(sampleFormatOfKey(sampleFormatKey(format)), format) << code;
        }
    }
    EXPECT_EQ(sampleFormatOfKey("float"), std::nullopt);
}
