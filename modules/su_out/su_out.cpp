// su_out: writes a Seismic Unix file, one trace per call.
//
// The temporary file is made before the job runs, so that an output that cannot be written is known
// at once; the final name comes last.

#include "MOXKernel.h"
#include "su/SuWriter.h"
#include "su_out_parameters.hpp"
#include "traces/AttributesToHeader.h"
#include "traces/JobFiles.h"
#include "traces/ReaderParameters.h"
#include "traces/WordCounts.h"
#include "vorn_kit.hpp"
#include "vorn_parts.hpp"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using VORN::HeaderWord;
using VORN::OutputFile;
using VORN::SuWriter;

using vorn_kit::message;

namespace {

// ---- Parameters ----

struct Settings
{
    std::string file;
    bool littleEndian = std::endian::native == std::endian::little;
    bool overwrite = true;
    VORN::WordMap map;
};

Settings readSettings()
{
    using su_out_parameters::Endian;
    const su_out_parameters::Parameters given = su_out_parameters::readParameters();
    Settings settings;
    settings.file = given.file;
    if (given.endian != Endian::native)
        settings.littleEndian = given.endian == Endian::little;
    settings.overwrite = given.overwrite;
    if (given.words)
        settings.map = traces::wordMap(*given.words);
    return settings;
}

// ---- From one call to the next ----

// What the end message tells of the file, or of the range of it that this process has written.
struct Written
{
    int64_t firstTrace = 0; // number, from 0, in the file
    int64_t traces = 0;
    int64_t bytes = 0;   // of the file up to the last trace
    int32_t samples = 0; // per trace

    template <typename File>
    void transfer(File& file)
    {
        file(firstTrace, traces, bytes, samples);
    }
};

struct State
{
    explicit State(Settings given)
        : settings(std::move(given)),
          file(settings.file, settings.overwrite, "the output file", getModuleName()),
          words(settings.file, VORN::suHeaderWords(), settings.map, settings.littleEndian)
    {
    }

    Settings settings;
    OutputFile file;
    std::unique_ptr<SuWriter> writer; // from the first trace on
    Written written;
    traces::AttributesToHeader words;
    traces::WordCounts leftOut{{}}; // words of the first trace that have no place in the header
};

// ---- Before the first trace ----

std::unique_ptr<State> prepare()
{
    Settings settings = readSettings();
    vorn_kit::requiredInput();
    traces::refuseInputs(settings.file);
    traces::refuseSecondWriter(settings.file);
    return std::make_unique<State>(std::move(settings));
}

// ---- Trace by trace ----

// Words of SEG-Y at places where Seismic Unix has others, or none.
std::vector<const char*> wordsWithoutPlace(void* in, const VORN::WordMap& map)
{
    constexpr int lastSharedByte = 180;
    std::vector<const char*> keys;
    for (const HeaderWord& word : VORN::traceHeaderWords()) {
        if (word.byte > lastSharedByte && !map.has(word.key) &&
            isTraceAttributeExist(in, word.key) != 0)
            keys.push_back(word.key);
    }
    return keys;
}

void begin(State& state, void* in)
{
    state.leftOut = traces::WordCounts(wordsWithoutPlace(in, state.settings.map));
    state.written.firstTrace = state.file.firstTrace();
    state.written.samples = getTraceLength(in);
    state.writer =
        std::make_unique<SuWriter>(state.file, state.written.samples, state.settings.littleEndian);
}

void countLeftOut(State& state, void* in)
{
    for (std::size_t i = 0; i < state.leftOut.size(); ++i) {
        if (getTraceAttribute(in, state.leftOut.key(i), 0).getF64Value() != 0)
            state.leftOut.count(i);
    }
}

void process(State& state)
{
    void* in = vorn_input(0);
    if (state.writer == nullptr)
        begin(state, in);
    Written& written = state.written;
    const int64_t number = written.firstTrace + written.traces + 1;
    const float* samples = traces::samplesToWrite(in, state.settings.file, number, written.samples);
    std::array<unsigned char, VORN::segyTraceHeaderBytes> header{};
    state.words.fill(in, number, header.data());
    countLeftOut(state, in);
    state.writer->write(header.data(), samples);
    ++written.traces;
    written.bytes = state.writer->bytesOf(number);
}

// ---- After the last trace ----

void publish(State& state)
{
    const std::string& file = state.settings.file;
    traces::refuseInputs(file);
    state.file.expectSize(state.written.bytes);
    state.file.commit();
    message(VORN_INFORMATION, file + ": " + std::to_string(state.written.traces) + " traces of " +
                                  std::to_string(state.written.samples) + " samples written, " +
                                  std::to_string(state.file.size()) + " bytes, Seismic Unix, " +
                                  (state.settings.littleEndian ? "little" : "big") + " endian");
    const std::string words = state.leftOut.text(state.leftOut.size());
    if (!words.empty())
        message(VORN_WARNING,
                file +
                    ": a Seismic Unix header has no place for these words, whose values are "
                    "left out: " +
                    words);
}

void finish(State& state)
{
    if (traces::isToBePublished(state.settings.file, state.written.traces > 0))
        publish(state);
}

// ---- In parts ----

// The traces are in the file that all parts write.
void save(State& state, vorn_kit::StateWriter& file)
{
    traces::requireRange(state.file);
    state.file.commit();
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < state.leftOut.size(); ++i)
        keys.emplace_back(state.leftOut.key(i)); // NOLINT(performance-inefficient-vector-operation)
    file(state.written, keys, state.leftOut);
}

// The counts of words with these keys.
traces::WordCounts countsOf(const std::vector<std::string>& keys, vorn_kit::StateReader& file)
{
    std::vector<const char*> known;
    known.reserve(keys.size());
    for (const std::string& key : keys) {
        const HeaderWord* word = VORN::findTraceHeaderWord(key);
        if (word == nullptr)
            file.refuse("it counts an unknown word");
        known.push_back(word->key);
    }
    return traces::WordCounts(known);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    Written& all = state.written;
    const auto part = file.get<Written>();
    const auto keys = file.get<std::vector<std::string>>();
    traces::WordCounts leftOut = countsOf(keys, file);
    file(leftOut);
    if (part.traces == 0)
        return;
    if (part.firstTrace != all.traces)
        file.refuse(traces::gapBetweenParts(part.firstTrace, all.traces));
    if (all.traces == 0) {
        all = part;
        state.leftOut = leftOut;
        return;
    }
    traces::requireLength(state.settings.file, part.firstTrace + 1, part.samples, all.samples);
    if (leftOut.size() != state.leftOut.size())
        file.refuse("its traces have other attributes than those of the parts before");
    state.leftOut.add(leftOut);
    all.traces += part.traces;
    all.bytes = part.bytes;
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
