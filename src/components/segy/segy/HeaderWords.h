/// @file HeaderWords.h
///
/// The words of SEG-Y headers: where each stands, how wide it is and what it is called. Reading and
/// writing a word is inline, since each trace has ninety of them.
#ifndef HEADERWORDS_H
#define HEADERWORDS_H

#include "segy_export.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace VORN {

constexpr int segyTextBytes = 3200;       ///< of a text header
constexpr int segyBinaryBytes = 400;      ///< of the binary header
constexpr int segyTraceHeaderBytes = 240; ///< of the header of each trace

/// One word of a header: an integer, or the bits of a float.
struct HeaderWord
{
    const char* key;      ///< the Seismic Unix keyword; a name of this library where that has none
    int byte;             ///< position in the header, counted from 1 as in the standard
    int bytes;            ///< 2 or 4
    bool isUnsigned;      ///< counts that the field's 16 bits hold up to 65535
    const char* text;     ///< what it means, in a few words
    bool isFloat = false; ///< a 32-bit IEEE float, whose bits are read and written as an integer
};

/// The words of the 240-byte trace header (revision 1), in the order of their bytes.
VORN_SEGY_EXPORT const std::vector<HeaderWord>& traceHeaderWords();

/// The words of a Seismic Unix trace header: up to byte 180 those of SEG-Y, behind that its own,
/// among them floats. The bytes that it leaves unassigned are not listed.
VORN_SEGY_EXPORT const std::vector<HeaderWord>& suHeaderWords();

/// The words of the 400-byte binary header (revision 1), bytes counted from 1 of that header.
VORN_SEGY_EXPORT const std::vector<HeaderWord>& binaryHeaderWords();

/// The word of `traceHeaderWords()` of that key, or null.
VORN_SEGY_EXPORT const HeaderWord* findTraceHeaderWord(std::string_view key);
/// The word of `binaryHeaderWords()` of that key, or null.
VORN_SEGY_EXPORT const HeaderWord* findBinaryHeaderWord(std::string_view key);

static_assert(std::endian::native == std::endian::little, "words are read as they lie in memory");

/// The value of `word` in the header that begins at `header`; of a float, its bits.
inline int32_t readWord(const unsigned char* header, const HeaderWord& word, bool littleEndian)
{
    const unsigned char* from = header + word.byte - 1;
    if (word.bytes == 4) {
        uint32_t bits;
        std::memcpy(&bits, from, sizeof bits);
        return static_cast<int32_t>(littleEndian ? bits : __builtin_bswap32(bits));
    }
    uint16_t bits;
    std::memcpy(&bits, from, sizeof bits);
    if (!littleEndian)
        bits = __builtin_bswap16(bits);
    return word.isUnsigned ? static_cast<int32_t>(bits) : static_cast<int16_t>(bits);
}

/// Writes `value` to the place of `word` in the header that begins at `header`. Returns whether it
/// fits into the word; a value that does not is written as the nearest that does.
inline bool writeWord(unsigned char* header, const HeaderWord& word, bool littleEndian,
                      int64_t value)
{
    unsigned char* to = header + word.byte - 1;
    if (word.bytes == 4) {
        const auto nearest =
            static_cast<int32_t>(std::clamp(value, int64_t{INT32_MIN}, int64_t{INT32_MAX}));
        const uint32_t bits = littleEndian ? static_cast<uint32_t>(nearest)
                                           : __builtin_bswap32(static_cast<uint32_t>(nearest));
        std::memcpy(to, &bits, sizeof bits);
        return nearest == value;
    }
    const int64_t lowest = word.isUnsigned ? 0 : INT16_MIN;
    const int64_t highest = word.isUnsigned ? UINT16_MAX : INT16_MAX;
    const int64_t nearest = std::clamp(value, lowest, highest);
    uint16_t bits = static_cast<uint16_t>(nearest);
    if (!littleEndian)
        bits = __builtin_bswap16(bits);
    std::memcpy(to, &bits, sizeof bits);
    return nearest == value;
}

/// A coordinate, elevation or depth with its scalar (`scalco`, `scalel`, `scalsp`): a positive
/// scalar multiplies, a negative one divides, 0 stands for 1.
VORN_SEGY_EXPORT double applyScalar(int32_t value, int scalar);

} // namespace VORN

#endif
