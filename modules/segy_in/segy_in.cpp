// segy_in: reads a SEG-Y file, one trace per call.

#include "MOXKernel.h"
#include "segy/HexBytes.h"
#include "segy/SegyReader.h"
#include "segy/SegyTraceStatements.h"
#include "segy/TextHeader.h"
#include "segy/TraceSelection.h"
#include "segy_in_parameters.hpp"
#include "traces/CutNote.h"
#include "traces/HeaderToAttributes.h"
#include "traces/JobFiles.h"
#include "traces/Milliseconds.h"
#include "traces/OrderRequest.h"
#include "traces/OrderedReading.h"
#include "traces/ReaderFiles.h"
#include "traces/ReaderParameters.h"
#include "traces/TracesToGive.h"
#include "vorn_kit.hpp"
#include "vorn_parts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using VORN::HeaderWord;
using VORN::SegyLayout;
using VORN::SegyOverrides;
using VORN::SegyReader;
using VORN::SegyTraceStatements;
using VORN::TraceSelection;

using vorn_kit::fail;
using vorn_kit::message;

namespace {

// ---- Parameters ----

struct Settings
{
    std::vector<std::string> files; // read one after the other
    SegyOverrides overrides;
    VORN::WordMap map;
    TraceSelection selection;
    std::optional<std::string> part; // positions in what is selected
    int memoryLimit = 0;             // MB
};

Settings readSettings()
{
    const segy_in_parameters::Parameters given = segy_in_parameters::readParameters();
    Settings settings;
    settings.files = traces::filesToRead(given.file);
    if (given.words)
        settings.map = traces::wordMap(*given.words);
    if (given.traces)
        settings.selection.add("traces", *given.traces);
    const std::vector<HeaderWord> words = settings.map.applied(VORN::traceHeaderWords());
    if (given.fldr)
        settings.selection.add("fldr", *given.fldr, words);
    if (given.cdp)
        settings.selection.add("cdp", *given.cdp, words);
    if (given.select)
        traces::addConditions(*given.select, words, settings.selection);
    settings.part = given.part;
    settings.overrides.samples = given.samples;
    if (given.format)
        settings.overrides.format = VORN::sampleFormatOfKey(wordOf(*given.format));
    if (given.endian)
        settings.overrides.littleEndian = *given.endian == segy_in_parameters::Endian::little;
    settings.memoryLimit = given.memory_limit;
    if (given.sample_endian)
        settings.overrides.samplesLittleEndian =
            *given.sample_endian == segy_in_parameters::SampleEndian::little;
    if (given.interval)
        settings.overrides.interval = static_cast<int>(std::lround(*given.interval * 1e6));
    return settings;
}

// ---- From one call to the next ----

// One of the files, and what its traces say.
struct InputPart
{
    std::string path;
    int samples = 0;  // per trace
    int interval = 0; // microseconds
    SegyTraceStatements statements;
    traces::VendorBytes vendorBytes;
    int64_t seen = 0; // traces of it that this process has given
};

struct State
{
    explicit State(Settings given)
        : settings(std::move(given)), table(settings.map.applied(VORN::traceHeaderWords())),
          words(table), request(traces::orderRequest(words, settings.files.size())),
          order(settings.selection,
                request && !request->file.empty() ? std::nullopt : traces::partOf(settings.part)),
          headersOnly(traces::isForHeadersOnly())
    {
    }

    Settings settings;
    std::vector<HeaderWord> table;
    traces::HeaderToAttributes words;
    std::optional<traces::OrderRequest> request; // for an order that is not that of the files
    traces::TracesToGive order;
    bool headersOnly; // samples are not looked at by anybody
    std::vector<InputPart> parts;
    std::size_t part = 0;
    std::shared_ptr<SegyReader> reader;               // of that part
    std::vector<std::shared_ptr<SegyReader>> readers; // of all parts, where they are read in jumps
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header;
};

void open(State& state, std::size_t part)
{
    state.part = part;
    state.reader =
        part < state.readers.size()
            ? state.readers[part]
            : std::make_shared<SegyReader>(state.settings.files[part], state.settings.overrides);
}

// ---- Before the first trace ----

std::string selectionText(const State& state)
{
    return state.order.text(state.settings.part.value_or(""));
}

// `given` of its traces are read.
std::string summary(const State& state, const SegyReader& reader, int64_t given)
{
    const SegyLayout& layout = reader.layout();
    std::string text = reader.path() + ": " + std::to_string(layout.traces) + " traces of " +
                       (layout.variableLength ? "up to " : "") + std::to_string(layout.samples) +
                       " samples, interval " + traces::milliseconds(layout.interval) + ", " +
                       VORN::sampleFormatName(layout.format) + ", " +
                       (layout.littleEndian ? "little" : "big") + " endian, revision " +
                       std::to_string(layout.revision);
    if (!state.order.isAll())
        text += "; " + std::to_string(given) + " of them selected by " + selectionText(state);
    return text;
}

void sendNews(const State& state, const SegyReader& reader, int64_t given)
{
    message(VORN_INFORMATION, summary(state, reader, given));
    for (const std::string& note : reader.warnings())
        message(VORN_WARNING, reader.path() + ": " + note);
    if (reader.layout().variableLength)
        message(VORN_WARNING, reader.path() + ": shorter traces are filled with zeros up to " +
                                  std::to_string(reader.layout().samples) + " samples");
}

// The cards of some text headers, a line each.
std::string cardLines(const std::vector<std::string>& texts)
{
    std::string lines;
    for (const std::string& text : texts) {
        for (const std::string& card : VORN::textCards(text))
            lines += card + "\n";
    }
    if (!lines.empty())
        lines.pop_back();
    return lines;
}

void publishMetadata(const SegyReader& reader)
{
    const auto publish = [](const char* key, const std::string& value) {
        setMetaDataValue(VORN_SCOPE_MODULE, key, value);
    };
    publish("segy.text", cardLines({reader.text()}));
    publish("segy.text.bytes", VORN::hexOf(reader.textBytes()));
    if (!reader.extendedTexts().empty()) {
        publish("segy.text.ext", cardLines(reader.extendedTexts()));
        publish("segy.text.ext.bytes", VORN::hexOf(reader.extendedTextBytes()));
    }
    std::string binary;
    for (const HeaderWord& word : VORN::binaryHeaderWords()) {
        if (const int32_t value = reader.binaryWord(word.key))
            binary +=
                (binary.empty() ? "" : "\n") + std::string(word.key) + "=" + std::to_string(value);
    }
    publish("segy.binary", binary);
    publish("segy.binary.rest", VORN::hexOf(reader.unassignedBytes()));
    publish("segy.revision", std::to_string(reader.layout().revision));
    publish("segy.format", VORN::sampleFormatKey(reader.layout().format));
    publish("segy.interval", std::to_string(reader.layout().interval));
    publish("segy.samples", std::to_string(reader.layout().samples));
    publish("segy.file", reader.path());
}

void warnOfUnknownWords(const State& state)
{
    const std::size_t unknown = state.words.unknownWords().size();
    if (unknown > 0)
        message(state.words.knownWords() == 0 ? VORN_WARNING : VORN_DETAIL,
                "the job's schema does not know " + std::to_string(unknown) + " of the " +
                    std::to_string(state.table.size()) + " trace header words; they are not read");
}

TraceSelection::WordOf wordOf(SegyReader& reader)
{
    return [&reader](int64_t index, const HeaderWord& word) {
        return VORN::readWordValue(reader.header(index), word, reader.layout().littleEndian);
    };
}

InputPart describe(SegyReader& reader, const Settings& settings)
{
    const SegyLayout& layout = reader.layout();
    return {reader.path(),
            layout.samples,
            layout.interval,
            SegyTraceStatements(reader),
            traces::VendorBytes(layout.revision, settings.map),
            0};
}

// As in the file, and as it is passed on. A file that is mostly a hole may have any length.
void refuseHugeTraces(const SegyReader& reader, const Settings& settings)
{
    const SegyLayout& layout = reader.layout();
    vorn_kit::allowMemory(
        settings.memoryLimit, layout.traceBytes(layout.samples) + int64_t{4} * layout.samples,
        reader.path() + ": a trace of " + std::to_string(layout.samples) + " samples",
        "state `samples` if its traces are shorter");
}

void failWhereNothingIsSelected(const State& state, int64_t inFiles)
{
    if (state.order.left() == 0 && inFiles > 0)
        fail(traces::nothingSelected(state.settings.files, inFiles, selectionText(state)));
}

// All files have been opened and added.
void sortTraces(State& state)
{
    std::vector<std::shared_ptr<SegyReader>>& readers = state.readers;
    traces::FilesInOrder files;
    files.header = [&](std::size_t file, int64_t index) {
        return readers[file]->nextHeader(index);
    };
    files.isLittleEndian = [&](std::size_t file) { return readers[file]->layout().littleEndian; };
    files.wordOf = [&](std::size_t file) { return wordOf(*readers[file]); };
    files.willRead = [&](std::size_t file, int64_t first, int64_t count) {
        readers[file]->willRead(first, count);
    };
    for (const auto& reader : readers)
        files.traceBytes =
            std::max(files.traceBytes, reader->layout().traceBytes(reader->layout().samples));
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
    traces::CommonLayout common;
    int64_t inFiles = 0;
    for (std::size_t i = 0; i < state->settings.files.size(); ++i) {
        open(*state, i);
        SegyReader& reader = *state->reader;
        if (state->request)
            state->readers.push_back(state->reader);
        refuseHugeTraces(reader, state->settings);
        const int64_t given = state->order.add(reader.layout().traces, wordOf(reader));
        state->parts.push_back(describe(reader, state->settings));
        const InputPart& part = state->parts.back();
        sendNews(*state, reader, given);
        if (i == 0)
            publishMetadata(reader);
        traces::announceInput(part.path);
        common.add(part.path, part.samples, part.interval);
        inFiles += reader.layout().traces;
    }
    failWhereNothingIsSelected(*state, inFiles);
    traces::noteCuts(state->order, state->table, [&](const traces::TracePlace& trace) {
        if (trace.file != state->part)
            open(*state, trace.file);
        return traces::HeaderBytes{state->reader->header(trace.index),
                                   state->reader->layout().littleEndian};
    });
    if (state->request)
        sortTraces(*state);
    for (const std::string& warning : common.warnings())
        message(VORN_WARNING, warning);
    bldOutputTraceBuffer(0, common.samples(), common.interval(), nullptr);
    warnOfUnknownWords(*state);
    state->words.begin(out, common.interval());
    informTotalTracesNumber(out, state->order.left());
    return state;
}

// ---- Trace by trace ----

// Everything that can fail precedes the output trace: one that could not be read must not be passed
// on.
void emitTrace(State& state, void* out)
{
    const std::size_t part = state.order.file();
    if (part != state.part)
        open(state, part);
    SegyReader& reader = *state.reader;
    const int64_t index = state.order.next(wordOf(reader));
    if (state.headersOnly)
        std::copy_n(reader.header(index), state.header.size(), state.header.begin());
    else
        reader.read(index, state.header.data(), nullptr);

    float* samples = state.words.addTrace(out, index + 1, state.header.data(),
                                          reader.layout().littleEndian, reader.samplesOf(index));
    if (samples == nullptr)
        fail("not enough memory for trace " + std::to_string(index + 1) + " of " + reader.path());
    if (!state.headersOnly)
        reader.read(index, nullptr, samples);
    state.parts[part].statements.see(index, state.header.data());
    state.parts[part].vendorBytes.see(state.header.data());
    ++state.parts[part].seen;
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

// What the traces of the files had to say. Behind the last trace of all: those of one file may be
// read by several processes.
void finish(State& state)
{
    for (const InputPart& part : state.parts) {
        for (const std::string& note : part.statements.warnings())
            message(VORN_WARNING, part.path + ": " + note);
        const std::string vendor = part.vendorBytes.text();
        if (!vendor.empty())
            message(VORN_INFORMATION, part.path + ": " + vendor);
    }
}

// ---- In parts ----

// A part reads some of the files.
void save(State& state, vorn_kit::StateWriter& file)
{
    int64_t files = std::count_if(state.parts.begin(), state.parts.end(),
                                  [](const InputPart& part) { return part.seen > 0; });
    file(files);
    for (std::size_t i = 0; i < state.parts.size(); ++i) {
        if (state.parts[i].seen > 0)
            file(i, state.parts[i].statements, state.parts[i].vendorBytes);
    }
}

void merge(State& state, vorn_kit::StateReader& file)
{
    for (auto files = file.get<int64_t>(); files > 0; --files) {
        const auto index = file.get<std::size_t>();
        if (index >= state.parts.size())
            file.refuse("it is of a job with more input files");
        InputPart& part = state.parts[index];
        InputPart later = part;
        file(later.statements, later.vendorBytes);
        part.statements.add(later.statements);
        part.vendorBytes.add(later.vendorBytes);
    }
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
