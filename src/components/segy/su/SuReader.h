/// @file SuReader.h
///
/// Seismic Unix files: nothing but traces, each a 240-byte header and 4-byte IEEE floats, in the
/// byte order of the machine that wrote them.
#ifndef SUREADER_H
#define SUREADER_H

#include "file/InputFile.h"
#include "segy_export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace VORN {

/// What the user states; it overrides the headers of the file.
struct SuOverrides
{
    std::optional<int> samples;       ///< per trace
    std::optional<bool> littleEndian; ///< byte order of headers and samples
};

/// An open Seismic Unix file whose traces have one length. The byte order is the one in which the
/// number of samples in the first trace header fits the size of the file.
class VORN_SEGY_EXPORT SuReader
{
public:
    /// Throws TraceFileError for a file that cannot be read as Seismic Unix traces, also for one
    /// without a whole trace.
    explicit SuReader(const std::string& path, const SuOverrides& overrides = {});

    const std::string& path() const { return file.path(); } ///< as given
    bool littleEndian() const { return little; }            ///< byte order of headers and samples
    int samples() const { return samplesPerTrace; }         ///< per trace
    int interval() const { return microseconds; }           ///< microseconds; 0 when not stated
    int64_t traces() const { return count; }                ///< whole ones, at least 1
    /// What was contradictory or damaged, and how it was read: one line each.
    const std::vector<std::string>& warnings() const { return notes; }

    /// The 240 header bytes of trace `index` (from 0); valid until the next read. Throws as `read`
    /// does.
    const unsigned char* header(int64_t index);
    /// The same for callers that go forward through headers and leave the samples.
    const unsigned char* nextHeader(int64_t index);
    /// From now on traces are read in jumps: their neighbours are not read with them.
    void expectJumps() { file.expectJumps(); }
    /// `count` traces from trace `index` on will be read soon; the system may fetch them meanwhile.
    void willRead(int64_t index, int64_t count) const;
    /// Reads 240 header bytes to `headerTo` (may be null), in the file's byte order, and
    /// `samples()` floats to `samplesTo` (may be null). Throws TraceFileError when the trace does
    /// not exist, when the file has become shorter and when it cannot be read.
    void read(int64_t index, unsigned char* headerTo, float* samplesTo);

private:
    void resolveLayout(const SuOverrides& overrides);
    bool resolveOrder(const SuOverrides& overrides);
    int statedSamples(bool littleEndian);
    int64_t startOf(int64_t index) const;
    bool headersAgree(int samples, bool littleEndian);

    InputFile file;
    int64_t announced = 0; // traces before this one have been read ahead by nextHeader
    std::vector<std::string> notes;
    bool little = true;
    int samplesPerTrace = 0;
    int microseconds = 0;
    int64_t count = 0;
};

} // namespace VORN

#endif
