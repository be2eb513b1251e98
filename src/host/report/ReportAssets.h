/// @file ReportAssets.h
///
/// What is the same in every report: its style sheets, and the script that enlarges pictures; and
/// what the index of many files has besides. The build embeds them from report.css, graph.css,
/// report.js, index.css and index.js.
#ifndef REPORTASSETS_H
#define REPORTASSETS_H

#include <string_view>

namespace host {

/// The content of the page's style element: a line feed, then report.css byte for byte. The page's
/// content security policy allows it by the checksum of exactly this text.
extern const std::string_view reportStyle;

/// The content of a style element for the picture of the job graph: a line feed, then graph.css.
extern const std::string_view graphStyle;

/// The content of the page's script element: a line feed, then report.js byte for byte. Allowed in
/// the same way; no other script can run.
extern const std::string_view reportScript;

/// The content of a second style element, of the index page: a line feed, then index.css.
extern const std::string_view indexStyle;

/// The content of the script element of the index page, which sorts and filters its table: a line
/// feed, then index.js.
extern const std::string_view indexScript;

} // namespace host

#endif
