/// @file YamlFields.h
///
/// Reads the known keys of a YAML map and reports all others as errors.
#ifndef YAMLFIELDS_H
#define YAMLFIELDS_H

#include "job/YamlReader.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// Each function looks up one key and remembers it as known. A value of the wrong kind is reported
/// as an error at its place, and the result is that of an absent key. A key without a value counts
/// as absent.
class YamlFields
{
public:
    /// `map` may be null or something else than a map: then an error has been reported, and no key
    /// is found. `subject` begins the errors: "the job", "parameter \"window\"".
    YamlFields(const YamlValue& map, const std::string& subject, Diagnostics& diagnostics);

    /// The entry, or null.
    const YamlEntry* entry(const std::string& key);
    /// The value as written; a list or a map is an error.
    std::optional<std::string> text(const std::string& key);
    /// As `text`, with an error when the key is absent or empty.
    std::optional<std::string> requiredText(const std::string& key);
    /// A whole number from `least` to `most`.
    std::optional<long long> integer(const std::string& key, long long least, long long most);
    /// A finite number.
    std::optional<double> number(const std::string& key);
    /// true or false, or a word that means one of them (see parseBoolean).
    std::optional<bool> boolean(const std::string& key);
    /// A list of texts; a single one counts as a list.
    std::vector<std::string> texts(const std::string& key);
    /// One of `allowed`.
    std::optional<std::string> choice(const std::string& key,
                                      const std::vector<std::string>& allowed);

    /// Reports an error for each key that no function has asked for.
    void refuseOthers();

    /// Where the map begins.
    const Place& place() const { return mapPlace; }

private:
    const YamlEntry* scalar(const std::string& key, const std::string& expected);
    void complain(const YamlEntry& entry, const std::string& expected);

    YamlValue map;
    Place mapPlace;
    std::string subject;
    Diagnostics& diagnostics;
    std::vector<std::string> known;
};

} // namespace host

#endif
