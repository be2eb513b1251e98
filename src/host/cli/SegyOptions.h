/// @file SegyOptions.h
///
/// Options of the commands that read a SEG-Y file: what its headers say wrong or elsewhere. They
/// are named as the parameters of the module segy_in.
#ifndef SEGYOPTIONS_H
#define SEGYOPTIONS_H

#include "cli/CommandTable.h"
#include "segy/SegyLayout.h"
#include "segy/WordMap.h"

#include <string>
#include <vector>

namespace host {

/// The options, to be appended to those of a command.
std::vector<OptionSpec> segyOptions();

/// What the call states. Throws CommandError for values out of range.
VORN::SegyOverrides segyOverrides(const Arguments& arguments);

/// The map of header words of the call. Throws CommandError for a text that is not one.
VORN::WordMap wordMap(const Arguments& arguments);

/// The keys of header words.
std::vector<std::string> keysOf(const std::vector<VORN::HeaderWord>& words);

/// The word of that key, or null.
const VORN::HeaderWord* findWord(const std::vector<VORN::HeaderWord>& words,
                                 const std::string& key);

} // namespace host

#endif
