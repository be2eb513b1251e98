#include "ModuleTest.h"
#include "TextFiles.h"
#include "words/QualityFlags.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SelectTest : public ModuleTest
{
protected:
    SelectTest() : ModuleTest("select") { pushTraces(); }

    // Trace i of 12 has the samples i and -i, and flags in turn.
    void pushTraces()
    {
        harness.define("qc_rms", 4);
        for (int i = 1; i <= 12; ++i)
            harness.push({static_cast<float>(i), static_cast<float>(-i)},
                         {{"fldr", UniVar(1 + (i - 1) / 6)},
                          {"tracf", UniVar(1 + (i - 1) % 6)},
                          {"filetrace", UniVar(100 + i)},
                          {"qc_rms", UniVar(0.5F * static_cast<float>(i))},
                          {"qc_flags", UniVar(i == 3   ? 1
                                              : i == 7 ? 2 + 256
                                                       : 0)}});
    }

    // Which traces come out, by their first sample.
    std::vector<int> kept(const std::map<std::string, UniVar>& parameters)
    {
        restart();
        pushTraces();
        add(parameters);
        run();
        std::vector<int> numbers;
        for (const HarnessTrace& trace : result.traces) {
            const int number = static_cast<int>(trace.samples[0]);
            EXPECT_EQ(trace.samples[1], -trace.samples[0]);
            EXPECT_EQ(trace.attributes.at("filetrace").getI32Value(), 100 + number);
            numbers.push_back(number);
        }
        return numbers;
    }

    TextFiles files;
};

TEST_F(SelectTest, ConditionsAndNumbersChooseTraces)
{
    EXPECT_THAT(kept({{"where", UniVar("qc_rms > 5 && fldr == 2")}}), ElementsAre(11, 12));
    EXPECT_THAT(kept({{"traces", UniVar("2,9:11")}}), ElementsAre(2, 9, 10, 11));
    EXPECT_EQ(history(), "select action=keep match=all traces=2,9:11");
    EXPECT_THAT(messages(1), ElementsAre("4 of 12 traces were kept, 8 dropped"));
}

TEST_F(SelectTest, RangesOfHeaderWordsChooseTraces)
{
    EXPECT_THAT(kept({{"select", UniVar("tracf=2:6:2; fldr=2")}}), ElementsAre(8, 10, 12));
    EXPECT_THAT(kept({{"select", UniVar("traces=:3")}}), ElementsAre(1, 2, 3));
    EXPECT_THAT(kept({{"select", UniVar("qc_rms=1:2")}}), ElementsAre(2, 3, 4));
}

TEST_F(SelectTest, FlagsAreDroppedByTheirNames)
{
    EXPECT_THAT(kept({{"action", UniVar("drop")}, {"flags", UniVar("dead\nnoisy")}}),
                ElementsAre(1, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12));
    EXPECT_THAT(kept({{"flags", UniVar("hum")}}), ElementsAre(7));
    EXPECT_THAT(kept({{"flags", UniVar("any")}}), ElementsAre(3, 7));
    EXPECT_THAT(kept({{"flags", UniVar("noisy")}}), IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("0 of 12 traces were kept, 12 dropped; no trace is left "
                                         "for the modules that follow"));
}

TEST_F(SelectTest, RulesCombineAsTold)
{
    const std::map<std::string, UniVar> rules = {{"where", UniVar("tracf == 1")},
                                                 {"flags", UniVar("any")}};
    EXPECT_THAT(kept(rules), ElementsAre(7));
    std::map<std::string, UniVar> loose = rules;
    loose["match"] = UniVar("any");
    EXPECT_THAT(kept(loose), ElementsAre(1, 3, 7));
}

TEST_F(SelectTest, EveryThinsWhatIsChosen)
{
    EXPECT_THAT(kept({{"every", UniVar(5)}}), ElementsAre(1, 6, 11));
    EXPECT_THAT(kept({{"every", UniVar(2)}, {"where", UniVar("fldr == 2")}}),
                ElementsAre(7, 9, 11));
    EXPECT_THAT(kept({{"every", UniVar(4)}, {"action", UniVar("drop")}}),
                ElementsAre(2, 3, 4, 6, 7, 8, 10, 11, 12));
    EXPECT_THAT(kept({{"every", UniVar(2147483647)}}), ElementsAre(1));
}

TEST_F(SelectTest, FilesOfNumbersChooseTraces)
{
    EXPECT_THAT(kept({{"table", UniVar(files.write("numbers.txt", "# bad\n4\n11\n"))}}),
                ElementsAre(4, 11));
    EXPECT_THAT(kept({{"table", UniVar(files.write("words.txt", "1 ; 2\n2 ; 6\n"))},
                      {"key", UniVar("fldr\ntracf")}}),
                ElementsAre(2, 12));
    EXPECT_THAT(kept({{"table", UniVar(files.write("named.csv", "tracf,why\n5,rain\n"))}}),
                ElementsAre(5, 11));
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(SelectTest, KeysThatNoTraceHasAreTold)
{
    const std::string path = files.write("numbers.txt", "4\n111\n112\n");

    EXPECT_THAT(kept({{"table", UniVar(path)}}), ElementsAre(4));

    EXPECT_THAT(messages(2),
                ElementsAre(path + ": 2 of 3 keys are those of no trace; check that the table "
                                   "belongs to these traces"));
}

TEST_F(SelectTest, FlaggedRowsOfAQualityTableCount)
{
    const std::string unique =
        files.write("unique.csv", "trace,filetrace,flags\n1,102,dead\n2,101,\n3,109,weak hum\n");
    EXPECT_THAT(kept({{"table", UniVar(unique)}}), ElementsAre(2, 9));
    EXPECT_THAT(kept({{"table", UniVar(unique)}, {"flags", UniVar("hum\nbias")}}), ElementsAre(9));
    // The numbers of two files, and numbers that are not known, name no trace.
    const std::string twice =
        files.write("twice.csv", "trace,filetrace,flags\n1,102,dead\n2,102,\n3,102,weak\n");
    EXPECT_THAT(kept({{"table", UniVar(twice)}}), ElementsAre(1, 3));
    const std::string unknown =
        files.write("unknown.csv", "trace,filetrace,flags\n1,,\n12,,weak\n");
    EXPECT_THAT(kept({{"table", UniVar(unknown)}}), ElementsAre(12));
    EXPECT_THAT(kept({{"table", UniVar(unknown)}, {"flags", UniVar("hum")}}), IsEmpty());
}

TEST_F(SelectTest, WhatIsCheckedIsDropped)
{
    const std::string table = files.path("qc.csv");
    const auto push = [&] {
        restart();
        for (int i = 0; i < 12; ++i) {
            std::vector<float> samples;
            for (int k = 0; k < 200; ++k)
                samples.push_back(i == 5 ? 0.0F : static_cast<float>(std::sin(0.3 * k + 0.2 * i)));
            harness.push(samples, {{"fldr", UniVar(1)}, {"tracf", UniVar(i + 1)}});
        }
    };
    push();
    harness.add("check", "libtrace_qc.so").parameters["table"] = UniVar(table);
    add({{"action", UniVar("drop")}, {"flags", UniVar("dead")}});
    run();
    EXPECT_THAT(all("tracf"), ElementsAre(1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12));

    // The same by the table, in a job of its own.
    push();
    add({{"action", UniVar("drop")}, {"flags", UniVar("dead")}, {"table", UniVar(table)}});
    run();
    EXPECT_THAT(all("tracf"), ElementsAre(1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 12));
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(SelectTest, EachFlagOfTheQualityControlHasItsNumber)
{
    int number = 1;
    for (const words::QualityFlag& flag : words::qualityFlags) {
        EXPECT_EQ(words::flagMask({flag.name}), number) << flag.name;
        number *= 2;
    }
    EXPECT_EQ(words::flagMask({"any"}), 16383);
    EXPECT_EQ(words::flagMask({"unlike", "dead"}), 8193);
    EXPECT_THROW(words::flagMask({"dead", "ded"}), std::runtime_error);
}

// So that jobs are checked before they run.
TEST_F(SelectTest, ManifestsListTheFlags)
{
    std::string all = "[any";
    for (const words::QualityFlag& flag : words::qualityFlags)
        all += std::string(",") + flag.name;
    for (const char* module : {"select", "kill"}) {
        std::ifstream file(VORN_TEST_HOME "/lib/" + std::string(module) + ".yaml");
        std::string text(std::istreambuf_iterator<char>(file), {});
        text.erase(
            std::remove_if(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\n'; }),
            text.end());
        EXPECT_THAT(text, HasSubstr(all + "]")) << module;
    }
}

TEST_F(SelectTest, SettingsAreRefused)
{
    const std::string path = files.write("bad.csv", "tracf\n8\nx\n");
    const struct
    {
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {{}, "no trace is chosen; give where, traces, select, flags, a table, or every"},
        {{{"every", UniVar(0)}}, "every is 0; give a whole number of at least 1"},
        {{{"select", UniVar("tracf=x")}},
         "select: tracf: \"x\" in \"x\" is not a number; write numbers and ranges as in "
         "1:100:2,200"},
        {{{"select", UniVar("tracf")}},
         "select: \"tracf\" is not WORD=NUMBERS, as in offset=100:2000"},
        {{{"flags", UniVar("ded")}},
         "flags holds \"ded\"; give a list of words out of any, dead, weak, noisy, clipped, spike, "
         "reversed, ringing, invalid, hum, bias, duplicate, shifted, geometry, unlike"},
        {{{"table", UniVar(path)}}, path + ":3: tracf is \"x\"; give a finite number"},
        {{{"table", UniVar(path)}, {"key", UniVar("cdp")}},
         path + ": the column \"cdp\" does not exist; the columns are tracf"},
        {{{"where", UniVar("offst > 3")}},
         "the traces have no header word \"offst\"; name one that they have"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushTraces();
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(SelectTest, FlagsNeedAQualityControl)
{
    restart();
    harness.push({1}, {{"fldr", UniVar(1)}});
    add({{"flags", UniVar("dead")}});

    runInVain("flags: the traces have no attribute qc_flags; put trace_qc before this module, or "
              "name the table that it has written with table");
}

TEST_F(SelectTest, EmptyInputIsNoError)
{
    restart();
    add({{"traces", UniVar("1")}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
    EXPECT_THAT(messages(2), IsEmpty());
}

} // namespace
