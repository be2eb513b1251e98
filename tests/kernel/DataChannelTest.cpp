#include "DataChannel.h"

#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "TraceVerbs.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DataChannelTest : public KernelFixture
{
protected:
    SeisTrace* add(DataChannel& to)
    {
        SeisTrace* trace = new SeisTrace(0, 0);
        to.addTrace(trace);
        return trace;
    }
    SeisTrace* add() { return add(channel); }
    void attachConsumers()
    {
        channel.attachOutputModule(&a);
        channel.attachOutputModule(&b);
    }
    std::vector<SeisTrace*> queueOf(ModuleEntity& consumer)
    {
        const auto queue = channel.moduleTraces.find(&consumer);
        if (queue == channel.moduleTraces.end())
            return {};
        return {queue->second.begin(), queue->second.end()};
    }
    std::vector<SeisTrace*> traces() { return {channel.traces.begin(), channel.traces.end()}; }
    // A trace has two blocks of accounted memory.
    size_t tracesAlive() { return job().jobMemoryMap.size() / 2; }

    ModuleEntity a{"A"}, b{"B"}, c{"C"};
    Owning<DataChannel> channel;
};

TEST_F(DataChannelTest, FieldsFollowThoseOfTheSetInTheirOrder)
{
    const auto place = [&](const void* member) {
        return static_cast<const char*>(member) - reinterpret_cast<const char*>(&channel);
    };
    EXPECT_GE(place(&channel.inputModules), static_cast<std::ptrdiff_t>(sizeof(SeisTraceSet)));
    EXPECT_LT(place(&channel.inputModules), place(&channel.outputModules));
    EXPECT_LT(place(&channel.outputModules), place(&channel.moduleTraces));
    EXPECT_LT(place(&channel.moduleTraces), place(&channel.flags));
}

#if defined(__x86_64__)
TEST_F(DataChannelTest, AddTraceIsTheFirstVirtualOperation)
{
    int (DataChannel::*operation)(SeisTrace*) = &DataChannel::addTrace;
    std::intptr_t slot = 0;
    std::memcpy(&slot, &operation, sizeof slot);
    EXPECT_EQ(slot, 1) << "1 stands for the table's first place";
}
#endif

TEST_F(DataChannelTest, NewChannelIsAnEmptySetWithPagingOnAndNoModules)
{
    EXPECT_EQ(channel.getNumberOfTraces(), 0);
    EXPECT_TRUE(channel.isUseScratch());
    EXPECT_EQ(channel.getNumberOfInputModules(), 0);
    EXPECT_EQ(channel.getNumberOfOutputModules(), 0);
    EXPECT_TRUE(channel.moduleTraces.empty());
    EXPECT_EQ(channel.flags, 0);
}

TEST_F(DataChannelTest, ModulesAreListedInTheOrderOfAttachment)
{
    channel.attachInputModule(&b);
    channel.attachInputModule(&a);
    channel.attachOutputModule(&c);
    EXPECT_EQ(channel.getNumberOfInputModules(), 2);
    EXPECT_EQ(channel.getAttachedInputModule(0), &b);
    EXPECT_EQ(channel.getAttachedInputModule(1), &a);
    EXPECT_EQ(channel.getNumberOfOutputModules(), 1);
    EXPECT_EQ(channel.getAttachedOutputModule(0), &c);
    EXPECT_THAT(channel.inputModules, ElementsAre(&b, &a));
    EXPECT_THAT(channel.outputModules, ElementsAre(&c));
}

TEST_F(DataChannelTest, ModuleAttachedTwiceIsListedTwice)
{
    channel.attachInputModule(&a);
    channel.attachInputModule(&a);
    channel.attachOutputModule(&a);
    channel.attachOutputModule(&a);
    EXPECT_EQ(channel.getNumberOfInputModules(), 2);
    EXPECT_EQ(channel.getNumberOfOutputModules(), 2);
}

TEST_F(DataChannelTest, ThereIsNoModuleOutsideTheLists)
{
    channel.attachInputModule(&a);
    channel.attachOutputModule(&b);
    for (const int i : {1, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(channel.getAttachedInputModule(i), nullptr);
        EXPECT_EQ(channel.getAttachedOutputModule(i), nullptr);
    }
}

TEST_F(DataChannelTest, AttachingThroughAModuleReachesTheChannel)
{
    Owning<DataChannel> other;
    a.setOutputDataChannel(&other, 0);
    b.setInputDataChannel(&other, 0);
    EXPECT_THAT(other.inputModules, ElementsAre(&a));
    EXPECT_THAT(other.outputModules, ElementsAre(&b));
}

TEST_F(DataChannelTest, AddedTraceReachesEveryConsumer)
{
    attachConsumers();
    SeisTrace* first = new SeisTrace(0, 0);
    SeisTrace* second = new SeisTrace(0, 0);
    EXPECT_EQ(channel.addTrace(first), 1);
    EXPECT_EQ(channel.addTrace(second), 2);
    EXPECT_THAT(queueOf(a), ElementsAre(first, second));
    EXPECT_THAT(queueOf(b), ElementsAre(first, second));
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 2);
    EXPECT_EQ(channel.getNumberOfInputTraces(&b), 2);
    EXPECT_EQ(channel.getNumberOfTraces(), 2);
}

TEST_F(DataChannelTest, AddTraceOfTheBaseReachesTheConsumersToo)
{
    attachConsumers();
    SeisTraceSet* set = &channel;
    EXPECT_EQ(set->addTrace(new SeisTrace(0, 0)), 1);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 1);
}

TEST_F(DataChannelTest, TracesMadeOnDemandReachEveryConsumer)
{
    attachConsumers();
    channel.getTrace(1, true);
    EXPECT_EQ(queueOf(a), traces());
    EXPECT_EQ(queueOf(b), traces());
    ASSERT_EQ(traces().size(), 2u);

    channel.setTrace(new SeisTrace(0, 0), 3);
    channel.setNumberOfTraces(6);
    channel.setAttribute("a", UniVar(1), 6);
    EXPECT_EQ(queueOf(a), traces());
    EXPECT_EQ(queueOf(b), traces());
    EXPECT_EQ(traces().size(), 7u);
}

TEST_F(DataChannelTest, ProducersHaveNoQueue)
{
    channel.attachInputModule(&a);
    add();
    EXPECT_TRUE(channel.moduleTraces.empty());
}

TEST_F(DataChannelTest, ConsumerThatNoTraceHasReachedCountsTheWholeChannel)
{
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 0);
    add();
    add();
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 2) << "not attached at all";
    channel.attachOutputModule(&a);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 2) << "attached after they came";
    add();
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 1) << "its queue has begun";
    EXPECT_EQ(channel.getNumberOfInputTraces(&b), 3);
}

TEST_F(DataChannelTest, EmptyQueueCountsZeroAndNotTheChannel)
{
    attachConsumers();
    add();
    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 0);
    EXPECT_EQ(channel.getNumberOfTraces(), 1);
}

TEST_F(DataChannelTest, QueueThatTheHostErasesIsForgotten)
{
    attachConsumers();
    add();
    add();
    channel.removeInputTrace(&a, 0);
    ASSERT_EQ(channel.getNumberOfInputTraces(&a), 1);

    channel.moduleTraces.erase(&a);

    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 2) << "as if no trace had reached it";
    EXPECT_EQ(channel.getNumberOfInputTraces(&b), 2);
    SeisTrace* third = add();
    EXPECT_THAT(queueOf(a), ElementsAre(third));
}

TEST_F(DataChannelTest, ConsumersAreNotMistakenForEachOther)
{
    attachConsumers();
    for (int i = 0; i < 3; ++i)
        add();
    channel.removeInputTrace(&a, 0);
    channel.removeInputTrace(&a, 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(channel.getNumberOfInputTraces(&a), 1);
        EXPECT_EQ(channel.getNumberOfInputTraces(&b), 3);
        EXPECT_EQ(channel.getNumberOfInputTraces(&c), 3) << "it has no queue";
    }
}

TEST_F(DataChannelTest, AskingNeverMakesAQueue)
{
    attachConsumers();
    channel.getNumberOfInputTraces(&a);
    channel.getNumberOfInputTraces(&c);
    EXPECT_TRUE(channel.moduleTraces.empty());
}

TEST_F(DataChannelTest, TakingNeverMakesAQueue)
{
    channel.attachOutputModule(&a);
    add();
    channel.removeInputTrace(&c, 0);
    EXPECT_EQ(channel.moduleTraces.count(&c), 0u);
    EXPECT_EQ(channel.moduleTraces.size(), 1u);
}

TEST_F(DataChannelTest, TraceStaysUntilTheLastConsumerHasTakenIt)
{
    attachConsumers();
    SeisTrace* first = add();
    SeisTrace* second = add();

    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), ElementsAre(first, second));
    EXPECT_THAT(queueOf(a), ElementsAre(second));
    EXPECT_THAT(queueOf(b), ElementsAre(first, second));
    EXPECT_EQ(tracesAlive(), 2u);

    channel.removeInputTrace(&b, 0);
    EXPECT_THAT(traces(), ElementsAre(second));
    EXPECT_THAT(queueOf(b), ElementsAre(second));
    EXPECT_EQ(tracesAlive(), 1u);
}

TEST_F(DataChannelTest, TransferOfATraceThatOthersWaitForCopies)
{
    attachConsumers();
    Owning<SeisTraceSet> work;
    SeisTrace* trace = channel.getTrace(0, false);

    EXPECT_EQ(work.transferFromTrace(&channel, 0, 0), 1);
    EXPECT_EQ(channel.getTrace(0, false), trace);
    EXPECT_NE(work.getTrace(0, false), trace);

    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(work.transferFromTrace(&channel, 0, 1), 1);
    EXPECT_EQ(work.getTrace(1, false), trace) << "the last consumer takes the trace itself";
    channel.removeInputTrace(&b, 0);
    EXPECT_EQ(channel.getNumberOfTraces(), 0);
}

TEST_F(DataChannelTest, NumberIsThatOfTheChannelAndNotOfTheQueue)
{
    attachConsumers();
    SeisTrace* first = add();
    SeisTrace* second = add();
    SeisTrace* third = add();
    channel.removeInputTrace(&a, 0);
    channel.removeInputTrace(&a, 1);
    EXPECT_THAT(queueOf(a), ElementsAre(third));
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(queueOf(a), ElementsAre(third)) << "the channel's first was taken long ago";
    EXPECT_THAT(traces(), ElementsAre(first, second, third));
    EXPECT_THAT(queueOf(b), ElementsAre(first, second, third));
}

TEST_F(DataChannelTest, TracesAreTakenInAnyOrder)
{
    attachConsumers();
    SeisTrace* first = add();
    SeisTrace* second = add();
    SeisTrace* third = add();
    channel.removeInputTrace(&a, 1);
    EXPECT_THAT(queueOf(a), ElementsAre(first, third));
    channel.removeInputTrace(&b, 2);
    channel.removeInputTrace(&b, 1);
    EXPECT_THAT(queueOf(b), ElementsAre(first));
    EXPECT_THAT(traces(), ElementsAre(first, third));
    channel.removeInputTrace(&a, 1);
    EXPECT_THAT(traces(), ElementsAre(first));
    EXPECT_NE(first, second);
}

TEST_F(DataChannelTest, RemovedTracesFlagRuleIsTheSets)
{
    channel.attachOutputModule(&a);
    add();
    add()->setTraceFlag(3);
    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.dataChannelFlag, 3);
    EXPECT_EQ(channel.getDataChannelFlag(), 3);
    channel.dataChannelFlag = 0;
    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.getDataChannelFlag(), 0) << "a lone marked trace takes its flag along";
}

TEST_F(DataChannelTest, WithoutConsumersTracesStayUntilSomebodyRemovesThem)
{
    add();
    SeisTrace* second = add();
    EXPECT_EQ(channel.getNumberOfTraces(), 2);
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), ElementsAre(second)) << "no queue holds it";
    EXPECT_EQ(tracesAlive(), 1u);
}

TEST_F(DataChannelTest, StrangerRemovesOnlyWhatNobodyWaitsFor)
{
    channel.attachOutputModule(&a);
    SeisTrace* trace = add();
    channel.removeInputTrace(&c, 0);
    EXPECT_THAT(traces(), ElementsAre(trace));
    EXPECT_THAT(queueOf(a), ElementsAre(trace));
}

TEST_F(DataChannelTest, EarlierTracesAreNotPendingForALateConsumer)
{
    channel.attachOutputModule(&a);
    SeisTrace* first = add();
    channel.attachOutputModule(&b);
    SeisTrace* second = add();
    EXPECT_THAT(queueOf(a), ElementsAre(first, second));
    EXPECT_THAT(queueOf(b), ElementsAre(second));
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), ElementsAre(second));
}

TEST_F(DataChannelTest, RemovingFromAnEmptyChannelMakesATraceThatTheOthersHavePending)
{
    attachConsumers();
    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.getNumberOfTraces(), 1);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 0);
    EXPECT_EQ(channel.getNumberOfInputTraces(&b), 1);
    channel.removeInputTrace(&b, 0);
    EXPECT_EQ(channel.getNumberOfTraces(), 0);
    EXPECT_EQ(tracesAlive(), 0u);
}

TEST_F(DataChannelTest, LoneConsumersRemovalFromAnEmptyChannelLeavesItEmpty)
{
    channel.attachOutputModule(&a);
    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.getNumberOfTraces(), 0);
    EXPECT_EQ(channel.moduleTraces.count(&a), 1u) << "a trace has reached it";
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 0);
}

TEST_F(DataChannelTest, RemovingBeyondTheEndMakesAllTracesUpToThere)
{
    attachConsumers();
    SeisTrace* first = add();
    channel.removeInputTrace(&a, 2);
    ASSERT_EQ(channel.getNumberOfTraces(), 3);
    EXPECT_THAT(queueOf(a), ElementsAre(first, channel.getTrace(1, false)));
    EXPECT_EQ(queueOf(b), traces());
}

TEST_F(DataChannelTest, NegativeNumberRemovesNothing)
{
    channel.attachOutputModule(&a);
    add();
    channel.removeInputTrace(&a, -1);
    channel.removeInputTrace(&a, INT_MIN);
    EXPECT_EQ(channel.getNumberOfTraces(), 1);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 1);
}

TEST_F(DataChannelTest, ConsumerAttachedTwiceTakesEachTraceTwice)
{
    channel.attachOutputModule(&a);
    channel.attachOutputModule(&a);
    SeisTrace* first = add();
    SeisTrace* second = add();
    EXPECT_THAT(queueOf(a), ElementsAre(first, first, second, second));
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 4);
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(queueOf(a), ElementsAre(first, second, second));
    EXPECT_THAT(traces(), ElementsAre(first, second));
    channel.removeInputTrace(&a, 1);
    EXPECT_THAT(queueOf(a), ElementsAre(first, second));
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), ElementsAre(second));
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(DataChannelTest, RemovingReadsAPagedOutTraceBackFirst)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    attachConsumers();
    SeisTrace* first = channel.getTrace(0, true);
    channel.getTrace(1, true);
    ASSERT_FALSE(isResident(*first));
    channel.removeInputTrace(&a, 0);
    EXPECT_TRUE(isResident(*first));
    EXPECT_EQ(scratch().traces_cache.front(), first);
}

TEST_F(DataChannelTest, ReplacingAnEntryReachesNoQueue)
{
    channel.attachOutputModule(&a);
    const OwnedTrace first(add());
    SeisTrace* other = new SeisTrace(0, 0);
    channel.setTrace(other, 0);
    EXPECT_THAT(traces(), ElementsAre(other));
    EXPECT_THAT(queueOf(a), ElementsAre(first.get()));
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), IsEmpty()) << "no queue holds the other one";
    EXPECT_THAT(queueOf(a), ElementsAre(first.get()));
}

TEST_F(DataChannelTest, TraceMovedInAtTheEndReachesTheConsumers)
{
    attachConsumers();
    Owning<SeisTraceSet> set;
    SeisTrace* trace = set.getTrace(0, true);
    EXPECT_EQ(channel.moveFromTrace(&set, 0, 0), 1);
    EXPECT_THAT(queueOf(a), ElementsAre(trace));
    EXPECT_THAT(queueOf(b), ElementsAre(trace));
    channel.removeInputTrace(&a, 0);
    channel.removeInputTrace(&b, 0);
    EXPECT_EQ(tracesAlive(), 0u);
}

TEST_F(DataChannelTest, MovedTracePassesFromChannelToChannel)
{
    Owning<DataChannel> next;
    channel.attachOutputModule(&a);
    next.attachOutputModule(&b);
    for (int i = 0; i < 5; ++i) {
        SeisTrace* trace = add();
        EXPECT_EQ(next.moveFromTrace(&channel, 0, next.getNumberOfTraces()), 1);
        channel.removeInputTrace(&a, 0);
        EXPECT_EQ(channel.getNumberOfTraces(), 0);
        EXPECT_EQ(channel.getNumberOfInputTraces(&a), 0);
        EXPECT_EQ(next.getNumberOfInputTraces(&b), i + 1);
        EXPECT_EQ(next.traces.back(), trace);
    }
    for (int i = 4; i >= 0; --i) {
        next.removeInputTrace(&b, 0);
        EXPECT_EQ(tracesAlive(), static_cast<size_t>(i));
    }
}

TEST_F(DataChannelTest, TraceMovedOutIsStillPendingUntilItsEntryIsTaken)
{
    attachConsumers();
    Owning<SeisTraceSet> set;
    SeisTrace* moved = add();
    SeisTrace* second = add();
    EXPECT_EQ(set.moveFromTrace(&channel, 0, 0), 1);
    EXPECT_THAT(traces(), ElementsAre(nullptr, second));
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 2);
    EXPECT_EQ(channel.getNumberOfInputTraces(&b), 2);

    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 1);
    EXPECT_THAT(traces(), ElementsAre(nullptr, second)) << "the other has not taken it";
    channel.removeInputTrace(&b, 0);
    EXPECT_EQ(channel.getNumberOfInputTraces(&b), 1);
    EXPECT_THAT(traces(), ElementsAre(second));
    EXPECT_EQ(set.getTrace(0, true), moved) << "its new set keeps it";
}

TEST_F(DataChannelTest, TraceMovedOutCanBeDestroyedWhileItsEntryIsPending)
{
    channel.attachOutputModule(&a);
    add();
    SeisTrace* second = add();
    {
        Owning<SeisTraceSet> set;
        set.moveFromTrace(&channel, 0, 0);
    }
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), ElementsAre(second));
    EXPECT_THAT(queueOf(a), ElementsAre(second));
}

TEST_F(DataChannelTest, TraceMovedFromAConsumerAttachedTwiceLeavesTwoEmptyEntries)
{
    channel.attachOutputModule(&a);
    channel.attachOutputModule(&a);
    SeisTrace* first = add();
    add();
    SeisTrace* third = add();
    {
        Owning<SeisTraceSet> set;
        set.moveFromTrace(&channel, 1, 0);
    }
    EXPECT_THAT(queueOf(a), ElementsAre(first, first, nullptr, nullptr, third, third));
    channel.removeInputTrace(&a, 1);
    EXPECT_THAT(traces(), ElementsAre(first, nullptr, third));
    channel.removeInputTrace(&a, 1);
    EXPECT_THAT(traces(), ElementsAre(first, third));
    EXPECT_THAT(queueOf(a), ElementsAre(first, first, third, third));
}

// A module may move all traces of its input to its work buffer, then say that it is done with them.
TEST_F(DataChannelTest, ConsumerThatMovesSeveralTracesAndThenTakesThemLeavesAnEmptyChannel)
{
    channel.attachOutputModule(&a);
    Owning<SeisTraceSet> set;
    for (int i = 0; i < 3; ++i)
        add();
    for (int i = 0; i < 3; ++i)
        set.moveFromTrace(&channel, i, i);
    for (int i = 0; i < 3; ++i)
        channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 0);
    EXPECT_EQ(channel.getNumberOfTraces(), 0);

    SeisTrace* next = add();
    EXPECT_EQ(channel.getTrace(0, true), next) << "what is pending is the first trace there";
}

TEST_F(DataChannelTest, SeveralTracesMovedOutAreTakenByEachConsumer)
{
    attachConsumers();
    Owning<SeisTraceSet> set;
    for (int i = 0; i < 3; ++i)
        add();
    for (int i = 0; i < 3; ++i)
        set.moveFromTrace(&channel, i, i);
    for (int i = 0; i < 3; ++i) {
        channel.removeInputTrace(&a, 0);
        channel.removeInputTrace(&b, 0);
    }
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 0);
    EXPECT_EQ(channel.getNumberOfInputTraces(&b), 0);
    EXPECT_EQ(channel.getNumberOfTraces(), 0);
}

TEST_F(DataChannelTest, TraceDestroyedByTheSetsRemovalStillCountsAsPending)
{
    channel.attachOutputModule(&a);
    add();
    SeisTrace* second = add();
    channel.removeTrace(0);
    EXPECT_THAT(traces(), ElementsAre(second));
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 2);
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), IsEmpty());
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 1);

    SeisTrace* third = add();
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 2);
    channel.removeInputTrace(&a, 0);
    EXPECT_EQ(channel.getNumberOfInputTraces(&a), 1);
    EXPECT_EQ(tracesAlive(), 0u);
    EXPECT_NE(third, nullptr);
}

TEST_F(DataChannelTest, NullTraceIsQueuedAndTakenLikeAnyOther)
{
    attachConsumers();
    EXPECT_EQ(channel.addTrace(nullptr), 1);
    EXPECT_THAT(queueOf(a), ElementsAre(nullptr));
    channel.removeInputTrace(&a, 0);
    EXPECT_THAT(traces(), ElementsAre(nullptr));
    channel.removeInputTrace(&b, 0);
    EXPECT_THAT(traces(), IsEmpty());
}

TEST_F(DataChannelTest, FlagsAreSetAndClearedByBits)
{
    channel.setFlag(5, true);
    EXPECT_EQ(channel.flags, 5);
    channel.setFlag(2, true);
    EXPECT_EQ(channel.flags, 7);
    channel.setFlag(3, false);
    EXPECT_EQ(channel.flags, 4);
    channel.setFlag(8, false);
    EXPECT_EQ(channel.flags, 4);
    channel.setFlag(INT_MIN, true);
    EXPECT_EQ(channel.flags, INT_MIN | 4);
}

TEST_F(DataChannelTest, TestingWithClearingConsumesTheBits)
{
    channel.setFlag(1, true);
    EXPECT_TRUE(channel.isFlagged(1, true));
    EXPECT_EQ(channel.flags, 0);
    EXPECT_FALSE(channel.isFlagged(1, true));
}

TEST_F(DataChannelTest, TestingWithoutClearingLeavesTheBits)
{
    channel.flags = 2;
    EXPECT_TRUE(channel.isFlagged(3, false)) << "any of the bits";
    EXPECT_FALSE(channel.isFlagged(5, false));
    EXPECT_FALSE(channel.isFlagged(0, false));
    EXPECT_EQ(channel.flags, 2);
}

TEST_F(DataChannelTest, OnlyTheBitsThatWereTestedAreCleared)
{
    channel.flags = 7;
    EXPECT_TRUE(channel.isFlagged(10, true));
    EXPECT_EQ(channel.flags, 5);
    EXPECT_FALSE(channel.isFlagged(8, true));
    EXPECT_EQ(channel.flags, 5);
}

TEST_F(DataChannelTest, FlagsOfTheChannelAreNotTheTracesFlagWord)
{
    channel.setFlag(1, true);
    EXPECT_EQ(channel.getDataChannelFlag(), 0);
    channel.setDataChannelFlag(3);
    EXPECT_EQ(channel.flags, 1);
}

TEST_F(DataChannelTest, DestructorLeavesTheTracesAlive)
{
    OwnedTrace trace;
    {
        DataChannel plain;
        plain.attachOutputModule(&a);
        trace.reset(plain.getTrace(0, true));
        trace->setTraceFlag(3);
    }
    EXPECT_TRUE(isResident(*trace));
    EXPECT_EQ(trace->getTraceFlag(), 3);
    EXPECT_EQ(tracesAlive(), 1u);
}

TEST_F(DataChannelTest, ChannelIsDestroyedThroughItsBase)
{
    SeisTraceSet* set = new DataChannel;
    delete set;
}

TEST_F(DataChannelTest, QueueReadsLikeAnArray)
{
    channel.attachOutputModule(&a);
    SeisTrace* first = add();
    SeisTrace* second = add();
    const TraceQueue& queue = channel.moduleTraces[&a];
    EXPECT_EQ(queue.size(), 2u);
    EXPECT_FALSE(queue.empty());
    EXPECT_EQ(queue[0], first);
    EXPECT_EQ(queue.at(1), second);
    EXPECT_THROW(queue.at(2), std::out_of_range);
    EXPECT_EQ(queue.front(), first);
    EXPECT_EQ(queue.back(), second);
    EXPECT_TRUE(queue.contains(second));
    EXPECT_THAT(std::vector<SeisTrace*>(queue), ElementsAre(first, second));
    EXPECT_EQ(std::distance(queue.begin(), queue.end()), 2);
    EXPECT_EQ(queue, (std::vector<SeisTrace*>{first, second}));
    EXPECT_NE(queue, (std::vector<SeisTrace*>{second, first}));
    EXPECT_NE(queue, std::vector<SeisTrace*>{first});
    EXPECT_EQ(queue, TraceQueue(queue));
    EXPECT_NE(queue, TraceQueue());
}

// Hosts count the traces of a channel so.
class ChannelThatIsTold : public DataChannel
{
public:
    std::vector<float> left; // first samples
    std::vector<bool> wasLast;

protected:
    void traceLeaves(SeisTrace* trace, int traceNo, bool entryStays) override
    {
        if (trace != nullptr)
            left.push_back(trace->traceSamples[0]);
        wasLast.push_back(trace != nullptr && trace->traceFlag == 3);
        DataChannel::traceLeaves(trace, traceNo, entryStays);
    }
};

TEST_F(DataChannelTest, IsToldOfEachTraceThatLeavesBeforeItIsDestroyed)
{
    for (const int readers : {1, 2}) {
        ChannelThatIsTold told;
        told.setTraceLength(1);
        told.attachOutputModule(&a);
        if (readers == 2)
            told.attachOutputModule(&b);
        for (int i = 0; i < 3; ++i) {
            told.addTrace(new SeisTrace(1, 0));
            told.getSamples(i)[0] = static_cast<float>(10 * i);
        }
        told.traces[2]->traceFlag = 3;
        for (int i = 0; i < 3; ++i) {
            told.removeInputTrace(&a, 0);
            if (readers == 2) {
                EXPECT_EQ(told.left.size(), static_cast<size_t>(i)) << "one still waits for it";
                told.removeInputTrace(&b, 0);
            }
        }
        EXPECT_THAT(told.left, ElementsAre(0.0f, 10.0f, 20.0f)) << readers;
        EXPECT_THAT(told.wasLast, ElementsAre(false, false, true)) << readers;
    }
}

class DataChannelCostTest : public DataChannelTest
{
protected:
    DataChannelCostTest()
    {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = 2 * many; // paging has its own price
    }

    static constexpr int few = 2000;
    static constexpr int many = 200000;
    static constexpr int steps = 2000;

    // `work` finds a channel that holds traces for both consumers. It takes as many steps among
    // many traces as among few.
    template <typename Work>
    void expectFlat(Work work)
    {
        const double cheap = cost(few, work) / steps;
        const double dear = cost(many, work) / steps;
        EXPECT_LT(dear, cheap * flatCost)
            << cheap * 1e9 << " ns among few, " << dear * 1e9 << " ns among many";
    }
    template <typename Work>
    double cost(int n, Work work)
    {
        std::unique_ptr<Owning<DataChannel>> queued;
        return fastestRun(
            [&] {
                queued = std::make_unique<Owning<DataChannel>>();
                queued->attachOutputModule(&a);
                queued->attachOutputModule(&b);
                queued->setNumberOfTraces(n);
            },
            [&] { work(*queued); });
    }
};

TEST_F(DataChannelCostTest, TakingTheFirstInStepUntilNoneIsLeft)
{
    const auto drain = [&](DataChannel& queued) {
        while (queued.getNumberOfTraces() > 0) {
            queued.removeInputTrace(&a, 0);
            queued.removeInputTrace(&b, 0);
        }
    };
    const double cheap = cost(few, drain) / few;
    const double dear = cost(many, drain) / many;
    EXPECT_LT(dear, cheap * flatCost)
        << cheap * 1e9 << " ns among few, " << dear * 1e9 << " ns among many";
}

TEST_F(DataChannelCostTest, TakingTheFirstInStep)
{
    expectFlat([&](DataChannel& queued) {
        for (int i = 0; i < steps; ++i) {
            queued.removeInputTrace(&a, 0);
            queued.removeInputTrace(&b, 0);
        }
    });
}

TEST_F(DataChannelCostTest, OneConsumerAheadOfTheOther)
{
    expectFlat([&](DataChannel& queued) {
        for (int i = 0; i < steps; ++i)
            queued.removeInputTrace(&a, i);
        for (int i = 0; i < steps; ++i)
            queued.removeInputTrace(&b, 0);
    });
}

TEST_F(DataChannelCostTest, AskingInReverseOrder)
{
    expectFlat([&](DataChannel& queued) {
        const int last = queued.getNumberOfTraces() - 1;
        for (int i = 0; i < steps; ++i)
            queued.removeInputTrace(&a, last - i);
        for (int i = 0; i < steps; ++i)
            queued.removeInputTrace(&b, last - i);
    });
}

TEST_F(DataChannelCostTest, ConsumerAheadAsksForATraceThatItNoLongerHolds)
{
    expectFlat([&](DataChannel& queued) {
        for (int i = 0; i < steps / 2; ++i)
            queued.removeInputTrace(&a, i);
        for (int i = 0; i < steps; ++i)
            queued.removeInputTrace(&a, i % (steps / 2));
    });
}

TEST_F(DataChannelCostTest, StrangerAsksForATraceThatOthersHold)
{
    expectFlat([&](DataChannel& queued) {
        const int last = queued.getNumberOfTraces() - 1;
        for (int i = 0; i < steps; ++i)
            queued.removeInputTrace(&c, last - i);
    });
}

TEST_F(DataChannelCostTest, PassingOneTraceBehindMany)
{
    expectFlat([&](DataChannel& queued) {
        for (int i = 0; i < steps; ++i) {
            add(queued);
            queued.removeInputTrace(&a, 0);
            queued.removeInputTrace(&b, 0);
        }
    });
}

TEST_F(DataChannelCostTest, MovingTheFirstAwayAndTakingItsEntry)
{
    Owning<SeisTraceSet> set;
    expectFlat([&](DataChannel& queued) {
        for (int i = 0; i < steps; ++i) {
            set.moveFromTrace(&queued, 0, i);
            queued.removeInputTrace(&a, 0);
            queued.removeInputTrace(&b, 0);
        }
        for (SeisTrace* trace : set.traces)
            delete trace;
        set.traces.clear();
    });
}

} // namespace
