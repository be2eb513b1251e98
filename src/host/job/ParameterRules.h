/// @file ParameterRules.h
///
/// Rules between the parameters of a module, which manifests list under `rules`.
#ifndef PARAMETERRULES_H
#define PARAMETERRULES_H

#include "base/Diagnostics.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

struct Manifest;
class YamlFields;

/// What a rule demands. Each has the key of that name in manifests.
///
/// A parameter counts as given when it has a value other than its default and no empty text; a rule
/// about values looks at defaults, too, and at nothing where one of its parameters has no value.
enum class RuleKind
{
    needs,          ///< one of the parameters is given
    excludes,       ///< none of them is given
    sameCount,      ///< lists have equally many elements
    sameCountOrOne, ///< as the first list, or a single element
    single,         ///< the lists have at most one element
    below,          ///< each value is below that of the next parameter
    notAbove,       ///< likewise, or equal to it
    ascending,      ///< each element of the list is above the one before it
    notDescending,  ///< no element is below the one before it
    differ,         ///< the elements of the list are not all equal
    distinct,       ///< no text is there twice, in all the parameters together
    multiple,       ///< the value is a multiple of `number`
    product,        ///< the product of the values is at most `number`
    columns         ///< a CSV file has the columns that the parameters name, with numbers in them
};

/// The key of a rule in manifests: "same_count".
const char* ruleKindName(RuleKind kind);

/// One rule.
struct ParameterRule
{
    RuleKind kind = RuleKind::needs;
    std::vector<std::string> of;     ///< parameters, in the order of the manifest
    std::string when;                ///< the rule holds when this parameter is given; empty: always
    std::vector<std::string> values; ///< of `when`, where only some of its choices count
    std::string within; ///< of `ascending`: a list of equal length whose equal values make a group
    /// @name Of `columns`
    /// @{
    std::string table;              ///< the parameter with the file
    std::vector<std::string> named; ///< further columns, by their names
    std::string
        key; ///< the parameter that names the columns of a key; without it, the first one is
    bool takesOthers = false; ///< where no column is named, all besides the key are meant
    /// @}
    double number = 0; ///< of `multiple` and `product`
    Place place;       ///< in the manifest

    /// In words, for pages: "offsets and times have the same number of elements".
    std::string text() const;
};

/// Reads one rule. Names of parameters and whether their types fit are checked against
/// `manifest`, whose parameters have been read. Nothing after an error.
std::optional<ParameterRule> readRule(YamlFields& fields, const Manifest& manifest,
                                      Diagnostics& diagnostics);

/// "a", "a and b", "a, b and c", with another word in the place of "and".
std::string enumerated(const std::vector<std::string>& names, const std::string& word);

} // namespace host

#endif
