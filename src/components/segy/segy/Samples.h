/// @file Samples.h
///
/// Sample codings of SEG-Y, to and from 32-bit IEEE floats of this machine.
#ifndef SAMPLES_H
#define SAMPLES_H

#include "segy_export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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
VORN_SEGY_EXPORT bool isSampleFormat(int code);

/// Bytes per sample; 0 for a code that cannot be read.
VORN_SEGY_EXPORT int sampleBytes(SampleFormat format);

/// A few words, as in "4-byte IBM float"; "unknown" for a code that cannot be read.
VORN_SEGY_EXPORT const char* sampleFormatName(SampleFormat format);

/// @name Formats by key
/// The word that stands for a format in parameters: ibm, ieee, double, int8 to int64, uint8 to
/// uint64.
/// @{
/// The word of a format; "unknown" for a code that cannot be read.
VORN_SEGY_EXPORT const char* sampleFormatKey(SampleFormat format);
/// The format of a word; nothing for a word that is not one of them.
VORN_SEGY_EXPORT std::optional<SampleFormat> sampleFormatOfKey(std::string_view key);
/// All words, separated by ", ".
VORN_SEGY_EXPORT std::string sampleFormatKeys();
/// @}

/// Converts `count` samples at `from` (no alignment needed). Every format gives the nearest float;
/// finite numbers beyond the range of floats become the largest float of their sign.
VORN_SEGY_EXPORT void decodeSamples(const unsigned char* from, SampleFormat format,
                                    bool littleEndian, std::size_t count, float* to);

/// Converts `count` floats to `ibmFloat` or `ieeeFloat` at `to`. An IBM float that was decoded
/// comes back bit for bit if it was normalised (its first hexadecimal digit is not 0) and within
/// the range of normal IEEE floats. Returns how many samples IBM floats cannot hold: infinities
/// become its largest number, NaNs become 0. Requires: one of these two formats.
VORN_SEGY_EXPORT std::size_t encodeSamples(const float* from, std::size_t count,
                                           SampleFormat format, bool littleEndian,
                                           unsigned char* to);

} // namespace VORN

#endif
