/// @file YamlReader.h
///
/// YAML as job files and manifests use it: names, values, lists, each with its place. What is
/// usually a mistake and accepted silently by YAML libraries is refused here: equal keys, merge
/// keys, tags, several documents in a file.
#ifndef YAMLREADER_H
#define YAMLREADER_H

#include "base/Diagnostics.h"

#include <memory>
#include <string>
#include <vector>

namespace host {

struct YamlNode;
/// Nodes are shared: aliases refer to the node of their anchor.
using YamlValue = std::shared_ptr<const YamlNode>;

/// A key of a map and its value.
struct YamlEntry
{
    std::string key;
    Place place; ///< of the key
    YamlValue value;
};

/// A value with its place.
struct YamlNode
{
    enum class Kind
    {
        null,
        scalar,
        list,
        map
    };

    Kind kind = Kind::null; ///< which of the fields below have a meaning
    Place place;
    std::string text;      ///< of a scalar, as written, without quotes
    bool isQuoted = false; ///< the scalar is in quotes: a text, also when it looks like a number
    std::vector<YamlValue> items;   ///< of a list
    std::vector<YamlEntry> entries; ///< of a map, in order of the file; all keys differ
    int levels = 1; ///< of nodes, itself and those behind aliases included; at most 500

    bool isNull() const { return kind == Kind::null; }
    bool isScalar() const { return kind == Kind::scalar; }
    bool isList() const { return kind == Kind::list; }
    bool isMap() const { return kind == Kind::map; }

    /// The entry of that key, or null.
    const YamlEntry* find(const std::string& key) const;
    /// For messages: the quoted text of a scalar, "a list", "a group of keys", "nothing".
    std::string description() const;
};

/// The document in `text`, or null when its syntax is wrong. Errors go to `diagnostics` under the
/// name `source`; a document may be returned although it has errors.
YamlValue readYaml(const std::string& text, const std::string& source, Diagnostics& diagnostics);

/// The same for a file of at most 4 MB; null when it cannot be read or is not UTF-8 text.
YamlValue readYamlFile(const std::string& path, Diagnostics& diagnostics);

/// What readYaml() returns for `text`, in a tenth of its time, where that is a map without errors
/// that has only what manifests have as a rule: ASCII characters, no anchors, tags, empty values,
/// directives, question marks and quoted texts of several lines. Null for every other text,
/// whatever the reason: readYaml() knows it.
YamlValue readSimpleYaml(const std::string& text, const std::string& source);

/// The same for a file of at most 4 MB.
YamlValue readSimpleYamlFile(const std::string& path);

/// `text` as one value, for what is given on the command line: a list in brackets, else a scalar.
YamlValue readYamlValue(const std::string& text, const std::string& source,
                        Diagnostics& diagnostics);

} // namespace host

#endif
