#include "segy/SegyWriter.h"

#include "segy/HeaderWords.h"
#include "segy/TextHeader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace VORN {

namespace {

constexpr bool bigEndian = false; // the order that every reader knows; see `writeWord`
constexpr int mostOf16Bits = 65535;
constexpr std::size_t cardsPerHeader = 40;

void setBinaryWord(unsigned char* header, const std::string& key, int32_t value)
{
    if (const HeaderWord* word = findBinaryHeaderWord(key))
        writeWord(header, *word, bigEndian, value);
}

bool isOfRevision1(const std::string& key)
{
    return key == "rev" || key == "fixed" || key == "next";
}

int extendedHeaders(const SegyDescription& description)
{
    if (description.revision == 0)
        return 0;
    return static_cast<int>((description.extendedCards.size() + cardsPerHeader - 1) /
                            cardsPerHeader);
}

std::array<unsigned char, segyBinaryBytes> binaryHeader(const SegyDescription& description)
{
    std::array<unsigned char, segyBinaryBytes> header{};
    if (description.unassignedBytes.size() == header.size())
        std::copy_n(description.unassignedBytes.begin(), header.size(), header.begin());
    for (const auto& [key, value] : description.binaryWords) {
        if (!isOfRevision1(key))
            setBinaryWord(header.data(), key, value);
    }
    setBinaryWord(header.data(), "hdt", description.interval);
    setBinaryWord(header.data(), "hns", description.samples);
    setBinaryWord(header.data(), "format", static_cast<int>(description.format));
    if (description.revision == 1) {
        setBinaryWord(header.data(), "rev", 0x0100);
        setBinaryWord(header.data(), "fixed", 1);
    }
    // Also in revision 0, which does not know the word: many readers step over as many headers.
    setBinaryWord(header.data(), "next", extendedHeaders(description));
    return header;
}

void check(const OutputFile& file, const SegyDescription& description)
{
    const auto refuse = [&](const std::string& what) {
        throw TraceFileError(file.path() + ": " + what);
    };
    if (description.samples < 1 || description.samples > mostOf16Bits)
        refuse("traces of " + std::to_string(description.samples) +
               " samples cannot be written; SEG-Y up to revision 1 states 1 to 65535");
    if (description.interval < 0 || description.interval > mostOf16Bits)
        refuse("a sample interval of " + std::to_string(description.interval) +
               " microseconds cannot be written; SEG-Y up to revision 1 states 0 to 65535");
}

void appendCards(std::vector<unsigned char>& bytes, const std::vector<std::string>& cards,
                 const std::vector<unsigned char>& original)
{
    const std::vector<unsigned char> text = encodeCards(cards, original);
    bytes.insert(bytes.end(), text.begin(), text.end());
}

// The bytes of text header `index` among some; none where there are not so many.
std::vector<unsigned char> textHeader(const std::vector<unsigned char>& bytes, std::size_t index)
{
    constexpr std::size_t length = segyTextBytes;
    if (bytes.size() < (index + 1) * length)
        return {};
    const auto start = bytes.begin() + static_cast<std::ptrdiff_t>(index * length);
    return {start, start + segyTextBytes};
}

// All that stands before the first trace.
std::vector<unsigned char> fileHeader(const SegyDescription& description)
{
    std::vector<unsigned char> bytes;
    appendCards(bytes, description.cards, description.textBytes);
    const auto binary = binaryHeader(description);
    bytes.insert(bytes.end(), binary.begin(), binary.end());

    const std::vector<std::string>& cards = description.extendedCards;
    const std::size_t headers = static_cast<std::size_t>(extendedHeaders(description));
    for (std::size_t i = 0; i < headers; ++i) {
        const auto first = cards.begin() + static_cast<std::ptrdiff_t>(i * cardsPerHeader);
        const auto left = cards.end() - first;
        const auto some = std::min(left, static_cast<std::ptrdiff_t>(cardsPerHeader));
        appendCards(bytes, {first, first + some}, textHeader(description.extendedBytes, i));
    }
    return bytes;
}

} // namespace

SegyWriter::SegyWriter(OutputFile& output, const SegyDescription& description)
    : file(output), samplesPerTrace(static_cast<std::size_t>(description.samples)),
      interval(description.interval), format(description.format)
{
    check(file, description);
    const std::vector<unsigned char> header = fileHeader(description);
    headerBytes = static_cast<int64_t>(header.size());
    if (file.firstTrace() > 0)
        file.startAt(bytesOf(file.firstTrace()));
    else
        std::memcpy(file.append(header.size()), header.data(), header.size());
}

int64_t SegyWriter::bytesOf(int64_t traces) const
{
    const auto perTrace = static_cast<int64_t>(segyTraceHeaderBytes + 4 * samplesPerTrace);
    return headerBytes + traces * perTrace;
}

void SegyWriter::write(const unsigned char* header, const float* samples)
{
    static const HeaderWord& ns = *findTraceHeaderWord("ns");
    static const HeaderWord& dt = *findTraceHeaderWord("dt");
    unsigned char* room = file.append(segyTraceHeaderBytes + 4 * samplesPerTrace);
    std::memcpy(room, header, segyTraceHeaderBytes);
    writeWord(room, ns, bigEndian, static_cast<int32_t>(samplesPerTrace));
    writeWord(room, dt, bigEndian, interval);
    lost += encodeSamples(samples, samplesPerTrace, format, bigEndian, room + segyTraceHeaderBytes);
    ++count;
}

} // namespace VORN
