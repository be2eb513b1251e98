// segy_in: reads a SEG-Y file, one trace per call.
//
// Most header words stay the same from one trace to the next. They are kept in the one trace of a
// work buffer, where only those that change are written, and copied from there as a block: setting
// all ninety of each trace by name would cost more than reading it.

#include "MOXKernel.h"
#include "file/FileIdentity.h"
#include "segy/HexBytes.h"
#include "segy/NumberRanges.h"
#include "segy/SegyReader.h"
#include "segy/SegyTraceStatements.h"
#include "segy/TextHeader.h"

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
using VORN::NumberRanges;
using VORN::SegyLayout;
using VORN::SegyOverrides;
using VORN::SegyReader;
using VORN::SegyTraceStatements;

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
    std::optional<NumberRanges> traces;
    std::optional<NumberRanges> fldr;
    std::optional<NumberRanges> cdp;
    std::string selection; // the three as they were given, for messages
};

std::optional<UniVar> parameter(const char* name)
{
    if (isModuleParameterPresent(name) == 0)
        return std::nullopt;
    return getModuleParameter(name);
}

std::optional<NumberRanges> rangesParameter(const char* name, std::string& selection)
{
    const std::optional<UniVar> given = parameter(name);
    if (!given)
        return std::nullopt;
    const std::string text = given->getStrValue();
    selection += (selection.empty() ? "" : ", ") + std::string(name) + " " + text;
    try {
        return NumberRanges(text);
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(std::string(name) + ": " + error.what());
    }
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
    settings.traces = rangesParameter("traces", settings.selection);
    settings.fldr = rangesParameter("fldr", settings.selection);
    settings.cdp = rangesParameter("cdp", settings.selection);
    readOverrides(settings.overrides);
    return settings;
}

// ---- Which traces ----

// Trace numbers in the file, from 0, in the order of the file.
std::vector<int64_t> selectTraces(SegyReader& reader, const Settings& settings)
{
    const HeaderWord& fldr = *VORN::findTraceHeaderWord("fldr");
    const HeaderWord& cdp = *VORN::findTraceHeaderWord("cdp");
    std::vector<int64_t> selected;
    for (int64_t i = 0; i < reader.layout().traces; ++i) {
        if (settings.traces && !settings.traces->contains(i + 1))
            continue;
        if (settings.fldr && !settings.fldr->contains(reader.word(reader.header(i), fldr)))
            continue;
        if (settings.cdp && !settings.cdp->contains(reader.word(reader.header(i), cdp)))
            continue;
        selected.push_back(i);
    }
    return selected;
}

// ---- From one call to the next ----

struct WordValue
{
    const HeaderWord* word;
    int32_t value; // as it stands in the work buffer
};

// Looked up at first use: what throws while a library is loaded ends the process.
const HeaderWord* samplesWord()
{
    static const HeaderWord* const word = VORN::findTraceHeaderWord("ns");
    return word;
}

const HeaderWord* intervalWord()
{
    static const HeaderWord* const word = VORN::findTraceHeaderWord("dt");
    return word;
}

struct State
{
    explicit State(const Settings& settings)
        : reader(settings.file, settings.overrides), statements(reader)
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
    std::vector<WordValue> words;  // those that the schema knows
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

std::string milliseconds(int microseconds)
{
    std::string text = std::to_string(microseconds / 1000.0);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.')
        text.pop_back();
    return text + " ms";
}

std::string summary(const State& state, const Settings& settings)
{
    const SegyLayout& layout = state.reader.layout();
    std::string text = settings.file + ": " + std::to_string(layout.traces) + " traces of " +
                       (layout.variableLength ? "up to " : "") + std::to_string(layout.samples) +
                       " samples, interval " + milliseconds(layout.interval) + ", " +
                       VORN::sampleFormatName(layout.format) + ", " +
                       (layout.littleEndian ? "little" : "big") + " endian, revision " +
                       std::to_string(layout.revision);
    if (!state.everyTrace)
        text += "; " + std::to_string(state.total()) + " of them selected by " + settings.selection;
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
    // Modules that write look here, wherever in the job they are: they must not replace the file.
    setMetaDataValue(jobScope, "segy.reads." + VORN::fileIdentity(reader.path()), reader.path());
}

// A work buffer of one sample, since only the header of its trace is used.
void defineWords(State& state, void* out)
{
    std::size_t unknown = 0;
    for (const HeaderWord& word : VORN::traceHeaderWords()) {
        if (getTraceAttributeType(word.key) < 1) {
            ++unknown;
            continue;
        }
        defineTraceAttribute(out, word.key);
        state.words.push_back({&word, 0});
    }
    if (unknown > 0)
        sendMessage(state.words.empty() ? warning : detail,
                    ("the job's schema does not know " + std::to_string(unknown) + " of the " +
                     std::to_string(VORN::traceHeaderWords().size()) +
                     " trace header words; they are not read")
                        .c_str());
    bldWorkTraceBuffer(0, 1, state.reader.layout().interval, 1, out);
}

void prepare()
{
    const Settings settings = readSettings();
    void* out = getOutputTraceBuffer(0);
    if (out == nullptr)
        throw std::runtime_error("the module has no output; connect one");

    auto state = std::make_unique<State>(settings);
    if (!settings.selection.empty()) {
        state->everyTrace = false;
        state->selected = selectTraces(state->reader, settings);
        if (state->selected.empty() && state->reader.layout().traces > 0)
            throw std::runtime_error(settings.file + ": none of its " +
                                     std::to_string(state->reader.layout().traces) +
                                     " traces is selected by " + settings.selection);
    }
    const SegyLayout& layout = state->reader.layout();
    sendNews(*state, settings);
    publishMetadata(state->reader);
    bldOutputTraceBuffer(0, layout.samples, layout.interval, nullptr);
    defineWords(*state, out);
    informTotalTracesNumber(out, state->total());
    keepState(state.get());
    static_cast<void>(state.release());
}

// ---- Trace by trace ----

// The words for length and interval say what the trace has now: the header may have been wrong.
int32_t wordValue(const State& state, const HeaderWord* word, int64_t index)
{
    if (word == samplesWord())
        return state.reader.samplesOf(index);
    if (word == intervalWord())
        return state.reader.layout().interval;
    return state.reader.word(state.header.data(), *word);
}

void updateWords(State& state, void* work, int64_t index)
{
    for (WordValue& known : state.words) {
        const int32_t value = wordValue(state, known.word, index);
        if (value == known.value)
            continue;
        setTraceAttribute(work, known.word->key, UniVar(value), 0);
        known.value = value;
    }
}

// What can fail comes before there is a trace: one that could not be read must not reach anybody.
void emitTrace(State& state, void* out)
{
    const int64_t index = state.nextIndex();
    state.reader.read(index, state.header.data(), nullptr);

    void* work = getWorkTraceBuffer(0);
    updateWords(state, work, index);
    const int number = getNumberOfTraces(out);
    copyTraceToTrace(work, out, 1, 0, 0, number);
    float* samples = getTraceSamples(out, number);
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
