// Runs segy_in in a job of its own and looks at the traces that come out of it.
#include <KernelFixture.h>
#include <ModuleHarness.h>
#include <ProbeModule.h>
#include <SegyBytes.h>

#include "DataChannel.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"
#include "segy/HeaderWords.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <unistd.h>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using Parameters = std::map<std::string, UniVar>;

class SegyInTest : public KernelFixture
{
protected:
    SegyInTest() { renew(); }

    // A harness without modules that knows all words.
    void renew()
    {
        harness = ModuleHarness();
        harness.withSource = false;
        for (const VORN::HeaderWord& word : VORN::traceHeaderWords())
            harness.define(word.key, 2);
    }

    HarnessResult read(const std::string& path, Parameters parameters = {})
    {
        HarnessModule& module = harness.add("in", "libsegy_in.so");
        module.parameters = std::move(parameters);
        module.parameters["file"] = UniVar(path);
        return harness.run();
    }
    HarnessResult read(const Bytes& bytes, Parameters parameters = {})
    {
        writeBytes(file, bytes);
        return read(file, std::move(parameters));
    }
    static std::vector<int> values(const HarnessResult& result, const std::string& attribute)
    {
        std::vector<int> all;
        for (const HarnessTrace& trace : result.traces)
            all.push_back(trace.attributes.at(attribute).getI32Value());
        return all;
    }
    static std::vector<int> flags(const HarnessResult& result)
    {
        std::vector<int> all;
        for (const HarnessTrace& trace : result.traces)
            all.push_back(trace.flag);
        return all;
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
    const std::string file = directory / "line.sgy";
};

} // namespace

TEST_F(SegyInTest, EveryTraceComesWithItsSamplesAndTheLastOneEndsTheData)
{
    const HarnessResult result = read(ieeeFile(3, 4).bytes());
    ASSERT_THAT(result.traces, SizeIs(3)) << result.allMessages();
    EXPECT_THAT(result.traces[0].samples, ElementsAre(100, 101, 102, 103));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(300, 301, 302, 303));
    EXPECT_THAT(values(result, "fldr"), ElementsAre(1, 2, 3));
    EXPECT_THAT(flags(result), ElementsAre(0, 0, 3));
    EXPECT_EQ(result.traceLength, 4);
    EXPECT_EQ(result.sampleInterval, 4000);
    EXPECT_EQ(result.bytesLeft.at("in"), 0);
}

TEST_F(SegyInTest, SaysWhatItReads)
{
    const HarnessResult result = read(ieeeFile(3, 4).bytes());
    EXPECT_THAT(result.messagesOf(1, "in"),
                ElementsAre(file + ": 3 traces of 4 samples, interval 4 ms, 4-byte IEEE float, big "
                                   "endian, revision 0"));
    EXPECT_THAT(result.messagesOf(2, "in"), IsEmpty());
    EXPECT_EQ(result.jobMetadata.count("vorn.failed"), 0u);
}

TEST_F(SegyInTest, EveryHeaderWordBecomesAnAttribute)
{
    std::mt19937 dice(1);
    for (const bool little : {false, true}) {
        SegyBytes made = ieeeFile(20, 2, little);
        for (std::size_t trace = 0; trace < 20; ++trace) {
            for (std::size_t byte = 0; byte < 240; ++byte) {
                if (byte < 114 || byte > 117)
                    made.traces[trace * 248 + byte] = static_cast<unsigned char>(dice());
            }
        }
        harness = ModuleHarness();
        harness.withSource = false;
        for (const VORN::HeaderWord& word : VORN::traceHeaderWords())
            harness.define(word.key, 2);
        const HarnessResult result = read(made.bytes());
        ASSERT_THAT(result.traces, SizeIs(20));
        for (std::size_t trace = 0; trace < 20; ++trace) {
            ASSERT_THAT(result.traces[trace].attributes, SizeIs(91));
            for (const VORN::HeaderWord& word : VORN::traceHeaderWords()) {
                const std::size_t at = trace * 248 + static_cast<std::size_t>(word.byte) - 1;
                EXPECT_EQ(result.traces[trace].attributes.at(word.key).getI32Value(),
                          getInteger(made.traces, at, word.bytes, little))
                    << word.key << " of trace " << trace;
            }
        }
    }
}

TEST_F(SegyInTest, LengthAndIntervalSayWhatTheTraceHasAndNotWhatItsHeaderSays)
{
    SegyBytes made = ieeeFile(2, 4);
    for (const std::size_t start : {0, 256}) {
        made.setTrace(start, 115, 2, 1500);
        made.setTrace(start, 117, 2, 0);
    }
    const HarnessResult result = read(made.bytes());
    EXPECT_THAT(values(result, "ns"), ElementsAre(4, 4));
    EXPECT_THAT(values(result, "dt"), ElementsAre(4000, 4000));
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(HasSubstr(file + ": the binary header states 4 samples per trace, the "
                                             "first trace header 1500"),
                            HasSubstr("interval of 4000 microseconds, the first trace header 0")));
}

TEST_F(SegyInTest, WordsThatTheSchemaDoesNotKnowAreLeftOut)
{
    harness = ModuleHarness();
    harness.withSource = false;
    harness.define("fldr", 2);
    harness.define("offset", 4);
    SegyBytes made = ieeeFile(2, 3);
    made.setTrace(0, 37, 4, -150);
    const HarnessResult result = read(made.bytes());
    ASSERT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(result.traces[0].attributes, SizeIs(2));
    EXPECT_EQ(result.traces[0].attributes.at("offset").getF32Value(), -150.0f);
    EXPECT_THAT(result.messagesOf(0, "in"),
                ElementsAre("the job's schema does not know 89 of the 91 trace header words; they "
                            "are not read"));
}

TEST_F(SegyInTest, TheTotalIsAnnouncedBeforeTheFirstTrace)
{
    writeBytes(file, ieeeFile(7, 3).bytes());
    ModuleEntity* in = job().initJobModule("in", "libsegy_in.so");
    ASSERT_NE(in, nullptr);
    in->setParameter("file", UniVar(file));
    in->setParameter("traces", UniVar("2:5"));
    auto* channel = new DataChannel;
    in->setOutputDataChannel(channel, 0);
    ProbeModule sink("sink");
    sink.entity->setInputDataChannel(channel, 0);
    int64_t announced = -1;
    int length = -1;
    sink.pre = [&] {
        announced = channel->getTotalTracesNumber();
        length = channel->getTraceLength();
    };
    job().preProcessJob();
    job().postProcessJob();
    EXPECT_EQ(announced, 4);
    EXPECT_EQ(length, 3);
}

TEST_F(SegyInTest, SeveralModulesOfAJobReadSeveralFiles)
{
    const std::string other = directory / "other.sgy";
    writeBytes(file, ieeeFile(3, 2).bytes());
    writeBytes(other, ieeeFile(2, 5).bytes());
    std::vector<int> lengths;
    std::vector<std::unique_ptr<ProbeModule>> sinks;
    for (const std::string& path : {file, other}) {
        ModuleEntity* in = job().initJobModule("in " + path, "libsegy_in.so");
        ASSERT_NE(in, nullptr);
        in->setParameter("file", UniVar(path));
        auto* channel = new DataChannel;
        in->setOutputDataChannel(channel, 0);
        sinks.push_back(std::make_unique<ProbeModule>("sink " + path));
        sinks.back()->entity->setInputDataChannel(channel, 0);
        sinks.back()->process = [&] { lengths.push_back(getTraceLength(getInputTraceBuffer(0))); };
    }
    runJob();
    std::sort(lengths.begin(), lengths.end());
    EXPECT_THAT(lengths, ElementsAre(2, 2, 2, 5, 5));
}

TEST_F(SegyInTest, PagingOfTracesChangesNothing)
{
    const Bytes bytes = ieeeFile(20, 300).bytes();
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    const HarnessResult result = read(bytes);
    ASSERT_THAT(result.traces, SizeIs(20));
    for (std::size_t i = 0; i < 20; ++i) {
        const int fldr = static_cast<int>(i) + 1;
        EXPECT_EQ(result.traces[i].attributes.at("fldr").getI32Value(), fldr);
        EXPECT_EQ(result.traces[i].samples.front(), static_cast<float>(100 * fldr));
        EXPECT_EQ(result.traces[i].samples.back(), static_cast<float>(100 * fldr + 299));
    }
}

// ---- Selections ----

TEST_F(SegyInTest, TracesAreSelectedByNumberRecordAndCdp)
{
    struct Row
    {
        Parameters parameters;
        std::vector<int> records;
    };
    const std::vector<Row> rows = {
        {{{"traces", UniVar("2:4")}}, {2, 3, 4}},
        {{{"traces", UniVar("1:8:3,2")}}, {1, 2, 4, 7}},
        {{{"traces", UniVar("6:")}}, {6, 7, 8}},
        {{{"fldr", UniVar("3,5")}}, {3, 5}},
        {{{"cdp", UniVar("107:200")}}, {7, 8}},
        {{{"traces", UniVar("1:5")}, {"fldr", UniVar("4:9")}}, {4, 5}},
        {{{"fldr", UniVar("2:7")}, {"cdp", UniVar("101:108:2")}}, {3, 5, 7}},
    };
    for (const Row& row : rows) {
        ModuleHarness fresh;
        fresh.withSource = false;
        fresh.define("fldr", 2);
        harness = fresh;
        const HarnessResult result = read(ieeeFile(8, 3).bytes(), row.parameters);
        const std::string name =
            row.parameters.begin()->first + " " + row.parameters.begin()->second.getStrValue();
        EXPECT_EQ(values(result, "fldr"), row.records) << name;
        EXPECT_EQ(flags(result).back(), 3) << name;
    }
}

TEST_F(SegyInTest, EveryTraceHasItsNumberInTheFile)
{
    harness.define("filetrace", 3);
    const HarnessResult result = read(ieeeFile(8, 3).bytes(), {{"traces", UniVar("2,5:8:2")}});
    std::vector<int64_t> numbers;
    for (const HarnessTrace& trace : result.traces) {
        EXPECT_EQ(trace.attributes.at("filetrace").getType(), int64Type);
        numbers.push_back(trace.attributes.at("filetrace").getI64Value());
    }
    EXPECT_THAT(numbers, ElementsAre(2, 5, 7));
}

TEST_F(SegyInTest, AnIntegerSelectsToo)
{
    const HarnessResult result = read(ieeeFile(8, 3).bytes(), {{"traces", UniVar(5)}});
    EXPECT_THAT(values(result, "fldr"), ElementsAre(5));
    EXPECT_THAT(result.messagesOf(1, "in"),
                ElementsAre(HasSubstr("; 1 of them selected by traces 5")));
}

TEST_F(SegyInTest, AnyWordSelectsByRangesListsAndSteps)
{
    SegyBytes made = ieeeFile(8, 3);
    for (int i = 0; i < 8; ++i) {
        made.setTrace(static_cast<std::size_t>(i) * 252, 37, 4, 100 * i - 300); // offset
        made.setTrace(static_cast<std::size_t>(i) * 252, 189, 4, 100 + i);      // iline
    }
    const std::pair<const char*, std::vector<int>> rows[] = {
        {"offset=-200:200", {2, 3, 4, 5, 6}},    {"offset=:-100", {1, 2, 3}},
        {"iline=101:107:2", {2, 4, 6, 8}},       {"iline=100,103,105:106; offset=0:", {4, 6, 7}},
        {"offset=100:400; fldr=6:9", {6, 7, 8}}, {"traces=2:4\niline=103", {4}},
    };
    for (const auto& [select, records] : rows) {
        harness = ModuleHarness();
        harness.withSource = false;
        harness.define("fldr", 2);
        const HarnessResult result = read(made.bytes(), {{"select", UniVar(select)}});
        EXPECT_EQ(values(result, "fldr"), records) << select << result.allMessages();
    }
}

// ---- Words at other bytes ----

TEST_F(SegyInTest, MappedWordsAreReadFromTheirBytesWithTheirType)
{
    for (const bool little : {false, true}) {
        harness = ModuleHarness();
        harness.withSource = false;
        harness.define("fldr", 2);
        harness.define("iline", 2);
        harness.define("cdpx", 5);
        harness.define("cdpy", 4);
        harness.define("sx", 5);
        harness.define("crew", 3);
        SegyBytes made = ieeeFile(2, 3, little);
        for (const std::size_t start : {0, 252}) {
            const int64_t more = start == 0 ? 0 : 1;
            made.setTrace(start, 189, 4, 77); // where revision 1 has iline
            made.setTrace(start, 181, 8, 0x41124F8000000000 + (more << 40)); // 300000 and more
            made.setTrace(start, 193, 4, bitsOf(1.5F + static_cast<float>(more)));
            made.setTrace(start, 197, 4, static_cast<int64_t>(0xC276A000)); // IBM, -118.625
            made.setTrace(start, 201, 5, 0x1234567890 + more);
        }
        const HarnessResult result =
            read(made.bytes(), {{"words", UniVar("iline=9, cdpx=181:double, cdpy=193:ieee, "
                                                 "sx=197:ibm, crew=201:uint40")}});
        ASSERT_THAT(result.traces, SizeIs(2)) << result.allMessages();
        EXPECT_THAT(values(result, "iline"), ElementsAre(1, 2));
        EXPECT_THAT(values(result, "fldr"), ElementsAre(1, 2)) << "the bytes are still theirs";
        const auto& attributes = result.traces[1].attributes;
        EXPECT_EQ(result.traces[0].attributes.at("cdpx").getF64Value(), 300000.0);
        EXPECT_EQ(attributes.at("cdpx").getF64Value(), 300064.0);
        EXPECT_EQ(attributes.at("cdpy").getF32Value(), 2.5F);
        EXPECT_EQ(attributes.at("sx").getF64Value(), -118.625);
        EXPECT_EQ(attributes.at("crew").getI64Value(), 0x1234567891);
    }
}

TEST_F(SegyInTest, MappedWordsSelectToo)
{
    SegyBytes made = ieeeFile(4, 3);
    for (std::size_t i = 0; i < 4; ++i)
        made.setTrace(i * 252, 181, 4, bitsOf(0.5F + static_cast<float>(i)));
    const HarnessResult result = read(made.bytes(), {{"words", UniVar("x=181:ieee, iline=9")},
                                                     {"select", UniVar("x=1:3; iline=2:9")}});
    EXPECT_THAT(values(result, "fldr"), ElementsAre(2, 3));
}

TEST_F(SegyInTest, BytesOfTheMakerOfARevision0FileAreToldOnce)
{
    SegyBytes made = ieeeFile(4, 3);
    made.setTrace(0, 181, 4, 5);
    made.setTrace(252, 181, 4, 6);
    made.setTrace(504, 189, 4, 7);
    const std::string says = file + ": revision 0 leaves bytes 181 to 240 of trace headers to the "
                                    "maker of the file; what stands there is read as in revision "
                                    "1: cdpx (2 traces), iline (1 trace); where it means something "
                                    "else, map the words with `words`";
    EXPECT_THAT(read(made.bytes()).messagesOf(1, "in"), ElementsAre(HasSubstr("4 traces"), says));

    renew();
    EXPECT_THAT(
        read(made.bytes(), {{"words", UniVar("cdpx=181, crew=189:int16")}}).messagesOf(1, "in"),
        SizeIs(1))
        << "the user knows these bytes";
    made.setBinary(3501, 2, 256);
    renew();
    EXPECT_THAT(read(made.bytes()).messagesOf(1, "in"), SizeIs(1)) << "revision 1";
}

// ---- Parts of the traces ----

// Whatever is selected, parts of it give the same traces in the same order as the whole.
TEST_F(SegyInTest, PartsGiveTheTracesOfTheWhole)
{
    const std::string a = directory / "a.sgy";
    const std::string b = directory / "b.sgy";
    const std::string c = directory / "c.sgy";
    writeBytes(a, ieeeFile(9, 2).bytes());
    writeBytes(b, ieeeFile(4, 2).bytes());
    writeBytes(c, ieeeFile(11, 2).bytes());
    const Parameters selections[] = {{},
                                     {{"traces", UniVar("2:9")}},
                                     {{"traces", UniVar("1:20:3,2")}},
                                     {{"select", UniVar("fldr=3:8")}},
                                     {{"select", UniVar("fldr=5:20")}, {"traces", UniVar("2:")}}};
    for (const Parameters& selection : selections) {
        const auto numbers = [&](const std::string& part, int64_t total) {
            renew();
            harness.define("filetrace", 3);
            Parameters parameters = selection;
            if (!part.empty())
                parameters["part"] = UniVar(part);
            const HarnessResult result = read(a + "\n" + b + "\n" + c, parameters);
            EXPECT_EQ(result.traces.size(), total) << part << ": " << result.allMessages();
            for (std::size_t i = 0; i < result.traces.size(); ++i)
                EXPECT_EQ(result.traces[i].flag, i + 1 < result.traces.size() ? 0 : 3);
            std::vector<int> values;
            for (const HarnessTrace& trace : result.traces)
                values.push_back(trace.attributes.at("filetrace").getI32Value() * 1000 +
                                 static_cast<int>(trace.samples[0]) / 100);
            return values;
        };
        renew();
        const auto total =
            static_cast<int64_t>(read(a + "\n" + b + "\n" + c, selection).traces.size());
        const std::vector<int> whole = numbers("", total);
        ASSERT_GE(total, 7);
        for (const int64_t parts : {1, 2, 3, 7}) {
            std::vector<int> joined;
            for (int64_t part = 0; part < parts; ++part) {
                const int64_t first = total * part / parts;
                const int64_t last = total * (part + 1) / parts;
                const std::vector<int> some =
                    numbers(std::to_string(first + 1) + ":" + std::to_string(last), last - first);
                joined.insert(joined.end(), some.begin(), some.end());
            }
            EXPECT_EQ(joined, whole) << parts;
        }
        std::vector<int> chosen = {whole[0], whole[1], whole[4]};
        chosen.insert(chosen.end(), whole.begin() + 6, whole.end());
        EXPECT_EQ(numbers("1:2,5,7:", total - 3), chosen);
    }
}

TEST_F(SegyInTest, APartIsToldAndOneWithoutATraceIsRefused)
{
    const HarnessResult some =
        read(ieeeFile(9, 2).bytes(), {{"traces", UniVar("2:9")}, {"part", UniVar("3:5")}});
    EXPECT_THAT(values(some, "fldr"), ElementsAre(4, 5, 6));
    EXPECT_THAT(some.messagesOf(1, "in"),
                ElementsAre(HasSubstr("; 3 of them selected by traces 2:9, part 3:5")));

    renew();
    const HarnessResult none = read(ieeeFile(9, 2).bytes(), {{"part", UniVar("10:12")}});
    EXPECT_THAT(none.messagesOf(4, "in"),
                ElementsAre(file + ": none of its 9 traces is selected by part 10:12"));
    renew();
    const HarnessResult wrong = read(ieeeFile(9, 2).bytes(), {{"part", UniVar("5:x")}});
    EXPECT_THAT(wrong.messagesOf(4, "in"), ElementsAre(HasSubstr("part: \"x\" in \"5:x\"")));
}

// What lies between is neither read nor listed: 8 bytes for each trace would be 20 GB.
TEST_F(SegyInTest, TracesOfAFileOf10TerabytesAreFoundAtOnce)
{
    constexpr int64_t traces = 2500000000;
    constexpr int64_t traceBytes = 240 + 4 * 940;
    SegyBytes made = ieeeFile(2, 940);
    writeBytes(file, made.bytes());
    if (truncate(file.c_str(), 3600 + traces * traceBytes) != 0)
        GTEST_SKIP() << "no file of 10 TB can be made in the test's directory: "
                     << std::strerror(errno);
    const int64_t there = 2400000007; // from 0
    std::fstream(file, std::ios::in | std::ios::out | std::ios::binary)
        .seekp(3600 + there * traceBytes)
        .write(reinterpret_cast<const char*>(made.traces.data()), traceBytes);
    rusage before;
    getrusage(RUSAGE_SELF, &before);
    harness.define("filetrace", 3);
    const HarnessResult result = read(
        file, {{"traces", UniVar("2:2500000000:2")}, {"part", UniVar("1200000003:1200000005")}});
    ASSERT_THAT(result.traces, SizeIs(3)) << result.allMessages();
    EXPECT_EQ(result.traces[1].attributes.at("filetrace").getI64Value(), there + 1);
    EXPECT_THAT(values(result, "fldr"), ElementsAre(0, 1, 0));
    EXPECT_EQ(result.traces[1].samples[939], 1039);
    EXPECT_THAT(result.messagesOf(1, "in"),
                Contains(HasSubstr("2500000000 traces of 940 samples")));
    rusage after;
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 64 << 10) << "kilobytes";
}

TEST_F(SegyInTest, AJobForHeadersOnlyGetsTheHeadersAndZeros)
{
    harness.jobMetadata["vorn.headers"] = "1";
    const HarnessResult result = read(ieeeFile(3, 4).bytes());
    EXPECT_THAT(values(result, "fldr"), ElementsAre(1, 2, 3));
    for (const HarnessTrace& trace : result.traces)
        EXPECT_THAT(trace.samples, ElementsAre(0, 0, 0, 0));
}

// ---- Several files as one input ----

TEST_F(SegyInTest, SeveralFilesAreReadOneAfterTheOther)
{
    harness.define("filetrace", 3);
    for (const int number : {1, 2, 10})
        writeBytes(directory / ("line_" + std::to_string(number) + ".sgy"),
                   ieeeFile(number == 10 ? 3 : number, 4).bytes());
    const HarnessResult result = read(directory / "line_*.sgy", {{"traces", UniVar("1,3")}});
    ASSERT_THAT(result.traces, SizeIs(4)) << result.allMessages();
    EXPECT_THAT(values(result, "filetrace"), ElementsAre(1, 1, 1, 3)) << "numbers of each file";
    EXPECT_THAT(values(result, "fldr"), ElementsAre(1, 1, 1, 3));
    EXPECT_THAT(flags(result), ElementsAre(0, 0, 0, 3));
    EXPECT_THAT(result.messagesOf(1, "in"),
                ElementsAre(HasSubstr("line_1.sgy: 1 traces"), HasSubstr("line_2.sgy: 2 traces"),
                            HasSubstr("line_10.sgy: 3 traces")));
    EXPECT_THAT(result.messagesOf(2, "in"), IsEmpty());
    EXPECT_EQ(result.bytesLeft.at("in"), 0);
}

TEST_F(SegyInTest, AListOfFilesKeepsItsOrderAndFilesOfWhichNothingIsSelectedArePassedOver)
{
    const std::string a = directory / "a.sgy";
    const std::string b = directory / "b.sgy";
    const std::string c = directory / "c.sgy";
    writeBytes(a, ieeeFile(5, 2).bytes());
    writeBytes(b, ieeeFile(3, 2).bytes());
    writeBytes(c, ieeeFile(2, 2).bytes());
    const HarnessResult result = read(a + "\n" + b + "\n" + c, {{"select", UniVar("fldr=4:5")}});
    EXPECT_THAT(values(result, "fldr"), ElementsAre(4, 5));
    EXPECT_THAT(flags(result), ElementsAre(0, 3));

    renew();
    const HarnessResult last = read(c + "\n" + b + "\n" + a, {{"select", UniVar("fldr=4:5")}});
    EXPECT_THAT(values(last, "fldr"), ElementsAre(4, 5));

    renew();
    const HarnessResult none = read(a + "\n" + b, {{"select", UniVar("fldr=44")}});
    EXPECT_THAT(none.messagesOf(4, "in"),
                ElementsAre(a + " and 1 more: none of their 8 traces is selected by fldr 44"));
}

TEST_F(SegyInTest, DifferentLengthsOfFilesAreToldAndFilledWithZeros)
{
    const std::string a = directory / "a.sgy";
    const std::string b = directory / "b.sgy";
    writeBytes(a, ieeeFile(1, 2).bytes());
    SegyBytes longer = ieeeFile(1, 4);
    longer.setBinary(3217, 2, 0);
    longer.setTrace(0, 117, 2, 0);
    writeBytes(b, longer.bytes());
    const HarnessResult result = read(a + "\n" + b);
    ASSERT_THAT(result.traces, SizeIs(2)) << result.allMessages();
    EXPECT_EQ(result.traceLength, 4);
    EXPECT_EQ(result.sampleInterval, 4000);
    EXPECT_THAT(result.traces[0].samples, ElementsAre(100, 101, 0, 0));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(100, 101, 102, 103));
    EXPECT_THAT(values(result, "ns"), ElementsAre(2, 4));
    EXPECT_THAT(values(result, "dt"), ElementsAre(4000, 4000));
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(HasSubstr("no header states a sample interval"),
                            "1 of 2 files have shorter traces than 4 samples, the first of them " +
                                a + " with 2; their traces are filled with zeros",
                            "1 of 2 files state no sample interval, the first of them " + b +
                                "; it is taken to be 4 ms, as in " + a));
}

TEST_F(SegyInTest, FilesWithDifferentIntervalsAreRefused)
{
    const std::string a = directory / "a.sgy";
    const std::string b = directory / "b.sgy";
    writeBytes(a, ieeeFile(2, 2).bytes());
    SegyBytes other = ieeeFile(2, 2);
    other.setBinary(3217, 2, 2000);
    other.setTrace(0, 117, 2, 2000);
    writeBytes(b, other.bytes());
    EXPECT_THAT(read(a + "\n" + b).messagesOf(4, "in"),
                ElementsAre(HasSubstr(b + ": its sample interval is 2 ms, that of " + a +
                                      " 4 ms; traces of one input have one interval")));
    renew();
    const HarnessResult stated = read(a + "\n" + b, {{"interval", UniVar(0.002)}});
    EXPECT_THAT(stated.traces, SizeIs(4));
    EXPECT_EQ(stated.sampleInterval, 2000);
}

// ---- What the user states ----

TEST_F(SegyInTest, LengthFormatOrderAndIntervalCanBeStated)
{
    SegyBytes made = ieeeFile(3, 4, true);
    made.setBinary(3225, 2, 3); // says 2-byte integers
    made.setBinary(3221, 2, 9);
    for (const std::size_t start : {0, 256, 512})
        made.setTrace(start, 115, 2, 11);
    const HarnessResult result = read(made.bytes(), {{"samples", UniVar(4)},
                                                     {"format", UniVar("ieee")},
                                                     {"endian", UniVar("little")},
                                                     {"interval", UniVar(0.0005)}});
    ASSERT_THAT(result.traces, SizeIs(3)) << result.allMessages();
    EXPECT_THAT(result.traces[1].samples, ElementsAre(200, 201, 202, 203));
    EXPECT_EQ(result.sampleInterval, 500);
    EXPECT_THAT(values(result, "dt"), ElementsAre(500, 500, 500));
}

TEST_F(SegyInTest, SamplesUnderTheWrongCodeAreToldAndReadWithTheOption)
{
    SegyBytes made;
    made.describe(400, 4000, 1); // says IBM
    for (int trace = 0; trace < 4; ++trace) {
        made.addHeader(trace, 1, 400, 4000);
        for (int i = 0; i < 400; ++i)
            made.addSample(bitsOf(1e-3F * std::sin(0.37F * static_cast<float>(i)) *
                                  std::exp(-0.01F * static_cast<float>(i))));
    }
    const HarnessResult wrong = read(made.bytes());
    EXPECT_THAT(
        wrong.messagesOf(2, "in"),
        ElementsAre(HasSubstr("look like 4-byte IEEE float and not like 4-byte IBM float")));
    renew();
    const HarnessResult right = read(made.bytes(), {{"format", UniVar("ieee")}});
    EXPECT_THAT(right.messagesOf(2, "in"), IsEmpty());
    EXPECT_EQ(right.traces[2].samples[1], 1e-3F * std::sin(0.37F) * std::exp(-0.01F));

    renew();
    made.describe(400, 4000, 5);
    for (std::size_t at = 0; at < made.traces.size(); at += 240 + 1600) {
        for (std::size_t i = at + 240; i < at + 240 + 1600; i += 4)
            std::reverse(made.traces.begin() + static_cast<std::ptrdiff_t>(i),
                         made.traces.begin() + static_cast<std::ptrdiff_t>(i) + 4);
    }
    const HarnessResult swapped = read(made.bytes(), {{"sample_endian", UniVar("little")}});
    EXPECT_THAT(swapped.messagesOf(2, "in"), IsEmpty());
    EXPECT_EQ(swapped.traces[2].samples[1], 1e-3F * std::sin(0.37F) * std::exp(-0.01F));
}

// ---- Files of all kinds ----

TEST_F(SegyInTest, ShorterTracesAreFilledWithZeros)
{
    SegyBytes made;
    made.describe(5, 4000, 5);
    for (const int length : {3, 5, 1})
        made.addIeeeTrace(length, length, static_cast<float>(10 * length));
    const HarnessResult result = read(made.bytes());
    ASSERT_THAT(result.traces, SizeIs(3));
    EXPECT_THAT(result.traces[0].samples, ElementsAre(30, 31, 32, 0, 0));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(50, 51, 52, 53, 54));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(10, 0, 0, 0, 0));
    EXPECT_THAT(values(result, "ns"), ElementsAre(3, 5, 1));
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(HasSubstr("traces of different lengths"),
                            file + ": shorter traces are filled with zeros up to 5 samples"));
}

TEST_F(SegyInTest, AFileWithoutAWholeTraceIsAnErrorThatNamesTheSizes)
{
    const HarnessResult result = read(ieeeFile(0, 4).bytes());
    EXPECT_THAT(result.traces, IsEmpty());
    EXPECT_THAT(result.messagesOf(4, "in"),
                ElementsAre(HasSubstr("holds no whole trace: the binary header states 4 samples "
                                      "per trace and the first trace header 0; a trace of 4 "
                                      "samples in format 5, 4-byte IEEE float, takes 256 bytes")));
}

TEST_F(SegyInTest, ACutTraceIsReportedAndLeftOut)
{
    Bytes bytes = ieeeFile(3, 4).bytes();
    bytes.pop_back();
    const HarnessResult result = read(bytes);
    EXPECT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(HasSubstr("the last trace is cut: 255 of")));
}

TEST_F(SegyInTest, TracesWithAnotherIntervalAreReportedOnceWithTheirNumber)
{
    SegyBytes made = ieeeFile(4, 3);
    for (const std::size_t trace : {1, 2, 3})
        made.setTrace(trace * 252, 117, 2, 2000);
    const HarnessResult result = read(made.bytes());
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(file + ": 3 of 4 traces state another sample interval than 4000 "
                                   "microseconds, the first of them trace 2 with 2000; all are "
                                   "read as 4000; where theirs is right, read them apart with "
                                   "`traces` and `interval`"));
    EXPECT_THAT(values(result, "dt"), ElementsAre(4000, 4000, 4000, 4000));
}

TEST_F(SegyInTest, OnlyTracesThatAreReadCanContradict)
{
    SegyBytes made = ieeeFile(4, 3);
    made.setTrace(252, 117, 2, 2000);
    EXPECT_THAT(read(made.bytes(), {{"traces", UniVar("3:")}}).messagesOf(2, "in"), IsEmpty());
}

TEST_F(SegyInTest, TheFileDescribesItselfInTheMetadata)
{
    SegyBytes made = ieeeFile(2, 3);
    made.setBinary(3501, 2, 256);
    made.setBinary(3505, 2, 1);
    made.setBinary(3205, 4, 31);
    made.extended = Bytes(3200, ' ');
    const std::string card = "((SEG: Comments ver 1.0))";
    std::copy(card.begin(), card.end(), made.extended.begin());
    const HarnessResult result = read(made.bytes());
    const auto& metadata = result.moduleMetadata.at("in");
    EXPECT_EQ(metadata.at("segy.text").substr(0, 30), "C 1 A SEG-Y FILE MADE BY HAND\n");
    EXPECT_EQ(std::count(metadata.at("segy.text").begin(), metadata.at("segy.text").end(), '\n'),
              39);
    EXPECT_EQ(metadata.at("segy.text.ext").substr(0, 26), card + "\n");
    EXPECT_EQ(metadata.at("segy.binary"), "lino=31\nhdt=4000\nhns=3\nformat=5\nrev=256\nnext=1");
    EXPECT_EQ(metadata.at("segy.binary.rest"), std::string(800, '0'));
    EXPECT_EQ(metadata.at("segy.text.bytes").substr(0, 12), "c340f140c140");
    EXPECT_EQ(metadata.at("segy.text.bytes").size(), 6400u);
    EXPECT_EQ(metadata.at("segy.text.ext.bytes").substr(0, 14), "28285345473a20");
    EXPECT_EQ(metadata.at("segy.text.ext.bytes").size(), 6400u);
    EXPECT_EQ(metadata.at("segy.revision"), "1");
    EXPECT_EQ(metadata.at("segy.format"), "ieee");
    EXPECT_EQ(metadata.at("segy.interval"), "4000");
    EXPECT_EQ(metadata.at("segy.samples"), "3");
    EXPECT_EQ(metadata.at("segy.file"), file);
}

TEST_F(SegyInTest, TheSampleFilesAreReadToTheirEnd)
{
    struct Row
    {
        const char* name;
        std::size_t traces;
        std::size_t warnings;
    };
    const Row rows[] = {{"npra_31_81_stack.sgy", 534, 0},  {"viking_shots.segy", 480, 1},
                        {"oz16_shot_ieee.sgy", 48, 0},     {"f3_crop_int16.sgy", 414, 1},
                        {"f3_crop_int16_le.sgy", 414, 1},  {"f3_crop_ieee.sgy", 414, 1},
                        {"lithoprobe_44_trace.sgy", 1, 0}, {"geometrics_int32_trace.sgy", 1, 0},
                        {"bad_60000_samples.sgy", 3, 5},   {"bad_truncated.sgy", 3, 3}};
    for (const Row& row : rows) {
        const std::string path = sampleFile(row.name);
        if (path.empty())
            GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
        ModuleHarness fresh;
        fresh.withSource = false;
        fresh.define("fldr", 2);
        harness = fresh;
        const HarnessResult result = read(path);
        EXPECT_THAT(result.traces, SizeIs(row.traces)) << row.name;
        EXPECT_THAT(result.messagesOf(2, "in"), SizeIs(row.warnings)) << row.name;
        EXPECT_THAT(result.messagesOf(4, "in"), IsEmpty()) << row.name;
    }
}

// ---- What ends the module ----

TEST_F(SegyInTest, BadParametersAndFilesEndTheModuleWithOneLine)
{
    struct Row
    {
        Parameters parameters;
        std::string says;
    };
    const std::string none = directory / "none.sgy";
    const std::vector<Row> rows = {
        {{{"file", UniVar("")}}, "file is missing; give the name of a file"},
        {{{"file", UniVar(none)}}, none + ": cannot be opened: No such file or directory"},
        {{{"file", UniVar(directory.path())}}, "is not a file that can be read"},
        {{{"traces", UniVar("1:x")}}, "traces: \"x\" in \"1:x\" is not a number"},
        {{{"fldr", UniVar("")}}, "fldr: \"\" in \"\" is not a number"},
        {{{"cdp", UniVar("9:1")}}, "cdp: \"9:1\" ends before it begins"},
        {{{"traces", UniVar("4:9")}}, file + ": none of its 3 traces is selected by traces 4:9"},
        {{{"select", UniVar("offset")}}, "select: \"offset\" is not WORD=NUMBERS"},
        {{{"select", UniVar("ofset=1:2")}}, "select: ofset: there is no trace header word"},
        {{{"select", UniVar("offset=2:1")}}, "select: offset: \"2:1\" ends before it begins"},
        {{{"words", UniVar("iline=300")}}, "words: \"iline=300\" begins at byte \"300\""},
        {{{"file", UniVar(none + "*")}}, none + "*: no file matches this pattern"},
        {{{"samples", UniVar(0)}}, "samples is 0 samples; give a whole number of at least 1"},
        {{{"format", UniVar("float")}}, "format is \"float\"; give ibm, ieee, double, int8"},
        {{{"endian", UniVar("native")}}, "endian is \"native\"; give big or little"},
        {{{"interval", UniVar(0.0)}}, "interval is 0 s; give a number from 1e-06 to 2000"},
        {{{"interval", UniVar(4000.0)}}, "interval is 4000 s; give a number from 1e-06 to 2000"},
    };
    writeBytes(file, ieeeFile(3, 4).bytes());
    for (const Row& row : rows) {
        ModuleHarness fresh;
        fresh.withSource = false;
        HarnessModule& module = fresh.add("in", "libsegy_in.so");
        module.parameters = row.parameters;
        module.parameters.emplace("file", UniVar(file));
        const HarnessResult result = fresh.run();
        EXPECT_THAT(result.traces, IsEmpty()) << row.says;
        EXPECT_THAT(result.messagesOf(4, "in"), ElementsAre(HasSubstr(row.says)));
        ASSERT_EQ(result.jobMetadata.count("vorn.failed"), 1u) << row.says;
        EXPECT_THAT(result.jobMetadata.at("vorn.failed"), HasSubstr("in: "));
        EXPECT_EQ(result.bytesLeft.at("in"), 0) << row.says;
    }
}

TEST_F(SegyInTest, AFileThatShrinksDuringTheJobEndsItAndNoHalfTraceComesOut)
{
    writeBytes(file, ieeeFile(1000, 1000).bytes()); // more than is read ahead
    ModuleEntity* in = job().initJobModule("in", "libsegy_in.so");
    ASSERT_NE(in, nullptr);
    in->setParameter("file", UniVar(file));
    auto* channel = new DataChannel;
    in->setOutputDataChannel(channel, 0);
    ProbeModule sink("sink");
    sink.entity->setInputDataChannel(channel, 0);
    int traces = 0;
    float lastSample = -1;
    sink.process = [&] {
        ++traces;
        lastSample = getTraceSamples(getInputTraceBuffer(0), 0)[999];
        if (traces == 1)
            std::filesystem::resize_file(file, 3600 + 500 * 4240 + 100);
    };
    runJob();
    EXPECT_GT(traces, 1);
    EXPECT_LE(traces, 500);
    EXPECT_EQ(lastSample, static_cast<float>(100 * traces + 999)) << "the last one was whole";
    EXPECT_THAT(host.textsOfType(4), ElementsAre(HasSubstr("it was longer when it was opened")));
    EXPECT_NE(job().metaDataMap["vorn.failed"], "");
}
