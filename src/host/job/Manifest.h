/// @file Manifest.h
///
/// What a module says of itself in NAME.yaml beside its library: ports, parameters, attributes.
#ifndef MANIFEST_H
#define MANIFEST_H

#include "job/YamlReader.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host {

enum class ParameterType
{
    integer,
    real,
    boolean,
    text,
    choice,
    file,    ///< an existing file that the module reads
    outfile, ///< a file that the module writes
    integerList,
    realList,
    textList
};

/// What the texts of a parameter are, beyond texts.
enum class ParameterMeaning
{
    plain,
    attribute, ///< names of trace attributes
    sortKey    ///< the same, with "-" before a name that counts downwards
};

/// "int", "float_list" and so on.
const char* parameterTypeName(ParameterType type);
bool isListType(ParameterType type);
bool isNumberType(ParameterType type); ///< also of lists
/// "attribute", "sort_key"; empty for plain ones.
const char* parameterMeaningName(ParameterMeaning meaning);

struct ParameterSpec
{
    std::string name;
    ParameterType type = ParameterType::text;
    ParameterMeaning meaning = ParameterMeaning::plain;
    std::string unit;       ///< what the module receives; empty: none
    YamlValue defaultValue; ///< null: none
    bool required = false;
    std::optional<double> min; ///< allowed itself
    std::optional<double> max;
    std::optional<double> exclusiveMin; ///< not allowed itself
    std::optional<double> exclusiveMax;
    std::optional<int> minCount; ///< elements of a list
    std::optional<int> maxCount;
    std::vector<std::string> choices;
    std::string help;
    Place place;
};

/// The input ports or the output ports of a module.
struct PortSpec
{
    static constexpr int any = -1;

    int min = 0;
    int max = 0; ///< or `any`
    std::vector<std::string> names;

    /// "1", "1 or 2", "0 to 3", "1 or more".
    std::string countText() const;
};

/// A trace attribute that a module writes.
struct AttributeSpec
{
    std::string name;
    int type = 0; ///< kernel type code; 0: not said, the schema's, or a 32-bit integer
    int dimension = 1;
    std::string help;
};

struct Manifest
{
    std::string path;
    std::string module;
    std::string version;
    std::string purpose;
    std::string description;
    std::string language;
    PortSpec inputs;
    PortSpec outputs;
    std::vector<ParameterSpec> parameters;
    std::vector<std::string> reads;
    std::vector<AttributeSpec> writes;
    std::string draws; ///< "none", or what

    const ParameterSpec* find(const std::string& parameter) const;
    std::vector<std::string> parameterNames() const;
};

using ManifestPointer = std::shared_ptr<const Manifest>;

/// The manifest in `path` of the module `module`; null, after errors, when it is not correct.
ManifestPointer readManifest(const std::string& path, const std::string& module,
                             Diagnostics& diagnostics);
/// The same from a text; `path` is the name for messages.
ManifestPointer parseManifest(const std::string& text, const std::string& path,
                              const std::string& module, Diagnostics& diagnostics);

/// Kernel type codes of trace attributes by their names in manifests and schemas: int32, int64,
/// float32, float64, text32, text64; 0 for other names.
int attributeTypeCode(const std::string& name);
std::vector<std::string> attributeTypeNames();
std::string attributeTypeName(int code);

/// Keys of a module entry that are not parameters: name, module, input, inputs.
bool isReservedKey(const std::string& key);

} // namespace host

#endif
