/// @file SetJson.h
///
/// The facts of the runs of one job on many files, as JSON.
#ifndef SETJSON_H
#define SETJSON_H

#include "report/SetResult.h"

#include <optional>
#include <string>

namespace host {

/// The format that the text names under the key `format`.
constexpr char setFormat[] = "vorn-set";

/// The whole set; docs/many-files.md describes the keys.
std::string setJson(const SetResult& result);

/// One file of it.
std::string setFileJson(const SetFile& file);

/// A file from what `setFileJson` has made; nothing for any other text. Bytes of names that are not
/// UTF-8 are lost.
std::optional<SetFile> readSetFileJson(const std::string& text);

} // namespace host

#endif
