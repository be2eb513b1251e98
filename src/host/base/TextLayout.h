/// @file TextLayout.h
///
/// Texts in columns of a terminal: paragraphs and tables.
#ifndef TEXTLAYOUT_H
#define TEXTLAYOUT_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

/// `text` in lines of at most `width` characters, broken at blanks; a single longer word stays
/// whole. Empty lines separate paragraphs. Every line begins with `indent` blanks.
std::string wrapped(std::string_view text, int width, int indent);

/// How many columns of a terminal the UTF-8 text takes (one per character).
int displayWidth(std::string_view text);
/// @name The text with blanks behind or before it, `width` columns wide; unchanged when it is wider
/// @{
std::string padRight(std::string_view text, int width);
std::string padLeft(std::string_view text, int width);
/// @}

/// A table with aligned columns, two blanks apart, no blanks at line ends.
class TextTable
{
public:
    /// `alignments`: one character per column, 'l' or 'r'.
    explicit TextTable(std::string alignments) : columns(std::move(alignments)) {}
    /// Adds a row; one cell per column.
    void row(std::vector<std::string> cells);
    /// The rows as lines that end with a line feed, each after `indent` blanks.
    std::string text(int indent = 0) const;

private:
    std::string columns;
    std::vector<std::vector<std::string>> rows;
};

} // namespace host

#endif
