// segy_in: reads a SEG-Y file, one trace per call.

#include "MOXKernel.h"
#include "segy/HexBytes.h"
#include "segy/SegyReader.h"
#include "segy/SegyTraceStatements.h"
#include "segy/TextHeader.h"
#include "segy/TraceSelection.h"
#include "traces/HeaderToAttributes.h"
#include "traces/JobFiles.h"
#include "traces/Milliseconds.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using VORN::HeaderWord;
using VORN::SegyLayout;
using VORN::SegyOverrides;
using VORN::SegyReader;
using VORN::SegyTraceStatements;
using VORN::TraceSelection;

namespace {

enum MessageType
{
    detail = 0,
    information = 1,
    warning = 2,
    fatal = 4
};

constexpr int endOfData = 3;
constexpr int moduleScope = 1;
constexpr int jobScope = 0;
constexpr char stateName[] = "state";

// ---- Parameters ----

struct Settings
{
    std::string file;
    SegyOverrides overrides;
    TraceSelection selection;
};

std::optional<UniVar> parameter(const char* name)
{
    if (isModuleParameterPresent(name) == 0)
        return std::nullopt;
    return getModuleParameter(name);
}

void readOverrides(SegyOverrides& overrides)
{
    constexpr double mostSeconds = 2000;
    if (const auto given = parameter("samples")) {
        overrides.samples = given->getI32Value();
        if (*overrides.samples < 1)
            throw std::runtime_error("samples is " + given->getStrValue() +
                                     "; give the samples per trace, 1 or more");
    }
    if (const auto given = parameter("format")) {
        overrides.format = VORN::sampleFormatOfKey(given->getStrValue());
        if (!overrides.format)
            throw std::runtime_error("format is \"" + given->getStrValue() + "\"; give one of " +
                                     VORN::sampleFormatKeys());
    }
    if (const auto given = parameter("endian")) {
        const std::string order = given->getStrValue();
        if (order != "big" && order != "little")
            throw std::runtime_error("endian is \"" + order + "\"; give big or little");
        overrides.littleEndian = order == "little";
    }
    if (const auto given = parameter("interval")) {
        const double seconds = given->getF64Value();
        if (!(seconds >= 0.5e-6 && seconds <= mostSeconds))
            throw std::runtime_error("interval is " + given->getStrValue() +
                                     " s; give a time from 1 microsecond to 2000 seconds");
        overrides.interval = static_cast<int>(std::lround(seconds * 1e6));
    }
}

Settings readSettings()
{
    Settings settings;
    const std::optional<UniVar> file = parameter("file");
    if (!file || file->getStrValue().empty())
        throw std::runtime_error("file is missing; give the path of a SEG-Y file");
    settings.file = file->getStrValue();
    for (const char* key : {"traces", "fldr", "cdp"}) {
        if (const auto given = parameter(key))
            settings.selection.add(key, given->getStrValue());
    }
    readOverrides(settings.overrides);
    return settings;
}

// ---- From one call to the next ----

struct State
{
    explicit State(const Settings& settings)
        : reader(settings.file, settings.overrides), statements(reader),
          words(VORN::traceHeaderWords())
    {
    }

    int64_t total() const
    {
        return everyTrace ? reader.layout().traces : static_cast<int64_t>(selected.size());
    }
    int64_t nextIndex() const
    {
        return everyTrace ? next : selected[static_cast<std::size_t>(next)];
    }

    SegyReader reader;
    SegyTraceStatements statements;
    bool everyTrace = true;
    std::vector<int64_t> selected; // otherwise
    int64_t next = 0;              // traces read so far
    traces::HeaderToAttributes words;
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header;
};

State* keptState()
{
    return static_cast<State*>(getModuleResource(stateName).getPointerValue());
}

void keepState(State* state)
{
    setModuleResource(stateName, UniVar(static_cast<void*>(state)));
}

// Nothing is read any more, and no output of the job becomes a file.
void fail(const std::string& what)
{
    sendMessage(fatal, what.c_str());
    setMetaDataValue(jobScope, "vorn.failed", std::string(getModuleName()) + ": " + what);
    delete keptState();
    keepState(nullptr);
}

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
    if (!state.everyTrace)
        text += "; " + std::to_string(state.total()) + " of them selected by " +
                settings.selection.text();
    return text;
}

void sendNews(const State& state, const Settings& settings)
{
    sendMessage(information, summary(state, settings).c_str());
    for (const std::string& note : state.reader.warnings())
        sendMessage(warning, (settings.file + ": " + note).c_str());
    if (state.reader.layout().variableLength)
        sendMessage(warning, (settings.file + ": shorter traces are filled with zeros up to " +
                              std::to_string(state.reader.layout().samples) + " samples")
                                 .c_str());
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
        setMetaDataValue(moduleScope, key, value);
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
        sendMessage(state.words.knownWords() == 0 ? warning : detail,
                    ("the job's schema does not know " + std::to_string(unknown) + " of the " +
                     std::to_string(VORN::traceHeaderWords().size()) +
                     " trace header words; they are not read")
                        .c_str());
}

void prepare()
{
    const Settings settings = readSettings();
    void* out = getOutputTraceBuffer(0);
    if (out == nullptr)
        throw std::runtime_error("the module has no output; connect one");

    auto state = std::make_unique<State>(settings);
    SegyReader& reader = state->reader;
    if (!settings.selection.isEmpty()) {
        state->everyTrace = false;
        state->selected = settings.selection.select(
            reader.layout().traces, [&](int64_t index, const HeaderWord& word) {
                return reader.word(reader.header(index), word);
            });
        if (state->selected.empty() && reader.layout().traces > 0)
            throw std::runtime_error(settings.file + ": none of its " +
                                     std::to_string(reader.layout().traces) +
                                     " traces is selected by " + settings.selection.text());
    }
    const SegyLayout& layout = reader.layout();
    sendNews(*state, settings);
    publishMetadata(reader);
    bldOutputTraceBuffer(0, layout.samples, layout.interval, nullptr);
    warnOfUnknownWords(*state);
    state->words.begin(out, layout.interval);
    informTotalTracesNumber(out, state->total());
    keepState(state.get());
    static_cast<void>(state.release());
}

// ---- Trace by trace ----

// What can fail comes before there is a trace: one that could not be read must not reach anybody.
void emitTrace(State& state, void* out)
{
    const int64_t index = state.nextIndex();
    state.reader.read(index, state.header.data(), nullptr);

    float* samples =
        state.words.addTrace(out, state.header.data(), state.reader.layout().littleEndian,
                             state.reader.samplesOf(index));
    if (samples == nullptr)
        throw std::runtime_error("there is no memory for trace " + std::to_string(index + 1) +
                                 " of " + state.reader.path());
    state.reader.read(index, nullptr, samples);
    state.statements.see(index, state.header.data());
    ++state.next;
}

// ---- After the last trace ----

// Only now is it known how many there are.
void sendContradictions(const State& state)
{
    for (const std::string& note : state.statements.warnings())
        sendMessage(warning, (state.reader.path() + ": " + note).c_str());
}

// Runs `action`; what it throws becomes the module's end.
template <typename Action>
int guarded(Action action)
{
    try {
        action();
    } catch (const std::exception& error) {
        fail(error.what());
    }
    return 0;
}

} // namespace

extern "C" int preprocess_()
{
    return guarded(prepare);
}

extern "C" int process_()
{
    void* out = getOutputTraceBuffer(0);
    guarded([=] {
        State* state = keptState();
        if (state != nullptr && state->next < state->total())
            emitTrace(*state, out);
    });
    const State* state = keptState();
    if (state == nullptr || state->next == state->total())
        setDataChannelFlag(out, endOfData); // on the last trace; without one, on the channel
    return 0;
}

extern "C" int postprocess_()
{
    guarded([] {
        if (const State* state = keptState())
            sendContradictions(*state);
    });
    delete keptState();
    keepState(nullptr);
    return 0;
}
