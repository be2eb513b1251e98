/// @file SegyReader.h
///
/// Reads SEG-Y files leniently: headers that contradict each other, either byte order, either text
/// coding, last traces that are cut.
#ifndef SEGYREADER_H
#define SEGYREADER_H

#include "file/InputFile.h"
#include "segy/HeaderWords.h"
#include "segy/Samples.h"
#include "segy/SegyLayout.h"
#include "segy_export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VORN {

/// An open SEG-Y file. Opening it determines the layout; traces are then read in any order, forward
/// reading being the cheap one (many short traces per call of the operating system).
class VORN_SEGY_EXPORT SegyReader
{
public:
    /// Throws TraceFileError for a file that cannot be read as SEG-Y, also for one without a whole
    /// trace. Nothing is read, allocated or announced that the file does not hold, whatever its
    /// headers state.
    explicit SegyReader(const std::string& path, const SegyOverrides& overrides = {});

    const std::string& path() const { return file.path(); }  ///< as given
    const SegyLayout& layout() const { return where; }       ///< as determined by opening
    const SegyOverrides& overrides() const { return given; } ///< as given
    /// What was contradictory or damaged, and how it was read: one line each, with all the numbers.
    const std::vector<std::string>& warnings() const { return notes; }

    /// 3200 printable characters of Latin-1, 40 cards without line ends.
    const std::string& text() const { return textHeader; }
    /// The extended text headers, decoded one after another.
    const std::vector<std::string>& extendedTexts() const { return extended; }
    /// The bytes of the text header in the file.
    const std::vector<unsigned char>& textBytes() const { return rawText; }
    /// The bytes of the extended text headers in the file, one after another.
    const std::vector<unsigned char>& extendedTextBytes() const { return rawExtended; }
    /// The 400 bytes of the binary header in the file; they live as long as the reader.
    const unsigned char* binaryHeader() const { return binary.data(); }
    /// The 400 bytes of the binary header, with those set to 0 to which the file's revision gives a
    /// meaning, and in any revision the number of extended text headers. The others are as in the
    /// file, whatever its byte order, except that the constant that tells the order says big
    /// endian, since all that is written is.
    std::vector<unsigned char> unassignedBytes() const;
    /// The word of the binary header of that key. Requires: it is one of `binaryHeaderWords()`.
    int32_t binaryWord(const char* key) const;

    /// The 240 header bytes of trace `index` (from 0); valid until the next read.
    const unsigned char* header(int64_t index);
    /// The same for callers that go forward through headers and leave the samples.
    const unsigned char* nextHeader(int64_t index);
    /// From now on traces are read in jumps: their neighbours are not read with them.
    void expectJumps() { file.expectJumps(); }
    /// `count` traces from trace `index` on will be read soon; the system may fetch them meanwhile.
    void willRead(int64_t index, int64_t count) const;
    /// Samples of trace `index`; `layout().samples` unless lengths vary.
    int samplesOf(int64_t index) const;
    /// Reads header and samples of trace `index` (from 0): 240 bytes to `headerTo` and
    /// `samplesOf(index)` floats to `samplesTo`, which must hold `layout().samples`; either may be
    /// null. Throws TraceFileError when the file has become shorter or cannot be read; the same
    /// trace, read again at once, is in memory and cannot fail.
    void read(int64_t index, unsigned char* headerTo, float* samplesTo);
    /// Reads `count` samples of trace `index` (from 0) from its sample `first` (from 0) on to
    /// `samplesTo`: a long trace in pieces, with memory for a piece only. Throws as `read` does,
    /// and for samples that the trace does not have.
    void readSamples(int64_t index, int64_t first, int64_t count, float* samplesTo);
    /// The value of `word` in a trace header of this file.
    int32_t word(const unsigned char* traceHeader, const HeaderWord& word) const
    {
        return readWord(traceHeader, word, where.littleEndian);
    }

private:
    int64_t startOf(int64_t index) const;

    InputFile file;
    int64_t announced = 0; // traces before this one have been read ahead by nextHeader
    std::vector<std::string> notes;
    SegyLayout where;
    std::vector<unsigned char> binary;
    std::vector<unsigned char> rawText;
    std::vector<unsigned char> rawExtended;
    std::string textHeader;
    std::vector<std::string> extended;
    SegyOverrides given;
};

} // namespace VORN

#endif
