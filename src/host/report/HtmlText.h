/// @file HtmlText.h
///
/// Texts and bytes for an HTML page, harmless whatever they contain.
#ifndef HTMLTEXT_H
#define HTMLTEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

/// Bytes of a text after which it is cut on a page.
constexpr std::size_t longestHtmlText = 4000;

/// `text` between tags or in a quoted attribute: as `escaped` shows it, with entities for what HTML
/// gives a meaning. What is longer than `most` bytes is cut between two characters, and the number
/// of bytes left out is shown.
std::string html(std::string_view text, std::size_t most = longestHtmlText);

/// `html`, but line feeds stay.
std::string htmlLines(std::string_view text, std::size_t most = longestHtmlText);

/// The bytes in base64 (RFC 4648), with padding.
std::string base64(std::string_view bytes);

/// "data:image/png;base64,…"
std::string dataUri(const std::string& mediaType, std::string_view bytes);

/// How a content security policy names an inline script or style sheet: "'sha256-…'".
std::string policyHash(std::string_view text);

} // namespace host

#endif
