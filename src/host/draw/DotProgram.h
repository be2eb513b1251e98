/// @file DotProgram.h
///
/// Graphviz' program that draws graphs.
#ifndef DOTPROGRAM_H
#define DOTPROGRAM_H

#include <string>

namespace host {

/// Whether the program `dot` can be run.
bool isDotInstalled();

/// The picture of `dot` text in `format` ("svg", "png", "pdf"), made by the program `dot`, which is
/// run without a shell. Throws CommandError when there is no such program or it fails.
std::string drawDot(const std::string& dot, const std::string& format);

} // namespace host

#endif
