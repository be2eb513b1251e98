// Runs su_in in a job of its own and looks at the traces that come out of it.
#include <KernelFixture.h>
#include <ModuleHarness.h>
#include <SegyBytes.h>

#include "segy/HeaderWords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

using Parameters = std::map<std::string, UniVar>;

class SuInTest : public KernelFixture
{
protected:
    SuInTest() { renew(); }

    // A harness without modules that knows all words of Seismic Unix.
    void renew()
    {
        harness = ModuleHarness();
        harness.withSource = false;
        for (const VORN::HeaderWord& word : VORN::suHeaderWords())
            harness.define(word.key, word.isFloat ? 4 : 2);
    }
    HarnessResult read(const Bytes& bytes, Parameters parameters = {})
    {
        writeBytes(file, bytes);
        parameters.emplace("file", UniVar(file));
        harness.add("in", "libsu_in.so").parameters = std::move(parameters);
        return harness.run();
    }
    static std::vector<int> values(const HarnessResult& result, const std::string& attribute)
    {
        std::vector<int> all;
        for (const HarnessTrace& trace : result.traces)
            all.push_back(trace.attributes.at(attribute).getI32Value());
        return all;
    }

    ModuleHarness harness;
    TemporaryDirectory directory;
    const std::string file = directory / "line.su";
};

} // namespace

TEST_F(SuInTest, FilesOfBothByteOrdersAreRead)
{
    for (const bool little : {true, false}) {
        renew();
        const HarnessResult result = read(ieeeFile(3, 4, little).traces);
        ASSERT_THAT(result.traces, SizeIs(3)) << result.allMessages();
        EXPECT_THAT(result.traces[0].samples, ElementsAre(100, 101, 102, 103));
        EXPECT_THAT(result.traces[2].samples, ElementsAre(300, 301, 302, 303));
        EXPECT_THAT(values(result, "fldr"), ElementsAre(1, 2, 3));
        EXPECT_EQ(result.traces[1].flag, 0);
        EXPECT_EQ(result.traces[2].flag, 3);
        EXPECT_EQ(result.sampleInterval, 4000);
        EXPECT_THAT(result.messagesOf(1, "in"),
                    ElementsAre(file + ": 3 traces of 4 samples, interval 4 ms, Seismic Unix, " +
                                (little ? "little" : "big") + " endian"));
        EXPECT_THAT(result.messagesOf(2, "in"), IsEmpty());
        EXPECT_EQ(result.bytesLeft.at("in"), 0);
    }
}

TEST_F(SuInTest, EveryHeaderWordBecomesAnAttribute)
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
        renew();
        const HarnessResult result = read(made.traces);
        ASSERT_THAT(result.traces, SizeIs(20));
        for (std::size_t trace = 0; trace < 20; ++trace) {
            for (const VORN::HeaderWord& word : VORN::suHeaderWords()) {
                const UniVar& value = result.traces[trace].attributes.at(word.key);
                const int64_t bits =
                    getInteger(made.traces, trace * 248 + static_cast<std::size_t>(word.byte) - 1,
                               word.bytes, little);
                if (word.isFloat)
                    EXPECT_EQ(bitsOf(value.getF32Value()), static_cast<uint32_t>(bits)) << word.key;
                else
                    EXPECT_EQ(value.getI32Value(), bits) << word.key << " of trace " << trace;
            }
        }
    }
}

TEST_F(SuInTest, PartsGiveTheTracesOfTheWhole)
{
    const std::string a = directory / "a.su";
    const std::string b = directory / "b.su";
    writeBytes(a, ieeeFile(9, 2, true).traces);
    writeBytes(b, ieeeFile(5, 2, true).traces);
    const Parameters selections[] = {
        {}, {{"traces", UniVar("2:9")}}, {{"select", UniVar("fldr=3:8")}}};
    for (const Parameters& selection : selections) {
        const auto numbers = [&](const std::string& part) {
            renew();
            Parameters parameters = selection;
            parameters["file"] = UniVar(a + "\n" + b);
            if (!part.empty())
                parameters["part"] = UniVar(part);
            harness.add("in", "libsu_in.so").parameters = parameters;
            const HarnessResult result = harness.run();
            EXPECT_FALSE(result.traces.empty()) << result.allMessages();
            return values(result, "fldr");
        };
        const std::vector<int> whole = numbers("");
        ASSERT_GE(whole.size(), 7U);
        for (const std::size_t parts : {2, 3, 7}) {
            std::vector<int> joined;
            for (std::size_t part = 0; part < parts; ++part) {
                const std::vector<int> some =
                    numbers(std::to_string(whole.size() * part / parts + 1) + ":" +
                            std::to_string(whole.size() * (part + 1) / parts));
                joined.insert(joined.end(), some.begin(), some.end());
            }
            EXPECT_EQ(joined, whole) << parts;
        }
    }
}

TEST_F(SuInTest, AJobForHeadersOnlyGetsTheHeadersAndZeros)
{
    harness.jobMetadata["vorn.headers"] = "1";
    const HarnessResult result = read(ieeeFile(3, 4, true).traces);
    EXPECT_THAT(values(result, "fldr"), ElementsAre(1, 2, 3));
    for (const HarnessTrace& trace : result.traces)
        EXPECT_THAT(trace.samples, ElementsAre(0, 0, 0, 0));
}

TEST_F(SuInTest, WordsThatTheSchemaDoesNotKnowAreLeftOut)
{
    harness = ModuleHarness();
    harness.withSource = false;
    harness.define("fldr", 2);
    harness.define("d1", 2); // a float word is not an integer
    const HarnessResult result = read(ieeeFile(2, 3, true).traces);
    ASSERT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(result.traces[0].attributes, SizeIs(1));
}

TEST_F(SuInTest, WordsWithValuesThatTheSchemaLacksAreNamedOnce)
{
    SegyBytes made = ieeeFile(3, 2, true);
    made.setTrace(0, 37, 4, 250);    // offset
    made.setTrace(248, 37, 4, -250); // likewise
    made.setTrace(496, 205, 4, 7);   // ntr
    made.setTrace(0, 181, 4, 1);     // d1
    harness = ModuleHarness();
    harness.withSource = false;
    for (const VORN::HeaderWord& word : VORN::suHeaderWords()) {
        const std::string key = word.key;
        if (key != "offset" && key != "ntr" && key != "d1" && key != "d2" && key != "ns")
            harness.define(key, word.isFloat ? 4 : 2);
    }
    harness.define("d1", 2); // a float word is not an integer

    const HarnessResult result = read(made.traces);

    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(file +
                            ": header words that have values are not read, since the job's schema "
                            "lacks them: offset (2 traces), d1 (1 trace), ntr (1 trace); add those "
                            "that matter to `schema`"));
}

TEST_F(SuInTest, OfManyWordsThatTheSchemaLacksTheFirstAreNamed)
{
    SegyBytes made = ieeeFile(1, 2, true);
    for (std::size_t byte = 0; byte < 114; ++byte)
        made.traces[byte] = 1;
    harness = ModuleHarness();
    harness.withSource = false;

    const HarnessResult result = read(made.traces);

    ASSERT_THAT(result.messagesOf(2, "in"), SizeIs(1));
    EXPECT_THAT(result.messagesOf(2, "in")[0], HasSubstr(": tracl (1 trace), tracr (1 trace), "));
    EXPECT_THAT(result.messagesOf(2, "in")[0],
                HasSubstr(" more; add those that matter to `schema`"));
    EXPECT_LT(result.messagesOf(2, "in")[0].size(), file.size() + 400);
}

TEST_F(SuInTest, WordsWithoutValuesAreNotMissed)
{
    harness = ModuleHarness();
    harness.withSource = false;
    harness.define("fldr", 2);
    Bytes bytes = ieeeFile(2, 3, true).traces;
    for (const std::size_t start : {0, 252}) {
        for (std::size_t byte = 0; byte < 240; ++byte) {
            if (byte < 8 || (byte > 11 && byte < 114) || byte > 117)
                bytes[start + byte] = 0;
        }
    }

    const HarnessResult result = read(bytes);

    EXPECT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(result.messagesOf(2, "in"), IsEmpty());
}

TEST_F(SuInTest, TracesAreSelectedByNumber)
{
    const HarnessResult result = read(ieeeFile(8, 3, true).traces, {{"traces", UniVar("2:8:3,3")}});
    EXPECT_THAT(values(result, "fldr"), ElementsAre(2, 3, 5, 8));
    EXPECT_EQ(result.traces.back().flag, 3);
    EXPECT_THAT(result.messagesOf(1, "in"), ElementsAre(HasSubstr("; read are traces 2:8:3,3")));
}

TEST_F(SuInTest, EveryTraceHasItsNumberInTheFile)
{
    harness.define("filetrace", 3);
    const HarnessResult result = read(ieeeFile(9, 4).traces, {{"traces", UniVar("3,6:9:3")}});
    ASSERT_THAT(result.traces, SizeIs(3));
    EXPECT_EQ(result.traces[0].attributes.at("filetrace").getI64Value(), 3);
    EXPECT_EQ(result.traces[1].attributes.at("filetrace").getI64Value(), 6);
    EXPECT_EQ(result.traces[2].attributes.at("filetrace").getI64Value(), 9);
}

TEST_F(SuInTest, SeveralFilesAreReadAsOneInputWithSelectionAndMappedWords)
{
    const std::string a = directory / "shot_1.su";
    const std::string b = directory / "shot_2.su";
    SegyBytes first = ieeeFile(3, 4);
    first.setTrace(256, 9, 4, 55);
    writeBytes(a, first.traces);
    writeBytes(b, ieeeFile(5, 3).traces);
    renew();
    harness.define("filetrace", 3);
    harness.define("iline", 2);
    harness.add("in", "libsu_in.so").parameters = {{"file", UniVar(directory / "shot_*.su")},
                                                   {"words", UniVar("iline=9")},
                                                   {"select", UniVar("iline=3:60; cdp=101:104")}};
    const HarnessResult result = harness.run();
    ASSERT_THAT(result.traces, SizeIs(4)) << result.allMessages();
    EXPECT_THAT(values(result, "filetrace"), ElementsAre(2, 3, 3, 4));
    EXPECT_THAT(values(result, "iline"), ElementsAre(55, 3, 3, 4));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(300, 301, 302, 0));
    EXPECT_EQ(result.traces[3].flag, 3);
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre("1 of 2 files have shorter traces than 4 samples, the first of them " +
                            b + " with 3; their traces are filled with zeros"));
}

TEST_F(SuInTest, LengthOrderAndIntervalCanBeStated)
{
    SegyBytes made = ieeeFile(3, 4, false);
    for (const std::size_t start : {0, 256, 512})
        made.setTrace(start, 115, 2, 11);
    const HarnessResult result =
        read(made.traces,
             {{"samples", UniVar(4)}, {"endian", UniVar("big")}, {"interval", UniVar(0.002)}});
    ASSERT_THAT(result.traces, SizeIs(3)) << result.allMessages();
    EXPECT_THAT(result.traces[1].samples, ElementsAre(200, 201, 202, 203));
    EXPECT_THAT(values(result, "ns"), ElementsAre(4, 4, 4));
    EXPECT_THAT(values(result, "dt"), ElementsAre(2000, 2000, 2000));
    EXPECT_EQ(result.sampleInterval, 2000);
}

TEST_F(SuInTest, ACutTraceIsReportedAndLeftOut)
{
    Bytes bytes = ieeeFile(3, 4, true).traces;
    bytes.pop_back();
    const HarnessResult result = read(bytes);
    EXPECT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(HasSubstr(file + ": the last trace is cut: 255 of its 256 bytes")));
}

TEST_F(SuInTest, NoIntervalIsReported)
{
    SegyBytes made;
    made.little = true;
    made.addIeeeTrace(1, 3, 1, 0);
    const HarnessResult result = read(made.traces);
    EXPECT_THAT(result.messagesOf(2, "in"),
                ElementsAre(HasSubstr("no header states a sample interval; state `interval`")));
}

TEST_F(SuInTest, TheFileDescribesItselfInTheMetadata)
{
    const HarnessResult result = read(ieeeFile(2, 3, true).traces);
    const auto& metadata = result.moduleMetadata.at("in");
    EXPECT_EQ(metadata.at("segy.file"), file);
    EXPECT_EQ(metadata.at("segy.format"), "su");
    EXPECT_EQ(metadata.at("segy.samples"), "3");
    EXPECT_EQ(metadata.at("segy.interval"), "4000");
}

TEST_F(SuInTest, PagingOfTracesChangesNothing)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    const HarnessResult result = read(ieeeFile(20, 300, true).traces);
    ASSERT_THAT(result.traces, SizeIs(20));
    for (std::size_t i = 0; i < 20; ++i) {
        EXPECT_EQ(result.traces[i].attributes.at("fldr").getI32Value(), static_cast<int>(i) + 1);
        EXPECT_EQ(result.traces[i].samples.back(), static_cast<float>(100 * (i + 1) + 299));
    }
}

TEST_F(SuInTest, BadParametersAndFilesEndTheModuleWithOneLine)
{
    struct Row
    {
        Parameters parameters;
        std::string says;
    };
    const std::string none = directory / "none.su";
    const std::string segy = directory / "line.sgy";
    const std::string empty = directory / "empty.su";
    writeBytes(segy, ieeeFile(3, 4).bytes());
    writeBytes(empty, {});
    const std::vector<Row> rows = {
        {{{"file", UniVar("")}}, "file is missing; give the name of a file"},
        {{{"file", UniVar(none)}}, none + ": cannot be opened: No such file or directory"},
        {{{"file", UniVar(directory.path())}}, "is not a file that can be read"},
        {{{"file", UniVar(segy)}}, segy + ": is not a Seismic Unix file"},
        {{{"file", UniVar(empty)}}, empty + ": is not a Seismic Unix file: it has 0 bytes"},
        {{{"traces", UniVar("1:x")}}, "traces: \"x\" in \"1:x\" is not a number"},
        {{{"traces", UniVar("4:9")}}, file + ": none of its 3 traces is selected by traces 4:9"},
        {{{"samples", UniVar(0)}}, "samples is 0 samples; give a whole number of at least 1"},
        {{{"endian", UniVar("native")}}, "endian is \"native\"; give big or little"},
        {{{"interval", UniVar(-1.0)}}, "interval is -1 s; give a number from 1e-06 to 2000"},
    };
    for (const Row& row : rows) {
        renew();
        const HarnessResult result = read(ieeeFile(3, 4, true).traces, row.parameters);
        EXPECT_THAT(result.traces, IsEmpty()) << row.says;
        EXPECT_THAT(result.messagesOf(4, "in"), ElementsAre(HasSubstr(row.says)));
        EXPECT_THAT(result.jobMetadata.at("vorn.failed"), HasSubstr("su_in: ")) << row.says;
        EXPECT_EQ(result.bytesLeft.at("in"), 0) << row.says;
    }
}
