#include "ModuleTest.h"

#include <cmath>
#include <limits>
#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class HistogramTest : public ModuleTest
{
protected:
    HistogramTest() : ModuleTest("histogram") {}

    std::string noted(const std::string& name)
    {
        return result.moduleMetadata["module1"]["qc.histogram." + name];
    }

    // The heights of the bars: in the outline, each follows its left edge.
    std::map<float, float> bars()
    {
        std::map<float, float> heights;
        bool isBlack = false;
        for (const plotCommandStruct& command : result.pads.at(0).commands) {
            if (command.cmdType == 5)
                isBlack = command.ipen == 1;
            else if (isBlack && heights.count(command.xpage) == 0)
                heights[command.xpage] = command.ypage;
            else if (isBlack)
                heights[command.xpage] = std::max(heights[command.xpage], command.ypage);
        }
        return heights;
    }

    // Where the lines of a pen stand.
    std::vector<float> lines(int pen)
    {
        std::vector<float> places;
        bool isMeant = false;
        for (const plotCommandStruct& command : result.pads.at(0).commands) {
            if (command.cmdType == 5)
                isMeant = command.ipen == pen;
            else if (isMeant && (places.empty() || places.back() != command.xpage))
                places.push_back(command.xpage);
        }
        return places;
    }

    // 1000 samples: 0.001 to 1 in steps, with alternating signs.
    void pushRamp()
    {
        for (int trace = 0; trace < 10; ++trace) {
            std::vector<float> samples;
            for (int i = 1; i <= 100; ++i) {
                const float value = static_cast<float>(100 * trace + i) / 1000;
                samples.push_back(i % 2 == 0 ? value : -value);
            }
            harness.push(samples, {{"fldr", UniVar(trace / 5)}, {"offset", UniVar(25 * trace)}});
        }
    }
};

TEST_F(HistogramTest, PercentilesSuggestClips)
{
    pushRamp();
    add();

    run();

    // The sorted absolute amplitudes are 0.001 to 1; place 99 % of 999 is 989, that of 0.99.
    EXPECT_NEAR(std::stod(noted("p99")), 0.99, 0.99 / 4096 + 0.00005);
    EXPECT_NEAR(std::stod(noted("p99.9")), 0.999, 0.999 / 4096 + 0.00005);
    EXPECT_EQ(noted("count"), "1000");
    EXPECT_EQ(noted("least"), "-0.999");
    EXPECT_EQ(noted("greatest"), "1");
    EXPECT_EQ(noted("rms"), "0.5778") << "root of 1001 * 2001 / 6e6";
    EXPECT_EQ(noted("mean"), "0.0005");
    EXPECT_THAT(messages(1), ElementsAre(HasSubstr("1000 samples of 10 traces from -0.999 to 1, "
                                                   "mean 0.0005, RMS 0.5778; 99 % of the absolute "
                                                   "amplitudes are at most 0.99")));
    ASSERT_THAT(lines(2), SizeIs(2));
    EXPECT_NEAR(lines(2)[0], -0.99, 0.0003);
    EXPECT_NEAR(lines(2)[1], 0.99, 0.0003);
}

TEST_F(HistogramTest, TracesPassUnchanged)
{
    pushRamp();
    const std::vector<float> given = harness.input[3].samples;
    add();

    run();

    ASSERT_THAT(result.traces, SizeIs(10));
    EXPECT_EQ(result.traces[3].samples, given);
}

TEST_F(HistogramTest, WholeSamplesAreCountedOneByOne)
{
    harness.push({1, 1, 2, -3, 0, 0});
    harness.push({2, 2, 2, -1, 0, 1});
    add({{"min", UniVar(-4.0)}, {"max", UniVar(4.0)}});

    run();

    const std::map<float, float> heights = bars();
    EXPECT_EQ(heights.at(-3.5F), 1);
    EXPECT_EQ(heights.at(0.5F), 3);
    EXPECT_EQ(heights.at(1.5F), 4);
    EXPECT_EQ(noted("count"), "9");
    EXPECT_EQ(noted("zeros"), "3");
    EXPECT_THAT(result.pads[0].title, HasSubstr("; zeros left out: 3"));

    restart();
    harness.push({1, 0, 0, 0});
    add({{"zeros", UniVar(1)}});
    run();
    EXPECT_EQ(noted("count"), "4");
    EXPECT_EQ(noted("zeros"), "0");
}

TEST_F(HistogramTest, HeadersAreCounted)
{
    pushRamp();
    add({{"word", UniVar("fldr")}, {"percentiles", floats({50, 100})}});

    run();

    EXPECT_EQ(noted("count"), "10");
    EXPECT_EQ(noted("p100"), "1");
    EXPECT_EQ(bars().at(-0.5F), 5) << "zeros of a word count";
    EXPECT_THAT(result.pads[0].title, HasSubstr("\nx: fldr\ny: traces per bar of width 1\n"));
    EXPECT_THAT(lines(3), ElementsAre(1)) << "a percentile of values has one side";
}

TEST_F(HistogramTest, MeasuresOfTheQualityControlAreCounted)
{
    harness.define("qc_rms", 4);
    for (int i = 1; i <= 4; ++i)
        harness.push(std::vector<float>(50, static_cast<float>(i)), {{"fldr", UniVar(1)}});
    harness.add("check", "libtrace_qc.so");
    add({{"word", UniVar("qc_rms")}});

    run();

    EXPECT_EQ(noted("mean"), "2.5");
    EXPECT_EQ(noted("greatest"), "4");
}

TEST_F(HistogramTest, AWindowIsOneOfTimes)
{
    harness.push({1, 2, 3, 4, 5, 6}, {{"delrt", UniVar(100)}}); // every 2 ms
    harness.push({7, 8, 9, 9, 9, 9}, {{"delrt", UniVar(106)}});
    harness.push({9, 9, 9, 9, 9, 9}, {{"delrt", UniVar(500)}});
    add({{"tmin", UniVar(0.104)}, {"tmax", UniVar(0.108)}});

    run();

    EXPECT_EQ(noted("count"), "5") << "3, 4, 5 and 7, 8";
    EXPECT_EQ(noted("mean"), "5.4");
    EXPECT_THAT(messages(2),
                ElementsAre("trace 3 has samples from 0.5 to 0.51 s, none of them in the window "
                            "from 0.104 s to 0.108 s; give times with their unit (900 ms)",
                            "1 of 3 traces have no sample in the window"));
}

TEST_F(HistogramTest, WildSamplesDoNotHideTheOthers)
{
    std::vector<float> samples(10000);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(static_cast<int>(i % 200) - 100) + 0.5F;
    samples[77] = 1e9F;
    harness.push(samples);
    add();

    run();

    std::istringstream range(
        result.pads[0].title.substr(result.pads[0].title.find("xrange: ") + 8));
    double left = 0;
    double right = 0;
    range >> left >> right;
    EXPECT_EQ(left, -99.5);
    EXPECT_NEAR(right, 1.2 * 99.5, 0.1);
    EXPECT_THAT(result.pads[0].title, HasSubstr("; 0.01 % are outside the picture"));
    EXPECT_EQ(noted("greatest"), "1e+09");
}

TEST_F(HistogramTest, LogarithmsShowRareAmplitudes)
{
    std::vector<float> samples(1001, 1.0F);
    samples[0] = 3;
    harness.push(samples);
    add({{"scale", UniVar("log")}, {"max", UniVar(3.0)}});

    run();

    EXPECT_FLOAT_EQ(bars().at(0.5F), 3);
    EXPECT_FLOAT_EQ(bars().at(2.5F), 0);
    EXPECT_FLOAT_EQ(bars().at(1.5F), 3) << "the side of the bar before; an empty bar is below 1";
    EXPECT_THAT(result.pads[0].title, HasSubstr("\ny: log10 of samples per bar"));
}

TEST_F(HistogramTest, OddSamplesAreLeftOut)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    harness.push({1, nan, INFINITY, -2});
    add();

    run();

    EXPECT_EQ(noted("count"), "2");
    EXPECT_EQ(noted("least"), "-2");
    EXPECT_THAT(messages(2), ElementsAre("2 samples are infinite or NaN and left out"));
}

TEST_F(HistogramTest, NothingToCountIsTold)
{
    harness.push({0, 0, 0});
    add();

    run();

    EXPECT_THAT(result.pads, IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("there is nothing to draw: of 1 traces, 3 samples are 0, "
                                         "and 0 infinite or NaN"));
}

TEST_F(HistogramTest, ValuesBeyondTheLimitOfMemoryAreRefused)
{
    constexpr int room = 65536; // values, the last power of two that fits
    for (int i = 0; i <= room; ++i)
        harness.push({1}, {{"cdp", UniVar(i)}});
    add({{"word", UniVar("cdp")}, {"memory_limit", UniVar(1)}});

    result = harness.run();

    EXPECT_THAT(messages(4), ElementsAre("counting the values of more than 65536 traces would "
                                         "need 2 MB of memory, and memory_limit is 1 MB; raise "
                                         "memory_limit, or count those of some of them"));
    EXPECT_EQ(noted("count"), "");
}

TEST_F(HistogramTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        std::string message;
    } rows[] = {
        {{{"min", UniVar(2.0)}, {"max", UniVar(2.0)}},
         "min is 2 and max is 2; min must be below max"},
        {{{"tmin", UniVar(2.0)}, {"tmax", UniVar(1.0)}},
         "tmin is 2 s and tmax is 1 s; tmin must be below tmax"},
        {{{"percentiles", floats({99.9, 99})}},
         "percentiles is not in ascending order; sort the list"},
        {{{"percentiles", floats({101})}},
         "percentiles holds 101 percent; give a list of 1 to 5 numbers from 0 to 100"},
        {{{"word", UniVar("offset")}, {"tmin", UniVar(1.0)}},
         "tmin is given with word; a window is one of samples"},
        {{{"word", UniVar("ofset")}},
         "the traces have no header word \"ofset\"; name one that they have"},
        {{{"bins", UniVar(0)}}, "bins is 0; give a whole number from 1 to 10000"},
        {{{"memory_limit", UniVar(10)}},
         "counting samples would need 17 MB of memory, and memory_limit is 10 MB; raise "
         "memory_limit, or count a header word"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushRamp();
        add(row.parameters);

        runInVain(row.message);
    }
}

} // namespace
