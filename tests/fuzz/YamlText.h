/// @file YamlText.h
///
/// Writes what readYaml() has read, so that it can be read again.
#ifndef YAMLTEXT_H
#define YAMLTEXT_H

#include "job/YamlReader.h"

#include <cstddef>
#include <string>

/// Whether `value` has at most so many nodes, aliases counted wherever they stand, and at most so
/// many levels. Aliases of aliases stand for any number in a short text.
bool isWithin(const host::YamlValue& value, std::size_t nodes, std::size_t levels);

/// `value` as YAML: every scalar in quotes, every key explicit, aliases written out.
std::string yamlText(const host::YamlValue& value);

/// Whether two trees have the same kinds, keys and texts. Places and quotes may differ.
bool sameContent(const host::YamlValue& left, const host::YamlValue& right);

#endif
