/// @file WordMap.h
///
/// Trace header words at other bytes than those of the standard.
#ifndef WORDMAP_H
#define WORDMAP_H

#include "segy/HeaderWords.h"
#include "segy_export.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace VORN {

/// Which bytes of a 240-byte trace header are which words, where a file differs from the standard.
///
/// As text: `iline=9, xline=21, cdpx=73:int32`. Behind the word stands the byte where it begins,
/// from 1, and behind a colon how it is stored: int8, uint8, ... int64, uint64 (in steps of 8
/// bits), ieee and ibm (floats of 4 bytes), double (8 bytes). A word of the standard without a type
/// keeps its own, any other one is an int32. Line feeds may stand in place of commas; blanks are
/// ignored.
class VORN_SEGY_EXPORT WordMap
{
public:
    /// Every word where the standard has it.
    WordMap() = default;

    /// Throws std::invalid_argument for a text that is not such a map; its message names the piece,
    /// what is wrong with it and what was expected.
    explicit WordMap(const std::string& text);

    bool isEmpty() const { return mapped.empty(); } ///< whether no word is mapped
    /// The mapped words, in the order of the text.
    const std::vector<HeaderWord>& words() const { return mapped; }
    /// Whether the word of that key is mapped.
    bool has(std::string_view key) const;
    /// The map as text, one spelling for each map.
    std::string text() const;

    /// `standard` with the mapped words at their bytes; words that it does not have follow behind.
    /// The result may be used as long as a copy of this map lives.
    std::vector<HeaderWord> applied(const std::vector<HeaderWord>& standard) const;
    /// What keeps a header from being written with this map: two mapped words that share a byte, or
    /// one on the bytes that hold length and interval (115 to 118). "" when it can be written.
    std::string problemOfWriting() const;

private:
    void add(const std::string& piece);

    std::vector<HeaderWord> mapped;
    // Keys of words that the standard does not have; shared, since the words point at them.
    std::shared_ptr<std::deque<std::string>> names = std::make_shared<std::deque<std::string>>();
};

} // namespace VORN

#endif
