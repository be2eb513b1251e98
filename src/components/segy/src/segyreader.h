/// @file segyreader.h
///
/// Reads SEG-Y files as they are found: headers that contradict each other, either byte order,
/// either text coding, cut last traces.
#ifndef SEGYREADER_H
#define SEGYREADER_H

#include "headerwords.h"
#include "samples.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace VORN {

/// A file that cannot be read. The text is one line that names the file, what is wrong and what to
/// do.
class TraceFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What a person knows better than the file.
struct SegyOverrides
{
    std::optional<int> samples; ///< per trace
    std::optional<SampleFormat> format;
    std::optional<bool> littleEndian;
    std::optional<int> interval; ///< microseconds
};

/// How a file is laid out, after all contradictions have been settled.
struct SegyLayout
{
    bool littleEndian = false;
    SampleFormat format = SampleFormat::ibmFloat;
    int revision = 0;   ///< major revision: 0, 1 or 2
    int samples = 0;    ///< per trace; the longest one's where lengths vary
    int interval = 0;   ///< microseconds; 0 when no header states it
    bool ebcdic = true; ///< coding of the text headers
    int extendedHeaders = 0;
    int64_t dataStart = 0; ///< byte of the first trace header
    int64_t fileBytes = 0;
    int64_t traces = 0;          ///< whole traces
    int64_t cutBytes = 0;        ///< bytes behind the last whole trace
    bool variableLength = false; ///< each trace header states the length of its trace
};

/// An open SEG-Y file. Opening settles the layout; traces are then read in any order, forward
/// reading being the cheap one (a few traces per call of the operating system).
class SegyReader
{
public:
    /// Throws TraceFileError for what cannot be read as SEG-Y. Requires nothing of the file's size:
    /// nothing is read or allocated that the file does not hold.
    explicit SegyReader(const std::string& path, const SegyOverrides& overrides = {});
    ~SegyReader();
    SegyReader(const SegyReader&) = delete;
    SegyReader& operator=(const SegyReader&) = delete;

    const std::string& path() const { return name; }
    const SegyLayout& layout() const { return where; }
    /// What was contradictory or damaged, and how it was read: one line each, with all the numbers.
    const std::vector<std::string>& warnings() const { return notes; }

    /// 3200 characters of ASCII, 40 cards without line ends.
    const std::string& text() const { return textHeader; }
    /// The extended text headers, decoded one after another.
    const std::vector<std::string>& extendedTexts() const { return extended; }
    const unsigned char* binaryHeader() const { return binary.data(); }
    int32_t binaryWord(const char* key) const;

    /// The 240 header bytes of trace `index` (from 0); valid until the next read.
    const unsigned char* header(int64_t index);
    /// Samples of trace `index`; `layout().samples` unless lengths vary.
    int samplesOf(int64_t index);
    /// Reads header and samples of trace `index` (from 0): 240 bytes to `headerTo` (may be null),
    /// and `samplesOf(index)` floats to `samplesTo`, which must hold `layout().samples`. Throws
    /// TraceFileError when the file has become shorter or cannot be read.
    void read(int64_t index, unsigned char* headerTo, float* samplesTo);
    int32_t word(const unsigned char* traceHeader, const HeaderWord& word) const
    {
        return readWord(traceHeader, word, where.littleEndian);
    }

private:
    void readFileHeader();
    void settleByteOrderAndFormat(const SegyOverrides& overrides);
    void settleExtendedHeaders();
    void settleSamples(const SegyOverrides& overrides);
    void settleInterval(const SegyOverrides& overrides);
    bool walkTraces(std::vector<int64_t>& starts, int& longest);
    int countExtendedToEnd() const;
    int statedSamples() const;
    int64_t traceBytes(int samples) const;
    int64_t startOf(int64_t index) const;
    const unsigned char* bytesAt(int64_t offset, int64_t count);
    void readExactly(int64_t offset, unsigned char* to, std::size_t count) const;
    [[noreturn]] void fail(const std::string& what) const;

    std::string name;
    int descriptor = -1;
    SegyLayout where;
    std::vector<std::string> notes;
    std::vector<unsigned char> binary;
    std::vector<unsigned char> rawText;
    std::string textHeader;
    std::vector<std::string> extended;
    std::vector<int64_t> traceStarts;  // of traces of varying length, and the end of the last
    std::vector<unsigned char> window; // bytes of the file from `windowStart`
    int64_t windowStart = 0;
};

} // namespace VORN

#endif
