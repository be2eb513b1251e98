#include "MOXKernel.h"

#include "RunningModule.h"

#include "metadataprovider.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

// ----------------------------------------- parameters, resources and options of the running module

class FacadeTest : public RunningModuleTest
{
};

TEST_F(FacadeTest, ParametersAreThoseOfTheRunningModule)
{
    ModuleEntity other("other");
    other.setParameter("window", UniVar(7));
    module.setParameter("window", UniVar(500));

    EXPECT_EQ(isModuleParameterPresent("window"), 1);
    EXPECT_EQ(getModuleParameter("window").getI32Value(), 500);
    run(&other);
    EXPECT_EQ(getModuleParameter("window").getI32Value(), 7);
}

TEST_F(FacadeTest, FetchingAnAbsentParameterMakesItPresent)
{
    EXPECT_EQ(isModuleParameterPresent("window"), 0);
    EXPECT_EQ(getModuleParameter("window").getType(), undefinedType);
    EXPECT_EQ(isModuleParameterPresent("window"), 1);
}

TEST_F(FacadeTest, ResourcesAreKeptByTheRunningModule)
{
    EXPECT_EQ(isModuleResourcePresent("state"), 0);
    EXPECT_EQ(setModuleResource("state", UniVar(3.5)), 1);
    EXPECT_EQ(isModuleResourcePresent("state"), 1);
    EXPECT_EQ(getModuleResource("state").getF64Value(), 3.5);
    EXPECT_TRUE(module.isResourcePresent("state"));
}

TEST_F(FacadeTest, OptionsAreSetAndRemovedOnTheRunningModule)
{
    setModuleProcessingOption("RespectEOD", UniVar(1));
    EXPECT_TRUE(module.isRespectEOD());
    EXPECT_EQ(getModuleProcessingOption("RespectEOD").getI32Value(), 1);

    setModuleProcessingOption("RespectEOD", UniVar());
    EXPECT_FALSE(module.isRespectEOD());
    EXPECT_EQ(getModuleProcessingOption("RespectEOD").getType(), undefinedType);
}

TEST_F(FacadeTest, WithoutARunningModuleEveryNameIsAbsentAndNothingIsStored)
{
    module.setParameter("window", UniVar(500));
    module.setResource("state", UniVar(1));
    module.setProcessingOption("option", UniVar(1));
    run(nullptr);

    EXPECT_EQ(isModuleParameterPresent("window"), 0);
    EXPECT_EQ(getModuleParameter("window").getType(), undefinedType);
    EXPECT_EQ(isModuleResourcePresent("state"), 0);
    EXPECT_EQ(getModuleResource("state").getType(), undefinedType);
    EXPECT_EQ(setModuleResource("state", UniVar(2)), 0);
    EXPECT_EQ(getModuleProcessingOption("option").getType(), undefinedType);
    setModuleProcessingOption("option", UniVar(2));

    EXPECT_EQ(module.getResource("state").getI32Value(), 1);
    EXPECT_EQ(module.getProcessingOption("option").getI32Value(), 1);
}

TEST_F(FacadeTest, ANullNameIsTheEmptyOne)
{
    module.setParameter("", UniVar(9));
    EXPECT_EQ(isModuleParameterPresent(nullptr), 1);
    EXPECT_EQ(getModuleParameter(nullptr).getI32Value(), 9);
}

TEST_F(FacadeTest, NamesAreCopied)
{
    char name[] = "state";
    setModuleResource(name, UniVar(1));
    std::strcpy(name, "xxxxx");
    EXPECT_EQ(isModuleResourcePresent("state"), 1);
}

// ------------------------------------------------------------- trace buffers of the running module

class FacadeBuffersTest : public RunningModuleTest
{
protected:
    FacadeBuffersTest()
    {
        module.setInputDataChannel(&input, 0);
        module.setOutputDataChannel(&output, 0);
    }

    WithTraces<DataChannel> input;
    WithTraces<DataChannel> output;
};

TEST_F(FacadeBuffersTest, HandlesAreTheModulesTraceSets)
{
    EXPECT_EQ(getInputTraceBuffer(0), static_cast<SeisTraceSet*>(&input));
    EXPECT_EQ(getOutputTraceBuffer(0), static_cast<SeisTraceSet*>(&output));
    EXPECT_EQ(getWorkTraceBuffer(2), module.getWorkTraceBuffer(2));
    EXPECT_EQ(module.getNumberOfWorkTraceBuffers(), 3);
}

TEST_F(FacadeBuffersTest, WorkBuffersAreEmptiedAndNothingElse)
{
    setNumberOfTraces(getWorkTraceBuffer(0), 2);
    setNumberOfTraces(getWorkTraceBuffer(2), 1);
    setNumberOfTraces(getInputTraceBuffer(0), 1);

    EXPECT_EQ(removeWorkTraces(), 3);

    EXPECT_EQ(getNumberOfTraces(getWorkTraceBuffer(0)), 0);
    EXPECT_EQ(getNumberOfTraces(getWorkTraceBuffer(2)), 0);
    EXPECT_EQ(getNumberOfTraces(getInputTraceBuffer(0)), 1);
    EXPECT_EQ(removeWorkTraces(), 0);
    run(nullptr);
    EXPECT_EQ(removeWorkTraces(), 0);
}

TEST_F(FacadeBuffersTest, BuffersThatDoNotExistAreNull)
{
    EXPECT_EQ(getInputTraceBuffer(1), nullptr);
    EXPECT_EQ(getInputTraceBuffer(-1), nullptr);
    EXPECT_EQ(getOutputTraceBuffer(1), nullptr);
    EXPECT_EQ(getWorkTraceBuffer(-1), nullptr);
    EXPECT_EQ(bldOutputTraceBuffer(1, 100, 4000, nullptr), nullptr);
    run(nullptr);
    EXPECT_EQ(getInputTraceBuffer(0), nullptr);
    EXPECT_EQ(getOutputTraceBuffer(0), nullptr);
    EXPECT_EQ(getWorkTraceBuffer(0), nullptr);
    EXPECT_EQ(bldOutputTraceBuffer(0, 100, 4000, nullptr), nullptr);
    EXPECT_EQ(bldWorkTraceBuffer(0, 100, 4000, 0, nullptr), nullptr);
}

TEST_F(FacadeBuffersTest, BuildingTakesLengthIntervalAndTheTemplatesAttributes)
{
    input.defineAttribute("CDP");

    void* built = bldOutputTraceBuffer(0, 100, 4000, getInputTraceBuffer(0));
    EXPECT_EQ(built, static_cast<SeisTraceSet*>(&output));
    EXPECT_EQ(output.getTraceLength(), 100);
    EXPECT_EQ(output.getTraceSampleInterval(), 4000);
    EXPECT_TRUE(output.isAttributePresent("CDP", 0));

    auto* work = static_cast<SeisTraceSet*>(bldWorkTraceBuffer(1, 50, 2000, 6, built));
    ASSERT_EQ(work, module.getWorkTraceBuffer(1));
    EXPECT_EQ(work->getTraceLength(), 50);
    EXPECT_EQ(work->getTraceSampleInterval(), 2000);
    EXPECT_TRUE(work->isAttributePresent("CDP", 0));
    EXPECT_EQ(work->getNumberOfTraces(), 0) << "the number of traces is not used";
}

TEST_F(FacadeBuffersTest, FlagOfAnInputChannelIsSetAndTestedWithoutClearing)
{
    EXPECT_EQ(isInputTraceBufferFlagged(0, 1), 0);
    EXPECT_EQ(setInputTraceBufferFlag(0, 1), 1);
    EXPECT_EQ(isInputTraceBufferFlagged(0, 1), 1);
    EXPECT_EQ(isInputTraceBufferFlagged(0, 3), 1) << "any of the bits";
    EXPECT_EQ(isInputTraceBufferFlagged(0, 2), 0);
    EXPECT_EQ(input.flags, 1);
}

TEST_F(FacadeBuffersTest, FlaggingAnInputThatDoesNotExistReturnsZero)
{
    EXPECT_EQ(setInputTraceBufferFlag(1, 1), 0);
    EXPECT_EQ(isInputTraceBufferFlagged(1, 1), 0);
    EXPECT_EQ(input.flags, 0);
}

TEST_F(FacadeBuffersTest, ScratchUseAndAnnouncedTotalAreTheTraceSets)
{
    void* handle = getInputTraceBuffer(0);
    EXPECT_EQ(isTraceBufferUseScratch(handle), 1);
    setTraceBufferUseScratch(handle, 0);
    EXPECT_EQ(isTraceBufferUseScratch(handle), 0);
    EXPECT_FALSE(input.isUseScratch());
    setTraceBufferUseScratch(handle, 7);
    EXPECT_EQ(isTraceBufferUseScratch(handle), 1);

    informTotalTracesNumber(handle, int64_t{5} << 32);
    EXPECT_EQ(input.getTotalTracesNumber(), int64_t{5} << 32);
}

// ------------------------------------------------------------------------------------- trace sets

class FacadeTraceSetTest : public RunningModuleTest
{
protected:
    WithTraces<SeisTraceSet> other;
};

TEST_F(FacadeTraceSetTest, AttributeExistsOnceDefinedForTheWholeSet)
{
    EXPECT_EQ(isTraceAttributeExist(&traceSet, "CDP"), 0);
    EXPECT_EQ(defineTraceAttribute(&traceSet, "CDP"), 1);
    EXPECT_EQ(defineTraceAttribute(&traceSet, "CDP"), 1);
    EXPECT_EQ(isTraceAttributeExist(&traceSet, "CDP"), 1);
    EXPECT_EQ(traceSet.getNumberOfTraces(), 0);

    traceSet.setNumberOfTraces(3);
    EXPECT_EQ(isTraceAttributeExist(&traceSet, "CDP"), 1);
    EXPECT_EQ(isTraceAttributeExist(&traceSet, "OFFSET"), 0);
}

TEST_F(FacadeTraceSetTest, AttributeIsReadAndWrittenInTheTraceAskedFor)
{
    EXPECT_EQ(setTraceAttribute(&traceSet, "CDP", UniVar(11), 0), 1);
    EXPECT_EQ(setTraceAttribute(&traceSet, "CDP", UniVar(12), 1), 1);
    EXPECT_EQ(getTraceAttribute(&traceSet, "CDP", 0).getI32Value(), 11);
    EXPECT_EQ(getTraceAttribute(&traceSet, "CDP", 1).getI32Value(), 12);
    EXPECT_EQ(setTraceAttribute(&traceSet, "CDP", UniVar(13), -1), 0);
}

TEST_F(FacadeTraceSetTest, SamplesAreHandedOutInPlaceAndCopiedIn)
{
    traceSet.setTraceLength(3);
    const float values[] = {1, 2, 3};
    EXPECT_EQ(setTraceSamples(&traceSet, values, 1), 1);

    float* samples = getTraceSamples(&traceSet, 1);
    ASSERT_EQ(samples, traceSet.getTrace(1, true)->getSamples());
    EXPECT_EQ(samples[2], 3.0F);
    EXPECT_EQ(getTraceSamples(&traceSet, -1), nullptr);
}

TEST_F(FacadeTraceSetTest, GeometrySettersAlwaysReturnZero)
{
    EXPECT_EQ(setTraceLength(&traceSet, 100), 0);
    EXPECT_EQ(setTraceSampleInterval(&traceSet, 4000), 0);
    EXPECT_EQ(setNumberOfTraces(&traceSet, 2), 0);
    EXPECT_EQ(getTraceLength(&traceSet), 100);
    EXPECT_EQ(getTraceSampleInterval(&traceSet), 4000);
    EXPECT_EQ(getNumberOfTraces(&traceSet), 2);
}

TEST_F(FacadeTraceSetTest, ClearingZeroesTheSamplesOfAllTraces)
{
    setTraceLength(&traceSet, 2);
    setNumberOfTraces(&traceSet, 2);
    getTraceSamples(&traceSet, 1)[0] = 5;
    EXPECT_EQ(clearTraceSet(&traceSet), 1);
    EXPECT_EQ(getTraceSamples(&traceSet, 1)[0], 0.0F);
    EXPECT_EQ(getNumberOfTraces(&traceSet), 2);
}

TEST_F(FacadeTraceSetTest, CopyGoesFromTheFirstSetIntoTheSecond)
{
    setTraceLength(&traceSet, 2);
    setTraceLength(&other, 2);
    setTraceAttribute(&traceSet, "CDP", UniVar(11), 1);
    getTraceSamples(&traceSet, 1)[0] = 5;

    EXPECT_EQ(copyTraceToTrace(&traceSet, &other, 1, 1, 1, 0), 1);
    EXPECT_EQ(getTraceAttribute(&other, "CDP", 0).getI32Value(), 11);
    EXPECT_EQ(getTraceSamples(&other, 0)[0], 5.0F);
}

TEST_F(FacadeTraceSetTest, CopyLeavesOutWhatIsNotAskedFor)
{
    setTraceLength(&traceSet, 1);
    setTraceLength(&other, 1);
    setTraceAttribute(&traceSet, "CDP", UniVar(11), 0);
    getTraceSamples(&traceSet, 0)[0] = 5;

    EXPECT_EQ(copyTraceToTrace(&traceSet, &other, 1, 0, 0, 0), 1);
    EXPECT_EQ(getTraceAttribute(&other, "CDP", 0).getI32Value(), 11);
    EXPECT_EQ(getTraceSamples(&other, 0)[0], 0.0F);

    EXPECT_EQ(copyTraceToTrace(&traceSet, &other, 0, 1, 0, 1), 1);
    EXPECT_EQ(getTraceAttribute(&other, "CDP", 1).getI32Value(), 0);
    EXPECT_EQ(getTraceSamples(&other, 1)[0], 5.0F);
}

TEST_F(FacadeTraceSetTest, MoveLeavesAnEmptyPlaceInTheFirstSet)
{
    setNumberOfTraces(&traceSet, 1);
    SeisTrace* trace = traceSet.getTrace(0, false);
    EXPECT_EQ(moveTraceToTrace(&traceSet, &other, 0, 0), 1);
    EXPECT_EQ(other.getTrace(0, false), trace);
    EXPECT_EQ(traceSet.getTrace(0, false), nullptr);
    EXPECT_EQ(moveTraceToTrace(&traceSet, &other, 0, 0), 0) << "nothing there any more";
    EXPECT_EQ(copyTraceToTrace(&traceSet, &other, 1, 1, 0, 0), 0);
}

TEST_F(FacadeTraceSetTest, RemoveTraceTakesTracesAndEmptyPlacesAway)
{
    setNumberOfTraces(&traceSet, 3);
    SeisTrace* last = traceSet.getTrace(2, false);
    EXPECT_EQ(transferTraceToTrace(&traceSet, &other, 0, 0), 1);

    EXPECT_EQ(removeTrace(&traceSet, 0), 1);
    EXPECT_EQ(removeTrace(&traceSet, 0), 1);

    EXPECT_EQ(getNumberOfTraces(&traceSet), 1);
    EXPECT_EQ(traceSet.getTrace(0, false), last);
    EXPECT_EQ(removeTrace(&traceSet, 1), 0);
    EXPECT_EQ(removeTrace(&traceSet, -1), 0);
    EXPECT_EQ(removeTrace(nullptr, 0), 0);
    EXPECT_EQ(getNumberOfTraces(&traceSet), 1);
}

TEST_F(FacadeTraceSetTest, TracesOfChannelsAreTheSchedulersToRemove)
{
    DataChannel channel;
    setNumberOfTraces(&channel, 1);
    const std::unique_ptr<SeisTrace> trace(channel.getTrace(0, false));

    EXPECT_EQ(removeTrace(&channel, 0), 0);

    EXPECT_EQ(getNumberOfTraces(&channel), 1);
}

TEST_F(FacadeTraceSetTest, DataChannelFlagReadsTheFirstTraceAndMarksTheLast)
{
    EXPECT_EQ(setDataChannelFlag(&traceSet, 5), 0);
    EXPECT_EQ(getDataChannelFlag(&traceSet), 5);
    setNumberOfTraces(&traceSet, 2);
    EXPECT_EQ(setDataChannelFlag(&traceSet, 3), 0);
    EXPECT_EQ(getDataChannelFlag(&traceSet), 0);
    EXPECT_EQ(traceSet.getTrace(1, false)->getTraceFlag(), 3);
}

TEST_F(FacadeTraceSetTest, NullHandlesFindAndChangeNothing)
{
    float samples[1] = {};
    EXPECT_EQ(isTraceAttributeExist(nullptr, "CDP"), 0);
    EXPECT_EQ(defineTraceAttribute(nullptr, "CDP"), 0);
    EXPECT_EQ(getTraceAttribute(nullptr, "CDP", 0).getType(), undefinedType);
    EXPECT_EQ(setTraceAttribute(nullptr, "CDP", UniVar(1), 0), 0);
    EXPECT_EQ(getTraceSamples(nullptr, 0), nullptr);
    EXPECT_EQ(setTraceSamples(nullptr, samples, 0), 0);
    EXPECT_EQ(getNumberOfTraces(nullptr), 0);
    EXPECT_EQ(getTraceLength(nullptr), 0);
    EXPECT_EQ(getTraceSampleInterval(nullptr), 0);
    EXPECT_EQ(setNumberOfTraces(nullptr, 3), 0);
    EXPECT_EQ(setTraceLength(nullptr, 3), 0);
    EXPECT_EQ(setTraceSampleInterval(nullptr, 3), 0);
    EXPECT_EQ(clearTraceSet(nullptr), 0);
    EXPECT_EQ(copyTraceToTrace(nullptr, &traceSet, 1, 1, 0, 0), 0);
    EXPECT_EQ(copyTraceToTrace(&traceSet, nullptr, 1, 1, 0, 0), 0);
    EXPECT_EQ(moveTraceToTrace(nullptr, &traceSet, 0, 0), 0);
    EXPECT_EQ(moveTraceToTrace(&traceSet, nullptr, 0, 0), 0);
    informTotalTracesNumber(nullptr, 5);
    setTraceBufferUseScratch(nullptr, 1);
    EXPECT_EQ(isTraceBufferUseScratch(nullptr), 0);
    EXPECT_EQ(getDataChannelFlag(nullptr), 0);
    EXPECT_EQ(setDataChannelFlag(nullptr, 5), 1) << "the one that says so";
    addTraceToPad(1, nullptr);
    EXPECT_TRUE(tracesOnPads.empty());
    EXPECT_EQ(traceSet.getNumberOfTraces(), 0);
}

// --------------------------------------------------------------------------- libraries and groups

TEST_F(FacadeTest, LibraryKindsAreNumberedInTheirOrder)
{
    const std::pair<const char*, int> rows[] = {
        {"CN", 0},  {"GD", 1},  {"GR", 2}, {"MU", 3}, {"VI", 4},  {"ED", 5},
        {"GE", 6},  {"GX", 7},  {"ST", 8}, {"XY", 9}, {"UM", 10}, {"FD", 11},
        {"HZ", 12}, {"gd", -1}, {"", -1},  {"G", -1}, {"HZ ", -1}};
    for (const auto& [kind, number] : rows) {
        LibraryEntity entity(kind, "");
        EXPECT_EQ(getLibraryType(&entity), number) << '"' << kind << '"';
    }
    EXPECT_EQ(getLibraryType(nullptr), -1);
}

TEST_F(FacadeTest, LibraryParametersAreStoredUnderTheirNames)
{
    EXPECT_EQ(isLibraryParameterPresent(&library, "depth"), 0);
    EXPECT_EQ(setLibraryParameter(&library, "depth", UniVar(1.5)), 1);
    EXPECT_EQ(isLibraryParameterPresent(&library, "depth"), 1);
    EXPECT_EQ(getLibraryParameter(&library, "depth").getF64Value(), 1.5);
}

TEST_F(FacadeTest, GroupParametersAreStoredByRow)
{
    EXPECT_EQ(getGroupParameterSize(&group), 0);
    EXPECT_EQ(setGroupParameter(&group, "depth", 1, UniVar(1.5)), 1);
    EXPECT_EQ(getGroupParameterSize(&group), 2);
    EXPECT_EQ(isGroupParameterPresent(&group, "depth", 0), 0);
    EXPECT_EQ(isGroupParameterPresent(&group, "depth", 1), 1);
    EXPECT_EQ(isGroupParameterPresent(&group, "depth", 2), 0);
    EXPECT_EQ(getGroupParameter(&group, "depth", 1).getF64Value(), 1.5);
    EXPECT_EQ(getGroupParameterSize(&group), 2) << "asking for presence makes no row";
    EXPECT_EQ(setGroupParameter(&group, "depth", -1, UniVar(1.5)), 0);
}

TEST_F(FacadeTest, NullLibrariesAndGroupsHoldNothing)
{
    EXPECT_EQ(isLibraryParameterPresent(nullptr, "depth"), 0);
    EXPECT_EQ(getLibraryParameter(nullptr, "depth").getType(), undefinedType);
    EXPECT_EQ(setLibraryParameter(nullptr, "depth", UniVar(1)), 0);
    EXPECT_EQ(getGroupParameterSize(nullptr), 0);
    EXPECT_EQ(isGroupParameterPresent(nullptr, "depth", 0), 0);
    EXPECT_EQ(getGroupParameter(nullptr, "depth", 0).getType(), undefinedType);
    EXPECT_EQ(setGroupParameter(nullptr, "depth", 0, UniVar(1)), 0);
}

// --------------------------------------------------------------------- attribute schema of the job

class FacadeSchemaTest : public RunningModuleTest
{
protected:
    FacadeSchemaTest()
    {
        // Type, dimension, slot, bit A, bit Z, type of the slot, coefficient.
        job().addTraceAttributeDefinition("CDP", 2, 3, "common depth point", 4, 5, 6, 7, 8);
    }
};

TEST_F(FacadeSchemaTest, FieldsOfADefinition)
{
    EXPECT_EQ(getTraceAttributeType("CDP"), 2);
    EXPECT_EQ(getTraceAttributeDimension("CDP"), 3);
    EXPECT_EQ(getTraceAttributeCstSlot("CDP"), 4);
    EXPECT_EQ(getTraceAttributeBitA("CDP"), 5);
    EXPECT_EQ(getTraceAttributeBitZ("CDP"), 6);
    EXPECT_EQ(getTraceAttributeCstType("CDP"), 7);
    EXPECT_EQ(getTraceAttributeMapCoef("CDP"), 8);
    EXPECT_STREQ(getTraceAttributeDescription("CDP"), "common depth point");
}

TEST_F(FacadeSchemaTest, UnknownNamesAnswerMinusOneAndNoDescription)
{
    EXPECT_EQ(getTraceAttributeType("x"), -1);
    EXPECT_EQ(getTraceAttributeDimension("x"), -1);
    EXPECT_EQ(getTraceAttributeCstSlot("x"), -1);
    EXPECT_EQ(getTraceAttributeBitA("x"), -1);
    EXPECT_EQ(getTraceAttributeBitZ("x"), -1);
    EXPECT_EQ(getTraceAttributeCstType("x"), -1);
    EXPECT_EQ(getTraceAttributeMapCoef("x"), -1);
    EXPECT_STREQ(getTraceAttributeDescription("x"), "");
}

TEST_F(FacadeSchemaTest, WholeDefinitionAtOnce)
{
    int type = 99, dim = 99, slot = 99, bitA = 99, bitZ = 99, slotType = 99, coefficient = 99;
    EXPECT_EQ(
        getTraceAttributeDef("CDP", &type, &dim, &slot, &bitA, &bitZ, &slotType, &coefficient), 1);
    EXPECT_EQ((std::vector{type, dim, slot, bitA, bitZ, slotType, coefficient}),
              (std::vector{2, 3, 4, 5, 6, 7, 8}));

    EXPECT_EQ(getTraceAttributeDef("x", &type, nullptr, &slot, nullptr, nullptr, nullptr, nullptr),
              -1);
    EXPECT_EQ(type, -1);
    EXPECT_EQ(slot, -1);
    EXPECT_EQ(dim, 3);
}

// --------------------------------------------------------------------- messages, commands and pads

TEST_F(FacadeTest, MessagesCarryTheRunningModulesName)
{
    sendMessage(2, "low fold");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].type, 2);
    EXPECT_EQ(messages[0].module, "agc");
    EXPECT_EQ(messages[0].text, "low fold");
}

TEST_F(FacadeTest, ANullMessageIsAnEmptyOne)
{
    sendMessage(1, nullptr);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].text, "");
}

TEST_F(FacadeTest, MessageArgumentsArriveAsText)
{
    addMessageArgument(UniVar(5));
    addMessageArgument(UniVar("line 7"));
    EXPECT_EQ(arguments, (std::vector<std::string>{"5", "line 7"}));
}

TEST_F(FacadeTest, CommandsArriveAsTheyAre)
{
    execAppliCmd("view 'a b'");
    EXPECT_EQ(commands, std::vector<std::string>{"view 'a b'"});
}

TEST_F(FacadeTest, PadIsCreatedWithAllItsArguments)
{
    const int ident = createPad(1, 2, 3, "section");
    ASSERT_EQ(pads.size(), 1u);
    EXPECT_EQ(pads[0].ident, ident);
    EXPECT_EQ(pads[0].type, 1);
    EXPECT_EQ(pads[0].align, 2);
    EXPECT_EQ(pads[0].visible, 3);
    EXPECT_EQ(pads[0].title, "section");
}

TEST_F(FacadeTest, WithoutPadsTheIdentifierIsMinusOne)
{
    job().installCreatePadFunc(nullptr, nullptr);
    EXPECT_EQ(createPad(1, 2, 3, "section"), -1);
}

TEST_F(FacadeTest, TracesGoToThePad)
{
    addTraceToPad(7, &traceSet);
    EXPECT_EQ(tracesOnPads.at(7), static_cast<SeisTraceSet*>(&traceSet));
}

TEST_F(FacadeTest, PlotCommandsFillTheirFields)
{
    addPlotToPad(1, 2.0F, 3.0F, 4);
    addNumberToPad(1, 2.0F, 3.0F, 4.0F, 5.0F, 6.0F, 7);
    addSymbolToPad(1, 2.0F, 3.0F, 4.0F, "text", 5, 6.0F, 7);
    addFactorToPad(1, 2.0F);
    addNewPenToPad(1, 2);

    ASSERT_EQ(plots.size(), 5u);
    const plotCommandStruct& plot = plots[0].command;
    EXPECT_EQ(plot.cmdType, 1);
    EXPECT_EQ(plot.xpage, 2.0F);
    EXPECT_EQ(plot.ypage, 3.0F);
    EXPECT_EQ(plot.ipen, 4);
    const plotCommandStruct& number = plots[1].command;
    EXPECT_EQ(number.cmdType, 2);
    EXPECT_EQ(number.height, 4.0F);
    EXPECT_EQ(number.fpn, 5.0F);
    EXPECT_EQ(number.angle, 6.0F);
    EXPECT_EQ(number.ndec, 7);
    const plotCommandStruct& symbol = plots[2].command;
    EXPECT_EQ(symbol.cmdType, 3);
    EXPECT_EQ(symbol.height, 4.0F);
    EXPECT_EQ(plots[2].text, "text");
    EXPECT_EQ(symbol.inteq, 5);
    EXPECT_EQ(symbol.angle, 6.0F);
    EXPECT_EQ(symbol.inchar, 7);
    EXPECT_EQ(plots[3].command.cmdType, 4);
    EXPECT_EQ(plots[3].command.factor, 2.0F);
    EXPECT_EQ(plots[4].command.cmdType, 5);
    EXPECT_EQ(plots[4].command.ipen, 2);
}

// -------------------------------------------------------------- memory, files, directories, names

TEST_F(FacadeTest, MemoryIsZeroAndChargedToTheRunningModule)
{
    auto* block = static_cast<char*>(allocateResource(100));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[0], 0);
    EXPECT_EQ(block[99], 0);
    EXPECT_EQ(module.getTotalModuleMemoryUsed(), 100);
    EXPECT_EQ(job().totalJobMemoryUsed, 100);
    job().jobModules.push_back(&module);
    EXPECT_EQ(freeResource(block), 0);
    EXPECT_EQ(module.getTotalModuleMemoryUsed(), 0);
    EXPECT_EQ(job().totalJobMemoryUsed, 0);
    EXPECT_EQ(freeResource(nullptr), 0);
    job().jobModules.clear();
}

TEST_F(FacadeTest, CreatedFilesHaveTheirPermissionBits)
{
    const std::string path = pathOf("a");
    const mode_t mask = umask(0);
    const int handle = fileCreate(path.c_str());
    umask(mask);
    ASSERT_GE(handle, 0);
    EXPECT_EQ(write(handle, "abc", 3), 3);
    fileClose(handle);
    EXPECT_EQ(fcntl(handle, F_GETFD), -1) << "closed";

    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0674u);
    EXPECT_EQ(status.st_size, 3);
}

TEST_F(FacadeTest, CreatingEmptiesAFileThatExists)
{
    const std::string path = pathOf("a");
    std::ofstream(path) << "old content";
    fileClose(fileCreate(path.c_str()));
    EXPECT_EQ(contentOf(path), "");
}

TEST_F(FacadeTest, OpenedFilesAreReadOnly)
{
    const std::string path = pathOf("a");
    std::ofstream(path) << "abc";
    const int handle = fileOpen(path.c_str());
    ASSERT_GE(handle, 0);
    char content[4] = {};
    EXPECT_EQ(read(handle, content, 3), 3);
    EXPECT_STREQ(content, "abc");
    EXPECT_EQ(write(handle, "x", 1), -1);
    fileClose(handle);
}

TEST_F(FacadeTest, FilesThatCannotBeOpenedGiveMinusOneAndNoMessage)
{
    EXPECT_EQ(fileOpen(pathOf("none").c_str()), -1);
    EXPECT_EQ(fileCreate(pathOf("none/a").c_str()), -1);
    EXPECT_EQ(fileOpen(nullptr), -1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(FacadeTest, TextsOfOneFunctionOutliveCallsOfTheOthers)
{
    job().setScratchDir("/scratch");
    job().setProjectDir("/project");
    const char* scratch = getScratchDir();
    const char* project = getProjectDir();
    const char* name = getModuleName();
    const char* date = getCurrentDate();
    job().addTraceAttributeDefinition("CDP", 2, 1, "description", 0, 0, 0, 0, 0);
    const char* description = getTraceAttributeDescription("CDP");

    EXPECT_STREQ(scratch, "/scratch");
    EXPECT_STREQ(project, "/project");
    EXPECT_STREQ(name, "agc");
    EXPECT_EQ(date, job().getCurrentDate());
    EXPECT_STREQ(description, "description");
}

TEST_F(FacadeTest, WithoutARunningModuleTheModuleNameIsEmpty)
{
    run(nullptr);
    EXPECT_STREQ(getModuleName(), "");
}

TEST_F(FacadeTest, DateCountsMonthsFromZeroAndYearsFrom1900)
{
    const std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    const std::string expected = std::to_string(local->tm_mday) + "." +
                                 std::to_string(local->tm_mon) + "." +
                                 std::to_string(local->tm_year);
    EXPECT_STREQ(getCurrentDate(), expected.c_str());
}

// ------------------------------------------------------------------------ metadata, locks, events

class FacadeMetadataTest : public RunningModuleTest
{
protected:
    FacadeMetadataTest()
    {
        std::filesystem::create_directory(pathOf(".metadata"));
        job().setProjectDir(QString::fromStdString(pathOf("")));
        feed.attachInputModule(&producer);
        module.setInputDataChannel(&feed, 0);
    }

    ModuleEntity producer{"read"};
    WithTraces<DataChannel> feed;
};

TEST_F(FacadeMetadataTest, ModuleScopeWritesHereAndReadsUpstream)
{
    setMetaDataValue(1, "line", "L1");
    producer.setMetaData("line", "L0");
    EXPECT_EQ(module.getMetaData().at("line"), "L1");
    EXPECT_EQ(getMetaDataValue(1, "line").getStrValue(), "L0");
    EXPECT_EQ(getMetaDataValue(1, "line").getType(), strType);
}

TEST_F(FacadeMetadataTest, JobScopeIsTheJobsOwn)
{
    setMetaDataValue(0, "line", "L2");
    EXPECT_EQ(getMetaDataValue(0, "line").getStrValue(), "L2");
    EXPECT_EQ(getMetaDataValue(0, "none").getStrValue(), "");
    EXPECT_EQ(getMetaDataValue(0, "none").getType(), strType);
    EXPECT_TRUE(module.getMetaData().empty());
}

TEST_F(FacadeMetadataTest, TheEmptyNameFailsInModuleScope)
{
    EXPECT_THROW(getMetaDataValue(1, ""), std::out_of_range);
    EXPECT_EQ(getMetaDataValue(0, "").getStrValue(), "");
}

TEST_F(FacadeMetadataTest, PackingTakesAllThatTheModuleSees)
{
    setMetaDataValue(0, "a", "1");
    setMetaDataValue(1, "b", "22");
    char* packed = nullptr;
    const int size = packMetaDataValues(&packed);
    ASSERT_NE(packed, nullptr);
    EXPECT_EQ(std::string(packed, static_cast<size_t>(size)),
              std::string("a\0001\0b\00022\0\0\0", 11));
    std::free(packed);
}

TEST_F(FacadeMetadataTest, MetadataOfADataFileAreStoredAndLoaded)
{
    setMetaDataValue(1, "line", "L1");
    EXPECT_EQ(storeExternalMetaDataFor(pathOf("a.sgy")), 1);
    EXPECT_EQ(contentOf(pathOf(".metadata/a.sgy")), std::string("line\0L1\0\0\0", 10));

    ModuleEntity other("other");
    run(&other);
    EXPECT_EQ(loadExternalMetaDataFor(pathOf("a.sgy")), 1);
    EXPECT_EQ(other.getMetaData().at("line"), "L1");
}

TEST_F(FacadeMetadataTest, FilesWithoutMetadataAnswerZero)
{
    EXPECT_EQ(loadExternalMetaDataFor(pathOf("none.sgy")), 0);
    VORN::MetadataProvider::getInstance()->setAllowNonDefault(false);
    EXPECT_EQ(storeExternalMetaDataFor("/elsewhere/a.sgy"), 0);
    EXPECT_EQ(loadExternalMetaDataFor("/elsewhere/a.sgy"), 0);
    VORN::MetadataProvider::getInstance()->setAllowNonDefault(true);
}

TEST_F(FacadeMetadataTest, DataFilesAreLockedByALockFile)
{
    const std::string path = pathOf("a.sgy");
    EXPECT_EQ(lockDataFile(path, 5), 0);
    EXPECT_EQ(contentOf(path + ".lck"), std::string("\5\0\0\0", 4));
    EXPECT_EQ(lockDataFile(path, 5), -1);
    EXPECT_EQ(unlockDataFile(path), 0);
    EXPECT_EQ(unlockDataFile(path), -2);
    EXPECT_EQ(lockDataFile(pathOf("none/a.sgy"), 5), -2);
}

TEST_F(FacadeMetadataTest, EventsAreAcceptedAndDoNothing)
{
    EXPECT_EQ(broadcastEvent("theme", 7), 0);
    EXPECT_TRUE(messages.empty());
}

} // namespace
