#include "job/Manifest.h"

#include "base/Escaping.h"
#include "job/ParameterValue.h"
#include "job/YamlFields.h"

#include <algorithm>
#include <array>
#include <climits>
#include <fmt/format.h>
#include <utility>

namespace host {

namespace {

// clang-format off
constexpr std::array<std::pair<ParameterType, const char*>, 13> typeNames = {{
    {ParameterType::integer,     "int"},
    {ParameterType::real,        "float"},
    {ParameterType::boolean,     "bool"},
    {ParameterType::text,        "text"},
    {ParameterType::choice,      "choice"},
    {ParameterType::file,        "file"},
    {ParameterType::outfile,     "outfile"},
    {ParameterType::integerList, "int_list"},
    {ParameterType::realList,    "float_list"},
    {ParameterType::textList,    "text_list"},
    {ParameterType::fileList,    "file_list"},
    {ParameterType::selection,   "selection"},
    {ParameterType::wordMap,     "word_map"},
}};

constexpr std::array<std::pair<ParameterMeaning, const char*>, 7> meaningNames = {{
    {ParameterMeaning::attribute,  "attribute"},
    {ParameterMeaning::sortKey,    "sort_key"},
    {ParameterMeaning::ranges,     "ranges"},
    {ParameterMeaning::formula,    "formula"},
    {ParameterMeaning::assignment, "assignment"},
    {ParameterMeaning::time,       "time"},
    {ParameterMeaning::span,       "span"},
}};

constexpr std::array<std::pair<const char*, int>, 6> attributeTypes = {{
    {"int32", 2}, {"int64", 3}, {"float32", 4}, {"float64", 5}, {"text32", 9}, {"text64", 10},
}};
// clang-format on

constexpr int mostPorts = 1000;

bool isIdentifier(const std::string& name)
{
    const auto isLetter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    return !name.empty() && isLetter(name[0]) && std::all_of(name.begin(), name.end(), [&](char c) {
        return isLetter(c) || (c >= '0' && c <= '9');
    });
}

// Messages show these words unescaped.
bool canBeTyped(const ParameterSpec& spec)
{
    const auto isPlain = [](const std::string& word) { return escaped(word) == word; };
    return isPlain(spec.unit) && std::all_of(spec.choices.begin(), spec.choices.end(), isPlain);
}

class ManifestReader
{
public:
    explicit ManifestReader(Diagnostics& list) : diagnostics(list) {}

    void read(const YamlValue& document, Manifest& manifest)
    {
        YamlFields fields(document, "the manifest", diagnostics);
        manifest.module = readModuleName(fields, manifest.module);
        manifest.version = fields.text("version").value_or("");
        manifest.purpose = fields.requiredText("purpose").value_or("");
        manifest.description = fields.text("description").value_or("");
        manifest.language = fields.text("language").value_or("");
        manifest.inputs = readPorts(fields, "inputs");
        manifest.outputs = readPorts(fields, "outputs");
        readParameters(fields, manifest);
        readRules(fields, manifest);
        manifest.reads = fields.texts("reads");
        readWrites(fields, manifest);
        manifest.draws = fields.text("draws").value_or("none");
        readParallelWork(fields, manifest);
        fields.refuseOthers();
    }

private:
    std::string readModuleName(YamlFields& fields, const std::string& expected)
    {
        std::string name = fields.requiredText("module").value_or(expected);
        if (name != expected)
            diagnostics.error(fields.place(),
                              fmt::format("the manifest is of the module {}; expected {}, as the "
                                          "file is named",
                                          quote(name), quote(expected)));
        return name;
    }

    PortSpec readPorts(YamlFields& manifestFields, const std::string& key)
    {
        PortSpec ports;
        const YamlEntry* entry = manifestFields.entry(key);
        if (entry == nullptr) {
            diagnostics.error(manifestFields.place(),
                              fmt::format("the manifest needs the key {}", quote(key)));
            return ports;
        }
        YamlFields fields(entry->value, quote(key), diagnostics);
        ports.min = static_cast<int>(fields.integer("min", 0, mostPorts).value_or(0));
        if (const YamlEntry* max = fields.entry("max"); max != nullptr && max->value->text == "any")
            ports.max = PortSpec::any;
        else
            ports.max = static_cast<int>(fields.integer("max", 0, mostPorts).value_or(ports.min));
        ports.names = fields.texts("names");
        fields.refuseOthers();
        if (ports.max != PortSpec::any && ports.max < ports.min)
            diagnostics.error(
                entry->value->place,
                fmt::format("{}: the largest number of ports, {}, is below the smallest, {}",
                            quote(key), ports.max, ports.min));
        return ports;
    }

    void readParameters(YamlFields& manifestFields, Manifest& manifest)
    {
        const YamlEntry* entry = manifestFields.entry("parameters");
        if (entry == nullptr)
            return;
        if (!entry->value->isList()) {
            diagnostics.error(entry->value->place, "\"parameters\" is " +
                                                       entry->value->description() +
                                                       "; expected a list");
            return;
        }
        for (const YamlValue& item : entry->value->items)
            readParameter(item, manifest);
    }

    void readRules(YamlFields& manifestFields, Manifest& manifest)
    {
        const YamlEntry* entry = manifestFields.entry("rules");
        if (entry == nullptr)
            return;
        if (!entry->value->isList()) {
            diagnostics.error(entry->value->place,
                              "\"rules\" is " + entry->value->description() + "; expected a list");
            return;
        }
        for (const YamlValue& item : entry->value->items) {
            YamlFields fields(item, "the rule", diagnostics);
            if (!item->isMap())
                continue;
            if (const std::optional<ParameterRule> rule = readRule(fields, manifest, diagnostics))
                manifest.rules.push_back(*rule);
        }
    }

    void readParameter(const YamlValue& item, Manifest& manifest)
    {
        YamlFields fields(item, "the parameter", diagnostics);
        ParameterSpec spec;
        spec.place = item->place;
        spec.name = fields.requiredText("name").value_or("");
        readType(fields, spec);
        readMeaning(fields, spec);
        spec.unit = fields.text("unit").value_or("");
        spec.required = fields.boolean("required").value_or(false);
        spec.min = fields.number("min");
        spec.max = fields.number("max");
        spec.exclusiveMin = fields.number("exclusive_min");
        spec.exclusiveMax = fields.number("exclusive_max");
        spec.minCount = count(fields, "min_count");
        spec.maxCount = count(fields, "max_count");
        spec.choices = fields.texts("choices");
        spec.besides = fields.texts("besides");
        spec.help = fields.requiredText("help").value_or("");
        if (const YamlEntry* value = fields.entry("default"))
            spec.defaultValue = value->value;
        fields.refuseOthers();
        if (item->isMap())
            checkParameter(spec, manifest);
        manifest.parameters.push_back(spec);
    }

    void readType(YamlFields& fields, ParameterSpec& spec)
    {
        std::vector<std::string> names;
        names.reserve(std::size(typeNames));
        for (const auto& one : typeNames)
            names.emplace_back(one.second);
        fields.requiredText("type");
        const std::string type = fields.choice("type", names).value_or("text");
        for (const auto& one : typeNames) {
            if (type == one.second)
                spec.type = one.first;
        }
    }

    static void readMeaning(YamlFields& fields, ParameterSpec& spec)
    {
        std::vector<std::string> names;
        names.reserve(std::size(meaningNames));
        for (const auto& one : meaningNames)
            names.emplace_back(one.second);
        const std::optional<std::string> meaning = fields.choice("is", names);
        for (const auto& one : meaningNames) {
            if (meaning == one.second)
                spec.meaning = one.first;
        }
    }

    static std::optional<int> count(YamlFields& fields, const std::string& key)
    {
        const auto value = fields.integer(key, 0, INT_MAX);
        return value ? std::optional(static_cast<int>(*value)) : std::nullopt;
    }

    void checkParameter(const ParameterSpec& spec, const Manifest& manifest)
    {
        const std::string subject = "parameter " + quote(spec.name);
        const auto complain = [&](const std::string& text) {
            diagnostics.error(spec.place, subject + text);
        };
        if (!spec.name.empty() && !isIdentifier(spec.name))
            complain(" needs a name of letters, digits and \"_\"");
        if (isReservedKey(spec.name))
            complain(" has a name that job files use themselves");
        if (manifest.find(spec.name) != nullptr)
            complain(" is described more than once");
        if (!canBeTyped(spec)) {
            complain(" has a choice or a unit with characters that cannot be typed");
            return; // every message about its values would contain them
        }
        if (spec.type == ParameterType::choice && spec.choices.empty())
            complain(" is of type choice but has no \"choices\"");
        const bool bounded = spec.min || spec.max || spec.exclusiveMin || spec.exclusiveMax;
        if (!isNumberType(spec.type) && (bounded || !spec.unit.empty()))
            complain(" has a range or a unit but is not a number");
        const bool isText =
            spec.type == ParameterType::text || spec.type == ParameterType::textList;
        const bool isOfTime =
            spec.meaning == ParameterMeaning::time || spec.meaning == ParameterMeaning::span;
        if (isOfTime && (!isNumberType(spec.type) || spec.unit != "s"))
            complain(" cannot be a time of the record, since it is not a number of the unit s");
        if (spec.meaning != ParameterMeaning::plain && !isOfTime && !isText)
            complain(namesAttributes(spec.meaning)
                         ? " cannot name an attribute, since it is not a text"
                         : fmt::format(" cannot hold {}s, since it is not a text",
                                       spec.meaning == ParameterMeaning::ranges
                                           ? "range"
                                           : parameterMeaningName(spec.meaning)));
        if (!spec.besides.empty() && !namesAttributes(spec.meaning))
            complain(" has \"besides\" but does not name an attribute");
        if (!isListType(spec.type) && (spec.minCount || spec.maxCount))
            complain(" has a number of elements but is not a list");
        if (spec.required && spec.defaultValue != nullptr)
            complain(" is required and has a default; remove one of them");
        if (spec.defaultValue != nullptr)
            convertParameter(spec, spec.defaultValue, "/", "the default of " + subject,
                             diagnostics);
    }

    void readWrites(YamlFields& manifestFields, Manifest& manifest)
    {
        const YamlEntry* entry = manifestFields.entry("writes");
        if (entry == nullptr)
            return;
        const std::vector<YamlValue> items =
            entry->value->isList() ? entry->value->items : std::vector<YamlValue>{entry->value};
        for (const YamlValue& item : items) {
            if (item->isScalar())
                manifest.writes.push_back({item->text, 0, 1, ""});
            else
                readAttribute(item, manifest);
        }
    }

    void readParallelWork(YamlFields& manifestFields, Manifest& manifest)
    {
        const YamlEntry* entry = manifestFields.entry("parallel");
        if (entry == nullptr)
            return;
        YamlFields fields(entry->value, "\"parallel\"", diagnostics);
        if (entry->value->isMap())
            manifest.parallel = readParallel(fields, manifest, diagnostics);
    }

    void readAttribute(const YamlValue& item, Manifest& manifest)
    {
        YamlFields fields(item, "the attribute", diagnostics);
        AttributeSpec attribute;
        attribute.name = fields.requiredText("name").value_or("");
        attribute.type =
            attributeTypeCode(fields.choice("type", attributeTypeNames()).value_or(""));
        attribute.dimension = static_cast<int>(fields.integer("dimension", 1, 100000).value_or(1));
        attribute.help = fields.text("help").value_or("");
        fields.refuseOthers();
        manifest.writes.push_back(attribute);
    }

    Diagnostics& diagnostics;
};

ManifestPointer interpret(const YamlValue& document, const std::string& path,
                          const std::string& module, int errorsBefore, Diagnostics& diagnostics)
{
    if (document == nullptr)
        return nullptr;
    auto manifest = std::make_shared<Manifest>();
    manifest->path = path;
    manifest->module = module;
    ManifestReader(diagnostics).read(document, *manifest);
    return diagnostics.errors() == errorsBefore ? manifest : nullptr;
}

} // namespace

const char* parameterTypeName(ParameterType type)
{
    for (const auto& one : typeNames) {
        if (one.first == type)
            return one.second;
    }
    return "";
}

const char* parameterMeaningName(ParameterMeaning meaning)
{
    for (const auto& one : meaningNames) {
        if (one.first == meaning)
            return one.second;
    }
    return "";
}

bool namesAttributes(ParameterMeaning meaning)
{
    return meaning == ParameterMeaning::attribute || meaning == ParameterMeaning::sortKey;
}

bool isListType(ParameterType type)
{
    return type == ParameterType::integerList || type == ParameterType::realList ||
           type == ParameterType::textList || type == ParameterType::fileList;
}

bool isNumberType(ParameterType type)
{
    return type == ParameterType::integer || type == ParameterType::real ||
           type == ParameterType::integerList || type == ParameterType::realList;
}

std::string PortSpec::countText() const
{
    if (max == any)
        return min == 0 ? "any number" : fmt::format("{} or more", min);
    if (min == max)
        return min == 0 ? "none" : std::to_string(min);
    return fmt::format("{} {} {}", min, max - min == 1 ? "or" : "to", max);
}

const ParameterSpec* Manifest::find(const std::string& parameter) const
{
    for (const ParameterSpec& spec : parameters) {
        if (spec.name == parameter)
            return &spec;
    }
    return nullptr;
}

std::vector<std::string> Manifest::parameterNames() const
{
    std::vector<std::string> names;
    for (const ParameterSpec& spec : parameters)
        names.push_back(spec.name);
    return names;
}

ManifestPointer readManifest(const std::string& path, const std::string& module,
                             Diagnostics& diagnostics)
{
    Diagnostics found;
    ManifestPointer sound = interpret(readSimpleYamlFile(path), path, module, 0, found);
    if (sound != nullptr && found.warnings() == 0)
        return sound;
    // Whatever there is to say, the parser with the better messages says it.
    const int before = diagnostics.errors();
    return interpret(readYamlFile(path, diagnostics), path, module, before, diagnostics);
}

ManifestPointer parseManifest(const std::string& text, const std::string& path,
                              const std::string& module, Diagnostics& diagnostics)
{
    const int before = diagnostics.errors();
    return interpret(readYaml(text, path, diagnostics), path, module, before, diagnostics);
}

int attributeTypeCode(const std::string& name)
{
    for (const auto& one : attributeTypes) {
        if (name == one.first)
            return one.second;
    }
    return 0;
}

std::vector<std::string> attributeTypeNames()
{
    std::vector<std::string> names;
    names.reserve(std::size(attributeTypes));
    for (const auto& one : attributeTypes)
        names.emplace_back(one.first);
    return names;
}

std::string attributeTypeName(int code)
{
    for (const auto& one : attributeTypes) {
        if (code == one.second)
            return one.first;
    }
    return "";
}

bool isReservedKey(const std::string& key)
{
    return key == "name" || key == "module" || key == "input" || key == "inputs";
}

} // namespace host
