// The loops over samples, for every class of processors that this one belongs to, against a scalar
// form that shares nothing with them but the definitions of the codings.
#include "segy/SampleLoops.h"

#include <SegyBytes.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <ostream>
#include <string>

using namespace VORN;

namespace {

// Without optimisation, or under a tool that slows everything down, fewer show the same.
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__)
constexpr int rounds = 160;
#else
constexpr int rounds = 4;
#endif
constexpr std::size_t perRound = 65537; // an odd number: 10 million words of each coding in all

// Words of any bits, the same in each run.
class Dice
{
public:
    uint64_t next()
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state * 0x2545F4914F6CDD1Du;
    }

private:
    uint64_t state = 0x9E3779B97F4A7C15u;
};

// ---- The codings, by their definitions ----

float cut(double value)
{
    constexpr double largest = std::numeric_limits<float>::max();
    return static_cast<float>(std::clamp(value, -largest, largest));
}

// 16 to the powers -64 to 63.
double powerOf16(int power)
{
    static const auto table = [] {
        std::array<double, 128> powers{};
        for (int i = 0; i < 128; ++i)
            powers[static_cast<std::size_t>(i)] = std::ldexp(1.0, 4 * (i - 64));
        return powers;
    }();
    return table[static_cast<std::size_t>(power + 64)];
}

float ofIbm(uint64_t bits)
{
    const double fraction = static_cast<double>(bits & 0xFFFFFFu) / 16777216.0;
    const double value = fraction * powerOf16(static_cast<int>(bits >> 24 & 0x7F) - 64);
    return cut((bits >> 31 & 1) != 0 ? -value : value);
}

float ofDouble(uint64_t bits)
{
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return std::isfinite(value) ? cut(value) : static_cast<float>(value);
}

// The nearest IBM float: halves of its last digit are rounded away from zero.
uint32_t toIbm(float value)
{
    const uint32_t sign = bitsOf(value) & 0x80000000u;
    if (std::isnan(value))
        return 0;
    if (std::isinf(value))
        return sign | 0x7FFFFFFFu;
    if (value == 0)
        return sign;
    const double magnitude = std::fabs(static_cast<double>(value));
    const int power = static_cast<int>(std::floor(std::ilogb(magnitude) / 4.0)) + 1;
    const double fraction = std::floor(magnitude / powerOf16(power) * 16777216.0 + 0.5);
    return sign | static_cast<uint32_t>(power + 64) << 24 | static_cast<uint32_t>(fraction);
}

struct Coding
{
    SampleFormat format;
    float (*value)(uint64_t bits); // of the lowest bits, as many as the format has
};

void PrintTo(const Coding& coding, std::ostream* out)
{
    *out << sampleFormatKey(coding.format);
}

template <typename Integer>
float ofInteger(uint64_t bits)
{
    return static_cast<float>(static_cast<Integer>(bits));
}

const Coding codings[] = {
    {SampleFormat::ibmFloat, ofIbm},
    {SampleFormat::int32, ofInteger<int32_t>},
    {SampleFormat::int16, ofInteger<int16_t>},
    {SampleFormat::ieeeFloat, [](uint64_t bits) { return floatOf(static_cast<uint32_t>(bits)); }},
    {SampleFormat::ieeeDouble, ofDouble},
    {SampleFormat::int24,
     [](uint64_t bits) {
         const auto number = static_cast<int32_t>(bits & 0xFFFFFFu);
         return static_cast<float>(number >= 0x800000 ? number - 0x1000000 : number);
     }},
    {SampleFormat::int8, ofInteger<int8_t>},
    {SampleFormat::int64, ofInteger<int64_t>},
    {SampleFormat::uint32, ofInteger<uint32_t>},
    {SampleFormat::uint16, ofInteger<uint16_t>},
    {SampleFormat::uint64, ofInteger<uint64_t>},
    {SampleFormat::uint24,
     [](uint64_t bits) { return static_cast<float>(static_cast<uint32_t>(bits & 0xFFFFFFu)); }},
    {SampleFormat::uint8, ofInteger<uint8_t>},
};

// ---- Comparing whole runs ----

bool isNaN(uint32_t bits)
{
    return (bits & 0x7FFFFFFFu) > 0x7F800000u;
}

std::string hex(uint64_t bits)
{
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%llx", static_cast<unsigned long long>(bits));
    return text.data();
}

// The first of `count` floats that are not the same, bit for bit; `count` where all are. NaNs made
// of doubles have the bits that the processor gives them.
std::size_t firstDifference(const float* a, const float* b, std::size_t count, bool exactNaNs)
{
    if (std::memcmp(a, b, count * sizeof *a) == 0)
        return count;
    for (std::size_t i = 0; i < count; ++i) {
        const uint32_t one = bitsOf(a[i]);
        const uint32_t other = bitsOf(b[i]);
        if (one != other && (exactNaNs || !isNaN(one) || !isNaN(other)))
            return i;
    }
    return count;
}

// Decodes `words` with every loop, in both orders, at an address that is not aligned.
::testing::AssertionResult decodesTo(const std::vector<uint64_t>& words, const Coding& coding)
{
    const auto width = static_cast<std::size_t>(sampleBytes(coding.format));
    std::vector<float> expected(words.size());
    std::transform(words.begin(), words.end(), expected.begin(), coding.value);
    Bytes bytes(1 + words.size() * width);
    std::vector<float> read(words.size() + 1);
    for (const bool little : {false, true}) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            for (std::size_t k = 0; k < width; ++k)
                bytes[1 + i * width + (little ? k : width - 1 - k)] =
                    static_cast<unsigned char>(words[i] >> (8 * k));
        }
        for (const SampleLoops& loops : sampleLoops()) {
            read.assign(read.size(), -77);
            loops.decode(bytes.data() + 1, coding.format, little, words.size(), read.data());
            const std::size_t at = firstDifference(read.data(), expected.data(), words.size(),
                                                   coding.format == SampleFormat::ieeeFloat);
            if (at < words.size())
                return ::testing::AssertionFailure()
                       << loops.instructions << ", " << sampleFormatName(coding.format)
                       << (little ? ", little" : ", big") << " endian: bits " << hex(words[at])
                       << " give " << hex(bitsOf(read[at])) << ", not "
                       << hex(bitsOf(expected[at]));
            if (read.back() != -77)
                return ::testing::AssertionFailure() << "written behind the end";
        }
    }
    return ::testing::AssertionSuccess();
}

// Encodes floats of these bits with every loop, in both orders, at an address that is not aligned.
::testing::AssertionResult encodesTo(const std::vector<uint64_t>& words, SampleFormat format)
{
    std::vector<float> samples;
    std::vector<uint32_t> expected;
    std::size_t lost = 0;
    for (const uint64_t word : words) {
        const float sample = floatOf(static_cast<uint32_t>(word));
        samples.push_back(sample);
        const bool isIbm = format == SampleFormat::ibmFloat;
        expected.push_back(isIbm ? toIbm(sample) : static_cast<uint32_t>(word));
        lost += isIbm && !std::isfinite(sample) ? 1 : 0;
    }
    for (const bool little : {false, true}) {
        for (const SampleLoops& loops : sampleLoops()) {
            Bytes bytes(4 * words.size() + 2, 0x55);
            const std::size_t found =
                loops.encode(samples.data(), samples.size(), format, little, bytes.data() + 1);
            if (found != lost)
                return ::testing::AssertionFailure()
                       << loops.instructions << ": " << found << " samples are lost, not " << lost;
            for (std::size_t i = 0; i < words.size(); ++i) {
                uint32_t bits;
                std::memcpy(&bits, bytes.data() + 1 + 4 * i, sizeof bits);
                const uint32_t written = little ? bits : __builtin_bswap32(bits);
                if (written != expected[i])
                    return ::testing::AssertionFailure()
                           << loops.instructions << (little ? ", little" : ", big")
                           << " endian: bits " << hex(words[i]) << " give " << hex(written)
                           << ", not " << hex(expected[i]);
            }
            if (bytes.front() != 0x55 || bytes.back() != 0x55)
                return ::testing::AssertionFailure() << "written beyond the ends";
        }
    }
    return ::testing::AssertionSuccess();
}

// Every pattern of the upper 16 bits of a word with `lower`.
std::vector<uint64_t> allUpperHalves(uint64_t lower)
{
    std::vector<uint64_t> words;
    words.reserve(65536);
    for (uint64_t upper = 0; upper < 65536; ++upper)
        words.push_back(upper << 16 | lower);
    return words;
}

class SegySampleLoopsTest : public ::testing::TestWithParam<Coding>
{
};

std::string nameOf(const ::testing::TestParamInfo<Coding>& info)
{
    return sampleFormatKey(info.param.format);
}

} // namespace

TEST_P(SegySampleLoopsTest, EveryUpperHalfOfAWordIsDecodedAsByTheScalarForm)
{
    for (const uint64_t lower : {0x0000u, 0x0001u, 0x5A5Au, 0x7FFFu, 0x8000u, 0x8001u, 0xFFFFu}) {
        std::vector<uint64_t> words = allUpperHalves(lower);
        ASSERT_TRUE(decodesTo(words, GetParam()));
        if (sampleBytes(GetParam().format) < 8)
            continue;
        for (uint64_t& word : words)
            word = word << 32 | (lower * 0x10001u);
        ASSERT_TRUE(decodesTo(words, GetParam()));
    }
}

TEST_P(SegySampleLoopsTest, RandomWordsAreDecodedAsByTheScalarForm)
{
    Dice dice;
    std::vector<uint64_t> words(perRound);
    for (int round = 0; round < rounds; ++round) {
        for (uint64_t& word : words)
            word = dice.next();
        ASSERT_TRUE(decodesTo(words, GetParam()));
    }
}

TEST_P(SegySampleLoopsTest, RunsOfEveryShortLengthAreDecodedAtEveryAddress)
{
    constexpr std::size_t most = 70; // more than a vector has, several times
    const auto width = static_cast<std::size_t>(sampleBytes(GetParam().format));
    Dice dice;
    Bytes bytes(width * most + 64);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(dice.next() >> 56);
    for (const SampleLoops& loops : sampleLoops()) {
        for (std::size_t start = 0; start < 64; start += start < 9 ? 1 : 11) {
            std::vector<float> single(most);
            for (std::size_t i = 0; i < most; ++i)
                sampleLoops().front().decode(bytes.data() + start + i * width, GetParam().format,
                                             false, 1, &single[i]);
            for (std::size_t count = 0; count <= most; ++count) {
                std::vector<float> read(count + 1, -77);
                loops.decode(bytes.data() + start, GetParam().format, false, count, read.data());
                ASSERT_EQ(firstDifference(read.data(), single.data(), count, false), count)
                    << loops.instructions << " from " << start;
                ASSERT_EQ(read[count], -77) << "behind the end";
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Codings, SegySampleLoopsTest, ::testing::ValuesIn(codings), nameOf);

TEST(SegySampleLoopsEncodingTest, EveryUpperHalfOfAFloatIsEncodedAsByTheScalarForm)
{
    for (const uint64_t lower : {0x0000u, 0x0001u, 0x5A5Au, 0x7FFFu, 0x8000u, 0x8001u, 0xFFFFu}) {
        const std::vector<uint64_t> words = allUpperHalves(lower);
        ASSERT_TRUE(encodesTo(words, SampleFormat::ibmFloat));
        ASSERT_TRUE(encodesTo(words, SampleFormat::ieeeFloat));
    }
}

TEST(SegySampleLoopsEncodingTest, RandomFloatsAreEncodedAsByTheScalarForm)
{
    Dice dice;
    std::vector<uint64_t> words(perRound);
    for (int round = 0; round < rounds; ++round) {
        for (uint64_t& word : words)
            word = dice.next() >> 32;
        ASSERT_TRUE(encodesTo(words, SampleFormat::ibmFloat));
        ASSERT_TRUE(encodesTo(words, SampleFormat::ieeeFloat));
    }
}

TEST(SegySampleLoopsEncodingTest, RunsOfEveryShortLengthAreEncoded)
{
    Dice dice;
    std::vector<uint64_t> words;
    for (int count = 0; count <= 70; ++count) {
        ASSERT_TRUE(encodesTo(words, SampleFormat::ibmFloat)) << count;
        ASSERT_TRUE(encodesTo(words, SampleFormat::ieeeFloat)) << count;
        words.push_back(dice.next() >> 32);
    }
}
