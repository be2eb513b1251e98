/// @file TraceSelection.h
///
/// Which traces of a file are wanted, by their numbers and header words.
#ifndef TRACESELECTION_H
#define TRACESELECTION_H

#include "segy/HeaderWords.h"
#include "segy/NumberRanges.h"
#include "segy_export.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace VORN {

/// The traces that meet all of some conditions; all traces where there is none.
class VORN_SEGY_EXPORT TraceSelection
{
public:
    /// A header word, or "traces" for the number of the trace, and numbers as in NumberRanges.
    using Condition = std::pair<std::string, std::string>;

    /// The conditions of a text as in `offset=100:2000; iline=100:200:2`, in its order. Line feeds
    /// may stand in place of semicolons. Throws std::invalid_argument, whose message names the
    /// piece, for a text that is not such a list; words and numbers are not looked at.
    static std::vector<Condition> split(const std::string& text);

    /// Adds a condition: the header word `key` is one of `numbers`, written as in NumberRanges. The
    /// key "traces" stands for the trace's number in the file, from 1. Throws
    /// std::invalid_argument, whose message begins with the key, for a text that is not such a
    /// list and for a key that is not the one of a word of `words`.
    void add(const std::string& key, const std::string& numbers,
             const std::vector<HeaderWord>& words = traceHeaderWords());

    bool isEmpty() const { return all.empty(); } ///< whether there is no condition
    /// The conditions as they were added, for messages: "traces 1:100, cdp 7".
    const std::string& text() const { return all; }

    /// The value of a header word of trace `index`, from 0.
    using WordOf = std::function<WordValue(int64_t index, const HeaderWord& word)>;
    /// The first trace from `index` on, from 0 and in the order of the file, of a file of `traces`
    /// traces that meets all conditions; `traces` when none does. Traces are walked, never listed:
    /// a selection takes no memory, whatever the size of the file. `wordOf` is not called for
    /// traces that conditions on numbers, or conditions added earlier, exclude.
    int64_t next(int64_t index, int64_t traces, const WordOf& wordOf) const;
    /// The trace that is `steps` of them behind trace `index`; `traces` when there are not so many.
    /// Headers are read where there is a condition on a word. Requires: trace `index` is one of
    /// them.
    int64_t skip(int64_t index, int64_t steps, int64_t traces, const WordOf& wordOf) const;
    /// How many traces meet all conditions. Headers are read where there is a condition on a word.
    int64_t count(int64_t traces, const WordOf& wordOf) const;
    /// Whether there is a condition on a header word.
    bool readsHeaders() const { return !conditions.empty(); }

private:
    struct Wanted
    {
        HeaderWord word;
        NumberRanges numbers;
    };

    std::optional<NumberRanges> traceNumbers; // from 1, that meet all conditions on numbers
    std::vector<Wanted> conditions;           // on words
    std::string all;
};

} // namespace VORN

#endif
