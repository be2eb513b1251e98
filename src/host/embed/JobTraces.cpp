#include "embed/JobTraces.h"

#include "HostModules.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "job/ResolvedJob.h"
#include "knl.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <stdexcept>
#include <utility>

namespace VORN {

namespace {

// The values of some header words, one after the other in the order of their names.
class Words
{
public:
    explicit Words(std::vector<std::string> words)
        : names(std::move(words)), values(names.size(), 0.0)
    {
    }

    const std::vector<std::string>& all() const { return names; }
    std::span<double> row() { return values; }

    /// Writes the values to trace 0 of `set`.
    void write(void* set)
    {
        if (!names.empty())
            knl_setF64TraceAttributes(list(), set, 0, values.data());
    }

    /// Reads those of trace 0 of `set`: 0 where it does not have a word.
    void read(void* set)
    {
        std::fill(values.begin(), values.end(), 0.0);
        if (!names.empty())
            knl_getF64TraceAttributes(list(), set, 0, values.data());
    }

private:
    // Belongs to the running module, and ends with it.
    void* list()
    {
        if (handle != nullptr)
            return handle;
        std::vector<const char*> texts;
        texts.reserve(names.size());
        for (const std::string& name : names)
            texts.push_back(name.c_str());
        knl_bldAttributeList(texts.data(), static_cast<int>(texts.size()), &handle);
        return handle;
    }

    std::vector<std::string> names;
    std::vector<double> values;
    void* handle = nullptr;
};

template <typename Value>
std::vector<std::string> namesOf(const std::map<std::string, Value>& words)
{
    std::vector<std::string> names;
    names.reserve(words.size());
    for (const auto& one : words)
        names.push_back(one.first);
    return names;
}

// ---- Sources ----

class ArraySource
{
public:
    explicit ArraySource(const JobTraces& given)
        : traces(given), length(static_cast<std::size_t>(given.traceLength)),
          count(given.samples.size() / length), words(namesOf(given.words))
    {
    }

    const std::vector<std::string>& names() const { return words.all(); }

    MadeTrace make(void* trace, float* samples)
    {
        if (next == 0)
            announce();
        if (next == count)
            return MadeTrace::none;
        std::copy_n(traces.samples.data() + next * length, length, samples);
        std::size_t place = 0;
        for (const auto& one : traces.words)
            words.row()[place++] = one.second[next];
        words.write(trace);
        return ++next == count ? MadeTrace::last : MadeTrace::more;
    }

private:
    // For the share of the progress.
    void announce() const
    {
        void* output = nullptr;
        knl_getOutputTraceBuffer(&output, 0);
        knl_informTotalTracesNumber(output, static_cast<std::int64_t>(count));
    }

    JobTraces traces;
    std::size_t length;
    std::size_t count;
    Words words;
    std::size_t next = 0;
};

// Asks for a trace while the one before it still waits: the last trace is then known as the last
// one, by which modules that hold traces back learn of the end.
class CalledSource
{
public:
    explicit CalledSource(const JobTraceMaker& given) : maker(given), words(given.words) {}

    const std::vector<std::string>& names() const { return words.all(); }

    MadeTrace make(void* trace, float* samples)
    {
        if (!isStarted)
            look();
        isStarted = true;
        if (!hasNext)
            return MadeTrace::none;
        std::copy(ahead.begin(), ahead.end(), samples);
        words.write(trace);
        look();
        return hasNext ? MadeTrace::more : MadeTrace::last;
    }

private:
    void look()
    {
        ahead.assign(static_cast<std::size_t>(maker.traceLength), 0.0F);
        std::fill(words.row().begin(), words.row().end(), 0.0);
        hasNext = maker.make(ahead, words.row());
    }

    JobTraceMaker maker;
    Words words;
    std::vector<float> ahead;
    bool isStarted = false;
    bool hasNext = false;
};

// A source that a new `State` of `given` makes for each run.
template <typename State, typename Given>
host::ReplacedModule sourceWith(const Given& given)
{
    host::ReplacedModule source;
    source.isSource = true;
    source.make = [given](const std::string& name) {
        const auto state = std::make_shared<State>(given);
        return addTraceSource(
            name, given.traceLength, given.sampleInterval, state->names(),
            [state](void* trace, float* samples) { return state->make(trace, samples); });
    };
    if (given.traceLength < 1)
        source.problems.push_back(
            fmt::format("traceLength is {}; expected at least 1 sample", given.traceLength));
    if (given.sampleInterval < 1)
        source.problems.push_back(fmt::format(
            "sampleInterval is {}; expected at least 1 microsecond", given.sampleInterval));
    return source;
}

// The first value that an integer of the word's type does not hold.
std::string problemOfValues(std::span<const double> values, const host::ResolvedAttribute& word)
{
    const std::string type = host::attributeTypeName(word.type);
    if (!type.starts_with("int"))
        return "";
    const double limit = std::ldexp(1.0, type == "int32" ? 31 : 63);
    const auto wrong = std::find_if_not(values.begin(), values.end(), [limit](double value) {
        return std::trunc(value) == value && value >= -limit && value < limit;
    });
    return wrong == values.end()
               ? ""
               : fmt::format("trace {} has {}; it is an integer of {} bits in this job",
                             wrong - values.begin() + 1, *wrong, type.substr(3));
}

// ---- Sinks ----

class ArraySink
{
public:
    ArraySink(JobCollection& target, const std::vector<std::string>& names)
        : into(target), words(names)
    {
        for (const std::string& name : names)
            columns.push_back(&into.words[name]);
    }

    void take(void* trace, const float* samples, int length)
    {
        if (into.count == 0) {
            into.traceLength = length;
            into.sampleInterval = knl_getTraceSampleInterval(trace);
        } else if (length != into.traceLength) {
            throw std::runtime_error(
                fmt::format("trace {} has {}, and those before it have {}: they do not make one "
                            "array",
                            into.count + 1, host::counted(length, "sample"), into.traceLength));
        }
        into.samples.insert(into.samples.end(), samples, samples + length);
        words.read(trace);
        for (std::size_t i = 0; i < columns.size(); ++i)
            columns[i]->push_back(words.row()[i]);
        ++into.count;
    }

private:
    JobCollection& into;
    Words words;
    std::vector<std::vector<double>*> columns; ///< one for each word
};

class CalledSink
{
public:
    explicit CalledSink(const JobTraceTaker& given) : taker(given), words(given.words) {}

    void take(void* trace, const float* samples, int length)
    {
        words.read(trace);
        taker.take(JobTrace{{samples, static_cast<std::size_t>(length)},
                            words.row(),
                            knl_getTraceSampleInterval(trace)});
    }

private:
    JobTraceTaker taker;
    Words words;
};

template <typename State>
ModuleEntity* addSink(const std::string& name, const std::shared_ptr<State>& state)
{
    return addTraceSink(name, [state](void* trace, const float* samples, int length) {
        state->take(trace, samples, length);
    });
}

} // namespace

host::ReplacedModulePointer sourceOf(const JobTraces& traces)
{
    host::ReplacedModule source = sourceWith<ArraySource>(traces);
    source.words = namesOf(traces.words);
    const std::size_t samples = traces.samples.size();
    const auto length = static_cast<std::size_t>(std::max(traces.traceLength, 1));
    const std::size_t count = samples / length;
    if (samples % length != 0)
        source.problems.push_back(fmt::format("{} samples are not a whole number of traces of {}",
                                              samples, traces.traceLength));
    if (count > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        source.problems.push_back(fmt::format("{} traces are too many; expected at most {}", count,
                                              std::numeric_limits<int>::max()));
    for (const auto& [name, values] : traces.words) {
        if (values.size() != count)
            source.problems.push_back(fmt::format(
                "header word {} has {}, and there are {}; give one for each trace",
                host::quote(name), host::counted(static_cast<std::int64_t>(values.size()), "value"),
                host::counted(static_cast<std::int64_t>(count), "trace")));
    }
    source.problemOfWord = [words = traces.words](const host::ResolvedAttribute& word) {
        return problemOfValues(words.at(word.name), word);
    };
    return std::make_shared<const host::ReplacedModule>(std::move(source));
}

host::ReplacedModulePointer sourceOf(const JobTraceMaker& maker)
{
    host::ReplacedModule source = sourceWith<CalledSource>(maker);
    source.words = maker.words;
    if (!maker.make)
        source.problems.emplace_back("there is no function that makes traces");
    return std::make_shared<const host::ReplacedModule>(std::move(source));
}

host::ReplacedModulePointer sinkOf(JobCollection& into)
{
    host::ReplacedModule sink;
    sink.words = namesOf(into.words);
    sink.storage = &into;
    sink.begin = [&into] {
        into.samples.clear();
        into.count = into.traceLength = into.sampleInterval = 0;
        for (auto& one : into.words)
            one.second.clear();
    };
    sink.make = [&into, names = sink.words](const std::string& name) {
        return addSink(name, std::make_shared<ArraySink>(into, names));
    };
    sink.begin();
    return std::make_shared<const host::ReplacedModule>(std::move(sink));
}

host::ReplacedModulePointer sinkOf(const JobTraceTaker& taker)
{
    host::ReplacedModule sink;
    sink.words = taker.words;
    if (!taker.take)
        sink.problems.emplace_back("there is no function that takes traces");
    sink.make = [taker](const std::string& name) {
        return addSink(name, std::make_shared<CalledSink>(taker));
    };
    return std::make_shared<const host::ReplacedModule>(std::move(sink));
}

} // namespace VORN
