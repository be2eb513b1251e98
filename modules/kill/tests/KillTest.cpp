#include "ModuleTest.h"
#include "TextFiles.h"

#include <cmath>
#include <limits>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class KillTest : public ModuleTest
{
protected:
    KillTest() : ModuleTest("kill") { pushTraces(); }

    void pushTraces()
    {
        for (int i = 1; i <= 8; ++i)
            harness.push({static_cast<float>(i), -1, NAN}, {{"fldr", UniVar(1 + i / 5)},
                                                            {"tracf", UniVar(i)},
                                                            {"offset", UniVar(100 * i - 400)},
                                                            {"qc_flags", UniVar(i % 4)}});
    }

    // Runs a kill with these parameters; which traces it set to zero, from 1.
    std::vector<int> killed(const std::map<std::string, UniVar>& parameters)
    {
        restart();
        pushTraces();
        add(parameters);
        run();
        std::vector<int> numbers;
        for (std::size_t i = 0; i < result.traces.size(); ++i) {
            const std::vector<float>& samples = result.traces[i].samples;
            const bool isZero = samples[0] == 0 && samples[1] == 0 && samples[2] == 0;
            if (isZero)
                numbers.push_back(static_cast<int>(i) + 1);
            else
                EXPECT_EQ(samples[0], static_cast<float>(i + 1)) << "a trace that stays is whole";
        }
        return numbers;
    }

    TextFiles files;
};

TEST_F(KillTest, ConditionsChooseTraces)
{
    EXPECT_THAT(killed({{"where", UniVar("offset > 200")}}), ElementsAre(7, 8));
    EXPECT_THAT(killed({{"where", UniVar("abs(offset) <= 100 && fldr == 2")}}), ElementsAre(5));
    EXPECT_THAT(killed({{"where", UniVar("has(qc_flags, 2)")}}), ElementsAre(2, 3, 6, 7));
    EXPECT_THAT(killed({{"where", UniVar("mod(tracf, 3) == 0")}}), ElementsAre(3, 6));
    EXPECT_THAT(killed({{"where", UniVar("count(fldr) == 2")}}), ElementsAre(2, 6));
    EXPECT_THAT(killed({{"where", UniVar("trace == 4")}}), ElementsAre(4));
    EXPECT_THAT(all("offset"), ElementsAre(-300, -200, -100, 0, 100, 200, 300, 400));
    EXPECT_EQ(history(), "kill where=trace == 4");
    EXPECT_THAT(messages(1), ElementsAre("1 of 8 traces were set to zero"));
}

TEST_F(KillTest, NumbersChooseTraces)
{
    EXPECT_THAT(killed({{"traces", UniVar("3")}}), ElementsAre(3));
    EXPECT_THAT(killed({{"traces", UniVar("1:7:3,8")}}), ElementsAre(1, 4, 7, 8));
    EXPECT_THAT(killed({{"traces", UniVar("6:")}}), ElementsAre(6, 7, 8));
    EXPECT_EQ(history(), "kill traces=6:");
}

TEST_F(KillTest, RowsOfATableChooseTraces)
{
    const std::string path =
        files.write("bad.csv", "fldr,tracf,why\n1,2,dead\n2,5,noisy\n2,5,hum\n2,1,none\n");

    EXPECT_THAT(killed({{"table", UniVar(path)}, {"key", UniVar("fldr\ntracf")}}),
                ElementsAre(2, 5));
    EXPECT_THAT(killed({{"table", UniVar(path)}}), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_THAT(messages(2), ElementsAre("all 8 traces were chosen and set to zero"));
}

TEST_F(KillTest, AnyOfThemIsEnough)
{
    EXPECT_THAT(killed({{"where", UniVar("offset < -200")},
                        {"traces", UniVar("3:4")},
                        {"table", UniVar(files.write("bad.csv", "tracf\n8\n"))}}),
                ElementsAre(1, 3, 4, 8));
}

TEST_F(KillTest, FlagsAndRangesChooseTraces)
{
    EXPECT_THAT(killed({{"flags", UniVar("weak")}}), ElementsAre(2, 3, 6, 7));
    EXPECT_THAT(killed({{"select", UniVar("offset=-100:200:300; fldr=1:2")}}), ElementsAre(3, 6));
    EXPECT_THAT(
        killed(
            {{"flags", UniVar("dead")}, {"where", UniVar("fldr == 2")}, {"match", UniVar("all")}}),
        ElementsAre(5, 7));
    EXPECT_THAT(killed({{"every", UniVar(3)}}), ElementsAre(1, 4, 7));
    EXPECT_THAT(killed({{"table", UniVar(files.write("qc.csv", "trace,flags\n2,\n7,dead\n"))}}),
                ElementsAre(7));
}

TEST_F(KillTest, NoTraceAtAllIsTold)
{
    EXPECT_THAT(killed({{"where", UniVar("fldr == 77")}}), IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("none of 8 traces was chosen; none was set to zero"));
}

TEST_F(KillTest, AConditionWithoutAResultEndsTheJob)
{
    add({{"where", UniVar("1000 / offset > 3")}});

    result = harness.run();

    EXPECT_THAT(messages(4),
                ElementsAre(HasSubstr("trace 4 (fldr 1, tracf 4): \"1000 / offset > 3\": division "
                                      "by zero")));
}

TEST_F(KillTest, SettingsAreRefused)
{
    const std::string path = files.write("bad.csv", "tracf\n8\nx\n");
    const struct
    {
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {{}, "no trace is chosen; give where, traces, select, flags, a table, or every"},
        {{{"where", UniVar("offset = 3")}}, "\"offset = 3\": = does not compare; write =="},
        {{{"traces", UniVar("3:1")}}, "traces: \"3:1\" ends before it begins"},
        {{{"traces", UniVar("x")}},
         "traces: \"x\" in \"x\" is not a number; write numbers and ranges as in 1:100:2,200"},
        {{{"traces", UniVar("1")}, {"key", UniVar("fldr")}},
         "key is given without a table; name its file with table"},
        {{{"table", UniVar(path)}}, path + ":3: tracf is \"x\"; give a finite number"},
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

TEST_F(KillTest, WhatTheQualityControlFlagsIsKilled)
{
    restart();
    for (int i = 0; i < 12; ++i) {
        std::vector<float> samples;
        for (int k = 0; k < 200; ++k)
            samples.push_back(i == 5 ? 0.0F : static_cast<float>(std::sin(0.3 * k + i)));
        harness.push(samples, {{"fldr", UniVar(1)}, {"tracf", UniVar(i)}});
    }
    harness.input[8].samples[100] = std::numeric_limits<float>::quiet_NaN();
    harness.add("check", "libtrace_qc.so");
    add({{"where", UniVar("has(qc_flags, 128)")}});

    run();

    EXPECT_EQ(result.traces[8].samples[100], 0);
    EXPECT_NE(result.traces[7].samples[100], 0);
    EXPECT_THAT(messages(1), ElementsAre("1 of 12 traces were set to zero"));
}

TEST_F(KillTest, EmptyInputIsNoError)
{
    restart();
    add({{"traces", UniVar("1")}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
    EXPECT_THAT(messages(2), IsEmpty());
}

} // namespace
