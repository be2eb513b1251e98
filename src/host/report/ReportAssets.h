/// @file ReportAssets.h
///
/// What is the same in every report: its style sheets, and the script that enlarges pictures. The
/// build embeds them from report.css, graph.css and report.js.
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

} // namespace host

#endif
