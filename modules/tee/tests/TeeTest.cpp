#include "DataChannel.h"
#include "ExpectedLeaks.h"
#include "KernelFixture.h"
#include "MOXKernel.h"
#include "ProbeModule.h"
#include "SeisTrace.h"
#include "TraceVerbs.h"

#include <gmock/gmock.h>

#include <deque>
#include <memory>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int endOfData = 3;

// What a reader has found in its first trace.
struct Seen
{
    int number;
    float sample;
    int flag;
    bool operator==(const Seen&) const = default;
};

void PrintTo(const Seen& seen, std::ostream* out)
{
    *out << seen.number << "/" << seen.sample << "/" << seen.flag;
}

// A source, a tee, and readers behind it, each with a channel to itself.
class TeeTest : public KernelFixture
{
protected:
    struct Reader
    {
        Reader(const std::string& name, DataChannel* from) : module(name), in(from)
        {
            module.entity->setInputDataChannel(in, 0);
            module.process = [this] { read(); };
        }

        void read()
        {
            if (in->getNumberOfTraces() == 0) {
                ++callsWithoutInput;
                setInputTraceBufferFlag(0, 1);
                setModuleProcessingOption("RespectEOD", UniVar(0));
                return;
            }
            traces.push_back(in->getTrace(0, true));
            seen.push_back({getTraceAttribute(in, "number", 0).getI32Value(), in->getSamples(0)[0],
                            in->getDataChannelFlag()});
            if (onTrace)
                onTrace(in);
        }

        ProbeModule module;
        DataChannel* in;
        std::vector<Seen> seen;
        std::vector<const SeisTrace*> traces; // for their addresses alone
        std::function<void(DataChannel*)> onTrace;
        int callsWithoutInput = 0;
    };

    TeeTest() : source("source")
    {
        source.entity->setOutputDataChannel(in, 0);
        source.pre = [this] {
            in->configureByTemplate(2, 2000, nullptr);
            in->defineAttribute("number");
            in->informTotalTracesNumber(5);
        };
        source.process = [this] { give(); };
        tee = job().initJobModule("tee", "libtee.so");
        tee->setInputDataChannel(in, 0);
    }

    Reader& addReader()
    {
        auto* channel = new DataChannel;
        tee->setOutputDataChannel(channel, 0);
        readers.push_back(
            std::make_unique<Reader>("reader" + std::to_string(readers.size() + 1), channel));
        return *readers.back();
    }

    // The output that no module reads.
    DataChannel* addEnd()
    {
        end = new DataChannel;
        tee->setOutputDataChannel(end, 0);
        return end;
    }

    // So many traces of each call; the last trace is marked, unless `marked` is false: then the
    // channel is, in a call of its own.
    void give()
    {
        for (int i = bursts.empty() ? 0 : bursts.front(); i > 0; --i) {
            ++given;
            const int place = in->getNumberOfTraces();
            setTraceAttribute(in, "number", UniVar(given), place);
            in->getSamples(place)[0] = static_cast<float>(10 * given);
            if (onTraceMade)
                onTraceMade(place);
        }
        if (!bursts.empty())
            bursts.pop_front();
        if (bursts.empty() && (marked || in->getNumberOfTraces() == 0))
            in->setDataChannelFlag(endOfData);
    }

    void run()
    {
        ASSERT_EQ(job().preProcessJob(), 0);
        ASSERT_EQ(job().processJob(), 0);
        ASSERT_EQ(job().postProcessJob(), 0);
    }

    ProbeModule source;
    DataChannel* in = new DataChannel;
    ModuleEntity* tee;
    DataChannel* end = nullptr;
    std::vector<std::unique_ptr<Reader>> readers;
    std::deque<int> bursts = {1, 1, 1};
    bool marked = true;
    int given = 0;
    std::function<void(int)> onTraceMade;
};

TEST_F(TeeTest, EveryReaderGetsEveryTraceOnce)
{
    Reader& first = addReader();
    Reader& second = addReader();
    Reader& third = addReader();
    addEnd();
    bursts = {0, 3, 0, 2};

    run();

    const std::vector<Seen> all = {{1, 10, 0}, {2, 20, 0}, {3, 30, 0}, {4, 40, 0}, {5, 50, 3}};
    EXPECT_EQ(first.seen, all);
    EXPECT_EQ(second.seen, all);
    EXPECT_EQ(third.seen, all);
}

// The first reader keeps each trace for three calls. By the shared channel's rules the second one
// would have to wait for it, or see traces again.
TEST_F(TeeTest, EachReaderGoesAtItsOwnPace)
{
    Reader& slow = addReader();
    Reader& quick = addReader();
    addEnd();
    bursts = {2, 3};
    int calls = 0;
    slow.onTrace = [&](DataChannel*) {
        if (++calls % 3 != 0)
            setInputTraceBufferFlag(0, 1);
    };
    std::size_t quickBySlowsThird = 0;
    quick.onTrace = [&](DataChannel*) {
        if (slow.seen.size() <= 3)
            quickBySlowsThird = quick.seen.size();
    };

    run();

    EXPECT_EQ(quick.seen.size(), 5u);
    EXPECT_EQ(quickBySlowsThird, 3u);
    EXPECT_EQ(slow.seen.size(), 15u);
    EXPECT_EQ(slow.seen[3], (Seen{2, 20, 0}));
    EXPECT_EQ(slow.seen.back(), (Seen{5, 50, 3}));
}

TEST_F(TeeTest, WhatOneReaderWritesNoOtherSees)
{
    Reader& before = addReader();
    Reader& writer = addReader();
    Reader& after = addReader();
    addEnd();
    writer.onTrace = [](DataChannel* channel) {
        channel->getSamples(0)[0] = -1;
        setTraceAttribute(channel, "number", UniVar(-1), 0);
        setTraceAttribute(channel, "remark", UniVar(1), 0);
    };

    run();

    const std::vector<Seen> all = {{1, 10, 0}, {2, 20, 0}, {3, 30, 3}};
    EXPECT_EQ(before.seen, all);
    EXPECT_EQ(writer.seen, all);
    EXPECT_EQ(after.seen, all);
}

TEST_F(TeeTest, LengthIntervalAndTotalAreThoseOfTheInput)
{
    Reader& first = addReader();
    Reader& second = addReader();
    addEnd();
    std::vector<int64_t> described;
    for (Reader* reader : {&first, &second}) {
        reader->module.pre = [&, reader] {
            described.insert(described.end(),
                             {reader->in->getTraceLength(), reader->in->getTraceSampleInterval(),
                              reader->in->getTotalTracesNumber(),
                              reader->in->isAttributePresent("number", 0) ? 1 : 0});
        };
    }
    int64_t later = 0;
    onTraceMade = [&](int) { in->informTotalTracesNumber(3); };
    second.onTrace = [&](DataChannel* channel) { later = channel->getTotalTracesNumber(); };

    run();

    EXPECT_THAT(described, ElementsAre(2, 2000, 5, 1, 2, 2000, 5, 1));
    EXPECT_EQ(later, 3);
}

TEST_F(TeeTest, AttributesThatAreDefinedWhileTracesFlowArePassedOn)
{
    Reader& first = addReader();
    Reader& second = addReader();
    addEnd();
    onTraceMade = [&](int place) {
        if (given >= 2)
            setTraceAttribute(in, "late", UniVar(100 * given), place);
    };
    std::vector<std::vector<int>> late(2);
    const auto note = [&](std::size_t i) {
        return [&, i](DataChannel* channel) {
            if (channel->isAttributePresent("late", 0))
                late[i].push_back(getTraceAttribute(channel, "late", 0).getI32Value());
        };
    };
    first.onTrace = note(0);
    second.onTrace = note(1);

    run();

    EXPECT_THAT(late[0], ElementsAre(200, 300));
    EXPECT_THAT(late[1], ElementsAre(200, 300));
}

TEST_F(TeeTest, TheLastReaderGetsTheTraceItselfWhereTheLayoutsAgree)
{
    Reader& first = addReader();
    Reader& second = addReader();
    addEnd();
    std::vector<const SeisTrace*> made;
    int pending = 0;
    onTraceMade = [&](int place) {
        made.push_back(in->getTrace(place, true));
        pending += place;
    };

    run();

    EXPECT_EQ(second.traces, made);
    EXPECT_NE(first.traces[0], made[0]);
    EXPECT_EQ(pending, 0) << "nothing was left behind in the input";
    EXPECT_THAT(second.seen, ElementsAre(Seen{1, 10, 0}, Seen{2, 20, 0}, Seen{3, 30, 3}));
}

// "number" stands first in the input and, by its name, last in the outputs.
TEST_F(TeeTest, TheLastReaderGetsACopyWhereTheLayoutsDiffer)
{
    Reader& first = addReader();
    Reader& second = addReader();
    addEnd();
    const auto describe = source.pre;
    source.pre = [&, describe] {
        describe();
        in->defineAttribute("another");
    };
    onTraceMade = [&](int place) { setTraceAttribute(in, "another", UniVar(7), place); };

    run();

    EXPECT_THAT(first.seen, ElementsAre(Seen{1, 10, 0}, Seen{2, 20, 0}, Seen{3, 30, 3}));
    EXPECT_THAT(second.seen, ElementsAre(Seen{1, 10, 0}, Seen{2, 20, 0}, Seen{3, 30, 3}));
}

TEST_F(TeeTest, AReaderThatAsksForTheEndIsToldWhenNoTraceBroughtIt)
{
    Reader& first = addReader();
    Reader& second = addReader();
    addEnd();
    marked = false;
    bursts = {2, 1, 0};
    for (Reader* reader : {&first, &second}) {
        reader->module.pre = [] { setModuleProcessingOption("RespectEOD", UniVar(1)); };
    }

    run();

    EXPECT_EQ(first.seen.size(), 3u);
    EXPECT_EQ(first.callsWithoutInput, 1);
    EXPECT_EQ(second.seen.size(), 3u);
    EXPECT_EQ(second.callsWithoutInput, 1);
}

TEST_F(TeeTest, NoTraceAtAllIsAnEnd)
{
    Reader& only = addReader();
    addEnd();
    marked = false;
    bursts = {};
    only.module.pre = [] { setModuleProcessingOption("RespectEOD", UniVar(1)); };

    run();

    EXPECT_THAT(only.seen, IsEmpty());
    EXPECT_EQ(only.callsWithoutInput, 1);
}

// The reader before it has taken nothing when the module has read its whole input.
TEST_F(TeeTest, TheOutputThatNobodyReadsHoldsNoTraceAndTellsTheEnd)
{
    Reader& slow = addReader();
    Reader& quick = addReader();
    addEnd();
    int most = 0;
    int endSeen = 0;
    quick.onTrace = [&](DataChannel*) {
        most = std::max(most, end->getNumberOfTraces());
        endSeen = end->getDataChannelFlag();
    };
    slow.onTrace = [&](DataChannel*) {
        if (quick.seen.size() < 3)
            setInputTraceBufferFlag(0, 1);
    };

    run();

    EXPECT_EQ(most, 0);
    EXPECT_EQ(endSeen, endOfData);
    EXPECT_EQ(slow.seen.back(), (Seen{3, 30, 3}));
}

TEST_F(TeeTest, OneTraceInMemoryIsEnough)
{
    ScratchManager::getInstance();
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 1;
    Reader& first = addReader();
    Reader& second = addReader();
    addEnd();
    bursts = {5};

    run();

    const std::vector<Seen> all = {{1, 10, 0}, {2, 20, 0}, {3, 30, 0}, {4, 40, 0}, {5, 50, 3}};
    EXPECT_EQ(first.seen, all);
    EXPECT_EQ(second.seen, all);
}

} // namespace
