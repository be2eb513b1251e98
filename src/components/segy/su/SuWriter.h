/// @file SuWriter.h
///
/// Writes Seismic Unix files; SuReader.h describes them.
#ifndef SUWRITER_H
#define SUWRITER_H

#include "file/OutputFile.h"
#include "segy_export.h"

#include <cstdint>

namespace VORN {

/// Writes traces of one length: all of a file, or those of which the output is a range (see
/// PartOutputs.h). The owner of the output commits it.
class VORN_SEGY_EXPORT SuWriter
{
public:
    /// Throws TraceFileError for a number of samples that the header cannot state (1 to 65535 can).
    SuWriter(OutputFile& output, int samples, bool littleEndian);

    /// Appends a trace: `header` is its 240-byte header in the file's byte order, of which the
    /// number of samples is overwritten with the file's. Throws TraceFileError when writing fails.
    void write(const unsigned char* header, const float* samples);

    /// The size of a file with `traces` traces.
    int64_t bytesOf(int64_t traces) const;

private:
    OutputFile& file;
    int samplesPerTrace;
    bool little;
};

} // namespace VORN

#endif
