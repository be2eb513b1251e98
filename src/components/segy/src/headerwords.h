/// @file headerwords.h
///
/// The words of SEG-Y headers: where each stands, how wide it is and what it is called.
#ifndef HEADERWORDS_H
#define HEADERWORDS_H

#include <cstdint>
#include <string_view>
#include <vector>

namespace VORN {

constexpr int segyTextBytes = 3200;
constexpr int segyBinaryBytes = 400;
constexpr int segyTraceHeaderBytes = 240;

/// One integer of a header, big endian unless the file says otherwise.
struct HeaderWord
{
    const char* key;      ///< the Seismic Unix keyword; names of our own where that has none
    int byte;             ///< position in the header, counted from 1 as in the standard
    int bytes;            ///< 2 or 4
    bool isUnsigned;      ///< counts that the field's 16 bits hold up to 65535
    const char* text;     ///< what it means, in a few words
    bool isFloat = false; ///< a 32-bit IEEE float, whose bits are read and written as an integer
};

/// The words of the 240-byte trace header (revision 1), in the order of their bytes.
const std::vector<HeaderWord>& traceHeaderWords();

/// The words of a Seismic Unix trace header: up to byte 180 those of SEG-Y, behind that its own,
/// among them floats. Not listed are the bytes that it leaves unassigned.
const std::vector<HeaderWord>& suHeaderWords();

/// The words of the 400-byte binary header (revision 1), bytes counted from 1 of that header.
const std::vector<HeaderWord>& binaryHeaderWords();

/// The word of that key, or null.
const HeaderWord* findTraceHeaderWord(std::string_view key);
const HeaderWord* findBinaryHeaderWord(std::string_view key);

/// The value of `word` in a header that begins at `header`.
int32_t readWord(const unsigned char* header, const HeaderWord& word, bool littleEndian);

/// Writes `value` to its place, cut to the word's width. Returns whether it fits: a value that does
/// not is written as the nearest that does.
bool writeWord(unsigned char* header, const HeaderWord& word, bool littleEndian, int32_t value);

/// A coordinate, elevation or depth with its scalar (`scalco`, `scalel`, `scalsp`): a positive
/// scalar multiplies, a negative one divides, 0 stands for 1.
double applyScalar(int32_t value, int scalar);

} // namespace VORN

#endif
