#include "ModuleTest.h"
#include "TextFiles.h"
#include "words/Assignment.h"

#include <cmath>
#include <limits>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(AssignmentTest, TheFirstSingleSignAssigns)
{
    const words::Assignment one = words::parseAssignment(" flag=offset<=300 && cdp!=7 ");

    EXPECT_EQ(one.word, "flag");
    EXPECT_EQ(one.formula.text(), "offset<=300 && cdp!=7");
}

TEST(AssignmentTest, OthersAreRefused)
{
    for (const char* text : {"cdp", "cdp == 3", "= 3", "cdp =", "3 = cdp", "a b = 3", "trace = 1",
                             "table.x = 1", "sqrt = 3"})
        EXPECT_THROW(words::parseAssignment(text), std::runtime_error) << text;
}

class HeaderMathTest : public ModuleTest
{
protected:
    HeaderMathTest() : ModuleTest("header_math") {}

    // Two shots of three receivers, and one of the first shot again.
    void pushShots()
    {
        const struct
        {
            int fldr, tracf, sx, gx;
        } rows[] = {{7, 1, 0, 10}, {7, 2, 0, 21}, {7, 3, 0, -31},
                    {9, 1, 5, 10}, {9, 2, 5, 5},  {7, 1, 0, 10}};
        for (const auto& row : rows)
            harness.push({1, 2}, {{"fldr", UniVar(row.fldr)},
                                  {"tracf", UniVar(row.tracf)},
                                  {"sx", UniVar(row.sx)},
                                  {"gx", UniVar(row.gx)},
                                  {"cdpx", UniVar(99)}});
    }

    std::vector<double> reals(const std::string& word)
    {
        std::vector<double> values;
        for (const HarnessTrace& trace : result.traces)
            values.push_back(trace.attributes.at(word).getF64Value());
        return values;
    }

    TextFiles files;
};

TEST_F(HeaderMathTest, IntegersAreRoundedHalvesAwayFromZero)
{
    pushShots();
    add({{"set", UniVar("cdpx = (sx + gx) / 2")}});

    run();

    EXPECT_THAT(all("cdpx"), ElementsAre(5, 11, -16, 8, 5, 5));
    EXPECT_THAT(all("gx"), ElementsAre(10, 21, -31, 10, 5, 10));
    EXPECT_THAT(result.traces[0].samples, ElementsAre(1, 2));
    EXPECT_EQ(history(), "header_math cdpx = (sx + gx) / 2");
}

TEST_F(HeaderMathTest, LaterAssignmentsSeeWhatEarlierOnesStored)
{
    pushShots();
    add({{"set", UniVar("half = gx / 2\nback = half * 2\ngx = gx + 1\ngx = gx * 10")}});

    run();

    EXPECT_THAT(all("half"), ElementsAre(5, 11, -16, 5, 3, 5)); // rounded
    EXPECT_THAT(all("back"), ElementsAre(10, 22, -32, 10, 6, 10));
    EXPECT_THAT(all("gx"), ElementsAre(110, 220, -300, 110, 60, 110));
    EXPECT_EQ(messages(1).size(), 2U);
    EXPECT_THAT(messages(1)[0], HasSubstr("the new word half is an integer of 32 bits"));
}

TEST_F(HeaderMathTest, ConditionsChooseBetweenValues)
{
    pushShots();
    add({{"set", UniVar("trid = gx > 10 ? 2 : gx < 0 ? 3 : 1")}});

    run();

    EXPECT_THAT(all("trid"), ElementsAre(1, 2, 3, 1, 1, 1));
}

TEST_F(HeaderMathTest, CountersRestartWhenAWordChanges)
{
    pushShots();
    add({{"set", UniVar("inshot = count(fldr)\nshot = group(fldr)\nall = count()\nn = trace\n"
                        "both = count(fldr, sx)")}});

    run();

    EXPECT_THAT(all("inshot"), ElementsAre(1, 2, 3, 1, 2, 1));
    EXPECT_THAT(all("shot"), ElementsAre(1, 1, 1, 2, 2, 3));
    EXPECT_THAT(all("all"), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(all("n"), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_THAT(all("both"), ElementsAre(1, 2, 3, 1, 2, 1));
}

TEST_F(HeaderMathTest, WordsHaveTheTypeOfTheSchema)
{
    harness.define("ratio", 4);
    harness.define("exact", 5);
    harness.define("long", 3);
    pushShots();
    add({{"set", UniVar("ratio = gx / 4\nexact = gx / 3\nlong = gx * 1e12")}});

    run();

    EXPECT_THAT(reals("ratio"), ElementsAre(2.5, 5.25, -7.75, 2.5, 1.25, 2.5));
    EXPECT_DOUBLE_EQ(reals("exact")[0], 10.0 / 3);
    EXPECT_EQ(result.traces[1].attributes.at("long").getI64Value(), INT64_C(21000000000000));
}

TEST_F(HeaderMathTest, ResultsThatDoNotFitEndTheJobAndNameTheTrace)
{
    harness.define("real", 4);
    harness.define("long", 3);
    const struct
    {
        const char* set;
        const char* message;
    } rows[] = {
        {"cdpx = 3e9",
         "trace 1 (fldr 7, tracf 1): cdpx: 3e+09 does not fit into an integer of 32 bits"},
        {"cdpx = tracf == 2 ? -2147483648.6 : -2147483648.4",
         "trace 2 (fldr 7, tracf 2): cdpx: -2.14748365e+09 does not fit into an integer of 32 "
         "bits"},
        {"long = 1e16 * tracf",
         "trace 1 (fldr 7, tracf 1): long: 1e+16 is beyond 2^53, where integers are not exact any "
         "more"},
        {"real = 1e39",
         "trace 1 (fldr 7, tracf 1): real: 1e+39 does not fit into a float of 32 bits"},
        {"cdpx = 1 / (gx - sx)",
         "trace 5 (fldr 9, tracf 2): cdpx: \"1 / (gx - sx)\": division by zero, or the logarithm "
         "of zero; avoid it with a condition, as in gx == sx ? 0 : 1 / (gx - sx)"},
    };
    for (const auto& row : rows) {
        restart();
        harness.define("real", 4);
        harness.define("long", 3);
        pushShots();
        add({{"set", UniVar(row.set)}});

        result = harness.run();

        EXPECT_THAT(messages(4), ElementsAre(row.message));
        EXPECT_LT(result.traces.size(), 6U);
    }
}

TEST_F(HeaderMathTest, NumbersThatADoubleCannotHoldAreRefused)
{
    harness.define("id", 3);
    harness.push({1}, {{"id", UniVar(INT64_C(9007199254740993))}});
    add({{"set", UniVar("id = id + 1")}});

    result = harness.run();

    EXPECT_THAT(messages(4), ElementsAre("trace 1: id is 9007199254740993; numbers beyond 2^53 "
                                         "cannot be computed with exactly"));
}

TEST_F(HeaderMathTest, WordsThatAreMissingAreNamed)
{
    pushShots();
    add({{"set", UniVar("cdpx = sx + gxx")}});

    result = harness.run();

    EXPECT_THAT(messages(4),
                ElementsAre("the traces have no header word \"gxx\"; name one that they have"));
}

TEST_F(HeaderMathTest, TextsAreNotNumbers)
{
    harness.define("name", 9);
    harness.push({1}, {{"name", UniVar("left")}, {"cdp", UniVar(1)}});
    add({{"set", UniVar("cdp = name")}});
    result = harness.run();
    EXPECT_THAT(messages(4), ElementsAre(HasSubstr("\"name\" is not a single number")));

    restart();
    harness.define("name", 9);
    harness.push({1}, {{"name", UniVar("left")}, {"cdp", UniVar(1)}});
    add({{"set", UniVar("name = cdp")}});
    runInVain("the header word \"name\" is not a single number; name one that is");
}

TEST_F(HeaderMathTest, ATableIsJoinedByItsFirstColumn)
{
    pushShots();
    add({{"table", UniVar(files.write("t.csv", "fldr,selev,sdel\n9,120.4,3\n7,-80,4\n"))}});

    run();

    EXPECT_THAT(all("selev"), ElementsAre(-80, -80, -80, 120, 120, -80));
    EXPECT_THAT(all("sdel"), ElementsAre(4, 4, 4, 3, 3, 4));
    EXPECT_EQ(history(), "header_math table=t.csv selev sdel");
}

TEST_F(HeaderMathTest, ATableOfSeveralKeysTakesPartInFormulas)
{
    pushShots();
    add({{"table", UniVar(files.write("t.csv", "tracf,fldr,v,note\n1,7,10,x\n2,7,20,y\n3,7,30,z\n"
                                               "1,9,40,x\n2,9,50,y\n"))},
         {"key", UniVar("fldr\ntracf")},
         {"set", UniVar("cdpx = table.v * 2")}});

    run();

    EXPECT_THAT(all("cdpx"), ElementsAre(20, 40, 60, 80, 100, 20));
    EXPECT_EQ(result.traces[0].attributes.count("v"), 0U); // only in the formula
}

TEST_F(HeaderMathTest, ATraceWithoutARowEndsTheJob)
{
    pushShots();
    const std::string path = files.write("t.csv", "fldr,selev\n7,1\n");
    add({{"table", UniVar(path)}, {"key", UniVar("fldr")}});

    result = harness.run();

    EXPECT_THAT(
        messages(4),
        ElementsAre("trace 4 (fldr 9, tracf 1): the table has no row for fldr 9; complete " + path +
                    ", or keep the words of such traces with unmatched: keep"));
}

TEST_F(HeaderMathTest, TracesWithoutARowKeepTheirWordsIfWanted)
{
    pushShots();
    add({{"table", UniVar(files.write("t.csv", "fldr,cdpx\n7,1\n"))},
         {"key", UniVar("fldr")},
         {"unmatched", UniVar("keep")},
         {"set", UniVar("gx = table.cdpx + 100\ntracf = tracf + 5")},
         {"columns", UniVar("cdpx")}});

    run();

    EXPECT_THAT(all("cdpx"), ElementsAre(1, 1, 1, 99, 99, 1));
    EXPECT_THAT(all("gx"), ElementsAre(101, 101, 101, 10, 5, 101));
    EXPECT_THAT(all("tracf"), ElementsAre(6, 7, 8, 6, 7, 6));
    EXPECT_THAT(messages(2),
                ElementsAre("2 of 6 traces have no row in the table and keep their words; the "
                            "first: trace 4 (fldr 9, tracf 1): the table has no row for fldr 9"));
}

TEST_F(HeaderMathTest, SettingsAreRefused)
{
    const std::string path = files.write("t.csv", "fldr,a b\n7,1\n");
    const std::string keyOnly = files.write("k.csv", "fldr\n7\n");
    const struct
    {
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {{}, "there is nothing to do; give assignments with set, or a table"},
        {{{"set", UniVar("cdp")}},
         "\"cdp\" does not assign; write \"word = formula\", as in cdpx = (sx + gx) / 2"},
        {{{"set", UniVar("cdp = table.x")}}, "\"table.x\" uses a table; name its file with table"},
        {{{"set", UniVar("cdp = 1")}, {"key", UniVar("fldr")}},
         "key is given without a table; name its file with table"},
        {{{"set", UniVar("cdp = 1")}, {"columns", UniVar("x")}},
         "columns is given without a table; name its file with table"},
        {{{"table", UniVar(path)}},
         path + ": the column \"a b\" cannot be a header word; choose others with columns"},
        {{{"table", UniVar(path)}, {"key", UniVar("cdp")}},
         path + ": the column \"cdp\" does not exist; the columns are fldr, a b"},
        {{{"table", UniVar(keyOnly)}}, keyOnly + ": the table has no column besides its key"},
        {{{"set", UniVar("cdp = (1")}}, "\"(1\": missing parenthesis"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushShots();
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(HeaderMathTest, SampleCountAndIntervalAreNotWrittenSilently)
{
    harness.push({1}, {{"dt", UniVar(2000)}});
    add({{"set", UniVar("dt = 4000")}});

    run();

    EXPECT_THAT(messages(2), ElementsAre(HasSubstr("use window or resample to change them")));
}

TEST_F(HeaderMathTest, TwoModulesCountForThemselves)
{
    pushShots();
    add({{"set", UniVar("a = count(fldr)")}});
    add({{"set", UniVar("b = count(tracf)")}});

    run();

    EXPECT_THAT(all("a"), ElementsAre(1, 2, 3, 1, 2, 1));
    EXPECT_THAT(all("b"), ElementsAre(1, 1, 1, 1, 1, 1));
}

TEST_F(HeaderMathTest, EmptyInputIsNoError)
{
    add({{"set", UniVar("a = 1")}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
