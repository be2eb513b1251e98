// Runs segy_out in jobs of its own, mostly behind segy_in, and looks at the files that it leaves.
#include <KernelFixture.h>
#include <ModuleHarness.h>
#include <ProbeModule.h>
#include <SegyBytes.h>
#include <TraceVerbs.h>

#include "DataChannel.h"
#include "JobOutcome.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"
#include "file/PartOutputs.h"
#include "segy/HeaderWords.h"
#include "segy/SegyReader.h"
#include "segy/TextHeader.h"

#ifdef VORN_TEST_SEGYIO
#include <segyio/segy.h>
#endif

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using Parameters = std::map<std::string, UniVar>;

// A module between the two that passes traces on; what a test adds runs before the first of them.
class Filter
{
public:
    explicit Filter(std::function<void()> first) : once(std::move(first)) {}

    void addTo(ModuleHarness& harness)
    {
        functions = {&prepare, &pass, &finish, this};
        harness.add("filter", "libprobe.so").resources["probe"] =
            UniVar(static_cast<void*>(&functions));
    }
    std::function<void()> last = [] {}; // in post-processing

private:
    static void prepare(void* self)
    {
        void* in = getInputTraceBuffer(0);
        bldOutputTraceBuffer(0, getTraceLength(in), getTraceSampleInterval(in), in);
        static_cast<Filter*>(self)->once();
    }
    static void pass(void*)
    {
        copyTraceToTrace(getInputTraceBuffer(0), getOutputTraceBuffer(0), 1, 1, 0, 0);
    }
    static void finish(void* self) { static_cast<Filter*>(self)->last(); }

    std::function<void()> once;
    probe_functions functions;
};

class SegyOutTest : public KernelFixture
{
protected:
    SegyOutTest() { renew(); }
    ~SegyOutTest() override { VORN::clearPartOutputs(); }

    // A harness without modules, with all header words in its schema.
    void renew()
    {
        harness = ModuleHarness();
        harness.withSink = false;
        for (const VORN::HeaderWord& word : VORN::traceHeaderWords())
            harness.define(word.key, 2);
    }
    void addReader(const std::string& path)
    {
        harness.withSource = false;
        harness.add("in", "libsegy_in.so").parameters["file"] = UniVar(path);
    }
    HarnessResult runWriter(Parameters parameters = {})
    {
        parameters.emplace("file", UniVar(out));
        harness.add("out", "libsegy_out.so").parameters = parameters;
        return harness.run();
    }
    // Reads `path` and writes `out`.
    HarnessResult copy(const std::string& path, Parameters parameters = {})
    {
        renew();
        addReader(path);
        return runWriter(std::move(parameters));
    }
    HarnessResult copy(const Bytes& bytes, Parameters parameters = {})
    {
        writeBytes(in, bytes);
        return copy(in, std::move(parameters));
    }
    // Parts of the harness write their ranges to `target`, which becomes `out`.
    void writeInParts()
    {
        harness.beforePart = [this](std::size_t part, std::size_t before) {
            if (part == 1)
                writeBytes(target, {});
            part == 0 ? VORN::setWholeOutput(out, target)
                      : VORN::setPartOutput(out, target, static_cast<int64_t>(before));
        };
    }
    // The cards of `out` that have text behind their number.
    std::vector<std::string> cards()
    {
        std::vector<std::string> filled;
        for (const std::string& card : VORN::textCards(VORN::SegyReader(out).text())) {
            if (card.size() > 4)
                filled.push_back(card);
        }
        return filled;
    }

    // The three phases. What is left in work buffers would stay behind the job.
    void runJob()
    {
        job().preProcessJob();
        job().processJob();
        for (const ModuleEntity* module : job().jobModules) {
            for (SeisTraceSet* set : module->workTraceSets) {
                while (set->getNumberOfTraces() > 0)
                    set->removeTrace(0);
            }
        }
        job().postProcessJob();
    }

    ModuleHarness harness;
    TemporaryDirectory directory;
    const std::string in = directory / "in.sgy";
    const std::string out = directory / "out.sgy";
    const std::string target = directory / ".out.sgy.parts";
};

// IBM traces of random normal samples; each byte of their headers is random but those of length and
// interval.
Bytes randomIbmFile(int traces, int samples)
{
    std::mt19937 dice(3);
    SegyBytes file;
    file.describe(samples, 4000, 1);
    for (int i = 0; i < traces; ++i) {
        const std::size_t start = file.addHeader(0, 0, samples, 4000);
        for (std::size_t byte = 0; byte < 240; ++byte) {
            if (byte < 114 || byte > 117)
                file.traces[start + byte] = static_cast<unsigned char>(dice());
        }
        for (int k = 0; k < samples; ++k)
            file.addSample((dice() % 2) << 31 | (34 + dice() % 62) << 24 |
                           (0x100000u + dice() % 0xF00000u));
    }
    return file.bytes();
}

Bytes tracesOf(const Bytes& file, std::size_t fileHeader = 3600)
{
    return Bytes(file.begin() + static_cast<std::ptrdiff_t>(fileHeader), file.end());
}

} // namespace

// ---- In parts ----

// Traces of two files, and all that reader and writer have to say of them at their ends: headers
// against their file, empty ones, bytes of the maker, values and samples that do not fit.
TEST_F(SegyOutTest, PartsOfAJobWriteTheFileAndTheMessagesOfOneProcess)
{
    constexpr std::size_t traces = 30;
    SegyBytes first = ieeeFile(traces, 3);
    const auto start = [](std::size_t trace) { return trace * 252; };
    for (const std::size_t trace : {4, 9, 17, 26})
        first.setTrace(start(trace), 115, 2, static_cast<int>(trace));
    for (const std::size_t trace : {11, 12, 29})
        first.setTrace(start(trace), 117, 2, static_cast<int>(1000 + trace));
    for (const std::size_t trace : {8, 21})
        std::fill_n(first.traces.begin() + static_cast<std::ptrdiff_t>(start(trace)), 240, 0);
    for (const std::size_t trace : {6, 13, 28})
        first.setTrace(start(trace), 189, 4, 70000 + static_cast<int>(trace));
    for (const std::size_t trace : {5, 20, 22})
        first.setTrace(start(trace), 241, 4, 0x7F800000); // an infinity
    first.setBinary(3501, 2, 0);
    const std::string one = directory / "one.sgy";
    const std::string two = directory / "two.sgy";
    writeBytes(one, first.bytes());
    first.setTrace(start(3), 189, 4, 5);
    writeBytes(two, first.bytes());

    renew();
    addReader(one + "\n" + two);
    const HarnessResult whole =
        runWriter({{"format", UniVar("ibm")}, {"words", UniVar("iline=9:uint16")}});
    const Bytes expected = readBytes(out);
    ASSERT_EQ(expected.size(), 3600 + 2 * traces * 252) << whole.allMessages();
    ASSERT_GE(whole.messagesOf(2, "in").size(), 6U) << whole.allMessages();
    ASSERT_THAT(whole.messagesOf(1, "in"), SizeIs(4)) << whole.allMessages();
    ASSERT_THAT(whole.messagesOf(2, "out"), SizeIs(2)) << whole.allMessages();

    harness.rangeParameter = "part";
    harness.sourceTraces = 2 * traces;
    writeInParts();
    std::mt19937 dice(11);
    std::vector<std::size_t> places(2 * traces - 1);
    std::iota(places.begin(), places.end(), 1);
    for (const std::size_t parts : {1, 2, 3, 7, 60}) {
        unlink(out.c_str());
        std::vector<std::size_t> cuts;
        std::sample(places.begin(), places.end(), std::back_inserter(cuts), parts - 1, dice);
        EXPECT_EQ(differenceOf(whole, harness.runInParts(cuts)), "") << parts;
        EXPECT_TRUE(readBytes(out) == expected) << parts;
        EXPECT_NE(access(target.c_str(), F_OK), 0) << parts;
    }
}

TEST_F(SegyOutTest, PartsThatDoNotFollowEachOtherMakeNoFile)
{
    for (int i = 0; i < 9; ++i)
        harness.push({1, 2});
    harness.add("out", "libsegy_out.so").parameters["file"] = UniVar(out);
    writeInParts();
    // The state of the first part comes again in place of the second's.
    harness.beforeMerge = [](const std::string& state) {
        const std::filesystem::path path(state);
        if (path.parent_path().filename() == "1")
            std::filesystem::copy_file(path.parent_path().parent_path() / "0" / path.filename(),
                                       path, std::filesystem::copy_options::overwrite_existing);
    };
    const HarnessResult twice = harness.runInParts({4});
    EXPECT_THAT(twice.messagesOf(4, "out"),
                ElementsAre(HasSubstr("its first trace is number 1 of the file, and the parts "
                                      "before it end with trace 4")));
    // A part has not written its last trace.
    harness.beforeMerge = [this](const std::string&) {
        std::filesystem::resize_file(target, 3600 + 8 * 248);
    };
    const HarnessResult cut = harness.runInParts({4});
    EXPECT_THAT(cut.messagesOf(4, "out"),
                ElementsAre(HasSubstr("has 5584 bytes instead of 5832; make a new plan")));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SegyOutTest, APartWritesNoOutputOfItsOwn)
{
    for (int i = 0; i < 4; ++i)
        harness.push({1, 2});
    harness.add("out", "libsegy_out.so").parameters["file"] = UniVar(out);
    const HarnessResult result = harness.runInParts({});
    EXPECT_THAT(result.messagesOf(4, "out"),
                Contains(out + ": is not an output that parts of a job write together; make a new "
                               "plan"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

// ---- Words at other bytes ----

TEST_F(SegyOutTest, MappedWordsAreWrittenToTheirBytesAndNotToThoseOfTheStandard)
{
    SegyBytes made = ieeeFile(2, 3);
    for (const std::size_t start : {0, 252}) {
        made.setTrace(start, 189, 4, start == 0 ? 1001 : 1002);
        made.setTrace(start, 181, 4, -70000);
        made.setTrace(start, 73, 4, 1234);
    }
    copy(made.bytes(),
         {{"words", UniVar("iline=9, cdpx=201:double, cdpy=209:uint8, sx=213:ibm, sy=181:int16")}});
    const Bytes traces = tracesOf(readBytes(out));
    EXPECT_EQ(getInteger(traces, 8, 4), 1001) << "fldr gives way";
    EXPECT_EQ(getInteger(traces, 252 + 8, 4), 1002);
    EXPECT_EQ(getInteger(traces, 188, 4), 0) << "iline has moved";
    EXPECT_EQ(getInteger(traces, 200, 8), static_cast<int64_t>(0xC0F1170000000000)); // -70000.0
    EXPECT_EQ(getInteger(traces, 212, 4) & 0xFFFFFFFF, 0x434D2000);                  // 1234 in IBM
    EXPECT_EQ(getInteger(traces, 180, 4), 0) << "cdpx has moved, and sy is 0";
    EXPECT_EQ(getInteger(traces, 20, 4), 101) << "cdp stays";
}

TEST_F(SegyOutTest, AMappedValueThatDoesNotFitIsReportedOnce)
{
    SegyBytes made = ieeeFile(3, 3);
    for (const std::size_t start : {0, 252, 504})
        made.setTrace(start, 189, 4, 70000);
    const HarnessResult result = copy(made.bytes(), {{"words", UniVar("iline=9:uint16")}});
    EXPECT_THAT(result.messagesOf(2, "out"),
                ElementsAre(out + ": iline of trace 1 is 70000, more than 16 bits hold; it is "
                                  "written as 65535, and others likewise"));
    EXPECT_EQ(getInteger(tracesOf(readBytes(out)), 8, 2) & 0xFFFF, 65535);
}

TEST_F(SegyOutTest, AMapWithWhichNoHeaderCanBeWrittenIsRefused)
{
    EXPECT_THAT(
        copy(ieeeFile(1, 3).bytes(), {{"words", UniVar("iline=9, xline=10")}}).messagesOf(4, "out"),
        ElementsAre(HasSubstr("words: the words iline and xline share bytes")));
    EXPECT_FALSE(std::filesystem::exists(out));
}

// ---- What is unchanged comes out unchanged ----

TEST_F(SegyOutTest, IbmSamplesAndAllHeaderBytesComeOutBitForBit)
{
    const Bytes before = randomIbmFile(30, 50);
    const HarnessResult result = copy(before);
    ASSERT_THAT(result.messagesOf(4, ""), IsEmpty()) << result.allMessages();
    EXPECT_TRUE(tracesOf(readBytes(out)) == tracesOf(before));
    EXPECT_EQ(result.bytesLeft.at("out"), 0);
}

TEST_F(SegyOutTest, TheNumberOfATraceInItsFileIsNotWritten)
{
    const Bytes before = randomIbmFile(5, 10);
    writeBytes(in, before);
    renew();
    harness.define("filetrace", 3);
    addReader(in);
    runWriter();
    EXPECT_TRUE(tracesOf(readBytes(out)) == tracesOf(before));
}

TEST_F(SegyOutTest, IeeeSamplesComeOutBitForBitWhenAskedFor)
{
    SegyBytes made;
    made.describe(200, 4000, 5);
    std::mt19937 dice(5);
    for (int i = 0; i < 5; ++i) {
        made.addHeader(i, i, 200, 4000);
        for (int k = 0; k < 200; ++k)
            made.addSample(dice()); // infinities and NaN among them
    }
    copy(made.bytes(), {{"format", UniVar("ieee")}});
    EXPECT_TRUE(tracesOf(readBytes(out)) == made.traces);
}

TEST_F(SegyOutTest, TheRealIbmFilesComeOutBitForBit)
{
    for (const char* name :
         {"npra_31_81_stack.sgy", "viking_shots.segy", "lithoprobe_44_trace.sgy"}) {
        const std::string path = sampleFile(name);
        if (path.empty())
            GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
        copy(path);
        const Bytes before = tracesOf(readBytes(path));
        const Bytes after = tracesOf(readBytes(out));
        ASSERT_EQ(after.size(), before.size()) << name;
        const std::size_t traceBytes =
            240 + 4 * static_cast<std::size_t>(VORN::SegyReader(path).layout().samples);
        for (std::size_t i = 0; i < before.size(); ++i) {
            // The headers of the second file state a wrong number of samples.
            const std::size_t byte = i % traceBytes;
            if (byte < 114 || byte > 117) {
                ASSERT_EQ(after[i], before[i]) << name << ", byte " << 3600 + i;
            }
        }
        EXPECT_THAT(VORN::SegyReader(out).warnings(), IsEmpty()) << name;
    }
}

TEST_F(SegyOutTest, TextAndBinaryHeaderAreKept)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setBinary(3205, 4, 31); // line
    made.setBinary(3213, 2, 24); // traces per ensemble
    made.setBinary(3229, 2, 2);  // sorted by CDP
    made.setBinary(3255, 2, 2);  // feet
    copy(made.bytes());
    VORN::SegyReader reader(out);
    EXPECT_THAT(cards(), ElementsAre("C 1 A SEG-Y FILE MADE BY HAND"));
    EXPECT_EQ(reader.binaryWord("lino"), 31);
    EXPECT_EQ(reader.binaryWord("ntrpr"), 24);
    EXPECT_EQ(reader.binaryWord("tsort"), 2);
    EXPECT_EQ(reader.binaryWord("mfeet"), 2);
    EXPECT_EQ(reader.binaryWord("hns"), 3);
    EXPECT_EQ(reader.binaryWord("hdt"), 4000);
    EXPECT_EQ(reader.binaryWord("format"), 5);
}

namespace {

// Revision, and what the cards 39 and 40 say.
struct Closing
{
    int revision;
    std::string cards;
    bool operator==(const Closing&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Closing& closing)
{
    return stream << "revision " << closing.revision << ", " << closing.cards;
}

Closing closingOf(const std::string& path)
{
    VORN::SegyReader reader(path);
    const std::vector<std::string> cards = VORN::textCards(reader.text());
    EXPECT_EQ(reader.binaryWord("fixed"), reader.layout().revision);
    return {reader.layout().revision, cards[38] + "|" + cards[39]};
}

} // namespace

TEST_F(SegyOutTest, TheRevisionIsTheInputsUnlessAnotherIsAskedFor)
{
    const std::string closingCards = "C39 SEG Y REV1|C40 END TEXTUAL HEADER";
    for (const int revision : {0, 1, 2}) {
        SegyBytes made = ieeeFile(2, 3);
        made.setBinary(3501, 2, 256 * revision);
        const Bytes bytes = made.bytes();
        copy(bytes);
        EXPECT_EQ(closingOf(out),
                  (Closing{std::min(revision, 1), revision == 2 ? closingCards : "|"}));
        copy(bytes, {{"revision", UniVar(1)}});
        EXPECT_EQ(closingOf(out), (Closing{1, revision == 1 ? "|" : closingCards}));
        copy(bytes, {{"revision", UniVar(0)}});
        EXPECT_EQ(closingOf(out), (Closing{0, "|"}));
    }
}

TEST_F(SegyOutTest, WithoutAFileTheRevisionIs1)
{
    harness.push({1, 2});
    runWriter();
    EXPECT_EQ(closingOf(out), (Closing{1, "C39 SEG Y REV1|C40 END TEXTUAL HEADER"}));
}

TEST_F(SegyOutTest, ExtendedTextHeadersNeedRevision1WhateverTheInputSays)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setBinary(3505, 2, 1);
    made.extended = Bytes(3200, 'A');
    const HarnessResult result = copy(made.bytes());
    EXPECT_THAT(VORN::SegyReader(out).extendedTexts(), SizeIs(1));
    EXPECT_EQ(closingOf(out), (Closing{1, "C39 SEG Y REV1|C40 END TEXTUAL HEADER"}));
    EXPECT_THAT(result.messagesOf(1, "out"),
                Contains(out + ": is revision 1, though the input says 0, since revision 0 has no "
                               "extended text headers"));
}

TEST_F(SegyOutTest, BytesOfTheBinaryHeaderThatNobodyKnowsAreKept)
{
    SegyBytes made = ieeeFile(2, 3);
    for (int position = 3261; position <= 3600; ++position)
        made.setBinary(position, 1, position % 251 + 3);
    made.setBinary(3501, 6, 0x070809050607);
    const auto kept = [&](std::size_t first, std::size_t last) {
        const Bytes after = readBytes(out);
        return std::equal(after.begin() + static_cast<std::ptrdiff_t>(first) - 1,
                          after.begin() + static_cast<std::ptrdiff_t>(last),
                          made.header.begin() + static_cast<std::ptrdiff_t>(first) - 1);
    };
    copy(made.bytes());
    EXPECT_TRUE(kept(3261, 3504) && kept(3507, 3600));
    EXPECT_EQ(getInteger(readBytes(out), 3504, 2), 0);
    copy(made.bytes(), {{"revision", UniVar(1)}});
    EXPECT_TRUE(kept(3261, 3500) && kept(3507, 3600));
    EXPECT_EQ(getInteger(readBytes(out), 3500, 6), 0x010000010000);
}

// Readers that step over as many headers as the word says, in any revision, find the traces.
TEST_F(SegyOutTest, TheNumberOfExtendedHeadersIsTrueInEveryRevision)
{
    for (const int given : {0, 1, 2}) {
        for (const int stated : {0, 1, 2, -1, 7, 32767}) {
            for (const int there : {0, 1, 2}) {
                SegyBytes made = ieeeFile(2, 3);
                made.setBinary(3501, 2, 256 * given);
                made.setBinary(3505, 2, stated);
                for (int i = 0; i < there; ++i)
                    appendBytes(made.extended, Bytes(3200, 'A'));
                const bool isReadable = there == 0 || stated == there;
                for (const int wanted : {0, 1}) {
                    if (!isReadable)
                        continue;
                    SCOPED_TRACE("revision " + std::to_string(given) + " to " +
                                 std::to_string(wanted) + ", " + std::to_string(stated) +
                                 " stated, " + std::to_string(there) + " there");
                    copy(made.bytes(), {{"revision", UniVar(wanted)}});
                    const Bytes bytes = readBytes(out);
                    const int64_t next = getInteger(bytes, 3504, 2);
                    EXPECT_EQ(next, wanted == 0 ? 0 : there);
                    EXPECT_EQ(bytes.size(),
                              3600u + 3200u * static_cast<std::size_t>(next) + 2 * (240 + 12));
                    EXPECT_EQ(
                        getInteger(bytes, 3600 + 3200 * static_cast<std::size_t>(next) + 8, 4), 1)
                        << "the field record of the first trace";
                }
            }
        }
    }
}

// What revision 2 defines is not a word of the others.
TEST_F(SegyOutTest, FieldsOfRevision2AreNotLeftInOtherRevisions)
{
    SegyBytes made = ieeeFile(2, 3);
    made.header[3500] = 2;
    made.setBinary(3261, 4, 48);       // traces of an ensemble
    made.setBinary(3269, 4, 3);        // samples
    made.setBinary(3297, 4, 16909060); // byte order
    made.setBinary(3513, 8, 2);        // traces
    made.setBinary(3521, 8, 3600);     // first trace
    for (const int revision : {0, 1}) {
        copy(made.bytes(), {{"revision", UniVar(revision)}});
        const Bytes bytes = readBytes(out);
        for (std::size_t i = 3260; i < 3300; ++i)
            EXPECT_EQ(bytes[i], 0) << i << " of revision " << revision;
        for (std::size_t i = 3506; i < 3532; ++i)
            EXPECT_EQ(bytes[i], 0) << i << " of revision " << revision;
    }
}

TEST_F(SegyOutTest, TextHeadersKeepTheirCodingAndTheBytesOfCardsThatNobodyHasChanged)
{
    SegyBytes made = ieeeFile(2, 3);
    const std::string line = "COMPANY \xC5\x9B NOBODY";
    std::fill(made.header.begin(), made.header.begin() + 3200, static_cast<unsigned char>(0));
    std::copy(line.begin(), line.end(), made.header.begin());
    writeBytes(in, made.bytes());
    addReader(in);
    Filter filter([] { setMetaDataValue(1, "history$", "agc window=0.5 s"); });
    filter.addTo(harness);
    runWriter();
    const Bytes after = readBytes(out);
    Bytes expected = made.header;
    const std::string card = "C38 agc window=0.5 s";
    std::fill_n(expected.begin() + 2960, 80, static_cast<unsigned char>(' '));
    std::copy(card.begin(), card.end(), expected.begin() + 2960);
    EXPECT_TRUE(std::equal(after.begin(), after.begin() + 3200, expected.begin()));
}

TEST_F(SegyOutTest, BlankCardsKeepTheirPlace)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setText(std::string(80, ' ') + "SECOND CARD");
    copy(made.bytes());
    EXPECT_EQ(VORN::textCards(VORN::SegyReader(out).text())[1], "SECOND CARD");
}

TEST_F(SegyOutTest, ExtendedTextHeadersAreKeptInRevision1AndReportedInRevision0)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setBinary(3501, 2, 256);
    made.setBinary(3505, 2, 2);
    made.extended = Bytes(6400, ' ');
    const std::string card = "((SEG: EndText))";
    std::copy(card.begin(), card.end(), made.extended.begin() + 3200);
    copy(made.bytes());
    VORN::SegyReader reader(out);
    ASSERT_THAT(reader.extendedTexts(), SizeIs(2));
    EXPECT_EQ(VORN::textCards(reader.extendedTexts()[1])[0], card);

    const HarnessResult result = copy(made.bytes(), {{"revision", UniVar(0)}});
    EXPECT_THAT(VORN::SegyReader(out).extendedTexts(), IsEmpty());
    EXPECT_THAT(result.messagesOf(2, "out"), ElementsAre(HasSubstr("extended text headers")));
}

TEST_F(SegyOutTest, Revision0IsWritten)
{
    copy(ieeeFile(2, 3).bytes(), {{"revision", UniVar(0)}});
    const Bytes bytes = readBytes(out);
    for (std::size_t i = 3500; i < 3506; ++i)
        EXPECT_EQ(bytes[i], 0) << i;
    EXPECT_THAT(cards(), ElementsAre("C 1 A SEG-Y FILE MADE BY HAND"));
}

#ifdef VORN_TEST_SEGYIO
namespace {

// A file as segyio reads it.
struct Independent
{
    explicit Independent(const std::string& path, int order = 0)
    {
        segy_file* file = segy_open(path.c_str(), "rb");
        if (file == nullptr)
            throw std::runtime_error("segyio cannot open " + path);
        char binary[SEGY_BINARY_HEADER_SIZE];
        if (order != 0)
            segy_set_format(file, order);
        segy_binheader(file, binary);
        const int format = segy_format(binary);
        segy_set_format(file, format | order);
        samples = segy_samples(binary);
        const int bytes = segy_trsize(format, samples);
        const long start = segy_trace0(binary);
        int traces = 0;
        if (segy_traces(file, &traces, start, bytes) != 0)
            throw std::runtime_error("segyio cannot count the traces of " + path);
        for (int i = 0; i < traces; ++i) {
            headers.emplace_back(SEGY_TRACE_HEADER_SIZE);
            segy_traceheader(file, i, headers.back().data(), start, bytes);
            std::vector<char> raw(static_cast<std::size_t>(4 * samples));
            segy_readtrace(file, i, raw.data(), start, bytes);
            segy_to_native(format, samples, raw.data());
            values.emplace_back();
            for (int k = 0; k < samples; ++k)
                values.back().push_back(number(raw.data(), format, k));
        }
        segy_close(file);
    }

    static double number(const char* raw, int format, int k)
    {
        if (format == SEGY_SIGNED_SHORT_2_BYTE) {
            int16_t value;
            std::memcpy(&value, raw + 2 * k, sizeof value);
            return value;
        }
        if (format == SEGY_SIGNED_INTEGER_4_BYTE) {
            int32_t value;
            std::memcpy(&value, raw + 4 * k, sizeof value);
            return value;
        }
        float value;
        std::memcpy(&value, raw + 4 * k, sizeof value);
        return value;
    }

    int samples;
    std::vector<std::vector<char>> headers;
    std::vector<std::vector<double>> values;
};

} // namespace

// What segyio reads of the input it reads of the output: samples and header words.
TEST_F(SegyOutTest, SegyioReadsTheSameOfInputAndOutput)
{
    struct Row
    {
        const char* name;
        const char* format;
        int order;
    };
    const Row rows[] = {
        {"npra_31_81_stack.sgy", "ibm", 0},      {"viking_shots.segy", "ibm", 0},
        {"oz16_shot_ieee.sgy", "ieee", 0},       {"f3_crop_int16.sgy", "ibm", 0},
        {"f3_crop_int16.sgy", "ieee", 0},        {"f3_crop_int16_le.sgy", "ieee", SEGY_LSB},
        {"f3_crop_ieee.sgy", "ibm", 0},          {"lithoprobe_44_trace.sgy", "ibm", 0},
        {"geometrics_int32_trace.sgy", "ibm", 0}};
    for (const Row& row : rows) {
        const std::string path = sampleFile(row.name);
        if (path.empty())
            GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
        copy(path, {{"format", UniVar(row.format)}});
        const Independent before(path, row.order);
        const Independent after(out);
        ASSERT_EQ(after.samples, before.samples) << row.name;
        ASSERT_EQ(after.headers.size(), before.headers.size()) << row.name;
        for (std::size_t i = 0; i < before.headers.size(); ++i) {
            ASSERT_EQ(after.values[i], before.values[i]) << row.name << ", trace " << i;
            for (const VORN::HeaderWord& word : VORN::traceHeaderWords()) {
                int32_t expected = 0;
                int32_t found = 0;
                if (segy_get_field(before.headers[i].data(), word.byte, &expected) != 0)
                    continue; // segyio does not know that word
                segy_get_field(after.headers[i].data(), word.byte, &found);
                if (std::string(word.key) == "ns")
                    expected = before.samples;
                ASSERT_EQ(found, expected) << row.name << ", " << word.key << " of trace " << i;
            }
        }
    }
}
#else
TEST_F(SegyOutTest, SegyioReadsTheSameOfInputAndOutput)
{
    GTEST_SKIP() << "segyio is not installed (libsegyio-dev)";
}
#endif

// ---- The processing ----

TEST_F(SegyOutTest, TheHistoryTakesTheLastFreeCardsInTheOrderOfTheProcessing)
{
    writeBytes(in, ieeeFile(2, 3).bytes());
    addReader(in);
    Filter first([] { setMetaDataValue(1, "history$", "bandpass low=8 Hz high=60 Hz"); });
    Filter second([] { setMetaDataValue(1, "history$", "agc window=0.5 s\ngain factor=2"); });
    first.addTo(harness);
    second.addTo(harness);
    runWriter();
    EXPECT_THAT(cards(),
                ElementsAre("C 1 A SEG-Y FILE MADE BY HAND", "C36 bandpass low=8 Hz high=60 Hz",
                            "C37 agc window=0.5 s", "C38 gain factor=2"));
}

TEST_F(SegyOutTest, ASecondRunWritesItsHistoryBelowThatOfTheFirst)
{
    const std::string first = directory / "first.sgy";
    const auto runWithStep = [&](const std::string& from, const std::string& to, const char* step) {
        renew();
        addReader(from);
        Filter filter([=] { setMetaDataValue(1, "history$", step); });
        filter.addTo(harness);
        runWriter({{"file", UniVar(to)}});
    };
    writeBytes(in, ieeeFile(2, 3).bytes());
    runWithStep(in, first, "bandpass corners=5,10,60,80");
    runWithStep(first, out, "agc window=0.5 s");
    EXPECT_THAT(cards(), ElementsAre("C 1 A SEG-Y FILE MADE BY HAND",
                                     "C37 bandpass corners=5,10,60,80", "C38 agc window=0.5 s"));
}

// ---- The coding of the samples ----

TEST_F(SegyOutTest, SamplesAreCodedAsInTheInputUnlessToldOtherwise)
{
    struct Row
    {
        int code; // of the input
        int width;
        const char* format; // null: not given
        int written;
    };
    const Row rows[] = {{1, 4, nullptr, 1}, {5, 4, nullptr, 5}, {1, 4, "ieee", 5},
                        {5, 4, "ibm", 1},   {2, 4, nullptr, 5}, {3, 2, nullptr, 5},
                        {6, 8, nullptr, 5}, {3, 2, "ibm", 1}};
    for (const Row& row : rows) {
        SegyBytes made;
        made.describe(3, 4000, row.code);
        made.addHeader(1, 1, 3, 4000);
        for (int i = 0; i < 3; ++i)
            made.addSample(row.code == 5   ? bitsOf(1.5F)
                           : row.code == 1 ? 0x41180000 // 1.5
                                           : 7,
                           row.width);
        Parameters parameters;
        if (row.format != nullptr)
            parameters["format"] = UniVar(row.format);
        const HarnessResult result = copy(made.bytes(), parameters);
        const Bytes written = readBytes(out);
        EXPECT_EQ(getInteger(written, 3224, 2), row.written) << row.code;
        if (row.width == 4 && row.code != 2) {
            EXPECT_EQ(getInteger(written, 3840, 4), row.written == 5 ? bitsOf(1.5F) : 0x41180000);
        }
        const bool isTold = row.format == nullptr && row.written != row.code;
        EXPECT_EQ(result.messagesOf(1, "out").size(), isTold ? 2U : 1U) << row.code;
        if (isTold) {
            EXPECT_THAT(result.messagesOf(1, "out").front(),
                        HasSubstr("; they are written as 4-byte IEEE floats"));
        }
    }
}

TEST_F(SegyOutTest, HistoryWithoutRoomIsReported)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setText(std::string(37 * 80, 'X'));
    writeBytes(in, made.bytes());
    addReader(in);
    Filter filter([] { setMetaDataValue(1, "history$", "first\nsecond\nthird"); });
    filter.addTo(harness);
    const HarnessResult result = runWriter();
    EXPECT_THAT(cards(), Contains("C38 third"));
    EXPECT_THAT(result.messagesOf(2, "out"),
                ElementsAre(out + ": the text header has no free card for the first 2 of its 3 "
                                  "lines on the processing"));
}

TEST_F(SegyOutTest, WhatSortingAndStackingMakeUntrueIsNotKept)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setBinary(3205, 4, 31);
    made.setBinary(3213, 2, 24);
    made.setBinary(3227, 2, 12);
    made.setBinary(3229, 2, 2);
    writeBytes(in, made.bytes());
    for (const char* step : {"sort key=cdp", "stack"}) {
        renew();
        addReader(in);
        Filter filter([=] { setMetaDataValue(1, "history$", step); });
        filter.addTo(harness);
        runWriter();
        VORN::SegyReader reader(out);
        EXPECT_EQ(reader.binaryWord("lino"), 31) << step;
        for (const char* word : {"ntrpr", "nart", "fold", "tsort"})
            EXPECT_EQ(reader.binaryWord(word), 0) << step << " " << word;
    }
}

// ---- Headers from attributes ----

TEST_F(SegyOutTest, LengthAndIntervalAreThoseOfTheTraces)
{
    harness.sampleInterval = 500;
    harness.push({1, 2, 3, 4, 5}, {{"ns", UniVar(99)}, {"dt", UniVar(7)}, {"fldr", UniVar(12)}});
    runWriter();
    VORN::SegyReader reader(out);
    EXPECT_THAT(reader.warnings(), IsEmpty());
    EXPECT_EQ(reader.layout().samples, 5);
    EXPECT_EQ(reader.layout().interval, 500);
    EXPECT_EQ(reader.word(reader.header(0), *VORN::findTraceHeaderWord("fldr")), 12);
}

TEST_F(SegyOutTest, TracesWithoutHeadersAreNumbered)
{
    for (int i = 0; i < 3; ++i)
        harness.push({1, 2});
    runWriter();
    VORN::SegyReader reader(out);
    ASSERT_EQ(reader.layout().traces, 3);
    for (int i = 0; i < 3; ++i) {
        const unsigned char* header = reader.header(i);
        EXPECT_EQ(reader.word(header, *VORN::findTraceHeaderWord("tracl")), i + 1);
        EXPECT_EQ(reader.word(header, *VORN::findTraceHeaderWord("tracr")), i + 1);
        EXPECT_EQ(reader.word(header, *VORN::findTraceHeaderWord("trid")), 1);
    }
    EXPECT_THAT(cards(), ElementsAre("C39 SEG Y REV1", "C40 END TEXTUAL HEADER"));
}

TEST_F(SegyOutTest, ValuesThatDoNotFitAreWrittenAsTheNearestAndReportedOnce)
{
    harness.define("fldr", 3);
    for (const int scalar : {1, 40000, -50000, 60000})
        harness.push({1, 2}, {{"scalco", UniVar(scalar)}});
    harness.push({1, 2}, {{"scalco", UniVar(1)}, {"fldr", UniVar(int64_t(5000000000))}});
    const HarnessResult result = runWriter();
    VORN::SegyReader reader(out);
    const VORN::HeaderWord& scalco = *VORN::findTraceHeaderWord("scalco");
    EXPECT_EQ(reader.word(reader.header(1), scalco), 32767);
    EXPECT_EQ(reader.word(reader.header(2), scalco), -32768);
    EXPECT_EQ(reader.word(reader.header(4), *VORN::findTraceHeaderWord("fldr")), 2147483647);
    EXPECT_THAT(result.messagesOf(2, "out"),
                ElementsAre(out + ": scalco of trace 2 is 40000, more than 16 bits hold; it is "
                                  "written as 32767, and others likewise",
                            out + ": fldr of trace 5 is 5000000000, more than 32 bits hold; it is "
                                  "written as 2147483647, and others likewise"));
}

TEST_F(SegyOutTest, AttributesWithFractionsAreRounded)
{
    harness.define("offset", 4);
    harness.define("gx", 5);
    harness.push({1, 2}, {{"offset", UniVar(99.9f)}, {"gx", UniVar(-1234567.8)}});
    runWriter();
    VORN::SegyReader reader(out);
    EXPECT_EQ(reader.word(reader.header(0), *VORN::findTraceHeaderWord("offset")), 100);
    EXPECT_EQ(reader.word(reader.header(0), *VORN::findTraceHeaderWord("gx")), -1234568);
}

TEST_F(SegyOutTest, SamplesThatAreNoNumbersAreCounted)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    harness.push({1, 2});
    harness.push({nan, std::numeric_limits<float>::infinity()});
    const HarnessResult result = runWriter();
    EXPECT_THAT(result.messagesOf(2, "out"),
                ElementsAre(HasSubstr("2 samples, the first in trace 2, are infinite")));
}

// ---- The file appears whole or not at all ----

TEST_F(SegyOutTest, SaysWhatItHasWritten)
{
    const HarnessResult result = copy(ieeeFile(3, 4).bytes());
    EXPECT_THAT(result.messagesOf(1, "out"),
                Contains(out + ": 3 traces of 4 samples written, 4368 bytes, 4-byte IEEE float, "
                               "revision 0"));
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy", "out.sgy"));
    struct stat status;
    ASSERT_EQ(stat(out.c_str(), &status), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(status.st_mode & 0777, 0666 & ~mask);
}

TEST_F(SegyOutTest, AnExistingFileIsReplacedUnlessThatIsForbidden)
{
    writeBytes(out, {'o', 'l', 'd'});
    copy(ieeeFile(3, 4).bytes());
    EXPECT_EQ(readBytes(out).size(), 4368u);

    const HarnessResult result = copy(ieeeFile(1, 4).bytes(), {{"overwrite", UniVar(0)}});
    EXPECT_THAT(result.messagesOf(4, "out"), ElementsAre(HasSubstr("out.sgy: is there already")));
    EXPECT_EQ(readBytes(out).size(), 4368u);
}

TEST_F(SegyOutTest, AfterAFailureUpstreamNothingIsWritten)
{
    writeBytes(in, ieeeFile(3, 4).bytes());
    writeBytes(out, {'o', 'l', 'd'});
    addReader(in);
    Filter filter([] {});
    filter.last = [] { setMetaDataValue(0, "vorn.failed", "filter: it broke"); };
    filter.addTo(harness);
    const HarnessResult result = runWriter();
    EXPECT_THAT(result.messagesOf(3, "out"),
                ElementsAre(out + ": is not written, since the job failed (filter: it broke)"));
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy", "out.sgy"));
    EXPECT_EQ(readBytes(out).size(), 3u);
}

TEST_F(SegyOutTest, AJobWithoutTracesWritesNoFileAndSaysSo)
{
    renew();
    harness.withSource = false;
    harness.add("in", "libsynthetic.so").parameters["shots"] = UniVar(0);
    const HarnessResult result = runWriter();
    EXPECT_THAT(result.messagesOf(3, "out"),
                ElementsAre(out + ": is not written, since no trace arrived"));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SegyOutTest, AFailedReaderLeavesNoFile)
{
    const HarnessResult result = copy(directory / "none.sgy");
    EXPECT_THAT(result.messagesOf(3, "out"),
                ElementsAre(HasSubstr("since the job failed (segy_in: ")));
    EXPECT_THAT(directory.names(), IsEmpty());
}

TEST_F(SegyOutTest, AFullDiskEndsTheWritingWithOneLineAndNoFile)
{
    writeBytes(in, ieeeFile(2000, 500).bytes()); // 4.5 megabytes
    writeBytes(out, {'o', 'l', 'd'});
    for (const rlim_t room : {0, 3599, 1048576, 4479999}) {
        renew();
        addReader(in);
        const FileSizeLimit limit(room);
        const HarnessResult result = runWriter();
        EXPECT_THAT(result.messagesOf(4, "out"),
                    ElementsAre(HasSubstr(out + ": cannot be written beyond its first " +
                                          std::to_string(room) + " bytes")))
            << room;
        EXPECT_THAT(result.jobMetadata.at("vorn.failed"), HasSubstr("out: ")) << room;
        EXPECT_THAT(result.messagesOf(3, "out"), IsEmpty()) << "it is not said twice";
        EXPECT_THAT(directory.names(), ElementsAre("in.sgy", "out.sgy")) << room;
        EXPECT_EQ(readBytes(out).size(), 3u) << room;
        EXPECT_EQ(result.bytesLeft.at("out"), 0) << room;
    }
}

TEST_F(SegyOutTest, PagingOfTracesChangesNothing)
{
    const Bytes before = randomIbmFile(30, 50);
    copy(before);
    const Bytes whole = readBytes(out);
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    copy(before);
    EXPECT_TRUE(readBytes(out) == whole);
}

// ---- Files that the job reads ----

TEST_F(SegyOutTest, TheInputIsNeverReplacedUnderAnyOfItsNames)
{
    const Bytes before = ieeeFile(3, 4).bytes();
    writeBytes(in, before);
    const std::string soft = directory / "soft.sgy";
    const std::string hard = directory / "hard.sgy";
    ASSERT_EQ(symlink("in.sgy", soft.c_str()), 0);
    ASSERT_EQ(link(in.c_str(), hard.c_str()), 0);
    for (const std::string& name : {in, directory / "./in.sgy", soft, hard}) {
        const HarnessResult result = copy(in, {{"file", UniVar(name)}});
        EXPECT_THAT(result.messagesOf(4, "out"),
                    ElementsAre(name + ": is read by this job and would be replaced; write to "
                                       "another file"));
        EXPECT_TRUE(readBytes(in) == before) << name;
        EXPECT_THAT(directory.names(), ElementsAre("hard.sgy", "in.sgy", "soft.sgy"));
    }
}

TEST_F(SegyOutTest, AnInputOfAnotherBranchIsNotReplacedEither)
{
    // The second branch begins after segy_out of the first one has made its preparations.
    const Bytes other = ieeeFile(5, 2).bytes();
    writeBytes(in, ieeeFile(3, 4).bytes());
    writeBytes(out, other);
    ModuleEntity* reader = job().initJobModule("in", "libsegy_in.so");
    ModuleEntity* writer = job().initJobModule("out", "libsegy_out.so");
    ModuleEntity* second = job().initJobModule("second", "libsegy_in.so");
    ASSERT_TRUE(reader != nullptr && writer != nullptr && second != nullptr);
    reader->setParameter("file", UniVar(in));
    writer->setParameter("file", UniVar(out));
    second->setParameter("file", UniVar(out));
    auto* channel = new DataChannel;
    reader->setOutputDataChannel(channel, 0);
    writer->setInputDataChannel(channel, 0);
    auto* branch = new DataChannel;
    second->setOutputDataChannel(branch, 0);
    ProbeModule sink("sink");
    sink.entity->setInputDataChannel(branch, 0);
    runJob();
    EXPECT_THAT(host.textsOfType(4), ElementsAre(HasSubstr("out.sgy: is read by this job")));
    EXPECT_TRUE(readBytes(out) == other);
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy", "out.sgy"));
}

TEST_F(SegyOutTest, TheKernelDefinesTheWordsOfTheReaders)
{
    job().defineSegySchema();

    const auto words = VORN::traceHeaderWords();
    EXPECT_EQ(job().trAttDefsList.size(), words.size());
    EXPECT_EQ(words.size(), 91u);
    for (const VORN::HeaderWord& word : words) {
        EXPECT_EQ(job().getTraceAttributeType(word.key), int32AttType) << word.key;
        EXPECT_EQ(job().getTraceAttributeDimension(word.key), 1) << word.key;
        EXPECT_EQ(job().getTraceAttributeDescription(word.key), word.text) << word.key;
    }
}

// ---- Several jobs in one process, and jobs that do not come to their end ----

// segy_in, a probe that fails or cancels at its second trace, segy_out. What a host builds.
class SegyOutJobTest : public SegyOutTest
{
protected:
    // Traces that a job leaves when it is cancelled end with it.
    SegyOutJobTest()
    {
        writeBytes(in, ieeeFile(5, 4).bytes());
        job().setReleaseAtEnd(true);
    }
    ~SegyOutJobTest() override { job().resetJob(); }

    void build(const std::function<void()>& atSecondTrace = {})
    {
        job().defineSegySchema();
        reader = job().initJobModule("in", "libsegy_in.so");
        probe = std::make_unique<ProbeModule>("probe");
        writer = job().initJobModule("out", "libsegy_out.so");
        ASSERT_TRUE(reader != nullptr && writer != nullptr);
        reader->setParameter("file", UniVar(in));
        writer->setParameter("file", UniVar(out));
        writer->setParameter("overwrite", UniVar(1));
        connect(reader, probe->entity);
        connect(probe->entity, writer);
        probe->pre = [] {
            void* from = getInputTraceBuffer(0);
            bldOutputTraceBuffer(0, getTraceLength(from), getTraceSampleInterval(from), from);
        };
        probe->process = [atSecondTrace, count = std::make_shared<int>(0)] {
            transferTraceToTrace(getInputTraceBuffer(0), getOutputTraceBuffer(0), 0, 0);
            if (++*count == 2 && atSecondTrace)
                atSecondTrace();
        };
    }
    static void connect(ModuleEntity* from, ModuleEntity* to)
    {
        auto* channel = new DataChannel;
        from->setOutputDataChannel(channel, 0);
        to->setInputDataChannel(channel, 0);
    }
    // The file is there, with as many traces as the input.
    bool isWhole() { return std::filesystem::exists(out) && readBytes(out).size() == sizeOf(5, 4); }
    static std::size_t sizeOf(std::size_t traces, std::size_t samples)
    {
        return 3600 + traces * (240 + 4 * samples);
    }

    ModuleEntity* reader = nullptr;
    ModuleEntity* writer = nullptr;
    std::unique_ptr<ProbeModule> probe;
};

TEST_F(SegyOutJobTest, TheSameJobRunsTwiceInOneProcess)
{
    for (int round = 0; round < 2; ++round) {
        build();
        runJob();
        EXPECT_TRUE(isWhole());
        EXPECT_EQ(job().jobOutcome().end, JobEnd::done) << job().jobOutcome().text;
        std::filesystem::remove(out);
    }
}

TEST_F(SegyOutJobTest, AJobAfterOneThatFailedWritesItsFile)
{
    build([] { setMetaDataValue(0, jobFailureKey, "probe: gives up"); });
    runJob();
    EXPECT_EQ(job().jobOutcome().end, JobEnd::failed);
    EXPECT_THAT(host.textsOfType(3), ElementsAre(out + ": is not written, since the job failed "
                                                       "(probe: gives up)"));
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy"));

    build();
    runJob();
    EXPECT_TRUE(isWhole());
    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
}

TEST_F(SegyOutJobTest, ACancelledJobLeavesNoFileAndTheNextOneWrites)
{
    build([] { JobManager::requestCancel(); });
    runJob();
    EXPECT_EQ(job().jobOutcome().end, JobEnd::cancelled);
    EXPECT_EQ(job().jobOutcome().text, "") << "nothing has failed";
    EXPECT_THAT(host.textsOfType(2),
                ElementsAre(out + ": is not written, since the job was cancelled"));
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy"));

    ASSERT_EQ(job().resetJob(), 0);
    build();
    runJob();
    EXPECT_TRUE(isWhole());
}

TEST_F(SegyOutJobTest, AJobThatAnExceptionEndsLeavesNoFile)
{
    build();
    job().preProcessJob();
    probe->entity->processFunction = []() -> int { throw std::runtime_error("out of order"); };
    EXPECT_THROW(job().processJob(), std::runtime_error);
    EXPECT_EQ(job().postProcessJob(), 0);

    EXPECT_THAT(directory.names(), ElementsAre("in.sgy"));
}

TEST_F(SegyOutJobTest, AJobWhoseLoopTheHostLeavesLeavesNoFile)
{
    build();
    job().preProcessJob();
    ModuleList sinks = {writer};
    EndOfDataFlags flags;
    for (int pass = 0; pass < 3; ++pass)
        job().processModules(sinks, flags);
    EXPECT_EQ(job().postProcessJob(), 0);

    EXPECT_THAT(host.textsOfType(3), ElementsAre(HasSubstr("(it was not finished)")));
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy"));
}

TEST_F(SegyOutJobTest, AJobThatIsDroppedLeavesNoFile)
{
    build();
    job().preProcessJob();
    job().processJob();
    EXPECT_EQ(job().resetJob(), 0);

    EXPECT_THAT(directory.names(), ElementsAre("in.sgy"));
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
}

TEST_F(SegyOutJobTest, NothingOfAJobStaysInMemoryWhereTheHostAsksForIt)
{
    job().setReleaseAtEnd(true);
    for (const bool cancels : {false, true}) {
        build([cancels] {
            if (cancels)
                JobManager::requestCancel();
        });
        runJob();
        EXPECT_EQ(job().totalJobMemoryUsed, 0);
        job().resetJob();
    }
    job().setReleaseAtEnd(false);
}

// A file under its final name is whole, whenever another thread cancels; every third job fails.
TEST_F(SegyOutJobTest, ManyJobsOfOneProcessAreCancelledAtAnyMoment)
{
    job().setReleaseAtEnd(true);
    writeBytes(in, ieeeFile(2000, 4).bytes());
    std::mt19937 dice(5);
    int cancelled = 0;
    for (int round = 0; round < 60; ++round) {
        const bool isFailing = round % 3 == 2;
        build([isFailing] {
            if (isFailing)
                setMetaDataValue(0, jobFailureKey, "probe: gives up");
        });
        std::thread other([delay = dice() % 8000] {
            std::this_thread::sleep_for(std::chrono::microseconds(delay));
            JobManager::requestCancel();
        });
        runJob();
        other.join();

        const bool isDone = job().jobOutcome().end == JobEnd::done;
        cancelled += job().jobOutcome().end == JobEnd::cancelled ? 1 : 0;
        ASSERT_FALSE(isFailing && isDone);
        if (std::filesystem::exists(out)) {
            ASSERT_EQ(readBytes(out).size(), sizeOf(2000, 4)) << "round " << round;
            ASSERT_FALSE(isFailing);
            std::filesystem::remove(out);
        } else {
            ASSERT_FALSE(isDone) << "round " << round;
        }
        ASSERT_THAT(directory.names(), ElementsAre("in.sgy"));
        ASSERT_EQ(job().totalJobMemoryUsed, 0) << "round " << round;
        ASSERT_EQ(job().resetJob(), 0);
    }
    EXPECT_GT(cancelled, 0);
    build();
    runJob();
    EXPECT_EQ(readBytes(out).size(), sizeOf(2000, 4));
    EXPECT_EQ(job().jobOutcome().end, JobEnd::done);
    job().setReleaseAtEnd(false);
}

TEST_F(SegyOutTest, TwoModulesDoNotWriteOneFile)
{
    writeBytes(in, ieeeFile(3, 4).bytes());
    ModuleEntity* reader = job().initJobModule("in", "libsegy_in.so");
    ASSERT_NE(reader, nullptr);
    reader->setParameter("file", UniVar(in));
    auto* channel = new DataChannel;
    reader->setOutputDataChannel(channel, 0);
    for (const char* name : {"first", "second"}) {
        ModuleEntity* writer = job().initJobModule(name, "libsegy_out.so");
        ASSERT_NE(writer, nullptr);
        writer->setParameter(
            "file", UniVar(directory / (name == std::string("first") ? "out.sgy" : "./out.sgy")));
        writer->setInputDataChannel(channel, 0);
    }
    runJob();
    EXPECT_THAT(host.textsOfType(4),
                ElementsAre(HasSubstr("is written by module \"first\", too; write to another")));
    EXPECT_THAT(directory.names(), ElementsAre("in.sgy"));
}

// ---- What ends the module ----

TEST_F(SegyOutTest, BadParametersEndTheModuleWithOneLine)
{
    struct Row
    {
        Parameters parameters;
        std::string says;
    };
    const std::string missing = directory / "none/out.sgy";
    const std::vector<Row> rows = {
        {{{"file", UniVar("")}}, "file is missing; give the name of a file to write"},
        {{{"file", UniVar(missing)}}, missing + ": cannot be written: no file can be created"},
        {{{"file", UniVar(directory.path())}}, "is there already and is not a regular file"},
        {{{"format", UniVar("int16")}}, "format is \"int16\"; give ibm or ieee"},
        {{{"revision", UniVar(2)}}, "revision is 2; give a whole number from 0 to 1"},
    };
    for (const Row& row : rows) {
        const HarnessResult result = copy(ieeeFile(3, 4).bytes(), row.parameters);
        EXPECT_THAT(result.messagesOf(4, "out"), ElementsAre(HasSubstr(row.says)));
        EXPECT_THAT(result.jobMetadata.at("vorn.failed"), HasSubstr("out: ")) << row.says;
        EXPECT_THAT(directory.names(), ElementsAre("in.sgy")) << row.says;
        EXPECT_EQ(result.bytesLeft.at("out"), 0) << row.says;
    }
}

TEST_F(SegyOutTest, TracesTooLongForTheFormatAreRefused)
{
    harness.push(std::vector<float>(65536, 1.0f));
    const HarnessResult result = runWriter();
    EXPECT_THAT(result.messagesOf(4, "out"),
                ElementsAre(HasSubstr("traces of 65536 samples cannot be written")));
    EXPECT_THAT(directory.names(), IsEmpty());
}
