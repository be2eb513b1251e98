/// @file SegyWriter.h
///
/// Writes SEG-Y files of revision 0 or 1, big endian, all traces of one length.
#ifndef SEGYWRITER_H
#define SEGYWRITER_H

#include "file/OutputFile.h"
#include "segy/Samples.h"
#include "segy_export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace VORN {

/// What a file says about itself.
struct SegyDescription
{
    int samples = 0;                              ///< per trace, 1 to 65535
    int interval = 0;                             ///< microseconds, 0 (unknown) to 65535
    SampleFormat format = SampleFormat::ibmFloat; ///< or ieeeFloat
    int revision = 1;                             ///< 0 or 1
    std::vector<std::string> cards;               ///< of the text header, in UTF-8, at most 40
    /// Cards of extended text headers, 40 for each; revision 0 has none and leaves them out.
    std::vector<std::string> extendedCards;
    /// Further words of the binary header, by key. Those that describe the layout (interval,
    /// samples, format, revision, fixed length, extended headers) are the writer's; unknown keys
    /// are ignored.
    std::vector<std::pair<std::string, int32_t>> binaryWords;
    /// @name Bytes of the file from which the cards and words come; may be empty
    /// @{
    std::vector<unsigned char> textBytes;     ///< see `encodeCards`
    std::vector<unsigned char> extendedBytes; ///< likewise, 3200 for each extended text header
    /// 400 bytes of the binary header, to be kept where no word is written (see
    /// `SegyReader::unassignedBytes`). Revision 1 writes words up to byte 60 and from 301 to 306,
    /// revision 0 up to byte 60 and from 305 to 306, the number of extended text headers.
    std::vector<unsigned char> unassignedBytes;
    /// @}
};

/// Writes a file from its first header to its last trace, or the traces of it that the output is a
/// range of (see PartOutputs.h). The owner of the output commits it.
class VORN_SEGY_EXPORT SegyWriter
{
public:
    /// Writes the file header to `output`, which must be empty and lives longer than the writer; to
    /// a range of a file only where that begins with the first trace. Throws TraceFileError for a
    /// description that SEG-Y cannot hold, and when writing fails.
    SegyWriter(OutputFile& output, const SegyDescription& description);

    /// Appends a trace: `header` is its 240-byte header, big endian, of which the words for the
    /// number of samples and for the interval are overwritten with the file's; `samples` are as
    /// many as described. Throws TraceFileError when writing fails.
    void write(const unsigned char* header, const float* samples);

    int64_t traces() const { return count; } ///< written so far, by this object
    /// The size of a file of that description with `traces` traces.
    int64_t bytesOf(int64_t traces) const;
    /// Samples so far that IBM floats cannot hold: infinities (written as the largest number) and
    /// NaNs (written as 0).
    std::size_t lostSamples() const { return lost; }

private:
    OutputFile& file;
    std::size_t samplesPerTrace;
    int interval;
    SampleFormat format;
    int64_t headerBytes = 0; // of the file
    int64_t count = 0;
    std::size_t lost = 0;
};

} // namespace VORN

#endif
