#include "SeisTraceSet.h"

#include "KernelFixture.h"
#include "TraceVerbs.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// A set that writes down what comes to it through its virtual operation.
class ListeningSet : public Owning<SeisTraceSet>
{
public:
    std::vector<SeisTrace*> added;

    int addTrace(SeisTrace* trace) override
    {
        added.push_back(trace);
        return Owning<SeisTraceSet>::addTrace(trace);
    }
};

class SeisTraceSetTest : public KernelFixture
{
protected:
    SeisTraceSetTest()
    {
        define("int", 2, 1);
        define("double", 5, 1);
        define("text", 9, 1);
        define("array", 2, 3);
    }

    void define(const std::string& name, int type, int dim)
    {
        job().addTraceAttributeDefinition(name, type, dim, "", 0, 0, 0, 0, 0);
    }
    // `n` traces of which number i holds i + 1 in its samples and has the flag i + 1.
    static void addTraces(SeisTraceSet& set, int n)
    {
        for (int i = 0; i < n; ++i) {
            SeisTrace* trace = set.getTrace(set.getNumberOfTraces(), false);
            std::fill_n(trace->traceSamples, trace->traceLength, static_cast<float>(i + 1));
            trace->traceFlag = i + 1;
        }
    }
    static std::vector<float> samplesOf(SeisTraceSet& set, int traceNo)
    {
        const SeisTrace* trace = set.getTrace(traceNo, true);
        return std::vector<float>(trace->traceSamples, trace->traceSamples + trace->traceLength);
    }
    std::vector<SeisTrace*> order()
    {
        return {scratch().traces_cache.begin(), scratch().traces_cache.end()};
    }

    Owning<SeisTraceSet> set;
    Owning<SeisTraceSet> other;
};

template <typename Member>
std::ptrdiff_t placeOf(const SeisTraceSet& set, const Member& member)
{
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&set);
}

TEST_F(SeisTraceSetTest, FieldsStandInTheirOrderBehindTheVirtualTable)
{
    const std::vector<std::ptrdiff_t> places = {
        placeOf(set, set.attrDefs),          placeOf(set, set.traces),
        placeOf(set, set.traceLength),       placeOf(set, set.sampleInterval),
        placeOf(set, set.dataChannelFlag),   placeOf(set, set.totalNumTraces),
        placeOf(set, set.currentHeaderSize), placeOf(set, set.scratchManager)};
    EXPECT_EQ(places.front(), 8);
    for (size_t i = 1; i < places.size(); ++i)
        EXPECT_LT(places[i - 1], places[i]) << "field " << i + 1;
}

#if defined(__x86_64__)
TEST_F(SeisTraceSetTest, AddTraceIsTheFirstVirtualOperation)
{
    int (SeisTraceSet::*operation)(SeisTrace*) = &SeisTraceSet::addTrace;
    std::intptr_t slot = 0;
    std::memcpy(&slot, &operation, sizeof slot);
    EXPECT_EQ(slot, 1) << "1 stands for the table's first place";
}
#endif

TEST_F(SeisTraceSetTest, NewSetIsEmptyWithPagingOn)
{
    EXPECT_THAT(set.attrDefs, IsEmpty());
    EXPECT_EQ(set.getNumberOfTraces(), 0);
    EXPECT_EQ(set.getTraceLength(), 0);
    EXPECT_EQ(set.getTraceSampleInterval(), 0);
    EXPECT_EQ(set.getDataChannelFlag(), 0);
    EXPECT_EQ(set.getTotalTracesNumber(), 0);
    EXPECT_EQ(set.currentHeaderSize, 0);
    EXPECT_TRUE(set.isUseScratch());
    EXPECT_EQ(set.scratchManager, ScratchManager::getInstance());
}

TEST_F(SeisTraceSetTest, AttributesAreDefinedOneBehindTheOther)
{
    EXPECT_EQ(set.defineAttribute("int"), 1);
    EXPECT_EQ(set.defineAttribute("double"), 1);
    EXPECT_EQ(set.attrDefs.at("int").offset, 0);
    EXPECT_EQ(set.attrDefs.at("double").offset, 4);
    EXPECT_EQ(set.currentHeaderSize, 12);
}

TEST_F(SeisTraceSetTest, DefiningAgainChangesNothing)
{
    set.defineAttribute("int");
    set.defineAttribute("double");
    EXPECT_EQ(set.defineAttribute("int"), 1);
    EXPECT_EQ(set.attrDefs.at("int").offset, 0);
    EXPECT_EQ(set.currentHeaderSize, 12);
}

TEST_F(SeisTraceSetTest, ArrayReservesMoreThanItsSize)
{
    set.defineAttribute("array");
    set.defineAttribute("int");
    EXPECT_EQ(set.attrDefs.at("array").size, 12);
    EXPECT_EQ(set.attrDefs.at("int").offset, 36);
    EXPECT_EQ(set.currentHeaderSize, 40);
}

TEST_F(SeisTraceSetTest, NewDefinitionInTheSchemaDoesNotMoveAResolvedName)
{
    set.defineAttribute("int");
    define("int", 5, 1);
    EXPECT_EQ(set.getAttributeKey("int").type, int32AttType);
    EXPECT_EQ(set.getAttributeKey("int").size, 4);
    EXPECT_EQ(other.getAttributeKey("int").type, float64AttType);
}

TEST_F(SeisTraceSetTest, KeyOfAMissingAttributeDefinesIt)
{
    traceAttIdent& key = set.getAttributeKey("double");
    EXPECT_EQ(key.type, float64AttType);
    EXPECT_EQ(key.offset, 0);
    EXPECT_TRUE(set.isAttributePresent("double", 0));
    EXPECT_EQ(&set.getAttributeKey("double"), &key);
    EXPECT_EQ(&set.attrDefs.at("double"), &key);
    set.getAttributeKey("int");
    EXPECT_EQ(&set.getAttributeKey("double"), &key) << "references stay valid";
}

TEST_F(SeisTraceSetTest, NamesNeedNotBeInTheSchema)
{
    EXPECT_EQ(set.setAttribute("unheard of", UniVar(5), 0), 1);
    EXPECT_EQ(set.getAttribute("unheard of", 0).getI32Value(), 5);
    EXPECT_EQ(set.currentHeaderSize, 4);
}

TEST_F(SeisTraceSetTest, PresenceIsThatOfTheNameAndNotOfATrace)
{
    set.defineAttribute("int");
    for (const int traceNo : {0, 7, -1, INT_MAX}) {
        EXPECT_TRUE(set.isAttributePresent("int", traceNo));
        EXPECT_FALSE(set.isAttributePresent("double", traceNo));
    }
    EXPECT_EQ(set.getNumberOfTraces(), 0);
    EXPECT_EQ(set.attrDefs.size(), 1u);
}

TEST_F(SeisTraceSetTest, ListHasTheNamesInAscendingOrder)
{
    EXPECT_THAT(set.getAttributesList(), IsEmpty());
    for (const char* name : {"text", "int", "Z", "double"})
        set.defineAttribute(name);
    EXPECT_THAT(set.getAttributesList(), ElementsAre("Z", "double", "int", "text"));
}

TEST_F(SeisTraceSetTest, ReadingAnAttributeCreatesTracesAndDefinesTheName)
{
    set.setTraceLength(10);
    EXPECT_EQ(set.getAttribute("double", 5).getF64Value(), 0.0);
    ASSERT_EQ(set.getNumberOfTraces(), 6);
    EXPECT_TRUE(set.isAttributePresent("double", 0));
    for (int i = 0; i < 6; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(set.getTrace(i, false)->traceLength, 10);
        EXPECT_EQ(set.getTrace(i, false)->traceHeaderSize, 8);
    }
}

TEST_F(SeisTraceSetTest, AttributeBelongsToItsTrace)
{
    EXPECT_EQ(set.setAttribute("int", UniVar(1), 0), 1);
    EXPECT_EQ(set.setAttribute("int", UniVar(2), 1), 1);
    EXPECT_EQ(set.setAttribute("text", UniVar("abc"), 1), 1);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 1);
    EXPECT_EQ(set.getAttribute("int", 1).getI32Value(), 2);
    EXPECT_EQ(set.getAttribute("text", 1).getStrValue(), "abc");
}

TEST_F(SeisTraceSetTest, TracesMadeAfterADefinitionHaveRoomForItAndOlderOnesGrowWhenWritten)
{
    set.getTrace(0, true);
    set.defineAttribute("int");
    set.defineAttribute("double");
    set.getTrace(1, true);
    EXPECT_EQ(set.getHeaderSize(0), 0);
    EXPECT_EQ(set.getHeaderSize(1), 12);
    EXPECT_EQ(set.getAttribute("double", 0).getType(), undefinedType);
    EXPECT_EQ(set.getHeaderSize(0), 0);

    set.setAttribute("double", UniVar(1.5), 0);
    EXPECT_EQ(set.getHeaderSize(0), 64);
    EXPECT_EQ(set.getAttribute("double", 0).getF64Value(), 1.5);
}

TEST_F(SeisTraceSetTest, NumberOfTracesGrowsAndNeverShrinks)
{
    set.setTraceLength(3);
    set.setNumberOfTraces(4);
    EXPECT_EQ(set.getNumberOfTraces(), 4);
    const std::vector<SeisTrace*> before(set.traces.begin(), set.traces.end());
    for (const int n : {4, 2, 0, -1, INT_MIN})
        set.setNumberOfTraces(n);
    EXPECT_EQ(std::vector<SeisTrace*>(set.traces.begin(), set.traces.end()), before);
}

TEST_F(SeisTraceSetTest, NewTracesComeThroughTheVirtualAddTrace)
{
    ListeningSet listening;
    listening.setNumberOfTraces(2);
    EXPECT_EQ(listening.added.size(), 2u);
    listening.getTrace(3, true);
    EXPECT_EQ(listening.added.size(), 4u);
    SeisTrace* trace = new SeisTrace(0, 0);
    listening.setTrace(trace, 4);
    ASSERT_EQ(listening.added.size(), 5u);
    EXPECT_EQ(listening.added.back(), trace);
    listening.setAttribute("int", UniVar(1), 5);
    EXPECT_EQ(listening.added.size(), 6u);
}

TEST_F(SeisTraceSetTest, AddedTraceIsTheLast)
{
    SeisTrace* first = new SeisTrace(1, 0);
    SeisTrace* second = new SeisTrace(2, 0);
    EXPECT_EQ(set.addTrace(first), 1);
    EXPECT_EQ(set.addTrace(second), 2);
    EXPECT_EQ(set.getTrace(0, false), first);
    EXPECT_EQ(set.getTrace(1, false), second);
}

TEST_F(SeisTraceSetTest, AskingBeyondTheEndCreatesEverythingUpToThere)
{
    set.setTraceLength(3);
    const SeisTrace* trace = set.getTrace(2, true);
    EXPECT_EQ(set.getNumberOfTraces(), 3);
    EXPECT_EQ(set.traces[2], trace);
    EXPECT_EQ(set.getTrace(2, true), trace);
    EXPECT_EQ(set.getNumberOfTraces(), 3);
}

TEST_F(SeisTraceSetTest, LengthIsThatOfTracesToCome)
{
    set.setTraceLength(3);
    set.getTrace(0, true);
    set.setTraceLength(5);
    set.getTrace(1, true);
    EXPECT_EQ(set.getTraceLength(), 5);
    EXPECT_EQ(set.getTrace(0, true)->traceLength, 3);
    EXPECT_EQ(set.getTrace(1, true)->traceLength, 5);
}

TEST_F(SeisTraceSetTest, TouchingPutsTheTraceInFrontAndNotTouchingLeavesTheOrder)
{
    set.setNumberOfTraces(2);
    EXPECT_THAT(order(), IsEmpty()) << "creating does not touch";
    SeisTrace* first = set.getTrace(0, true);
    SeisTrace* second = set.getTrace(1, true);
    EXPECT_THAT(order(), ElementsAre(second, first));
    set.getTrace(0, false);
    EXPECT_THAT(order(), ElementsAre(second, first));
    set.getTrace(0, true);
    EXPECT_THAT(order(), ElementsAre(first, second));
}

TEST_F(SeisTraceSetTest, WithoutPagingNothingIsTouched)
{
    set.setUseScratch(false);
    EXPECT_FALSE(set.isUseScratch());
    EXPECT_EQ(set.scratchManager, nullptr);
    set.getTrace(0, true);
    EXPECT_THAT(order(), IsEmpty());

    set.setUseScratch(true);
    EXPECT_TRUE(set.isUseScratch());
    SeisTrace* trace = set.getTrace(0, true);
    EXPECT_THAT(order(), ElementsAre(trace));
}

TEST_F(SeisTraceSetTest, PagedOutTraceComesBackAlsoWhenPagingWasSwitchedOff)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    set.setTraceLength(3);
    fill(*set.getTrace(0, true), 1);
    set.getTrace(1, true);
    ASSERT_FALSE(isResident(*set.getTrace(0, false)));

    set.setUseScratch(false);
    EXPECT_EQ(differsFromFill(*set.getTrace(0, true), 1), "");
}

TEST_F(SeisTraceSetTest, OperationsByNumberTouchTheTrace)
{
    set.setTraceLength(2);
    const float samples[] = {1, 2};
    const unsigned char bytes[] = {'a'};
    const std::vector<std::pair<const char*, std::function<void(int)>>> operations = {
        {"getAttribute", [&](int n) { set.getAttribute("int", n); }},
        {"setAttribute", [&](int n) { set.setAttribute("int", UniVar(1), n); }},
        {"getSamples", [&](int n) { set.getSamples(n); }},
        {"setSamples", [&](int n) { set.setSamples(samples, n); }},
        {"getHeader", [&](int n) { set.getHeader(n); }},
        {"getHeaderSize", [&](int n) { set.getHeaderSize(n); }},
        {"setHeader", [&](int n) { set.setHeader(bytes, 1, n); }},
    };
    set.setNumberOfTraces(2);
    for (const auto& [name, operation] : operations) {
        SCOPED_TRACE(name);
        set.getTrace(0, true);
        operation(1);
        EXPECT_EQ(scratch().traces_cache.front(), set.getTrace(1, false));
        EXPECT_EQ(scratch().traces_cache.size(), 2u);
    }
}

TEST_F(SeisTraceSetTest, OperationsByNumberCreateTheTrace)
{
    set.setTraceLength(2);
    const float samples[] = {1, 2};
    const unsigned char bytes[] = {'a'};
    const float* block = set.getSamples(0);
    EXPECT_EQ(block, set.getTrace(0, false)->traceSamples);
    EXPECT_EQ(set.setSamples(samples, 1), 1);
    EXPECT_THAT(samplesOf(set, 1), ElementsAre(1, 2));
    const unsigned char* header = set.getHeader(2);
    EXPECT_EQ(header, set.getTrace(2, false)->traceHeader);
    EXPECT_EQ(set.getHeaderSize(3), 0);
    EXPECT_EQ(set.setHeader(bytes, 1, 4), 1);
    EXPECT_EQ(set.getHeaderSize(4), 64);
    EXPECT_EQ(set.getHeader(4)[0], 'a');
    EXPECT_EQ(set.getNumberOfTraces(), 5);
}

TEST_F(SeisTraceSetTest, SetTraceFarBehindTheEndCreatesTheOnesBefore)
{
    SeisTrace* trace = new SeisTrace(7, 0);
    set.setTraceLength(2);
    set.setTrace(trace, 3);
    ASSERT_EQ(set.getNumberOfTraces(), 4);
    EXPECT_EQ(set.getTrace(3, false), trace);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(set.getTrace(i, false)->traceLength, 2);
}

TEST_F(SeisTraceSetTest, SetTraceRightBehindTheEndAppends)
{
    SeisTrace* trace = new SeisTrace(7, 0);
    set.setTrace(trace, 0);
    EXPECT_EQ(set.getNumberOfTraces(), 1);
    EXPECT_EQ(set.getTrace(0, false), trace);
}

TEST_F(SeisTraceSetTest, SetTraceReplacesAnEntryAndLeavesTheOldTraceAlive)
{
    addTraces(set, 3);
    const OwnedTrace old(set.getTrace(1, false));
    SeisTrace* trace = new SeisTrace(7, 0);
    set.setTrace(trace, 1);
    EXPECT_EQ(set.getNumberOfTraces(), 3);
    EXPECT_EQ(set.getTrace(1, false), trace);
    EXPECT_EQ(old->traceFlag, 2);
    EXPECT_TRUE(isResident(*old));
}

TEST_F(SeisTraceSetTest, SetTraceDoesNotTouch)
{
    SeisTrace* trace = new SeisTrace(7, 0);
    set.setTrace(trace, 2);
    EXPECT_THAT(order(), IsEmpty());
}

TEST_F(SeisTraceSetTest, SetTraceAtANegativeNumberStopsTheProcess)
{
    const OwnedTrace trace = ownedTrace(1);
    EXPECT_DEATH(set.setTrace(trace.get(), -1), "traceNo >= 0");
    EXPECT_DEATH(set.setTrace(nullptr, INT_MIN), "traceNo >= 0");
}

TEST_F(SeisTraceSetTest, RemovedTraceIsDestroyedAndLaterOnesMoveDown)
{
    set.setTraceLength(10);
    addTraces(set, 3);
    SeisTrace* first = set.getTrace(0, false);
    SeisTrace* last = set.getTrace(2, false);
    set.removeTrace(1);
    ASSERT_EQ(set.getNumberOfTraces(), 2);
    EXPECT_EQ(set.getTrace(0, false), first);
    EXPECT_EQ(set.getTrace(1, false), last);
    EXPECT_EQ(job().totalJobMemoryUsed, 2 * 40);
}

TEST_F(SeisTraceSetTest, RemovingTakesOverTheFlagOfTheTraceThatIsFirstNow)
{
    addTraces(set, 2);
    set.getTrace(1, false)->setTraceFlag(4);
    set.removeTrace(0);
    EXPECT_EQ(set.getNumberOfTraces(), 1);
    EXPECT_EQ(set.dataChannelFlag, 4);
}

TEST_F(SeisTraceSetTest, RemovingALaterTraceAlsoTakesOverTheFirstFlag)
{
    addTraces(set, 3);
    set.dataChannelFlag = 77;
    set.removeTrace(2);
    EXPECT_EQ(set.dataChannelFlag, 1);
}

TEST_F(SeisTraceSetTest, LastTraceTakesItsFlagAway)
{
    addTraces(set, 1);
    set.getTrace(0, false)->setTraceFlag(3);
    set.removeTrace(0);
    EXPECT_EQ(set.dataChannelFlag, 0);
    EXPECT_EQ(set.getDataChannelFlag(), 0);
}

TEST_F(SeisTraceSetTest, RemovingBeyondTheEndCreatesFirst)
{
    ListeningSet listening;
    listening.setTraceLength(1);
    listening.removeTrace(2);
    EXPECT_EQ(listening.added.size(), 3u);
    EXPECT_EQ(listening.getNumberOfTraces(), 2);
    EXPECT_EQ(job().totalJobMemoryUsed, 2 * 4);
}

TEST_F(SeisTraceSetTest, RemovingReadsAPagedOutTraceBackFirst)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 2;
    set.setTraceLength(3);
    set.setNumberOfTraces(3);
    for (int i = 0; i < 3; ++i)
        set.getTrace(i, true);
    SeisTrace* second = set.getTrace(1, false);
    SeisTrace* third = set.getTrace(2, false);
    ASSERT_FALSE(isResident(*set.getTrace(0, false)));

    set.removeTrace(0);

    EXPECT_THAT(order(), ElementsAre(third)) << "the second went out when the first came back";
    EXPECT_FALSE(isResident(*second));
    EXPECT_EQ(second->traceOffset, 0) << "in the record that the first left";
}

TEST_F(SeisTraceSetTest, RemovingPagesOutWhatALoweredLimitNoLongerAllows)
{
    set.setTraceLength(3);
    for (int i = 0; i < 4; ++i)
        set.getTrace(i, true);
    SeisTrace* second = set.getTrace(1, false);
    SeisTrace* third = set.getTrace(2, false);
    SeisTrace* fourth = set.getTrace(3, false);
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 2;

    set.removeTrace(0);

    EXPECT_THAT(order(), ElementsAre(fourth)) << "the first one came to the front before it left";
    EXPECT_EQ(second->traceOffset, 0);
    EXPECT_EQ(third->traceOffset, 12);
    EXPECT_TRUE(isResident(*fourth));
}

TEST_F(SeisTraceSetTest, RemovingWithinTheLimitLeavesTheOrderOfTheOthers)
{
    for (int i = 0; i < 3; ++i)
        set.getTrace(i, true);
    SeisTrace* first = set.getTrace(0, false);
    SeisTrace* third = set.getTrace(2, false);
    set.removeTrace(1);
    EXPECT_THAT(order(), ElementsAre(third, first));
}

TEST_F(SeisTraceSetTest, ClearingZeroesEveryTraceAndKeepsIt)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    set.setTraceLength(3);
    set.defineAttribute("double");
    for (int i = 0; i < 3; ++i)
        fill(*set.getTrace(i, true), i + 1);
    EXPECT_EQ(set.clearTraceSet(), 1);
    ASSERT_EQ(set.getNumberOfTraces(), 3);
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_THAT(samplesOf(set, i), Each(0.0f));
        EXPECT_EQ(set.getAttribute("double", i).getF64Value(), 0.0);
        EXPECT_EQ(set.getHeaderSize(i), 8);
    }
}

TEST_F(SeisTraceSetTest, IntervalAndTotalAreKeptForOthers)
{
    set.setTraceSampleInterval(2000);
    set.informTotalTracesNumber(int64_t(1) << 40);
    EXPECT_EQ(set.getTraceSampleInterval(), 2000);
    EXPECT_EQ(set.sampleInterval, 2000);
    EXPECT_EQ(set.getTotalTracesNumber(), int64_t(1) << 40);
    EXPECT_EQ(set.totalNumTraces, int64_t(1) << 40);
}

TEST_F(SeisTraceSetTest, FlagOfAnEmptySetIsItsOwnWord)
{
    set.setDataChannelFlag(2);
    EXPECT_EQ(set.dataChannelFlag, 2);
    EXPECT_EQ(set.getDataChannelFlag(), 2);
}

TEST_F(SeisTraceSetTest, FlagIsReadFromTheFirstTraceAndWrittenToTheLast)
{
    set.setNumberOfTraces(3);
    set.getTrace(0, false)->setTraceFlag(8);
    set.setDataChannelFlag(2);
    EXPECT_EQ(set.getTrace(0, false)->getTraceFlag(), 8);
    EXPECT_EQ(set.getTrace(1, false)->getTraceFlag(), 0);
    EXPECT_EQ(set.getTrace(2, false)->getTraceFlag(), 2);
    EXPECT_EQ(set.dataChannelFlag, 0);
    EXPECT_EQ(set.getDataChannelFlag(), 8);
}

TEST_F(SeisTraceSetTest, ConfiguringTakesLengthIntervalAndTheTemplatesNames)
{
    for (const char* name : {"text", "int", "double"})
        other.defineAttribute(name);
    set.defineAttribute("own");
    EXPECT_EQ(set.configureByTemplate(500, 4000, &other), 1);
    EXPECT_EQ(set.getTraceLength(), 500);
    EXPECT_EQ(set.getTraceSampleInterval(), 4000);
    EXPECT_EQ(set.attrDefs.at("own").offset, 0);
    EXPECT_EQ(set.attrDefs.at("double").offset, 4) << "in ascending order of names";
    EXPECT_EQ(set.attrDefs.at("int").offset, 12);
    EXPECT_EQ(set.attrDefs.at("text").offset, 16);
    EXPECT_EQ(set.currentHeaderSize, 48);
    EXPECT_EQ(other.attrDefs.at("text").offset, 0);
}

TEST_F(SeisTraceSetTest, SetsOfOneTemplateHaveOneLayout)
{
    Owning<SeisTraceSet> templ;
    for (const char* name : {"text", "int", "double", "array"})
        templ.defineAttribute(name);
    set.configureByTemplate(1, 1, &templ);
    other.configureByTemplate(1, 1, &templ);
    ASSERT_EQ(set.attrDefs.size(), 4u);
    EXPECT_EQ(set.currentHeaderSize, other.currentHeaderSize);
    for (const auto& [name, ident] : set.attrDefs)
        EXPECT_EQ(ident.offset, other.attrDefs.at(name).offset) << name;
}

TEST_F(SeisTraceSetTest, ConfiguringWithoutATemplateDefinesNothing)
{
    EXPECT_EQ(set.configureByTemplate(500, 4000, nullptr), 1);
    EXPECT_EQ(set.getTraceLength(), 500);
    EXPECT_EQ(set.getTraceSampleInterval(), 4000);
    EXPECT_THAT(set.attrDefs, IsEmpty());
}

TEST_F(SeisTraceSetTest, ConfiguringASetByItselfKeepsItsLayout)
{
    set.defineAttribute("int");
    EXPECT_EQ(set.configureByTemplate(5, 4000, &set), 1);
    EXPECT_EQ(set.currentHeaderSize, 4);
}

class CopyTest : public SeisTraceSetTest
{
protected:
    CopyTest()
    {
        other.setTraceLength(4);
        set.setTraceLength(4);
        addTraces(other, 2);
        other.setAttribute("int", UniVar(11), 0);
        other.setAttribute("text", UniVar("line"), 0);
        other.getTrace(0, false)->setTraceFlag(6);
    }
};

TEST_F(CopyTest, BothPartsAndTheFlagAreCopied)
{
    EXPECT_EQ(set.copyFromTrace(&other, true, true, 0, 1), 1);
    ASSERT_EQ(set.getNumberOfTraces(), 2);
    EXPECT_EQ(set.getAttribute("int", 1).getI32Value(), 11);
    EXPECT_EQ(set.getAttribute("text", 1).getStrValue(), "line");
    EXPECT_THAT(samplesOf(set, 1), Each(1.0f));
    EXPECT_EQ(set.getTrace(1, true)->getTraceFlag(), 6);
    EXPECT_THAT(samplesOf(set, 0), Each(0.0f));
    EXPECT_THAT(samplesOf(other, 0), Each(1.0f)) << "the source stays";
}

TEST_F(CopyTest, WithoutHeaderAndSamplesOnlyTheFlagIsCopied)
{
    fill(*set.getTrace(0, true), 9);
    EXPECT_EQ(set.copyFromTrace(&other, false, false, 0, 0), 1);
    EXPECT_EQ(differsFromFill(*set.getTrace(0, true), 9), "");
    EXPECT_EQ(set.getTrace(0, true)->getTraceFlag(), 6);
    EXPECT_THAT(set.attrDefs, IsEmpty());
}

TEST_F(CopyTest, SamplesAloneLeaveTheHeader)
{
    set.setAttribute("int", UniVar(5), 0);
    EXPECT_EQ(set.copyFromTrace(&other, false, true, 0, 0), 1);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 5);
    EXPECT_THAT(samplesOf(set, 0), Each(1.0f));
}

TEST_F(CopyTest, HeaderAloneLeavesTheSamples)
{
    const float own[] = {7, 7, 7, 7};
    set.setSamples(own, 0);
    EXPECT_EQ(set.copyFromTrace(&other, true, false, 0, 0), 1);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 11);
    EXPECT_THAT(samplesOf(set, 0), Each(7.0f));
}

TEST_F(CopyTest, TargetsHeaderIsClearedFirst)
{
    set.setAttribute("mine", UniVar(5), 0);
    set.copyFromTrace(&other, true, false, 0, 0);
    EXPECT_EQ(set.getAttribute("mine", 0).getI32Value(), 0);
}

// The memory of a trace that was deleted comes again: what no attribute covers must not show it.
TEST_F(CopyTest, HeaderOfANewTraceIsThatOfOneThatWasThere)
{
    define("wide", 1, 30); // one character, and room for more
    define("narrow", 1, 5);
    for (const char* name : {"wide", "double", "narrow", "int"})
        set.defineAttribute(name);
    other.setAttribute("wide", UniVar("w"), 0);
    other.setAttribute("narrow", UniVar("n"), 0);
    other.setAttribute("double", UniVar(0.25), 0);
    set.copyFromTrace(&other, true, true, 0, 0); // defines what is missing
    set.setNumberOfTraces(2);
    set.copyFromTrace(&other, true, true, 0, 1);
    const int size = set.getHeaderSize(1);
    ASSERT_EQ(size, set.currentHeaderSize);

    auto* const deleted = new SeisTrace(set.traceLength, size);
    std::memset(deleted->traceHeader, 0x5a, static_cast<std::size_t>(size));
    delete deleted;
    set.copyFromTrace(&other, true, true, 0, 2);
    const unsigned char* const there = set.getHeader(1);
    const unsigned char* const made = set.getHeader(2);
    ASSERT_EQ(set.getHeaderSize(2), size);
    EXPECT_EQ(std::vector<unsigned char>(made, made + size),
              std::vector<unsigned char>(there, there + size));
    EXPECT_EQ(set.getAttribute("wide", 2).getStrValue(), "w");
    EXPECT_EQ(set.getAttribute("double", 2).getF64Value(), 0.25);
    EXPECT_EQ(set.getAttribute("int", 2).getI32Value(), 11);
}

TEST_F(CopyTest, HeaderOfANewTraceIsZeroWhereThatOfTheSourceIsShorter)
{
    define("wide2", 5, 20);
    other.defineAttribute("wide2");
    other.setAttribute("double", UniVar(2.5), 1);
    set.copyFromTrace(&other, true, true, 1, 0);
    set.copyFromTrace(&other, true, true, 1, 1);
    set.copyFromTrace(&other, true, true, 0, 2);
    ASSERT_LT(other.getTrace(0, false)->traceHeaderSize, other.attrDefs.at("double").offset);
    EXPECT_EQ(set.getAttribute("double", 1).getF64Value(), 2.5);
    EXPECT_EQ(set.getAttribute("double", 2).getF64Value(), 0.0);
    EXPECT_EQ(set.getAttribute("int", 2).getI32Value(), 11);
}

TEST_F(CopyTest, AttributesAreFoundByNameWhateverTheirPlaces)
{
    set.defineAttribute("double");
    set.defineAttribute("text");
    set.defineAttribute("int");
    set.copyFromTrace(&other, true, false, 0, 0);
    EXPECT_NE(set.attrDefs.at("int").offset, other.attrDefs.at("int").offset);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 11);
    EXPECT_EQ(set.getAttribute("text", 0).getStrValue(), "line");
}

TEST_F(CopyTest, MissingNamesAreDefinedInAscendingOrder)
{
    other.setAttribute("double", UniVar(0.5), 0);
    set.copyFromTrace(&other, true, false, 0, 0);
    EXPECT_EQ(set.attrDefs.at("double").offset, 0);
    EXPECT_EQ(set.attrDefs.at("int").offset, 8);
    EXPECT_EQ(set.attrDefs.at("text").offset, 12);
    EXPECT_EQ(set.getAttribute("double", 0).getF64Value(), 0.5);
}

TEST_F(CopyTest, AttributesThatDifferAreSkippedAndTheOthersCopied)
{
    define("int", 4, 1);
    define("text", 10, 1);
    other.setAttribute("zone", UniVar(8), 0);
    EXPECT_EQ(set.copyFromTrace(&other, true, false, 0, 0), 1);
    EXPECT_EQ(set.attrDefs.at("int").type, float32AttType);
    EXPECT_EQ(set.getAttribute("int", 0).getF32Value(), 0.0f);
    EXPECT_EQ(set.getAttribute("text", 0).getStrValue(), "");
    EXPECT_EQ(set.getAttribute("zone", 0).getI32Value(), 8);
}

TEST_F(CopyTest, AttributeThatTheSourceHasNoRoomForBecomesZero)
{
    set.setAttribute("double", UniVar(2.5), 0);
    other.defineAttribute("wide");
    define("wide2", 5, 20);
    other.defineAttribute("wide2");
    other.defineAttribute("double");
    ASSERT_LT(other.getTrace(0, false)->traceHeaderSize, other.currentHeaderSize);
    EXPECT_EQ(set.copyFromTrace(&other, true, false, 0, 0), 1);
    EXPECT_EQ(set.getAttribute("double", 0).getF64Value(), 0.0);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 11);
}

TEST_F(CopyTest, LayoutIsLookedAtAnewForEveryCopy)
{
    Owning<SeisTraceSet> third;
    third.setAttribute("text", UniVar("third"), 0);
    third.setAttribute("int", UniVar(33), 0);
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        const std::string name = "new " + std::to_string(round);
        other.setAttribute(name, UniVar(round + 100), 0);
        set.copyFromTrace(&other, true, false, 0, 0);
        EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 11);
        EXPECT_EQ(set.getAttribute(name, 0).getI32Value(), round + 100);

        set.copyFromTrace(&third, true, false, 0, 0);
        EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 33);
        EXPECT_EQ(set.getAttribute("text", 0).getStrValue(), "third");
        EXPECT_EQ(set.getAttribute(name, 0).getI32Value(), 0);
        set.defineAttribute("own " + std::to_string(round));
    }
}

TEST_F(CopyTest, PlaceThatIsChangedLaterByAReferenceIsCopiedFromThere)
{
    traceAttIdent& place = other.getAttributeKey("int");
    set.copyFromTrace(&other, true, false, 0, 0);
    ASSERT_EQ(set.getAttribute("int", 0).getI32Value(), 11);

    const int elsewhere = 5;
    place.offset = other.getHeaderSize(0) - 4;
    std::memcpy(other.getHeader(0) + place.offset, &elsewhere, 4);
    set.copyFromTrace(&other, true, false, 0, 0);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 5);
}

TEST_F(CopyTest, LayoutThatWasChangedByHandIsCopiedAsItIsThen)
{
    set.copyFromTrace(&other, true, false, 0, 0);
    ASSERT_EQ(set.getAttribute("int", 0).getI32Value(), 11);

    other.getAttributeKey("int").type = float32AttType; // differs now
    set.copyFromTrace(&other, true, false, 0, 0);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 0);
    EXPECT_EQ(set.getAttribute("text", 0).getStrValue(), "line");

    other.attrDefs.erase("text");
    set.copyFromTrace(&other, true, false, 0, 0);
    EXPECT_EQ(set.getAttribute("text", 0).getStrValue(), "");
}

// 64 bytes suffice for an attribute that ends there only where an earlier one has asked for less.
TEST_F(CopyTest, HeaderGrowsAttributeByAttribute)
{
    define("x", 1, 62);
    define("y", 1, 1);
    define("z", 1, 1);
    Owning<SeisTraceSet> source;
    for (const char* name : {"x", "y", "z"})
        source.setAttribute(name, UniVar(name), 0);
    SeisTrace* target = new SeisTrace(0, 0);
    set.setTrace(target, 0);
    set.copyFromTrace(&source, true, false, 0, 0);
    ASSERT_EQ(set.attrDefs.at("z").offset, 63);
    EXPECT_EQ(target->traceHeaderSize, 64);
    EXPECT_EQ(set.getAttribute("x", 0).getStrValue(), "x");
    EXPECT_EQ(set.getAttribute("y", 0).getStrValue(), "yz");

    SeisTrace alone(0, 0);
    alone.setAttribute(set.attrDefs.at("z"), UniVar("z"));
    EXPECT_EQ(alone.traceHeaderSize, 128);
}

TEST_F(CopyTest, ShorterLengthOfTheSetsLimitsTheSamples)
{
    const struct
    {
        int setLength, otherLength;
        std::vector<float> result;
    } rows[] = {{4, 4, {1, 1, 1, 1}}, {2, 4, {1, 1, 7, 7}}, {4, 3, {1, 1, 1, 7}},
                {0, 4, {7, 7, 7, 7}}, {4, 0, {7, 7, 7, 7}}, {-1, 4, {7, 7, 7, 7}}};
    const float own[] = {7, 7, 7, 7};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.setLength) + " and " + std::to_string(row.otherLength));
        set.setTraceLength(4);
        set.setSamples(own, 0);
        set.setTraceLength(row.setLength);
        other.setTraceLength(row.otherLength);
        EXPECT_EQ(set.copyFromTrace(&other, false, true, 0, 0), 1);
        EXPECT_EQ(samplesOf(set, 0), row.result);
    }
}

TEST_F(CopyTest, TracesShorterThanTheirSetsAreNotOverrun)
{
    set.getTrace(0, true);
    set.setTraceLength(1000);
    other.setTraceLength(1000);
    EXPECT_EQ(set.copyFromTrace(&other, false, true, 0, 0), 1);
    EXPECT_THAT(samplesOf(set, 0), ElementsAre(1, 1, 1, 1));

    EXPECT_EQ(set.copyFromTrace(&other, false, true, 0, 1), 1) << "a longer target";
    EXPECT_EQ(set.getSamples(1)[3], 1.0f);
    EXPECT_EQ(set.getSamples(1)[4], 0.0f);

    EXPECT_EQ(other.copyFromTrace(&set, false, true, 1, 1), 1) << "a longer source";
    EXPECT_THAT(samplesOf(other, 1), ElementsAre(1, 1, 1, 1));
}

TEST_F(CopyTest, CopyWithinOneSetConcernsTheTwoTracesOnly)
{
    EXPECT_EQ(other.copyFromTrace(&other, true, true, 0, 1), 1);
    EXPECT_EQ(other.getNumberOfTraces(), 2);
    EXPECT_EQ(other.getAttribute("text", 1).getStrValue(), "line");
    EXPECT_THAT(samplesOf(other, 1), Each(1.0f));
    EXPECT_EQ(other.getAttribute("text", 0).getStrValue(), "line");
}

TEST_F(CopyTest, SourceIsTouchedBeforeTheTarget)
{
    set.copyFromTrace(&other, true, true, 0, 0);
    ASSERT_GE(order().size(), 2u);
    EXPECT_EQ(order()[0], set.getTrace(0, false));
    EXPECT_EQ(order()[1], other.getTrace(0, false));
}

TEST_F(CopyTest, CopyFromBeyondTheEndCreatesAnEmptySource)
{
    fill(*set.getTrace(0, true), 9);
    set.getTrace(0, true)->setTraceFlag(9);
    EXPECT_EQ(set.copyFromTrace(&other, true, true, 4, 0), 1);
    EXPECT_EQ(other.getNumberOfTraces(), 5);
    EXPECT_THAT(samplesOf(set, 0), Each(0.0f));
    EXPECT_EQ(set.getTrace(0, true)->getTraceFlag(), 0);
}

TEST_F(CopyTest, MissingSourceOrTargetIsReported)
{
    fill(*set.getTrace(0, true), 9);
    set.getTrace(0, true)->setTraceFlag(9);
    other.setTrace(nullptr, 2);
    EXPECT_EQ(set.copyFromTrace(&other, true, true, 2, 0), 0);
    EXPECT_EQ(differsFromFill(*set.getTrace(0, true), 9), "");
    EXPECT_EQ(set.getTrace(0, true)->getTraceFlag(), 9);

    set.setTrace(nullptr, 1);
    EXPECT_EQ(set.copyFromTrace(&other, true, true, 0, 1), 0);
    EXPECT_EQ(set.getTrace(1, true), nullptr);
}

class LimitOfOneTest : public SeisTraceSetTest
{
protected:
    LimitOfOneTest()
    {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
        set.setTraceLength(3);
        other.setTraceLength(3);
        for (SeisTraceSet* one : {&set, &other}) {
            for (int i = 0; i < 2; ++i) {
                const int seed = (one == &other ? 10 : 20) + i;
                const float samples[] = {seed + 0.25f, seed + 0.5f, seed + 0.75f};
                one->setSamples(samples, i);
                one->setAttribute("int", UniVar(seed), i);
                one->getTrace(i, true)->setTraceFlag(seed);
            }
        }
    }
    static void expectSeed(SeisTraceSet& one, int traceNo, int seed)
    {
        EXPECT_THAT(samplesOf(one, traceNo), ElementsAre(seed + 0.25f, seed + 0.5f, seed + 0.75f));
        EXPECT_EQ(one.getAttribute("int", traceNo).getI32Value(), seed);
        EXPECT_EQ(one.getTrace(traceNo, true)->getTraceFlag(), seed);
    }
};

TEST_F(LimitOfOneTest, CopyBetweenSetsKeepsBothTracesRight)
{
    EXPECT_EQ(set.copyFromTrace(&other, true, true, 1, 0), 1);
    expectSeed(set, 0, 11);
    expectSeed(set, 1, 21);
    expectSeed(other, 0, 10);
    expectSeed(other, 1, 11);
}

TEST_F(LimitOfOneTest, CopyWithinASetKeepsBothTracesRight)
{
    EXPECT_EQ(set.copyFromTrace(&set, true, true, 0, 1), 1);
    expectSeed(set, 0, 20);
    expectSeed(set, 1, 20);
    expectSeed(other, 0, 10);
    expectSeed(other, 1, 11);
}

TEST_F(LimitOfOneTest, CopyThatGrowsTheTargetKeepsBothTracesRight)
{
    define("long", 10, 4);
    other.setAttribute("long", UniVar("far behind"), 1);
    EXPECT_EQ(set.copyFromTrace(&other, true, true, 1, 0), 1);
    EXPECT_EQ(set.getAttribute("long", 0).getStrValue(), "far behind");
    EXPECT_EQ(other.getAttribute("long", 1).getStrValue(), "far behind");
    expectSeed(set, 0, 11);
    expectSeed(other, 1, 11);
}

TEST_F(LimitOfOneTest, CopyLeavesOneTraceInMemory)
{
    set.copyFromTrace(&other, true, true, 1, 0);
    EXPECT_THAT(order(), ElementsAre(set.getTrace(0, false)));
    EXPECT_FALSE(isResident(*other.getTrace(1, false)));
    EXPECT_EQ(job().jobMemoryMap.size(), 2u);
}

TEST_F(LimitOfOneTest, CopyIntoANewTraceKeepsBothTracesRight)
{
    EXPECT_EQ(set.copyFromTrace(&other, true, true, 0, 2), 1);
    expectSeed(set, 2, 10);
    expectSeed(other, 0, 10);
}

TEST_F(LimitOfOneTest, CopyWithoutAScratchFileKeepsBothTracesRight)
{
    scratch().deleteScratch();
    for (SeisTraceSet* one : {&set, &other}) {
        for (int i = 0; i < 2; ++i)
            one->getTrace(i, true);
    }
    scratch().deleteScratch();
    const ScopedEnvironment none("VORN_SCRATCH", nullptr);
    Owning<SeisTraceSet> from, to;
    from.setTraceLength(3);
    to.setTraceLength(3);
    const float samples[] = {1, 2, 3};
    from.setSamples(samples, 0);
    EXPECT_EQ(to.copyFromTrace(&from, true, true, 0, 0), 1);
    EXPECT_THAT(samplesOf(to, 0), ElementsAre(1, 2, 3));
    EXPECT_THAT(samplesOf(from, 0), ElementsAre(1, 2, 3));
}

class MoveTest : public SeisTraceSetTest
{
protected:
    MoveTest()
    {
        other.setTraceLength(2);
        set.setTraceLength(2);
        addTraces(other, 3);
    }
};

TEST_F(MoveTest, TraceItselfMovesAndLeavesAnEmptyEntry)
{
    SeisTrace* trace = other.getTrace(1, false);
    EXPECT_EQ(set.moveFromTrace(&other, 1, 0), 1);
    EXPECT_EQ(set.getNumberOfTraces(), 1);
    EXPECT_EQ(set.getTrace(0, false), trace);
    EXPECT_EQ(other.getNumberOfTraces(), 3);
    EXPECT_EQ(other.getTrace(1, false), nullptr);
    EXPECT_EQ(other.getTrace(1, true), nullptr);
}

TEST_F(MoveTest, TargetsBeforeItsNumberAreCreated)
{
    SeisTrace* trace = other.getTrace(0, false);
    EXPECT_EQ(set.moveFromTrace(&other, 0, 2), 1);
    ASSERT_EQ(set.getNumberOfTraces(), 3);
    EXPECT_EQ(set.getTrace(2, false), trace);
    EXPECT_NE(set.getTrace(0, false), nullptr);
}

TEST_F(MoveTest, ReplacedTargetStaysAlive)
{
    addTraces(set, 1);
    const OwnedTrace old(set.getTrace(0, false));
    EXPECT_EQ(set.moveFromTrace(&other, 2, 0), 1);
    EXPECT_EQ(set.getNumberOfTraces(), 1);
    EXPECT_EQ(old->traceFlag, 1);
    EXPECT_TRUE(isResident(*old));
}

TEST_F(MoveTest, AppendedTraceComesThroughTheVirtualAddTrace)
{
    ListeningSet listening;
    SeisTrace* trace = other.getTrace(0, false);
    listening.moveFromTrace(&other, 0, 0);
    EXPECT_THAT(listening.added, ElementsAre(trace));
}

TEST_F(MoveTest, HeaderBytesSamplesAndFlagStay)
{
    other.defineAttribute("double");
    other.setAttribute("int", UniVar(77), 0);
    SeisTrace* trace = other.getTrace(0, false);
    fill(*trace, 5);
    const int size = trace->traceHeaderSize;
    set.moveFromTrace(&other, 0, 0);
    EXPECT_EQ(trace->traceHeaderSize, size);
    EXPECT_EQ(differsFromFill(*trace, 5), "");
    EXPECT_EQ(trace->traceFlag, 1);
}

TEST_F(MoveTest, MovingDoesNotTouch)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    SeisTrace* moved = other.getTrace(0, true);
    SeisTrace* front = other.getTrace(1, true);
    ASSERT_FALSE(isResident(*moved));
    EXPECT_EQ(set.moveFromTrace(&other, 0, 0), 1);
    EXPECT_FALSE(isResident(*moved));
    EXPECT_THAT(order(), ElementsAre(front));
    EXPECT_THAT(samplesOf(set, 0), ElementsAre(1, 1)) << "read back when it is asked for";
}

TEST_F(MoveTest, EmptyEntryHasNoTraceToMove)
{
    SeisTrace* trace = other.getTrace(0, false);
    set.moveFromTrace(&other, 0, 0);
    EXPECT_EQ(set.moveFromTrace(&other, 0, 0), 0);
    EXPECT_EQ(set.moveFromTrace(&other, 0, 1), 0);
    EXPECT_EQ(set.getNumberOfTraces(), 1);
    EXPECT_EQ(set.getTrace(0, false), trace);
}

TEST_F(MoveTest, MovingFromBeyondTheEndMovesANewTrace)
{
    EXPECT_EQ(set.moveFromTrace(&other, 4, 0), 1);
    EXPECT_EQ(other.getNumberOfTraces(), 5);
    EXPECT_EQ(other.getTrace(4, false), nullptr);
    ASSERT_NE(set.getTrace(0, false), nullptr);
    EXPECT_THAT(samplesOf(set, 0), Each(0.0f));
}

TEST_F(MoveTest, MovingToItsOwnPlaceChangesNothing)
{
    SeisTrace* trace = other.getTrace(1, false);
    EXPECT_EQ(other.moveFromTrace(&other, 1, 1), 1);
    EXPECT_EQ(other.getTrace(1, false), trace);
    EXPECT_EQ(other.getNumberOfTraces(), 3);
}

TEST_F(MoveTest, MovingWithinASetLeavesAnEmptyEntry)
{
    SeisTrace* trace = other.getTrace(0, false);
    EXPECT_EQ(other.moveFromTrace(&other, 0, 3), 1);
    ASSERT_EQ(other.getNumberOfTraces(), 4);
    EXPECT_EQ(other.getTrace(0, false), nullptr);
    EXPECT_EQ(other.getTrace(3, false), trace);
}

// A set whose middle one of three traces has been moved away.
class EmptyEntryTest : public SeisTraceSetTest
{
protected:
    EmptyEntryTest()
    {
        set.setTraceLength(2);
        addTraces(set, 3);
        other.moveFromTrace(&set, 1, 0);
    }
};

TEST_F(EmptyEntryTest, ReadingGivesNothing)
{
    EXPECT_EQ(set.getTrace(1, true), nullptr);
    EXPECT_EQ(set.getSamples(1), nullptr);
    EXPECT_EQ(set.getHeader(1), nullptr);
    EXPECT_EQ(set.getHeaderSize(1), 0);
    EXPECT_EQ(set.getAttribute("int", 1).getType(), undefinedType);
    EXPECT_TRUE(set.isAttributePresent("int", 1)) << "defined by asking";
    EXPECT_EQ(set.getNumberOfTraces(), 3);
}

TEST_F(EmptyEntryTest, WritingIsReportedAndHarmless)
{
    const float samples[] = {1, 2};
    const unsigned char bytes[] = {1};
    EXPECT_EQ(set.setSamples(samples, 1), 0);
    EXPECT_EQ(set.setHeader(bytes, 1, 1), 0);
    EXPECT_EQ(set.setAttribute("int", UniVar(1), 1), 0);
    EXPECT_EQ(set.getTrace(1, true), nullptr);
}

TEST_F(EmptyEntryTest, ClearingTheSetPassesOverIt)
{
    EXPECT_EQ(set.clearTraceSet(), 1);
    EXPECT_THAT(samplesOf(set, 0), Each(0.0f));
    EXPECT_THAT(samplesOf(set, 2), Each(0.0f));
    EXPECT_THAT(samplesOf(other, 0), Each(2.0f));
}

TEST_F(EmptyEntryTest, RemovingItDestroysNothing)
{
    SeisTrace* last = set.getTrace(2, false);
    set.removeTrace(1);
    ASSERT_EQ(set.getNumberOfTraces(), 2);
    EXPECT_EQ(set.getTrace(1, false), last);
    EXPECT_THAT(samplesOf(other, 0), Each(2.0f));
    EXPECT_EQ(set.dataChannelFlag, 1);
}

TEST_F(EmptyEntryTest, ItTakesANewTrace)
{
    SeisTrace* trace = new SeisTrace(1, 0);
    set.setTrace(trace, 1);
    EXPECT_EQ(set.getTrace(1, true), trace);
    EXPECT_EQ(set.getNumberOfTraces(), 3);
}

TEST_F(EmptyEntryTest, FlagsSurviveItAtEitherEnd)
{
    set.removeTrace(0);
    ASSERT_EQ(set.getTrace(0, false), nullptr);
    set.getDataChannelFlag();
    set.removeTrace(1);
    ASSERT_EQ(set.getNumberOfTraces(), 1);
    set.setDataChannelFlag(5);
    EXPECT_EQ(set.getDataChannelFlag(), 5) << "no trace is there: the set's own word";
    set.removeTrace(0);
    EXPECT_EQ(set.getDataChannelFlag(), 5);
}

TEST_F(SeisTraceSetTest, NegativeNumbersHaveNoTrace)
{
    addTraces(set, 1);
    const float samples[] = {1};
    const unsigned char bytes[] = {1};
    for (const int traceNo : {-1, INT_MIN}) {
        SCOPED_TRACE(traceNo);
        EXPECT_EQ(set.getTrace(traceNo, true), nullptr);
        EXPECT_EQ(set.getSamples(traceNo), nullptr);
        EXPECT_EQ(set.getHeader(traceNo), nullptr);
        EXPECT_EQ(set.getHeaderSize(traceNo), 0);
        EXPECT_EQ(set.getAttribute("int", traceNo).getType(), undefinedType);
        EXPECT_EQ(set.setAttribute("int", UniVar(1), traceNo), 0);
        EXPECT_EQ(set.setSamples(samples, traceNo), 0);
        EXPECT_EQ(set.setHeader(bytes, 1, traceNo), 0);
        EXPECT_EQ(other.copyFromTrace(&set, true, true, traceNo, 0), 0);
        EXPECT_EQ(set.copyFromTrace(&other, true, true, 0, traceNo), 0);
        EXPECT_EQ(other.moveFromTrace(&set, traceNo, 0), 0);
        set.removeTrace(traceNo);
        EXPECT_EQ(set.getNumberOfTraces(), 1);
    }
}

TEST_F(SeisTraceSetTest, NoSourceSetMeansNoSourceTrace)
{
    EXPECT_EQ(set.copyFromTrace(nullptr, true, true, 0, 0), 0);
    EXPECT_EQ(set.moveFromTrace(nullptr, 0, 0), 0);
}

// ---- Transfers ----

TEST_F(SeisTraceSetTest, TransferBetweenSetsOfOneLayoutMovesTheTrace)
{
    for (SeisTraceSet* one : {static_cast<SeisTraceSet*>(&set), static_cast<SeisTraceSet*>(&other)})
    {
        one->setTraceLength(3);
        one->defineAttribute("int");
        one->defineAttribute("double");
    }
    addTraces(other, 2);
    other.setAttribute("double", UniVar(2.5), 1);
    SeisTrace* trace = other.getTrace(1, false);
    const unsigned char* header = trace->traceHeader;

    EXPECT_EQ(set.transferFromTrace(&other, 1, 0), 1);

    EXPECT_EQ(set.getTrace(0, false), trace);
    EXPECT_EQ(trace->traceHeader, header) << "not copied";
    EXPECT_EQ(set.getAttribute("double", 0).getF64Value(), 2.5);
    EXPECT_EQ(trace->traceFlag, 2);
    EXPECT_EQ(other.getTrace(1, false), nullptr);
    EXPECT_EQ(other.getNumberOfTraces(), 2);
}

TEST_F(SeisTraceSetTest, TransferLaysTheHeaderOutAnew)
{
    set.setTraceLength(3);
    other.setTraceLength(3);
    set.defineAttribute("double");
    set.defineAttribute("mine");
    set.defineAttribute("int");
    other.defineAttribute("int");
    other.defineAttribute("double");
    other.defineAttribute("theirs");
    addTraces(other, 1);
    other.setAttribute("int", UniVar(7), 0);
    other.setAttribute("double", UniVar(2.5), 0);
    other.setAttribute("theirs", UniVar(9), 0);
    SeisTrace* trace = other.getTrace(0, false);

    EXPECT_EQ(set.transferFromTrace(&other, 0, 0), 1);

    ASSERT_EQ(set.getTrace(0, false), trace);
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 7);
    EXPECT_EQ(set.getAttribute("double", 0).getF64Value(), 2.5);
    EXPECT_EQ(set.getAttribute("theirs", 0).getI32Value(), 9) << "defined by the transfer";
    EXPECT_EQ(set.getAttribute("mine", 0).getI32Value(), 0);
    EXPECT_EQ(trace->traceSamples[2], 1.0F);
}

TEST_F(SeisTraceSetTest, SetThatIsConfiguredLikeAnotherHasItsLayout)
{
    set.setTraceLength(3);
    set.setTraceSampleInterval(2000);
    set.defineAttribute("int"); // not in the order of the names
    set.defineAttribute("double");
    set.defineAttribute("a");

    EXPECT_EQ(other.configureLike(&set), 1);

    EXPECT_EQ(other.getTraceLength(), 3);
    EXPECT_EQ(other.getTraceSampleInterval(), 2000);
    EXPECT_EQ(other.currentHeaderSize, set.currentHeaderSize);
    for (const char* name : {"int", "double", "a"})
        EXPECT_EQ(other.attrDefs[name].offset, set.attrDefs[name].offset) << name;
    EXPECT_EQ(other.configureLike(&set), 0) << "it has attributes";

    other.setAttribute("int", UniVar(7), 0);
    const unsigned char* header = other.getTrace(0, false)->traceHeader;
    EXPECT_EQ(set.transferFromTrace(&other, 0, 0), 1);
    EXPECT_EQ(set.getTrace(0, false)->traceHeader, header);

    // From here on the two layouts differ.
    other.defineAttribute("late");
    other.setAttribute("late", UniVar(8), 1);
    EXPECT_EQ(set.transferFromTrace(&other, 1, 1), 1);
    EXPECT_EQ(set.getAttribute("late", 1).getI32Value(), 8);
}

TEST_F(SeisTraceSetTest, TransferOfATraceOfAnotherLengthCopies)
{
    set.setTraceLength(2);
    other.setTraceLength(3);
    addTraces(other, 1);

    EXPECT_EQ(set.transferFromTrace(&other, 0, 0), 1);

    EXPECT_EQ(samplesOf(set, 0), (std::vector<float>{1, 1}));
    EXPECT_NE(set.getTrace(0, false), other.getTrace(0, false));
    EXPECT_NE(other.getTrace(0, false), nullptr);
}

TEST_F(SeisTraceSetTest, TransferOfWhatDoesNotExistChangesNothing)
{
    addTraces(other, 1);
    for (const auto& [from, to] : {std::pair(1, 0), std::pair(-1, 0), std::pair(0, -1)}) {
        EXPECT_EQ(set.transferFromTrace(&other, from, to), 0);
        EXPECT_EQ(set.getNumberOfTraces(), 0);
        EXPECT_EQ(other.getNumberOfTraces(), 1);
    }
    EXPECT_EQ(set.transferFromTrace(nullptr, 0, 0), 0);
}

TEST_F(SeisTraceSetTest, TransferLeavesAPagedOutTraceOfTheSameLayoutInTheFile)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    set.setTraceLength(3);
    other.setTraceLength(3);
    other.setSamples(std::vector<float>{1, 2, 3}.data(), 0);
    other.getTrace(1, true);
    ASSERT_GE(other.getTrace(0, false)->traceOffset, 0) << "paged out";

    EXPECT_EQ(set.transferFromTrace(&other, 0, 0), 1);

    EXPECT_GE(set.getTrace(0, false)->traceOffset, 0);
    EXPECT_EQ(samplesOf(set, 0), (std::vector<float>{1, 2, 3}));
}

TEST_F(SeisTraceSetTest, TransferOfAPagedOutTraceOfAnotherLayoutReadsItBack)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    set.setTraceLength(3);
    other.setTraceLength(3);
    set.defineAttribute("double");
    other.setSamples(std::vector<float>{1, 2, 3}.data(), 0);
    other.setAttribute("int", UniVar(7), 0);
    other.getTrace(1, true);
    ASSERT_GE(other.getTrace(0, false)->traceOffset, 0) << "paged out";

    EXPECT_EQ(set.transferFromTrace(&other, 0, 0), 1);

    EXPECT_EQ(samplesOf(set, 0), (std::vector<float>{1, 2, 3}));
    EXPECT_EQ(set.getAttribute("int", 0).getI32Value(), 7);
}

TEST_F(SeisTraceSetTest, RemovingAllTracesFreesTheirMemory)
{
    const auto before = job().totalJobMemoryUsed;
    set.setTraceLength(100);
    other.setTraceLength(100);
    set.setNumberOfTraces(5);
    other.moveFromTrace(&set, 2, 0);
    EXPECT_GT(job().totalJobMemoryUsed, before);

    set.removeAllTraces();
    other.removeAllTraces();

    EXPECT_EQ(set.getNumberOfTraces(), 0);
    EXPECT_EQ(job().totalJobMemoryUsed, before);
}

TEST_F(SeisTraceSetTest, DestructorLeavesTheTracesAlive)
{
    OwnedTrace trace;
    {
        SeisTraceSet plain;
        plain.setTraceLength(2);
        trace.reset(plain.getTrace(0, true));
        fill(*trace, 3);
    }
    EXPECT_EQ(differsFromFill(*trace, 3), "");
    EXPECT_EQ(job().totalJobMemoryUsed, 8);
}

TEST_F(SeisTraceSetTest, LookingUpAnAttributeCostsTheSameAmongMany)
{
    constexpr int lookUps = 100000;
    const auto cost = [&](SeisTraceSet& one, int names) {
        for (int i = 0; i < names; ++i)
            one.defineAttribute("attribute " + std::to_string(i));
        const std::string last = "attribute " + std::to_string(names - 1);
        return fastestRun([] {},
                          [&] {
                              for (int i = 0; i < lookUps; ++i)
                                  one.getAttributeKey(last);
                          });
    };
    const double few = cost(set, 100);
    const double many = cost(other, 10000);
    EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
}

TEST_F(SeisTraceSetTest, RemovingTheFirstTraceCostsTheSameAmongMany)
{
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1000000;
    const auto costPerTrace = [&](int traces) {
        return fastestRun([&] { set.setNumberOfTraces(traces); },
                          [&] {
                              while (set.getNumberOfTraces() > 0)
                                  set.removeTrace(0);
                          }) /
               traces;
    };
    const double few = costPerTrace(2000);
    const double many = costPerTrace(200000);
    EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
}

} // namespace
