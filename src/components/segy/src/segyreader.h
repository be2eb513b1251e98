/// @file segyreader.h
///
/// Reads SEG-Y files as they are found: headers that contradict each other, either byte order,
/// either text coding, cut last traces.
#ifndef SEGYREADER_H
#define SEGYREADER_H

#include "headerwords.h"
#include "samples.h"
#include "segylayout.h"
#include "tracefile.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VORN {

/// An open SEG-Y file. Opening settles the layout; traces are then read in any order, forward
/// reading being the cheap one (a few traces per call of the operating system).
class SegyReader
{
public:
    /// Throws TraceFileError for what cannot be read as SEG-Y. Requires nothing of the file's size:
    /// nothing is read or allocated that the file does not hold.
    explicit SegyReader(const std::string& path, const SegyOverrides& overrides = {});

    const std::string& path() const { return file.path(); }
    const SegyLayout& layout() const { return where; }
    /// What was contradictory or damaged, and how it was read: one line each, with all the numbers.
    const std::vector<std::string>& warnings() const { return notes; }

    /// 3200 printable characters of Latin-1, 40 cards without line ends.
    const std::string& text() const { return textHeader; }
    /// The extended text headers, decoded one after another.
    const std::vector<std::string>& extendedTexts() const { return extended; }
    /// @name The same as it is in the file
    /// @{
    const std::vector<unsigned char>& textBytes() const { return rawText; }
    const std::vector<unsigned char>& extendedTextBytes() const { return rawExtended; }
    /// @}
    const unsigned char* binaryHeader() const { return binary.data(); }
    /// The 400 bytes of the binary header, of which those have been set to 0 to which the file's
    /// revision gives a meaning. The others are as in the file, whatever its byte order, except
    /// that the constant that tells the order says big endian, since all that is written is.
    std::vector<unsigned char> unassignedBytes() const;
    /// The word of the binary header of that key. Requires: it is one of `binaryHeaderWords()`.
    int32_t binaryWord(const char* key) const;

    /// The 240 header bytes of trace `index` (from 0); valid until the next read.
    const unsigned char* header(int64_t index);
    /// Samples of trace `index`; `layout().samples` unless lengths vary.
    int samplesOf(int64_t index) const;
    /// Reads header and samples of trace `index` (from 0): 240 bytes to `headerTo` and
    /// `samplesOf(index)` floats to `samplesTo`, which must hold `layout().samples`; either may be
    /// null. Throws TraceFileError when the file has become shorter or cannot be read; the same
    /// trace, asked for again, is at hand and cannot fail.
    void read(int64_t index, unsigned char* headerTo, float* samplesTo);
    int32_t word(const unsigned char* traceHeader, const HeaderWord& word) const
    {
        return readWord(traceHeader, word, where.littleEndian);
    }

private:
    friend class SegyTraceStatements;
    int64_t startOf(int64_t index) const;

    InputFile file;
    std::vector<std::string> notes;
    SegyLayout where;
    std::vector<unsigned char> binary;
    std::vector<unsigned char> rawText;
    std::vector<unsigned char> rawExtended;
    std::string textHeader;
    std::vector<std::string> extended;
    SegyOverrides given;
};

/// Traces whose own headers contradict what the layout was settled on. Opening a file looks at some
/// of them only; who goes through the traces anyway shows each one's header here.
class SegyTraceStatements
{
public:
    explicit SegyTraceStatements(SegyReader& reader);

    /// `header` is that of trace `index`, from 0.
    void see(int64_t index, const unsigned char* header);
    /// One line for the interval and one for the length, if traces seen so far contradict them.
    /// What a person has stated, and what `SegyReader::warnings()` say of the first trace, counts
    /// as known: traces that say the same again are none of these.
    std::vector<std::string> warnings() const;

private:
    struct Statement
    {
        const HeaderWord* word = nullptr;
        bool matters = true;
        int settled = 0;
        int known = 0; // from the first trace of the file
        int64_t contradictions = 0;
        int64_t firstIndex = 0;
        int firstValue = 0;
    };
    static void count(Statement& statement, int64_t index, int value);

    const SegyReader& file;
    Statement samples;
    Statement interval;
    int64_t seen = 0;
};

} // namespace VORN

#endif
