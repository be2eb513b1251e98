// What a section keeps of its traces: the values that a drawing of all samples would show.
#include "draw/SectionRaster.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace host;
using ::testing::Each;
using ::testing::ElementsAre;

namespace {

constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

// 10 by 20 points: a density picture of it has 20 columns and 40 rows.
constexpr Area plot{0, 0, 10, 20};

std::vector<float> noise(std::size_t samples, unsigned seed)
{
    std::mt19937 dice(seed);
    std::vector<float> trace(samples);
    for (float& sample : trace)
        sample = static_cast<float>(static_cast<int>(dice() % 2001) - 1000);
    if (samples > 10)
        trace[samples / 3] = notANumber;
    return trace;
}

// The strongest sample of rows [y * perRow, (y + 1) * perRow), looked for in the whole trace.
std::vector<double> strongestOf(const std::vector<float>& trace, int64_t first, std::size_t rows,
                                double perRow)
{
    std::vector<double> values(rows, 0.0);
    for (std::size_t y = 0; y < rows; ++y) {
        const double to = static_cast<double>(y + 1) * perRow;
        for (auto i = static_cast<int64_t>(static_cast<double>(y) * perRow);
             static_cast<double>(i) < to; ++i)
        {
            if (i < first || i >= first + static_cast<int64_t>(trace.size()))
                continue;
            const float sample = trace[static_cast<std::size_t>(i - first)];
            if (std::isfinite(sample) && std::fabs(sample) > std::fabs(values[y]))
                values[y] = sample;
        }
    }
    return values;
}

} // namespace

TEST(SectionRasterTest, EachRowHasItsStrongestSampleHoweverTheTraceComes)
{
    for (const std::size_t samples : {41u, 79u, 80u, 81u, 997u, 12345u}) {
        const std::vector<float> trace = noise(samples, 7);
        for (const std::size_t piece : {std::size_t{1}, std::size_t{13}, samples}) {
            SectionRaster raster(plot, false,
                                 {{0, static_cast<int64_t>(samples)}, {5, int64_t{30}}});
            for (std::size_t at = 0; at < samples; at += piece)
                raster.add(0, std::span(trace).subspan(at, std::min(piece, samples - at)));
            raster.add(1, std::span(trace).first(30));
            ASSERT_EQ(raster.rows(), 40u);
            ASSERT_GT(raster.perRow(), 1);
            EXPECT_EQ(raster.of(0), strongestOf(trace, 0, 40, raster.perRow())) << samples;
            EXPECT_EQ(raster.of(1),
                      strongestOf({trace.begin(), trace.begin() + 30}, 5, 40, raster.perRow()))
                << samples;
        }
    }
}

TEST(SectionRasterTest, FewSamplesAreInterpolated)
{
    SectionRaster raster({0, 0, 10, 2}, false, {{0, 2}, {1, 1}});
    raster.add(0, std::vector<float>{4, 8});
    raster.add(1, std::vector<float>{6});
    EXPECT_EQ(raster.perRow(), 0.5);
    EXPECT_THAT(raster.of(0), ElementsAre(4, 5, 7, 8));
    EXPECT_THAT(raster.of(1), ElementsAre(0, 1.5, 4.5, 6));
}

TEST(SectionRasterTest, TracesThatThePictureCannotShowKeepNothing)
{
    const std::vector<float> trace = noise(100, 3);
    for (const bool wiggle : {false, true}) {
        SectionRaster raster(plot, wiggle, std::vector<TracePlace>(1000, {0, 100}));
        for (std::size_t i = 0; i < 1000; ++i)
            raster.add(i, trace);
        std::size_t kept = 0;
        for (std::size_t i = 0; i < 1000; ++i)
            kept += raster.of(i).empty() ? 0 : 1;
        EXPECT_EQ(kept, wiggle ? 14u : 20u); // one for each 0.75 points, or for each column
    }
}

TEST(SectionRasterTest, TheClipIsThatOfAllTracesOrOfEveryNthSample)
{
    SectionRaster small(plot, false, {{0, 4}, {0, 3}, {0, 0}});
    small.add(0, std::vector<float>{1, -2});
    small.add(0, std::vector<float>{3, notANumber});
    small.add(1, std::vector<float>{-4, 5, -6});
    EXPECT_EQ(small.clipAmplitude(100), 6);
    EXPECT_EQ(small.clipAmplitude(50), 4);
    EXPECT_EQ(small.clipAmplitude(0), 1);

    // 8,000,001 samples: every third one counts, from the first of each trace on.
    std::vector<float> trace(8000001, 100);
    for (std::size_t i = 0; i < trace.size(); i += 3)
        trace[i] = 7;
    SectionRaster large(plot, false, {{0, static_cast<int64_t>(trace.size())}});
    for (std::size_t at = 0; at < trace.size(); at += 1000)
        large.add(0, std::span(trace).subspan(at, std::min<std::size_t>(1000, trace.size() - at)));
    EXPECT_EQ(large.clipAmplitude(100), 7);
}

TEST(SectionRasterTest, NothingAtAllHasNoRowsOfSamples)
{
    SectionRaster none(plot, false, {});
    EXPECT_EQ(none.samples(), 0);
    EXPECT_EQ(none.clipAmplitude(98), 0);
}
