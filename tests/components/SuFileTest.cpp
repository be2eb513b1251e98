// Reading and writing of Seismic Unix files.
#include "file/TraceFileError.h"
#include "su/SuReader.h"
#include "su/SuWriter.h"

#include <KernelFixture.h>
#include <SegyBytes.h>
#include <TraceVerbs.h>

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

// Traces of IEEE floats as in `ieeeFile`, without a file header.
Bytes suBytes(int traces, int samples, bool little)
{
    return ieeeFile(traces, samples, little).traces;
}

class SuFileTest : public ::testing::Test
{
protected:
    std::string write(const Bytes& bytes)
    {
        const std::string name = directory / (std::to_string(++files) + "line.su");
        writeBytes(name, bytes);
        return name;
    }
    static std::vector<float> samples(SuReader& reader, int64_t index)
    {
        std::vector<float> values(static_cast<std::size_t>(reader.samples()), -77);
        reader.read(index, nullptr, values.data());
        return values;
    }
    std::string refusal(const Bytes& bytes, const SuOverrides& overrides = {})
    {
        try {
            SuReader reader(write(bytes), overrides);
        } catch (const TraceFileError& error) {
            return error.what();
        }
        return "it was opened";
    }

    TemporaryDirectory directory;
    int files = 0;
};

} // namespace

TEST_F(SuFileTest, BothByteOrdersAreRecognised)
{
    for (const bool little : {true, false}) {
        SuReader reader(write(suBytes(3, 4, little)));
        EXPECT_EQ(reader.littleEndian(), little);
        EXPECT_EQ(reader.traces(), 3);
        EXPECT_EQ(reader.samples(), 4);
        EXPECT_EQ(reader.interval(), 4000);
        EXPECT_THAT(samples(reader, 2), ElementsAre(300, 301, 302, 303));
        EXPECT_THAT(reader.warnings(), IsEmpty());
    }
}

TEST_F(SuFileTest, HeadersComeInTheOrderOfTheFile)
{
    for (const bool little : {true, false}) {
        SuReader reader(write(suBytes(3, 4, little)));
        Bytes header(240);
        reader.read(1, header.data(), nullptr);
        EXPECT_EQ(getInteger(header, 8, 4, little), 2);
    }
}

TEST_F(SuFileTest, ANumberOfSamplesThatReadsTheSameInBothOrdersIsNative)
{
    const int samples = 0x0101;
    SuReader reader(write(suBytes(2, samples, true)));
    EXPECT_TRUE(reader.littleEndian());
    EXPECT_EQ(reader.samples(), samples);
}

TEST_F(SuFileTest, ACutLastTraceIsReportedAndLeftOut)
{
    for (const bool little : {true, false}) {
        for (const int traces : {2, 40}) {
            Bytes bytes = suBytes(traces, 1000, little);
            bytes.resize(bytes.size() - 100);
            SuReader reader(write(bytes));
            EXPECT_EQ(reader.littleEndian(), little) << traces;
            EXPECT_EQ(reader.traces(), traces - 1);
            EXPECT_THAT(reader.warnings(),
                        ElementsAre("the last trace is cut: 4140 of its 4240 bytes are there; it "
                                    "is left out, and " +
                                    std::to_string(traces - 1) + " whole traces are read"));
        }
    }
}

TEST_F(SuFileTest, LongCutTracesAreNotTakenForFewOfTheOtherOrder)
{
    // Read in the wrong order, 1000 samples are 59395: one whole trace of them fits this file.
    Bytes bytes = suBytes(80, 1000, false);
    bytes.resize(bytes.size() - 100);
    SuReader reader(write(bytes));
    EXPECT_FALSE(reader.littleEndian());
    EXPECT_EQ(reader.samples(), 1000);
}

TEST_F(SuFileTest, StatedSamplesAndOrderGoBeforeTheHeaders)
{
    SegyBytes file = ieeeFile(3, 4, true);
    for (const std::size_t start : {0, 256, 512})
        file.setTrace(start, 115, 2, 9);
    SuOverrides overrides;
    overrides.samples = 4;
    overrides.littleEndian = true;
    SuReader reader(write(file.traces), overrides);
    EXPECT_EQ(reader.traces(), 3);
    EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202, 203));
    EXPECT_THAT(reader.warnings(),
                ElementsAre("the first trace header states 9 samples; read as 3 traces of 4"));
}

TEST_F(SuFileTest, WhatIsNoSeismicUnixFileIsRefused)
{
    Bytes noise(20000);
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<unsigned char>(i * 2654435761u >> 13);
    EXPECT_THAT(refusal({}), HasSubstr("line.su: is not a Seismic Unix file: it has 0 bytes"));
    EXPECT_THAT(refusal(Bytes(239)), HasSubstr("it has 239 bytes"));
    EXPECT_THAT(refusal(noise), HasSubstr("neither leads through its 20000 bytes"));
    EXPECT_THAT(refusal(Bytes(4000)), HasSubstr("states 0 samples read as little endian and 0"));
    EXPECT_THAT(refusal(ieeeFile(3, 4).bytes()), HasSubstr("is not a Seismic Unix file"))
        << "a SEG-Y file";
    SuOverrides overrides;
    overrides.samples = 0;
    EXPECT_THAT(refusal(suBytes(2, 3, true), overrides), HasSubstr("with 0 samples per trace"));
}

TEST_F(SuFileTest, AStatedLengthThatTheFileDoesNotHoldIsRefused)
{
    SuOverrides overrides;
    for (const int samples : {7, INT_MAX}) {
        overrides.samples = samples;
        const std::string bytes = std::to_string(240 + 4 * int64_t{samples});
        EXPECT_THAT(refusal(suBytes(1, 6, true), overrides),
                    HasSubstr("line.su: holds no whole trace: `samples` states " +
                              std::to_string(samples) + " samples per trace; a trace of " +
                              std::to_string(samples) + " samples in 4-byte floats takes " + bytes +
                              " bytes with its header, and the file has 264 bytes"));
    }
}

TEST_F(SuFileTest, WhatIsWrittenIsReadBackInBothOrders)
{
    for (const bool little : {true, false}) {
        const std::string path = directory / "out.su";
        OutputFile file(path, true);
        SuWriter writer(file, 3, little);
        for (int i = 1; i <= 2; ++i) {
            Bytes header(240);
            putInteger(header, 8, 4, i, little);
            putInteger(header, 114, 2, 999, little); // the writer knows better
            putInteger(header, 116, 2, 4000, little);
            const float values[] = {static_cast<float>(i), 2, -3};
            writer.write(header.data(), values);
        }
        file.commit();
        Bytes expected;
        {
            SegyBytes made;
            made.little = little;
            for (int i = 1; i <= 2; ++i) {
                const std::size_t start = made.addHeader(i, 0, 3, 4000);
                made.setTrace(start, 21, 4, 0);
                for (const float value : {static_cast<float>(i), 2.0f, -3.0f})
                    made.addSample(bitsOf(value));
            }
            expected = made.traces;
        }
        EXPECT_EQ(readBytes(path), expected) << (little ? "little" : "big");
    }
}

TEST_F(SuFileTest, LengthsThatAHeaderCannotStateAreRefused)
{
    for (const int samples : {0, 65536}) {
        OutputFile file(directory / "out.su", true);
        EXPECT_THROW(SuWriter(file, samples, true), TraceFileError) << samples;
    }
}

TEST_F(SuFileTest, DamagedFilesAreReadToTheirEndOrRefused)
{
    Dice dice(11);
    int opened = 0;
    int refused = 0;
    for (int round = 0; round < 2000; ++round) {
        Bytes bytes = suBytes(5, 20, dice.oneIn(2));
        for (int i = dice.between(1, 4); i > 0; --i)
            bytes[static_cast<std::size_t>(dice.below(dice.oneIn(2) ? 240 : 1600))] =
                static_cast<unsigned char>(dice.below(256));
        if (dice.oneIn(3))
            bytes.resize(static_cast<std::size_t>(dice.below(1600)));
        const std::string path = write(bytes);
        try {
            SuReader reader(path);
            ++opened;
            for (int64_t i = 0; i < reader.traces(); ++i)
                samples(reader, i);
        } catch (const TraceFileError&) {
            ++refused;
        }
        std::filesystem::remove(path);
    }
    EXPECT_GT(opened, 500);
    EXPECT_GT(refused, 100);
}
