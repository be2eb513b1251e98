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
#include <string>
#include <string_view>
#include <vector>

namespace VORN {

constexpr int segyTextBytes = 3200;       ///< of a text header
constexpr int segyBinaryBytes = 400;      ///< of the binary header
constexpr int segyTraceHeaderBytes = 240; ///< of the header of each trace

/// One word of a header: an integer, or a float. The tables below have words of 2 and 4 bytes;
/// those of a user (WordMap) may be of any length.
struct HeaderWord
{
    const char* key;      ///< the Seismic Unix keyword; a name of this library where that has none
    int byte;             ///< position in the header, counted from 1 as in the standard
    int bytes;            ///< 1 to 8; of an IEEE float 4 or 8, of an IBM float 4
    bool isUnsigned;      ///< of an integer: counts that 16 bits hold up to 65535
    const char* text;     ///< what it means, in a few words
    bool isFloat = false; ///< an IEEE float, or an IBM one
    bool isIbm = false;   ///< of a float
};

/// The value of a word: an integer, exactly, or a float.
struct WordValue
{
    // Values of the tables are integers and used as such.
    WordValue(int64_t value) : whole(value) {} // NOLINT(google-explicit-constructor)
    /// The value of a float word.
    static WordValue ofFloat(double value)
    {
        WordValue result(0);
        result.isFloat = true;
        result.real = value;
        return result;
    }
    /// The value as a float; of an integer beyond 2^53 the nearest.
    double number() const { return isFloat ? real : static_cast<double>(whole); }

    bool isFloat = false;
    int64_t whole; ///< of an integer
    double real = 0;
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

/// The value of `word`, of 2 or 4 bytes, in the header that begins at `header`; of a float, its
/// bits.
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

/// Writes `value` to the place of `word`, of 2 or 4 bytes, in the header that begins at `header`.
/// Returns whether it fits into the word; a value that does not is written as the nearest that
/// does.
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

/// The value of a word of any kind in the header that begins at `header`. An unsigned integer
/// beyond 63 bits is read as the largest that they hold.
VORN_SEGY_EXPORT WordValue readWordValue(const unsigned char* header, const HeaderWord& word,
                                         bool littleEndian);

/// Writes `value` to the place of a word of any kind. An integer word gets a float rounded. Returns
/// whether the value fits; one that does not is written as the nearest that does, a NaN as 0.
VORN_SEGY_EXPORT bool writeWordValue(unsigned char* header, const HeaderWord& word,
                                     bool littleEndian, const WordValue& value);

/// "int16", "uint24", "ieee", "double", "ibm": how a word is stored.
VORN_SEGY_EXPORT std::string wordTypeName(const HeaderWord& word);

/// A coordinate, elevation or depth with its scalar (`scalco`, `scalel`, `scalsp`): a positive
/// scalar multiplies, a negative one divides, 0 stands for 1.
VORN_SEGY_EXPORT double applyScalar(int32_t value, int scalar);

} // namespace VORN

#endif
