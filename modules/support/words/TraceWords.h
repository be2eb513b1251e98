/// @file TraceWords.h
///
/// Header words of traces as numbers, and traces named in messages.
#ifndef TRACEWORDS_H
#define TRACEWORDS_H

#include "UniVar.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace words {

/// Reads words of traces as doubles with one call for a trace. Belongs to the running module.
/// Failures are std::runtime_error for the user.
class TraceWords
{
public:
    /// `names` each once, in the order of the values.
    explicit TraceWords(const std::vector<std::string>& names);

    const std::vector<std::string>& names() const { return words; }

    /// The values of the first trace of `set`. Throws when the set lacks a word or has a text or an
    /// array for it; and for an integer of 64 bits that a double cannot hold, by the name of
    /// `trace`, which `nameOfTrace` makes.
    void read(void* set, std::int64_t trace, std::vector<double>& values);

private:
    void check(void* set);

    std::vector<std::string> words;
    void* list;
    std::vector<std::size_t> longWords; // integers of 64 bits
    bool isChecked = false;
};

/// How a word is stored.
enum class WordType
{
    integer32,
    integer64,
    real32,
    real64
};

/// The type that the job's schema gives to a word; integer32 when the schema does not know it.
/// Throws for texts and arrays.
WordType wordTypeOf(const std::string& name);

/// `value` as it is stored in a word of that type: integers are rounded to the nearest, halves away
/// from zero. Throws when it does not fit.
UniVar stored(double value, WordType type);

/// A trace in messages: its number in the input of the module, from 1, and the words that tell it
/// apart where it has them: "trace 17 (fldr 3, tracf 5)".
std::string nameOfTrace(void* set, std::int64_t number);

/// A number in messages: as many digits as it needs, at most 9.
std::string numberText(double value);

} // namespace words

#endif
