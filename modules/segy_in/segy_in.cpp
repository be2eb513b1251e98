// segy_in: reads a SEG-Y file, one trace per call.

#include "MOXKernel.h"
#include "segy/HexBytes.h"
#include "segy/SegyReader.h"
#include "segy/SegyTraceStatements.h"
#include "segy/TextHeader.h"
#include "segy/TraceSelection.h"
#include "segy_in_parameters.hpp"
#include "traces/HeaderToAttributes.h"
#include "traces/JobFiles.h"
#include "traces/Milliseconds.h"
#include "vorn_kit.hpp"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
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
    std::string file;
    SegyOverrides overrides;
    TraceSelection selection;
    int memoryLimit = 0; // MB
};

Settings readSettings()
{
    const segy_in_parameters::Parameters given = segy_in_parameters::readParameters();
    Settings settings;
    settings.file = given.file;
    settings.memoryLimit = given.memory_limit;
    if (given.traces)
        settings.selection.add("traces", *given.traces);
    if (given.fldr)
        settings.selection.add("fldr", *given.fldr);
    if (given.cdp)
        settings.selection.add("cdp", *given.cdp);
    settings.overrides.samples = given.samples;
    if (given.format)
        settings.overrides.format = VORN::sampleFormatOfKey(wordOf(*given.format));
    if (given.endian)
        settings.overrides.littleEndian = *given.endian == segy_in_parameters::Endian::little;
    if (given.interval)
        settings.overrides.interval = static_cast<int>(std::lround(*given.interval * 1e6));
    return settings;
}

// ---- From one call to the next ----

struct State
{
    explicit State(const Settings& settings)
        : reader(settings.file, settings.overrides), statements(reader),
          selection(settings.selection), words(VORN::traceHeaderWords())
    {
        total = selection.count(reader.layout().traces, wordOf());
    }

    TraceSelection::WordOf wordOf()
    {
        return [this](int64_t index, const HeaderWord& word) {
            return reader.word(reader.header(index), word);
        };
    }
    // The trace to be read now, from 0.
    int64_t nextIndex() { return selection.next(from, reader.layout().traces, wordOf()); }

    SegyReader reader;
    SegyTraceStatements statements;
    TraceSelection selection;
    int64_t total = 0; // traces that are selected
    int64_t next = 0;  // of them, read so far
    int64_t from = 0;  // behind the last one that was read
    traces::HeaderToAttributes words;
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header;
};

// ---- Before the first trace ----

std::string summary(const State& state, const Settings& settings)
{
    const SegyLayout& layout = state.reader.layout();
    std::string text = settings.file + ": " + std::to_string(layout.traces) + " traces of " +
                       (layout.variableLength ? "up to " : "") + std::to_string(layout.samples) +
                       " samples, interval " + traces::milliseconds(layout.interval) + ", " +
                       VORN::sampleFormatName(layout.format) + ", " +
                       (layout.littleEndian ? "little" : "big") + " endian, revision " +
                       std::to_string(layout.revision);
    if (!settings.selection.isEmpty())
        text += "; " + std::to_string(state.total) + " of them selected by " +
                settings.selection.text();
    return text;
}

void sendNews(const State& state, const Settings& settings)
{
    message(VORN_INFORMATION, summary(state, settings));
    for (const std::string& note : state.reader.warnings())
        message(VORN_WARNING, settings.file + ": " + note);
    if (state.reader.layout().variableLength)
        message(VORN_WARNING, settings.file + ": shorter traces are filled with zeros up to " +
                                  std::to_string(state.reader.layout().samples) + " samples");
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
    traces::announceInput(reader.path());
}

void warnOfUnknownWords(const State& state)
{
    const std::size_t unknown = state.words.unknownWords().size();
    if (unknown > 0)
        message(state.words.knownWords() == 0 ? VORN_WARNING : VORN_DETAIL,
                "the job's schema does not know " + std::to_string(unknown) + " of the " +
                    std::to_string(VORN::traceHeaderWords().size()) +
                    " trace header words; they are not read");
}

std::unique_ptr<State> prepare()
{
    const Settings settings = readSettings();
    void* out = getOutputTraceBuffer(0);
    if (out == nullptr)
        fail("the module has no output; connect one");

    auto state = std::make_unique<State>(settings);
    SegyReader& reader = state->reader;
    // As in the file, and as it is passed on. A file that is mostly a hole may have any length.
    vorn_kit::allowMemory(
        settings.memoryLimit,
        reader.layout().traceBytes(reader.layout().samples) + int64_t{4} * reader.layout().samples,
        settings.file + ": a trace of " + std::to_string(reader.layout().samples) + " samples",
        "state `samples` if its traces are shorter");
    if (state->total == 0)
        fail(settings.file + ": none of its " + std::to_string(reader.layout().traces) +
             " traces is selected by " + settings.selection.text());
    const SegyLayout& layout = reader.layout();
    sendNews(*state, settings);
    publishMetadata(reader);
    bldOutputTraceBuffer(0, layout.samples, layout.interval, nullptr);
    warnOfUnknownWords(*state);
    state->words.begin(out, layout.interval);
    informTotalTracesNumber(out, state->total);
    return state;
}

// ---- Trace by trace ----

// Everything that can fail precedes the output trace: one that could not be read must not be passed
// on.
void emitTrace(State& state, void* out)
{
    const int64_t index = state.nextIndex();
    state.reader.read(index, state.header.data(), nullptr);

    float* samples =
        state.words.addTrace(out, index + 1, state.header.data(), state.reader.layout().littleEndian,
                             state.reader.samplesOf(index));
    if (samples == nullptr)
        fail("not enough memory for trace " + std::to_string(index + 1) + " of " +
             state.reader.path());
    state.reader.read(index, nullptr, samples);
    state.statements.see(index, state.header.data());
    ++state.next;
    state.from = index + 1;
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

// Their number is known only now.
void finish(State& state)
{
    for (const std::string& note : state.statements.warnings())
        message(VORN_WARNING, state.reader.path() + ": " + note);
}

} // namespace

VORN_MODULE(prepare, process, finish);
