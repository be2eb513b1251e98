/// @file samples.h
///
/// Sample codings of SEG-Y, to and from 32-bit IEEE floats of this machine.
#ifndef SAMPLES_H
#define SAMPLES_H

#include <cstddef>
#include <cstdint>

namespace VORN {

/// Sample format codes of the binary header that can be read.
enum class SampleFormat : int
{
    ibmFloat = 1,
    int32 = 2,
    int16 = 3,
    ieeeFloat = 5,
    ieeeDouble = 6,
    int24 = 7,
    int8 = 8,
    int64 = 9,
    uint32 = 10,
    uint16 = 11,
    uint64 = 12,
    uint24 = 15,
    uint8 = 16
};

/// Whether `code` is one of the codes above (4, fixed point with gain, is obsolete and not read).
bool isSampleFormat(int code);

/// Bytes per sample; 0 for a code that cannot be read.
int sampleBytes(SampleFormat format);

/// A few words, as in "4-byte IBM float"; "unknown" for a code that cannot be read.
const char* sampleFormatName(SampleFormat format);

/// Converts `count` samples at `from` (no alignment needed). Every format gives the nearest float;
/// IBM floats beyond the range of IEEE ones become the largest float of their sign.
void decodeSamples(const unsigned char* from, SampleFormat format, bool littleEndian,
                   std::size_t count, float* to);

/// Converts `count` floats to `ibmFloat` or `ieeeFloat` at `to`. A normalised IBM float that was
/// decoded comes back bit for bit. Returns how many samples IBM floats cannot hold: infinities
/// become its largest number, NaNs become 0. Requires: one of these two formats.
std::size_t encodeSamples(const float* from, std::size_t count, SampleFormat format,
                          bool littleEndian, unsigned char* to);

} // namespace VORN

#endif
