/// @file InlineSvg.h
///
/// A drawing that becomes part of a page.
#ifndef INLINESVG_H
#define INLINESVG_H

#include <string>

namespace host {

/// The SVG element of a picture that Graphviz drew, for use inside HTML: shapes and texts with what
/// places and colours them, nothing that runs, refers to anything or has an identifier. "" when
/// there is anything else in it than Graphviz writes; show the graph as text then. `label` is its
/// description for those who do not see it.
std::string inlineSvg(const std::string& svg, const std::string& label);

} // namespace host

#endif
