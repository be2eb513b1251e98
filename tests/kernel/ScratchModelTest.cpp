// Traces in sets under random operations, compared step by step with a model that does the simplest
// thing: one deque that is searched, and a copy of what every trace holds.
#include "ScratchManager.h"

#include "KernelFixture.h"
#include "SeisTraceSet.h"
#include "TraceVerbs.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr int highestLimit = 20;
constexpr int stepsPerSeed = 8000;
constexpr size_t mostTraces = 45;

struct Definition
{
    const char* name;
    int type, dim;
    int stored, reserved; // bytes
};

// What the schema makes of them stands here once more, so that the model owes nothing to it.
constexpr Definition definitions[] = {
    {"double", 5, 1, 8, 8},    {"doubles", 5, 2, 16, 32}, {"float", 4, 1, 4, 4},
    {"int", 2, 1, 4, 4},       {"ints", 2, 4, 16, 64},    {"letter", 1, 3, 1, 3},
    {"long", 3, 0, 8, 8},      {"name", 9, 1, 32, 32},    {"path", 10, 2, 64, 128},
    {"unknown", -1, -1, 4, 4},
};

// What a trace should hold. The kernel's trace is `real`.
struct ModelTrace
{
    SeisTrace* real;
    std::vector<float> samples;
    std::string header;
    int flag = 0;
    bool resident = true;
    int job = 0; // in which it was paged out

    void growHeader(size_t needed)
    {
        if (header.size() < needed)
            header.resize((needed / 64 + 1) * 64, '\0');
    }
};

struct ModelSet
{
    std::vector<ModelTrace*> traces; // null where one was moved away
    std::map<std::string, size_t> places;
    size_t headerSize = 0;
    int length = 0;
};

const Definition& definitionOf(const std::string& name)
{
    return *std::find_if(std::begin(definitions), std::end(definitions),
                         [&](const Definition& one) { return name == one.name; });
}

class Model
{
public:
    explicit Model(int limitOfTraces) : limit(limitOfTraces) {}

    ModelTrace* create(SeisTrace* real, int length, size_t headerSize)
    {
        traces.push_back(std::make_unique<ModelTrace>());
        ModelTrace* trace = traces.back().get();
        trace->real = real;
        trace->samples.assign(static_cast<size_t>(length), 0.0f);
        trace->header.assign(headerSize, '\0');
        return trace;
    }

    void touch(ModelTrace* trace)
    {
        if (!order.empty() && order.front() == trace)
            return;
        const auto place = std::find(order.begin(), order.end(), trace);
        if (place != order.end())
            order.erase(place);
        else
            restore(trace);
        order.push_front(trace);
        while (static_cast<int>(order.size()) > limit) {
            order.back()->resident = false;
            order.back()->job = job;
            order.pop_back();
        }
    }

    void destroy(ModelTrace* trace)
    {
        std::erase(order, trace);
        std::erase_if(traces, [=](const auto& one) { return one.get() == trace; });
    }

    void define(ModelSet& set, const std::string& name) const
    {
        if (set.places.count(name) != 0)
            return;
        set.places[name] = set.headerSize;
        set.headerSize += static_cast<size_t>(definitionOf(name).reserved);
    }

    void copyHeader(const ModelSet& source, ModelSet& target, const ModelTrace& from,
                    ModelTrace& to) const
    {
        to.header.assign(to.header.size(), '\0');
        for (const auto& [name, place] : source.places) {
            define(target, name);
            const size_t bytes = static_cast<size_t>(definitionOf(name).stored);
            const size_t at = target.places.at(name);
            to.growHeader(at + bytes);
            if (place + bytes <= from.header.size())
                to.header.replace(at, bytes, from.header, place, bytes);
        }
    }

    void copySamples(const ModelSet& source, const ModelSet& target, const ModelTrace& from,
                     ModelTrace& to) const
    {
        const size_t count =
            std::min({from.samples.size(), to.samples.size(), static_cast<size_t>(source.length),
                      static_cast<size_t>(target.length)});
        std::copy_n(from.samples.begin(), count, to.samples.begin());
    }

    std::deque<ModelTrace*> order;
    std::vector<std::unique_ptr<ModelTrace>> traces;
    int limit;
    int job = 0;

private:
    void restore(ModelTrace* trace) const
    {
        if (!trace->resident && trace->job != job) {
            // Its record went with the file of its job.
            trace->samples.assign(trace->samples.size(), 0.0f);
            trace->header.assign(trace->header.size(), '\0');
        }
        trace->resident = true;
    }
};

class ScratchModelTest : public KernelFixture
{
protected:
    static constexpr size_t setCount = 4;

    // Runs `stepsPerSeed` operations. With faults, the file at times takes no more bytes.
    void run(unsigned seed, int limit, bool faults)
    {
        renewSingletons();
        for (const Definition& one : definitions) {
            if (one.type > 0)
                job().addTraceAttributeDefinition(one.name, one.type, one.dim, "", 0, 0, 0, 0, 0);
        }
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = limit;
        dice = std::make_unique<Dice>(seed);
        model = std::make_unique<Model>(limit);
        loose.clear();
        for (size_t i = 0; i < setCount; ++i) {
            sets[i] = std::make_unique<SeisTraceSet>();
            modelSets[i] = ModelSet();
            setLength(i, dice->below(20));
        }

        for (int step = 0; step < stepsPerSeed; ++step) {
            done.clear();
            {
                std::unique_ptr<FileSizeLimit> full;
                if (faults && dice->oneIn(4))
                    full = std::make_unique<FileSizeLimit>(someFileSize());
                operate();
                if (full)
                    acceptTracesThatStayed();
            }
            ASSERT_EQ(difference(), "")
                << "seed " << seed << ", limit " << limit << ", step " << step << ": " << done;
        }
        finish();
        ASSERT_EQ(difference(), "") << "seed " << seed << ", limit " << limit << ", at the end";
    }

private:
    std::vector<std::unique_ptr<ModelTrace>>& traces() { return model->traces; }

    // ---- operations, each done to both sides

    void operate()
    {
        const int what = dice->below(1000);
        const size_t set = static_cast<size_t>(dice->below(setCount));
        if (what < 300)
            read(set, dice->oneIn(6));
        else if (what < 400)
            writeSamples(set);
        else if (what < 520)
            writeAttribute(set);
        else if (what < 640)
            append(set);
        else if (what < 740)
            remove(set);
        else if (what < 840)
            copy(set, static_cast<size_t>(dice->below(setCount)));
        else if (what < 900)
            move(set);
        else if (what < 940)
            useLoose();
        else if (what < 980)
            setLength(set, dice->oneIn(3) ? 0 : dice->below(60));
        else if (what < 985)
            clear(set);
        else if (what < 992)
            endJob();
        else
            setLimit();
    }

    // A trace number that exists, or now and then one behind the end.
    int anyNumber(size_t set)
    {
        const int count = static_cast<int>(modelSets[set].traces.size());
        const bool behind = traces().size() < mostTraces && (count == 0 || dice->oneIn(12));
        return behind ? count + dice->below(2) : count > 0 ? dice->below(count) : -1;
    }

    // What the set itself does first: traces up to `traceNo`, of which the last is touched.
    ModelTrace* modelTrace(size_t set, int traceNo, bool touched)
    {
        ModelSet& one = modelSets[set];
        while (static_cast<int>(one.traces.size()) <= traceNo) {
            SeisTrace* real = sets[set]->traces[one.traces.size()];
            one.traces.push_back(model->create(real, one.length, one.headerSize));
        }
        ModelTrace* trace = one.traces[static_cast<size_t>(traceNo)];
        if (trace != nullptr && touched)
            model->touch(trace);
        return trace;
    }

    void read(size_t set, bool untouched)
    {
        const int traceNo = anyNumber(set);
        if (traceNo < 0)
            return;
        note("read", set, traceNo);
        const SeisTrace* real = sets[set]->getTrace(traceNo, !untouched);
        const ModelTrace* trace = modelTrace(set, traceNo, !untouched);
        EXPECT_EQ(real, trace != nullptr ? trace->real : nullptr);
    }

    void writeSamples(size_t set)
    {
        const int traceNo = anyNumber(set);
        if (traceNo < 0)
            return;
        note("write samples", set, traceNo);
        std::vector<float> samples(100);
        for (float& sample : samples)
            sample = static_cast<float>(dice->below(1 << 20));
        const int result = sets[set]->setSamples(samples.data(), traceNo);
        ModelTrace* trace = modelTrace(set, traceNo, true);
        EXPECT_EQ(result, trace != nullptr ? 1 : 0);
        if (trace != nullptr) {
            std::copy_n(samples.begin(), trace->samples.size(), trace->samples.begin());
            trace->real->setTraceFlag(trace->flag = dice->below(8));
        }
    }

    // Sets 0 and 1 always have the same layout, so that traces can be moved between them.
    void define(size_t set, const std::string& name)
    {
        for (const size_t one : {size_t(0), size_t(1)}) {
            if (set <= 1 && one != set) {
                sets[one]->defineAttribute(name);
                model->define(modelSets[one], name);
            }
        }
        model->define(modelSets[set], name);
    }

    // A random value of the attribute, and the bytes that it leaves in the header.
    std::pair<UniVar, std::string> anyValue(const Definition& one)
    {
        const auto bytesOf = [](const auto& value) {
            return std::string(reinterpret_cast<const char*>(&value), sizeof value);
        };
        const int number = dice->below(1 << 30);
        switch (one.type) {
        case 1:
        case 9:
        case 10: {
            std::string text(static_cast<size_t>(dice->below(one.stored + 9)), ' ');
            for (char& letter : text)
                letter = static_cast<char>('a' + dice->below(26));
            std::string bytes = text;
            bytes.resize(static_cast<size_t>(one.stored), '\0');
            return {UniVar(text), bytes};
        }
        case 3:
            return {UniVar(int64_t(number) << 20), bytesOf(int64_t(number) << 20)};
        case 4:
            return {UniVar(static_cast<float>(number)), bytesOf(static_cast<float>(number))};
        case 5:
            if (one.dim == 2) {
                const double numbers[] = {number * 0.5, number * 0.25};
                return {UniVar(numbers, 2), bytesOf(numbers)};
            }
            return {UniVar(number / 8.0), bytesOf(number / 8.0)};
        default:
            if (one.dim == 4) {
                const int numbers[] = {number, number + 1, number + 2, number + 3};
                return {UniVar(numbers, 4), bytesOf(numbers)};
            }
            return {UniVar(number), bytesOf(number)};
        }
    }

    void writeAttribute(size_t set)
    {
        const int traceNo = anyNumber(set);
        if (traceNo < 0)
            return;
        // Few of the names early on, so that layouts and with them record sizes change for long.
        const int names = static_cast<int>(std::size(definitions));
        const Definition& one = definitions[dice->oneIn(8) ? dice->below(names) : dice->below(3)];
        note(std::string("write ") + one.name, set, traceNo);
        const auto [value, bytes] = anyValue(one);
        const int result = sets[set]->setAttribute(one.name, value, traceNo);
        define(set, one.name);
        ModelTrace* trace = modelTrace(set, traceNo, true);
        EXPECT_EQ(result, trace != nullptr ? 1 : 0);
        if (trace != nullptr) {
            const size_t place = modelSets[set].places.at(one.name);
            trace->growHeader(place + bytes.size());
            trace->header.replace(place, bytes.size(), bytes);
        }
    }

    void append(size_t set)
    {
        if (traces().size() >= mostTraces)
            return;
        const int traceNo = static_cast<int>(modelSets[set].traces.size()) + dice->below(2);
        note("append", set, traceNo);
        sets[set]->getTrace(traceNo, true);
        modelTrace(set, traceNo, true);
    }

    void remove(size_t set)
    {
        const int traceNo = anyNumber(set);
        if (traceNo < 0 || traceNo >= static_cast<int>(modelSets[set].traces.size()))
            return;
        note("remove", set, traceNo);
        sets[set]->removeTrace(traceNo);
        ModelTrace* trace = modelTrace(set, traceNo, true);
        if (trace != nullptr)
            model->destroy(trace);
        modelSets[set].traces.erase(modelSets[set].traces.begin() + traceNo);
    }

    void copy(size_t from, size_t to)
    {
        const int fromNo = anyNumber(from), toNo = anyNumber(to);
        if (fromNo < 0 || toNo < 0 || (from == to && fromNo == toNo))
            return;
        const bool header = !dice->oneIn(4), samples = !dice->oneIn(4);
        note("copy from set " + std::to_string(from) + ", trace " + std::to_string(fromNo), to,
             toNo);
        const int result = sets[to]->copyFromTrace(sets[from].get(), header, samples, fromNo, toNo);
        ModelTrace* source = modelTrace(from, fromNo, true);
        ModelTrace* target = modelTrace(to, toNo, true);
        EXPECT_EQ(result, source != nullptr && target != nullptr ? 1 : 0);
        if (result == 0)
            return;
        if (header) {
            for (const auto& attribute : modelSets[from].places)
                define(to, attribute.first);
            model->copyHeader(modelSets[from], modelSets[to], *source, *target);
        }
        if (samples)
            model->copySamples(modelSets[from], modelSets[to], *source, *target);
        target->flag = source->flag;
    }

    void move(size_t from)
    {
        const size_t to = from <= 1 ? static_cast<size_t>(dice->below(2)) : from;
        const int fromNo = anyNumber(from);
        const int fromCount = static_cast<int>(modelSets[from].traces.size());
        const bool created = fromNo == fromCount;
        if (fromNo < 0 || fromNo > fromCount || (created && from == to) ||
            traces().size() >= mostTraces)
            return;
        const int toNo = dice->below(static_cast<int>(modelSets[to].traces.size()) + 2);
        note("move from set " + std::to_string(from) + ", trace " + std::to_string(fromNo), to,
             toNo);
        const int result = sets[to]->moveFromTrace(sets[from].get(), fromNo, toNo);
        ModelTrace* trace = modelTrace(from, fromNo, false);
        if (created)
            trace->real = sets[to]->traces[static_cast<size_t>(toNo)];
        EXPECT_EQ(result, trace != nullptr ? 1 : 0);
        if (trace == nullptr || (from == to && fromNo == toNo))
            return;
        modelSets[from].traces[static_cast<size_t>(fromNo)] = nullptr;
        std::vector<ModelTrace*>& target = modelSets[to].traces;
        if (toNo > static_cast<int>(target.size()))
            modelTrace(to, toNo - 1, false);
        if (toNo == static_cast<int>(target.size()))
            target.push_back(nullptr);
        ModelTrace* replaced = target[static_cast<size_t>(toNo)];
        target[static_cast<size_t>(toNo)] = trace;
        if (replaced != nullptr)
            loose.push_back(replaced);
    }

    // Traces of no set: touched, or destroyed wherever they are.
    void useLoose()
    {
        if (loose.empty()) {
            const int length = dice->below(30), headerSize = dice->below(100);
            loose.push_back(model->create(new SeisTrace(length, headerSize), length,
                                          static_cast<size_t>(headerSize)));
            done = "new loose trace";
            return;
        }
        const size_t at = static_cast<size_t>(dice->below(static_cast<int>(loose.size())));
        ModelTrace* trace = loose[at];
        if (dice->oneIn(2)) {
            done = "touch a loose trace";
            scratch().touchTrace(trace->real);
            model->touch(trace);
        } else {
            done = "destroy a loose trace";
            delete trace->real;
            model->destroy(trace);
            loose.erase(loose.begin() + static_cast<std::ptrdiff_t>(at));
        }
    }

    void setLength(size_t set, int length)
    {
        note("length " + std::to_string(length), set, -1);
        sets[set]->setTraceLength(length);
        modelSets[set].length = length;
    }

    void clear(size_t set)
    {
        note("clear", set, -1);
        sets[set]->clearTraceSet();
        for (ModelTrace* trace : modelSets[set].traces) {
            if (trace == nullptr)
                continue;
            model->touch(trace);
            trace->samples.assign(trace->samples.size(), 0.0f);
            trace->header.assign(trace->header.size(), '\0');
        }
    }

    void endJob()
    {
        done = "end of the job";
        scratch().deleteScratch();
        ++model->job;
        for (size_t set = 0; set < setCount; ++set)
            setLength(set, dice->below(80));
    }

    void setLimit()
    {
        model->limit = dice->between(1, highestLimit);
        done = "limit " + std::to_string(model->limit);
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = model->limit;
    }

    void finish()
    {
        for (size_t set = 0; set < setCount; ++set) {
            for (ModelTrace* trace : modelSets[set].traces) {
                if (trace != nullptr)
                    loose.push_back(trace);
            }
            modelSets[set] = ModelSet();
            sets[set] = std::make_unique<SeisTraceSet>();
        }
        for (ModelTrace* trace : loose) {
            scratch().touchTrace(trace->real);
            model->touch(trace);
            EXPECT_EQ(differenceOf(*trace), "");
            delete trace->real;
            model->destroy(trace);
        }
        loose.clear();
        scratch().deleteScratch();
        EXPECT_EQ(job().totalJobMemoryUsed, 0);
        EXPECT_TRUE(scratchDirectory.names().empty());
    }

    // ---- faults

    rlim_t someFileSize()
    {
        const rlim_t size = scratch().scratchFile != nullptr
                                ? std::filesystem::file_size(scratch().scratchFileName)
                                : 0;
        return dice->oneIn(3) ? size + static_cast<rlim_t>(dice->below(200))
                              : static_cast<rlim_t>(dice->below(static_cast<int>(size) + 1));
    }

    // A trace that could not be written is still in memory, though it has left the order.
    void acceptTracesThatStayed()
    {
        for (const auto& trace : traces()) {
            if (!trace->resident && isResident(*trace->real)) {
                trace->resident = true;
                done += ", a trace stayed";
            }
        }
    }

    // ---- comparison

    void note(const std::string& what, size_t set, int traceNo)
    {
        done = what + ": set " + std::to_string(set) + ", trace " + std::to_string(traceNo);
    }

    static std::string differenceOf(const ModelTrace& trace)
    {
        const SeisTrace& real = *trace.real;
        if (real.traceLength != static_cast<int>(trace.samples.size()))
            return "a length";
        if (real.traceHeaderSize != static_cast<int>(trace.header.size()))
            return "a header size";
        if (real.traceFlag != trace.flag)
            return "a flag";
        if (isResident(real) != trace.resident)
            return trace.resident ? "a trace is not in memory" : "a trace is in memory";
        if ((real.traceOffset == -1) != trace.resident)
            return "a position";
        if (!trace.resident)
            return std::string();
        if (!std::equal(trace.samples.begin(), trace.samples.end(), real.traceSamples))
            return "samples";
        if (std::memcmp(trace.header.data(), real.traceHeader, trace.header.size()) != 0)
            return "header bytes";
        return std::string();
    }

    std::string difference()
    {
        std::vector<SeisTrace*> order;
        for (const ModelTrace* trace : model->order)
            order.push_back(trace->real);
        if (!std::equal(order.begin(), order.end(), scratch().traces_cache.begin(),
                        scratch().traces_cache.end()) ||
            scratch().traces_cache.size() != order.size())
            return "the order of use";
        int memory = 0;
        for (const auto& trace : traces()) {
            const std::string what = differenceOf(*trace);
            if (!what.empty())
                return what;
            if (trace->resident)
                memory += trace->real->getTraceMemorySize();
        }
        if (job().totalJobMemoryUsed != memory)
            return "memory";
        for (size_t set = 0; set < setCount; ++set) {
            const auto& real = sets[set]->traces;
            const auto& expected = modelSets[set].traces;
            if (!std::equal(real.begin(), real.end(), expected.begin(), expected.end(),
                            [](const SeisTrace* one, const ModelTrace* other) {
                                return one == (other != nullptr ? other->real : nullptr);
                            }))
                return "the traces of a set";
            if (sets[set]->currentHeaderSize != static_cast<int>(modelSets[set].headerSize))
                return "a layout";
        }
        return overlap();
    }

    // Records of the current file by position; records of former files are gone.
    std::string overlap()
    {
        std::vector<std::pair<int64_t, int64_t>> records;
        for (const auto& trace : traces()) {
            if (!trace->resident && trace->job == model->job)
                records.emplace_back(trace->real->traceOffset,
                                     trace->real->traceOffset + trace->real->getTraceMemorySize());
        }
        std::sort(records.begin(), records.end());
        for (size_t i = 1; i < records.size(); ++i) {
            if (records[i].first < records[i - 1].second)
                return "records at " + std::to_string(records[i - 1].first) + " and " +
                       std::to_string(records[i].first) + " overlap";
        }
        return std::string();
    }

    std::unique_ptr<Dice> dice;
    std::unique_ptr<Model> model;
    std::unique_ptr<SeisTraceSet> sets[setCount];
    ModelSet modelSets[setCount];
    std::vector<ModelTrace*> loose;
    std::string done;
};

TEST_F(ScratchModelTest, RandomOperationsLeaveWhatTheModelSays)
{
    for (int limit = 1; limit <= highestLimit && !HasFailure(); ++limit)
        run(static_cast<unsigned>(1000 + limit), limit, false);
}

TEST_F(ScratchModelTest, RandomOperationsSurviveAFileThatAtTimesTakesNoMore)
{
    for (int limit = 1; limit <= highestLimit && !HasFailure(); limit += 2)
        run(static_cast<unsigned>(2000 + limit), limit, true);
}

} // namespace
