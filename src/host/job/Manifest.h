/// @file Manifest.h
///
/// The description of a module in NAME.yaml beside its library: ports, parameters, attributes.
#ifndef MANIFEST_H
#define MANIFEST_H

#include "job/ManifestParallel.h"
#include "job/ParameterRules.h"
#include "job/YamlReader.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// Types of parameters; the names in manifests are those of parameterTypeName.
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
    textList,
    fileList,  ///< existing files that the module reads; each a name or a pattern
    selection, ///< header words and the numbers wanted, as VORN::TraceSelection reads them
    wordMap    ///< header words and their bytes, as VORN::WordMap reads them
};

/// What the texts of a parameter stand for.
enum class ParameterMeaning
{
    plain,
    attribute,  ///< names of trace attributes
    sortKey,    ///< names of trace attributes, with "-" before a name to sort in descending order
    ranges,     ///< numbers and ranges of numbers, as VORN::NumberRanges reads them
    formula,    ///< formulas over header words, as words::Expression reads them
    assignment, ///< assignments to header words, as words::parseAssignment reads them
    time,       ///< numbers that are times of the record
    span        ///< numbers that are lengths of time within the record
};

/// "int", "float_list" and so on.
const char* parameterTypeName(ParameterType type);
bool isListType(ParameterType type);
bool isNumberType(ParameterType type); ///< also of lists
/// "attribute", "sort_key", "ranges", "formula", "assignment", "time", "span"; empty for
/// plain ones.
const char* parameterMeaningName(ParameterMeaning meaning);

/// Whether the texts are names of trace attributes, alone or with a sign.
bool namesAttributes(ParameterMeaning meaning);

/// A parameter of a module.
struct ParameterSpec
{
    std::string name;
    ParameterType type = ParameterType::text;
    ParameterMeaning meaning = ParameterMeaning::plain;
    std::string unit;       ///< what the module receives; empty: none
    YamlValue defaultValue; ///< null: none
    bool required = false;
    std::optional<double> min; ///< inclusive
    std::optional<double> max;
    std::optional<double> exclusiveMin; ///< exclusive
    std::optional<double> exclusiveMax;
    std::optional<int> minCount; ///< elements of a list
    std::optional<int> maxCount;
    std::vector<std::string> choices;
    std::vector<std::string> besides; ///< texts that name no attribute and are allowed all the same
    std::string help;                 ///< one sentence
    Place place;                      ///< of the entry
};

/// The input ports or the output ports of a module.
struct PortSpec
{
    static constexpr int any = -1; ///< no upper limit

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
    int type = 0; ///< kernel type code; 0: not given; then that of the schema, or a 32-bit integer
    int dimension = 1;
    std::string help;
};

/// What a manifest says. Keys that are missing leave fields empty.
struct Manifest
{
    std::string path; ///< of the manifest
    std::string module;
    std::string version;
    std::string purpose;     ///< one line
    std::string description; ///< paragraphs
    std::string language;    ///< in which the module is written
    PortSpec inputs;
    PortSpec outputs;
    std::vector<ParameterSpec> parameters;
    std::vector<ParameterRule> rules; ///< between parameters
    std::vector<std::string> reads;   ///< names of trace attributes
    std::vector<AttributeSpec> writes;
    std::string draws;     ///< "none", or what
    ParallelSpec parallel; ///< how it runs in parts

    const ParameterSpec* find(const std::string& parameter) const;
    /// The names of all parameters, in the order of the manifest.
    std::vector<std::string> parameterNames() const;
};

/// Manifests are shared by all modules of a job that use them; null: there is none.
using ManifestPointer = std::shared_ptr<const Manifest>;

/// The manifest in `path` of the module `module`; null when it has errors, which have been
/// reported.
ManifestPointer readManifest(const std::string& path, const std::string& module,
                             Diagnostics& diagnostics);
/// The same from a text; `path` is the name for messages.
ManifestPointer parseManifest(const std::string& text, const std::string& path,
                              const std::string& module, Diagnostics& diagnostics);

/// Kernel type codes of trace attributes by their names in manifests and schemas: int32, int64,
/// float32, float64, text32, text64; 0 for other names.
int attributeTypeCode(const std::string& name);
/// All names of types, in the order of the list above.
std::vector<std::string> attributeTypeNames();
/// The name of a type code; "" for other codes.
std::string attributeTypeName(int code);

/// Keys of a module entry that are not parameters: name, module, input, inputs.
bool isReservedKey(const std::string& key);

} // namespace host

#endif
