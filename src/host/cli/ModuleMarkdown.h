/// @file ModuleMarkdown.h
///
/// What a manifest says of a module, as Markdown: for the module's page and for the reference of
/// all modules.
#ifndef MODULEMARKDOWN_H
#define MODULEMARKDOWN_H

#include "job/Manifest.h"

#include <string>

namespace host {

/// The table of parameters, the ports and the trace attributes; ends with a line feed.
std::string interfaceMarkdown(const Manifest& manifest);

/// A chapter on the module: its name as a heading of the second level, purpose, description,
/// interface.
std::string chapterMarkdown(const Manifest& manifest);

} // namespace host

#endif
