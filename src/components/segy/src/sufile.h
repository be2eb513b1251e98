/// @file sufile.h
///
/// Seismic Unix files: nothing but traces, each a 240-byte header and 4-byte IEEE floats, in the
/// byte order of the machine that wrote them.
#ifndef SUFILE_H
#define SUFILE_H

#include "headerwords.h"
#include "tracefile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VORN {

/// What a person knows better than the file.
struct SuOverrides
{
    std::optional<int> samples; ///< per trace
    std::optional<bool> littleEndian;
};

/// An open Seismic Unix file whose traces have one length. The byte order is the one in which the
/// number of samples in the first trace header fits the size of the file.
class SuReader
{
public:
    /// Throws TraceFileError for what cannot be read as Seismic Unix traces.
    explicit SuReader(const std::string& path, const SuOverrides& overrides = {});

    const std::string& path() const { return file.path(); }
    bool littleEndian() const { return little; }
    int samples() const { return samplesPerTrace; } ///< per trace
    int interval() const { return microseconds; }   ///< microseconds; 0 when not stated
    int64_t traces() const { return count; }        ///< whole ones
    /// What was contradictory or damaged, and how it was read: one line each.
    const std::vector<std::string>& warnings() const { return notes; }

    /// Reads 240 header bytes to `header` (may be null), in the file's byte order, and `samples()`
    /// floats to `samplesTo` (may be null). Throws TraceFileError when there is no such trace, when
    /// the file has become shorter and when it cannot be read.
    void read(int64_t index, unsigned char* header, float* samplesTo);

private:
    void settle(const SuOverrides& overrides);
    bool settleOrder(const SuOverrides& overrides);
    int statedSamples(bool littleEndian);
    bool headersAgree(int samples, bool littleEndian);

    InputFile file;
    std::vector<std::string> notes;
    bool little = true;
    int samplesPerTrace = 0;
    int microseconds = 0;
    int64_t count = 0;
};

/// Writes traces of one length. The owner of the output commits it.
class SuWriter
{
public:
    /// Throws TraceFileError for a number of samples that the header cannot state (1 to 65535 can).
    SuWriter(OutputFile& output, int samples, bool littleEndian);

    /// Appends a trace: `header` is its 240-byte header in the file's byte order, of which the
    /// number of samples is overwritten with the file's. Throws TraceFileError when writing fails.
    void write(const unsigned char* header, const float* samples);

private:
    OutputFile& file;
    int samplesPerTrace;
    bool little;
};

} // namespace VORN

#endif
