/// @file AttributesToHeader.h
///
/// From trace attributes of a job to trace headers of a file.
#ifndef ATTRIBUTESTOHEADER_H
#define ATTRIBUTESTOHEADER_H

#include "segy/HeaderWords.h"

#include <cstdint>
#include <string>
#include <vector>

namespace traces {

/// Fills the trace headers of a module that writes a file: each header word is the trace attribute
/// of its key, except that `ns` and `dt` say what the trace has. Numbers are rounded; one that does
/// not fit into its word is written as the nearest that does, which a warning tells once per word.
class AttributesToHeader
{
public:
    /// `file` is the file's name in messages; `words` are those to be written, in the byte order
    /// that `littleEndian` tells.
    AttributesToHeader(std::string file, const std::vector<VORN::HeaderWord>& words,
                       bool littleEndian);

    /// Writes all words from the attributes of trace 0 of `input`, which becomes trace `number`
    /// (from 1) of the file, to the header at `header`. What the input has never had is 0, except
    /// for the trace numbers (`tracl`, `tracr`), which count, and the kind of trace (`trid`), 1.
    void fill(void* input, int64_t number, unsigned char* header);

private:
    struct Word
    {
        const VORN::HeaderWord* place;
        bool present;  // in the input; once it is, it stays
        bool reported; // a value that did not fit
    };

    int64_t valueOf(Word& word, void* input, int64_t number) const;
    void put(Word& word, int64_t value, int64_t number, unsigned char* header) const;

    std::string path;
    bool little;
    std::vector<Word> words;
};

} // namespace traces

#endif
