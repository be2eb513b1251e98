// su_in: reads a Seismic Unix file, one trace per call.

#include "MOXKernel.h"
#include "segy/TraceSelection.h"
#include "su/SuReader.h"
#include "su_in_parameters.hpp"
#include "traces/CutNote.h"
#include "traces/HeaderToAttributes.h"
#include "traces/JobFiles.h"
#include "traces/Milliseconds.h"
#include "traces/OrderRequest.h"
#include "traces/OrderedReading.h"
#include "traces/ReaderFiles.h"
#include "traces/ReaderParameters.h"
#include "traces/TracesToGive.h"
#include "traces/WordCounts.h"
#include "vorn_kit.hpp"
#include "vorn_parts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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
    std::vector<std::string> files; // read one after the other
    VORN::WordMap map;
    TraceSelection selection;
    std::optional<std::string> part; // positions in what is selected
    SuOverrides overrides;
    std::optional<int> interval; // microseconds
    int memoryLimit = 0;         // MB
};

Settings readSettings()
{
    const su_in_parameters::Parameters given = su_in_parameters::readParameters();
    Settings settings;
    settings.files = traces::filesToRead(given.file);
    if (given.words)
        settings.map = traces::wordMap(*given.words);
    if (given.traces && !given.traces->empty())
        settings.selection.add("traces", *given.traces);
    if (given.select)
        traces::addConditions(*given.select, settings.map.applied(VORN::suHeaderWords()),
                              settings.selection);
    settings.part = given.part;
    settings.overrides.samples = given.samples;
    if (given.endian)
        settings.overrides.littleEndian = *given.endian == su_in_parameters::Endian::little;
    settings.memoryLimit = given.memory_limit;
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
    explicit State(Settings given)
        : settings(std::move(given)), table(settings.map.applied(VORN::suHeaderWords())),
          words(table), unread(unreadWords(words)), missed(keysOf(unread)),
          request(traces::orderRequest(words, settings.files.size())),
          order(settings.selection,
                request && !request->file.empty() ? std::nullopt : traces::partOf(settings.part)),
          headersOnly(traces::isForHeadersOnly())
    {
    }

    Settings settings;
    std::vector<HeaderWord> table;
    traces::HeaderToAttributes words;
    std::vector<const HeaderWord*> unread;       // words that the schema lacks
    traces::WordCounts missed;                   // those of them that have values
    std::optional<traces::OrderRequest> request; // for an order that is not that of the files
    traces::TracesToGive order;
    bool headersOnly; // samples are not looked at by anybody
    std::size_t file = 0;
    std::shared_ptr<SuReader> reader;               // of that file
    std::vector<std::shared_ptr<SuReader>> readers; // of all files, where they are read in jumps
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header;
};

void open(State& state, std::size_t file)
{
    state.file = file;
    state.reader =
        file < state.readers.size()
            ? state.readers[file]
            : std::make_shared<SuReader>(state.settings.files[file], state.settings.overrides);
}

// ---- Before the first trace ----

std::string selectionText(const State& state)
{
    return state.order.text(state.settings.part.value_or(""));
}

void sendNews(const State& state, const SuReader& reader, int interval)
{
    std::string text = reader.path() + ": " + std::to_string(reader.traces()) + " traces of " +
                       std::to_string(reader.samples()) + " samples, interval " +
                       traces::milliseconds(interval) + ", Seismic Unix, " +
                       (reader.littleEndian() ? "little" : "big") + " endian";
    if (!state.order.isAll())
        text += "; read are " + selectionText(state);
    message(VORN_INFORMATION, text);
    for (const std::string& note : reader.warnings())
        message(VORN_WARNING, reader.path() + ": " + note);
    if (interval == 0)
        message(VORN_WARNING,
                reader.path() + ": no header states a sample interval; state `interval`");
}

void publishMetadata(const SuReader& reader, int interval)
{
    const auto publish = [](const char* key, const std::string& value) {
        setMetaDataValue(VORN_SCOPE_MODULE, key, value);
    };
    publish("segy.file", reader.path());
    publish("segy.format", "su");
    publish("segy.interval", std::to_string(interval));
    publish("segy.samples", std::to_string(reader.samples()));
}

TraceSelection::WordOf wordOf(SuReader& reader)
{
    return [&reader](int64_t index, const HeaderWord& word) {
        return VORN::readWordValue(reader.header(index), word, reader.littleEndian());
    };
}

void failWhereNothingIsSelected(const State& state, int64_t inFiles)
{
    if (state.order.left() == 0)
        fail(traces::nothingSelected(state.settings.files, inFiles, selectionText(state)));
}

// All files have been opened and added.
void sortTraces(State& state)
{
    std::vector<std::shared_ptr<SuReader>>& readers = state.readers;
    traces::FilesInOrder files;
    files.header = [&](std::size_t file, int64_t index) {
        return readers[file]->nextHeader(index);
    };
    files.isLittleEndian = [&](std::size_t file) { return readers[file]->littleEndian(); };
    files.wordOf = [&](std::size_t file) { return wordOf(*readers[file]); };
    files.willRead = [&](std::size_t file, int64_t first, int64_t count) {
        readers[file]->willRead(first, count);
    };
    for (const auto& reader : readers)
        files.traceBytes = std::max(files.traceBytes, 240 + int64_t{4} * reader->samples());
    traces::sortTraces(*state.request, state.words, files, traces::partOf(state.settings.part),
                       state.order);
    for (const auto& reader : readers)
        reader->expectJumps();
}

std::unique_ptr<State> prepare()
{
    Settings settings = readSettings();
    void* out = getOutputTraceBuffer(0);
    if (out == nullptr)
        fail("the module has no output; connect one");

    auto state = std::make_unique<State>(std::move(settings));
    message(VORN_DETAIL, "the job's schema knows " + std::to_string(state->words.knownWords()) +
                             " of the " + std::to_string(state->table.size()) +
                             " trace header words; others are not read");
    traces::CommonLayout common;
    int64_t inFiles = 0;
    for (std::size_t i = 0; i < state->settings.files.size(); ++i) {
        open(*state, i);
        SuReader& reader = *state->reader;
        if (state->request)
            state->readers.push_back(state->reader);
        const int interval = state->settings.interval.value_or(reader.interval());
        // As in the file, and as it is passed on. A file that is mostly a hole may have any length.
        vorn_kit::allowMemory(state->settings.memoryLimit, 240 + int64_t{8} * reader.samples(),
                              reader.path() + ": a trace of " + std::to_string(reader.samples()) +
                                  " samples",
                              "state `samples` if its traces are shorter");
        state->order.add(reader.traces(), wordOf(reader));
        sendNews(*state, reader, interval);
        if (i == 0)
            publishMetadata(reader, interval);
        traces::announceInput(reader.path());
        common.add(reader.path(), reader.samples(), interval);
        inFiles += reader.traces();
    }
    failWhereNothingIsSelected(*state, inFiles);
    traces::noteCuts(state->order, state->table, [&](const traces::TracePlace& trace) {
        if (trace.file != state->file)
            open(*state, trace.file);
        return traces::HeaderBytes{state->reader->header(trace.index),
                                   state->reader->littleEndian()};
    });
    if (state->request)
        sortTraces(*state);
    for (const std::string& warning : common.warnings())
        message(VORN_WARNING, warning);
    bldOutputTraceBuffer(0, common.samples(), common.interval(), nullptr);
    state->words.begin(out, common.interval());
    informTotalTracesNumber(out, state->order.left());
    return state;
}

// ---- Trace by trace ----

void countUnreadWords(State& state)
{
    for (std::size_t i = 0; i < state.unread.size(); ++i) {
        if (VORN::readWordValue(state.header.data(), *state.unread[i], state.reader->littleEndian())
                .number() != 0)
            state.missed.count(i);
    }
}

// Everything that can fail precedes the output trace: one that could not be read must not be passed
// on.
void emitTrace(State& state, void* out)
{
    if (const std::size_t file = state.order.file(); file != state.file)
        open(state, file);
    SuReader& reader = *state.reader;
    const int64_t index = state.order.next(wordOf(reader));
    if (state.headersOnly)
        std::copy_n(reader.header(index), state.header.size(), state.header.begin());
    else
        reader.read(index, state.header.data(), nullptr);
    float* samples = state.words.addTrace(out, index + 1, state.header.data(),
                                          reader.littleEndian(), reader.samples());
    if (samples == nullptr)
        fail("not enough memory for trace " + std::to_string(index + 1) + " of " + reader.path());
    if (!state.headersOnly)
        reader.read(index, nullptr, samples);
    countUnreadWords(state);
}

void process(State& state)
{
    void* out = vorn_output(0);
    if (state.order.left() > 0)
        emitTrace(state, out);
    if (state.order.left() == 0)
        setDataChannelFlag(out, VORN_END_OF_DATA); // on the last trace; without one, on the channel
}

// ---- After the last trace ----

void finish(State& state)
{
    constexpr std::size_t mostNamed = 12;
    const std::string words = state.missed.text(mostNamed);
    if (!words.empty())
        message(VORN_WARNING,
                state.settings.files[state.order.lastFile()] +
                    ": header words that have values are not read, since the job's schema "
                    "lacks them: " +
                    words + "; add those that matter to `schema`");
}

// ---- In parts ----

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.missed);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    traces::WordCounts later = state.missed;
    file(later);
    state.missed.add(later);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
