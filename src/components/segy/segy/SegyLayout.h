/// @file SegyLayout.h
///
/// How a SEG-Y file is laid out. Headers state it several times and contradict each other; the size
/// of the file is the one statement that cannot be wrong.
#ifndef SEGYLAYOUT_H
#define SEGYLAYOUT_H

#include "segy/Samples.h"
#include "segy_export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VORN {

class InputFile;

/// What the user states; it overrides the headers of the file.
struct SegyOverrides
{
    std::optional<int> samples;         ///< per trace
    std::optional<SampleFormat> format; ///< of the samples
    std::optional<bool> littleEndian;   ///< byte order of headers and samples
    /// Byte order of the samples alone, where it is not that of the headers.
    std::optional<bool> samplesLittleEndian;
    std::optional<int> interval; ///< microseconds
};

/// How a file is laid out, all contradictions resolved.
struct SegyLayout
{
    bool littleEndian = false;                    ///< byte order of headers and samples
    bool samplesLittleEndian = false;             ///< of the samples alone, should it differ
    SampleFormat format = SampleFormat::ibmFloat; ///< of the samples
    int revision = 0;                             ///< major revision: 0, 1 or 2
    /// Per trace; the longest one's where lengths vary. The file holds a trace of that length.
    int samples = 0;
    int interval = 0;            ///< microseconds; 0 when no header states it
    bool ebcdic = true;          ///< coding of the text header
    int extendedHeaders = 0;     ///< text headers between the file header and the traces
    int traceHeaderBytes = 240;  ///< more where revision 2 has further headers for each trace
    int64_t dataStart = 0;       ///< byte of the first trace header
    int64_t dataEnd = 0;         ///< byte behind the traces, the cut one included
    int64_t fileBytes = 0;       ///< size of the file
    int64_t traces = 0;          ///< whole traces, at least 1
    int64_t cutBytes = 0;        ///< bytes behind the last whole trace
    bool variableLength = false; ///< each trace header states the length of its trace
    /// Of traces of different lengths: the byte of each trace header, and the end of the last
    /// trace. Empty otherwise.
    std::vector<int64_t> traceStarts;

    /// Bytes of a trace with so many samples, its header included.
    int64_t traceBytes(int samplesOfTrace) const
    {
        return traceHeaderBytes + static_cast<int64_t>(samplesOfTrace) * sampleBytes(format);
    }
};

/// Determines the layout of `file`; adds a line with all the numbers to `notes` for each
/// contradiction and damage. Throws TraceFileError for what is not a SEG-Y file, for one that
/// cannot be read, and for one that does not hold one whole trace. A length that fits the size of
/// the file goes before a statement that does not; where none fits, headers that agree with each
/// other are believed, and the last trace is cut. No length is believed of which the file does not
/// hold one trace.
VORN_SEGY_EXPORT SegyLayout resolveSegyLayout(InputFile& file, const SegyOverrides& overrides,
                                              std::vector<std::string>& notes);

} // namespace VORN

#endif
