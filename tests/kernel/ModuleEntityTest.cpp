// A module by itself: its fields, channels, work buffers, named values, counters, and what happens
// around its entry points.
#include "ModuleEntity.h"
#include "DataChannel.h"
#include "KernelFixture.h"
#include "ProbeModule.h"
#include "ScopedClock.h"
#include "TraceVerbs.h"

#include <climits>
#include <cstdint>
#include <gmock/gmock.h>
#include <memory>
#include <type_traits>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

static_assert(std::is_same_v<AnyProcessFunctionType, int (*)()>);
static_assert(std::is_same_v<decltype(ModuleEntity::totalModuleWorkTime), int64_t>);
static_assert(std::is_same_v<decltype(ModuleEntity::inputTracesProcessed), int32_t>);
static_assert(std::is_same_v<decltype(ModuleEntity::outputTracesProcessed), int32_t>);
static_assert(std::is_same_v<decltype(ModuleEntity::totalModuleMemoryUsed), int32_t>);
static_assert(std::is_same_v<decltype(ModuleEntity::respectEOD), bool>);

// A set or channel that notes its own end.
template <typename Set>
class Watched : public Set
{
public:
    explicit Watched(bool& deletedFlag) : deleted(deletedFlag) {}
    ~Watched() override { deleted = true; }

private:
    bool& deleted;
};

// A module under test, and two channels with traces of their own.
class ModuleEntityTest : public KernelFixture
{
protected:
    ~ModuleEntityTest() override
    {
        for (SeisTraceSet* set : module.workTraceSets)
            delete set;
    }

    ModuleEntity module{"agc"};
    ModuleEntity other{"other"};
    Owning<DataChannel> first;
    Owning<DataChannel> second;
};

// ------------------------------------------------------------------------------- construction

TEST_F(ModuleEntityTest, NewModuleHasItsNameAndNothingElse)
{
    EXPECT_EQ(module.moduleName, "agc");
    EXPECT_EQ(module.getName(), "agc");
    EXPECT_EQ(module.moduleLibraryHandle, nullptr);
    EXPECT_THAT(module.inputDataChannels, IsEmpty());
    EXPECT_THAT(module.outputDataChannels, IsEmpty());
    EXPECT_THAT(module.workTraceSets, IsEmpty());
    EXPECT_THAT(module.moduleResources, IsEmpty());
    EXPECT_THAT(module.moduleParameters, IsEmpty());
    EXPECT_THAT(module.moduleMetaData, IsEmpty());
    EXPECT_THAT(module.moduleProcessingOptions, IsEmpty());
    EXPECT_TRUE(module.moduleMemoryMap.empty());
    EXPECT_EQ(module.totalModuleWorkTime, 0);
    EXPECT_EQ(module.inputTracesProcessed, 0);
    EXPECT_EQ(module.outputTracesProcessed, 0);
    EXPECT_EQ(module.totalModuleMemoryUsed, 0);
    EXPECT_FALSE(module.respectEOD);
}

TEST_F(ModuleEntityTest, ModuleWithoutANameIsOneWithAnEmptyName)
{
    const ModuleEntity nameless;
    EXPECT_EQ(nameless.getName(), "");
    EXPECT_EQ(nameless.moduleLibraryHandle, nullptr);
    EXPECT_EQ(nameless.totalModuleWorkTime, 0);
    EXPECT_EQ(nameless.inputTracesProcessed, 0);
    EXPECT_EQ(nameless.outputTracesProcessed, 0);
    EXPECT_EQ(nameless.totalModuleMemoryUsed, 0);
    EXPECT_FALSE(nameless.isRespectEOD());
}

TEST_F(ModuleEntityTest, FieldsLieInTheirOrder)
{
    const void* const fields[] = {
        &module.moduleName,
        &module.inputDataChannels,
        &module.outputDataChannels,
        &module.workTraceSets,
        &module.moduleLibraryHandle,
        &module.preProcessFunction,
        &module.processFunction,
        &module.postProcessFunction,
        &module.moduleResources,
        &module.moduleParameters,
        &module.moduleMetaData,
        &module.totalModuleWorkTime,
        &module.inputTracesProcessed,
        &module.outputTracesProcessed,
        &module.totalModuleMemoryUsed,
        &module.moduleMemoryMap,
        &module.moduleProcessingOptions,
        &module.respectEOD,
    };
    EXPECT_EQ(fields[0], &module);
    for (std::size_t i = 1; i < std::size(fields); ++i)
        EXPECT_LT(fields[i - 1], fields[i]) << "field " << i;
}

TEST_F(ModuleEntityTest, NameIsACopy)
{
    std::string name = module.getName();
    name += " of mine";
    EXPECT_EQ(module.getName(), "agc");
}

TEST_F(ModuleEntityTest, EndOfAModuleLeavesItsChannelsAndBuffersAlone)
{
    bool channelDeleted = false;
    bool bufferDeleted = false;
    Watched<DataChannel> channel(channelDeleted);
    auto* buffer = new Watched<SeisTraceSet>(bufferDeleted);
    {
        ModuleEntity shortLived("agc");
        shortLived.setInputDataChannel(&channel, 0);
        shortLived.setOutputDataChannel(&channel, 0);
        shortLived.addWorkTraceBuffer(buffer);
    }
    EXPECT_FALSE(channelDeleted);
    EXPECT_FALSE(bufferDeleted);
    delete buffer;
    EXPECT_TRUE(bufferDeleted);
}

// ------------------------------------------------------------------------------- entry points

// A module of a real library, whose entry points are functions of the test.
class ModuleEntryPointTest : public ModuleEntityTest
{
protected:
    ProbeModule probe{"probe"};
    ModuleEntity& running = *probe.entity;
};

TEST_F(ModuleEntryPointTest, EachPhaseCallsItsOwnEntryPointOnce)
{
    std::vector<std::string> calls;
    probe.pre = [&] { calls.push_back("pre"); };
    probe.process = [&] { calls.push_back("process"); };
    probe.post = [&] { calls.push_back("post"); };

    running.preProcessModule();
    EXPECT_THAT(calls, ElementsAre("pre"));
    job().setActiveModule(&running);
    running.processModule();
    EXPECT_THAT(calls, ElementsAre("pre", "process"));
    running.postProcessModule();
    EXPECT_THAT(calls, ElementsAre("pre", "process", "post"));
}

TEST_F(ModuleEntryPointTest, ResultOfAnEntryPointIsIgnored)
{
    // The library's entry points return 1, -1 and 2.
    ASSERT_NE(running.preProcessFunction(), 0);
    ASSERT_NE(running.processFunction(), 0);
    ASSERT_NE(running.postProcessFunction(), 0);

    EXPECT_EQ(running.preProcessModule(), 0);
    job().setActiveModule(&running);
    EXPECT_EQ(running.processModule(), 0);
    EXPECT_EQ(running.postProcessModule(), 0);
}

TEST_F(ModuleEntryPointTest, ModuleIsActiveWhilePreProcessingAndNoneAfterwards)
{
    ModuleEntity* active = nullptr;
    probe.pre = [&] { active = job().getActiveModule(); };
    job().setActiveModule(&other);

    running.preProcessModule();

    EXPECT_EQ(active, &running);
    EXPECT_EQ(job().getActiveModule(), nullptr) << "not the module that was active before";
}

TEST_F(ModuleEntryPointTest, ModuleIsActiveWhilePostProcessingAndNoneAfterwards)
{
    ModuleEntity* active = nullptr;
    probe.post = [&] { active = job().getActiveModule(); };
    job().setActiveModule(&other);

    running.postProcessModule();

    EXPECT_EQ(active, &running);
    EXPECT_EQ(job().getActiveModule(), nullptr) << "not the module that was active before";
}

TEST_F(ModuleEntryPointTest, ProcessingKeepsTheActiveModuleThatItFinds)
{
    for (ModuleEntity* found : {&running, &other, static_cast<ModuleEntity*>(nullptr)}) {
        job().setActiveModule(found);
        EXPECT_EQ(running.processModule(), 0);
        EXPECT_EQ(job().getActiveModule(), found);
    }
}

TEST_F(ModuleEntryPointTest, ProcessingDoesNotMakeTheModuleActive)
{
    static ModuleEntity* active;
    active = &running;
    running.processFunction = [] {
        active = JobManager::getInstance()->getActiveModule();
        return 0;
    };
    job().setActiveModule(&other);
    running.processModule();
    EXPECT_EQ(active, &other);
}

TEST_F(ModuleEntryPointTest, ProcessingRestoresTheActiveModuleThatTheEntryPointChanged)
{
    probe.process = [&] { job().setActiveModule(&other); };
    job().setActiveModule(&running);
    running.processModule();
    EXPECT_EQ(job().getActiveModule(), &running);

    probe.process = [&] { job().setActiveModule(nullptr); };
    running.processModule();
    EXPECT_EQ(job().getActiveModule(), &running);
}

TEST_F(ModuleEntryPointTest, WorkTimeIsTheSumOverAllEntryPoints)
{
    ScopedClock clock(1000, 999999);
    probe.pre = [&] { clock.advance(1); }; // over a full second
    probe.process = [&] { clock.advance(2345678); };
    probe.post = [&] { clock.advance(10); };

    running.preProcessModule();
    EXPECT_EQ(running.totalModuleWorkTime, 1);
    clock.advance(5000000); // another module's work
    job().setActiveModule(&running);
    running.processModule();
    EXPECT_EQ(running.totalModuleWorkTime, 2345679);
    running.processModule();
    EXPECT_EQ(running.totalModuleWorkTime, 4691357);
    running.postProcessModule();
    EXPECT_EQ(running.totalModuleWorkTime, 4691367);
}

TEST_F(ModuleEntryPointTest, WorkTimeFollowsAClockThatIsSetBack)
{
    ScopedClock clock(1000, 1);
    probe.pre = [&] { clock.advance(-3); };
    running.totalModuleWorkTime = 10;
    running.preProcessModule();
    EXPECT_EQ(running.totalModuleWorkTime, 7);
}

TEST_F(ModuleEntryPointTest, WorkTimeIsTheWallClocks)
{
    probe.pre = [] {
        timespec pause{0, 3000000}, left;
        nanosleep(&pause, &left);
    };
    const int64_t before = job().getCurrentTime();
    running.preProcessModule();
    const int64_t elapsed = job().getCurrentTime() - before;
    EXPECT_GE(running.totalModuleWorkTime, 3000);
    EXPECT_LE(running.totalModuleWorkTime, elapsed);
}

// ------------------------------------------------------------------------------ trace counters

TEST_F(ModuleEntryPointTest, ProcessCallCountsOneInputTraceWhileChannelZeroHoldsAny)
{
    running.setInputDataChannel(&first, 0);
    running.setInputDataChannel(&second, 0);
    second.setNumberOfTraces(4); // does not matter
    job().setActiveModule(&running);

    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, 0) << "channel 0 is empty";

    first.setNumberOfTraces(1);
    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, 1);

    first.setNumberOfTraces(5);
    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, 2) << "one for a call, not one for a trace";
}

TEST_F(ModuleEntryPointTest, ModuleWithoutInputCountsNoInputTraces)
{
    job().setActiveModule(&running);
    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, 0);
}

TEST_F(ModuleEntryPointTest, InputTracesAreLookedAtAfterTheCall)
{
    running.setInputDataChannel(&first, 0);
    job().setActiveModule(&running);

    probe.process = [&] { first.setNumberOfTraces(1); };
    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, 1) << "empty before, not after";

    probe.process = [&] { first.removeTrace(0); };
    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, 1) << "empty after, not before";
}

TEST_F(ModuleEntryPointTest, InputTracesPendingForOthersOnlyAreCounted)
{
    other.setInputDataChannel(&first, 0);
    running.setInputDataChannel(&first, 0);
    first.setNumberOfTraces(1);
    first.removeInputTrace(&running, 0);
    ASSERT_EQ(first.getNumberOfInputTraces(&running), 0);
    job().setActiveModule(&running);
    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, 1);
}

TEST_F(ModuleEntryPointTest, ProcessCallAddsTheTracesOfAllOutputChannels)
{
    running.setOutputDataChannel(&first, 0);
    running.setOutputDataChannel(&second, 0);
    first.setNumberOfTraces(3);
    job().setActiveModule(&running);

    probe.process = [&] { second.setNumberOfTraces(2); };
    running.processModule();
    EXPECT_EQ(running.outputTracesProcessed, 5);

    probe.process = nullptr;
    running.processModule();
    EXPECT_EQ(running.outputTracesProcessed, 10) << "those that are still there count again";
}

TEST_F(ModuleEntryPointTest, OnlyProcessCallsCountTraces)
{
    running.setInputDataChannel(&first, 0);
    running.setOutputDataChannel(&second, 0);
    first.setNumberOfTraces(1);
    second.setNumberOfTraces(1);
    running.preProcessModule();
    running.postProcessModule();
    EXPECT_EQ(running.inputTracesProcessed, 0);
    EXPECT_EQ(running.outputTracesProcessed, 0);
}

TEST_F(ModuleEntryPointTest, TraceCountersWrapAround)
{
    running.setInputDataChannel(&first, 0);
    running.setOutputDataChannel(&first, 0);
    first.setNumberOfTraces(2);
    running.inputTracesProcessed = INT_MAX;
    running.outputTracesProcessed = INT_MAX;
    job().setActiveModule(&running);
    running.processModule();
    EXPECT_EQ(running.inputTracesProcessed, INT_MIN);
    EXPECT_EQ(running.outputTracesProcessed, INT_MIN + 1);
}

// ------------------------------------------------------------------------------------ channels

TEST_F(ModuleEntityTest, ChannelsAreNumberedInTheOrderOfAttachment)
{
    module.setInputDataChannel(&first, 5);
    module.setInputDataChannel(&second, 0);
    EXPECT_EQ(module.getNumberOfInputDataChannels(), 2);
    EXPECT_EQ(module.getInputDataChannel(0), &first) << "whatever number was asked for";
    EXPECT_EQ(module.getInputDataChannel(1), &second);

    module.setOutputDataChannel(&second, -3);
    module.setOutputDataChannel(&first, 0);
    EXPECT_EQ(module.getNumberOfOutputDataChannels(), 2);
    EXPECT_EQ(module.getOutputDataChannel(0), &second);
    EXPECT_EQ(module.getOutputDataChannel(1), &first);
}

TEST_F(ModuleEntityTest, ChannelThatIsReadHasTheModuleAsConsumer)
{
    module.setInputDataChannel(&first, 0);
    EXPECT_THAT(first.outputModules, ElementsAre(&module));
    EXPECT_THAT(first.inputModules, IsEmpty());
    EXPECT_THAT(module.outputDataChannels, IsEmpty());
}

TEST_F(ModuleEntityTest, ChannelThatIsWrittenHasTheModuleAsProducer)
{
    module.setOutputDataChannel(&first, 0);
    EXPECT_THAT(first.inputModules, ElementsAre(&module));
    EXPECT_THAT(first.outputModules, IsEmpty());
    EXPECT_THAT(module.inputDataChannels, IsEmpty());
}

TEST_F(ModuleEntityTest, ChannelAttachedTwiceCountsTwice)
{
    module.setInputDataChannel(&first, 0);
    module.setInputDataChannel(&first, 0);
    EXPECT_THAT(module.inputDataChannels, ElementsAre(&first, &first));
    EXPECT_THAT(first.outputModules, ElementsAre(&module, &module));
}

TEST_F(ModuleEntityTest, NullChannelIsIgnored)
{
    module.setInputDataChannel(nullptr, 0);
    module.setOutputDataChannel(nullptr, 0);
    EXPECT_EQ(module.getNumberOfInputDataChannels(), 0);
    EXPECT_EQ(module.getNumberOfOutputDataChannels(), 0);
}

TEST_F(ModuleEntityTest, ChannelNumberOutOfRangeGivesNull)
{
    module.setInputDataChannel(&first, 0);
    module.setOutputDataChannel(&second, 0);
    for (int number : {1, 2, 1000, INT_MAX, -1, -2, INT_MIN}) {
        EXPECT_EQ(module.getInputDataChannel(number), nullptr) << number;
        EXPECT_EQ(module.getOutputDataChannel(number), nullptr) << number;
    }
}

TEST_F(ModuleEntityTest, ModuleWithoutChannelsIsInputAndOutputModule)
{
    EXPECT_TRUE(module.isInputModule());
    EXPECT_TRUE(module.isOutputModule());
}

TEST_F(ModuleEntityTest, InputModuleIsOneThatNobodyFeeds)
{
    module.setInputDataChannel(&first, 0);
    module.setInputDataChannel(&second, 0);
    EXPECT_TRUE(module.isInputModule()) << "its channels have no producer";
    other.setOutputDataChannel(&second, 0);
    EXPECT_FALSE(module.isInputModule()) << "the second channel has one";
}

TEST_F(ModuleEntityTest, OutputModuleIsOneThatFeedsNobody)
{
    module.setOutputDataChannel(&first, 0);
    module.setOutputDataChannel(&second, 0);
    EXPECT_TRUE(module.isOutputModule()) << "its channels have no consumer";
    other.setInputDataChannel(&second, 0);
    EXPECT_FALSE(module.isOutputModule()) << "the second channel has one";
}

TEST_F(ModuleEntityTest, ChannelsOnTheOtherSideDoNotMatterForInputAndOutputModules)
{
    module.setInputDataChannel(&first, 0);
    other.setOutputDataChannel(&first, 0);
    EXPECT_TRUE(module.isOutputModule());
    EXPECT_TRUE(other.isInputModule());
}

// -------------------------------------------------------------------------------------- traces

TEST_F(ModuleEntityTest, NumberOfInputTracesIsWhatTheChannelHolds)
{
    other.setInputDataChannel(&first, 0);
    module.setInputDataChannel(&first, 0);
    first.setNumberOfTraces(3);
    first.removeInputTrace(&module, 0);
    ASSERT_EQ(first.getNumberOfInputTraces(&module), 2);
    EXPECT_EQ(module.getNumberOfInputTraces(0), 3) << "also those that are not pending here";
}

TEST_F(ModuleEntityTest, ChannelThatIsNotThereHoldsNoInputTraces)
{
    module.setInputDataChannel(&first, 0);
    first.setNumberOfTraces(3);
    for (int number : {1, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(module.getNumberOfInputTraces(number), 0) << number;
        EXPECT_EQ(module.getInputTrace(number), nullptr) << number;
        EXPECT_EQ(module.removeInputTrace(number, 0), 0) << number;
    }
    EXPECT_EQ(first.getNumberOfTraces(), 3);
}

TEST_F(ModuleEntityTest, InputTraceIsTheChannelAsATraceSet)
{
    module.setInputDataChannel(&first, 0);
    module.setInputDataChannel(&second, 0);
    EXPECT_EQ(module.getInputTrace(0), static_cast<SeisTraceSet*>(&first));
    EXPECT_EQ(module.getInputTrace(1), static_cast<SeisTraceSet*>(&second));
}

TEST_F(ModuleEntityTest, RemoveInputTraceRemovesThatTraceAndReturnsHowManyAreLeft)
{
    module.setInputDataChannel(&first, 0);
    first.setNumberOfTraces(3);
    SeisTrace* const before = first.traces[0];
    SeisTrace* const after = first.traces[2];
    EXPECT_EQ(module.removeInputTrace(0, 1), 2);
    ASSERT_EQ(first.getNumberOfTraces(), 2);
    EXPECT_EQ(first.traces[0], before);
    EXPECT_EQ(first.traces[1], after);
}

TEST_F(ModuleEntityTest, RemoveInputTraceDoesNotAskTheOtherConsumers)
{
    module.setInputDataChannel(&first, 0);
    other.setInputDataChannel(&first, 0);
    first.setNumberOfTraces(1);
    EXPECT_EQ(module.removeInputTrace(0, 0), 0);
    EXPECT_EQ(first.getNumberOfTraces(), 0);
}

TEST_F(ModuleEntityTest, RemoveInputTraceBeyondTheEndCreatesTheTracesBeforeIt)
{
    module.setInputDataChannel(&first, 0);
    EXPECT_EQ(module.removeInputTrace(0, 2), 2);
}

TEST_F(ModuleEntityTest, TotalTracesAreTheSumsOfWhatTheChannelsAnnounce)
{
    module.setInputDataChannel(&first, 0);
    module.setOutputDataChannel(&second, 0);
    first.informTotalTracesNumber(7);
    second.informTotalTracesNumber(11);
    first.setNumberOfTraces(2); // does not matter
    EXPECT_EQ(module.getTotalInputTraces(), 7);
    EXPECT_EQ(module.getTotalOutputTraces(), 11);

    module.setInputDataChannel(&second, 0);
    module.setOutputDataChannel(&first, 0);
    EXPECT_EQ(module.getTotalInputTraces(), 18);
    EXPECT_EQ(module.getTotalOutputTraces(), 18);
}

TEST_F(ModuleEntityTest, ModuleWithoutChannelsExpectsNoTraces)
{
    EXPECT_EQ(module.getTotalInputTraces(), 0);
    EXPECT_EQ(module.getTotalOutputTraces(), 0);
}

TEST_F(ModuleEntityTest, TotalTracesAreCutTo32Bits)
{
    module.setInputDataChannel(&first, 0);
    module.setInputDataChannel(&second, 0);
    module.setOutputDataChannel(&first, 0);
    module.setOutputDataChannel(&second, 0);
    const struct
    {
        int64_t first;
        int64_t second;
        int expected;
    } rows[] = {
        {INT64_C(0x7fffffff), 1, INT_MIN},
        {INT64_C(0x100000000), 5, 5},
        {INT64_C(0x80000000), INT64_C(0x80000000), 0},
        {INT64_C(0x123456789), 0, 0x23456789},
        {-1, -1, -2},
        {INT64_MAX, 1, 0},
        {INT64_MAX, INT64_MAX, -2},
        {INT64_MIN, INT64_MIN, 0},
    };
    for (const auto& row : rows) {
        first.informTotalTracesNumber(row.first);
        second.informTotalTracesNumber(row.second);
        EXPECT_EQ(module.getTotalInputTraces(), row.expected) << row.first << " + " << row.second;
        EXPECT_EQ(module.getTotalOutputTraces(), row.expected) << row.first << " + " << row.second;
    }
}

// -------------------------------------------------------------------------------- work buffers

TEST_F(ModuleEntityTest, WorkBufferIsCreatedTogetherWithAllBeforeIt)
{
    SeisTraceSet* const fourth = module.getWorkTraceBuffer(3);
    ASSERT_EQ(module.getNumberOfWorkTraceBuffers(), 4);
    EXPECT_EQ(fourth, module.workTraceSets[3]);
    for (SeisTraceSet* set : module.workTraceSets) {
        ASSERT_NE(set, nullptr);
        EXPECT_EQ(set->getNumberOfTraces(), 0);
        EXPECT_THAT(set->getAttributesList(), IsEmpty());
        EXPECT_EQ(set->getTraceLength(), 0);
    }
}

TEST_F(ModuleEntityTest, WorkBufferThatExistsIsFoundAgain)
{
    SeisTraceSet* const third = module.getWorkTraceBuffer(2);
    SeisTraceSet* const firstBuffer = module.getWorkTraceBuffer(0);
    EXPECT_NE(firstBuffer, third);
    EXPECT_EQ(module.getWorkTraceBuffer(2), third);
    EXPECT_EQ(module.getWorkTraceBuffer(0), firstBuffer);
    EXPECT_EQ(module.getNumberOfWorkTraceBuffers(), 3);
}

TEST_F(ModuleEntityTest, SetNumberOfWorkTraceBuffersMakesThatIndexValid)
{
    const struct
    {
        int asked;
        int expected;
    } rows[] = {{-1, 0}, {INT_MIN, 0}, {0, 1}, {2, 3}, {1, 3}, {2, 3}, {0, 3}, {-1, 3}, {3, 4}};
    for (const auto& row : rows) {
        module.setNumberOfWorkTraceBuffers(row.asked);
        EXPECT_EQ(module.getNumberOfWorkTraceBuffers(), row.expected) << row.asked;
    }
}

TEST_F(ModuleEntityTest, AddedWorkBufferIsTheLast)
{
    module.setNumberOfWorkTraceBuffers(1);
    auto* const added = new SeisTraceSet;
    EXPECT_EQ(module.addWorkTraceBuffer(added), 3);
    EXPECT_EQ(module.getWorkTraceBuffer(2), added);
}

TEST_F(ModuleEntityTest, NegativeWorkBufferIsNone)
{
    EXPECT_EQ(module.getWorkTraceBuffer(-1), nullptr);
    module.setNumberOfWorkTraceBuffers(0);
    EXPECT_EQ(module.getWorkTraceBuffer(INT_MIN), nullptr);
    EXPECT_EQ(module.getNumberOfWorkTraceBuffers(), 1);
}

// -------------------------------------------------------------- parameters, resources, options

TEST_F(ModuleEntityTest, SetParameterReplacesAndReturnsZero)
{
    EXPECT_EQ(module.setParameter("window", UniVar(1)), 0);
    EXPECT_EQ(module.setParameter("window", UniVar("two")), 0);
    EXPECT_EQ(module.getParameter("window").getStrValue(), "two");
    EXPECT_EQ(module.moduleParameters.size(), 1u);
}

TEST_F(ModuleEntityTest, SetResourceReplacesAndReturnsOne)
{
    EXPECT_EQ(module.setResource("state", UniVar(1)), 1);
    EXPECT_EQ(module.setResource("state", UniVar("two")), 1);
    EXPECT_EQ(module.getResource("state").getStrValue(), "two");
    EXPECT_EQ(module.moduleResources.size(), 1u);
}

TEST_F(ModuleEntityTest, ParameterThatWasLookedUpIsPresent)
{
    EXPECT_FALSE(module.isParameterPresent("x"));
    EXPECT_THAT(module.moduleParameters, IsEmpty()) << "asking for presence inserts nothing";
    EXPECT_EQ(module.getParameter("x").getType(), undefinedType);
    EXPECT_TRUE(module.isParameterPresent("x"));
    EXPECT_EQ(module.getParameter("x").getType(), undefinedType);
}

TEST_F(ModuleEntityTest, ResourceThatWasLookedUpIsPresent)
{
    EXPECT_FALSE(module.isResourcePresent("x"));
    EXPECT_THAT(module.moduleResources, IsEmpty()) << "asking for presence inserts nothing";
    EXPECT_EQ(module.getResource("x").getType(), undefinedType);
    EXPECT_TRUE(module.isResourcePresent("x"));
    EXPECT_EQ(module.getResource("x").getType(), undefinedType);
}

TEST_F(ModuleEntityTest, ParametersAndResourcesAreCopiesOnTheWayInAndOut)
{
    const int elements[] = {1, 2};
    UniVar given(elements, 2);
    module.setParameter("list", given);
    module.setResource("list", given);
    module.setProcessingOption("list", given);
    given.getI32ArrayValue()[0] = 9;
    module.getParameter("list").getI32ArrayValue()[1] = 9;
    module.getResource("list").getI32ArrayValue()[1] = 9;
    module.getProcessingOption("list").getI32ArrayValue()[1] = 9;
    EXPECT_EQ(module.getParameter("list").getStrValue(), "[1,2]");
    EXPECT_EQ(module.getResource("list").getStrValue(), "[1,2]");
    EXPECT_EQ(module.getProcessingOption("list").getStrValue(), "[1,2]");
}

TEST_F(ModuleEntityTest, ParametersResourcesOptionsAndMetadataAreApart)
{
    module.setParameter("x", UniVar(1));
    EXPECT_FALSE(module.isResourcePresent("x"));
    EXPECT_EQ(module.getProcessingOption("x").getType(), undefinedType);
    EXPECT_THAT(module.getMetaData(), IsEmpty());

    module.setResource("y", UniVar(1));
    module.setProcessingOption("z", UniVar(1));
    module.setMetaData("m", "1");
    EXPECT_FALSE(module.isParameterPresent("y"));
    EXPECT_FALSE(module.isParameterPresent("z"));
    EXPECT_FALSE(module.isParameterPresent("m"));
}

TEST_F(ModuleEntityTest, NamesAreComparedExactly)
{
    module.setParameter("Window", UniVar(1));
    module.setResource("Window", UniVar(1));
    for (const char* name : {"window", "Window ", " Window", "WINDOW", ""}) {
        EXPECT_FALSE(module.isParameterPresent(name)) << name;
        EXPECT_FALSE(module.isResourcePresent(name)) << name;
    }
    EXPECT_TRUE(module.isParameterPresent("Window"));
    EXPECT_TRUE(module.isResourcePresent("Window"));
}

TEST_F(ModuleEntityTest, ProcessingOptionIsLookedUpWithoutInserting)
{
    EXPECT_EQ(module.getProcessingOption("x").getType(), undefinedType);
    EXPECT_THAT(module.moduleProcessingOptions, IsEmpty());
}

TEST_F(ModuleEntityTest, ProcessingOptionIsReplaced)
{
    module.setProcessingOption("mode", UniVar(1));
    module.setProcessingOption("mode", UniVar("fast"));
    EXPECT_EQ(module.getProcessingOption("mode").getStrValue(), "fast");
    EXPECT_EQ(module.moduleProcessingOptions.size(), 1u);
}

TEST_F(ModuleEntityTest, UndefinedValueRemovesAProcessingOption)
{
    module.setProcessingOption("mode", UniVar(1));
    module.setProcessingOption("other", UniVar(2));
    module.setProcessingOption("mode", UniVar());
    EXPECT_EQ(module.moduleProcessingOptions.count("mode"), 0u);
    EXPECT_EQ(module.getProcessingOption("other").getI32Value(), 2);

    module.setProcessingOption("mode", UniVar()); // which is not there
    EXPECT_EQ(module.moduleProcessingOptions.size(), 1u);
}

TEST_F(ModuleEntityTest, RespectEodIsTrueForNumbersOtherThanZero)
{
    const int one[] = {1};
    const struct
    {
        const char* text;
        UniVar value;
        bool expected;
    } rows[] = {
        {"1", UniVar(1), true},
        {"-1", UniVar(-1), true},
        {"0", UniVar(0), false},
        {"a 64-bit 1", UniVar(INT64_C(1)), true},
        {"a 64-bit number with low bits 0", UniVar(INT64_C(0x100000000)), false},
        {"1.5", UniVar(1.5), true},
        {"0.5, which is 0 without its fraction", UniVar(0.5), false},
        {"the text 1", UniVar("1"), true},
        {"the text 0", UniVar("0"), false},
        {"the text yes", UniVar("yes"), false},
        {"an array", UniVar(one, 1), false},
        {"an address", UniVar(static_cast<void*>(&module)), false},
        {"nothing", UniVar(), false},
    };
    for (const auto& row : rows) {
        for (bool before : {false, true}) {
            module.respectEOD = before;
            module.setProcessingOption("RespectEOD", row.value);
            EXPECT_EQ(module.respectEOD, row.expected) << row.text;
            EXPECT_EQ(module.isRespectEOD(), row.expected) << row.text;
            EXPECT_EQ(module.getProcessingOption("RespectEOD").getType(), row.value.getType())
                << row.text;
        }
    }
    EXPECT_THAT(module.moduleProcessingOptions, IsEmpty()) << "the last row removed it";
}

TEST_F(ModuleEntityTest, OtherOptionsDoNotTouchRespectEod)
{
    module.setProcessingOption("RespectEOD", UniVar(1));
    for (const char* name : {"respectEOD", "RespectEOD ", "RESPECTEOD", ""}) {
        module.setProcessingOption(name, UniVar(0));
        EXPECT_TRUE(module.isRespectEOD()) << name;
        module.setProcessingOption(name, UniVar());
        EXPECT_TRUE(module.isRespectEOD()) << name;
    }
}

// ------------------------------------------------------------------------ metadata and counters

TEST_F(ModuleEntityTest, FirstValueOfAMetadataKeyIsKept)
{
    module.setMetaData("k", "a");
    module.setMetaData("k", "b");
    module.setMetaData("empty", "");
    module.setMetaData("empty", "late");
    EXPECT_THAT(module.getMetaData(), ElementsAre(Pair("empty", ""), Pair("k", "a")));
}

TEST_F(ModuleEntityTest, MetadataMapIsTheModulesOwn)
{
    EXPECT_EQ(&module.getMetaData(), &module.moduleMetaData);
}

TEST_F(ModuleEntityTest, WorkTimeIsReportedInWholeSecondsCutTowardZero)
{
    const struct
    {
        int64_t microseconds;
        int expected;
    } rows[] = {
        {0, 0},
        {999999, 0},
        {1000000, 1},
        {2999999, 2},
        {3000000, 3},
        {-999999, 0},
        {-2999999, -2},
        {INT64_C(2147483647999999), INT_MAX},
        {INT64_C(2147483648000000), INT_MIN},
        {INT64_C(4294967301000000), 5},
    };
    for (const auto& row : rows) {
        module.totalModuleWorkTime = row.microseconds;
        EXPECT_EQ(module.getTotalModuleWorkTime(), row.expected) << row.microseconds;
    }
}

TEST_F(ModuleEntityTest, CountersAreReportedAsTheyAre)
{
    module.totalModuleMemoryUsed = -5;
    module.inputTracesProcessed = 6;
    module.outputTracesProcessed = INT_MIN;
    EXPECT_EQ(module.getTotalModuleMemoryUsed(), -5);
    EXPECT_EQ(module.getInputTracesProcessed(), 6);
    EXPECT_EQ(module.getOutputTracesProcessed(), INT_MIN);
}

} // namespace
