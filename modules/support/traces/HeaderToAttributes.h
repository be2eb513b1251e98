/// @file HeaderToAttributes.h
///
/// From trace headers of a file to trace attributes of a job.
#ifndef HEADERTOATTRIBUTES_H
#define HEADERTOATTRIBUTES_H

#include "segy/HeaderWords.h"
#include "segy/WordRuns.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace traces {

/// Name of the trace attribute that has a trace's number in the file from which it was read,
/// from 1. No trace header holds it; a module that writes files leaves it out.
constexpr const char* fileTraceAttribute = "filetrace";

/// Makes the traces of a module that reads a file: each header word that the job's schema knows
/// becomes the trace attribute of its key. The words `ns` and `dt` say what the trace has as it was
/// read, since its header may be wrong. The attribute `filetrace` has the number of the trace in
/// its file, where the schema knows it: later modules drop and reorder traces, and their messages
/// name a trace by it.
///
/// All words of a trace are written with one call, or two where some are floats: setting ninety of
/// them by name would cost more than reading the trace. Words of unusual lengths and types, which
/// only a map of the user has, are set one by one.
///
/// Usual order: the constructor and `begin` in pre-processing, then `addTrace` for each trace.
/// Belongs to the module that is running then.
class HeaderToAttributes
{
public:
    /// The words among `words`, which live longer, that the job's schema knows; a float word needs
    /// a float attribute.
    explicit HeaderToAttributes(const std::vector<VORN::HeaderWord>& words);

    /// How many words become attributes.
    std::size_t knownWords() const { return integers.size() + floats.size() + others.size(); }
    /// The others, in the order of `words`.
    const std::vector<const VORN::HeaderWord*>& unknownWords() const { return unknown; }

    /// The word of that key, where its attribute is a number that has every value of the header as
    /// it stands there; else null.
    const VORN::HeaderWord* integerWord(const std::string& key) const;

    /// Defines the attributes in `output`, whose sample interval is `interval` microseconds.
    void begin(void* output, int interval);

    /// Adds trace `fileTrace` (from 1) of the file to `output`: its 240 header bytes are at
    /// `header`, in the byte order that `littleEndian` gives, and it has `samples` samples. Returns
    /// the place for the samples, or null when there is not enough memory for them.
    float* addTrace(void* output, int64_t fileTrace, const unsigned char* header, bool littleEndian,
                    int samples);

private:
    using Words = std::vector<const VORN::HeaderWord*>;

    Words integers;
    VORN::WordRuns integerRuns;
    Words floats;
    Words others; // set one by one
    Words unknown;
    std::size_t lengthWord = 0;   // among the integers; behind them when it is not known
    std::size_t intervalWord = 0; // likewise
    int microseconds = 0;
    bool numbered = false; // whether the schema knows the attribute of the number
    void* numberList = nullptr;
    void* integerList = nullptr; // the module's, as the list of floats
    void* floatList = nullptr;
    std::vector<int> integerValues; // of the trace that is being made
    std::vector<float> floatValues;
};

} // namespace traces

#endif
