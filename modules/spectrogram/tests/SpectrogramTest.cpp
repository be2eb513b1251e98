// Pictures as the host gets them.
#include "ModuleTest.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numbers>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr double twoPi = 2 * std::numbers::pi;

class SpectrogramTest : public ModuleTest
{
protected:
    SpectrogramTest() : ModuleTest("spectrogram") {}

    // A second of 2 ms: a sinusoid of amplitude 8 at 50 Hz, from the middle on of 2 at 125 Hz.
    void pushTwo(int delay = 0, float factor = 1, int offset = 0)
    {
        std::vector<float> samples;
        for (int i = 0; i < 500; ++i)
            samples.push_back(factor *
                              static_cast<float>(i < 250 ? 8 * std::sin(twoPi * 50 * i * 0.002)
                                                         : 2 * std::sin(twoPi * 125 * i * 0.002)));
        harness.push(samples, {{"fldr", UniVar(3)},
                               {"tracf", UniVar(static_cast<int>(harness.input.size()) + 1)},
                               {"offset", UniVar(offset)},
                               {"delrt", UniVar(delay)}});
    }

    struct Axes
    {
        double left, right, bottom, top;
    };

    static Axes axesOf(const HarnessPad& pad)
    {
        Axes axes{};
        const char* x = std::strstr(pad.title.c_str(), "xrange: ");
        const char* y = std::strstr(pad.title.c_str(), "yrange: ");
        EXPECT_EQ(std::sscanf(x, "xrange: %lf %lf", &axes.left, &axes.right), 2);
        EXPECT_EQ(std::sscanf(y, "yrange: %lf %lf", &axes.bottom, &axes.top), 2);
        return axes;
    }

    // The value of the cell at a time and a frequency.
    static float cellAt(const HarnessPad& pad, double time, double frequency)
    {
        const Axes axes = axesOf(pad);
        const auto columns = static_cast<double>(pad.traces.size());
        const auto rows = static_cast<double>(pad.traces.at(0).size());
        const double column = (time - axes.left) / (axes.right - axes.left) * columns;
        const double row = (axes.top - frequency) / (axes.top - axes.bottom) * rows;
        return pad.traces.at(static_cast<std::size_t>(column)).at(static_cast<std::size_t>(row));
    }
};

TEST_F(SpectrogramTest, AmplitudesStandAtTheirTimeAndFrequency)
{
    pushTwo(100);
    add({{"scale", UniVar("linear")}, {"window", UniVar(0.1)}});

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    const HarnessPad& pad = result.pads[0];
    EXPECT_NEAR(cellAt(pad, 0.35, 50), 8, 0.1);
    EXPECT_NEAR(cellAt(pad, 0.35, 125), 0, 0.1);
    EXPECT_NEAR(cellAt(pad, 0.85, 125), 2, 0.1);
    EXPECT_NEAR(cellAt(pad, 0.85, 50), 0, 0.1);
    EXPECT_NEAR(axesOf(pad).left, 0.099, 1e-9);
    EXPECT_NEAR(axesOf(pad).right, 1.099, 1e-9);
    EXPECT_NEAR(axesOf(pad).bottom, 0, 3);
    EXPECT_NEAR(axesOf(pad).top, 250, 3);
    EXPECT_THAT(pad.title, StartsWith("module1: trace 1 (fldr 3, tracf 1)\nmode: image\n"));
    EXPECT_THAT(pad.title, HasSubstr("\nx: time (s)\ny: frequency (Hz)\n"));
    EXPECT_THAT(pad.title, HasSubstr("\nbar: amplitude\n"));
    EXPECT_THAT(result.traces, SizeIs(1));
    EXPECT_EQ(result.traces[0].samples, harness.input[0].samples);
}

TEST_F(SpectrogramTest, DecibelsCountFromTheGreatestAmplitude)
{
    pushTwo();
    add({{"window", UniVar(0.1)}, {"db_range", UniVar(40.0)}});

    run();

    const HarnessPad& pad = result.pads.at(0);
    EXPECT_NEAR(cellAt(pad, 0.25, 50), 0, 0.3);
    EXPECT_NEAR(cellAt(pad, 0.75, 125), -12, 0.4);
    EXPECT_EQ(cellAt(pad, 0.25, 200), -40);
    EXPECT_THAT(pad.title, HasSubstr("\nvalues: -40 0\n"));
    EXPECT_THAT(pad.title, HasSubstr("\nbar: amplitude (dB)\n"));
    EXPECT_THAT(pad.title, HasSubstr("note: window 0.102 s, step 0.002 s, 0 dB is an amplitude"));
}

TEST_F(SpectrogramTest, StepAndFrequenciesAreThoseAskedFor)
{
    pushTwo();
    add({{"step", UniVar(0.05)}, {"fmin", UniVar(20.0)}, {"fmax", UniVar(80.0)}});

    run();

    const HarnessPad& pad = result.pads.at(0);
    EXPECT_THAT(pad.traces, SizeIs(20));
    EXPECT_NEAR(axesOf(pad).left, -0.025, 1e-9);
    EXPECT_NEAR(axesOf(pad).right, 0.975, 1e-9);
    EXPECT_NEAR(axesOf(pad).bottom, 20, 2.5);
    EXPECT_NEAR(axesOf(pad).top, 80, 2.5);
}

TEST_F(SpectrogramTest, TracesAreChosenByNumberOrCondition)
{
    for (int i = 0; i < 6; ++i)
        pushTwo(0, 1, 100 * i);
    add({{"traces", UniVar("2,6")}});
    add({{"where", UniVar("offset > 200 && offset < 500")}});
    add({{"select", UniVar("offset=100")}});

    run();

    ASSERT_THAT(result.pads, SizeIs(5));
    std::vector<std::string> titles;
    for (const HarnessPad& pad : result.pads)
        titles.push_back(pad.title.substr(0, pad.title.find(" (")));
    EXPECT_THAT(titles, testing::UnorderedElementsAre("module1: trace 2", "module1: trace 6",
                                                      "module2: trace 4", "module2: trace 5",
                                                      "module3: trace 2"));
}

TEST_F(SpectrogramTest, TheMeanIsThatOfTheAmplitudes)
{
    pushTwo(0, 1);
    pushTwo(0, -0.5F); // of the other sign: phases do not count
    add({{"traces", UniVar("1:2")},
         {"mean", UniVar(1)},
         {"scale", UniVar("linear")},
         {"window", UniVar(0.1)}});

    run();

    ASSERT_THAT(result.pads, SizeIs(1));
    EXPECT_NEAR(cellAt(result.pads[0], 0.25, 50), 6, 0.1);
    EXPECT_THAT(result.pads[0].title, StartsWith("module1: mean of 2 traces\n"));
}

TEST_F(SpectrogramTest, DelaysMoveTracesInTheMean)
{
    std::vector<float> spike(300, 0.0F);
    spike[200] = 1;
    harness.push(spike, {{"delrt", UniVar(0)}});
    std::fill(spike.begin(), spike.end(), 0.0F);
    spike[100] = 1;
    harness.push(spike, {{"delrt", UniVar(200)}}); // at 0.4 s as well
    add({{"traces", UniVar("1:2")}, {"mean", UniVar(1)}, {"window", UniVar(0.05)}});

    run();

    EXPECT_NEAR(cellAt(result.pads.at(0), 0.4, 100), 0, 0.1);
    EXPECT_EQ(cellAt(result.pads.at(0), 0.2, 100), -60);
    EXPECT_EQ(cellAt(result.pads.at(0), 0.01, 100), -60);
}

TEST_F(SpectrogramTest, PicturesHaveALimit)
{
    for (int i = 0; i < 5; ++i)
        pushTwo();
    add({{"traces", UniVar("1:5")}, {"max_pictures", UniVar(2)}});

    run();

    EXPECT_THAT(result.pads, SizeIs(2));
    EXPECT_THAT(messages(2), ElementsAre("3 chosen traces have no picture, since there are 2 "
                                         "already; raise max_pictures, or draw their mean"));
}

TEST_F(SpectrogramTest, WhatHasNoSpectrumIsTold)
{
    harness.push(std::vector<float>(200, 0.0F));
    add();
    run();
    EXPECT_THAT(result.pads, IsEmpty());
    EXPECT_THAT(messages(2), ElementsAre("1 of 1 chosen traces are zeros and have no spectrum"));

    restart();
    pushTwo();
    add({{"traces", UniVar("7")}});
    run();
    EXPECT_THAT(messages(2), ElementsAre(StartsWith("none of 1 traces is chosen; there is no")));

    restart();
    add();
    run();
    EXPECT_THAT(messages(2), ElementsAre("no trace arrived; there is no picture"));
}

TEST_F(SpectrogramTest, SamplesThatAreNotFiniteCountAsZeros)
{
    pushTwo();
    harness.input[0].samples[10] = std::numeric_limits<float>::infinity();
    add();

    run();

    for (const std::vector<float>& column : result.pads.at(0).traces)
        for (const float value : column)
            ASSERT_TRUE(std::isfinite(value));
    EXPECT_THAT(messages(2), ElementsAre("samples that are infinite or NaN: 1, in traces: 1; they "
                                         "count as 0"));
}

TEST_F(SpectrogramTest, SettingsAreRefused)
{
    const struct
    {
        std::map<std::string, UniVar> parameters;
        const char* message;
    } rows[] = {
        {{{"window", UniVar(200.0)}},
         "window is 200 s, and the traces have 1 s; give a shorter one with its unit (200 ms)"},
        {{{"window", UniVar(0.001)}},
         "window is 0.001 s, 1 sample; give one of at least 3 samples with its unit (200 ms)"},
        {{{"fmin", UniVar(100.0)}, {"fmax", UniVar(90.0)}},
         "fmin is 100 Hz; give a number below 90 Hz, the highest frequency drawn"},
        {{{"fmin", UniVar(300.0)}},
         "fmin is 300 Hz; give a number below 250 Hz, the highest frequency drawn"},
        {{{"traces", UniVar("3-x")}},
         "traces: \"3-x\" in \"3-x\" is not a number; write numbers and ranges as in 1:100:2,200"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.message);
        restart();
        pushTwo();
        add(row.parameters);
        runInVain(row.message);
    }
}

TEST_F(SpectrogramTest, TooManyPlacesAndTooMuchMemoryAreRefused)
{
    harness.push(std::vector<float>(9000, 1.0F));
    add({{"step", UniVar(0.002)}});
    result = harness.run();
    EXPECT_THAT(messages(4), ElementsAre("with a step of 0.002 s, the picture has 9000 places of "
                                         "the window; at most 4000 are drawn; give a larger step, "
                                         "or a part of the trace"));

    restart();
    harness.push(std::vector<float>(3000, 1.0F));
    add({{"step", UniVar(0.002)}, {"window", UniVar(1.0)}, {"memory_limit", UniVar(1)}});
    result = harness.run();
    ASSERT_THAT(messages(4), SizeIs(1));
    EXPECT_THAT(messages(4)[0], StartsWith("a picture of 3000 by 1025 cells would need 25 MB"));
}

} // namespace
