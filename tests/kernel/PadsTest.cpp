// Pads: how they get their identifiers, and what the host receives of traces and pen commands.
#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "ProbeModule.h"
#include "SeisTraceSet.h"

#include <climits>
#include <cstdlib>
#include <gmock/gmock.h>
#include <vector>

namespace {

using testing::IsEmpty;

struct Pad
{
    int ident, type, align, visible;
    std::string title;
    void* object;
};

struct Traces
{
    int ident;
    void* set;
    void* object;
};

struct Plot
{
    int ident;
    plotCommandStruct command;
    std::string text; // of a symbol, which lives no longer than the call
    void* object;
};

std::vector<Pad> pads;
std::vector<Traces> traces;
std::vector<Plot> plots;

// The host's answers differ from 0: the kernel takes no notice of them.
int notePad(int ident, int type, int align, int visible, const char* title, void* object)
{
    pads.push_back({ident, type, align, visible, title, object});
    return 1;
}

int noteTraces(int ident, void* set, void* object)
{
    traces.push_back({ident, set, object});
    return 2;
}

int notePlot(int ident, plotCommandStruct command, void* object)
{
    plots.push_back({ident, command, command.cbcd != nullptr ? command.cbcd : "", object});
    return 3;
}

class PadsTest : public KernelFixture
{
protected:
    PadsTest()
    {
        pads.clear();
        traces.clear();
        plots.clear();
        job().installCreatePadFunc(notePad, &padObject);
        job().installAddTraceToPadFuncFunc(noteTraces, &traceObject);
        job().installAddPlotToPadFuncFunc(notePlot, &plotObject);
    }

    // The one command that was sent, checked to hold nothing but `expected`.
    void expectCommand(int ident, const plotCommandStruct& expected)
    {
        ASSERT_EQ(plots.size(), 1u);
        EXPECT_EQ(plots[0].ident, ident);
        EXPECT_EQ(plots[0].object, &plotObject);
        const plotCommandStruct& command = plots[0].command;
        EXPECT_EQ(command.cmdType, expected.cmdType);
        EXPECT_EQ(command.xpage, expected.xpage);
        EXPECT_EQ(command.ypage, expected.ypage);
        EXPECT_EQ(command.ipen, expected.ipen);
        EXPECT_EQ(command.height, expected.height);
        EXPECT_EQ(command.fpn, expected.fpn);
        EXPECT_EQ(command.angle, expected.angle);
        EXPECT_EQ(command.ndec, expected.ndec);
        EXPECT_EQ(command.cbcd, expected.cbcd);
        EXPECT_EQ(command.inteq, expected.inteq);
        EXPECT_EQ(command.inchar, expected.inchar);
        EXPECT_EQ(command.factor, expected.factor);
        plots.clear();
    }

    int padObject = 0;
    int traceObject = 0;
    int plotObject = 0;
};

// -------------------------------------------------------------------------------- identifiers

TEST_F(PadsTest, HostReceivesWhatTheModuleAskedForAndTheIdentifier)
{
    const int ident = job().createPad(1, -2, 3, "amplitudes\nclip: 98");
    ASSERT_EQ(pads.size(), 1u);
    EXPECT_EQ(pads[0].ident, ident);
    EXPECT_EQ(pads[0].type, 1);
    EXPECT_EQ(pads[0].align, -2);
    EXPECT_EQ(pads[0].visible, 3);
    EXPECT_EQ(pads[0].title, "amplitudes\nclip: 98");
    EXPECT_EQ(pads[0].object, &padObject);
}

TEST_F(PadsTest, ArgumentsArePassedOnUnchecked)
{
    job().createPad(INT_MIN, INT_MAX, -1, "");
    ASSERT_EQ(pads.size(), 1u);
    EXPECT_EQ(pads[0].type, INT_MIN);
    EXPECT_EQ(pads[0].align, INT_MAX);
    EXPECT_EQ(pads[0].visible, -1);
    EXPECT_EQ(pads[0].title, "");
}

TEST_F(PadsTest, EachPadDrawsExactlyOneRandomNumber)
{
    std::srand(12345);
    int expected[4];
    for (int& number : expected)
        number = std::rand();

    std::srand(12345);
    EXPECT_EQ(job().createPad(1, 0, 1, "one"), expected[0]);
    EXPECT_EQ(job().createPad(1, 0, 1, "two"), expected[1]);
    EXPECT_EQ(job().createPad(1, 0, 1, "two"), expected[2]);
    EXPECT_EQ(std::rand(), expected[3]);
    ASSERT_EQ(pads.size(), 3u);
    EXPECT_EQ(pads[0].ident, expected[0]);
    EXPECT_EQ(pads[1].ident, expected[1]);
    EXPECT_EQ(pads[2].ident, expected[2]);
}

TEST_F(PadsTest, IdentifiersMayCollide)
{
    std::srand(12345);
    const int first = job().createPad(1, 0, 1, "one");
    std::srand(12345);
    EXPECT_EQ(job().createPad(1, 0, 1, "two"), first);
    EXPECT_EQ(pads.size(), 2u);
}

TEST_F(PadsTest, WithoutACallBackThereIsNoPadAndNoRandomNumber)
{
    std::srand(12345);
    const int next = std::rand();
    std::srand(12345);
    job().installCreatePadFunc(nullptr, &padObject);
    EXPECT_EQ(job().createPad(1, 0, 1, "one"), -1);
    EXPECT_EQ(job().createPad(1, 0, 1, "two"), -1);
    EXPECT_EQ(std::rand(), next);
    EXPECT_THAT(pads, IsEmpty());
}

TEST_F(PadsTest, NothingElseDrawsRandomNumbers)
{
    std::srand(12345);
    const int next = std::rand();
    std::srand(12345);
    SeisTraceSet set;
    job().addTraceToPad(1, &set);
    job().addPlotToPad(1, 1.0f);
    job().addPlotToPad(1, 2);
    job().sendMessage(1, "");
    job().sendModulesStatistic(1);
    EXPECT_EQ(std::rand(), next);
}

TEST_F(PadsTest, ModuleCreatesAPadFromItsEntryPoint)
{
    ProbeModule probe("probe");
    int ident = -1;
    probe.post = [&] { ident = job().createPad(2, 0, 1, "spectrum"); };
    probe.entity->postProcessModule();
    ASSERT_EQ(pads.size(), 1u);
    EXPECT_EQ(pads[0].ident, ident);
}

// -------------------------------------------------------------------------------------- traces

TEST_F(PadsTest, TracesArePassedOnAsTheSetItself)
{
    SeisTraceSet set;
    job().addTraceToPad(77, &set);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(traces[0].ident, 77);
    EXPECT_EQ(traces[0].set, &set);
    EXPECT_EQ(traces[0].object, &traceObject);
    EXPECT_EQ(set.getNumberOfTraces(), 0) << "nobody has touched it";
}

TEST_F(PadsTest, UnknownPadsAndNullSetsArePassedOn)
{
    job().addTraceToPad(-1, nullptr);
    ASSERT_EQ(traces.size(), 1u);
    EXPECT_EQ(traces[0].ident, -1);
    EXPECT_EQ(traces[0].set, nullptr);
}

TEST_F(PadsTest, WithoutACallBackTracesAreDropped)
{
    job().installAddTraceToPadFuncFunc(nullptr, &traceObject);
    SeisTraceSet set;
    job().addTraceToPad(77, &set);
    EXPECT_THAT(traces, IsEmpty());
}

// ----------------------------------------------------------------------------------- commands

TEST_F(PadsTest, PlotCommandHasPositionAndPen)
{
    job().addPlotToPad(7, 1.5f, -2.5f, 3);
    plotCommandStruct expected{};
    expected.cmdType = 1;
    expected.xpage = 1.5f;
    expected.ypage = -2.5f;
    expected.ipen = 3;
    expectCommand(7, expected);
}

TEST_F(PadsTest, NumberCommandHasPositionHeightNumberAngleAndDecimals)
{
    job().addPlotToPad(7, 1.5f, 2.5f, 3.5f, 4.5f, 90.0f, 2);
    plotCommandStruct expected{};
    expected.cmdType = 2;
    expected.xpage = 1.5f;
    expected.ypage = 2.5f;
    expected.height = 3.5f;
    expected.fpn = 4.5f;
    expected.angle = 90.0f;
    expected.ndec = 2;
    expectCommand(7, expected);
}

TEST_F(PadsTest, SymbolCommandHasItsText)
{
    const std::string text = "offset [m], a text of some length";
    job().addPlotToPad(7, 1.5f, 2.5f, 3.5f, text, 4, 90.0f, 5);
    ASSERT_EQ(plots.size(), 1u);
    EXPECT_EQ(plots[0].text, text);
    plotCommandStruct expected{};
    expected.cmdType = 3;
    expected.xpage = 1.5f;
    expected.ypage = 2.5f;
    expected.height = 3.5f;
    expected.angle = 90.0f; // the argument after the symbol's code
    expected.cbcd = plots[0].command.cbcd;
    expected.inteq = 4;
    expected.inchar = 5;
    EXPECT_NE(expected.cbcd, nullptr);
    expectCommand(7, expected);
}

TEST_F(PadsTest, SymbolCommandWithoutTextHasAnEmptyOne)
{
    job().addPlotToPad(7, 0.0f, 0.0f, 1.0f, std::string(), 2, 0.0f, -1);
    ASSERT_EQ(plots.size(), 1u);
    ASSERT_NE(plots[0].command.cbcd, nullptr);
    EXPECT_EQ(plots[0].text, "");
    EXPECT_EQ(plots[0].command.inchar, -1);
}

TEST_F(PadsTest, FactorCommandHasTheFactorAlone)
{
    job().addPlotToPad(7, 2.5f);
    plotCommandStruct expected{};
    expected.cmdType = 4;
    expected.factor = 2.5f;
    expectCommand(7, expected);
}

TEST_F(PadsTest, NewPenCommandHasThePenAlone)
{
    job().addPlotToPad(7, 2);
    plotCommandStruct expected{};
    expected.cmdType = 5;
    expected.ipen = 2;
    expectCommand(7, expected);
}

TEST_F(PadsTest, CommandsComeInOrderForAnyPad)
{
    job().addPlotToPad(-1, 1);
    job().addPlotToPad(INT_MAX, 0.5f);
    job().addPlotToPad(0, 0.0f, 0.0f, 2);
    ASSERT_EQ(plots.size(), 3u);
    EXPECT_EQ(plots[0].ident, -1);
    EXPECT_EQ(plots[1].ident, INT_MAX);
    EXPECT_EQ(plots[2].ident, 0);
    EXPECT_EQ(plots[0].command.cmdType, 5);
    EXPECT_EQ(plots[1].command.cmdType, 4);
    EXPECT_EQ(plots[2].command.cmdType, 1);
}

TEST_F(PadsTest, WithoutACallBackCommandsAreDropped)
{
    job().installAddPlotToPadFuncFunc(nullptr, &plotObject);
    job().addPlotToPad(7, 1.0f, 2.0f, 3);
    job().addPlotToPad(7, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6);
    job().addPlotToPad(7, 1.0f, 2.0f, 3.0f, std::string("text"), 4, 5.0f, 6);
    job().addPlotToPad(7, 1.0f);
    job().addPlotToPad(7, 1);
    EXPECT_THAT(plots, IsEmpty());
}

} // namespace
