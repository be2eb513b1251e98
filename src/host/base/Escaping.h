/// @file Escaping.h
///
/// Text that comes from a file, a module or the command line, made safe to show.
#ifndef ESCAPING_H
#define ESCAPING_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// `text` as it may be shown on a terminal: control characters, bytes that are not UTF-8 and
/// characters that change the direction of writing become \n, \t, \x1b, \u202e and the like. For
/// everything that comes from a file, a module or the command line.
std::string escaped(std::string_view text);

/// `escaped`, but line feeds stay: for texts of several lines.
std::string escapedLines(std::string_view text);

/// The text in double quotes, escaped, quotes and backslashes too.
std::string quote(std::string_view text);

/// `word` as a POSIX shell takes it for one word: itself where nothing in it has a meaning there,
/// else in quotes. With control characters, in the form $'...' that bash, zsh and ksh know.
std::string shellWord(std::string_view word);

/// How many leading bytes are UTF-8 without NUL.
std::size_t utf8Prefix(std::string_view text);

} // namespace host

#endif
