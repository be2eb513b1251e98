#include "ModuleTest.h"
#include "TextFiles.h"

#include <cmath>
#include <numbers>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ShiftTest : public ModuleTest
{
protected:
    ShiftTest() : ModuleTest("shift") {}

    // Samples every 2 ms.
    void pushTraces(const std::vector<int>& statics)
    {
        int number = 0;
        for (const int milliseconds : statics)
            harness.push({1, 2, 3, 4, 5}, {{"tstat", UniVar(milliseconds)},
                                           {"fldr", UniVar(++number)},
                                           {"delrt", UniVar(100)}});
    }

    TextFiles files;
};

TEST_F(ShiftTest, AConstantMovesAllTracesLater)
{
    pushTraces({0, 0});
    add({{"time", UniVar(0.004)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 1, 2, 3));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(0, 0, 1, 2, 3));
    EXPECT_THAT(all("delrt"), ElementsAre(100, 100));
    EXPECT_EQ(history(), "shift time=0.004 s");
}

TEST_F(ShiftTest, AWordIsInMilliseconds)
{
    pushTraces({2, -6, 0});
    add({{"word", UniVar("tstat")}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(4, 5, 0, 0, 0));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(all("tstat"), ElementsAre(2, -6, 0));
    EXPECT_EQ(history(), "shift word=tstat");
}

TEST_F(ShiftTest, ATableIsInMillisecondsAndJoinedByItsKey)
{
    pushTraces({0, 0});
    add({{"table", UniVar(files.write("s.csv", "fldr,shift,other\n2,-2.0,x\n1,4,y\n"))}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 1, 2, 3));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(2, 3, 4, 5, 0));
    EXPECT_EQ(history(), "shift table=s.csv column=shift");
}

TEST_F(ShiftTest, AllShiftsAreAddedAndTakenOffInReverse)
{
    const std::string path = files.write("s.csv", "tstat,fldr,ms\n2,1,8\n");
    const std::map<std::string, UniVar> settings = {{"time", UniVar(-0.004)},
                                                    {"word", UniVar("tstat")},
                                                    {"table", UniVar(path)},
                                                    {"key", UniVar("fldr\ntstat")},
                                                    {"column", UniVar("ms")}};
    pushTraces({2});
    add(settings);
    run();
    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 0, 1, 2)); // -4 + 2 + 8 ms

    restart();
    pushTraces({2});
    auto reversed = settings;
    reversed["reverse"] = UniVar(1);
    add(reversed);
    run();
    EXPECT_THAT(result.traces[0].samples, ElementsAre(4, 5, 0, 0, 0));
    EXPECT_EQ(history(), "shift time=-0.004 s word=tstat table=s.csv column=ms reverse=yes");
}

TEST_F(ShiftTest, FractionsOfSamplesMoveAPulseExactly)
{
    const auto pulse = [](double ms) {
        const double from = (ms - 200) / 30;
        return std::exp(-from * from) * std::cos(2 * std::numbers::pi * 0.04 * ms);
    };
    harness.define("residual", 4);
    std::vector<float> samples;
    for (int i = 0; i < 201; ++i)
        samples.push_back(static_cast<float>(pulse(i * 2.0)));
    harness.push(samples, {{"residual", UniVar(3.37F)}});
    add({{"word", UniVar("residual")}});

    run();

    for (int i = 0; i < 201; ++i)
        EXPECT_NEAR(result.traces[0].samples[static_cast<std::size_t>(i)], pulse(i * 2.0 - 3.37F),
                    2e-4);
}

TEST_F(ShiftTest, ShiftsBeyondTheRecordAreTold)
{
    pushTraces({2, 3000, -3000});
    add({{"word", UniVar("tstat")}});

    run();

    EXPECT_THAT(result.traces[1].samples, Each(0));
    EXPECT_THAT(messages(2),
                ElementsAre("trace 2 (fldr 2) is shifted by 3000 ms and has only 10 ms: it becomes "
                            "zeros; words and tables are in milliseconds, time has a unit (20 ms)",
                            "2 of 3 traces were shifted by more than their length and became "
                            "zeros"));
}

TEST_F(ShiftTest, AWordWithoutValuesIsTold)
{
    pushTraces({0, 0});
    add({{"word", UniVar("tstat")}});

    run();

    EXPECT_THAT(messages(2),
                ElementsAre("tstat is 0 in all 2 traces, and shifted none of them; name a header "
                            "word that has values with word"));
}

TEST_F(ShiftTest, TracesThatTheTableLacks)
{
    const std::string path = files.write("s.csv", "fldr,shift\n1,2\n");
    pushTraces({0, 0});
    add({{"table", UniVar(path)}});
    result = harness.run();
    EXPECT_THAT(messages(4),
                ElementsAre("trace 2 (fldr 2): the table has no row for fldr 2; complete " + path +
                            ", or leave such traces without its shift with unmatched: keep"));

    restart();
    pushTraces({0, 0});
    add({{"table", UniVar(path)}, {"unmatched", UniVar("keep")}});
    run();
    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(messages(2), ElementsAre(HasSubstr("1 of 2 traces have no row in the table")));
}

TEST_F(ShiftTest, ShiftsThatAreNotFiniteEndTheJob)
{
    harness.define("residual", 4);
    harness.push({1}, {{"residual", UniVar(std::nanf(""))}});
    add({{"word", UniVar("residual")}});

    runInVain("trace 1: residual is nan; a shift is a finite number of milliseconds");
}

TEST_F(ShiftTest, SamplesThatAreNotFiniteCountAsZeros)
{
    harness.push({1, NAN, 3});
    add({{"time", UniVar(0.002)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 1, 0));
    EXPECT_THAT(messages(2), ElementsAre(HasSubstr("samples that are infinite or NaN: 1")));
}

TEST_F(ShiftTest, SettingsAreRefused)
{
    const std::string path = files.write("s.csv", "fldr,ms\n1,2\n");
    const struct
    {
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {{}, "no shift is given; give time, word or table"},
        {{{"time", UniVar(2e6)}}, "time is 2e+06 s; give a number from -1000000 to 1000000"},
        {{{"time", UniVar(1.0)}, {"key", UniVar("fldr")}},
         "key is given without a table; name its file with table"},
        {{{"table", UniVar(path)}},
         path + ": the column \"shift\" does not exist; the columns are fldr, ms"},
        {{{"word", UniVar("statics")}},
         "the traces have no header word \"statics\"; name one that they have"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushTraces({1});
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(ShiftTest, SampleIntervalIsRequired)
{
    harness.sampleInterval = 0;
    pushTraces({1});
    add({{"time", UniVar(1.0)}});

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(ShiftTest, TracesWithoutSamplesAndEmptyInputPass)
{
    harness.push({}, {{"cdp", UniVar(7)}});
    add({{"time", UniVar(1.0)}});
    run();
    EXPECT_THAT(all("cdp"), ElementsAre(7));

    restart();
    add({{"time", UniVar(1.0)}});
    run();
    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
