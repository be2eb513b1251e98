/// @file AttributesToHeader.h
///
/// From trace attributes of a job to trace headers of a file.
#ifndef ATTRIBUTESTOHEADER_H
#define ATTRIBUTESTOHEADER_H

#include "segy/HeaderWords.h"
#include "segy/WordMap.h"
#include "segy/WordRuns.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace traces {

/// Fills the trace headers of a module that writes a file: each header word is the trace attribute
/// of its key, except that `ns` and `dt` say what the trace has. Numbers are rounded; one that does
/// not fit into its word is written as the nearest that does, which a warning reports once per
/// word.
///
/// Words that the user has mapped are written last, so that they keep the bytes that they share
/// with others; their own bytes of the standard stay 0.
///
/// All 32-bit integers of a trace, which most attributes are, are read with one call, and all
/// floats for float words with another; attributes of other types are read one by one.
class AttributesToHeader
{
public:
    /// `file` is the file's name in messages; `words` are those to be written, in the byte order
    /// given by `littleEndian`; they and those of `map` live longer. The object belongs to the
    /// running module. Throws std::invalid_argument for a map with which no header can be written.
    AttributesToHeader(std::string file, const std::vector<VORN::HeaderWord>& words,
                       const VORN::WordMap& map, bool littleEndian);

    /// Writes all words from the attributes of trace 0 of `input`, which becomes trace `number`
    /// (from 1) of the file, to the header at `header`. What the input does not have is 0, except
    /// for the trace numbers (`tracl`, `tracr`), which count, and the kind of trace (`trid`), 1.
    void fill(void* input, int64_t number, unsigned char* header);

private:
    using Words = std::vector<const VORN::HeaderWord*>;

    void readIntegers(void* input, int64_t number);
    void findOtherTypes(void* input);
    void write(const VORN::HeaderWord& word, int64_t value, int64_t number, unsigned char* header);
    void writeMapped(const VORN::HeaderWord& word, void* input, int64_t number,
                     unsigned char* header);
    void report(const VORN::HeaderWord& word, const std::string& value, int64_t number,
                const unsigned char* header);

    std::string path;
    bool little;
    const VORN::HeaderWord* lengthWord = nullptr; // null when it is not to be written
    const VORN::HeaderWord* intervalWord = nullptr;
    Words integers; // the other ones
    VORN::WordRuns integerRuns;
    Words floats;
    Words mapped;                      // by the user, of any type
    std::vector<int> defaults;         // of the integers
    std::vector<std::size_t> counting; // integers that are trace numbers where they are missing
    void* integerList;                 // the module's, as the list of floats
    void* floatList;
    std::vector<int> integerValues; // of the trace that is being written
    std::vector<float> floatValues;
    int present = -1;                    // integers that the input had in the last trace
    std::vector<std::size_t> otherTypes; // those of them that are not stored as 32-bit integers
    Words reported;                      // words with a value that did not fit
};

} // namespace traces

#endif
