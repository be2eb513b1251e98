// Runs su_out in jobs of its own, behind su_in or segy_in, and looks at the files that it leaves.
#include <KernelFixture.h>
#include <ModuleHarness.h>
#include <SegyBytes.h>
#include <TraceVerbs.h>

#include "file/PartOutputs.h"
#include "segy/HeaderWords.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <unistd.h>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using Parameters = std::map<std::string, UniVar>;

class SuOutTest : public KernelFixture
{
protected:
    SuOutTest() { renew(); }

    // A harness without modules that knows all words of SEG-Y and of Seismic Unix.
    void renew()
    {
        harness = ModuleHarness();
        harness.withSink = false;
        for (const VORN::HeaderWord& word : VORN::traceHeaderWords())
            harness.define(word.key, 2);
        for (const VORN::HeaderWord& word : VORN::suHeaderWords())
            harness.define(word.key, word.isFloat ? 4 : 2);
    }
    HarnessResult runWriter(Parameters parameters = {})
    {
        parameters.emplace("file", UniVar(out));
        harness.add("out", "libsu_out.so").parameters = std::move(parameters);
        return harness.run();
    }
    HarnessResult copy(const std::string& library, const std::string& path,
                       Parameters parameters = {})
    {
        renew();
        harness.withSource = false;
        harness.add("in", library).parameters["file"] = UniVar(path);
        return runWriter(std::move(parameters));
    }
    HarnessResult copy(const Bytes& bytes, Parameters parameters = {})
    {
        writeBytes(in, bytes);
        return copy("libsu_in.so", in, std::move(parameters));
    }

    ModuleHarness harness;
    TemporaryDirectory directory;
    const std::string in = directory / "in.su";
    const std::string out = directory / "out.su";
    const std::string target = directory / ".out.su.parts";
};

// Traces with random samples, and random headers as far as Seismic Unix has words for the bytes.
Bytes randomTraces(int traces, int samples, bool little)
{
    std::mt19937 dice(3);
    SegyBytes file;
    file.little = little;
    for (int i = 0; i < traces; ++i) {
        const std::size_t start = file.addHeader(0, 0, samples, 4000);
        for (std::size_t byte = 0; byte < 212; ++byte) {
            if (byte < 114 || byte > 117)
                file.traces[start + byte] = static_cast<unsigned char>(dice());
        }
        for (int k = 0; k < samples; ++k)
            file.addSample(dice());
    }
    return file.traces;
}

} // namespace

// Traces with words that have no place in the file, and a reader that counts those it cannot read.
TEST_F(SuOutTest, PartsOfAJobWriteTheFileAndTheMessagesOfOneProcess)
{
    constexpr std::size_t traces = 25;
    writeBytes(in, randomTraces(traces, 6, true));
    harness = ModuleHarness();
    harness.withSink = false;
    harness.withSource = false;
    for (const char* word : {"fldr", "cdp", "offset", "iline", "xline"})
        harness.define(word, 2);
    HarnessModule& reader = harness.add("in", "libsu_in.so");
    reader.parameters = {{"file", UniVar(in)}, {"words", UniVar("iline=9, xline=199:int16")}};
    const HarnessResult whole = runWriter({{"words", UniVar("offset=205:int8")}});
    const Bytes expected = readBytes(out);
    ASSERT_EQ(expected.size(), traces * 264) << whole.allMessages();
    ASSERT_THAT(whole.messagesOf(2, "in"), SizeIs(1)) << whole.allMessages();
    ASSERT_THAT(whole.messagesOf(2, "out"), SizeIs(2)) << whole.allMessages();

    harness.rangeParameter = "part";
    harness.sourceTraces = traces;
    harness.beforePart = [this](std::size_t part, std::size_t before) {
        if (part == 1)
            writeBytes(target, {});
        part == 0 ? VORN::setWholeOutput(out, target)
                  : VORN::setPartOutput(out, target, static_cast<int64_t>(before));
    };
    const std::vector<std::vector<std::size_t>> cuts = {
        {}, {1}, {24}, {8, 16}, {2, 3, 5, 12, 20, 22}};
    for (const std::vector<std::size_t>& some : cuts) {
        unlink(out.c_str());
        EXPECT_EQ(differenceOf(whole, harness.runInParts(some)), "") << some.size();
        EXPECT_TRUE(readBytes(out) == expected) << some.size();
    }
    VORN::clearPartOutputs();
}

TEST_F(SuOutTest, AFileInNativeOrderComesOutBitForBit)
{
    const Bytes before = randomTraces(30, 50, true);
    const HarnessResult result = copy(before);
    EXPECT_TRUE(readBytes(out) == before) << result.allMessages();
    EXPECT_THAT(result.messagesOf(1, "out"),
                Contains(out + ": 30 traces of 50 samples written, 13200 bytes, Seismic Unix, "
                               "little endian"));
    EXPECT_EQ(result.bytesLeft.at("out"), 0);
}

TEST_F(SuOutTest, TheOrderCanBeChosen)
{
    const Bytes big = ieeeFile(3, 4, false).traces;
    const Bytes little = ieeeFile(3, 4, true).traces;
    copy(big);
    EXPECT_EQ(readBytes(out), little);
    copy(big, {{"endian", UniVar("big")}});
    EXPECT_EQ(readBytes(out), big);
    copy(big, {{"endian", UniVar("little")}});
    EXPECT_EQ(readBytes(out), little);
}

TEST_F(SuOutTest, OfASegyFileTheWordsUpToByte180AreWritten)
{
    std::mt19937 dice(9);
    SegyBytes made = ieeeFile(4, 5);
    for (std::size_t i = 0; i < made.traces.size(); ++i) {
        const std::size_t byte = i % 260;
        if (byte < 240 && (byte < 114 || byte > 117))
            made.traces[i] = static_cast<unsigned char>(dice());
    }
    const std::string segy = directory / "in.sgy";
    made.write(segy);
    copy("libsegy_in.so", segy, {{"endian", UniVar("big")}});
    const Bytes bytes = readBytes(out);
    ASSERT_EQ(bytes.size(), made.traces.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::size_t byte = i % 260;
        const int expected = byte >= 180 && byte < 240 ? 0 : made.traces[i];
        ASSERT_EQ(bytes[i], expected) << "byte " << byte + 1 << " of trace " << i / 260;
    }
}

TEST_F(SuOutTest, WordsWithValuesThatHaveNoPlaceAreNamedOnce)
{
    harness.push({1, 2}, {{"iline", UniVar(0)}, {"cdpx", UniVar(500000)}, {"cdp", UniVar(1)}});
    harness.push({1, 2}, {{"iline", UniVar(7)}, {"cdpx", UniVar(500025)}});
    const HarnessResult result = runWriter();
    EXPECT_THAT(result.messagesOf(2, "out"),
                ElementsAre(out + ": a Seismic Unix header has no place for these words, whose "
                                  "values are left out: cdpx (2 traces), iline (1 trace)"));
}

// Of the words of SEG-Y, those up to byte 180 have a place.
TEST_F(SuOutTest, EveryWordWithoutAPlaceIsNamed)
{
    std::map<std::string, UniVar> all;
    std::string names;
    for (const VORN::HeaderWord& word : VORN::traceHeaderWords()) {
        all[word.key] = UniVar(1);
        if (word.byte > 180)
            names += std::string(names.empty() ? "" : ", ") + word.key + " (1 trace)";
    }
    harness.push({1, 2}, all);
    EXPECT_THAT(runWriter().messagesOf(2, "out"), ElementsAre(testing::EndsWith(": " + names)));
}

TEST_F(SuOutTest, TracesWithoutHeadersGetWhatSeismicUnixNeeds)
{
    harness.sampleInterval = 500;
    harness.push({1, 2, 3});
    harness.push({4, 5, 6}, {{"fldr", UniVar(7)}});
    runWriter();
    const Bytes bytes = readBytes(out);
    ASSERT_EQ(bytes.size(), 2 * 252u);
    EXPECT_EQ(getInteger(bytes, 252, 4, true), 2) << "tracl";
    EXPECT_EQ(getInteger(bytes, 252 + 8, 4, true), 7) << "fldr";
    EXPECT_EQ(getInteger(bytes, 252 + 28, 2, true), 1) << "trid";
    EXPECT_EQ(getInteger(bytes, 252 + 114, 2, true), 3) << "ns";
    EXPECT_EQ(getInteger(bytes, 252 + 116, 2, true), 500) << "dt";
}

TEST_F(SuOutTest, ValuesThatDoNotFitAreWrittenAsTheNearestAndReportedOnce)
{
    for (const int scalar : {1, 40000, -50000})
        harness.push({1, 2}, {{"scalco", UniVar(scalar)}});
    const HarnessResult result = runWriter();
    const Bytes bytes = readBytes(out);
    EXPECT_EQ(getInteger(bytes, 248 + 70, 2, true), 32767);
    EXPECT_EQ(getInteger(bytes, 2 * 248 + 70, 2, true), -32768);
    EXPECT_THAT(result.messagesOf(2, "out"),
                ElementsAre(out + ": scalco of trace 2 is 40000, more than 16 bits hold; it is "
                                  "written as 32767, and others likewise"));
}

TEST_F(SuOutTest, NumbersOfOtherTypesAreRoundedAndTheNearestIsWritten)
{
    harness = ModuleHarness();
    harness.withSink = false;
    harness.define("offset", 5);
    harness.define("sx", 3);
    harness.define("cdp", 2);
    harness.define("f1", 5);
    harness.push({1, 2}, {{"offset", UniVar(1.7)}, {"sx", UniVar(int64_t{7})}});
    harness.push({1, 2}, {{"offset", UniVar(-2.5)},
                          {"sx", UniVar(int64_t{5000000000})},
                          {"cdp", UniVar(12)},
                          {"f1", UniVar(0.25)}});
    const HarnessResult result = runWriter();
    const Bytes bytes = readBytes(out);
    EXPECT_EQ(getInteger(bytes, 36, 4, true), 2);
    EXPECT_EQ(getInteger(bytes, 72, 4, true), 7);
    EXPECT_EQ(getInteger(bytes, 248 + 36, 4, true), -3);
    EXPECT_EQ(getInteger(bytes, 248 + 72, 4, true), INT_MAX);
    EXPECT_EQ(getInteger(bytes, 248 + 20, 4, true), 12) << "it came with the second trace";
    EXPECT_EQ(getInteger(bytes, 248 + 184, 4, true), bitsOf(0.25F));
    EXPECT_THAT(result.messagesOf(2, "out"),
                ElementsAre(out + ": sx of trace 2 is 5000000000, more than 32 bits hold; it is "
                                  "written as 2147483647, and others likewise"));
}

TEST_F(SuOutTest, TheInputIsNeverReplaced)
{
    const Bytes before = ieeeFile(3, 4, true).traces;
    writeBytes(in, before);
    const std::string soft = directory / "soft.su";
    ASSERT_EQ(symlink("in.su", soft.c_str()), 0);
    for (const std::string& name : {in, soft}) {
        const HarnessResult result = copy("libsu_in.so", in, {{"file", UniVar(name)}});
        EXPECT_THAT(result.messagesOf(4, "out"),
                    ElementsAre(name + ": is read by this job and would be replaced; write to "
                                       "another file"));
        EXPECT_TRUE(readBytes(in) == before);
        EXPECT_THAT(directory.names(), ElementsAre("in.su", "soft.su"));
    }
}

TEST_F(SuOutTest, AJobWithoutTracesWritesNoFileAndSaysSo)
{
    renew();
    harness.withSource = false;
    harness.add("in", "libsynthetic.so").parameters["shots"] = UniVar(0);
    const HarnessResult result = runWriter();
    EXPECT_THAT(result.messagesOf(3, "out"),
                ElementsAre(out + ": is not written, since no trace arrived"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SuOutTest, AFailedReaderLeavesNoFile)
{
    const HarnessResult result = copy("libsu_in.so", directory / "none.su");
    EXPECT_THAT(result.messagesOf(3, "out"),
                ElementsAre(HasSubstr(out + ": is not written, since the job failed (su_in: ")));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SuOutTest, AFullDiskEndsTheWritingWithOneLineAndNoFile)
{
    writeBytes(in, ieeeFile(2000, 500, true).traces); // 4.5 megabytes
    for (const rlim_t room : {0, 1048576, 4479999}) {
        const FileSizeLimit limit(room);
        const HarnessResult result = copy("libsu_in.so", in);
        EXPECT_THAT(result.messagesOf(4, "out"),
                    ElementsAre(HasSubstr(out + ": cannot be written beyond its first " +
                                          std::to_string(room) + " bytes")))
            << room;
        EXPECT_THAT(result.messagesOf(3, "out"), IsEmpty()) << "it is not said twice";
        EXPECT_THAT(directory.names(), ElementsAre("in.su")) << room;
        EXPECT_EQ(result.bytesLeft.at("out"), 0) << room;
    }
}

TEST_F(SuOutTest, PagingOfTracesChangesNothing)
{
    const Bytes before = randomTraces(30, 50, true);
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    copy(before);
    EXPECT_TRUE(readBytes(out) == before);
}

TEST_F(SuOutTest, BadParametersEndTheModuleWithOneLine)
{
    struct Row
    {
        Parameters parameters;
        std::string says;
    };
    const std::string missing = directory / "none/out.su";
    const std::vector<Row> rows = {
        {{{"file", UniVar("")}}, "file is missing; give the name of a file to write"},
        {{{"file", UniVar(missing)}}, missing + ": cannot be written: no file can be created"},
        {{{"file", UniVar(directory.path())}}, "is there already and is not a regular file"},
        {{{"endian", UniVar("middle")}}, "endian is \"middle\"; give native, big or little"},
        {{{"file", UniVar(in)}, {"overwrite", UniVar(0)}}, in + ": is read by this job"},
    };
    for (const Row& row : rows) {
        const HarnessResult result = copy(ieeeFile(3, 4, true).traces, row.parameters);
        EXPECT_THAT(result.messagesOf(4, "out"), ElementsAre(HasSubstr(row.says)));
        EXPECT_THAT(result.jobMetadata.at("vorn.failed"), HasSubstr("su_out: ")) << row.says;
        EXPECT_THAT(directory.names(), ElementsAre("in.su")) << row.says;
        EXPECT_EQ(result.bytesLeft.at("out"), 0) << row.says;
    }
}

TEST_F(SuOutTest, AnExistingFileIsReplacedUnlessThatIsForbidden)
{
    const Bytes traces = ieeeFile(3, 4, true).traces;
    writeBytes(out, {'o', 'l', 'd'});
    const HarnessResult refused = copy(traces, {{"overwrite", UniVar(0)}});
    EXPECT_THAT(refused.messagesOf(4, "out"), ElementsAre(HasSubstr("is there already")));
    EXPECT_EQ(readBytes(out).size(), 3u);
    copy(traces);
    EXPECT_EQ(readBytes(out), traces);
}
