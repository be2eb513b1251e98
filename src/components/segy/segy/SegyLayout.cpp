#include "segy/SegyLayout.h"

#include "file/InputFile.h"
#include "segy/HeaderWords.h"
#include "segy/TextHeader.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <string_view>

namespace VORN {

namespace {

constexpr int64_t fileHeaderBytes = segyTextBytes + segyBinaryBytes;
constexpr int mostExtendedHeaders = 1000;
constexpr int mostTraceHeaders = 64;
constexpr int64_t probes = 16; // trace headers that are compared
constexpr std::string_view endOfText = "((SEG: EndText))";

// Places of revision 2 in the binary header, in bytes from its start.
constexpr int longSamples = 68;
constexpr int longInterval = 72;
constexpr int orderConstant = 96;
constexpr int moreTraceHeaders = 306;
constexpr int firstTrace = 320;
constexpr int trailerStanzas = 328;

std::string number(int64_t value)
{
    return std::to_string(value);
}

// Follows the lengths in the trace headers from one header to the next.
struct Walk
{
    enum End
    {
        exact, ///< the last trace ends where the file does
        cut,   ///< the last trace ends behind the end of the file
        broken ///< there is a header without a length
    };
    End end = broken;
    std::vector<int64_t> starts; // of whole traces, and the end of the last
    int longest = 0;
    bool sameLength = true;
    bool sameInterval = true; // a walk gone astray through samples meets all kinds of values here

    std::size_t traces() const { return starts.empty() ? 0 : starts.size() - 1; }
};

// Determines the layout of one file. The steps stand in the order in which they are taken: each
// needs what those before it have found.
class LayoutResolver
{
public:
    LayoutResolver(InputFile& input, const SegyOverrides& given, std::vector<std::string>& lines)
        : file(input), overrides(given), notes(lines)
    {
    }

    SegyLayout run();

private:
    void readFileHeader();
    void resolveRevision();
    void resolveByteOrder();
    void resolveFormat();
    void resolveExtent();
    void resolveExtendedHeaders();
    void resolveTraceHeaders();
    void resolveSamples();
    void chooseSamples();
    void takeWalk(const Walk& walk);
    void noteSamples();
    void noteOtherSize();
    void resolveInterval();

    int countExtendedToEnd();
    bool looksLikeTextAt(int64_t offset);
    bool anyFits(int64_t dataStart);
    bool fits(int samples) const;
    bool holds(int samples) const;
    [[noreturn]] void refuseWithoutTrace() const;
    bool fitsFile(int samples, SampleFormat format) const;
    bool leads(int samples, int value);
    bool headersAgree(int samples, const char* key, int value);
    Walk walkTraces();

    int32_t binaryWord(const char* key, bool littleEndian) const
    {
        return readWord(binary.data(), *findBinaryHeaderWord(key), littleEndian);
    }
    int32_t binaryWord(const char* key) const { return binaryWord(key, found.littleEndian); }
    uint32_t binary32(int offset, bool littleEndian) const
    {
        const HeaderWord word{"", 1, 4, false, ""};
        return static_cast<uint32_t>(readWord(binary.data() + offset, word, littleEndian));
    }
    uint64_t binary64(int offset) const
    {
        const uint64_t first = binary32(offset, found.littleEndian);
        const uint64_t second = binary32(offset + 4, found.littleEndian);
        return found.littleEndian ? second << 32 | first : first << 32 | second;
    }
    int traceWord(int64_t headerStart, const char* key)
    {
        return readWord(file.peek(headerStart, segyTraceHeaderBytes), *findTraceHeaderWord(key),
                        found.littleEndian);
    }
    int statedSamples(bool littleEndian) const;
    void believeNarrowSamples();
    int64_t dataBytes() const { return found.dataEnd - found.dataStart; }

    InputFile& file;
    const SegyOverrides& overrides;
    std::vector<std::string>& notes;
    SegyLayout found;
    std::vector<unsigned char> binary;
    bool textReads = true;
    int inFile = 0;  // samples as the binary header states them
    int inTrace = 0; // as the first trace header does
};

SegyLayout LayoutResolver::run()
{
    readFileHeader();
    resolveRevision();
    resolveByteOrder();
    resolveFormat();
    resolveExtent();
    resolveExtendedHeaders();
    resolveTraceHeaders();
    resolveSamples();
    resolveInterval();
    found.samplesLittleEndian = overrides.samplesLittleEndian.value_or(found.littleEndian);
    return std::move(found);
}

void LayoutResolver::readFileHeader()
{
    found.fileBytes = file.size();
    if (found.fileBytes < fileHeaderBytes)
        file.fail("is not a SEG-Y file: it has " + number(found.fileBytes) +
                  " bytes, and the file header alone takes " + number(fileHeaderBytes));
    binary.resize(segyBinaryBytes);
    file.read(segyTextBytes, binary.data(), binary.size());
    const unsigned char* text = file.peek(0, segyTextBytes);
    found.ebcdic = looksLikeEbcdic(text, segyTextBytes);
    textReads = looksLikeText(text, segyTextBytes);
}

// The major number stands in the first byte; writers that store a plain 1 as a 16-bit integer, or
// that swap the word in little-endian files, are common.
void LayoutResolver::resolveRevision()
{
    const int first = binary[300];
    const int second = binary[301];
    if (first == 1 || first == 2)
        found.revision = first;
    else if (first == 0 && (second == 1 || second == 2))
        found.revision = second;
}

// The format code is small: read in the wrong order it is a multiple of 256. Revision 2 also has a
// constant to tell by. Where neither helps, the number of samples that fits the file does.
void LayoutResolver::resolveByteOrder()
{
    constexpr uint32_t constant = 0x01020304;
    constexpr uint32_t pairsSwapped = 0x02010403;
    const bool bigReads = isSampleFormat(binaryWord("format", false));
    const bool littleReads = isSampleFormat(binaryWord("format", true));
    if (found.revision == 2 && binary32(orderConstant, false) == pairsSwapped)
        file.fail("has the bytes of each pair exchanged, which cannot be read; convert it first");

    if (overrides.littleEndian)
        found.littleEndian = *overrides.littleEndian;
    else if (binary32(orderConstant, false) == constant)
        found.littleEndian = false;
    else if (binary32(orderConstant, true) == constant)
        found.littleEndian = true;
    else if (bigReads || littleReads)
        found.littleEndian = !bigReads;
    else if (overrides.format)
        found.littleEndian = !fitsFile(statedSamples(false), *overrides.format) &&
                             fitsFile(statedSamples(true), *overrides.format);
}

// Whether traces of so many samples fill the file behind its two headers.
bool LayoutResolver::fitsFile(int samples, SampleFormat format) const
{
    SegyLayout simple;
    simple.format = format;
    return samples > 0 && (found.fileBytes - fileHeaderBytes) % simple.traceBytes(samples) == 0;
}

void LayoutResolver::resolveFormat()
{
    constexpr int obsolete = 4;
    const int big = binaryWord("format", false);
    const int little = binaryWord("format", true);
    const int code = found.littleEndian ? little : big;
    if (overrides.format)
        found.format = *overrides.format;
    else if (isSampleFormat(code))
        found.format = static_cast<SampleFormat>(code);
    else if (code == obsolete)
        file.fail("has samples in format 4, fixed point with gain, which is obsolete and cannot be "
                  "read; convert it first");
    else
        file.fail("is not a SEG-Y file that can be read: the sample format code in bytes 3225-3226 "
                  "is " +
                  number(big) + " (big endian) or " + number(little) +
                  " (little endian), and neither is known; state `format` if you know it");
}

// Where traces begin and end as long as nothing else is known. Revision 2 may state both.
void LayoutResolver::resolveExtent()
{
    found.dataStart = fileHeaderBytes;
    found.dataEnd = found.fileBytes;
    if (found.revision != 2)
        return;
    const int32_t stanzas = static_cast<int32_t>(binary32(trailerStanzas, found.littleEndian));
    const int64_t room = (found.fileBytes - fileHeaderBytes) / segyTextBytes;
    if (stanzas > 0 && stanzas <= room)
        found.dataEnd -= static_cast<int64_t>(stanzas) * segyTextBytes;
}

void LayoutResolver::resolveExtendedHeaders()
{
    const int64_t room = (found.dataEnd - fileHeaderBytes) / segyTextBytes;
    int stated = binaryWord("next");
    if (found.revision == 2) {
        const uint64_t start = binary64(firstTrace);
        const uint64_t headers = (start - fileHeaderBytes) / segyTextBytes;
        if (start > fileHeaderBytes && headers <= static_cast<uint64_t>(room) &&
            headers * segyTextBytes + fileHeaderBytes == start)
            stated = static_cast<int>(std::min<uint64_t>(headers, INT_MAX));
    }
    if (stated == -1)
        stated = countExtendedToEnd();
    if (stated == 0)
        return;

    const int64_t start = fileHeaderBytes + static_cast<int64_t>(stated) * segyTextBytes;
    bool believed = stated > 0 && stated <= mostExtendedHeaders && stated <= room;
    // Files of revision 0 have any values in these bytes, and where the traces may as well begin
    // right behind the file header, the number may be wrong: then there must be text.
    if (believed && (found.revision == 0 || anyFits(fileHeaderBytes)))
        believed = looksLikeTextAt(fileHeaderBytes);
    if (!believed) {
        notes.push_back("the binary header states " + number(binaryWord("next")) +
                        " extended text headers, which the file does not hold; read as none");
        return;
    }
    found.extendedHeaders = stated;
    found.dataStart = start;
}

// A variable number of extended headers ends with the one that says so; 0 when none does.
int LayoutResolver::countExtendedToEnd()
{
    for (int i = 0; i < mostExtendedHeaders; ++i) {
        const int64_t start = fileHeaderBytes + static_cast<int64_t>(i) * segyTextBytes;
        if (start + segyTextBytes > found.dataEnd)
            break;
        const unsigned char* raw = file.peek(start, segyTextBytes);
        const bool ebcdic = looksLikeEbcdic(raw, segyTextBytes);
        if (decodeText(raw, segyTextBytes, ebcdic).find(endOfText) != std::string::npos)
            return i + 1;
    }
    notes.push_back("the binary header announces extended text headers up to one that says \"" +
                    std::string(endOfText) + "\", and none does; read as none");
    return 0;
}

bool LayoutResolver::looksLikeTextAt(int64_t offset)
{
    return looksLikeText(file.peek(offset, segyTextBytes), segyTextBytes);
}

// Whether traces from there on, of either stated length, end with the file.
bool LayoutResolver::anyFits(int64_t dataStart)
{
    const int64_t bytes = found.dataEnd - dataStart;
    if (bytes < segyTraceHeaderBytes)
        return bytes == 0;
    const auto endsThere = [&](int samples) {
        return samples > 0 && bytes % found.traceBytes(samples) == 0;
    };
    return endsThere(statedSamples(found.littleEndian)) || endsThere(traceWord(dataStart, "ns"));
}

void LayoutResolver::resolveTraceHeaders()
{
    if (found.revision != 2)
        return;
    const uint32_t more = binary32(moreTraceHeaders, found.littleEndian);
    if (more == 0 || more > mostTraceHeaders)
        return;
    const bool fitsWithout = anyFits(found.dataStart);
    found.traceHeaderBytes = segyTraceHeaderBytes * static_cast<int>(1 + more);
    if (fitsWithout && !anyFits(found.dataStart)) {
        notes.push_back("the binary header states " + number(more) +
                        " additional headers for each trace, which the file does not hold; read "
                        "as none");
        found.traceHeaderBytes = segyTraceHeaderBytes;
    }
}

// Samples per trace as the binary header states them; revision 2 has a wider field for long traces.
int LayoutResolver::statedSamples(bool littleEndian) const
{
    if (found.revision == 2) {
        const uint32_t wide = binary32(longSamples, littleEndian);
        if (wide > 0 && wide <= static_cast<uint32_t>(INT_MAX))
            return static_cast<int>(wide);
    }
    return binaryWord("hns", littleEndian);
}

bool LayoutResolver::fits(int samples) const
{
    return samples > 0 && dataBytes() % found.traceBytes(samples) == 0;
}

// Whether the file has room for one trace of so many samples.
bool LayoutResolver::holds(int samples) const
{
    return samples > 0 && found.traceBytes(samples) <= dataBytes();
}

// Whether headers that stand where traces of `samples` samples put them say `value` for `key`.
bool LayoutResolver::headersAgree(int samples, const char* key, int value)
{
    const int64_t stride = found.traceBytes(samples);
    const int64_t traces = dataBytes() / stride;
    const int64_t step = std::max<int64_t>(1, traces / probes);
    for (int64_t i = 0; i < traces; i += step) {
        if (traceWord(found.dataStart + i * stride, key) != value)
            return false;
    }
    return traces == 0 || traceWord(found.dataStart + (traces - 1) * stride, key) == value;
}

// The same with at least two headers to compare: traces of so many samples lead from one to the
// next.
bool LayoutResolver::leads(int samples, int value)
{
    return samples > 0 && dataBytes() / found.traceBytes(samples) > 1 &&
           headersAgree(samples, "ns", value);
}

Walk LayoutResolver::walkTraces()
{
    Walk walk;
    const HeaderWord& ns = *findTraceHeaderWord("ns");
    const HeaderWord& dt = *findTraceHeaderWord("dt");
    int firstLength = 0;
    int firstInterval = 0;
    int64_t at = found.dataStart;
    walk.starts.push_back(at);
    while (at < found.dataEnd) {
        if (at + found.traceHeaderBytes > found.dataEnd) {
            walk.end = Walk::cut;
            return walk;
        }
        const unsigned char* header = file.peek(at, segyTraceHeaderBytes);
        const int samples = readWord(header, ns, found.littleEndian);
        const int interval = readWord(header, dt, found.littleEndian);
        if (samples <= 0)
            return walk;
        if (at == found.dataStart) {
            firstLength = samples;
            firstInterval = interval;
        }
        walk.sameInterval = walk.sameInterval && interval == firstInterval;
        at += found.traceBytes(samples);
        if (at > found.dataEnd) {
            walk.end = Walk::cut;
            return walk;
        }
        walk.sameLength = walk.sameLength && samples == firstLength;
        walk.longest = std::max(walk.longest, samples);
        walk.starts.push_back(at);
    }
    walk.end = Walk::exact;
    return walk;
}

void LayoutResolver::resolveSamples()
{
    inFile = statedSamples(found.littleEndian);
    believeNarrowSamples();
    if (dataBytes() >= segyTraceHeaderBytes)
        inTrace = traceWord(found.dataStart, "ns");
    chooseSamples();
    if (found.samples <= 0)
        file.fail("states no number of samples per trace: it is " + number(inFile) +
                  " in the binary header and " + number(inTrace) +
                  " in the first trace header; state `samples`");
    if (!found.variableLength) {
        found.traces = dataBytes() / found.traceBytes(found.samples);
        found.cutBytes = dataBytes() % found.traceBytes(found.samples);
    }
    // The length goes to all that follows: one that the file does not hold would make a few wrong
    // bytes ask for any amount of memory.
    if (found.traces == 0)
        refuseWithoutTrace();
    noteSamples();
    if (!overrides.format && !overrides.samples)
        noteOtherSize();
}

// The wide field of revision 2 may hold anything in files whose writer knows the narrow one only.
void LayoutResolver::believeNarrowSamples()
{
    const int narrow = binaryWord("hns");
    if (narrow == inFile || overrides.samples || holds(inFile) || !holds(narrow))
        return;
    notes.push_back("the binary header states " + number(inFile) +
                    " samples per trace in bytes 3269-3272, of which the file does not hold one "
                    "trace, and " +
                    number(narrow) + " in bytes 3221-3222; read as " + number(narrow));
    inFile = narrow;
}

void LayoutResolver::refuseWithoutTrace() const
{
    const std::string stated =
        overrides.samples ? "`samples` states " + number(found.samples) + " samples per trace"
                          : "the binary header states " + number(inFile) +
                                " samples per trace and the first trace header " + number(inTrace);
    file.fail("holds no whole trace: " + stated + "; a trace of " + number(found.samples) +
              " samples in format " + number(static_cast<int>(found.format)) + ", " +
              sampleFormatName(found.format) + ", takes " +
              number(found.traceBytes(found.samples)) + " bytes with its header, and " +
              number(dataBytes()) + " bytes follow the headers of the file" +
              (dataBytes() > found.traceHeaderBytes ? "; if its traces are shorter, state `samples`"
                                                    : ""));
}

// Rules that apply in order.
void LayoutResolver::chooseSamples()
{
    if (overrides.samples) {
        found.samples = *overrides.samples;
        return;
    }
    // Everything agrees: nearly all files.
    if (fits(inFile) && headersAgree(inFile, "ns", inFile)) {
        found.samples = inFile;
        return;
    }
    // Each trace header is found where the one before it says, up to the very end of the file.
    const Walk walk = walkTraces();
    if (walk.end == Walk::exact && walk.traces() > 0) {
        takeWalk(walk);
        return;
    }
    if (fits(inFile) || fits(inTrace)) {
        found.samples = fits(inFile) ? inFile : inTrace;
        return;
    }
    // The same, but the file is cut. A walk that has gone astray through samples would meet
    // headers of all kinds.
    const bool statedFixed = binaryWord("fixed") == 1;
    if (walk.end == Walk::cut && walk.traces() > 1 && walk.sameInterval && !walk.sameLength &&
        !statedFixed)
    {
        takeWalk(walk);
        return;
    }
    // Cut, with traces of one length: the one that leads from header to header.
    const bool traceLeads = leads(inTrace, inTrace);
    const bool fileLeads = leads(inFile, inTrace);
    const bool onlyTraceFits = holds(inTrace) && !holds(inFile);
    found.samples = inFile <= 0 || (traceLeads && !fileLeads) || onlyTraceFits ? inTrace : inFile;
    if (!textReads && !traceLeads && !fileLeads)
        file.fail("is not a SEG-Y file: its first " + number(segyTextBytes) +
                  " bytes are not text, and " + number(dataBytes()) +
                  " bytes of traces are not a multiple of what " + number(inFile) +
                  " samples per trace (binary header) or " + number(inTrace) +
                  " (first trace header) take; state `samples` if it is one");
}

void LayoutResolver::takeWalk(const Walk& walk)
{
    found.samples = walk.longest;
    if (walk.sameLength && walk.end == Walk::exact)
        return;
    found.variableLength = true;
    found.traceStarts = walk.starts;
    found.traces = static_cast<int64_t>(walk.traces());
    found.cutBytes = found.dataEnd - walk.starts.back();
}

void LayoutResolver::noteSamples()
{
    const int64_t whole = found.traceBytes(found.samples);
    const std::string lengths =
        found.variableLength ? " traces of different lengths, up to " : " traces of ";
    const std::string reading = number(found.traces) + lengths + number(found.samples) + " samples";
    const bool contradicted = inFile != found.samples || inTrace != found.samples;
    if (contradicted || found.variableLength)
        notes.push_back("the binary header states " + number(inFile) +
                        " samples per trace, the first trace header " + number(inTrace) + ", and " +
                        number(dataBytes()) + " bytes of traces hold " + reading +
                        (found.cutBytes == 0 ? " exactly" : "") + "; read as that");
    if (found.cutBytes != 0)
        notes.push_back(
            "the last trace is cut: " + number(found.cutBytes) +
            (found.variableLength ? " bytes of it" : " of its " + number(whole) + " bytes") +
            " are there; it is left out, and " + number(found.traces) + " whole traces are read");
}

// Where the stated length leads from header to header with samples of another size only, the format
// code is wrong.
void LayoutResolver::noteOtherSize()
{
    const SampleFormat stated = found.format;
    if (fits(inFile) || leads(inFile, inFile))
        return;
    constexpr SampleFormat sizes[] = {SampleFormat::int16, SampleFormat::ibmFloat,
                                      SampleFormat::int24, SampleFormat::int8,
                                      SampleFormat::ieeeDouble};
    for (const SampleFormat other : sizes) {
        found.format = other;
        const bool leadsToTheEnd = fits(inFile) && leads(inFile, inFile);
        const int64_t traces = inFile > 0 ? dataBytes() / found.traceBytes(inFile) : 0;
        found.format = stated;
        if (!leadsToTheEnd)
            continue;
        notes.push_back("the format code says " + std::string(sampleFormatName(stated)) + ", but " +
                        number(traces) + " traces of " + number(inFile) +
                        " samples fill the file, each header in its place, where samples have " +
                        number(sampleBytes(other)) + " bytes; state `format`, as in `format: " +
                        (other == SampleFormat::ibmFloat ? "ieee" : sampleFormatKey(other)) + "`");
        return;
    }
}

void LayoutResolver::resolveInterval()
{
    int stated = binaryWord("hdt");
    if (found.revision == 2) {
        const double precise = std::bit_cast<double>(binary64(longInterval));
        if (precise >= 1 && precise <= INT_MAX)
            stated = static_cast<int>(std::lround(precise));
    }
    const int first = traceWord(found.dataStart, "dt");
    found.interval = overrides.interval.value_or(stated > 0 ? stated : first);
    if (!overrides.interval && found.interval > 0 && found.traces > 0 && stated != first)
        notes.push_back("the binary header states a sample interval of " + number(stated) +
                        " microseconds, the first trace header " + number(first) + "; read as " +
                        number(found.interval));
    if (found.interval == 0)
        notes.push_back("no header states a sample interval; state `interval`");
}

} // namespace

SegyLayout resolveSegyLayout(InputFile& file, const SegyOverrides& overrides,
                             std::vector<std::string>& notes)
{
    return LayoutResolver(file, overrides, notes).run();
}

} // namespace VORN
