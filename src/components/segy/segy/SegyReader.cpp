#include "segy/SegyReader.h"

#include "segy/SampleCoding.h"
#include "segy/TextHeader.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace VORN {

namespace {

// Of short traces the neighbours come along with the header for nothing; of long ones they do not.
constexpr int64_t worthReadingAhead = 1 << 12;
// Where samples are left, a header costs a call of the system, or the copy of a trace.
constexpr int64_t worthCopying = 1 << 11;
constexpr int64_t headersAhead = 1 << 10;

} // namespace

SegyReader::SegyReader(const std::string& path, const SegyOverrides& overrides)
    : file(path), where(resolveSegyLayout(file, overrides, notes)), binary(segyBinaryBytes),
      given(overrides)
{
    file.read(segyTextBytes, binary.data(), binary.size());
    const unsigned char* text = file.peek(0, segyTextBytes);
    rawText.assign(text, text + segyTextBytes);
    textHeader = decodeText(text, segyTextBytes, where.ebcdic);
    if (const std::string damage = damageOfText(text, segyTextBytes, where.ebcdic); !damage.empty())
        notes.push_back("the text header " + damage);
    for (int i = 0; i < where.extendedHeaders; ++i) {
        const int64_t start =
            segyTextBytes + segyBinaryBytes + static_cast<int64_t>(i) * segyTextBytes;
        const unsigned char* raw = file.peek(start, segyTextBytes);
        rawExtended.insert(rawExtended.end(), raw, raw + segyTextBytes);
        extended.push_back(decodeText(raw, segyTextBytes, looksLikeEbcdic(raw, segyTextBytes)));
    }
    // A coding that the caller states is not doubted.
    if (overrides.format || overrides.samplesLittleEndian)
        return;
    if (const std::string doubt = doubtOfCoding(file, where, textHeader); !doubt.empty())
        notes.push_back(doubt);
}

int32_t SegyReader::binaryWord(const char* key) const
{
    return readWord(binary.data(), *findBinaryHeaderWord(key), where.littleEndian);
}

std::vector<unsigned char> SegyReader::unassignedBytes() const
{
    constexpr std::array<unsigned char, 4> littleConstant = {4, 3, 2, 1};
    std::vector<unsigned char> bytes = binary;
    const auto clear = [&](int first, int last) { // bytes of the binary header, counted from 1
        std::fill(bytes.begin() + first - 1, bytes.begin() + last, static_cast<unsigned char>(0));
    };
    clear(1, 60);
    if (where.revision == 2) {
        clear(61, 100);
        clear(307, 332);
    }
    // Many readers look at the number of extended headers whatever the revision: one that is not
    // true keeps them from reading a copy.
    clear(where.revision > 0 ? 301 : 305, 306);
    const auto constant = bytes.begin() + 96;
    if (std::equal(littleConstant.begin(), littleConstant.end(), constant))
        std::reverse(constant, constant + 4);
    return bytes;
}

int64_t SegyReader::startOf(int64_t index) const
{
    if (index < 0 || index >= where.traces)
        file.fail("has no trace of index " + std::to_string(index) + " (from 0); it holds " +
                  std::to_string(where.traces));
    return where.variableLength ? where.traceStarts[static_cast<std::size_t>(index)]
                                : where.dataStart + index * where.traceBytes(where.samples);
}

int SegyReader::samplesOf(int64_t index) const
{
    if (!where.variableLength)
        return where.samples;
    const int64_t start = startOf(index);
    const int64_t bytes = where.traceStarts[static_cast<std::size_t>(index) + 1] - start;
    return static_cast<int>((bytes - where.traceHeaderBytes) / sampleBytes(where.format));
}

const unsigned char* SegyReader::header(int64_t index)
{
    const int64_t start = startOf(index);
    return where.traceBytes(where.samples) < worthReadingAhead
               ? file.at(start, segyTraceHeaderBytes)
               : file.peek(start, segyTraceHeaderBytes);
}

// From a disc, traces that are not long come faster as a whole than their headers do one by one.
const unsigned char* SegyReader::nextHeader(int64_t index)
{
    const int64_t traceBytes = where.traceBytes(where.samples);
    if (traceBytes < worthCopying)
        return header(index);
    if (traceBytes < (1 << 16) && index >= announced) {
        announced = std::min(where.traces, index + headersAhead);
        willRead(index, announced - index);
    }
    return file.peek(startOf(index), segyTraceHeaderBytes);
}

void SegyReader::willRead(int64_t index, int64_t count) const
{
    const int64_t last = index + count - 1;
    const int64_t start = startOf(index);
    file.willRead(start, startOf(last) + where.traceBytes(samplesOf(last)) - start);
}

void SegyReader::read(int64_t index, unsigned char* headerTo, float* samplesTo)
{
    const int samples = samplesOf(index);
    const unsigned char* bytes = file.at(startOf(index), where.traceBytes(samples));
    if (headerTo != nullptr)
        std::memcpy(headerTo, bytes, segyTraceHeaderBytes);
    if (samplesTo != nullptr)
        decodeSamples(bytes + where.traceHeaderBytes, where.format, where.samplesLittleEndian,
                      static_cast<std::size_t>(samples), samplesTo);
}

void SegyReader::readSamples(int64_t index, int64_t first, int64_t count, float* samplesTo)
{
    const int64_t start = startOf(index);
    if (first < 0 || count < 0 || first > samplesOf(index) - count)
        file.fail("trace " + std::to_string(index + 1) + " has no samples " +
                  std::to_string(first) + " to " + std::to_string(first + count) +
                  " (from 0); it has " + std::to_string(samplesOf(index)));
    const int width = sampleBytes(where.format);
    const unsigned char* bytes =
        file.at(start + where.traceHeaderBytes + first * width, count * width);
    decodeSamples(bytes, where.format, where.samplesLittleEndian, static_cast<std::size_t>(count),
                  samplesTo);
}

} // namespace VORN
