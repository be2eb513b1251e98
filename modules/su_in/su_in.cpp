// su_in: reads a Seismic Unix file, one trace per call.

#include "MOXKernel.h"
#include "segy/TraceSelection.h"
#include "su/SuReader.h"
#include "traces/HeaderToAttributes.h"
#include "traces/JobFiles.h"
#include "traces/Milliseconds.h"
#include "traces/WordCounts.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using VORN::HeaderWord;
using VORN::SuOverrides;
using VORN::SuReader;
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

void send(MessageType type, const std::string& text)
{
    sendMessage(type, text.c_str());
}

// ---- Parameters ----

struct Settings
{
    std::string file;
    TraceSelection selection;
    SuOverrides overrides;
    std::optional<int> interval; // microseconds
};

std::optional<UniVar> parameter(const char* name)
{
    if (isModuleParameterPresent(name) == 0)
        return std::nullopt;
    return getModuleParameter(name);
}

std::string shortText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::optional<int> readInterval()
{
    constexpr double mostSeconds = 2000;
    const std::optional<UniVar> given = parameter("interval");
    if (!given)
        return std::nullopt;
    const double seconds = given->getF64Value();
    if (!(seconds >= 0.5e-6 && seconds <= mostSeconds))
        throw std::runtime_error("interval is " + shortText(seconds) +
                                 " s; give a time from 1 microsecond to 2000 seconds");
    return static_cast<int>(std::lround(seconds * 1e6));
}

Settings readSettings()
{
    Settings settings;
    const std::optional<UniVar> file = parameter("file");
    if (!file || file->getStrValue().empty())
        throw std::runtime_error("file is missing; give the path of a Seismic Unix file");
    settings.file = file->getStrValue();
    const std::optional<UniVar> traces = parameter("traces");
    if (traces && !traces->getStrValue().empty())
        settings.selection.add("traces", traces->getStrValue());
    if (const auto given = parameter("samples")) {
        settings.overrides.samples = given->getI32Value();
        if (*settings.overrides.samples < 1)
            throw std::runtime_error("samples is " + given->getStrValue() +
                                     "; give the samples per trace, 1 or more");
    }
    if (const auto given = parameter("endian")) {
        const std::string order = given->getStrValue();
        if (order != "big" && order != "little")
            throw std::runtime_error("endian is \"" + order + "\"; give big or little");
        settings.overrides.littleEndian = order == "little";
    }
    settings.interval = readInterval();
    return settings;
}

// ---- From one call to the next ----

// Whether the traces say themselves what the word would.
bool isOfTheTraces(const HeaderWord& word)
{
    return word.key == std::string_view("ns") || word.key == std::string_view("dt");
}

std::vector<const HeaderWord*> unreadWords(const traces::HeaderToAttributes& words)
{
    std::vector<const HeaderWord*> unread = words.unknownWords();
    std::erase_if(unread, [](const HeaderWord* word) { return isOfTheTraces(*word); });
    return unread;
}

std::vector<const char*> keysOf(const std::vector<const HeaderWord*>& words)
{
    std::vector<const char*> keys;
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

    int64_t total() const
    {
        return everyTrace ? reader.traces() : static_cast<int64_t>(selected.size());
    }
    int64_t nextIndex() const
    {
        return everyTrace ? next : selected[static_cast<std::size_t>(next)];
    }

    SuReader reader;
    int interval; // microseconds
    bool everyTrace = true;
    std::vector<int64_t> selected; // otherwise
    int64_t next = 0;              // traces read so far
    traces::HeaderToAttributes words;
    std::vector<const HeaderWord*> unread; // words that the schema lacks
    traces::WordCounts missed;             // those of them that have values
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
    send(fatal, what);
    setMetaDataValue(jobScope, "vorn.failed", "su_in: " + what);
    delete keptState();
    keepState(nullptr);
}

// ---- Before the first trace ----

void sendNews(const State& state, const Settings& settings)
{
    const SuReader& reader = state.reader;
    send(detail, "the job's schema knows " + std::to_string(state.words.knownWords()) + " of the " +
                     std::to_string(VORN::suHeaderWords().size()) +
                     " trace header words; others are not read");
    std::string text = settings.file + ": " + std::to_string(reader.traces()) + " traces of " +
                       std::to_string(reader.samples()) + " samples, interval " +
                       traces::milliseconds(state.interval) + ", Seismic Unix, " +
                       (reader.littleEndian() ? "little" : "big") + " endian";
    if (!state.everyTrace)
        text += "; read are " + settings.selection.text();
    send(information, text);
    for (const std::string& note : reader.warnings())
        send(warning, settings.file + ": " + note);
    if (state.interval == 0)
        send(warning, settings.file + ": no header states a sample interval; state `interval`");
}

void publishMetadata(const State& state)
{
    const auto publish = [](const char* key, const std::string& value) {
        setMetaDataValue(moduleScope, key, value);
    };
    publish("segy.file", state.reader.path());
    publish("segy.format", "su");
    publish("segy.interval", std::to_string(state.interval));
    publish("segy.samples", std::to_string(state.reader.samples()));
    traces::announceInput(state.reader.path());
}

void selectTraces(State& state, const Settings& settings)
{
    state.everyTrace = false;
    state.selected = settings.selection.select(
        state.reader.traces(), [&](int64_t index, const HeaderWord& word) {
            state.reader.read(index, state.header.data(), nullptr);
            return VORN::readWord(state.header.data(), word, state.reader.littleEndian());
        });
    if (state.selected.empty())
        throw std::runtime_error(settings.file + ": none of its " +
                                 std::to_string(state.reader.traces()) + " traces is selected by " +
                                 settings.selection.text());
}

void prepare()
{
    const Settings settings = readSettings();
    void* out = getOutputTraceBuffer(0);
    if (out == nullptr)
        throw std::runtime_error("the module has no output; connect one");

    auto state = std::make_unique<State>(settings);
    if (!settings.selection.isEmpty())
        selectTraces(*state, settings);
    sendNews(*state, settings);
    publishMetadata(*state);
    bldOutputTraceBuffer(0, state->reader.samples(), state->interval, nullptr);
    state->words.begin(out, state->interval);
    informTotalTracesNumber(out, state->total());
    keepState(state.get());
    static_cast<void>(state.release());
}

// ---- Trace by trace ----

void countUnreadWords(State& state)
{
    for (std::size_t i = 0; i < state.unread.size(); ++i) {
        if (VORN::readWord(state.header.data(), *state.unread[i], state.reader.littleEndian()) != 0)
            state.missed.count(i);
    }
}

// What can fail comes before there is a trace: one that could not be read must not reach anybody.
void emitTrace(State& state, void* out)
{
    const int64_t index = state.nextIndex();
    SuReader& reader = state.reader;
    reader.read(index, state.header.data(), nullptr);
    float* samples =
        state.words.addTrace(out, state.header.data(), reader.littleEndian(), reader.samples());
    if (samples == nullptr)
        throw std::runtime_error("there is no memory for trace " + std::to_string(index + 1));
    reader.read(index, nullptr, samples);
    countUnreadWords(state);
    ++state.next;
}

// ---- After the last trace ----

void warnOfUnreadWords(const State& state)
{
    constexpr std::size_t mostNamed = 12;
    const std::string words = state.missed.text(mostNamed);
    if (!words.empty())
        send(warning, state.reader.path() +
                          ": header words that have values are not read, since the job's schema "
                          "lacks them: " +
                          words + "; add those that matter to `schema`");
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
            warnOfUnreadWords(*state);
    });
    delete keptState();
    keepState(nullptr);
    return 0;
}
