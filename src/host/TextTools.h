/// @file TextTools.h
///
/// Small conversions of text that every part of the command uses.
#ifndef TEXTTOOLS_H
#define TEXTTOOLS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

/// `text` as it may be shown on a terminal: control characters, bytes that are no UTF-8 and
/// characters that change the direction of writing become \n, \t, \x1b, \u202e and the like. For
/// everything that comes from a file, a module or the command line.
std::string escaped(std::string_view text);

/// `escaped`, but line feeds stay: for texts of several lines.
std::string escapedLines(std::string_view text);

/// The text in double quotes, escaped, quotes and backslashes too.
std::string quote(std::string_view text);

/// How many leading bytes are UTF-8 without NUL.
std::size_t utf8Prefix(std::string_view text);

/// The name that `wrong` was most probably meant to be, or "" when none is near.
std::string nearestName(const std::string& wrong, const std::vector<std::string>& names);

/// "; did you mean \"window\"?", or, when no name is near, "; " and `otherwise` and the names. ""
/// when there are none, or when `otherwise` is empty.
std::string suggestion(const std::string& wrong, const std::vector<std::string>& names,
                       const std::string& otherwise);

std::string trimmed(std::string_view text);
std::string joined(const std::vector<std::string>& items, const std::string& separator);
std::vector<std::string> splitLines(std::string_view text);
std::string lowerCase(std::string_view text);

/// `text` in lines of at most `width` characters, broken at blanks; a single longer word stays
/// whole. Empty lines separate paragraphs. Every line begins with `indent` blanks.
std::string wrapped(std::string_view text, int width, int indent);

/// How many columns of a terminal the UTF-8 text takes (one per character).
int displayWidth(std::string_view text);
std::string padRight(std::string_view text, int width);
std::string padLeft(std::string_view text, int width);

/// A table with aligned columns, two blanks apart, no blanks at line ends.
class TextTable
{
public:
    /// `alignments`: one character per column, 'l' or 'r'.
    explicit TextTable(std::string alignments) : columns(std::move(alignments)) {}
    void row(std::vector<std::string> cells);
    std::string text(int indent = 0) const;

private:
    std::string columns;
    std::vector<std::vector<std::string>> rows;
};

/// @name Quantities, with a few significant digits
/// @{
std::string formatMicros(double micros);  ///< "12.34 ms", "3.210 s", "2 min 05 s"
std::string formatBytes(double bytes);    ///< "1.234 MB" (10^6 bytes)
std::string formatRate(double perSecond); ///< "12.3", "1234"
/// @}

/// The shortest decimal number that reads back as `value`.
std::string formatNumber(double value);

/// "1 module", "2 modules"
std::string counted(int64_t count, const std::string& noun);

} // namespace vorn

#endif
