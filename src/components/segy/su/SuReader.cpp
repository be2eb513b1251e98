#include "su/SuReader.h"

#include "segy/HeaderWords.h"
#include "segy/Samples.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace VORN {

namespace {

constexpr bool nativeIsLittle = std::endian::native == std::endian::little;
constexpr int64_t probes = 16; // trace headers that are compared
// Of short traces the neighbours come along with the header for nothing; of long ones they do not.
constexpr int64_t worthReadingAhead = 1 << 12;

int64_t traceBytes(int samples)
{
    return segyTraceHeaderBytes + 4 * static_cast<int64_t>(samples);
}

const HeaderWord& samplesWord()
{
    static const HeaderWord& word = *findTraceHeaderWord("ns");
    return word;
}

std::string number(int64_t value)
{
    return std::to_string(value);
}

} // namespace

SuReader::SuReader(const std::string& path, const SuOverrides& overrides) : file(path)
{
    if (file.size() < segyTraceHeaderBytes)
        file.fail("is not a Seismic Unix file: it has " + number(file.size()) +
                  " bytes, and one trace header alone takes " + number(segyTraceHeaderBytes));
    resolveLayout(overrides);
    const HeaderWord& interval = *findTraceHeaderWord("dt");
    microseconds = readWord(file.peek(0, segyTraceHeaderBytes), interval, little);
}

int SuReader::statedSamples(bool littleEndian)
{
    return readWord(file.peek(0, segyTraceHeaderBytes), samplesWord(), littleEndian);
}

// Whether headers that stand where traces of `samples` samples put them state that number.
bool SuReader::headersAgree(int samples, bool littleEndian)
{
    const int64_t whole = file.size() / traceBytes(samples);
    const int64_t step = std::max<int64_t>(1, whole / probes);
    for (int64_t i = 0; i < whole; i += step) {
        const unsigned char* header = file.peek(i * traceBytes(samples), segyTraceHeaderBytes);
        if (readWord(header, samplesWord(), littleEndian) != samples)
            return false;
    }
    return true;
}

// Whether one of the orders leads through the file; the machine's own is tried first. A size that
// fits decides before headers that agree, which is all that a cut file offers.
bool SuReader::resolveOrder(const SuOverrides& overrides)
{
    const auto fits = [&](bool littleEndian) {
        const int samples = overrides.samples.value_or(statedSamples(littleEndian));
        return samples > 0 && file.size() % traceBytes(samples) == 0;
    };
    const auto agrees = [&](bool littleEndian, int64_t leastTraces) {
        const int samples = statedSamples(littleEndian);
        return samples > 0 && file.size() / traceBytes(samples) >= leastTraces &&
               headersAgree(samples, littleEndian);
    };
    const auto find = [&](const auto& test) {
        for (const bool order : {nativeIsLittle, !nativeIsLittle}) {
            if (overrides.littleEndian.value_or(order) == order && test(order)) {
                little = order;
                return true;
            }
        }
        return false;
    };
    return find([&](bool order) { return fits(order) && agrees(order, 1); }) ||
           find([&](bool order) { return !overrides.samples && fits(order); }) ||
           find([&](bool order) { return agrees(order, 2); }) ||
           find([&](bool order) { return agrees(order, 1); });
}

void SuReader::resolveLayout(const SuOverrides& overrides)
{
    little = overrides.littleEndian.value_or(nativeIsLittle);
    const bool found = resolveOrder(overrides);
    samplesPerTrace = overrides.samples.value_or(statedSamples(little));
    if (!found && !overrides.samples)
        file.fail("is not a Seismic Unix file: its first trace header states " +
                  number(statedSamples(true)) + " samples read as little endian and " +
                  number(statedSamples(false)) + " as big endian, and neither leads through its " +
                  number(file.size()) + " bytes; state `samples` if it is one");
    if (samplesPerTrace < 1)
        file.fail("cannot be read with " + number(samplesPerTrace) + " samples per trace");

    count = file.size() / traceBytes(samplesPerTrace);
    if (count == 0)
        file.fail("holds no whole trace: `samples` states " + number(samplesPerTrace) +
                  " samples per trace; a trace of " + number(samplesPerTrace) +
                  " samples in 4-byte floats takes " + number(traceBytes(samplesPerTrace)) +
                  " bytes with its header, and the file has " + number(file.size()) +
                  " bytes; if its traces are shorter, state another number of `samples`");
    const int64_t cut = file.size() % traceBytes(samplesPerTrace);
    if (statedSamples(little) != samplesPerTrace)
        notes.push_back("the first trace header states " + number(statedSamples(little)) +
                        " samples; read as " + number(count) + " traces of " +
                        number(samplesPerTrace));
    if (cut != 0)
        notes.push_back("the last trace is cut: " + number(cut) + " of its " +
                        number(traceBytes(samplesPerTrace)) +
                        " bytes are there; it is left out, and " + number(count) +
                        " whole traces are read");
}

int64_t SuReader::startOf(int64_t index) const
{
    if (index < 0 || index >= count)
        file.fail("has no trace of index " + number(index) + " (from 0); it holds " +
                  number(count));
    return index * traceBytes(samplesPerTrace);
}

const unsigned char* SuReader::header(int64_t index)
{
    const int64_t start = startOf(index);
    return traceBytes(samplesPerTrace) < worthReadingAhead ? file.at(start, segyTraceHeaderBytes)
                                                           : file.peek(start, segyTraceHeaderBytes);
}

// As SegyReader does it.
const unsigned char* SuReader::nextHeader(int64_t index)
{
    constexpr int64_t worthCopying = 1 << 11;
    constexpr int64_t headersAhead = 1 << 10;
    if (traceBytes(samplesPerTrace) < worthCopying)
        return header(index);
    if (traceBytes(samplesPerTrace) < (1 << 16) && index >= announced) {
        announced = std::min(count, index + headersAhead);
        willRead(index, announced - index);
    }
    return file.peek(startOf(index), segyTraceHeaderBytes);
}

void SuReader::willRead(int64_t index, int64_t traces) const
{
    file.willRead(startOf(index), traces * traceBytes(samplesPerTrace));
}

void SuReader::read(int64_t index, unsigned char* headerTo, float* samplesTo)
{
    const unsigned char* trace = file.at(startOf(index), traceBytes(samplesPerTrace));
    if (headerTo != nullptr)
        std::memcpy(headerTo, trace, segyTraceHeaderBytes);
    if (samplesTo != nullptr)
        decodeSamples(trace + segyTraceHeaderBytes, SampleFormat::ieeeFloat, little,
                      static_cast<std::size_t>(samplesPerTrace), samplesTo);
}

} // namespace VORN
