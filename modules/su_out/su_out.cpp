// su_out: writes a Seismic Unix file, one trace per call.
//
// The temporary file is made before the job runs, so that an output that cannot be written is known
// at once; the final name comes last.

#include "MOXKernel.h"
#include "su/SuWriter.h"
#include "traces/AttributesToHeader.h"
#include "traces/JobFiles.h"
#include "traces/WordCounts.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using VORN::HeaderWord;
using VORN::OutputFile;
using VORN::SuWriter;

namespace {

enum MessageType
{
    information = 1,
    warning = 2,
    fatal = 4
};

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
    bool littleEndian = std::endian::native == std::endian::little;
    bool overwrite = true;
};

Settings readSettings()
{
    const auto given = [](const char* name) { return isModuleParameterPresent(name) != 0; };
    Settings settings;
    if (given("file"))
        settings.file = getModuleParameter("file").getStrValue();
    if (settings.file.empty())
        throw std::runtime_error("file is missing; give the path of the file to be written");
    if (given("endian")) {
        const std::string order = getModuleParameter("endian").getStrValue();
        if (order != "native" && order != "big" && order != "little")
            throw std::runtime_error("endian is \"" + order + "\"; give native, big or little");
        if (order != "native")
            settings.littleEndian = order == "little";
    }
    if (given("overwrite"))
        settings.overwrite = getModuleParameter("overwrite").getI32Value() != 0;
    return settings;
}

// ---- From one call to the next ----

struct State
{
    explicit State(Settings given)
        : settings(std::move(given)), file(settings.file, settings.overwrite),
          words(settings.file, VORN::suHeaderWords(), settings.littleEndian)
    {
    }

    Settings settings;
    OutputFile file;
    std::unique_ptr<SuWriter> writer; // from the first trace on
    int samples = 0;                  // per trace
    int64_t traces = 0;
    traces::AttributesToHeader words;
    traces::WordCounts leftOut{{}}; // words of the first trace that have no place in the header
};

State* keptState()
{
    return static_cast<State*>(getModuleResource(stateName).getPointerValue());
}

void keepState(State* state)
{
    setModuleResource(stateName, UniVar(static_cast<void*>(state)));
}

// Removes the temporary file; from now on the module does nothing, and no output of the job becomes
// a file.
void fail(const std::string& what)
{
    // First, since it needs no memory.
    delete keptState();
    keepState(nullptr);
    send(fatal, what);
    setMetaDataValue(jobScope, "vorn.failed", "su_out: " + what);
}

// ---- Before the first trace ----

void prepare()
{
    Settings settings = readSettings();
    if (getInputTraceBuffer(0) == nullptr)
        throw std::runtime_error("the module has no input; connect one");
    traces::refuseInputs(settings.file);
    traces::refuseSecondWriter(settings.file);
    auto state = std::make_unique<State>(std::move(settings));
    keepState(state.get());
    static_cast<void>(state.release());
}

// ---- Trace by trace ----

// Words of SEG-Y at places where Seismic Unix has others, or none.
std::vector<const char*> wordsWithoutPlace(void* in)
{
    constexpr int lastSharedByte = 180;
    std::vector<const char*> keys;
    for (const HeaderWord& word : VORN::traceHeaderWords()) {
        if (word.byte > lastSharedByte && isTraceAttributeExist(in, word.key) != 0)
            keys.push_back(word.key);
    }
    return keys;
}

void begin(State& state, void* in)
{
    state.leftOut = traces::WordCounts(wordsWithoutPlace(in));
    state.samples = getTraceLength(in);
    state.writer =
        std::make_unique<SuWriter>(state.file, state.samples, state.settings.littleEndian);
}

void countLeftOut(State& state, void* in)
{
    for (std::size_t i = 0; i < state.leftOut.size(); ++i) {
        if (getTraceAttribute(in, state.leftOut.key(i), 0).getF64Value() != 0)
            state.leftOut.count(i);
    }
}

void writeTrace(State& state, void* in)
{
    if (state.writer == nullptr)
        begin(state, in);
    const int64_t number = state.traces + 1;
    const float* samples = traces::samplesToWrite(in, state.settings.file, number, state.samples);
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header{};
    state.words.fill(in, number, header.data());
    countLeftOut(state, in);
    state.writer->write(header.data(), samples);
    state.traces = number;
}

// ---- After the last trace ----

void publish(State& state)
{
    const std::string& file = state.settings.file;
    traces::refuseInputs(file);
    state.file.commit();
    send(information, file + ": " + std::to_string(state.traces) + " traces of " +
                          std::to_string(state.samples) + " samples written, " +
                          std::to_string(state.file.size()) + " bytes, Seismic Unix, " +
                          (state.settings.littleEndian ? "little" : "big") + " endian");
    const std::string words = state.leftOut.text(state.leftOut.size());
    if (!words.empty())
        send(warning, file +
                          ": a Seismic Unix header has no place for these words, whose values are "
                          "left out: " +
                          words);
}

void finish(State& state)
{
    if (traces::isToBePublished(state.settings.file, state.traces > 0))
        publish(state);
}

// Runs `action`; what it throws becomes the module's end.
template <typename Action>
int guarded(Action action)
{
    try {
        action();
    } catch (const std::exception& failure) {
        fail(failure.what());
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
    return guarded([] {
        if (State* state = keptState())
            writeTrace(*state, getInputTraceBuffer(0));
    });
}

extern "C" int postprocess_()
{
    guarded([] {
        if (State* state = keptState())
            finish(*state);
    });
    delete keptState();
    keepState(nullptr);
    return 0;
}
