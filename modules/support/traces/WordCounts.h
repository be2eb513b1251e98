/// @file WordCounts.h
///
/// Header words that are lost, for one message at the end.
#ifndef WORDCOUNTS_H
#define WORDCOUNTS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace traces {

/// In how many traces some header words have a value.
class WordCounts
{
public:
    explicit WordCounts(const std::vector<const char*>& keys); ///< their keys, which live longer

    std::size_t size() const { return words.size(); } ///< how many words there are
    /// The key of `word`, from 0.
    const char* key(std::size_t word) const { return words[word].key; }
    /// Counts a trace that has a value for `word`, from 0.
    void count(std::size_t word) { ++words[word].traces; }

    /// The words that were counted with their traces, "cdp (2 traces), fldr (1 trace)"; after the
    /// first `most` of them " and 7 more". "" when none was counted.
    std::string text(std::size_t most) const;

    /// Adds the counts of the same words.
    void add(const WordCounts& others);
    /// Names the counts to a file that saves or reads them: `file(count)`.
    template <typename File>
    void transfer(File& file)
    {
        for (Word& word : words)
            file(word.traces);
    }

private:
    struct Word
    {
        const char* key;
        int64_t traces;
    };

    std::vector<Word> words;
};

} // namespace traces

#endif
