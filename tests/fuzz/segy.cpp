// SEG-Y files: the input is one, read as segy_in reads it. It is read a second time with what a
// user may state, taken from its own first bytes, and what was read is written and read again.
#include "FuzzInput.h"

#include "FuzzDirectory.h"
#include "segy/SegyReader.h"
#include "segy/SegyWriter.h"
#include "segy/TextHeader.h"

#include <memory>

namespace {

using VORN::HeaderWord;
using VORN::SegyLayout;
using VORN::SegyOverrides;
using VORN::SegyReader;
using VORN::TraceFileError;

using Samples = std::vector<float>;

constexpr int64_t mostTraces = 200; // read from a file that has more
constexpr float untouched = 12345.5F;

// One line that begins with the name of the file.
void checkError(const TraceFileError& error, const std::string& path)
{
    const std::string text = error.what();
    VORN_ASSERT(text.rfind(path + ": ", 0) == 0 && text.size() > path.size() + 2);
    VORN_ASSERT(isPlainLine(text));
}

std::unique_ptr<SegyReader> openReader(const std::string& path, const SegyOverrides& overrides)
{
    try {
        return std::make_unique<SegyReader>(path, overrides);
    } catch (const TraceFileError& error) {
        checkError(error, path);
        return nullptr;
    }
}

void checkOverrides(const SegyLayout& layout, const SegyOverrides& overrides)
{
    VORN_ASSERT(layout.samples == overrides.samples.value_or(layout.samples));
    VORN_ASSERT(layout.format == overrides.format.value_or(layout.format));
    VORN_ASSERT(layout.littleEndian == overrides.littleEndian.value_or(layout.littleEndian));
    VORN_ASSERT(layout.interval == overrides.interval.value_or(layout.interval));
}

// Every trace lies within the file, and together with what is cut they fill the place for traces.
void checkLayout(const SegyLayout& layout, std::size_t fileBytes)
{
    VORN_ASSERT(layout.fileBytes == static_cast<int64_t>(fileBytes));
    VORN_ASSERT(layout.dataStart >= VORN::segyTextBytes + VORN::segyBinaryBytes);
    VORN_ASSERT(layout.dataStart <= layout.dataEnd && layout.dataEnd <= layout.fileBytes);
    VORN_ASSERT(VORN::isSampleFormat(static_cast<int>(layout.format)));
    VORN_ASSERT(layout.traceHeaderBytes >= VORN::segyTraceHeaderBytes);
    VORN_ASSERT(layout.samples > 0 && layout.interval >= 0);
    VORN_ASSERT(layout.traces >= 0 && layout.cutBytes >= 0);
    const int64_t tracesEnd = layout.dataEnd - layout.cutBytes;
    if (!layout.variableLength) {
        VORN_ASSERT(layout.dataStart + layout.traces * layout.traceBytes(layout.samples) ==
                    tracesEnd);
        VORN_ASSERT(layout.traceStarts.empty());
        return;
    }
    VORN_ASSERT(layout.traceStarts.size() == static_cast<std::size_t>(layout.traces) + 1);
    VORN_ASSERT(layout.traceStarts.front() == layout.dataStart);
    VORN_ASSERT(layout.traceStarts.back() == tracesEnd);
    VORN_ASSERT(std::is_sorted(layout.traceStarts.begin(), layout.traceStarts.end()));
}

void checkTexts(const SegyReader& reader)
{
    VORN_ASSERT(reader.text().size() == VORN::segyTextBytes && isPlainLine(reader.text()));
    VORN_ASSERT(reader.extendedTexts().size() ==
                static_cast<std::size_t>(reader.layout().extendedHeaders));
    for (const std::string& text : reader.extendedTexts())
        VORN_ASSERT(text.size() == VORN::segyTextBytes && isPlainLine(text));
    for (const std::string& note : reader.warnings())
        VORN_ASSERT(!note.empty() && isPlainLine(note));
    for (const HeaderWord& word : VORN::binaryHeaderWords())
        reader.binaryWord(word.key);
}

int64_t startOf(const SegyLayout& layout, int64_t index)
{
    return layout.variableLength ? layout.traceStarts[static_cast<std::size_t>(index)]
                                 : layout.dataStart + index * layout.traceBytes(layout.samples);
}

// The header is the file's own bytes. As many samples are written as the trace has, not one more.
Samples readTrace(SegyReader& reader, int64_t index, const uint8_t* file)
{
    const int samples = reader.samplesOf(index);
    VORN_ASSERT(samples >= 0 && samples <= reader.layout().samples);
    const auto count = static_cast<std::size_t>(samples);
    unsigned char header[VORN::segyTraceHeaderBytes];
    Samples read(count + 1, untouched);
    reader.read(index, header, read.data());
    VORN_ASSERT(read[count] == untouched);
    read.pop_back();

    const uint8_t* expected = file + startOf(reader.layout(), index);
    VORN_ASSERT(std::memcmp(header, expected, sizeof header) == 0);
    VORN_ASSERT(std::memcmp(reader.header(index), expected, sizeof header) == 0);
    Samples decoded(count);
    VORN::decodeSamples(expected + reader.layout().traceHeaderBytes, reader.layout().format,
                        reader.layout().littleEndian, count, decoded.data());
    VORN_ASSERT(count == 0 || std::memcmp(read.data(), decoded.data(), 4 * count) == 0);
    return read;
}

void checkNoTrace(SegyReader& reader, int64_t index)
{
    try {
        reader.read(index, nullptr, nullptr);
        VORN_ASSERT(!"a trace that is not there was read");
    } catch (const TraceFileError& error) {
        checkError(error, reader.path());
    }
}

void readTraces(SegyReader& reader, const uint8_t* file)
{
    const int64_t traces = reader.layout().traces;
    const int64_t some = std::min(traces, mostTraces);
    for (int64_t i = 0; i < some; ++i)
        readTrace(reader, i, file);
    for (int64_t i = some - 1; i >= 0; i /= 2) { // back, and here and there
        readTrace(reader, i, file);
        if (i == 0)
            break;
    }
    if (traces > some)
        readTrace(reader, traces - 1, file);
    for (const int64_t wrong : {traces, traces + 1, int64_t{-1}, INT64_MIN, INT64_MAX})
        checkNoTrace(reader, wrong);
}

// What the user states: the first bytes of the file, which are free text.
SegyOverrides statedIn(const uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const int wanted = input.byte();
    SegyOverrides overrides;
    if ((wanted & 1) != 0)
        overrides.samples =
            256 * input.byte() + input.byte() + ((wanted & 64) != 0 ? INT_MAX / 2 : 0);
    const auto format = input.byte() % 17;
    if ((wanted & 2) != 0 && VORN::isSampleFormat(format))
        overrides.format = static_cast<VORN::SampleFormat>(format);
    if ((wanted & 4) != 0)
        overrides.littleEndian = (wanted & 8) != 0;
    if ((wanted & 16) != 0)
        overrides.interval = 1 + input.byte();
    return overrides;
}

void writeTraces(SegyReader& reader, VORN::OutputFile& output)
{
    const SegyLayout& layout = reader.layout();
    VORN::SegyDescription description;
    description.samples = layout.samples;
    description.interval = layout.interval;
    description.format = VORN::SampleFormat::ieeeFloat;
    description.revision = std::min(layout.revision, 1);
    description.cards = VORN::textCards(reader.text());
    description.textBytes = reader.textBytes();
    description.unassignedBytes = reader.unassignedBytes();
    for (const HeaderWord& word : VORN::binaryHeaderWords())
        description.binaryWords.emplace_back(word.key, reader.binaryWord(word.key));
    VORN::SegyWriter writer(output, description);
    std::vector<unsigned char> header(VORN::segyTraceHeaderBytes);
    Samples samples(static_cast<std::size_t>(layout.samples));
    for (int64_t i = 0; i < layout.traces; ++i) {
        reader.read(i, header.data(), samples.data());
        writer.write(header.data(), samples.data());
    }
    output.commit();
}

// What is written reads back as it was, with nothing stated.
void checkCopy(SegyReader& reader)
{
    const std::string path = fuzzDirectory() + "/copy.sgy";
    try {
        VORN::OutputFile output(path, true);
        writeTraces(reader, output);
    } catch (const TraceFileError& error) {
        checkError(error, path); // more samples, or a longer interval, than the writer can state
        return;
    }
    SegyReader copy(path);
    const SegyLayout& layout = copy.layout();
    VORN_ASSERT(layout.traces == reader.layout().traces);
    VORN_ASSERT(layout.samples == reader.layout().samples && !layout.variableLength);
    VORN_ASSERT(!layout.littleEndian && layout.format == VORN::SampleFormat::ieeeFloat);
    VORN_ASSERT(layout.cutBytes == 0);
    VORN_ASSERT(copy.textBytes() == reader.textBytes() && copy.text() == reader.text());
    Samples before(static_cast<std::size_t>(layout.samples));
    Samples after(before);
    for (int64_t i = 0; i < layout.traces; ++i) {
        reader.read(i, nullptr, before.data());
        copy.read(i, nullptr, after.data());
        VORN_ASSERT(std::memcmp(before.data(), after.data(), 4 * before.size()) == 0);
    }
}

void readFile(const std::string& path, const SegyOverrides& overrides, const uint8_t* data,
              std::size_t size)
{
    const std::unique_ptr<SegyReader> reader = openReader(path, overrides);
    if (reader == nullptr)
        return;
    checkOverrides(reader->layout(), overrides);
    checkLayout(reader->layout(), size);
    checkTexts(*reader);
    readTraces(*reader, data);
    const bool mayCopy = reader->layout().traces > 0 && reader->layout().traces <= mostTraces &&
                         !reader->layout().variableLength;
    if (mayCopy)
        checkCopy(*reader);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size)
{
    const MemoryFile file(data, size);
    readFile(file.path(), {}, data, size);
    readFile(file.path(), statedIn(data, size), data, size);
    return 0;
}
