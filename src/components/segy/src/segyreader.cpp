#include "segyreader.h"

#include "textheader.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace VORN {

namespace {

constexpr int64_t fileHeaderBytes = segyTextBytes + segyBinaryBytes;
constexpr int64_t windowBytes = 1 << 20;
constexpr int mostExtendedHeaders = 1000;
constexpr std::string_view endOfText = "((SEG: EndText))";

const HeaderWord& traceWord(const char* key)
{
    return *findTraceHeaderWord(key);
}

uint32_t load32(const unsigned char* from, bool littleEndian)
{
    const HeaderWord word{"", 1, 4, false, ""};
    return static_cast<uint32_t>(readWord(from, word, littleEndian));
}

std::string number(int64_t value)
{
    return std::to_string(value);
}

} // namespace

SegyReader::SegyReader(const std::string& path, const SegyOverrides& overrides) : name(path)
{
    descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        fail(std::string("cannot be opened: ") + std::strerror(errno));
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(descriptor);
        fail("is not a regular file");
    }
    where.fileBytes = status.st_size;
    try {
        readFileHeader();
        settleByteOrderAndFormat(overrides);
        settleExtendedHeaders();
        settleSamples(overrides);
        settleInterval(overrides);
    } catch (...) {
        close(descriptor);
        throw;
    }
}

SegyReader::~SegyReader()
{
    close(descriptor);
}

void SegyReader::fail(const std::string& what) const
{
    throw TraceFileError(name + ": " + what);
}

void SegyReader::readFileHeader()
{
    if (where.fileBytes < fileHeaderBytes)
        fail("is no SEG-Y file: it has " + number(where.fileBytes) +
             " bytes, and the file header alone takes 3600");
    rawText.resize(segyTextBytes);
    binary.resize(segyBinaryBytes);
    readExactly(0, rawText.data(), rawText.size());
    readExactly(segyTextBytes, binary.data(), binary.size());
    where.ebcdic = looksLikeEbcdic(rawText.data(), rawText.size());
    textHeader = decodeText(rawText.data(), rawText.size(), where.ebcdic);
}

// The format code is small: read in the wrong order it is a multiple of 256. Revision 2 also has a
// constant to tell by.
void SegyReader::settleByteOrderAndFormat(const SegyOverrides& overrides)
{
    const HeaderWord& word = *findBinaryHeaderWord("format");
    const int big = readWord(binary.data(), word, false);
    const int little = readWord(binary.data(), word, true);
    constexpr uint32_t orderConstant = 16909060;
    const unsigned char* constant = binary.data() + 96;

    if (overrides.littleEndian)
        where.littleEndian = *overrides.littleEndian;
    else if (load32(constant, false) == orderConstant)
        where.littleEndian = false;
    else if (load32(constant, true) == orderConstant)
        where.littleEndian = true;
    else
        where.littleEndian = !isSampleFormat(big) && isSampleFormat(little);

    const int code = where.littleEndian ? little : big;
    if (overrides.format)
        where.format = *overrides.format;
    else if (isSampleFormat(code))
        where.format = static_cast<SampleFormat>(code);
    else
        fail("is no SEG-Y file that can be read: the sample format code in bytes 3225-3226 is " +
             number(big) + " (big endian) or " + number(little) +
             " (little endian), and neither is known; state `format` if you know it");

    const int revision = readWord(binary.data(), *findBinaryHeaderWord("rev"), where.littleEndian);
    // 1.0 is 256; writers that store a plain 1 are common.
    where.revision = revision >= 256 ? revision / 256 : revision;
    if (where.revision > 2)
        where.revision = 0;
}

void SegyReader::settleExtendedHeaders()
{
    int stated = binaryWord("next");
    if (stated == -1)
        stated = countExtendedToEnd();
    const int64_t room = (where.fileBytes - fileHeaderBytes) / segyTextBytes;
    bool believed = stated > 0 && stated <= mostExtendedHeaders && stated <= room;
    // Files of revision 0 have anything in these bytes: believe them when there is text.
    if (believed && where.revision == 0) {
        std::vector<unsigned char> first(segyTextBytes);
        readExactly(fileHeaderBytes, first.data(), first.size());
        believed = looksLikeText(first.data(), first.size());
    }
    where.extendedHeaders = believed ? stated : 0;
    if (stated != 0 && !believed)
        notes.push_back("the binary header states " + number(stated) +
                        " extended text headers, which the file does not hold; read as none");
    where.dataStart = fileHeaderBytes + static_cast<int64_t>(where.extendedHeaders) * segyTextBytes;

    std::vector<unsigned char> raw(segyTextBytes);
    for (int i = 0; i < where.extendedHeaders; ++i) {
        readExactly(fileHeaderBytes + static_cast<int64_t>(i) * segyTextBytes, raw.data(),
                    raw.size());
        extended.push_back(
            decodeText(raw.data(), raw.size(), looksLikeEbcdic(raw.data(), raw.size())));
    }
}

// A variable number of extended headers ends with the one that says so.
int SegyReader::countExtendedToEnd() const
{
    std::vector<unsigned char> raw(segyTextBytes);
    for (int i = 0; i < mostExtendedHeaders; ++i) {
        const int64_t start = fileHeaderBytes + static_cast<int64_t>(i) * segyTextBytes;
        if (start + segyTextBytes > where.fileBytes)
            return 0;
        readExactly(start, raw.data(), raw.size());
        const bool ebcdic = looksLikeEbcdic(raw.data(), raw.size());
        if (decodeText(raw.data(), raw.size(), ebcdic).find(endOfText) != std::string::npos)
            return i + 1;
    }
    return 0;
}

int64_t SegyReader::traceBytes(int samples) const
{
    return segyTraceHeaderBytes + static_cast<int64_t>(samples) * sampleBytes(where.format);
}

// Samples per trace as the binary header states them; revision 2 has a wider field for long traces.
int SegyReader::statedSamples() const
{
    if (where.revision == 2) {
        const uint32_t wide = load32(binary.data() + 68, where.littleEndian);
        if (wide > 0 && wide <= static_cast<uint32_t>(INT_MAX))
            return static_cast<int>(wide);
    }
    return binaryWord("hns");
}

// The number of samples stands in the binary header and in every trace header, and the size of the
// file says which is right.
void SegyReader::settleSamples(const SegyOverrides& overrides)
{
    const int64_t dataBytes = where.fileBytes - where.dataStart;
    const int inFile = statedSamples();
    int inTrace = 0;
    if (dataBytes >= segyTraceHeaderBytes) {
        unsigned char first[segyTraceHeaderBytes];
        readExactly(where.dataStart, first, sizeof first);
        inTrace = word(first, traceWord("ns"));
    }
    const auto fits = [&](int samples) {
        return samples > 0 && dataBytes % traceBytes(samples) == 0;
    };
    const std::string numbers = "the binary header states " + number(inFile) +
                                " samples per trace, the first trace header " + number(inTrace) +
                                ", and " + number(dataBytes) + " bytes of traces hold ";

    if (overrides.samples)
        where.samples = *overrides.samples;
    else if (fits(inFile))
        where.samples = inFile;
    else if (fits(inTrace))
        where.samples = inTrace;
    else if (int longest = 0; dataBytes > 0 && walkTraces(traceStarts, longest)) {
        where.variableLength = true;
        where.samples = longest;
    } else
        where.samples = inFile > 0 ? inFile : inTrace;

    if (where.samples <= 0)
        fail("states no number of samples per trace (" + numbers +
             "an unknown number of traces); state `samples`");
    if (where.variableLength) {
        where.traces = static_cast<int64_t>(traceStarts.size()) - 1;
        notes.push_back("traces have different lengths, up to " + number(where.samples) +
                        " samples");
        return;
    }
    where.traces = dataBytes / traceBytes(where.samples);
    where.cutBytes = dataBytes % traceBytes(where.samples);
    const std::string reading =
        number(where.traces) + " traces of " + number(where.samples) + " samples";
    const bool contradicted =
        (inFile != where.samples && inFile != 0) || (inTrace != where.samples && inTrace != 0);
    if (contradicted && where.traces > 0)
        notes.push_back(numbers + reading + (where.cutBytes == 0 ? " exactly" : "") +
                        "; read as that");
    if (where.cutBytes != 0)
        notes.push_back("the last trace is cut: " + number(where.cutBytes) + " of its " +
                        number(traceBytes(where.samples)) + " bytes are there; it is left out of " +
                        reading);
    if (where.traces == 0)
        notes.push_back("the file holds no whole trace: " + number(dataBytes) +
                        " bytes of traces, and one trace takes " +
                        number(traceBytes(where.samples)));
}

// Whether the lengths in the trace headers lead exactly to the end of the file.
bool SegyReader::walkTraces(std::vector<int64_t>& starts, int& longest)
{
    starts.clear();
    int64_t at = where.dataStart;
    while (at + segyTraceHeaderBytes <= where.fileBytes) {
        const int samples = word(bytesAt(at, segyTraceHeaderBytes), traceWord("ns"));
        if (samples <= 0)
            break;
        starts.push_back(at);
        longest = std::max(longest, samples);
        at += traceBytes(samples);
    }
    const bool exact = at == where.fileBytes;
    if (exact)
        starts.push_back(at);
    else
        starts.clear();
    return exact;
}

void SegyReader::settleInterval(const SegyOverrides& overrides)
{
    const int inFile = binaryWord("hdt");
    const int inTrace = where.traces > 0 ? word(header(0), traceWord("dt")) : 0;
    if (overrides.interval)
        where.interval = *overrides.interval;
    else
        where.interval = inFile > 0 ? inFile : inTrace;
    if (!overrides.interval && inFile > 0 && inTrace > 0 && inFile != inTrace)
        notes.push_back("the binary header states a sample interval of " + number(inFile) +
                        " microseconds, the first trace header " + number(inTrace) + "; read as " +
                        number(where.interval));
}

int32_t SegyReader::binaryWord(const char* key) const
{
    return readWord(binary.data(), *findBinaryHeaderWord(key), where.littleEndian);
}

int64_t SegyReader::startOf(int64_t index) const
{
    if (index < 0 || index >= where.traces)
        fail("has no trace " + number(index + 1) + "; it holds " + number(where.traces));
    return where.variableLength ? traceStarts[static_cast<std::size_t>(index)]
                                : where.dataStart + index * traceBytes(where.samples);
}

int SegyReader::samplesOf(int64_t index)
{
    if (!where.variableLength)
        return where.samples;
    const int64_t bytes = traceStarts[static_cast<std::size_t>(index) + 1] - startOf(index);
    return static_cast<int>((bytes - segyTraceHeaderBytes) / sampleBytes(where.format));
}

const unsigned char* SegyReader::header(int64_t index)
{
    return bytesAt(startOf(index), segyTraceHeaderBytes);
}

void SegyReader::read(int64_t index, unsigned char* headerTo, float* samplesTo)
{
    const int samples = samplesOf(index);
    const unsigned char* bytes = bytesAt(startOf(index), traceBytes(samples));
    if (headerTo != nullptr)
        std::memcpy(headerTo, bytes, segyTraceHeaderBytes);
    decodeSamples(bytes + segyTraceHeaderBytes, where.format, where.littleEndian,
                  static_cast<std::size_t>(samples), samplesTo);
}

// The bytes are in the window, or the window moves there and takes in what follows.
const unsigned char* SegyReader::bytesAt(int64_t offset, int64_t count)
{
    const int64_t windowEnd = windowStart + static_cast<int64_t>(window.size());
    if (offset < windowStart || offset + count > windowEnd) {
        const int64_t left = where.fileBytes - offset;
        window.resize(static_cast<std::size_t>(std::min(left, std::max(count, windowBytes))));
        windowStart = offset;
        readExactly(offset, window.data(), window.size());
        if (static_cast<int64_t>(window.size()) < count)
            fail("ends within a trace");
    }
    return window.data() + (offset - windowStart);
}

void SegyReader::readExactly(int64_t offset, unsigned char* to, std::size_t count) const
{
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(descriptor, to + done, count - done, offset + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail(std::string("cannot be read: ") + std::strerror(errno));
        if (got == 0)
            fail("ends at byte " + number(offset + static_cast<int64_t>(done)) +
                 "; it was longer when it was opened");
        done += static_cast<std::size_t>(got);
    }
}

} // namespace VORN
