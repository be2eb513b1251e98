#include "../window_math.h"
#include "ModuleTest.h"

#include <limits>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

// ---- Arithmetic ----

TEST(WindowMathTest, SamplesOfATimeRangeIncludeBothEnds)
{
    EXPECT_EQ(samplesBetween(0, 8000, 2000), 5);
    EXPECT_EQ(samplesBetween(0, 9999, 2000), 5);
    EXPECT_EQ(samplesBetween(-4000, 4000, 2000), 5);
    EXPECT_EQ(samplesBetween(0.1 * 1e6, 0.3 * 1e6, 1000), 201); // 0.3 - 0.1 is below 0.2
    EXPECT_EQ(samplesBetween(4000, 4000, 2000), 1);
    EXPECT_EQ(samplesBetween(4000, 3999, 2000), 0);
    EXPECT_EQ(samplesBetween(-1e12, 1e12, 1), INT64_C(2000000000001));
}

TEST(WindowMathTest, NearestSampleCountsFromTheDelay)
{
    EXPECT_EQ(nearestSample(8000, 0, 2000), 4);
    EXPECT_EQ(nearestSample(8900, 0, 2000), 4);
    EXPECT_EQ(nearestSample(8000, 100000, 2000), -46);
    EXPECT_EQ(nearestSample(0, -4000, 2000), 2);
}

TEST(WindowMathTest, SamplesOutsideOfTheTraceAreZeros)
{
    const std::vector<float> in = {1, 2, 3};
    const struct
    {
        std::int64_t first;
        int found;
        std::vector<float> out;
    } rows[] = {
        {0, 3, {1, 2, 3, 0}},
        {1, 2, {2, 3, 0, 0}},
        {-1, 3, {0, 1, 2, 3}},
        {-3, 1, {0, 0, 0, 1}},
        {3, 0, {0, 0, 0, 0}},
        {-4, 0, {0, 0, 0, 0}},
        {INT64_C(1) << 40, 0, {0, 0, 0, 0}},
        {-(INT64_C(1) << 40), 0, {0, 0, 0, 0}},
    };
    for (const auto& row : rows) {
        std::vector<float> out(4, 77);
        EXPECT_EQ(copyWindow(in.data(), 3, row.first, out.data(), 4), row.found) << row.first;
        EXPECT_EQ(out, row.out) << row.first;
    }
    std::vector<float> cut(1, 77);
    EXPECT_EQ(copyWindow(in.data(), 3, 1, cut.data(), 1), 1);
    EXPECT_THAT(cut, ElementsAre(2));
}

// ---- In a job ----

class WindowTest : public ModuleTest
{
protected:
    WindowTest() : ModuleTest("window") {}

    void pushTrace(int delay, std::map<std::string, UniVar> more = {})
    {
        more["delrt"] = UniVar(delay);
        more["ns"] = UniVar(5);
        more["dt"] = UniVar(2000);
        harness.push({1, 2, 3, 4, 5}, more);
    }
};

TEST_F(WindowTest, CutsAndSaysSoInTheHeader)
{
    pushTrace(0);
    pushTrace(0);
    add({{"start", UniVar(0.002)}, {"end", UniVar(0.006)}});

    run();

    ASSERT_THAT(result.traces, SizeIs(2));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(2, 3, 4));
    EXPECT_EQ(result.traceLength, 3);
    EXPECT_EQ(result.sampleInterval, 2000);
    EXPECT_THAT(all("ns"), ElementsAre(3, 3));
    EXPECT_THAT(all("dt"), ElementsAre(2000, 2000));
    EXPECT_THAT(all("delrt"), ElementsAre(2, 2));
    EXPECT_EQ(history(), "window start=0.002 s end=0.006 s samples=3");
    EXPECT_THAT(messages(1), IsEmpty());
    EXPECT_THAT(messages(2), IsEmpty());
}

TEST_F(WindowTest, ExtendsWithZeros)
{
    pushTrace(0);
    add({{"start", UniVar(-0.004)}, {"end", UniVar(0.010)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(0, 0, 1, 2, 3, 4, 5, 0));
    EXPECT_THAT(all("delrt"), ElementsAre(-4));
    EXPECT_THAT(messages(1),
                ElementsAre("1 of 1 traces were extended with zeros, by up to 3 samples"));
}

TEST_F(WindowTest, TracesOfDifferentDelaysGetTheSameTimes)
{
    pushTrace(0);
    pushTrace(4);
    pushTrace(-2);
    add({{"start", UniVar(0.004)}, {"end", UniVar(0.008)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(3, 4, 5));
    EXPECT_THAT(result.traces[1].samples, ElementsAre(1, 2, 3));
    EXPECT_THAT(result.traces[2].samples, ElementsAre(4, 5, 0));
    EXPECT_THAT(all("delrt"), ElementsAre(4, 4, 4));
}

TEST_F(WindowTest, StartOrEndAloneKeepsTheOtherEnd)
{
    pushTrace(0);
    add({{"start", UniVar(0.006)}});
    run();
    EXPECT_THAT(result.traces[0].samples, ElementsAre(4, 5));

    restart();
    pushTrace(0);
    add({{"end", UniVar(0.012)}});
    run();
    EXPECT_THAT(result.traces[0].samples, ElementsAre(1, 2, 3, 4, 5, 0, 0));
}

// The length of the output is fixed before the first delay is known.
TEST_F(WindowTest, StartAloneIsRefusedWhereTracesHaveADelay)
{
    pushTrace(100, {{"fldr", UniVar(8)}});
    add({{"start", UniVar(0.006)}});

    runInVain("trace 1 (fldr 8) begins at 0.1 s (delrt); give both start and end for such traces");
}

TEST_F(WindowTest, TheWindowBeginsAtTheNearestSample)
{
    pushTrace(1);
    add({{"start", UniVar(0.0044)}, {"end", UniVar(0.0085)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(3, 4, 5)); // 5, 7, 9 ms
    EXPECT_THAT(all("delrt"), ElementsAre(5));
}

TEST_F(WindowTest, BeginningsBetweenMillisecondsAreTold)
{
    harness.sampleInterval = 250;
    pushTrace(0);
    add({{"start", UniVar(0.0005)}, {"end", UniVar(0.001)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(3, 4, 5));
    EXPECT_THAT(all("delrt"), ElementsAre(1));
    EXPECT_THAT(messages(2), ElementsAre(HasSubstr("of the first such trace at 0.0005 s")));
}

TEST_F(WindowTest, AWindowBesideTheRecordIsToldAtOnce)
{
    pushTrace(0);
    pushTrace(0);
    add({{"start", UniVar(100.0)}, {"end", UniVar(100.004)}});

    run();

    EXPECT_THAT(result.traces[1].samples, ElementsAre(0, 0, 0));
    EXPECT_THAT(
        messages(2),
        ElementsAre("trace 1 has samples from 0 to 0.008 s, and the window is from 100 s to "
                    "100.004 s: all samples of the output are zeros; give times with their "
                    "unit (900 ms)",
                    "2 of 2 traces have no sample in the window and became zeros"));
}

TEST_F(WindowTest, AWindowThatIsMostlyZerosIsToldOnce)
{
    pushTrace(0);
    pushTrace(0);
    add({{"end", UniVar(2.0)}});

    run();

    EXPECT_THAT(result.traces[1].samples, SizeIs(1001));
    EXPECT_THAT(messages(2), ElementsAre(HasSubstr("996 of 1001 samples of the output are zeros")));
}

TEST_F(WindowTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{}, "there is nothing to cut; give start, end, or both"},
        {{{"start", UniVar(0.5)}, {"end", UniVar(0.25)}},
         "start is 0.5 s and end is 0.25 s; end must not be before start"},
        {{{"start", UniVar(100.0)}},
         "start is 100 s, and the traces end at 0.008 s; give a time before that, with its unit "
         "(900 ms)"},
        {{{"end", UniVar(-1.0)}},
         "end is -1 s, before the first sample; give a later one, or start as well"},
        {{{"end", UniVar(2e6)}}, "end is 2e+06 s; give a number from -1000000 to 1000000"},
        {{{"start", UniVar(-1e6)}, {"end", UniVar(1e6)}},
         "a window from -1000000 s to 1000000 s has 1000000001 samples, and traces have at most "
         "536870911; give times with their unit (900 ms)"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushTrace(0);
        add(row.parameters);

        runInVain(row.message);
    }
}

TEST_F(WindowTest, SampleIntervalIsRequired)
{
    harness.sampleInterval = 0;
    pushTrace(0);
    add({{"end", UniVar(1.0)}});

    runInVain("the input has no sample interval; the module before this one has to set it");
}

TEST_F(WindowTest, TracesWithoutHeaderWordsGetADelay)
{
    harness.push({1, 2, 3}, {{"cdp", UniVar(3)}});
    add({{"start", UniVar(0.002)}});

    run();

    EXPECT_THAT(result.traces[0].samples, ElementsAre(2, 3));
    EXPECT_THAT(all("delrt"), ElementsAre(2));
    EXPECT_EQ(result.traces[0].attributes.count("ns"), 0U);
}

TEST_F(WindowTest, EmptyInputIsNoError)
{
    pushTrace(0);
    harness.input.clear();
    harness.input.shrink_to_fit();
    add({{"start", UniVar(0.0)}, {"end", UniVar(0.01)}});

    run();

    EXPECT_THAT(result.traces, IsEmpty());
}

} // namespace
