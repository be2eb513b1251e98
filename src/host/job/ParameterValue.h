/// @file ParameterValue.h
///
/// The value of a parameter in a job file, converted into what the module receives.
#ifndef PARAMETERVALUE_H
#define PARAMETERVALUE_H

#include "UniVar.h"
#include "job/Manifest.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// A converted parameter.
struct ParameterValue
{
    UniVar value;     ///< the kernel parameter
    std::string text; ///< the same as text: numbers in the manifest's unit, paths absolute
    std::optional<std::vector<std::string>> items; ///< of a list: the texts of its elements
};

/// Numbers become numbers in the manifest's unit: "500 ms" is 0.5 where that is s. A number without
/// a unit has the unit of the manifest. Paths become absolute, relative ones against `folder`;
/// whether files exist is not checked. Every error names the value and what was expected, beginning
/// with `subject`, as in "parameter \"window\" of module \"agc\"". Nothing after an error.
std::optional<ParameterValue> convertParameter(const ParameterSpec& spec, const YamlValue& value,
                                               const std::string& folder,
                                               const std::string& subject,
                                               Diagnostics& diagnostics);

/// The value of a parameter that no manifest describes: a number when it looks like one (unless it
/// is in quotes), else a text; lists of numbers or texts.
std::optional<ParameterValue> guessParameter(const YamlValue& value, const std::string& subject,
                                             Diagnostics& diagnostics);

/// What the manifest requires, in words: "a number from 0 to 100 in s (also ms, us)".
std::string expectedValue(const ParameterSpec& spec);

} // namespace host

#endif
