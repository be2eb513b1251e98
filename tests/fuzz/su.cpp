// Seismic Unix files, as su_in reads them and su_out writes them. The input is the file; what a
// user may state is taken from its first bytes.
#include "FuzzInput.h"

#include "FuzzDirectory.h"
#include "segy/HeaderWords.h"
#include "su/SuReader.h"
#include "su/SuWriter.h"

#include <array>
#include <bit>
#include <memory>

namespace {

using VORN::HeaderWord;
using VORN::OutputFile;
using VORN::segyTraceHeaderBytes;
using VORN::SuOverrides;
using VORN::SuReader;
using VORN::SuWriter;
using VORN::TraceFileError;

using Header = std::array<unsigned char, segyTraceHeaderBytes>;
using Samples = std::vector<float>;

constexpr int64_t mostTraces = 200;
constexpr float untouched = 12345.5F;

// One line that begins with the name of the file.
void checkError(const TraceFileError& error, const std::string& path)
{
    const std::string text = error.what();
    VORN_ASSERT(text.rfind(path + ": ", 0) == 0 && text.size() > path.size() + 2);
    VORN_ASSERT(isPlainLine(text));
}

int64_t traceBytes(const SuReader& reader)
{
    return segyTraceHeaderBytes + int64_t{4} * reader.samples();
}

std::unique_ptr<SuReader> openReader(const std::string& path, const SuOverrides& stated)
{
    try {
        return std::make_unique<SuReader>(path, stated);
    } catch (const TraceFileError& error) {
        checkError(error, path);
        return nullptr;
    }
}

void checkReader(const SuReader& reader, const SuOverrides& stated, std::size_t fileBytes)
{
    VORN_ASSERT(reader.samples() > 0);
    VORN_ASSERT(reader.samples() == stated.samples.value_or(reader.samples()));
    VORN_ASSERT(reader.littleEndian() == stated.littleEndian.value_or(reader.littleEndian()));
    VORN_ASSERT(reader.interval() >= 0);
    VORN_ASSERT(reader.traces() == static_cast<int64_t>(fileBytes) / traceBytes(reader));
    for (const std::string& line : reader.warnings())
        VORN_ASSERT(!line.empty() && isPlainLine(line));
}

void readTrace(SuReader& reader, int64_t index, const uint8_t* file)
{
    const auto count = static_cast<std::size_t>(reader.samples());
    Header header;
    Samples samples(count + 1, untouched);
    reader.read(index, header.data(), samples.data());
    VORN_ASSERT(samples[count] == untouched);
    const uint8_t* expected = file + index * traceBytes(reader);
    VORN_ASSERT(std::memcmp(header.data(), expected, header.size()) == 0);
    if (reader.littleEndian() == (std::endian::native == std::endian::little))
        VORN_ASSERT(std::memcmp(samples.data(), expected + header.size(), 4 * count) == 0);
}

void checkNoTrace(SuReader& reader, int64_t index)
{
    bool refused = false;
    try {
        reader.read(index, nullptr, nullptr);
    } catch (const TraceFileError& error) {
        refused = true;
        checkError(error, reader.path());
    }
    VORN_ASSERT(refused);
}

void readTraces(SuReader& reader, const uint8_t* file)
{
    const int64_t traces = reader.traces();
    for (int64_t i = 0; i < std::min(traces, mostTraces); ++i)
        readTrace(reader, i, file);
    if (traces > 0)
        readTrace(reader, traces - 1, file);
    for (const int64_t wrong : {traces, traces + 1, int64_t{-1}, INT64_MIN, INT64_MAX})
        checkNoTrace(reader, wrong);
}

// Every word comes back as it was read, whatever is in the header, and changes no other.
void checkWords(const uint8_t* data, bool littleEndian)
{
    Header header;
    std::memcpy(header.data(), data, header.size());
    for (const HeaderWord& word : VORN::suHeaderWords()) {
        const int32_t value = VORN::readWord(header.data(), word, littleEndian);
        VORN_ASSERT(VORN::writeWord(header.data(), word, littleEndian, value));
        VORN_ASSERT(VORN::readWord(header.data(), word, littleEndian) == value);
        VORN_ASSERT(*word.key != '\0');
    }
    VORN_ASSERT(std::memcmp(header.data(), data, header.size()) == 0);
}

// Null when the samples are more than a header can state.
std::unique_ptr<SuWriter> openWriter(OutputFile& file, const SuReader& reader)
{
    try {
        return std::make_unique<SuWriter>(file, reader.samples(), reader.littleEndian());
    } catch (const TraceFileError& error) {
        VORN_ASSERT(reader.samples() > 65535);
        checkError(error, file.path());
        return nullptr;
    }
}

bool writeCopy(SuReader& reader, const std::string& path)
{
    OutputFile file(path, true);
    const std::unique_ptr<SuWriter> writer = openWriter(file, reader);
    if (writer == nullptr)
        return false;
    Header header;
    Samples read(static_cast<std::size_t>(reader.samples()));
    for (int64_t i = 0; i < reader.traces(); ++i) {
        reader.read(i, header.data(), read.data());
        writer->write(header.data(), read.data());
    }
    VORN_ASSERT(file.size() == reader.traces() * traceBytes(reader));
    file.commit();
    return true;
}

// The copy is the file without what was cut, apart from the number of samples in its headers; it
// needs no statement but the order.
void checkCopy(SuReader& reader)
{
    const std::string path = fuzzDirectory() + "/copy.su";
    if (!writeCopy(reader, path))
        return;
    SuOverrides order;
    order.littleEndian = reader.littleEndian();
    const std::unique_ptr<SuReader> copy = openReader(path, order);
    VORN_ASSERT(copy != nullptr && copy->warnings().empty());
    VORN_ASSERT(copy->traces() == reader.traces());
    VORN_ASSERT(copy->samples() == reader.samples());
    const auto count = static_cast<std::size_t>(reader.samples());
    Samples before(count);
    Samples after(count);
    for (int64_t i = 0; i < reader.traces(); ++i) {
        reader.read(i, nullptr, before.data());
        copy->read(i, nullptr, after.data());
        VORN_ASSERT(std::memcmp(before.data(), after.data(), 4 * count) == 0);
    }
}

SuOverrides statedIn(const uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const int wanted = input.byte();
    SuOverrides stated;
    if ((wanted & 1) != 0) {
        const int high = input.byte();
        stated.samples = 256 * high + input.byte() - 2;
    }
    if ((wanted & 2) != 0)
        stated.samples = (wanted & 4) != 0 ? INT_MAX : INT_MIN;
    if ((wanted & 8) != 0)
        stated.littleEndian = (wanted & 16) != 0;
    return stated;
}

void readFile(const std::string& path, const SuOverrides& stated, const uint8_t* data,
              std::size_t size)
{
    const std::unique_ptr<SuReader> reader = openReader(path, stated);
    if (reader == nullptr)
        return;
    checkReader(*reader, stated, size);
    readTraces(*reader, data);
    checkWords(data, reader->littleEndian());
    if (reader->traces() > 0 && reader->traces() <= mostTraces)
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
