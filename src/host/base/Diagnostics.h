/// @file Diagnostics.h
///
/// Errors and warnings about a file, collected so that all of them are reported at once.
#ifndef DIAGNOSTICS_H
#define DIAGNOSTICS_H

#include <cstdio>
#include <string>
#include <vector>

namespace host {

/// A place in a file, or a word of the command line.
struct Place
{
    std::string source; ///< file name as given by the user, or "--set agc.window=1"
    int line = 0;       ///< from 1; 0: the source as a whole
    int column = 0;     ///< from 1, in bytes

    /// "job.yaml:12:5", or the source alone.
    std::string text() const;
};

/// One error or warning.
struct Diagnostic
{
    Place place;
    bool isWarning = false;
    std::string text; ///< one line

    /// "job.yaml:12:5: text", or "job.yaml:12:5: warning: text".
    std::string line() const;
};

/// Errors and warnings in the order in which they were found.
class Diagnostics
{
public:
    /// Adds an error; `text` is one line, with what came from files in quote().
    void error(const Place& place, const std::string& text);
    /// Adds a warning; as for errors.
    void warning(const Place& place, const std::string& text);

    /// @name How many there are
    /// @{
    int errors() const { return errorCount; }
    int warnings() const { return static_cast<int>(all.size()) - errorCount; }
    bool hasErrors() const { return errorCount > 0; }
    /// @}

    /// In the order of sources as they were first met, lines and columns.
    std::vector<Diagnostic> sorted() const;
    /// Prints "vorn: " and a line for each to `stream`.
    void print(std::FILE* stream) const;

private:
    std::vector<Diagnostic> all;
    int errorCount = 0;
};

} // namespace host

#endif
