// su_in: reads a Seismic Unix file, one trace per call.

#include "MOXKernel.h"
#include "segy/TraceSelection.h"
#include "su/SuReader.h"
#include "su_in_parameters.hpp"
#include "traces/HeaderToAttributes.h"
#include "traces/JobFiles.h"
#include "traces/Milliseconds.h"
#include "traces/WordCounts.h"
#include "vorn_kit.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using VORN::HeaderWord;
using VORN::SuOverrides;
using VORN::SuReader;
using VORN::TraceSelection;

using vorn_kit::fail;
using vorn_kit::message;

namespace {

// ---- Parameters ----

struct Settings
{
    std::string file;
    TraceSelection selection;
    SuOverrides overrides;
    std::optional<int> interval; // microseconds
    int memoryLimit = 0;         // MB
};

Settings readSettings()
{
    const su_in_parameters::Parameters given = su_in_parameters::readParameters();
    Settings settings;
    settings.file = given.file;
    settings.memoryLimit = given.memory_limit;
    if (given.traces && !given.traces->empty())
        settings.selection.add("traces", *given.traces);
    settings.overrides.samples = given.samples;
    if (given.endian)
        settings.overrides.littleEndian = *given.endian == su_in_parameters::Endian::little;
    if (given.interval)
        settings.interval = static_cast<int>(std::lround(*given.interval * 1e6));
    return settings;
}

// ---- From one call to the next ----

// Whether the traces have the value of the word anyway.
bool isOfTheTraces(const HeaderWord* word)
{
    return word->key == std::string_view("ns") || word->key == std::string_view("dt");
}

std::vector<const HeaderWord*> unreadWords(const traces::HeaderToAttributes& words)
{
    std::vector<const HeaderWord*> unread = words.unknownWords();
    // No lambda: clang gives its type a name with the path of this file.
    std::erase_if(unread, isOfTheTraces);
    return unread;
}

std::vector<const char*> keysOf(const std::vector<const HeaderWord*>& words)
{
    std::vector<const char*> keys;
    keys.reserve(words.size());
    for (const HeaderWord* word : words)
        keys.push_back(word->key);
    return keys;
}

struct State
{
    explicit State(const Settings& settings)
        : reader(settings.file, settings.overrides),
          interval(settings.interval.value_or(reader.interval())), words(VORN::suHeaderWords()),
          unread(unreadWords(words)), missed(keysOf(unread))
    {
    }

    TraceSelection::WordOf wordOf()
    {
        return [this](int64_t index, const HeaderWord& word) {
            reader.read(index, header.data(), nullptr);
            return VORN::readWord(header.data(), word, reader.littleEndian());
        };
    }
    // The trace to be read now, from 0.
    int64_t nextIndex() { return selection.next(from, reader.traces(), wordOf()); }

    SuReader reader;
    int interval; // microseconds
    TraceSelection selection;
    int64_t total = 0; // traces that are selected
    int64_t next = 0;  // of them, read so far
    int64_t from = 0;  // behind the last one that was read
    traces::HeaderToAttributes words;
    std::vector<const HeaderWord*> unread; // words that the schema lacks
    traces::WordCounts missed;             // those of them that have values
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header;
};

// ---- Before the first trace ----

void sendNews(const State& state, const Settings& settings)
{
    const SuReader& reader = state.reader;
    message(VORN_DETAIL, "the job's schema knows " + std::to_string(state.words.knownWords()) +
                             " of the " + std::to_string(VORN::suHeaderWords().size()) +
                             " trace header words; others are not read");
    std::string text = settings.file + ": " + std::to_string(reader.traces()) + " traces of " +
                       std::to_string(reader.samples()) + " samples, interval " +
                       traces::milliseconds(state.interval) + ", Seismic Unix, " +
                       (reader.littleEndian() ? "little" : "big") + " endian";
    if (!settings.selection.isEmpty())
        text += "; read are " + settings.selection.text();
    message(VORN_INFORMATION, text);
    for (const std::string& note : reader.warnings())
        message(VORN_WARNING, settings.file + ": " + note);
    if (state.interval == 0)
        message(VORN_WARNING,
                settings.file + ": no header states a sample interval; state `interval`");
}

void publishMetadata(const State& state)
{
    const auto publish = [](const char* key, const std::string& value) {
        setMetaDataValue(VORN_SCOPE_MODULE, key, value);
    };
    publish("segy.file", state.reader.path());
    publish("segy.format", "su");
    publish("segy.interval", std::to_string(state.interval));
    publish("segy.samples", std::to_string(state.reader.samples()));
    traces::announceInput(state.reader.path());
}

void selectTraces(State& state, const Settings& settings)
{
    state.selection = settings.selection;
    state.total = state.selection.count(state.reader.traces(), state.wordOf());
    if (state.total == 0)
        fail(settings.file + ": none of its " + std::to_string(state.reader.traces()) +
             " traces is selected by " + settings.selection.text());
}

std::unique_ptr<State> prepare()
{
    const Settings settings = readSettings();
    void* out = getOutputTraceBuffer(0);
    if (out == nullptr)
        fail("the module has no output; connect one");

    auto state = std::make_unique<State>(settings);
    // As in the file, and as it is passed on. A file that is mostly a hole may have any length.
    vorn_kit::allowMemory(settings.memoryLimit, 240 + int64_t{8} * state->reader.samples(),
                          settings.file + ": a trace of " +
                              std::to_string(state->reader.samples()) + " samples",
                          "state `samples` if its traces are shorter");
    selectTraces(*state, settings);
    sendNews(*state, settings);
    publishMetadata(*state);
    bldOutputTraceBuffer(0, state->reader.samples(), state->interval, nullptr);
    state->words.begin(out, state->interval);
    informTotalTracesNumber(out, state->total);
    return state;
}

// ---- Trace by trace ----

void countUnreadWords(State& state)
{
    for (std::size_t i = 0; i < state.unread.size(); ++i) {
        if (VORN::readWord(state.header.data(), *state.unread[i], state.reader.littleEndian()) != 0)
            state.missed.count(i);
    }
}

// Everything that can fail precedes the output trace: one that could not be read must not be passed
// on.
void emitTrace(State& state, void* out)
{
    const int64_t index = state.nextIndex();
    SuReader& reader = state.reader;
    reader.read(index, state.header.data(), nullptr);
    float* samples =
        state.words.addTrace(out, index + 1, state.header.data(), reader.littleEndian(), reader.samples());
    if (samples == nullptr)
        fail("not enough memory for trace " + std::to_string(index + 1));
    reader.read(index, nullptr, samples);
    countUnreadWords(state);
    state.from = index + 1;
    ++state.next;
}

void process(State& state)
{
    void* out = vorn_output(0);
    if (state.next < state.total)
        emitTrace(state, out);
    if (state.next == state.total)
        setDataChannelFlag(out, VORN_END_OF_DATA); // on the last trace; without one, on the channel
}

// ---- After the last trace ----

void finish(State& state)
{
    constexpr std::size_t mostNamed = 12;
    const std::string words = state.missed.text(mostNamed);
    if (!words.empty())
        message(VORN_WARNING,
                state.reader.path() +
                    ": header words that have values are not read, since the job's schema "
                    "lacks them: " +
                    words + "; add those that matter to `schema`");
}

} // namespace

VORN_MODULE(prepare, process, finish);
