/// @file WordRuns.h
///
/// Many header words at once: a trace header has ninety of them.
#ifndef WORDRUNS_H
#define WORDRUNS_H

#include "segy/HeaderWords.h"
#include "segy_export.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace VORN {

/// The values of a list of words, converted in runs: most words of a header have neighbours of
/// their own width, and a run of them is one loop.
class VORN_SEGY_EXPORT WordRuns
{
public:
    /// No words.
    WordRuns() = default;
    /// These, of 2 or 4 bytes each, in this order. They are copied.
    explicit WordRuns(const std::vector<const HeaderWord*>& words);

    /// The number of words.
    std::size_t size() const { return count; }

    /// Reads each word of the header at `header` as `readWord` does, to `values`, in the order of
    /// the words.
    void read(const unsigned char* header, bool littleEndian, int32_t* values) const;

    /// Writes `values`, in the order of the words, to the header at `header` as `writeWord` does.
    /// Returns whether all of them fit.
    bool write(unsigned char* header, bool littleEndian, const int32_t* values) const;

    /// Words of one width that are neighbours in the list and in the header.
    struct Run
    {
        std::size_t index;  ///< of the first one in the list
        std::size_t offset; ///< of the first one in the header, from 0
        std::size_t count;  ///< of the words
        int bytes;          ///< of each: 2 or 4
        bool isUnsigned;    ///< of words of 2 bytes
    };

    /// All runs, in the order of the words.
    const std::vector<Run>& list() const { return runs; }

    /// Reads the words of one run to `values`, the place of its first one.
    static void read(const Run& run, const unsigned char* header, bool littleEndian,
                     int32_t* values);

private:
    std::vector<Run> runs;
    std::size_t count = 0;
};

} // namespace VORN

#endif
