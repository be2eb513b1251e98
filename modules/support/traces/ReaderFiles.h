/// @file ReaderFiles.h
///
/// What the modules that read trace files find out about them.
#ifndef READERFILES_H
#define READERFILES_H

#include "segy/HeaderWords.h"
#include "segy/WordMap.h"
#include "traces/WordCounts.h"

#include <cstdint>
#include <string>
#include <vector>

namespace traces {

/// Length and interval of the traces of several files that are read as one input.
class CommonLayout
{
public:
    /// Adds a file: samples per trace, and microseconds (0: no header states them). Throws
    /// std::runtime_error where its interval is not that of the files before, since traces of one
    /// input have one interval.
    void add(const std::string& path, int samples, int interval);

    int samples() const { return longest; }       ///< of the longest file
    int interval() const { return microseconds; } ///< 0 where no file states it
    /// A line for the files with shorter traces, and one for those without an interval among
    /// others; none where all files agree.
    std::vector<std::string> warnings() const;

private:
    struct File
    {
        std::string path;
        int samples;
        int interval;
    };

    std::vector<File> files;
    int longest = 0;
    int microseconds = 0;
    std::string stating; // the file that states the interval
};

/// The message for a selection that leaves none of the `traces` traces of `files`.
std::string nothingSelected(const std::vector<std::string>& files, int64_t traces,
                            const std::string& selection);

/// Bytes 181 to 240 of trace headers, which revision 1 gives a meaning and revision 0 leaves to the
/// writer of the file: counts the traces of a revision 0 file that have values there.
class VendorBytes
{
public:
    /// Nothing is counted for other revisions, nor for words that share a byte with a word of
    /// `map`: the user knows those.
    VendorBytes(int revision, const VORN::WordMap& map);

    void see(const unsigned char* header); ///< a trace header of 240 bytes
    /// One line that names the words and their traces; "" when there are none.
    std::string text() const;

    /// Adds what was seen of other traces of the same file.
    void add(const VendorBytes& others) { counts.add(others.counts); }
    /// Names the counts to a file that saves or reads them.
    template <typename File>
    void transfer(File& file)
    {
        file(counts);
    }

private:
    std::vector<const VORN::HeaderWord*> words;
    WordCounts counts;
};

} // namespace traces

#endif
