// Channels under random operations, compared step by step with a model of plain vectors that are
// searched for pointers.
#include "DataChannel.h"

#include "KernelFixture.h"
#include "ModuleEntity.h"
#include "TraceVerbs.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

// A channel that writes down which traces come into it, so that the model can follow.
class ListeningChannel : public DataChannel
{
public:
    std::vector<SeisTrace*> added;

    int addTrace(SeisTrace* trace) override
    {
        added.push_back(trace);
        return DataChannel::addTrace(trace);
    }
};

using TraceList = std::vector<SeisTrace*>;

struct ModelEntry
{
    SeisTrace* trace; // null where it was moved away
    int arrival;      // of the trace that stood here first
};
using EntryList = std::vector<ModelEntry>;

TraceList tracesOf(const EntryList& entries)
{
    TraceList traces;
    for (const ModelEntry& entry : entries)
        traces.push_back(entry.trace);
    return traces;
}

struct ModelChannel
{
    EntryList entries;
    std::vector<ModuleEntity*> consumers;
    std::map<ModuleEntity*, EntryList> queues;
    int flags = 0;
    int flagWord = 0;
    int arrivals = 0;

    void add(SeisTrace* trace)
    {
        const ModelEntry entry = {trace, arrivals++};
        entries.push_back(entry);
        for (ModuleEntity* consumer : consumers)
            queues[consumer].push_back(entry);
    }

    // A trace is told by its address, an empty entry by its arrival.
    static EntryList::const_iterator find(const EntryList& queue, const ModelEntry& wanted)
    {
        return std::find_if(queue.begin(), queue.end(), [&](const ModelEntry& entry) {
            return entry.trace == wanted.trace &&
                   (wanted.trace != nullptr || entry.arrival == wanted.arrival);
        });
    }

    bool isPending(const ModelEntry& wanted) const
    {
        return std::any_of(queues.begin(), queues.end(), [&](const auto& queue) {
            return find(queue.second, wanted) != queue.second.end();
        });
    }

    void take(ModuleEntity* consumer, const ModelEntry& wanted)
    {
        const auto queue = queues.find(consumer);
        if (queue == queues.end())
            return;
        const auto entry = find(queue->second, wanted);
        if (entry != queue->second.end())
            queue->second.erase(entry);
    }

    // What was pending stays pending, without its trace.
    void leave(const SeisTrace* trace)
    {
        for (auto& queue : queues) {
            for (ModelEntry& entry : queue.second) {
                if (entry.trace == trace)
                    entry.trace = nullptr;
            }
        }
    }
};

class ChannelModelTest : public KernelFixture
{
protected:
    static constexpr size_t channelCount = 3;
    static constexpr int mostTraces = 30; // of one channel

    void start(unsigned seed)
    {
        dice = std::make_unique<Dice>(seed);
        for (size_t i = 0; i < channelCount; ++i) {
            channels[i] = std::make_unique<ListeningChannel>();
            models[i] = ModelChannel();
        }
        set = std::make_unique<SeisTraceSet>();
        alive.clear();
        replaced.clear();
        ASSERT_EQ(job().jobMemoryMap.size(), 0u);
    }

    // Removes what is left, the kernel's way, and finds that nothing else is.
    void finish()
    {
        for (size_t i = 0; i < channelCount; ++i)
            channels[i] = nullptr;
        set = nullptr;
        for (SeisTrace* trace : alive)
            delete trace;
        EXPECT_EQ(job().jobMemoryMap.size(), 0u);
    }

    SeisTrace* newTrace()
    {
        SeisTrace* trace = new SeisTrace(1, 0);
        trace->traceFlag = dice->below(4);
        alive.insert(trace);
        return trace;
    }
    ModuleEntity* anyModule() { return &modules[dice->below(4)]; }

    // ---- operations, each done to both sides

    void operate()
    {
        index = static_cast<size_t>(dice->below(channelCount));
        const int what = dice->below(100);
        if (what < 22)
            add();
        else if (what < 34)
            get();
        else if (what < 70)
            take();
        else if (what < 75)
            setTrace();
        else if (what < 79)
            addReplaced();
        else if (what < 84)
            moveIn();
        else if (what < 90)
            moveOut();
        else if (what < 92)
            attach();
        else if (what < 96)
            useFlags();
        else
            remove();
    }

    ListeningChannel& channel() { return *channels[index]; }
    ModelChannel& model() { return models[index]; }
    ModelEntry& entry(int traceNo) { return model().entries[static_cast<size_t>(traceNo)]; }
    int count() { return static_cast<int>(model().entries.size()); }

    // Lets the model see what the operation just done has added.
    void follow()
    {
        for (SeisTrace* trace : channel().added) {
            alive.insert(trace);
            model().add(trace);
        }
        channel().added.clear();
    }

    void add()
    {
        if (count() >= mostTraces)
            return;
        note("add");
        EXPECT_EQ(channel().addTrace(newTrace()), count() + 1);
        follow();
    }

    void get()
    {
        const int traceNo = dice->below(count() + (count() < mostTraces ? 3 : 0) + 1) - 1;
        note("get", traceNo);
        const SeisTrace* trace = channel().getTrace(traceNo, dice->oneIn(2));
        follow();
        EXPECT_EQ(trace, traceNo >= 0 ? entry(traceNo).trace : nullptr);
    }

    void take()
    {
        ModuleEntity* consumer = anyModule();
        const int behind = count() == 0 || dice->oneIn(15) ? 3 : 0;
        const int traceNo = dice->oneIn(2) ? 0 : dice->below(count() + behind + 1) - 1;
        note("take by " + consumer->getName(), traceNo);
        channel().removeInputTrace(consumer, traceNo);
        follow();
        if (traceNo < 0 || traceNo >= count())
            return;
        model().take(consumer, entry(traceNo));
        if (!model().isPending(entry(traceNo)))
            removed(traceNo);
    }

    void removed(int traceNo)
    {
        EntryList& entries = model().entries;
        if (SeisTrace* trace = entry(traceNo).trace) {
            model().leave(trace);
            alive.erase(trace);
        }
        entries.erase(entries.begin() + traceNo);
        if (!entries.empty() && entries.front().trace != nullptr)
            model().flagWord = entries.front().trace->traceFlag;
    }

    void setTrace()
    {
        if (count() >= mostTraces)
            return;
        const int traceNo = dice->below(count() + 3);
        note("set", traceNo);
        const int former = count();
        SeisTrace* trace = newTrace();
        channel().setTrace(trace, traceNo);
        follow();
        if (traceNo < former)
            replace(traceNo, trace);
    }

    void replace(int traceNo, SeisTrace* trace)
    {
        SeisTrace* old = entry(traceNo).trace;
        entry(traceNo).trace = trace;
        if (old != nullptr)
            replaced.push_back({old, index});
    }

    // A trace that was replaced may be pending still; it comes again behind the others.
    void addReplaced()
    {
        if (replaced.empty() || count() >= mostTraces)
            return;
        const size_t at = static_cast<size_t>(dice->below(static_cast<int>(replaced.size())));
        const auto [trace, former] = replaced[at];
        if (former != index && models[former].isPending({trace, 0}))
            return;
        replaced.erase(replaced.begin() + static_cast<std::ptrdiff_t>(at));
        note("add a replaced trace");
        channel().addTrace(trace);
        follow();
    }

    void moveIn()
    {
        set->setTrace(newTrace(), 0);
        const int traceNo = dice->below(count() + 1);
        note("move in", traceNo);
        const int former = count();
        EXPECT_EQ(channel().moveFromTrace(set.get(), 0, traceNo), 1);
        SeisTrace* trace = channel().traces[static_cast<size_t>(traceNo)];
        follow();
        if (traceNo < former)
            replace(traceNo, trace);
    }

    // To another channel, or to the set, whose trace then is destroyed.
    void moveOut()
    {
        if (count() == 0)
            return;
        const int traceNo = dice->below(count());
        SeisTrace* trace = entry(traceNo).trace;
        const size_t target = static_cast<size_t>(dice->below(channelCount));
        note("move out to " + std::to_string(target), traceNo);
        if (trace == nullptr) {
            EXPECT_EQ(set->moveFromTrace(&channel(), traceNo, 0), 0);
            return;
        }
        model().leave(trace);
        entry(traceNo).trace = nullptr;
        if (target == index) {
            EXPECT_EQ(set->moveFromTrace(&channel(), traceNo, 0), 1);
            EXPECT_EQ(set->getTrace(0, false), trace);
            set->removeTrace(0);
            alive.erase(trace);
            return;
        }
        const int end = channels[target]->getNumberOfTraces();
        EXPECT_EQ(channels[target]->moveFromTrace(&channel(), traceNo, end), 1);
        index = target;
        follow();
    }

    void attach()
    {
        if (model().consumers.size() >= 4)
            return;
        ModuleEntity* consumer = &modules[dice->below(3)];
        note("attach " + consumer->getName());
        channel().attachOutputModule(consumer);
        model().consumers.push_back(consumer);
    }

    void useFlags()
    {
        const int bits = dice->below(8);
        const bool on = dice->oneIn(2);
        note("flags");
        if (dice->oneIn(2)) {
            channel().setFlag(bits, on);
            model().flags = on ? model().flags | bits : model().flags & ~bits;
        } else {
            EXPECT_EQ(channel().isFlagged(bits, on), (model().flags & bits) != 0);
            if (on)
                model().flags &= ~bits;
        }
        const TraceList traces = tracesOf(model().entries);
        if (traces.empty()) {
            channel().setDataChannelFlag(bits);
            model().flagWord = bits;
            EXPECT_EQ(channel().getDataChannelFlag(), bits);
        } else if (traces.back() != nullptr) {
            channel().setDataChannelFlag(bits);
            EXPECT_EQ(traces.back()->traceFlag, bits);
        }
        if (!traces.empty() && traces.front() != nullptr) {
            EXPECT_EQ(channel().getDataChannelFlag(), traces.front()->traceFlag);
        }
    }

    // As the set does it, which does not ask whether a consumer waits for the trace.
    void remove()
    {
        if (count() == 0)
            return;
        const int traceNo = dice->below(count());
        note("remove", traceNo);
        channel().removeTrace(traceNo);
        removed(traceNo);
    }

    // ---- comparison

    void note(const std::string& what, int traceNo = -1)
    {
        done = what + ": channel " + std::to_string(index) + ", trace " + std::to_string(traceNo);
    }

    std::string difference(bool paging)
    {
        for (size_t i = 0; i < channelCount; ++i) {
            const DataChannel& real = *channels[i];
            const ModelChannel& expected = models[i];
            const std::string where = " of channel " + std::to_string(i);
            if (TraceList(real.traces.begin(), real.traces.end()) != tracesOf(expected.entries))
                return "the traces" + where;
            if (real.moduleTraces.size() != expected.queues.size())
                return "the number of queues" + where;
            for (const auto& [consumer, queue] : expected.queues) {
                const auto found = real.moduleTraces.find(consumer);
                if (found == real.moduleTraces.end() || TraceList(found->second) != tracesOf(queue))
                    return "the queue of " + consumer->getName() + where;
            }
            for (ModuleEntity& module : modules) {
                const auto queue = expected.queues.find(&module);
                const size_t pending =
                    queue != expected.queues.end() ? queue->second.size() : expected.entries.size();
                if (channels[i]->getNumberOfInputTraces(&module) != static_cast<int>(pending))
                    return "the number pending for " + module.getName() + where;
            }
            if (real.outputModules != expected.consumers)
                return "the consumers" + where;
            if (real.flags != expected.flags || real.dataChannelFlag != expected.flagWord)
                return "the flags" + where;
        }
        if (!paging && job().jobMemoryMap.size() != 2 * alive.size())
            return "the number of traces alive";
        return std::string();
    }

    struct Replaced
    {
        SeisTrace* trace;
        size_t channel; // whose queues may hold it
    };

    ModuleEntity modules[4] = {ModuleEntity("A"), ModuleEntity("B"), ModuleEntity("C"),
                               ModuleEntity("stranger")};
    std::unique_ptr<Dice> dice;
    std::unique_ptr<ListeningChannel> channels[channelCount];
    ModelChannel models[channelCount];
    std::unique_ptr<SeisTraceSet> set;
    std::set<SeisTrace*> alive;
    std::vector<Replaced> replaced;
    size_t index = 0; // the channel of the operation
    std::string done;
};

TEST_F(ChannelModelTest, RandomOperationsLeaveWhatTheModelSays)
{
    for (unsigned seed = 1; seed <= 25; ++seed) {
        const bool paging = seed % 5 == 0;
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = paging ? 1 + static_cast<int>(seed) / 5 : 10000;
        start(seed);
        for (int step = 0; step < 4000; ++step) {
            operate();
            ASSERT_EQ(difference(paging), "")
                << "seed " << seed << ", step " << step << ": " << done;
        }
        finish();
    }
}

// Whatever was moved out or destroyed in between, nothing is lost, nothing destroyed twice, and the
// consumers drain the channel.
TEST_F(ChannelModelTest, RandomMovesAndRemovalsLoseNothingAndCanBeDrained)
{
    for (unsigned seed = 1; seed <= 25; ++seed) {
        start(seed);
        DataChannel& one = *channels[0];
        for (int i = 0; i < 1 + static_cast<int>(seed) % 3; ++i)
            one.attachOutputModule(&modules[i]);
        std::set<SeisTrace*> moved;
        for (int step = 0; step < 2000; ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
            const int traceNo = dice->below(one.getNumberOfTraces() + 1);
            const bool there = traceNo < one.getNumberOfTraces();
            const int what = dice->below(10);
            if (what < 4 && one.getNumberOfTraces() < mostTraces) {
                one.addTrace(new SeisTrace(1, 0));
            } else if (what < 6 && there && one.getTrace(traceNo, false) != nullptr) {
                ASSERT_EQ(set->moveFromTrace(&one, traceNo, set->getNumberOfTraces()), 1);
                moved.insert(set->traces.back());
            } else if (what == 6 && there && dice->oneIn(4)) {
                one.removeTrace(traceNo);
            } else {
                one.removeInputTrace(anyModule(), traceNo);
            }
            const size_t held = static_cast<size_t>(
                std::count_if(one.traces.begin(), one.traces.end(),
                              [](const SeisTrace* trace) { return trace != nullptr; }));
            ASSERT_EQ(job().jobMemoryMap.size(), 2 * (held + moved.size()));
        }
        size_t calls = one.traces.size();
        for (const auto& queue : one.moduleTraces)
            calls += queue.second.size();
        for (size_t call = 0; call < calls && one.getNumberOfTraces() > 0; ++call) {
            for (int i = 0; i < 3 && one.getNumberOfTraces() > 0; ++i)
                one.removeInputTrace(&modules[i], 0);
        }
        EXPECT_EQ(one.getNumberOfTraces(), 0) << "seed " << seed;
        alive = moved;
        set->traces.clear();
        finish();
    }
}

} // namespace
