// Files whose format code is right or wrong, built byte by byte, and what the reader says of them.
#include "segy/SegyReader.h"

#include <KernelFixture.h>
#include <SegyBytes.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

using namespace VORN;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

constexpr int traces = 20;
constexpr int samples = 500;

using Wave = std::vector<double>;
using Encode = std::function<int64_t(double)>;

int64_t ieeeBits(double value)
{
    return bitsOf(static_cast<float>(value));
}

// Sign, exponent of 16, a fraction between 1/16 and 1.
int64_t ibmBits(double value)
{
    if (value == 0)
        return 0;
    int exponent = 64;
    double fraction = std::abs(value);
    for (; fraction >= 1; fraction /= 16)
        ++exponent;
    for (; fraction < 0.0625; fraction *= 16)
        --exponent;
    if (exponent < 0)
        return 0;
    return (value < 0 ? int64_t{1} << 31 : 0) | static_cast<int64_t>(exponent) << 24 |
           static_cast<int64_t>(fraction * 0x1000000);
}

// As some converters of integers write them: always 16^6, so that most are not normalised.
int64_t fixedIbmBits(double value)
{
    return (value < 0 ? int64_t{1} << 31 : 0) | 0x46000000 |
           (static_cast<int64_t>(std::abs(value)) & 0xFFFFFF);
}

int64_t wholeBits(double value)
{
    return static_cast<int64_t>(std::llround(value));
}

// Band-limited noise that decays along the trace: what a field trace looks like.
Wave field(double scale, unsigned seed)
{
    std::mt19937 dice(seed);
    std::normal_distribution<double> normal;
    Wave wave;
    double fast = 0;
    double slow = 0;
    for (int i = 0; i < traces * samples; ++i) {
        const double shot = normal(dice);
        fast += (shot - fast) / 2;
        slow += (shot - slow) / 12;
        wave.push_back(scale * (fast - slow) * std::exp(-(i % samples) / 120.0));
    }
    return wave;
}

Wave noise(double scale, unsigned seed)
{
    std::mt19937 dice(seed);
    std::normal_distribution<double> normal;
    Wave wave(static_cast<std::size_t>(traces * samples));
    std::generate(wave.begin(), wave.end(), [&] { return scale * normal(dice); });
    return wave;
}

Bytes fileOf(const Wave& wave, int code, const Encode& encode, int width = 4, bool little = false,
             bool samplesLittle = false, const std::string& text = "C 1 MADE BY HAND")
{
    SegyBytes made;
    made.little = little;
    made.setText(text);
    made.describe(samples, 4000, code);
    for (int trace = 0; trace < traces; ++trace) {
        made.addHeader(trace + 1, 1, samples, 4000);
        for (int i = 0; i < samples; ++i) {
            const std::size_t at = made.traces.size();
            made.traces.resize(at + static_cast<std::size_t>(width));
            putInteger(made.traces, at, width,
                       encode(wave[static_cast<std::size_t>(trace * samples + i)]), samplesLittle);
        }
    }
    return made.bytes();
}

class SegySampleCodingTest : public ::testing::Test
{
protected:
    // What the reader warns of; nothing but the coding can be wrong with these files.
    std::string doubt(const Bytes& bytes, const SegyOverrides& overrides = {})
    {
        writeBytes(file, bytes);
        const SegyReader reader(file, overrides);
        return reader.warnings().empty() ? "" : reader.warnings().front();
    }

    TemporaryDirectory directory;
    const std::string file = directory / "line.sgy";
};

} // namespace

TEST_F(SegySampleCodingTest, FloatsUnderTheWrongCodeAreToldWithTheNumbersAndTheOption)
{
    for (const double scale : {1e-6, 1e-3, 1.0, 3000.0, 1e7}) {
        const Wave wave = field(scale, 7);
        EXPECT_THAT(doubt(fileOf(wave, 1, ieeeBits)),
                    AllOf(HasSubstr("the samples look like 4-byte IEEE float and not like 4-byte "
                                    "IBM float, as which they are read: of "),
                          HasSubstr(" samples, as ieee big endian 0.0 % of them are absurd, their "
                                    "median is "),
                          HasSubstr("; state `format: ieee` to read them so")))
            << scale;
        EXPECT_THAT(doubt(fileOf(wave, 5, ibmBits)),
                    AllOf(HasSubstr("look like 4-byte IBM float and not like 4-byte IEEE float"),
                          HasSubstr("; state `format: ibm` to read them so")))
            << scale;
        EXPECT_THAT(doubt(fileOf(wave, 2, ieeeBits)), HasSubstr("state `format: ieee`")) << scale;
        EXPECT_THAT(doubt(fileOf(wave, 2, ibmBits)), HasSubstr("state `format: ibm`")) << scale;
    }
}

TEST_F(SegySampleCodingTest, IntegersUnderTheCodeOfFloatsAreTold)
{
    const Wave wave = field(1e5, 3);
    for (const int code : {1, 5})
        EXPECT_THAT(doubt(fileOf(wave, code, wholeBits)), HasSubstr("state `format: int32`"))
            << code;
}

TEST_F(SegySampleCodingTest, SamplesInTheOtherByteOrderAreTold)
{
    const Wave wave = field(1000, 3);
    for (const bool little : {false, true}) {
        const std::string option =
            std::string("state `sample_endian: ") + (little ? "big" : "little") + "` to read";
        EXPECT_THAT(doubt(fileOf(wave, 5, ieeeBits, 4, little, !little)), HasSubstr(option));
        EXPECT_THAT(doubt(fileOf(wave, 1, ibmBits, 4, little, !little)), HasSubstr(option));
        EXPECT_THAT(doubt(fileOf(wave, 2, wholeBits, 4, little, !little)), HasSubstr(option));
    }
    EXPECT_THAT(doubt(fileOf(wave, 1, ieeeBits, 4, false, true)),
                HasSubstr("state `format: ieee` and `sample_endian: little` to read them so"));
}

TEST_F(SegySampleCodingTest, IntegersAndDoublesOfAnyWidthInTheOtherOrderAreTold)
{
    const auto doubleBits = [](double value) {
        int64_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return bits;
    };
    struct Row
    {
        int code;
        int width;
        Encode encode;
        double scale;
    };
    const Row rows[] = {
        {3, 2, wholeBits, 100},  {3, 2, wholeBits, 1000},   {3, 2, wholeBits, 8000},
        {7, 3, wholeBits, 100},  {7, 3, wholeBits, 100000}, {2, 4, wholeBits, 100},
        {9, 8, wholeBits, 1000}, {6, 8, doubleBits, 1e-6},  {6, 8, doubleBits, 3000}};
    for (const Row& row : rows) {
        for (unsigned seed = 1; seed <= 5; ++seed) {
            for (const bool little : {false, true})
                EXPECT_THAT(doubt(fileOf(field(row.scale, seed), row.code, row.encode, row.width,
                                         little, !little)),
                            HasSubstr(std::string("state `sample_endian: ") +
                                      (little ? "big" : "little") + "` to read"))
                    << row.code << " " << row.scale << " " << seed;
        }
    }
}

// Recorders of fewer bits fill the upper ones.
TEST_F(SegySampleCodingTest, IntegersInTheUpperBitsCauseNoDoubt)
{
    for (const int shift : {4, 6, 8}) {
        for (unsigned seed = 1; seed <= 5; ++seed) {
            const Encode upper = [&](double value) { return wholeBits(value) * (1 << shift); };
            const Encode envelope = [&](double value) {
                return wholeBits(std::abs(value)) * (1 << shift);
            };
            for (const double scale : {20.0, 60.0}) {
                for (const Wave& wave : {field(scale, seed), noise(scale / 4, seed)}) {
                    EXPECT_THAT(doubt(fileOf(wave, 3, upper, 2)), IsEmpty()) << shift << scale;
                    EXPECT_THAT(doubt(fileOf(wave, 3, envelope, 2)), IsEmpty()) << shift << scale;
                }
            }
        }
    }
}

TEST_F(SegySampleCodingTest, TheTextHeaderIsQuotedWhereItSaysTheSame)
{
    EXPECT_THAT(
        doubt(fileOf(field(1, 5), 1, ieeeBits, 4, false, false, "C 1 SAMPLES ARE IEEE FLOATS")),
        HasSubstr("; the text header says IEEE; state"));
    EXPECT_THAT(doubt(fileOf(field(1, 5), 1, ieeeBits, 4, false, false, "C 1 CODE 1 IBM 5 IEEE")),
                HasSubstr("roughness 0."));
}

TEST_F(SegySampleCodingTest, RightCodesCauseNoDoubt)
{
    struct Code
    {
        int code;
        int width;
        Encode encode;
        double least; // of the scales that it holds
        double most;
    };
    const Code codes[] = {{1, 4, ibmBits, 0, 1e30},   {5, 4, ieeeBits, 0, 1e30},
                          {2, 4, wholeBits, 10, 1e8}, {3, 2, wholeBits, 10, 5000},
                          {7, 3, wholeBits, 10, 1e6}, {9, 8, wholeBits, 10, 1e15}};
    for (const Code& code : codes) {
        for (unsigned seed = 1; seed <= 5; ++seed) {
            for (const double scale : {1e-20, 1e-9, 1e-4, 1.0, 20.0, 3000.0, 1e6, 1e15}) {
                if (scale < code.least || scale > code.most)
                    continue;
                for (const bool little : {false, true}) {
                    for (const Wave& wave : {field(scale, seed), noise(scale, seed)})
                        EXPECT_THAT(
                            doubt(fileOf(wave, code.code, code.encode, code.width, little, little)),
                            IsEmpty())
                            << code.code << " " << scale << " " << seed << " " << little;
                }
            }
        }
    }
}

TEST_F(SegySampleCodingTest, MadeUpSignalsCauseNoDoubt)
{
    const std::size_t count = traces * samples;
    std::mt19937 dice(2);
    const auto made = [&](auto value) {
        Wave wave(count);
        for (std::size_t i = 0; i < count; ++i)
            wave[i] = value(static_cast<double>(i));
        return wave;
    };
    const std::pair<const char*, Wave> waves[] = {
        {"zeros", made([](double) { return 0; })},
        {"constant", made([](double) { return 2.75; })},
        {"spikes", made([](double i) { return std::fmod(i, 97) == 0 ? 1 + i : 0; })},
        {"ramp", made([](double i) { return i; })},
        {"sine", made([](double i) { return 1000 * std::sin(i / 4); })},
        {"small whole numbers", made([&](double) { return static_cast<double>(dice() % 100); })},
        {"between 2.4 and 3.8", made([&](double) { return 2.4 + 1.4e-6 * (dice() % 1000000); })},
        {"far from zero", made([&](double) { return 500 + 1e-3 * (dice() % 1000); })},
        {"wavelet with vanishing tails",
         made([](double i) { return std::exp(-std::pow(std::fmod(i, 500) - 250, 2) / 300); })},
    };
    for (const auto& [name, wave] : waves) {
        EXPECT_THAT(doubt(fileOf(wave, 1, ibmBits)), IsEmpty()) << name;
        EXPECT_THAT(doubt(fileOf(wave, 5, ieeeBits)), IsEmpty()) << name;
        EXPECT_THAT(doubt(fileOf(wave, 2, wholeBits)), IsEmpty()) << name;
        EXPECT_THAT(doubt(fileOf(wave, 3, wholeBits, 2)), IsEmpty()) << name;
    }
    EXPECT_THAT(doubt(fileOf(field(30000, 4), 1, fixedIbmBits)), IsEmpty())
        << "IBM floats that are not normalised";
    EXPECT_THAT(doubt(fileOf(made([&](double) { return 0; }), 5,
                             [&](double) { return static_cast<int64_t>(dice()); })),
                IsEmpty())
        << "random bits";
}

TEST_F(SegySampleCodingTest, AStatedCodingIsNotDoubtedAndReadAsStated)
{
    const Wave wave = field(1, 9);
    const Bytes bytes = fileOf(wave, 1, ieeeBits, 4, false, true);
    SegyOverrides overrides;
    overrides.format = SampleFormat::ieeeFloat;
    overrides.samplesLittleEndian = true;
    EXPECT_THAT(doubt(bytes, overrides), IsEmpty());
    SegyReader reader(file, overrides);
    std::vector<float> read(samples);
    reader.read(3, nullptr, read.data());
    for (std::size_t i = 0; i < samples; ++i)
        ASSERT_EQ(read[i], static_cast<float>(wave[3 * samples + i]));
    EXPECT_FALSE(reader.layout().littleEndian) << "headers keep their order";
}

TEST_F(SegySampleCodingTest, TheSampleFilesAreNotDoubted)
{
    for (const char* name :
         {"npra_31_81_stack.sgy", "viking_shots.segy", "oz16_shot_ieee.sgy", "f3_crop_int16.sgy",
          "f3_crop_int16_le.sgy", "f3_crop_ieee.sgy", "lithoprobe_44_trace.sgy",
          "geometrics_int32_trace.sgy", "bad_60000_samples.sgy", "bad_truncated.sgy"})
    {
        const std::string path = sampleFile(name);
        if (path.empty())
            GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
        const SegyReader reader(path);
        for (const std::string& warning : reader.warnings())
            EXPECT_THAT(warning, ::testing::Not(HasSubstr("look like"))) << name;
    }
}

TEST_F(SegySampleCodingTest, TheSampleFilesWithAnotherCodeAreDoubted)
{
    struct Row
    {
        const char* name;
        int code;
        const char* option;
    };
    const Row rows[] = {{"npra_31_81_stack.sgy", 5, "`format: ibm`"},
                        {"viking_shots.segy", 5, "`format: ibm`"},
                        {"viking_shots.segy", 2, "`format: ibm`"},
                        {"lithoprobe_44_trace.sgy", 5, "`format: ibm`"},
                        {"oz16_shot_ieee.sgy", 1, "`format: ieee`"},
                        {"oz16_shot_ieee.sgy", 2, "`format: ieee`"},
                        {"f3_crop_ieee.sgy", 1, "`format: ieee`"},
                        {"geometrics_int32_trace.sgy", 1, "`format: int32`"}};
    for (const Row& row : rows) {
        const std::string path = sampleFile(row.name);
        if (path.empty())
            GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
        Bytes bytes = readBytes(path);
        putInteger(bytes, 3224, 2, row.code);
        writeBytes(file, bytes);
        EXPECT_THAT(SegyReader(file).warnings(), ::testing::Contains(HasSubstr(row.option)))
            << row.name << " as " << row.code;
    }
}

// ---- Other damage ----

TEST_F(SegySampleCodingTest, ADamagedTextHeaderIsTold)
{
    Bytes bytes = ieeeFile(2, 3).bytes();
    for (std::size_t i = 400; i < 600; ++i)
        bytes[i] = static_cast<unsigned char>(i % 40); // controls of EBCDIC, mostly
    EXPECT_THAT(doubt(bytes), HasSubstr("of its 3200 bytes are not characters of EBCDIC; they are "
                                        "shown as blanks"));
    std::fill(bytes.begin(), bytes.begin() + 3200, static_cast<unsigned char>(0));
    EXPECT_EQ(doubt(bytes), "the text header is empty: all of its 3200 bytes are 0");
    std::fill(bytes.begin(), bytes.begin() + 1600, static_cast<unsigned char>('A'));
    EXPECT_THAT(doubt(bytes), IsEmpty()) << "NUL fills cards";
}

TEST_F(SegySampleCodingTest, CountsAndIntervalsOfZeroAreToldLikeOthers)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setTrace(0, 115, 2, 0);
    made.setTrace(0, 117, 2, 0);
    writeBytes(file, made.bytes());
    EXPECT_THAT(SegyReader(file).warnings(),
                ::testing::ElementsAre(
                    HasSubstr("states 3 samples per trace, the first trace header 0"),
                    HasSubstr("interval of 4000 microseconds, the first trace header 0")));
    made = ieeeFile(2, 3);
    made.setBinary(3217, 2, 0);
    made.setBinary(3221, 2, 0);
    writeBytes(file, made.bytes());
    EXPECT_THAT(SegyReader(file).warnings(),
                ::testing::ElementsAre(
                    HasSubstr("states 0 samples per trace, the first trace header 3"),
                    HasSubstr("interval of 0 microseconds, the first trace header 4000")));
}
