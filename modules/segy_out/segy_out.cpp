// segy_out: writes a SEG-Y file, one trace per call.
//
// The temporary file is made before the job runs, so that an output that cannot be written is known
// at once. Its header waits for the first trace: only then are length, interval and the history of
// the processing certain.

#include "MOXKernel.h"
#include "segy/HeaderWords.h"
#include "segy/HexBytes.h"
#include "segy/SegyWriter.h"
#include "segy/TextHeader.h"
#include "segy_out_parameters.hpp"
#include "traces/AttributesToHeader.h"
#include "traces/JobFiles.h"
#include "traces/ReaderParameters.h"
#include "vorn_kit.hpp"
#include "vorn_parts.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using VORN::OutputFile;
using VORN::SampleFormat;
using VORN::SegyDescription;
using VORN::SegyWriter;

using vorn_kit::message;
using vorn_kit::messageOnce;

namespace {

constexpr bool littleEndian = false; // every reader knows the other order

// ---- Parameters ----

struct Settings
{
    std::string file;
    std::optional<SampleFormat> format; // the input's where none is given
    std::optional<int> revision;        // the input's where none is given
    VORN::WordMap map;
    bool overwrite = true;
};

Settings readSettings()
{
    const segy_out_parameters::Parameters given = segy_out_parameters::readParameters();
    Settings settings;
    settings.file = given.file;
    if (given.format)
        settings.format = VORN::sampleFormatOfKey(wordOf(*given.format));
    settings.revision = given.revision;
    if (given.words)
        settings.map = traces::wordMap(*given.words);
    settings.overwrite = given.overwrite;
    return settings;
}

// ---- From one call to the next ----

// What the end message tells of the file, or of the range of it that this process has written.
struct Written
{
    int64_t firstTrace = 0; // number, from 0, in the file
    int64_t traces = 0;
    int64_t lost = 0;      // samples that IBM floats cannot hold
    int64_t firstLost = 0; // number, from 1, of the first trace with such samples
    int64_t bytes = 0;     // of the file up to the last trace
    int32_t samples = 0;   // per trace
    SampleFormat format = SampleFormat::ibmFloat;
    int32_t revision = 0;

    template <typename File>
    void transfer(File& file)
    {
        file(firstTrace, traces, lost, firstLost, bytes, samples, format, revision);
    }
};

struct State
{
    explicit State(Settings given)
        : settings(std::move(given)),
          file(settings.file, settings.overwrite, "the output file", getModuleName()),
          words(settings.file, VORN::traceHeaderWords(), settings.map, littleEndian)
    {
    }

    Settings settings;
    OutputFile file;
    std::unique_ptr<SegyWriter> writer; // from the first trace on
    SegyDescription description;        // likewise
    traces::AttributesToHeader words;
    Written written;
};

// ---- The file header ----

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

std::string upstream(const char* key)
{
    return getMetaDataValue(VORN_SCOPE_MODULE, key).getStrValue();
}

std::vector<unsigned char> upstreamBytes(const char* key)
{
    return VORN::bytesOfHex(upstream(key));
}

// Unlike lines, the cards of a text header count when they are blank, the last one too.
std::vector<std::string> cardsOf(const std::string& text)
{
    std::vector<std::string> cards = linesOf(text);
    if (!text.empty() && text.back() == '\n')
        cards.emplace_back();
    return cards;
}

// The values of the modules' `history$` in the order of the processing, a line each. Reading the
// key itself would give them from the last to the first with nothing between.
std::vector<std::string> processingHistory()
{
    const std::string wanted = "history$";
    char* block = nullptr;
    const int size = packMetaDataValues(&block);
    const std::unique_ptr<char, decltype(&std::free)> owner(block, &std::free);
    if (block == nullptr)
        throw std::bad_alloc(); // a header without the processing would look complete
    const std::string packed(block, static_cast<std::size_t>(size));
    for (std::size_t at = 0; at < packed.size();) {
        const std::string key = packed.c_str() + at;
        at += key.size() + 1;
        if (at >= packed.size())
            break;
        const std::string value = packed.c_str() + at;
        at += value.size() + 1;
        if (key != wanted)
            continue;
        std::vector<std::string> lines = linesOf(value);
        std::erase(lines, std::string());
        return lines;
    }
    return {};
}

// Whether traces have been reordered or combined, after which the input's sorting code, fold and
// traces per ensemble are no longer valid.
bool isRearranged(const std::vector<std::string>& history)
{
    return std::any_of(history.begin(), history.end(), [](const std::string& line) {
        const std::string step = line.substr(0, line.find(' '));
        return step == "sort" || step == "stack";
    });
}

std::vector<std::pair<std::string, int32_t>> binaryWords(bool rearranged)
{
    constexpr const char* ofTheOrder[] = {"tsort", "fold", "ntrpr", "nart"};
    std::vector<std::pair<std::string, int32_t>> words;
    for (const std::string& line : linesOf(upstream("segy.binary"))) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        const std::string key = line.substr(0, equals);
        if (rearranged && std::count(std::begin(ofTheOrder), std::end(ofTheOrder), key) > 0)
            continue;
        words.emplace_back(key, string2int(line.substr(equals + 1)));
    }
    return words;
}

// The input's: revision 1 gives a meaning to bytes that revision 0 leaves to the writer of a file.
// Data from no SEG-Y file are revision 1, and so are headers that revision 0 has no place for.
int chooseRevision(const Settings& settings, const std::string& ofInput)
{
    if (settings.revision)
        return *settings.revision;
    if (ofInput != "0")
        return 1;
    if (upstream("segy.text.ext").empty())
        return 0;
    messageOnce(VORN_INFORMATION, "revision",
                settings.file + ": is revision 1, though the input says 0, since revision 0 "
                                "has no extended text headers");
    return 1;
}

// The input's. IEEE floats hold samples of any other coding as the job has them; integers would cut
// what the processing has made of them.
SampleFormat chooseFormat(const Settings& settings)
{
    const std::string ofInput = upstream("segy.format");
    if (settings.format)
        return *settings.format;
    if (ofInput.empty() || ofInput == "ibm")
        return SampleFormat::ibmFloat;
    if (ofInput != "ieee" && ofInput != "su")
        messageOnce(VORN_INFORMATION, "format",
                    settings.file + ": the samples of the input are " + ofInput +
                        "; they are written as 4-byte IEEE floats");
    return SampleFormat::ieeeFloat;
}

SegyDescription describe(const Settings& settings, void* in)
{
    const std::vector<std::string> history = processingHistory();
    const std::string inputRevision = upstream("segy.revision");
    const int revision = chooseRevision(settings, inputRevision);
    // Cards that already agree with the file stay unchanged.
    const bool sameRevision = inputRevision == std::to_string(revision);
    std::size_t leftOut = 0;
    SegyDescription description;
    description.samples = getTraceLength(in);
    description.interval = getTraceSampleInterval(in);
    description.format = chooseFormat(settings);
    description.revision = revision;
    description.cards =
        VORN::composeCards(cardsOf(upstream("segy.text")), history,
                           sameRevision ? std::nullopt : std::optional(revision), &leftOut);
    description.textBytes = upstreamBytes("segy.text.bytes");
    description.extendedCards = cardsOf(upstream("segy.text.ext"));
    description.extendedBytes = upstreamBytes("segy.text.ext.bytes");
    description.unassignedBytes = upstreamBytes("segy.binary.rest");
    description.binaryWords = binaryWords(isRearranged(history));
    if (leftOut > 0)
        messageOnce(VORN_WARNING, "cards",
                    settings.file + ": the text header has no free card for the first " +
                        std::to_string(leftOut) + " of its " + std::to_string(history.size()) +
                        " lines on the processing");
    if (revision == 0 && !description.extendedCards.empty())
        messageOnce(VORN_WARNING, "extended",
                    settings.file + ": the extended text headers of the input are left out; " +
                        "revision 0 has none");
    return description;
}

// ---- Trace by trace ----

void begin(State& state, void* in)
{
    state.description = describe(state.settings, in);
    state.writer = std::make_unique<SegyWriter>(state.file, state.description);
    state.written.firstTrace = state.file.firstTrace();
    state.written.samples = state.description.samples;
    state.written.format = state.description.format;
    state.written.revision = state.description.revision;
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
    state.writer->write(header.data(), samples);
    ++written.traces;
    written.bytes = state.writer->bytesOf(number);
    written.lost = static_cast<int64_t>(state.writer->lostSamples());
    if (written.firstLost == 0 && written.lost > 0)
        written.firstLost = number;
}

// ---- After the last trace ----

void publish(State& state)
{
    const Written& written = state.written;
    traces::refuseInputs(state.settings.file);
    state.file.expectSize(written.bytes);
    state.file.commit();
    if (written.lost > 0)
        message(VORN_WARNING, state.settings.file + ": " + std::to_string(written.lost) +
                                  " samples, the first in trace " +
                                  std::to_string(written.firstLost) +
                                  ", are infinite (written as the largest IBM float) or NaN "
                                  "(written as 0)");
    message(VORN_INFORMATION, state.settings.file + ": " + std::to_string(written.traces) +
                                  " traces of " + std::to_string(written.samples) +
                                  " samples written, " + std::to_string(state.file.size()) +
                                  " bytes, " + VORN::sampleFormatName(written.format) +
                                  ", revision " + std::to_string(written.revision));
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
    file(state.written);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    Written& all = state.written;
    const auto part = file.get<Written>();
    if (part.traces == 0)
        return;
    if (part.firstTrace != all.traces)
        file.refuse(traces::gapBetweenParts(part.firstTrace, all.traces));
    if (all.traces == 0) {
        all = part;
        return;
    }
    traces::requireLength(state.settings.file, part.firstTrace + 1, part.samples, all.samples);
    if (part.format != all.format || part.revision != all.revision)
        file.refuse("its file has another format or revision");
    if (all.firstLost == 0)
        all.firstLost = part.firstLost;
    all.lost += part.lost;
    all.traces += part.traces;
    all.bytes = part.bytes;
}

std::unique_ptr<State> prepare()
{
    Settings settings = readSettings();
    vorn_kit::requiredInput();
    traces::refuseInputs(settings.file);
    traces::refuseSecondWriter(settings.file);
    return std::make_unique<State>(std::move(settings));
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
