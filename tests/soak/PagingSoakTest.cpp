// Paging under load: sets of up to 100,000 traces, of which 1 to 1,000 stay in memory, through
// random touches, header growth, copies, moves and removals, against a model in memory.
//
// VORN_SOAK_SECONDS is how long the whole takes (default 20), VORN_SOAK_SEED the first seed (1).
#include "KernelFixture.h"
#include "SeisTraceSet.h"
#include "SoakModel.h"
#include "TraceVerbs.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr int mostTraces = 100000;
constexpr int mostInMemory = 1000;
constexpr size_t setCount = 4;
constexpr int longestTrace = 48; // samples

long numberFrom(const char* variable, long otherwise)
{
    const char* text = std::getenv(variable);
    return text != nullptr && std::atol(text) > 0 ? std::atol(text) : otherwise;
}

// The whole time is shared by the tests here.
double secondsFor(double share)
{
    return static_cast<double>(numberFrom("VORN_SOAK_SECONDS", 20)) * share;
}

unsigned firstSeed()
{
    return static_cast<unsigned>(numberFrom("VORN_SOAK_SEED", 1));
}

class Clock
{
public:
    explicit Clock(double seconds)
        : end(std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds))
    {
    }
    bool isOver() const { return std::chrono::steady_clock::now() >= end; }

private:
    std::chrono::time_point<std::chrono::steady_clock, std::chrono::duration<double>> end;
};

// From `low` to `high`, small numbers as often as great ones.
int spread(Dice& dice, int low, int high)
{
    const double position = dice.below(10001) / 10000.0;
    return static_cast<int>(std::lround(low * std::pow(static_cast<double>(high) / low, position)));
}

int64_t residentBytes()
{
    std::ifstream file("/proc/self/statm");
    int64_t total = 0, resident = 0;
    file >> total >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

class PagingSoakTest : public KernelFixture
{
protected:
    PagingSoakTest()
    {
        for (int one = 0; one < soakAttributes; ++one)
            job().addTraceAttributeDefinition(soakAttributeName(one), soakAttributeType(one), 1, "",
                                              0, 0, 0, 0, 0);
    }

    int64_t scratchBytes()
    {
        if (scratch().scratchFile == nullptr)
            return 0;
        return static_cast<int64_t>(std::filesystem::file_size(scratch().scratchFileName));
    }
};

// ---- everything, at random

// One life of some sets, from the first trace to the last.
class Round
{
public:
    Round(unsigned seedOfRound, int limitOfTraces, int tracesWanted, ScratchManager& scratchManager)
        : seed(seedOfRound), limit(limitOfTraces), wanted(tracesWanted), dice(seedOfRound),
          pager(limitOfTraces), scratch(scratchManager)
    {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = limit;
        for (size_t set = 0; set < setCount; ++set)
            setLength(set, dice.below(longestTrace));
    }

    ~Round()
    {
        for (const auto& trace : owned)
            delete trace->real;
    }
    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    // Fills the sets, and then does this and that with them.
    void run(const Clock& clock)
    {
        while (good() && static_cast<int>(owned.size()) < wanted)
            append(anySet());
        for (int i = 0; good() && i < 2 * wanted + 20000 && !clock.isOver(); ++i) {
            operate();
            if (i % 5000 == 0)
                compareBooks();
        }
    }

    // Every trace is as it should be; then all are removed, one by one.
    void finish()
    {
        for (size_t set = 0; set < setCount && good(); ++set) {
            for (size_t i = 0; i < sets[set].traces.size() && good(); ++i)
                read(set, static_cast<int>(i));
        }
        compareBooks();
        for (size_t set = 0; set < setCount && good(); ++set) {
            while (!sets[set].traces.empty() && good())
                remove(set, static_cast<int>(sets[set].traces.size()) - 1);
        }
    }

    bool good() const { return problem.empty(); }
    // What is wrong, with all that it takes to see it again.
    std::string failure() const
    {
        return good() ? std::string()
                      : "seed " + std::to_string(seed) + ", limit " + std::to_string(limit) +
                            ", traces " + std::to_string(wanted) + ", operation " +
                            std::to_string(operations) + ": " + problem;
    }
    int64_t operationsDone() const { return operations; }

private:
    // ---- operations, each done to both sides

    void operate()
    {
        const size_t set = anySet();
        const int what = dice.below(100);
        if (what < 40)
            readSome(set);
        else if (what < 55)
            writeSamples(set);
        else if (what < 70)
            writeAttribute(set);
        else if (what < 82)
            copy(set, anySet());
        else if (what < 88)
            move();
        else if (what < 94)
            remove(set, anyNumber(set));
        else if (what < 99)
            append(set);
        else
            setLength(set, dice.below(longestTrace));
    }

    size_t anySet() { return static_cast<size_t>(dice.below(static_cast<int>(setCount))); }

    // -1 in an empty set.
    int anyNumber(size_t set)
    {
        const int count = static_cast<int>(sets[set].traces.size());
        return count == 0 ? -1 : dice.below(count);
    }

    SoakTrace* at(size_t set, int number) { return sets[set].traces[static_cast<size_t>(number)]; }

    void setLength(size_t set, int length)
    {
        real[set].setTraceLength(length);
        sets[set].length = length;
    }

    // Some in a row, as modules do, or one anywhere.
    void readSome(size_t set)
    {
        const int first = anyNumber(set);
        const int count = static_cast<int>(sets[set].traces.size());
        const int last = dice.oneIn(20) ? std::min(count, first + dice.below(50)) : first + 1;
        for (int i = first; i >= 0 && i < last && good(); ++i)
            read(set, i);
    }

    void read(size_t set, int number)
    {
        begin("read", set, number);
        SoakTrace* trace = at(set, number);
        const SeisTrace* found = real[set].getTrace(number, true);
        pager.touch(trace);
        if (found != trace->real) {
            report("another trace");
            return;
        }
        compareTrace(set, number, *trace);
    }

    void writeSamples(size_t set)
    {
        const int number = anyNumber(set);
        if (number < 0)
            return;
        begin("write samples", set, number);
        SoakTrace* trace = at(set, number);
        fillSamples(*trace);
        trace->samples.push_back(0); // a block of no samples still has an address
        expect(real[set].setSamples(trace->samples.data(), number) == 1, "refused");
        trace->samples.pop_back();
        trace->real->setTraceFlag(trace->flag = dice.below(8));
        pager.touch(trace);
    }

    void fillSamples(SoakTrace& trace)
    {
        for (float& sample : trace.samples)
            sample = static_cast<float>(dice.below(1 << 24));
    }

    // Sets 0 and 1 always have one layout: traces can be moved between them.
    void define(size_t set, int attribute)
    {
        sets[set].define(attribute);
        if (set > 1)
            return;
        sets[1 - set].define(attribute);
        real[1 - set].defineAttribute(soakAttributeName(attribute));
    }

    void writeAttribute(size_t set)
    {
        const int number = anyNumber(set);
        if (number < 0)
            return;
        // Few of the names early on, so that headers grow for long.
        const int known = static_cast<int>(sets[set].attributes.size());
        const int attribute = known > 0 && !dice.oneIn(2000) ? dice.pick(sets[set].attributes)
                                                             : dice.below(soakAttributes);
        begin("write " + soakAttributeName(attribute), set, number);
        SoakTrace* trace = at(set, number);
        const int32_t value = 1 + dice.below((1 << 24) - 1);
        expect(real[set].setAttribute(soakAttributeName(attribute), soakValue(attribute, value),
                                      number) == 1,
               "refused");
        define(set, attribute);
        trace->values[static_cast<size_t>(attribute)] = value;
        pager.touch(trace);
    }

    // The model's side of a trace that the kernel has made at the end of a set.
    SoakTrace* created(size_t set)
    {
        owned.push_back(std::make_unique<SoakTrace>());
        SoakTrace* trace = owned.back().get();
        numberOf[trace] = owned.size() - 1;
        trace->real = real[set].traces[sets[set].traces.size()];
        trace->samples.assign(static_cast<size_t>(sets[set].length), 0.0f);
        sets[set].traces.push_back(trace);
        return trace;
    }

    void append(size_t set)
    {
        if (static_cast<int>(owned.size()) >= wanted)
            return;
        const int number = static_cast<int>(sets[set].traces.size());
        begin("append", set, number);
        expect(real[set].getTrace(number, true) != nullptr, "no trace");
        SoakTrace* trace = created(set);
        fillSamples(*trace);
        pager.touch(trace);
        trace->samples.push_back(0);
        expect(real[set].setSamples(trace->samples.data(), number) == 1, "refused");
        trace->samples.pop_back();
        if (!dice.oneIn(4))
            setFirstAttribute(set, number, *trace);
    }

    void setFirstAttribute(size_t set, int number, SoakTrace& trace)
    {
        const int32_t value = 1 + dice.below((1 << 24) - 1);
        expect(real[set].setAttribute(soakAttributeName(0), soakValue(0, value), number) == 1,
               "refused");
        define(set, 0);
        trace.values[0] = value;
    }

    void copy(size_t from, size_t to)
    {
        const int fromNumber = anyNumber(from);
        const int count = static_cast<int>(sets[to].traces.size());
        const bool behind = static_cast<int>(owned.size()) < wanted && dice.oneIn(3);
        const int toNumber = behind ? count : anyNumber(to);
        if (fromNumber < 0 || toNumber < 0 || (from == to && fromNumber == toNumber))
            return;
        const bool header = !dice.oneIn(4), samples = !dice.oneIn(4);
        begin("copy from set " + std::to_string(from) + ", trace " + std::to_string(fromNumber), to,
              toNumber);
        expect(real[to].copyFromTrace(&real[from], header, samples, fromNumber, toNumber) == 1,
               "refused");
        SoakTrace* source = at(from, fromNumber);
        pager.touch(source);
        SoakTrace* target = behind ? created(to) : at(to, toNumber);
        if (header)
            copyHeader(from, to, *source, *target);
        if (samples)
            copySamples(from, to, *source, *target);
        target->flag = source->flag;
        pager.touch(target);
    }

    void copyHeader(size_t from, size_t to, const SoakTrace& source, SoakTrace& target)
    {
        target.values.fill(0);
        // In the order of their names, as the kernel defines them.
        std::vector<int> attributes = sets[from].attributes;
        std::sort(attributes.begin(), attributes.end(),
                  [](int a, int b) { return soakAttributeName(a) < soakAttributeName(b); });
        for (const int attribute : attributes) {
            define(to, attribute);
            target.values[static_cast<size_t>(attribute)] =
                source.values[static_cast<size_t>(attribute)];
        }
    }

    void copySamples(size_t from, size_t to, const SoakTrace& source, SoakTrace& target)
    {
        const size_t count = std::min({source.samples.size(), target.samples.size(),
                                       static_cast<size_t>(sets[from].length),
                                       static_cast<size_t>(sets[to].length)});
        std::copy_n(source.samples.begin(), count, target.samples.begin());
    }

    // Between the sets of one layout: to the end, or over another trace, which then ends.
    void move()
    {
        const size_t from = static_cast<size_t>(dice.below(2)), to = 1 - from;
        const int fromNumber = anyNumber(from);
        if (fromNumber < 0)
            return;
        const int count = static_cast<int>(sets[to].traces.size());
        const int toNumber = count == 0 || dice.oneIn(2) ? count : dice.below(count);
        begin("move from set " + std::to_string(from) + ", trace " + std::to_string(fromNumber), to,
              toNumber);
        expect(real[to].moveFromTrace(&real[from], fromNumber, toNumber) == 1, "refused");
        real[from].removeTrace(fromNumber); // the entry, which is empty now
        SoakTrace* trace = at(from, fromNumber);
        sets[from].traces.erase(sets[from].traces.begin() + fromNumber);
        std::vector<SoakTrace*>& target = sets[to].traces;
        if (toNumber == count) {
            target.push_back(trace);
            return;
        }
        SoakTrace* replaced = target[static_cast<size_t>(toNumber)];
        target[static_cast<size_t>(toNumber)] = trace;
        delete replaced->real; // wherever it is: nobody has touched it
        forget(replaced);
    }

    void remove(size_t set, int number)
    {
        if (number < 0)
            return;
        begin("remove", set, number);
        SoakTrace* trace = at(set, number);
        real[set].removeTrace(number);
        pager.touch(trace);
        sets[set].traces.erase(sets[set].traces.begin() + number);
        forget(trace);
    }

    void forget(SoakTrace* trace)
    {
        pager.forget(trace);
        const size_t place = numberOf.at(trace);
        numberOf.erase(trace);
        if (place + 1 != owned.size()) {
            owned[place] = std::move(owned.back());
            numberOf[owned[place].get()] = place;
        }
        owned.pop_back();
    }

    // ---- comparison

    void begin(const std::string& what, size_t set, int number)
    {
        ++operations;
        done = what + ": set " + std::to_string(set) + ", trace " + std::to_string(number);
    }

    void report(const std::string& what)
    {
        if (good())
            problem = done + ": " + what;
    }

    void expect(bool condition, const char* what)
    {
        if (!condition)
            report(what);
    }

    void compareTrace(size_t set, int number, const SoakTrace& trace)
    {
        const SeisTrace& found = *trace.real;
        expect(found.traceLength == static_cast<int>(trace.samples.size()), "another length");
        expect(found.traceFlag == trace.flag, "another flag");
        expect(isResident(found), "not in memory");
        if (!good())
            return;
        if (!std::equal(trace.samples.begin(), trace.samples.end(), found.traceSamples))
            report("other samples");
        for (const int attribute : sets[set].attributes) {
            const UniVar value = real[set].getAttribute(soakAttributeName(attribute), number);
            const int32_t expected = trace.values[static_cast<size_t>(attribute)];
            if (!isSoakValue(attribute, value, expected))
                report("another " + soakAttributeName(attribute) + ": \"" + value.getStrValue() +
                       "\" for number " + std::to_string(expected));
        }
    }

    // Memory, file and order as a whole.
    void compareBooks()
    {
        expect(static_cast<int64_t>(scratch.traces_cache.size()) == pager.residentTraces(),
               "another number of traces in the order of use");
        int64_t bytes = 0, outside = 0;
        for (const auto& trace : owned) {
            if (trace->resident != isResident(*trace->real)) {
                report(trace->resident ? "a trace is not in memory" : "a trace is in memory");
                return;
            }
            bytes += trace->resident ? trace->real->getTraceMemorySize() : 0;
            outside += trace->resident ? 0 : 1;
        }
        expect(outside == pager.pagedOut(), "another number of traces in the file");
        expect(static_cast<int>(owned.size()) - outside <= limit, "more in memory than the limit");
        expect(JobManager::getInstance()->totalJobMemoryUsed == bytes, "other memory accounted");
        const int64_t file =
            scratch.scratchFile == nullptr
                ? 0
                : static_cast<int64_t>(std::filesystem::file_size(scratch.scratchFileName));
        if (file != pager.fileBytes())
            report("a file of " + std::to_string(file) + " bytes instead of " +
                   std::to_string(pager.fileBytes()));
    }

    const unsigned seed;
    const int limit;
    const int wanted;
    Dice dice;
    SoakPager pager;
    ScratchManager& scratch;
    SeisTraceSet real[setCount];
    SoakSet sets[setCount];
    std::vector<std::unique_ptr<SoakTrace>> owned;
    std::map<SoakTrace*, size_t> numberOf; // in `owned`
    int64_t operations = 0;
    std::string done;
    std::string problem;
};

TEST_F(PagingSoakTest, TracesHoldWhatTheyHoldInMemory)
{
    const Clock clock(secondsFor(0.7));
    int64_t operations = 0;
    int rounds = 0;
    for (unsigned seed = firstSeed(); !clock.isOver(); ++seed, ++rounds) {
        Dice dice(seed);
        // The first is as large as they come, the second as tight; the others are anything.
        const int limit = rounds == 1 ? 1 : spread(dice, 1, mostInMemory);
        const int traces = rounds == 0 ? mostTraces : spread(dice, 20, mostTraces);
        {
            Round round(seed, limit, traces, scratch());
            round.run(clock);
            if (round.good())
                round.finish();
            ASSERT_TRUE(round.good()) << round.failure();
            operations += round.operationsDone();
        }
        scratch().deleteScratch();
        scratch().free_blocks.clear(); // the next round's file begins at its beginning
        ASSERT_EQ(job().totalJobMemoryUsed, 0) << "seed " << seed;
        ASSERT_EQ(scratchDirectory.names(), std::vector<std::string>()) << "seed " << seed;
    }
    EXPECT_GE(operations, 100000) << "not even the first round was filled";
    RecordProperty("operations", std::to_string(operations));
    std::printf("%lld operations in %d rounds, seeds %u to %u\n",
                static_cast<long long>(operations), rounds, firstSeed(),
                firstSeed() + static_cast<unsigned>(rounds) - 1);
}

// ---- memory of the process, and length of the file

// Samples follow from the trace and how often it was written, so that the test keeps next to
// nothing in memory.
float sampleOf(int trace, int version, int sample)
{
    return static_cast<float>((trace * 31 + version * 1009 + sample * 7) & 0xFFFFFF);
}

TEST_F(PagingSoakTest, MemoryAndFileStayWithinTheirBounds)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer keeps freed memory for a while";
#endif
    constexpr int length = 500;
    const Clock clock(secondsFor(0.3));
    Dice dice(firstSeed());
    const int limit = spread(dice, 1, mostInMemory);
    SCOPED_TRACE("seed " + std::to_string(firstSeed()) + ", limit " + std::to_string(limit));
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = limit;
    std::vector<int> versions(mostTraces, 0);
    std::vector<float> samples(length);
    Owning<SeisTraceSet> set;
    set.setTraceLength(length);
    malloc_trim(0); // what other tests have freed would make room for this one's growth
    const int64_t before = residentBytes();

    const auto write = [&](int number) {
        for (int i = 0; i < length; ++i)
            samples[static_cast<size_t>(i)] =
                sampleOf(number, versions[static_cast<size_t>(number)], i);
        ASSERT_EQ(set.setSamples(samples.data(), number), 1);
        ASSERT_EQ(set.setAttribute(soakAttributeName(0), UniVar(number + 1), number), 1);
    };
    const auto check = [&](int number) {
        const float* found = set.getSamples(number);
        ASSERT_NE(found, nullptr);
        for (int i = 0; i < length; ++i)
            ASSERT_EQ(found[i], sampleOf(number, versions[static_cast<size_t>(number)], i))
                << "trace " << number << ", sample " << i;
        ASSERT_EQ(set.getAttribute(soakAttributeName(0), number).getI32Value(), number + 1);
    };

    for (int number = 0; number < mostTraces && !HasFatalFailure(); ++number)
        write(number);
    ASSERT_FALSE(HasFatalFailure());
    const int64_t record = set.traces.front()->getTraceMemorySize();
    const int64_t filledMemory = residentBytes() - before;
    const int64_t filledFile = scratchBytes();

    int64_t touches = 0;
    for (; !clock.isOver() || touches < 1000; ++touches) {
        const int number = dice.below(mostTraces);
        check(number);
        if (dice.oneIn(3)) {
            ++versions[static_cast<size_t>(number)];
            write(number);
        }
        ASSERT_FALSE(HasFatalFailure());
    }

    // What stays in memory of a trace that is in the file: its object, its entry in the set, and
    // the place of its record.
    constexpr int64_t besides = 200;
    const int64_t bound = mostTraces * besides + 2 * limit * record + (8 << 20);
    EXPECT_LT(filledMemory, bound);
    EXPECT_LT(residentBytes() - before, bound) << "after " << touches << " touches";
    EXPECT_LE(filledFile, mostTraces * record);
    EXPECT_LE(scratchBytes(), filledFile + record) << "freed records are to be used again";
    EXPECT_GT(mostTraces * record, 2 * bound) << "the bound must be able to fail";
    std::printf("%lld touches; %lld MB in the file, %lld MB more in memory\n",
                static_cast<long long>(touches), static_cast<long long>(scratchBytes() >> 20),
                static_cast<long long>((residentBytes() - before) >> 20));
}

} // namespace
