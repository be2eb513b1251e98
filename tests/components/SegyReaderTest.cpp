#include "segy/SegyReader.h"
#include "segy/SegyTraceStatements.h"
#include "segy/TextHeader.h"

#include <KernelFixture.h>
#include <SegyBytes.h>
#include <TraceVerbs.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <sys/stat.h>

using namespace VORN;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

class SegyReaderTest : public ::testing::Test
{
protected:
    std::string write(const SegyBytes& file) { return write(file.bytes()); }
    // A new file each time: some file systems are slow to write one again.
    std::string write(const Bytes& bytes)
    {
        std::filesystem::remove(path);
        path = directory / (std::to_string(++files) + "line.sgy");
        writeBytes(path, bytes);
        return path;
    }

    static std::vector<float> samples(SegyReader& reader, int64_t index)
    {
        std::vector<float> values(static_cast<std::size_t>(reader.layout().samples), -77);
        reader.read(index, nullptr, values.data());
        values.resize(static_cast<std::size_t>(reader.samplesOf(index)));
        return values;
    }
    static int word(SegyReader& reader, int64_t index, const char* key)
    {
        return reader.word(reader.header(index), *findTraceHeaderWord(key));
    }
    // The text of the error with which opening the file ends.
    static std::string refusal(const std::string& path, const SegyOverrides& overrides = {})
    {
        try {
            SegyReader reader(path, overrides);
        } catch (const TraceFileError& error) {
            return error.what();
        }
        return "it was opened";
    }

    TemporaryDirectory directory;
    std::string path;
    int files = 0;
};

// Values that break things more often than others do, and all format codes.
std::vector<int> interestingBytes = {0, 1, 2, 3, 5, 0x7F, 0x80, 0xFF};
std::vector<int> codes = {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 15, 16};

struct SampleRow
{
    const char* name;
    int revision;
    bool littleEndian;
    bool ebcdic;
    SampleFormat format;
    int64_t traces;
    int samples;
    int interval;
    int extended;
    double lowest;
    double highest;
    double tolerance; // of the two before, as they are given
    std::size_t warnings;
};

// From the table that comes with the files. It was made with another reader.
const SampleRow sampleRows[] = {
    {"npra_31_81_stack.sgy", 0, false, true, SampleFormat::ibmFloat, 534, 1501, 4000, 0, -9851.6,
     9486.5, 0.05, 0},
    {"viking_shots.segy", 0, false, true, SampleFormat::ibmFloat, 480, 600, 4000, 0, -1270.1,
     1290.6, 0.05, 1},
    {"oz16_shot_ieee.sgy", 1, false, true, SampleFormat::ieeeFloat, 48, 1325, 4000, 0, -2463.0,
     2884.5, 0.05, 0},
    {"f3_crop_int16.sgy", 1, false, true, SampleFormat::int16, 414, 75, 4000, 0, -10239, 10827, 0,
     1},
    {"f3_crop_int16_le.sgy", 1, true, true, SampleFormat::int16, 414, 75, 4000, 0, -10239, 10827, 0,
     1},
    {"f3_crop_ieee.sgy", 1, false, true, SampleFormat::ieeeFloat, 414, 75, 4000, 0, -10239, 10827,
     0, 1},
    {"lithoprobe_44_trace.sgy", 0, false, true, SampleFormat::ibmFloat, 1, 2050, 2000, 0, -10429,
     11209, 0.5, 0},
    {"geometrics_int32_trace.sgy", 0, false, false, SampleFormat::int32, 1, 8000, 250, 0, -134871,
     120560, 0, 0},
    {"bad_60000_samples.sgy", 0, false, true, SampleFormat::ibmFloat, 3, 60000, 1000, 0, 0, 0.7505,
     0.00005, 2},
    {"bad_truncated.sgy", 0, false, true, SampleFormat::ibmFloat, 3, 4, 1000, 2, 1.2, 2.20003,
     0.00001, 3},
};

} // namespace

// ---- Real files ----

TEST_F(SegyReaderTest, TheSampleFilesAreReadAsTheirTableSays)
{
    int found = 0;
    for (const SampleRow& row : sampleRows) {
        const std::string sample = sampleFile(row.name);
        if (sample.empty())
            continue;
        ++found;
        SCOPED_TRACE(row.name);
        SegyReader reader(sample);
        const SegyLayout& layout = reader.layout();
        EXPECT_EQ(layout.revision, row.revision);
        EXPECT_EQ(layout.littleEndian, row.littleEndian);
        EXPECT_EQ(layout.ebcdic, row.ebcdic);
        EXPECT_EQ(layout.format, row.format);
        EXPECT_EQ(layout.traces, row.traces);
        EXPECT_EQ(layout.samples, row.samples);
        EXPECT_EQ(layout.interval, row.interval);
        EXPECT_EQ(layout.extendedHeaders, row.extended);
        EXPECT_EQ(reader.warnings().size(), row.warnings);
        double lowest = std::numeric_limits<double>::max();
        double highest = std::numeric_limits<double>::lowest();
        for (int64_t i = 0; i < layout.traces; ++i) {
            for (const float value : samples(reader, i)) {
                lowest = std::min<double>(lowest, value);
                highest = std::max<double>(highest, value);
            }
        }
        EXPECT_NEAR(lowest, row.lowest, row.tolerance);
        EXPECT_NEAR(highest, row.highest, row.tolerance);
    }
    if (found == 0)
        GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
    EXPECT_EQ(found, 10);
}

TEST_F(SegyReaderTest, OneDataSetInThreeCodingsHasTheSameTraces)
{
    const std::string big = sampleFile("f3_crop_int16.sgy");
    if (big.empty())
        GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
    SegyReader first(big);
    for (const char* name : {"f3_crop_int16_le.sgy", "f3_crop_ieee.sgy"}) {
        SegyReader other(sampleFile(name));
        ASSERT_EQ(other.layout().traces, first.layout().traces);
        for (int64_t i = 0; i < first.layout().traces; ++i) {
            ASSERT_EQ(samples(first, i), samples(other, i)) << name << ", trace " << i;
            for (const char* key : {"iline", "xline", "cdpx", "cdpy", "tracl"})
                ASSERT_EQ(word(first, i, key), word(other, i, key)) << name << ", trace " << i;
        }
    }
}

// ---- What headers say ----

TEST_F(SegyReaderTest, TracesAreReadInAnyOrder)
{
    SegyReader reader(write(ieeeFile(3, 4)));
    EXPECT_THAT(reader.warnings(), IsEmpty());
    EXPECT_THAT(samples(reader, 2), ElementsAre(300, 301, 302, 303));
    EXPECT_THAT(samples(reader, 0), ElementsAre(100, 101, 102, 103));
    EXPECT_EQ(word(reader, 1, "fldr"), 2);
    EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202, 203));
}

TEST_F(SegyReaderTest, AFileLargerThanTheReadAheadIsReadWhole)
{
    SegyReader reader(write(ieeeFile(300, 2000))); // 2.5 megabytes
    for (int64_t i = 0; i < 300; ++i) {
        const std::vector<float> values = samples(reader, i);
        ASSERT_EQ(values.front(), static_cast<float>(100 * (i + 1)));
        ASSERT_EQ(values.back(), static_cast<float>(100 * (i + 1) + 1999));
        ASSERT_EQ(word(reader, i, "fldr"), i + 1);
    }
}

TEST_F(SegyReaderTest, HeaderAndSamplesCanBeReadApart)
{
    SegyReader reader(write(ieeeFile(2, 3)));
    unsigned char header[240] = {};
    reader.read(1, header, nullptr);
    EXPECT_EQ(readWord(header, *findTraceHeaderWord("fldr"), false), 2);
    EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202));
}

TEST_F(SegyReaderTest, ATraceThatIsNotThereIsRefused)
{
    SegyReader reader(write(ieeeFile(2, 3)));
    float values[3];
    EXPECT_THROW(reader.read(2, nullptr, values), TraceFileError);
    EXPECT_THROW(reader.read(-1, nullptr, values), TraceFileError);
    EXPECT_THROW(reader.header(2), TraceFileError);
}

TEST_F(SegyReaderTest, LittleEndianFilesAreRecognised)
{
    SegyReader reader(write(ieeeFile(3, 4, true)));
    EXPECT_TRUE(reader.layout().littleEndian);
    EXPECT_THAT(reader.warnings(), IsEmpty());
    EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202, 203));
    EXPECT_EQ(word(reader, 1, "fldr"), 2);
    EXPECT_EQ(reader.binaryWord("hdt"), 4000);
}

TEST_F(SegyReaderTest, TheRevisionIsReadFromEitherByte)
{
    struct Row
    {
        int first;
        int second;
        int revision;
    };
    for (const Row& row : {Row{0, 0, 0}, Row{1, 0, 1}, Row{0, 1, 1}, Row{2, 0, 2}, Row{2, 1, 2},
                           Row{0, 2, 2}, Row{77, 3, 0}})
    {
        SegyBytes file = ieeeFile(1, 2);
        file.header[3500] = static_cast<unsigned char>(row.first);
        file.header[3501] = static_cast<unsigned char>(row.second);
        SegyReader reader(write(file));
        EXPECT_EQ(reader.layout().revision, row.revision) << row.first << "." << row.second;
    }
}

TEST_F(SegyReaderTest, AsciiTextIsRecognised)
{
    SegyBytes file = ieeeFile(1, 2);
    const std::string text = "C 1 PLAIN TEXT";
    std::fill(file.header.begin(), file.header.begin() + 3200, ' ');
    std::copy(text.begin(), text.end(), file.header.begin());
    SegyReader reader(write(file));
    EXPECT_FALSE(reader.layout().ebcdic);
    EXPECT_EQ(reader.text(), text + std::string(3200 - text.size(), ' '));
}

// ---- Number of samples ----

TEST_F(SegyReaderTest, CountsBeyond32767AreUnsigned)
{
    SegyReader reader(write(ieeeFile(2, 60000)));
    EXPECT_EQ(reader.layout().samples, 60000);
    EXPECT_EQ(reader.layout().traces, 2);
    EXPECT_EQ(samples(reader, 1).back(), 200.0f + 59999);
}

TEST_F(SegyReaderTest, TheNumberThatFitsTheFileWinsAndTheOtherIsReported)
{
    SegyBytes file = ieeeFile(3, 4);
    file.setBinary(3221, 2, 5);
    SegyReader traceIsRight(write(file));
    EXPECT_EQ(traceIsRight.layout().samples, 4);
    EXPECT_THAT(traceIsRight.warnings(),
                ElementsAre("the binary header states 5 samples per trace, the first trace header "
                            "4, and 768 bytes of traces hold 3 traces of 4 samples exactly; read "
                            "as that"));

    file = ieeeFile(3, 4);
    for (const std::size_t start : {0, 256, 512})
        file.setTrace(start, 115, 2, 1500);
    SegyReader fileIsRight(write(file));
    EXPECT_EQ(fileIsRight.layout().samples, 4);
    EXPECT_EQ(fileIsRight.layout().traces, 3);
    ASSERT_EQ(fileIsRight.warnings().size(), 1u);
    EXPECT_THAT(fileIsRight.warnings()[0], HasSubstr("the first trace header 1500"));
}

TEST_F(SegyReaderTest, TraceHeadersThatLeadToTheEndGoBeforeAFileHeaderThatHappensToFit)
{
    SegyBytes file = ieeeFile(4, 4); // 1024 bytes of traces: also 1 trace of 196 samples
    file.setBinary(3221, 2, 196);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().traces, 4);
    EXPECT_EQ(reader.layout().samples, 4);
}

TEST_F(SegyReaderTest, NoNumberInTheFileHeaderIsToldLikeAnotherOne)
{
    SegyBytes file = ieeeFile(3, 4);
    file.setBinary(3221, 2, 0);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().samples, 4);
    EXPECT_THAT(reader.warnings(),
                ElementsAre(HasSubstr("the binary header states 0 samples per trace, the first "
                                      "trace header 4")));
}

TEST_F(SegyReaderTest, AFormatCodeWhoseSamplesHaveAnotherSizeIsTold)
{
    SegyBytes file;
    file.describe(75, 4000, 1); // says IBM floats
    for (int trace = 0; trace < 20; ++trace) {
        file.addHeader(trace, 1, 75, 4000);
        for (int i = 0; i < 75; ++i)
            file.addSample(100 * i - 40 * trace, 2);
    }
    SegyReader reader(write(file));
    EXPECT_THAT(reader.warnings(),
                ::testing::Contains("the format code says 4-byte IBM float, but 20 traces of 75 "
                                    "samples fill the file, each header in its place, where "
                                    "samples have 2 bytes; state `format`, as in `format: "
                                    "int16`"));
    SegyOverrides overrides;
    overrides.format = SampleFormat::int16;
    SegyReader right(write(file), overrides);
    EXPECT_THAT(right.warnings(), IsEmpty());
    EXPECT_EQ(right.layout().traces, 20);
}

TEST_F(SegyReaderTest, AStatedNumberGoesBeforeAllHeaders)
{
    SegyOverrides overrides;
    overrides.samples = 4;
    SegyBytes file = ieeeFile(3, 4);
    file.setBinary(3221, 2, 7);
    for (const std::size_t start : {0, 256, 512})
        file.setTrace(start, 115, 2, 9);
    SegyReader reader(write(file), overrides);
    EXPECT_EQ(reader.layout().traces, 3);
    EXPECT_THAT(samples(reader, 2), ElementsAre(300, 301, 302, 303));
}

TEST_F(SegyReaderTest, NoNumberAnywhereIsRefused)
{
    SegyBytes file = ieeeFile(2, 4);
    file.setBinary(3221, 2, 0);
    file.setTrace(0, 115, 2, 0);
    EXPECT_THAT(refusal(write(file)),
                HasSubstr("line.sgy: states no number of samples per trace: it is 0 in the binary "
                          "header and 0 in the first trace header; state `samples`"));
}

TEST_F(SegyReaderTest, ACutLastTraceIsReportedAndLeftOut)
{
    Bytes bytes = ieeeFile(3, 4).bytes();
    bytes.resize(bytes.size() - 3);
    SegyReader reader(write(bytes));
    EXPECT_EQ(reader.layout().traces, 2);
    EXPECT_EQ(reader.layout().cutBytes, 253);
    EXPECT_THAT(reader.warnings(),
                ElementsAre("the last trace is cut: 253 of its 256 bytes are there; it is left "
                            "out, and 2 whole traces are read"));
}

TEST_F(SegyReaderTest, ACutFileIsReadWithTheNumberThatLeadsFromHeaderToHeader)
{
    struct Row
    {
        const char* right;
        int inFile;
        int inTrace;
    };
    for (const Row& row : {Row{"trace header", 7, 4}, Row{"file header", 4, 7}}) {
        SegyBytes file = ieeeFile(40, 4);
        file.setBinary(3221, 2, row.inFile);
        for (std::size_t start = 0; start < file.traces.size(); start += 256)
            file.setTrace(start, 115, 2, row.inTrace);
        Bytes bytes = file.bytes();
        bytes.resize(bytes.size() - 3);
        SegyReader reader(write(bytes));
        EXPECT_EQ(reader.layout().samples, 4) << row.right;
        EXPECT_EQ(reader.layout().traces, 39) << row.right;
    }
}

// ---- Lengths that the file does not hold ----

TEST_F(SegyReaderTest, AFileWithoutAWholeTraceIsRefusedWithTheSizes)
{
    EXPECT_THAT(
        refusal(write(ieeeFile(0, 4))),
        ::testing::EndsWith(
            "line.sgy: holds no whole trace: the binary header states 4 samples per trace and the "
            "first trace header 0; a trace of 4 samples in format 5, 4-byte IEEE float, "
            "takes 256 bytes with its header, and 0 bytes follow the headers of the file"));

    Bytes cut = ieeeFile(1, 1000).bytes();
    cut.pop_back();
    EXPECT_THAT(
        refusal(write(cut)),
        ::testing::EndsWith(
            "line.sgy: holds no whole trace: the binary header states 1000 samples per trace and "
            "the first trace header 1000; a trace of 1000 samples in format 5, 4-byte "
            "IEEE float, takes 4240 bytes with its header, and 4239 bytes follow the "
            "headers of the file; if its traces are shorter, state `samples`"));
}

// A file of revision 2 that states `wide` samples per trace in the field for long traces.
static SegyBytes wideFile(int64_t wide, int narrow, int inTrace, int traces, int samples)
{
    SegyBytes file;
    file.describe(narrow, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, wide);
    for (int i = 1; i <= traces; ++i) {
        const std::size_t start = file.traces.size();
        file.addIeeeTrace(i, samples, static_cast<float>(i));
        file.setTrace(start, 115, 2, inTrace);
    }
    return file;
}

TEST_F(SegyReaderTest, FewBytesThatStateManySamplesAreRefused)
{
    const SegyBytes file = wideFile(500000000, 0, 0, 1, 100);
    ASSERT_EQ(file.bytes().size(), 4240u);
    EXPECT_THAT(
        refusal(write(file)),
        ::testing::EndsWith(
            "line.sgy: holds no whole trace: the binary header states 500000000 samples per trace "
            "and the first trace header 0; a trace of 500000000 samples in format 5, "
            "4-byte IEEE float, takes 2000000240 bytes with its header, and 640 bytes "
            "follow the headers of the file; if its traces are shorter, state `samples`"));
    EXPECT_THAT(refusal(write(wideFile(INT_MAX, 0, 0, 1, 100))),
                HasSubstr("takes 8589934828 bytes with its header, and 640 bytes follow"));
    SegyBytes doubles = wideFile(INT_MAX, 0, 0, 1, 100);
    doubles.setBinary(3225, 2, 6);
    EXPECT_THAT(refusal(write(doubles)),
                HasSubstr("in format 6, 8-byte IEEE float, takes 17179869416 bytes"));
}

TEST_F(SegyReaderTest, AStatedLengthThatTheFileDoesNotHoldIsRefusedToo)
{
    SegyOverrides overrides;
    for (const int samples : {101, 500000000, INT_MAX}) {
        overrides.samples = samples;
        EXPECT_THAT(refusal(write(ieeeFile(1, 100)), overrides),
                    HasSubstr("holds no whole trace: `samples` states " + std::to_string(samples) +
                              " samples per trace; a trace of " + std::to_string(samples) +
                              " samples in format 5"));
    }
    overrides.samples = 100;
    EXPECT_EQ(SegyReader(write(ieeeFile(1, 100)), overrides).layout().traces, 1);
}

// Whichever statement it is: the others are believed where the file holds them.
TEST_F(SegyReaderTest, ALengthThatTheFileHoldsGoesBeforeOneThatItDoesNot)
{
    struct Row
    {
        const char* name;
        SegyBytes file;
        std::size_t cut; // bytes missing at the end
        int64_t traces;
        const char* warning;
    };
    // clang-format off
    const Row rows[] = {
        {"the trace header's", wideFile(500000000, 0, 100, 1, 100), 0, 1, "the binary header states 500000000 samples per trace, the first trace header 100, and 640 bytes of traces hold 1 traces of 100 samples exactly"},
        {"the trace header's of a cut file", wideFile(500000000, 0, 100, 2, 100), 1, 1, "the last trace is cut: 639 of its 640 bytes"},
        {"the narrow field's", wideFile(500000000, 100, 0, 1, 100), 0, 1, "the binary header states 500000000 samples per trace in bytes 3269-3272, of which the file does not hold one trace, and 100 in bytes 3221-3222; read as 100"},
        {"the narrow field's of a cut file", wideFile(0x7FFFFFFF, 100, 0, 2, 100), 1, 1, "the binary header states 2147483647 samples per trace in bytes 3269-3272"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Bytes bytes = row.file.bytes();
        bytes.resize(bytes.size() - row.cut);
        SegyReader reader(write(bytes));
        EXPECT_EQ(reader.layout().samples, 100);
        EXPECT_EQ(reader.layout().traces, row.traces);
        EXPECT_EQ(samples(reader, 0).back(), 100);
        EXPECT_THAT(reader.warnings(), ::testing::Contains(HasSubstr(row.warning)));
    }
}

// The file holds one trace of 300 million samples, nearly all of them a hole.
TEST_F(SegyReaderTest, ALengthThatASparseFileHoldsIsBelieved)
{
    write(wideFile(300000000, 0, 0, 1, 100));
    std::filesystem::resize_file(path, 3600 + 240 + 4 * int64_t{300000000});
    SegyReader reader(path);
    EXPECT_EQ(reader.layout().samples, 300000000);
    EXPECT_EQ(reader.layout().traces, 1);
    std::filesystem::resize_file(path, 3600 + 240 + 4 * int64_t{300000000} - 1);
    EXPECT_THAT(refusal(path), HasSubstr("1200000239 bytes follow the headers of the file"));
}

// ---- Traces of different lengths ----

TEST_F(SegyReaderTest, TracesOfDifferentLengthsAreFollowed)
{
    SegyBytes file;
    file.describe(5, 4000, 5);
    for (const int length : {5, 2, 7})
        file.addIeeeTrace(length, length, static_cast<float>(10 * length));
    SegyReader reader(write(file));
    EXPECT_TRUE(reader.layout().variableLength);
    EXPECT_EQ(reader.layout().traces, 3);
    EXPECT_EQ(reader.layout().samples, 7);
    EXPECT_THAT(samples(reader, 1), ElementsAre(20, 21));
    EXPECT_THAT(samples(reader, 2), ElementsAre(70, 71, 72, 73, 74, 75, 76));
    EXPECT_THAT(samples(reader, 0), ElementsAre(50, 51, 52, 53, 54));
    ASSERT_EQ(reader.warnings().size(), 1u);
    EXPECT_THAT(reader.warnings()[0], HasSubstr("3 traces of different lengths, up to 7 samples"));
}

TEST_F(SegyReaderTest, DifferentLengthsWhoseSumHappensToFitAreFollowedToo)
{
    SegyBytes file;
    file.describe(4, 4000, 5);
    for (const int length : {3, 5, 4})
        file.addIeeeTrace(length, length, static_cast<float>(10 * length));
    SegyReader reader(write(file));
    EXPECT_TRUE(reader.layout().variableLength);
    EXPECT_THAT(samples(reader, 1), ElementsAre(50, 51, 52, 53, 54));
}

TEST_F(SegyReaderTest, OfDifferentLengthsTheCutTraceIsLeftOut)
{
    SegyBytes file;
    file.describe(5, 4000, 5);
    for (const int length : {5, 2, 7, 6})
        file.addIeeeTrace(length, length, static_cast<float>(10 * length));
    Bytes bytes = file.bytes();
    bytes.resize(bytes.size() - 10);
    SegyReader reader(write(bytes));
    EXPECT_TRUE(reader.layout().variableLength);
    EXPECT_EQ(reader.layout().traces, 3);
    EXPECT_EQ(reader.layout().cutBytes, 240 + 24 - 10);
    EXPECT_THAT(samples(reader, 2), ElementsAre(70, 71, 72, 73, 74, 75, 76));
}

// ---- Extended text headers ----

TEST_F(SegyReaderTest, ExtendedTextHeadersComeBeforeTheTraces)
{
    SegyBytes file = ieeeFile(2, 3);
    file.setBinary(3501, 2, 256);
    file.setBinary(3505, 2, 2);
    file.extended = Bytes(6400, SegyBytes::ebcdic('X'));
    std::fill(file.extended.begin() + 3200, file.extended.end(), ' '); // the second in ASCII
    file.extended[3200] = 'Y';
    SegyReader reader(write(file));
    ASSERT_EQ(reader.extendedTexts().size(), 2u);
    EXPECT_EQ(reader.extendedTexts()[0], std::string(3200, 'X'));
    EXPECT_EQ(reader.extendedTexts()[1][0], 'Y');
    EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202));
    EXPECT_THAT(reader.warnings(), IsEmpty());
}

TEST_F(SegyReaderTest, AVariableNumberOfExtendedHeadersEndsWithTheOneThatSaysSo)
{
    SegyBytes file = ieeeFile(2, 3);
    file.setBinary(3501, 2, 256);
    file.setBinary(3505, 2, -1);
    const std::string last = "((SEG: EndText))";
    file.extended = Bytes(6400, ' ');
    std::copy(last.begin(), last.end(), file.extended.begin() + 3200);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().extendedHeaders, 2);
    EXPECT_THAT(samples(reader, 0), ElementsAre(100, 101, 102));
}

TEST_F(SegyReaderTest, ExtendedHeadersWithoutTheLastOneAreNone)
{
    SegyBytes file = ieeeFile(2, 3);
    file.setBinary(3501, 2, 256);
    file.setBinary(3505, 2, -1);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().extendedHeaders, 0);
    EXPECT_EQ(reader.layout().traces, 2);
    ASSERT_EQ(reader.warnings().size(), 1u);
    EXPECT_THAT(reader.warnings()[0], HasSubstr("((SEG: EndText))"));
}

TEST_F(SegyReaderTest, ExtendedHeadersThatAreNotThereAreReportedAndNotRead)
{
    struct Row
    {
        const char* name;
        int revision;
        int stated;
    };
    for (const Row& row :
         {Row{"more than the file holds", 256, 7}, Row{"negative", 256, -7},
          Row{"anything in revision 0", 0, 1}, Row{"traces in their place", 256, 3}})
    {
        SegyBytes file = ieeeFile(30, 100); // 19200 bytes: 6 headers' worth, but no text
        file.setBinary(3501, 2, row.revision);
        file.setBinary(3505, 2, row.stated);
        SegyReader reader(write(file));
        EXPECT_EQ(reader.layout().extendedHeaders, 0) << row.name;
        EXPECT_EQ(reader.layout().traces, 30) << row.name;
        ASSERT_EQ(reader.warnings().size(), 1u) << row.name;
        EXPECT_THAT(reader.warnings()[0],
                    HasSubstr("states " + std::to_string(row.stated) + " extended text headers"));
    }
}

// ---- Interval ----

TEST_F(SegyReaderTest, TheIntervalOfTheFileHeaderWinsAndTheOtherIsReported)
{
    SegyBytes file = ieeeFile(2, 3);
    file.setBinary(3217, 2, 2000);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().interval, 2000);
    EXPECT_THAT(reader.warnings(),
                ElementsAre("the binary header states a sample interval of 2000 microseconds, the "
                            "first trace header 4000; read as 2000"));
}

TEST_F(SegyReaderTest, TheIntervalOfTheTraceHeaderStandsIn)
{
    SegyBytes file = ieeeFile(2, 3);
    file.setBinary(3217, 2, 0);
    EXPECT_EQ(SegyReader(write(file)).layout().interval, 4000);
}

namespace {

// A file whose binary header is 0x5A but for what a reader must understand.
SegyBytes crowdedFile(int revision, bool little)
{
    SegyBytes file = ieeeFile(2, 3, little);
    for (int position = 3227; position <= 3600; ++position)
        file.setBinary(position, 1, 0x5A);
    file.setBinary(3501, 2, 0);
    file.setBinary(3501, 1, revision);
    file.setBinary(3505, 2, 0);
    if (revision == 2) { // additional headers, first trace, trailers
        file.setBinary(3297, 4, 0x01020304);
        file.setBinary(3269, 4, 0);
        file.setBinary(3507, 4, 0);
        file.setBinary(3521, 8, 0);
        file.setBinary(3529, 4, 0);
    }
    return file;
}

} // namespace

TEST_F(SegyReaderTest, BytesWithoutAMeaningAreThoseThatTheRevisionLeavesOpen)
{
    struct Row
    {
        int revision;
        std::vector<std::pair<int, int>> open; // bytes counted from 1
    };
    const Row rows[] = {
        {0, {{61, 304}, {307, 400}}}, {1, {{61, 300}, {307, 400}}}, {2, {{101, 300}, {333, 400}}}};
    for (const Row& row : rows) {
        for (const bool little : {false, true}) {
            SCOPED_TRACE("revision " + std::to_string(row.revision) +
                         (little ? ", little endian" : ", big endian"));
            const SegyBytes made = crowdedFile(row.revision, little);
            SegyReader reader(write(made));
            ASSERT_EQ(reader.layout().revision, row.revision);
            const Bytes bytes = reader.unassignedBytes();
            ASSERT_EQ(bytes.size(), 400u);
            for (int byte = 1; byte <= 400; ++byte) {
                const bool open = std::any_of(row.open.begin(), row.open.end(), [&](auto range) {
                    return byte >= range.first && byte <= range.second;
                });
                const auto at = static_cast<std::size_t>(byte) - 1;
                EXPECT_EQ(bytes[at], open ? made.header[3200 + at] : 0) << byte;
            }
        }
    }
}

TEST_F(SegyReaderTest, OfTheBytesWithoutAMeaningTheOrderOfBytesIsThatOfTheWriter)
{
    for (const bool little : {false, true}) {
        SegyBytes made = ieeeFile(2, 3, little);
        made.setBinary(3297, 4, 0x01020304);
        const Bytes bytes = SegyReader(write(made)).unassignedBytes();
        EXPECT_EQ(Bytes(bytes.begin() + 96, bytes.begin() + 100), (Bytes{1, 2, 3, 4})) << little;
    }
}

// True or not, and whatever the revision: other readers believe it.
TEST_F(SegyReaderTest, TheNumberOfExtendedHeadersIsNoByteWithoutAMeaning)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setBinary(3505, 2, 1);
    EXPECT_EQ(SegyReader(write(made)).unassignedBytes()[305], 0) << "there is none";
    made.extended = Bytes(3200, 'A');
    SegyReader reader(write(made));
    ASSERT_EQ(reader.layout().extendedHeaders, 1);
    EXPECT_EQ(reader.unassignedBytes()[305], 0);
}

TEST_F(SegyReaderTest, TextHeadersAreAtHandAsTheyAreInTheFile)
{
    SegyBytes made = ieeeFile(2, 3);
    made.header[100] = 0x6A;
    made.header[101] = 0x07;
    made.setBinary(3505, 2, 2);
    made.extended = Bytes(6400, 'A');
    made.extended[3200] = 0xE9;
    SegyReader reader(write(made));
    EXPECT_EQ(reader.textBytes(), Bytes(made.header.begin(), made.header.begin() + 3200));
    EXPECT_EQ(reader.extendedTextBytes(), made.extended);
    EXPECT_EQ(textCards(reader.text())[1], std::string(20, ' ') + "¦");
}

namespace {

// What the headers of all traces but those left out in front contradict.
std::vector<std::string> contradictions(SegyReader& reader, int64_t first = 0)
{
    SegyTraceStatements statements(reader);
    for (int64_t i = first; i < reader.layout().traces; ++i)
        statements.see(i, reader.header(i));
    return statements.warnings();
}

} // namespace

TEST_F(SegyReaderTest, TracesThatStateAnotherIntervalAreCountedAndTheFirstIsNamed)
{
    SegyBytes file = ieeeFile(5, 3);
    file.setTrace(252, 117, 2, 2000);
    file.setTrace(2 * 252, 117, 2, 0);
    file.setTrace(4 * 252, 117, 2, 1000);
    SegyReader reader(write(file));
    EXPECT_THAT(reader.warnings(), IsEmpty());
    EXPECT_THAT(contradictions(reader),
                ElementsAre("3 of 5 traces state another sample interval than 4000 microseconds, "
                            "the first of them trace 2 with 2000; all are read as 4000; where "
                            "theirs is right, read them apart with `traces` and `interval`"));
    EXPECT_THAT(contradictions(reader, 3),
                ElementsAre(HasSubstr("1 of 2 traces state another sample interval than 4000 "
                                      "microseconds, the first of them trace 5 with 1000; ")));
}

TEST_F(SegyReaderTest, TheFirstContradictionIsThatOfTheFileInWhateverOrderTracesAreSeen)
{
    SegyBytes file = ieeeFile(6, 3);
    file.setTrace(252, 117, 2, 2000);
    file.setTrace(4 * 252, 117, 2, 1000);
    for (const std::size_t blank : {3, 5})
        std::fill_n(file.traces.begin() + static_cast<std::ptrdiff_t>(blank * 252), 240,
                    static_cast<unsigned char>(0));
    SegyReader reader(write(file));
    const auto warningsOf = [&](const std::vector<std::vector<int64_t>>& parts) {
        SegyTraceStatements all(reader);
        for (const std::vector<int64_t>& part : parts) {
            SegyTraceStatements own(reader);
            for (const int64_t trace : part)
                own.see(trace, reader.header(trace));
            all.add(own);
        }
        return all.warnings();
    };
    const std::vector<std::string> inOrder = warningsOf({{0, 1, 2, 3, 4, 5}});
    ASSERT_THAT(inOrder, ElementsAre(HasSubstr("the first of them trace 2 with 2000"),
                                     HasSubstr("the first of them that of trace 4")));
    EXPECT_EQ(warningsOf({{5, 4, 3, 2, 1, 0}}), inOrder);
    EXPECT_EQ(warningsOf({{4, 5, 0}, {2, 3, 1}}), inOrder);
    EXPECT_EQ(warningsOf({{1}, {5}, {4, 3}, {0, 2}}), inOrder);
}

TEST_F(SegyReaderTest, EmptyTraceHeadersAreCountedOnceForAllOfTheirWords)
{
    SegyBytes file = ieeeFile(5, 3);
    for (const std::size_t trace : {1, 3})
        std::fill_n(file.traces.begin() + static_cast<std::ptrdiff_t>(trace * 252), 240,
                    static_cast<unsigned char>(0));
    SegyReader reader(write(file));
    EXPECT_THAT(
        contradictions(reader),
        ElementsAre("2 of 5 trace headers are empty, all bytes 0, the first of them that of "
                    "trace 2; the words of these traces are 0"));
}

TEST_F(SegyReaderTest, WhatIsKnownOfTheFirstTraceIsNotSaidAgainOfTheOthers)
{
    SegyBytes file = ieeeFile(3, 3);
    for (const std::size_t start : {0, 252, 504})
        file.setTrace(start, 117, 2, 2000);
    SegyReader reader(write(file));
    EXPECT_THAT(reader.warnings(), SizeIs(1));
    EXPECT_THAT(contradictions(reader), IsEmpty());
    file.setTrace(504, 117, 2, 1000);
    SegyReader another(write(file));
    EXPECT_THAT(contradictions(another), ElementsAre(HasSubstr("1 of 3 traces")));
}

TEST_F(SegyReaderTest, TracesThatStateAnotherLengthAreCountedToo)
{
    SegyBytes file = ieeeFile(40, 3);
    file.setTrace(30 * 252, 115, 2, 7);
    SegyReader reader(write(file));
    EXPECT_THAT(contradictions(reader),
                ElementsAre("1 of 40 traces state another number of samples than 3, the first of "
                            "them trace 31 with 7; all are read as 3; where theirs is right, read "
                            "them apart with `traces` and `samples`"));
}

TEST_F(SegyReaderTest, NothingContradictsWhatAPersonHasStated)
{
    SegyBytes file = ieeeFile(4, 3);
    file.setTrace(252, 115, 2, 7);
    file.setTrace(252, 117, 2, 2000);
    SegyOverrides overrides;
    overrides.samples = 3;
    overrides.interval = 4000;
    SegyReader reader(write(file), overrides);
    EXPECT_THAT(contradictions(reader), IsEmpty());
}

TEST_F(SegyReaderTest, NoIntervalAtAllIsReported)
{
    SegyBytes file;
    file.describe(3, 0, 5);
    file.addIeeeTrace(1, 3, 1, 0);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().interval, 0);
    EXPECT_THAT(reader.warnings(),
                ElementsAre("no header states a sample interval; state `interval`"));
}

TEST_F(SegyReaderTest, AStatedIntervalGoesBeforeAllHeaders)
{
    SegyOverrides overrides;
    overrides.interval = 1000;
    SegyBytes file = ieeeFile(2, 3);
    file.setBinary(3217, 2, 2000);
    SegyReader reader(write(file), overrides);
    EXPECT_EQ(reader.layout().interval, 1000);
    EXPECT_THAT(reader.warnings(), IsEmpty());
}

// ---- Format and byte order ----

TEST_F(SegyReaderTest, AStatedFormatAndOrderGoBeforeTheHeader)
{
    SegyBytes file = ieeeFile(2, 3, true);
    file.setBinary(3225, 2, 1);
    SegyOverrides overrides;
    overrides.format = SampleFormat::ieeeFloat;
    overrides.littleEndian = true;
    SegyReader reader(write(file), overrides);
    EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202));
}

TEST_F(SegyReaderTest, WithoutAFormatCodeTheSizeTellsTheByteOrder)
{
    SegyOverrides overrides;
    overrides.format = SampleFormat::ieeeFloat;
    for (const bool little : {false, true}) {
        SegyBytes file = ieeeFile(2, 3, little);
        file.setBinary(3225, 2, 0);
        SegyReader reader(write(file), overrides);
        EXPECT_EQ(reader.layout().littleEndian, little);
        EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202));
    }
}

TEST_F(SegyReaderTest, UnknownAndObsoleteFormatsAreRefused)
{
    SegyBytes file = ieeeFile(2, 3);
    file.setBinary(3225, 2, 99);
    EXPECT_THAT(refusal(write(file)), HasSubstr("is 99 (big endian) or 25344 (little endian)"));
    file.setBinary(3225, 2, 4);
    EXPECT_THAT(refusal(write(file)), HasSubstr("fixed point with gain, which is obsolete"));
}

TEST_F(SegyReaderTest, EveryFormatIsReadFromAFile)
{
    for (int code = 1; code <= 16; ++code) {
        if (!isSampleFormat(code) || code == 1 || code == 5 || code == 6)
            continue;
        const int width = sampleBytes(static_cast<SampleFormat>(code));
        SegyBytes file;
        file.describe(3, 4000, code);
        for (int trace = 0; trace < 3; ++trace) {
            file.addHeader(trace, trace, 3, 4000);
            for (int i = 0; i < 3; ++i)
                file.addSample(10 * trace + i, width);
        }
        SegyReader reader(write(file));
        EXPECT_EQ(reader.layout().traces, 3) << code;
        EXPECT_THAT(samples(reader, 2), ElementsAre(20, 21, 22)) << code;
    }
}

// ---- Revision 2 ----

TEST_F(SegyReaderTest, Revision2StatesLongTracesAndFineIntervals)
{
    SegyBytes file;
    file.describe(70000 & 0xFFFF, 0, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, 70000);
    const double interval = 31.25; // nearest whole microsecond: 31
    int64_t bits;
    std::memcpy(&bits, &interval, sizeof bits);
    file.setBinary(3273, 8, bits);
    for (int i = 1; i <= 2; ++i)
        file.addIeeeTrace(i, 70000, static_cast<float>(i), 0);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().samples, 70000);
    EXPECT_EQ(reader.layout().traces, 2);
    EXPECT_EQ(reader.layout().interval, 31);
    EXPECT_EQ(samples(reader, 1).back(), 2.0f + 69999);
}

TEST_F(SegyReaderTest, Revision2ConstantTellsTheByteOrder)
{
    SegyBytes file = ieeeFile(2, 3, true);
    file.header[3500] = 2;
    file.setBinary(3297, 4, 16909060);
    SegyReader reader(write(file));
    EXPECT_TRUE(reader.layout().littleEndian);
    EXPECT_EQ(reader.layout().revision, 2);
    EXPECT_THAT(samples(reader, 1), ElementsAre(200, 201, 202));
}

TEST_F(SegyReaderTest, Revision2WithPairsOfBytesExchangedIsRefused)
{
    SegyBytes file = ieeeFile(2, 3);
    file.header[3500] = 2;
    file.setBinary(3297, 4, 0x02010403);
    EXPECT_THAT(refusal(write(file)), HasSubstr("has the bytes of each pair exchanged"));
}

TEST_F(SegyReaderTest, Revision2AdditionalTraceHeadersAndTrailersAreStepped)
{
    SegyBytes file;
    file.describe(3, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3507, 4, 2);    // two more headers for each trace
    file.setBinary(3521, 8, 6800); // the first trace, behind one extended header
    file.setBinary(3529, 4, 1);    // one stanza behind the traces
    file.extended = Bytes(3200, ' ');
    for (int i = 1; i <= 2; ++i) {
        file.addHeader(i, i, 3, 4000);
        file.traces.resize(file.traces.size() + 480, 0x7F);
        for (int k = 0; k < 3; ++k)
            file.addSample(bitsOf(static_cast<float>(10 * i + k)));
    }
    file.traces.resize(file.traces.size() + 3200, ' ');
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().extendedHeaders, 1);
    EXPECT_EQ(reader.layout().traceHeaderBytes, 720);
    EXPECT_EQ(reader.layout().traces, 2);
    EXPECT_THAT(samples(reader, 1), ElementsAre(20, 21, 22));
    EXPECT_EQ(word(reader, 1, "fldr"), 2);
    EXPECT_THAT(reader.warnings(), IsEmpty());
}

TEST_F(SegyReaderTest, Revision2AdditionalTraceHeadersThatAreNotThereAreReported)
{
    SegyBytes file = ieeeFile(3, 4);
    file.header[3500] = 2;
    file.setBinary(3507, 4, 2);
    SegyReader reader(write(file));
    EXPECT_EQ(reader.layout().traceHeaderBytes, 240);
    EXPECT_THAT(samples(reader, 2), ElementsAre(300, 301, 302, 303));
    ASSERT_EQ(reader.warnings().size(), 1u);
    EXPECT_THAT(reader.warnings()[0], HasSubstr("states 2 additional headers for each trace"));
}

// ---- What is not a SEG-Y file ----

TEST_F(SegyReaderTest, FilesThatAreNoneAreRefusedInOneLineThatNamesThem)
{
    Bytes noise(200000);
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<unsigned char>(i * 2654435761u >> 13);
    Bytes noiseWithCode = noise; // even the format code happens to be right
    noiseWithCode[3224] = 0;
    noiseWithCode[3225] = 1;
    struct Row
    {
        const char* name;
        Bytes bytes;
        const char* says;
    };
    const Row rows[] = {
        {"empty", {}, "is not a SEG-Y file: it has 0 bytes"},
        {"short", Bytes(3599, 0x40), "is not a SEG-Y file: it has 3599 bytes"},
        {"binary", noise, "is not a SEG-Y file that can be read"},
        {"binary with a format code", noiseWithCode, "is not a SEG-Y file: its first 3200 bytes"},
        {"zeros", Bytes(100000, 0), "is not a SEG-Y file that can be read"},
    };
    for (const Row& row : rows) {
        const std::string text = refusal(write(row.bytes));
        EXPECT_THAT(text, HasSubstr("line.sgy: " + std::string(row.says))) << row.name;
        EXPECT_EQ(text.find('\n'), std::string::npos) << row.name;
    }
}

TEST_F(SegyReaderTest, WhatIsNoRegularFileIsRefusedAtOnce)
{
    const std::string pipe = directory / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(refusal(pipe), HasSubstr("pipe: is not a file that can be read"));
    EXPECT_THAT(refusal(directory.path()), HasSubstr("is not a file that can be read"));
    EXPECT_THAT(refusal(directory / "none.sgy"),
                HasSubstr("none.sgy: cannot be opened: No such file or directory"));
}

TEST_F(SegyReaderTest, AFileThatShrinksAfterItWasOpenedIsReported)
{
    SegyReader reader(write(ieeeFile(1000, 1000)));
    std::filesystem::resize_file(path, 5000);
    try {
        samples(reader, 900);
        ADD_FAILURE() << "it was read";
    } catch (const TraceFileError& error) {
        EXPECT_THAT(error.what(), HasSubstr("it was longer when it was opened"));
    }
}

// ---- Damage of all kinds ----

// Whatever the bytes are, the file is refused or read to its end; nothing beyond it is touched,
// which the sanitizers see.
TEST_F(SegyReaderTest, DamagedFilesAreReadToTheirEndOrRefused)
{
    const std::function<SegyBytes()> makers[] = {
        [] { return ieeeFile(6, 20); },
        [] { return ieeeFile(6, 20, true); },
        [] {
            SegyBytes file = ieeeFile(4, 30);
            file.setBinary(3501, 2, 256);
            file.setBinary(3505, 2, 1);
            file.extended = Bytes(3200, ' ');
            return file;
        },
        [] {
            SegyBytes file = ieeeFile(4, 30);
            file.header[3500] = 2;
            file.setBinary(3297, 4, 16909060);
            return file;
        },
    };
    Dice dice(7);
    int opened = 0;
    int refused = 0;
    for (int round = 0; round < 4000; ++round) {
        Bytes bytes = makers[dice.below(4)]().bytes();
        const int changes = dice.between(1, 6);
        for (int i = 0; i < changes; ++i) {
            // Mostly in the headers, where the meaning is.
            const int where = dice.below(4);
            const int at = where == 0   ? dice.below(static_cast<int>(bytes.size()))
                           : where == 1 ? 3600 + dice.below(240)
                                        : 3200 + dice.below(400);
            if (static_cast<std::size_t>(at) < bytes.size())
                bytes[static_cast<std::size_t>(at)] = static_cast<unsigned char>(
                    dice.oneIn(2) ? dice.below(256) : dice.pick(interestingBytes));
        }
        if (dice.oneIn(4))
            bytes.resize(static_cast<std::size_t>(dice.below(static_cast<int>(bytes.size()))));
        SegyOverrides overrides;
        if (dice.oneIn(8))
            overrides.samples = dice.between(1, 100000);
        if (dice.oneIn(8))
            overrides.format = static_cast<SampleFormat>(dice.pick(codes));
        try {
            SegyReader reader(write(bytes), overrides);
            ++opened;
            ASSERT_GT(reader.layout().samples, 0);
            ASSERT_GT(reader.layout().traces, 0);
            ASSERT_LE(reader.layout().traceBytes(reader.layout().samples),
                      static_cast<int64_t>(bytes.size()));
            for (int64_t i = 0; i < reader.layout().traces; ++i) {
                ASSERT_LE(reader.samplesOf(i), reader.layout().samples);
                samples(reader, i);
            }
        } catch (const TraceFileError& error) {
            ++refused;
            ASSERT_EQ(std::string(error.what()).find('\n'), std::string::npos);
        }
    }
    EXPECT_GT(opened, 500);
    EXPECT_GT(refused, 100);
}
