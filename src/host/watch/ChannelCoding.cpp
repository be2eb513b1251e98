#include "watch/ChannelCoding.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "base/Escaping.h"
#include "watch/CallCoding.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace host {

namespace {

using Type = watched::Numbers::Type;

// An attribute of a layout.
struct Word
{
    std::string name;
    traceAttIdent place;
};

std::vector<Word> wordsOf(const DataChannel& channel)
{
    std::vector<Word> words;
    words.reserve(channel.attrDefs.size());
    for (const auto& [name, place] : channel.attrDefs)
        words.push_back({name, place});
    // In the order in which the attributes have got their places.
    std::stable_sort(words.begin(), words.end(), [](const Word& one, const Word& other) {
        return one.place.offset < other.place.offset;
    });
    return words;
}

void writeLayout(const DataChannel& channel, const ChannelMark& before, ByteWriter& bytes)
{
    const bool changed =
        channel.layoutNumber != before.layout || channel.attrDefs.size() != before.attributes;
    bytes.byte(changed ? 1 : 0);
    if (!changed)
        return;
    const std::vector<Word> words = wordsOf(channel);
    bytes.count(words.size());
    for (const Word& word : words) {
        bytes.text(word.name);
        bytes.integer(word.place.type);
        bytes.integer(word.place.offset);
        bytes.integer(word.place.dim);
        bytes.integer(word.place.size);
    }
    bytes.integer(channel.currentHeaderSize);
}

// A layout that has not changed is not there.
struct Layout
{
    bool isKnown = false;
    std::vector<Word> words;
    int headerSize = 0;
};

Layout readLayout(ByteReader& bytes)
{
    Layout layout;
    layout.isKnown = bytes.byte() != 0;
    if (!layout.isKnown)
        return layout;
    const std::size_t count = bytes.countOf(5);
    layout.words.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        Word word;
        word.name = bytes.text();
        word.place.type = static_cast<traceAttVarType>(bytes.number());
        word.place.offset = bytes.number();
        word.place.dim = bytes.number();
        word.place.size = bytes.number();
        // A place far behind all others is damage, and would cost memory for each trace.
        constexpr int most = 1 << 24;
        if (word.place.offset < 0 || word.place.offset > most || word.place.size < 0 ||
            word.place.size > most)
            throw RecordError("a trace attribute has no sensible place");
        layout.words.push_back(std::move(word));
    }
    layout.headerSize = bytes.number();
    return layout;
}

bool isSame(const traceAttIdent& one, const traceAttIdent& other)
{
    return one.type == other.type && one.offset == other.offset && one.size == other.size &&
           one.dim == other.dim;
}

void takeLayout(const Layout& layout, DataChannel& channel)
{
    if (!layout.isKnown)
        return;
    for (const Word& word : layout.words) {
        channel.defineAttribute(word.name);
        // A host may give attributes other places than the kernel would.
        if (!isSame(channel.attrDefs.at(word.name), word.place))
            channel.getAttributeKey(word.name) = word.place;
    }
    channel.currentHeaderSize = layout.headerSize;
}

void writeTrace(DataChannel& channel, std::size_t number, ByteWriter& bytes)
{
    const SeisTrace* trace = channel.getTrace(static_cast<int>(number), true);
    const bool isHere =
        trace != nullptr && trace->traceSamples != nullptr && trace->traceHeader != nullptr;
    bytes.byte(isHere ? 1 : 0);
    if (!isHere)
        return;
    const auto samples = static_cast<std::size_t>(std::max(0, trace->traceLength));
    const auto header = static_cast<std::size_t>(std::max(0, trace->traceHeaderSize));
    bytes.integer(trace->traceFlag);
    bytes.count(header);
    bytes.raw(trace->traceHeader, header);
    bytes.count(samples);
    bytes.numbers(trace->traceSamples, samples, sizeof(float));
}

struct RecordedTrace
{
    bool isHere = false;
    int flag = 0;
    std::string header;
    uint64_t samples = 0;
    std::string values; // of the samples
};

RecordedTrace readTrace(ByteReader& bytes)
{
    RecordedTrace trace;
    trace.isHere = bytes.byte() != 0;
    if (!trace.isHere)
        return trace;
    trace.flag = bytes.number();
    trace.header = bytes.text();
    trace.samples = bytes.count();
    trace.values = bytes.numbers(trace.samples, sizeof(float));
    return trace;
}

SeisTrace* makeTrace(const RecordedTrace& recorded)
{
    if (!recorded.isHere)
        return nullptr;
    const auto length = static_cast<int>(recorded.samples);
    const auto header = static_cast<int>(recorded.header.size());
    auto* trace = new SeisTrace(length, header);
    if (trace->traceSamples == nullptr || trace->traceHeader == nullptr) {
        delete trace;
        throw RecordError("there is no memory for its traces");
    }
    if (length > 0)
        std::memcpy(trace->traceSamples, recorded.values.data(), recorded.values.size());
    if (header > 0)
        std::memcpy(trace->traceHeader, recorded.header.data(), recorded.header.size());
    trace->traceFlag = recorded.flag;
    return trace;
}

// What belongs to the channel itself.
struct Settings
{
    int traceLength = 0;
    int sampleInterval = 0;
    int dataChannelFlag = 0;
    int64_t total = 0;
    int flags = 0;
    bool usesScratch = false;
};

void writeSettings(const DataChannel& channel, ByteWriter& bytes)
{
    bytes.integer(channel.traceLength);
    bytes.integer(channel.sampleInterval);
    bytes.integer(channel.dataChannelFlag);
    bytes.integer(channel.totalNumTraces);
    bytes.integer(channel.flags);
    bytes.byte(channel.isUseScratch() ? 1 : 0);
}

Settings readSettings(ByteReader& bytes)
{
    Settings settings;
    settings.traceLength = bytes.number();
    settings.sampleInterval = bytes.number();
    settings.dataChannelFlag = bytes.number();
    settings.total = bytes.integer();
    settings.flags = bytes.number();
    settings.usesScratch = bytes.byte() != 0;
    return settings;
}

void writeNumbers(const std::vector<std::size_t>& numbers, ByteWriter& bytes)
{
    bytes.count(numbers.size());
    for (const std::size_t number : numbers)
        bytes.count(number);
}

std::vector<std::size_t> readNumbers(ByteReader& bytes)
{
    std::vector<std::size_t> numbers(bytes.countOf(1));
    for (std::size_t& number : numbers)
        number = bytes.count();
    return numbers;
}

// A consumer that moves a trace to a set of its own leaves an empty place.
void moveAway(DataChannel& channel, std::size_t number)
{
    if (number >= channel.traces.size() || channel.traces[number] == nullptr)
        return;
    SeisTraceSet taken;
    taken.moveFromTrace(&channel, static_cast<int>(number), 0);
    taken.removeAllTraces();
}

// Places are numbered in one sequence for all channels: what has come since has a greater number.
std::size_t newPlacesFrom(const ChannelMark& before, const ChannelMark& after)
{
    const int64_t last = before.places.empty() ? 0 : before.places.back().arrivalNo;
    std::size_t first = after.places.size();
    while (first > 0 && after.places[first - 1].arrivalNo > last)
        --first;
    return first;
}

// What writeResult() has written.
struct Result
{
    Settings settings;
    std::vector<int> flags;
    std::vector<char> isEmpty;
    Layout layout;
    std::size_t firstNew = 0;
    std::vector<RecordedTrace> traces;
};

Result readResult(ByteReader& bytes)
{
    Result result;
    result.settings = readSettings(bytes);
    const std::size_t count = bytes.countOf(2);
    result.flags.resize(count);
    result.isEmpty.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        result.flags[i] = bytes.number();
        result.isEmpty[i] = static_cast<char>(bytes.byte());
    }
    result.layout = readLayout(bytes);
    result.firstNew = bytes.count();
    const std::size_t traces = bytes.countOf(1);
    result.traces.reserve(traces);
    for (std::size_t i = 0; i < traces; ++i)
        result.traces.push_back(readTrace(bytes));
    return result;
}

template <typename T>
std::string differs(const std::string& what, const T& recorded, const T& now)
{
    return recorded == now ? "" : fmt::format("{}: recorded {}, now {}", what, recorded, now);
}

std::string settingsDifference(const Settings& recorded, const Settings& now)
{
    for (const std::string& text :
         {differs("the trace length", recorded.traceLength, now.traceLength),
          differs("the sample interval", recorded.sampleInterval, now.sampleInterval),
          differs("the announced number of traces", recorded.total, now.total),
          differs("the flag of the channel", recorded.dataChannelFlag, now.dataChannelFlag),
          differs("the flags that keep a trace", recorded.flags, now.flags),
          differs("paging", recorded.usesScratch ? "on" : "off", now.usesScratch ? "on" : "off")})
    {
        if (!text.empty())
            return text;
    }
    return "";
}

std::string layoutDifference(const Layout& recorded, const Layout& now)
{
    for (std::size_t i = 0; i < std::max(recorded.words.size(), now.words.size()); ++i) {
        if (i >= recorded.words.size())
            return "has the attribute " + quote(now.words[i].name) + ", which it had not";
        if (i >= now.words.size())
            return "does not have the attribute " + quote(recorded.words[i].name) +
                   ", which it had";
        if (recorded.words[i].name != now.words[i].name ||
            !isSame(recorded.words[i].place, now.words[i].place))
            return fmt::format("attribute {} of the headers: recorded {}, now {}", i,
                               quote(recorded.words[i].name), quote(now.words[i].name));
    }
    return "";
}

std::string numberText(const std::string& header, const traceAttIdent& place)
{
    const auto offset = static_cast<std::size_t>(place.offset);
    const auto valueOf = [&](auto number) {
        if (offset + sizeof number <= header.size())
            std::memcpy(&number, header.data() + offset, sizeof number);
        return fmt::format("{}", number);
    };
    switch (place.type) {
    case int32AttType:
        return valueOf(int32_t{});
    case int64AttType:
        return valueOf(int64_t{});
    case float32AttType:
        return valueOf(float{});
    case float64AttType:
        return valueOf(double{});
    default:
        return quote(
            header.substr(std::min(offset, header.size()), static_cast<std::size_t>(place.size)));
    }
}

std::string headerDifference(const std::string& recorded, const std::string& now,
                             const DataChannel& channel)
{
    const auto at = std::mismatch(recorded.begin(), recorded.end(), now.begin(), now.end()).first -
                    recorded.begin();
    for (const auto& [name, place] : channel.attrDefs) {
        if (at >= place.offset && at < static_cast<int64_t>(place.offset) + place.size)
            return fmt::format("attribute {}: recorded {}, now {}", quote(name),
                               numberText(recorded, place), numberText(now, place));
    }
    return recorded.size() == now.size()
               ? fmt::format("byte {} of its header", at)
               : fmt::format("its header: recorded {} bytes, now {}", recorded.size(), now.size());
}

std::string traceDifference(const RecordedTrace& recorded, const RecordedTrace& now,
                            const DataChannel& channel, double tolerance)
{
    if (recorded.isHere != now.isHere)
        return recorded.isHere ? "is missing" : "is there, which was moved away";
    if (std::string text = differs("its flag", recorded.flag, now.flag); !text.empty())
        return text;
    if (recorded.samples != now.samples)
        return fmt::format("its length: recorded {} samples, now {}", recorded.samples,
                           now.samples);
    if (const auto found = compareNumbers(Type::float32, recorded.values.data(), now.values.data(),
                                          recorded.samples, tolerance))
        return fmt::format("sample {} of {}: recorded {}, now {}; {} samples differ, by {:.6g} at "
                           "most",
                           found->index, recorded.samples, found->recorded, found->now,
                           found->differing, found->largest);
    if (recorded.header != now.header)
        return headerDifference(recorded.header, now.header, channel);
    return "";
}

} // namespace

ChannelMark markOf(const DataChannel& channel)
{
    ChannelMark mark;
    mark.layout = channel.layoutNumber;
    mark.attributes = channel.attrDefs.size();
    mark.places.reserve(channel.traces.size());
    for (std::size_t i = 0; i < channel.traces.size(); ++i) {
        const SeisTrace* trace = channel.traces[i];
        mark.places.push_back({i < channel.arrivalNos.size() ? channel.arrivalNos[i] : 0,
                               trace != nullptr ? trace->traceFlag : 0, trace == nullptr});
    }
    return mark;
}

std::vector<ChannelMark> marksOf(const std::vector<DataChannel*>& channels)
{
    std::vector<ChannelMark> marks;
    marks.reserve(channels.size());
    for (const DataChannel* channel : channels)
        marks.push_back(markOf(*channel));
    return marks;
}

void writeChange(DataChannel& channel, const ChannelMark& before, ByteWriter& bytes)
{
    const ChannelMark now = markOf(channel);
    const auto firstNew = newPlacesFrom(before, now);
    std::vector<std::size_t> gone;
    std::vector<std::size_t> emptied;
    std::vector<std::pair<std::size_t, int>> flags;
    std::size_t at = 0;
    for (std::size_t i = 0; i < before.places.size(); ++i) {
        const ChannelMark::Place& known = before.places[i];
        if (at >= firstNew || now.places[at].arrivalNo != known.arrivalNo) {
            gone.push_back(i);
            continue;
        }
        if (now.places[at].isEmpty && !known.isEmpty)
            emptied.push_back(at);
        else if (now.places[at].flag != known.flag)
            flags.emplace_back(at, now.places[at].flag);
        ++at;
    }
    writeNumbers(gone, bytes);
    writeNumbers(emptied, bytes);
    writeLayout(channel, before, bytes);
    writeSettings(channel, bytes);
    bytes.count(now.places.size() - firstNew);
    for (std::size_t i = firstNew; i < now.places.size(); ++i)
        writeTrace(channel, i, bytes);
    bytes.count(flags.size());
    for (const auto& [place, flag] : flags) {
        bytes.count(place);
        bytes.integer(flag);
    }
}

void repeatChange(ByteReader& bytes, DataChannel& channel, const ChannelOwners& owners)
{
    JobManager& manager = *JobManager::getInstance();
    manager.setActiveModule(owners.consumer);
    const std::vector<std::size_t> gone = readNumbers(bytes);
    for (auto place = gone.rbegin(); place != gone.rend(); ++place) {
        if (*place < channel.traces.size())
            channel.removeInputTrace(owners.consumer, static_cast<int>(*place));
    }
    for (const std::size_t place : readNumbers(bytes))
        moveAway(channel, place);
    manager.setActiveModule(owners.producer);
    takeLayout(readLayout(bytes), channel);
    const Settings settings = readSettings(bytes);
    const std::size_t count = bytes.countOf(1);
    for (std::size_t i = 0; i < count; ++i)
        channel.addTrace(makeTrace(readTrace(bytes)));
    channel.traceLength = settings.traceLength;
    channel.sampleInterval = settings.sampleInterval;
    channel.dataChannelFlag = settings.dataChannelFlag;
    channel.totalNumTraces = settings.total;
    channel.flags = settings.flags;
    channel.setUseScratch(settings.usesScratch);
    const std::size_t flags = bytes.countOf(2);
    for (std::size_t i = 0; i < flags; ++i) {
        const uint64_t place = bytes.count();
        const int flag = bytes.number();
        if (place < channel.traces.size() && channel.traces[place] != nullptr)
            channel.traces[place]->traceFlag = flag;
    }
    manager.setActiveModule(nullptr);
}

void writeResult(DataChannel& channel, const ChannelMark& before, bool given, ByteWriter& bytes)
{
    const ChannelMark now = markOf(channel);
    writeSettings(channel, bytes);
    bytes.count(now.places.size());
    for (const ChannelMark::Place& place : now.places) {
        bytes.integer(place.flag);
        bytes.byte(place.isEmpty ? 1 : 0);
    }
    writeLayout(channel, before, bytes);
    const auto firstNew = newPlacesFrom(before, now);
    bytes.count(firstNew);
    bytes.count(given ? now.places.size() - firstNew : 0);
    for (std::size_t i = firstNew; given && i < now.places.size(); ++i)
        writeTrace(channel, i, bytes);
}

std::string describeResultDifference(ByteReader& recorded, ByteReader& now,
                                     const DataChannel& channel, double tolerance)
{
    const Result was = readResult(recorded);
    const Result is = readResult(now);
    // What a trace is tells more than what the channel says of it.
    for (std::size_t i = 0; i < std::min(was.traces.size(), is.traces.size()); ++i) {
        const std::string text = traceDifference(was.traces[i], is.traces[i], channel, tolerance);
        if (!text.empty())
            return fmt::format("trace {} of it, {}", was.firstNew + i, text);
    }
    if (was.flags.size() != is.flags.size())
        return fmt::format("traces that it holds: recorded {}, now {}", was.flags.size(),
                           is.flags.size());
    for (std::size_t i = 0; i < was.flags.size(); ++i) {
        if (was.isEmpty[i] != is.isEmpty[i])
            return fmt::format("trace {} of it {}", i,
                               is.isEmpty[i] != 0 ? "was moved away, and stayed before"
                                                  : "stays, and was moved away before");
        if (was.flags[i] != is.flags[i])
            return fmt::format("flag of trace {}: recorded {}, now {}", i, was.flags[i],
                               is.flags[i]);
    }
    if (std::string text = layoutDifference(was.layout, is.layout); !text.empty())
        return text;
    return settingsDifference(was.settings, is.settings);
}

} // namespace host
