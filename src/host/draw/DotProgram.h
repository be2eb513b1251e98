/// @file DotProgram.h
///
/// Graphviz' program that draws graphs.
#ifndef DOTPROGRAM_H
#define DOTPROGRAM_H

#include <chrono>
#include <string>

namespace host {

/// Whether the program `dot` can be run.
bool isDotInstalled();

/// The picture of `dot` text in `format` ("svg", "png", "pdf"), made by the program `dot`, which is
/// run without a shell. Throws CommandError when the program is not installed, when it fails, and
/// when it takes longer than `limit`; it has ended then. The default is far more than a graph of
/// ten thousand modules takes.
std::string drawDot(const std::string& dot, const std::string& format,
                    std::chrono::milliseconds limit = std::chrono::minutes(10));

} // namespace host

#endif
