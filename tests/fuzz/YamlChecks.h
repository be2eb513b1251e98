/// @file YamlChecks.h
///
/// What holds for everything that is read from YAML, and for what is said about it.
#ifndef YAMLCHECKS_H
#define YAMLCHECKS_H

#include "base/Diagnostics.h"

#include <string>

/// Reads `text` as YAML, and what was read a second time from a text of its own.
void checkYaml(const std::string& text);

/// Every line is one line of UTF-8 without control characters, in the order in which they are
/// told.
void checkDiagnostics(const host::Diagnostics& diagnostics);

#endif
