#include "segy/SegyWriter.h"

#include "segy/HeaderWords.h"
#include "segy/SegyReader.h"
#include "segy/TextHeader.h"

#include <KernelFixture.h>
#include <SegyBytes.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class SegyWriterTest : public ::testing::Test
{
protected:
    SegyWriterTest()
    {
        description.samples = 3;
        description.interval = 4000;
        description.cards = {"C 1 WRITTEN"};
    }

    // The bytes of a file of one trace with samples 1, 2, 3, ... and a header full of 0x11.
    Bytes written()
    {
        OutputFile file(path, true);
        SegyWriter writer(file, description);
        std::vector<float> samples(static_cast<std::size_t>(description.samples));
        std::iota(samples.begin(), samples.end(), 1.0f);
        const Bytes header(240, 0x11);
        writer.write(header.data(), samples.data());
        EXPECT_EQ(writer.traces(), 1);
        file.commit();
        return readBytes(path);
    }
    std::string refusal()
    {
        try {
            OutputFile file(path, true);
            SegyWriter writer(file, description);
        } catch (const TraceFileError& error) {
            return error.what();
        }
        return "it was written";
    }

    TemporaryDirectory directory;
    const std::string path = directory / "out.sgy";
    SegyDescription description;
};

// A number at a position of the standard, counted from 1.
int64_t at(const Bytes& bytes, std::size_t position, int width)
{
    return getInteger(bytes, position - 1, width);
}

} // namespace

TEST_F(SegyWriterTest, Revision1StatesItselfAndItsFixedLength)
{
    const Bytes bytes = written();
    EXPECT_EQ(bytes.size(), 3600u + 240 + 12);
    EXPECT_EQ(at(bytes, 3217, 2), 4000);
    EXPECT_EQ(at(bytes, 3221, 2), 3);
    EXPECT_EQ(at(bytes, 3225, 2), 1);
    EXPECT_EQ(at(bytes, 3501, 2), 256);
    EXPECT_EQ(at(bytes, 3503, 2), 1);
    EXPECT_EQ(at(bytes, 3505, 2), 0);
    EXPECT_EQ(decodeText(bytes.data(), 80, true), "C 1 WRITTEN" + std::string(69, ' '));
}

TEST_F(SegyWriterTest, Revision0HasZerosInTheirPlace)
{
    description.revision = 0;
    const Bytes bytes = written();
    for (std::size_t position = 3501; position <= 3506; ++position)
        EXPECT_EQ(at(bytes, position, 1), 0) << position;
}

TEST_F(SegyWriterTest, SamplesAreWrittenInTheFormatThatIsStated)
{
    EXPECT_EQ(at(written(), 3841, 4), 0x41100000);
    EXPECT_EQ(at(written(), 3849, 4), 0x41300000);
    description.format = SampleFormat::ieeeFloat;
    const Bytes bytes = written();
    EXPECT_EQ(at(bytes, 3225, 2), 5);
    EXPECT_EQ(at(bytes, 3841, 4), 0x3F800000);
    EXPECT_EQ(at(bytes, 3849, 4), 0x40400000);
}

TEST_F(SegyWriterTest, TheTraceHeaderIsKeptExceptLengthAndInterval)
{
    const Bytes bytes = written();
    for (std::size_t position = 1; position <= 240; ++position) {
        if (position < 115 || position > 118) {
            EXPECT_EQ(at(bytes, 3600 + position, 1), 0x11) << position;
        }
    }
    EXPECT_EQ(at(bytes, 3600 + 115, 2), 3);
    EXPECT_EQ(at(bytes, 3600 + 117, 2), 4000);
}

TEST_F(SegyWriterTest, FurtherBinaryWordsAreKeptExceptThoseOfTheLayout)
{
    description.binaryWords = {{"lino", 31},  {"mfeet", 2}, {"hns", 999}, {"hdt", 999},
                               {"format", 3}, {"rev", 512}, {"next", 7},  {"nosuch", 1}};
    const Bytes bytes = written();
    EXPECT_EQ(at(bytes, 3205, 4), 31);
    EXPECT_EQ(at(bytes, 3255, 2), 2);
    EXPECT_EQ(at(bytes, 3221, 2), 3);
    EXPECT_EQ(at(bytes, 3217, 2), 4000);
    EXPECT_EQ(at(bytes, 3225, 2), 1);
    EXPECT_EQ(at(bytes, 3501, 2), 256);
    EXPECT_EQ(at(bytes, 3505, 2), 0);
}

TEST_F(SegyWriterTest, BytesWithoutAMeaningAreKeptWhereTheRevisionHasNoWord)
{
    description.unassignedBytes = Bytes(400, 0x5A);
    description.binaryWords = {{"lino", 31}};
    const Bytes one = written();
    description.revision = 0;
    const Bytes zero = written();
    for (std::size_t position = 3261; position <= 3600; ++position) {
        const bool isWord = position >= 3501 && position <= 3506;
        const bool isCount = position == 3505 || position == 3506;
        EXPECT_EQ(at(zero, position, 1), isCount ? 0 : 0x5A) << position;
        if (!isWord) {
            EXPECT_EQ(at(one, position, 1), 0x5A) << position;
        }
    }
    for (const Bytes& bytes : {one, zero}) {
        EXPECT_EQ(at(bytes, 3205, 4), 31);
        EXPECT_EQ(at(bytes, 3217, 2), 4000);
        EXPECT_EQ(at(bytes, 3221, 2), 3);
        EXPECT_EQ(at(bytes, 3225, 2), 1);
    }
    EXPECT_EQ(at(one, 3501, 2), 256);
    EXPECT_EQ(at(one, 3503, 2), 1);
    EXPECT_EQ(at(one, 3505, 2), 0);
}

TEST_F(SegyWriterTest, CardsThatReadAsBeforeHaveTheirBytes)
{
    description.textBytes = Bytes(3200, 'A');
    description.textBytes[80] = 0;
    description.extendedBytes = Bytes(6400, 0xC1);
    description.extendedBytes[3200] = 0x07;
    description.cards = {"NEW", " " + std::string(79, 'A')};
    description.extendedCards.assign(80, std::string(80, 'A'));
    description.extendedCards[40][0] = ' ';
    const Bytes bytes = written();
    EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "NEW ");
    EXPECT_TRUE(
        std::equal(bytes.begin() + 80, bytes.begin() + 160, description.textBytes.begin() + 80));
    EXPECT_TRUE(
        std::equal(bytes.begin() + 3600, bytes.begin() + 10000, description.extendedBytes.begin()));
}

TEST_F(SegyWriterTest, ExtendedCardsFillHeadersOf40)
{
    description.extendedCards.assign(41, "((SEG: SOMETHING))");
    Bytes bytes = written();
    EXPECT_EQ(at(bytes, 3505, 2), 2);
    ASSERT_EQ(bytes.size(), 3600u + 6400 + 240 + 12);
    EXPECT_EQ(decodeText(bytes.data() + 6800, 18, true), "((SEG: SOMETHING))");
    EXPECT_EQ(decodeText(bytes.data() + 6880, 18, true), std::string(18, ' '));

    description.revision = 0;
    bytes = written();
    EXPECT_EQ(bytes.size(), 3600u + 240 + 12) << "revision 0 has no extended headers";
}

TEST_F(SegyWriterTest, LengthsAndIntervalsUpTo65535AreStated)
{
    description.samples = 65535;
    description.interval = 65535;
    const Bytes bytes = written();
    EXPECT_EQ(at(bytes, 3221, 2) & 0xFFFF, 65535);
    EXPECT_EQ(at(bytes, 3217, 2) & 0xFFFF, 65535);
    EXPECT_EQ(at(bytes, 3715, 2) & 0xFFFF, 65535);
    EXPECT_THAT(SegyReader(path).warnings(), IsEmpty());
}

TEST_F(SegyWriterTest, LengthsAndIntervalsBeyondThatAreRefused)
{
    description.samples = 65536;
    EXPECT_THAT(refusal(), HasSubstr("out.sgy: traces of 65536 samples cannot be written"));
    description.samples = 0;
    EXPECT_THAT(refusal(), HasSubstr("traces of 0 samples cannot be written"));
    description.samples = 3;
    description.interval = 65536;
    EXPECT_THAT(refusal(), HasSubstr("a sample interval of 65536 microseconds cannot be written"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SegyWriterTest, WhatIsWrittenIsReadBack)
{
    constexpr int traces = 700; // more than is written at a time
    constexpr int samples = 501;
    description.samples = samples;
    description.format = SampleFormat::ieeeFloat;
    {
        OutputFile file(path, true);
        SegyWriter writer(file, description);
        std::vector<float> values(samples);
        for (int i = 0; i < traces; ++i) {
            Bytes header(240);
            putInteger(header, 8, 4, i);
            std::iota(values.begin(), values.end(), static_cast<float>(i));
            writer.write(header.data(), values.data());
        }
        file.commit();
    }
    SegyReader reader(path);
    EXPECT_THAT(reader.warnings(), IsEmpty());
    ASSERT_EQ(reader.layout().traces, traces);
    std::vector<float> values(samples);
    for (int i = 0; i < traces; ++i) {
        reader.read(i, nullptr, values.data());
        ASSERT_EQ(values.front(), static_cast<float>(i));
        ASSERT_EQ(values.back(), static_cast<float>(i + samples - 1));
        ASSERT_EQ(reader.word(reader.header(i), *findTraceHeaderWord("fldr")), i);
    }
}

TEST_F(SegyWriterTest, SamplesThatIbmCannotHoldAreCounted)
{
    OutputFile file(path, true);
    SegyWriter writer(file, description);
    const Bytes header(240);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float bad[] = {1, nan, nan};
    const float good[] = {1, 2, 3};
    writer.write(header.data(), good);
    EXPECT_EQ(writer.lostSamples(), 0u);
    writer.write(header.data(), bad);
    EXPECT_EQ(writer.lostSamples(), 2u);
}

// Whole files of IBM floats, read and written again, are the same: text, binary header and traces.
TEST_F(SegyWriterTest, RealTracesComeBackBitForBit)
{
    const std::string sample = sampleFile("npra_31_81_stack.sgy");
    if (sample.empty())
        GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
    SegyReader reader(sample);
    description.samples = reader.layout().samples;
    description.interval = reader.layout().interval;
    description.revision = 0;
    description.cards = textCards(reader.text());
    for (const HeaderWord& word : binaryHeaderWords())
        description.binaryWords.emplace_back(word.key, reader.binaryWord(word.key));
    {
        OutputFile file(path, true);
        SegyWriter writer(file, description);
        std::vector<float> values(static_cast<std::size_t>(description.samples));
        unsigned char header[240];
        for (int64_t i = 0; i < reader.layout().traces; ++i) {
            reader.read(i, header, values.data());
            writer.write(header, values.data());
        }
        file.commit();
    }
    const Bytes before = readBytes(sample);
    const Bytes after = readBytes(path);
    ASSERT_EQ(after.size(), before.size());
    EXPECT_TRUE(std::equal(before.begin() + 3600, before.end(), after.begin() + 3600)) << "traces";
    EXPECT_TRUE(std::equal(before.begin() + 3200, before.begin() + 3260, after.begin() + 3200))
        << "the binary header's words of revision 0";
    EXPECT_EQ(decodeText(after.data(), 3200, true), decodeText(before.data(), 3200, true));
}
