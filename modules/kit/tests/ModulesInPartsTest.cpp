// Modules that say something in the end, or once on the way: a job in parts says what one process
// says, and gives the same traces.
#include "ModuleTest.h"
#include "TextFiles.h"

#include <ostream>

namespace {

using Parameters = std::map<std::string, UniVar>;

struct Row
{
    const char* module;
    Parameters parameters;
    /// A part of a message that one process sends, of a warning where it begins with "!".
    const char* message;
    const char* csv = ""; ///< the parameter table, where not empty
};

std::ostream& operator<<(std::ostream& out, const Row& row)
{
    return out << row.module << ": " << row.message;
}

class ModulesInPartsTest : public ModuleTest, public testing::WithParamInterface<Row>
{
protected:
    ModulesInPartsTest() : ModuleTest(GetParam().module)
    {
        harness.define("qc_rms", 4);
        pushNoise(40, 60, [](int i) {
            return Parameters{{"fldr", UniVar(i / 8)},
                              {"tracf", UniVar(i % 8 + 1)},
                              {"offset", UniVar(i < 5 ? 0 : 100 * i)},
                              {"tstat", UniVar(i < 12 ? 0 : 7 * i)},
                              {"delrt", UniVar(i % 10 == 7 ? 60 : (i > 20 ? 40 : 0))},
                              {"zero", UniVar(0)},
                              {"qc_flags", UniVar(i % 5 == 3 ? 1 : 0)}};
        });
    }

    TextFiles files;
};

TEST_P(ModulesInPartsTest, SayAndGiveWhatOneProcessDoes)
{
    Parameters parameters = GetParam().parameters;
    if (*GetParam().csv != '\0')
        parameters["table"] = UniVar(files.write("table.csv", GetParam().csv));
    add(parameters);

    expectSameInParts();

    const std::string wanted = GetParam().message;
    const bool isWarning = wanted[0] == '!';
    EXPECT_THAT(messages(isWarning ? 2 : 1),
                testing::Contains(testing::HasSubstr(wanted.substr(isWarning ? 1 : 0))));
    EXPECT_THAT(result.messagesOf(4), testing::IsEmpty());
}

UniVar numbers(const std::vector<double>& values)
{
    return floats(values);
}

INSTANTIATE_TEST_SUITE_P(
    Modules, ModulesInPartsTest,
    testing::Values(
        Row{"kill", {{"where", UniVar("offset > 3000")}}, "9 of 40 traces were set to zero"},
        Row{"kill", {{"where", UniVar("trace > 38")}}, "2 of 40 traces were set to zero"},
        Row{"kill", {{"traces", UniVar("3:5,39")}}, "4 of 40 traces were set to zero"},
        Row{"kill", {{"flags", UniVar("dead")}}, "8 of 40 traces were set to zero"},
        Row{"kill", {{"where", UniVar("offset > 9000")}}, "!none of 40 traces was chosen"},
        Row{"kill", {}, "!2 of 5 keys are those of no trace", "trace\n2\n17\n31\n41\n99\n"},
        Row{"kill",
            {{"key", UniVar("fldr\ntracf")}},
            "!1 of 3 keys are those of no trace",
            "fldr,tracf\n0,3\n4,8\n7,1\n"},
        Row{"select", {{"where", UniVar("offset > 3000")}}, "9 of 40 traces were kept"},
        Row{"select",
            {{"action", UniVar("drop")}, {"select", UniVar("fldr=1:3; tracf=2:5")}},
            "28 of 40 traces were kept, 12 dropped"},
        Row{"nmo",
            {{"times", numbers({0})}, {"velocities", numbers({1500})}},
            "!samples that are infinite or NaN: 3, in traces: 3; they count as 0"},
        Row{"nmo",
            {{"times", numbers({0})}, {"velocities", numbers({200})}},
            "!35 of 40 traces were stretched everywhere"},
        Row{"nmo",
            {{"times", numbers({0})}, {"velocities", numbers({1500})}, {"header", UniVar("zero")}},
            "!zero is 0 in all 40 traces"},
        Row{"autocorrelation",
            {{"lag", UniVar(0.05)}, {"start", UniVar(0.01)}, {"end", UniVar(0.03)}},
            "!of 40 traces have no sample in the window"},
        Row{"autocorrelation", {{"lag", UniVar(0.05)}}, "4 of 40 traces are zeros in the window"},
        Row{"shift", {{"time", UniVar(0.0037)}}, "!samples that are infinite or NaN: 3"},
        Row{"shift", {{"word", UniVar("tstat")}}, "!were shifted by more than their length"},
        Row{"shift", {{"word", UniVar("zero")}}, "!zero is 0 in all 40 traces"},
        Row{"shift",
            {{"unmatched", UniVar("keep")}},
            "!32 of 40 traces have no row in the table and got no shift from it; the first: trace "
            "1",
            "fldr,shift\n2,5\n7,9\n"},
        Row{"window", {{"start", UniVar(0.13)}, {"end", UniVar(0.17)}}, "!no sample in the window"},
        Row{"window", {{"start", UniVar(0.03)}, {"end", UniVar(0.13)}}, "extended with zeros"},
        Row{"window",
            {{"start", UniVar(0.1)}, {"end", UniVar(0.16)}},
            "!samples of the output are"},
        Row{"histogram", {}, "samples of 40 traces from -"},
        Row{"histogram", {{"zeros", UniVar(1)}, {"scale", UniVar("log")}}, "samples of 40 traces"},
        Row{"histogram", {{"word", UniVar("tstat")}, {"bins", UniVar(7)}}, "of tstat of 40 traces"},
        Row{"histogram",
            {{"tmin", UniVar(0.13)}, {"tmax", UniVar(0.2)}},
            "!of 40 traces have no sample in the window"},
        Row{"histogram", {{"tmin", UniVar(0.13)}}, "!none of them in the window from 0.13 s"},
        Row{"stack", {{"key", UniVar("tracf")}}, "!40 groups have 8 different values of tracf"},
        Row{"mute",
            {{"offsets", numbers({0, 1000})},
             {"times", numbers({0, 0.1})},
             {"header", UniVar("zero")}},
            "!zero is 0 in all 40 traces, which all got the mute of zero 0"},
        Row{"section", {}, "traces drawn: 40 of 40"},
        Row{"section", {}, "!samples that are infinite or NaN: 3; they are drawn as 0"},
        Row{"section",
            {{"every", UniVar(3)}, {"max_traces", UniVar(9)}, {"gather", UniVar("fldr")}},
            "!the picture ends after 9 traces; 5 more are left out"},
        Row{"section",
            {{"tmin", UniVar(0.02)},
             {"tmax", UniVar(0.09)},
             {"picks", UniVar("tstat")},
             {"xattr", UniVar("offset")},
             {"xattr2", UniVar("fldr")}},
            "!the first is at 0.126 s, of trace 19"},
        Row{"spectrogram",
            {{"window", UniVar(0.02)},
             {"where", UniVar("offset > 600")},
             {"max_pictures", UniVar(3)}},
            "!chosen traces have no picture, since there are 3 already"},
        Row{"spectrogram",
            {{"window", UniVar(0.02)}, {"traces", UniVar("2,22,33")}, {"max_pictures", UniVar(3)}},
            "!samples that are infinite or NaN: 2"},
        Row{"spectrogram",
            {{"window", UniVar(0.02)}, {"where", UniVar("delrt == 40")}, {"mean", UniVar(1)}},
            "!chosen traces are zeros and have no spectrum"},
        Row{"amplitude_map",
            {{"x", UniVar("fldr")}, {"y", UniVar("tracf")}, {"measure", UniVar("fold")}},
            "fold: 1 to 1 in 40 bins"},
        Row{"amplitude_map",
            {{"x", UniVar("offset")}, {"y", UniVar("tracf")}, {"measure", UniVar("rms")}},
            "RMS amplitude: "},
        Row{"amplitude_map",
            {{"x", UniVar("tracf")},
             {"y", UniVar("fldr")},
             {"bin", numbers({3, 2})},
             {"measure", UniVar("rms")},
             {"tmin", UniVar(0.05)},
             {"tmax", UniVar(0.15)}},
            "RMS amplitude from 0.05 s to 0.15 s: "},
        Row{"amplitude_map",
            {{"x", UniVar("tracf")},
             {"y", UniVar("zero")},
             {"measure", UniVar("mean")},
             {"word", UniVar("tstat")}},
            "mean tstat: "},
        Row{"resample", {{"interval", UniVar(0.003)}}, "!samples that are infinite or NaN: 3"},
        Row{"header_math",
            {{"unmatched", UniVar("keep")}, {"key", UniVar("fldr")}, {"columns", UniVar("tstat")}},
            "!32 of 40 traces have no row in the table and keep their words; the first: trace 1",
            "fldr,tstat\n2,5\n7,9\n"}));

class CountersInPartsTest : public ModuleTest
{
protected:
    CountersInPartsTest() : ModuleTest("kill") {}
};

TEST_F(CountersInPartsTest, AreRefused)
{
    for (int i = 0; i < 6; ++i)
        harness.push({1}, {{"fldr", UniVar(1)}});
    add({{"where", UniVar("count(fldr) > 2")}});

    EXPECT_EQ(differenceOf(harness.run(), harness.runInParts({})), "");
    EXPECT_THAT(harness.runInParts({3}).messagesOf(4),
                testing::Contains("count() and group() count all traces of the job, and a part has "
                                  "not seen those before it; run the job in one process"));
}

} // namespace
