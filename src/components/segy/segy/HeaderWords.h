/// @file HeaderWords.h
///
/// The words of SEG-Y headers: where each stands, how wide it is and what it is called.
#ifndef HEADERWORDS_H
#define HEADERWORDS_H

#include "segy_export.h"

#include <cstdint>
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

/// The value of `word` in the header that begins at `header`; of a float, its bits.
VORN_SEGY_EXPORT int32_t readWord(const unsigned char* header, const HeaderWord& word,
                                  bool littleEndian);

/// Writes `value` to the place of `word` in the header that begins at `header`. Returns whether it
/// fits into the word; a value that does not is written as the nearest that does.
VORN_SEGY_EXPORT bool writeWord(unsigned char* header, const HeaderWord& word, bool littleEndian,
                                int64_t value);

/// A coordinate, elevation or depth with its scalar (`scalco`, `scalel`, `scalsp`): a positive
/// scalar multiplies, a negative one divides, 0 stands for 1.
VORN_SEGY_EXPORT double applyScalar(int32_t value, int scalar);

} // namespace VORN

#endif
