/// @file HeaderToAttributes.h
///
/// From trace headers of a file to trace attributes of a job.
#ifndef HEADERTOATTRIBUTES_H
#define HEADERTOATTRIBUTES_H

#include "segy/HeaderWords.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace traces {

/// Makes the traces of a module that reads a file: each header word that the job's schema knows
/// becomes the trace attribute of its key. The words `ns` and `dt` say what the trace has as it was
/// read, since its header may be wrong.
///
/// Most words stay the same from one trace to the next. They are kept in the one trace of work
/// buffer 0, where only those that change are written, and copied from there as a block: setting
/// all ninety of each trace by name would cost more than reading it.
///
/// Usual order: the constructor and `begin` in pre-processing, then `addTrace` for each trace.
/// Belongs to the module that is running then.
class HeaderToAttributes
{
public:
    /// The words among `words` that the job's schema knows; a float word needs a float attribute.
    explicit HeaderToAttributes(const std::vector<VORN::HeaderWord>& words);

    /// How many words become attributes.
    std::size_t knownWords() const { return known.size(); }
    /// The others, in the order of `words`.
    const std::vector<const VORN::HeaderWord*>& unknownWords() const { return unknown; }

    /// Defines the attributes in `output` and builds the work buffer; `interval` is the sample
    /// interval in microseconds.
    void begin(void* output, int interval);

    /// Adds a trace to `output`: its 240 header bytes are at `header`, in the byte order that
    /// `littleEndian` tells; it has `samples` samples and the interval of `begin`. Returns the
    /// place for the samples, or null when there is no memory for them.
    float* addTrace(void* output, const unsigned char* header, bool littleEndian, int samples);

private:
    struct Word
    {
        const VORN::HeaderWord* place;
        int32_t value; // as it stands in the work buffer; of a float, its bits
    };
    int32_t valueOf(const Word& word, const unsigned char* header, bool littleEndian,
                    int samples) const;

    std::vector<Word> known;
    std::vector<const VORN::HeaderWord*> unknown;
    int microseconds = 0;
};

} // namespace traces

#endif
