#include "Fields.h"

#include "base/Text.h"
#include "job/ParameterValue.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace generator {

using host::Diagnostics;
using host::isListType;
using host::ParameterMeaning;
using host::ParameterSpec;
using host::ParameterType;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

// Whether bounds or defaults of a whole number, or of the elements of a list, need 64 bits.
bool needsWide(const ParameterSpec& spec, const std::vector<std::string>& defaults)
{
    const auto isBeyond = [](double number) { return number < INT_MIN || number > INT_MAX; };
    for (const auto& bound : {spec.min, spec.max, spec.exclusiveMin, spec.exclusiveMax}) {
        if (bound && isBeyond(*bound))
            return true;
    }
    // Rounding to a double moves no whole number across these limits.
    return std::any_of(defaults.begin(), defaults.end(), [&](const std::string& text) {
        return isBeyond(std::strtod(text.c_str(), nullptr));
    });
}

FieldKind kindOf(const ParameterSpec& spec, const std::vector<std::string>& defaults)
{
    switch (spec.type) {
    case ParameterType::integer:
        return needsWide(spec, defaults) ? FieldKind::wideInteger : FieldKind::integer;
    case ParameterType::real:
        return FieldKind::real;
    case ParameterType::boolean:
        return FieldKind::boolean;
    case ParameterType::choice:
        return FieldKind::choice;
    case ParameterType::integerList:
        return needsWide(spec, defaults) ? FieldKind::wideIntegerList : FieldKind::integerList;
    case ParameterType::realList:
        return FieldKind::realList;
    case ParameterType::textList:
    case ParameterType::fileList:
        return FieldKind::textList;
    default:
        return spec.choices.empty() ? FieldKind::text : FieldKind::choice;
    }
}

// "none, rms or mean"
std::string alternatives(const std::vector<std::string>& words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return text;
}

// The words of the check of job files, but without the unit, which the message has behind the
// value.
std::string expectation(const ParameterSpec& spec)
{
    ParameterSpec plain = spec;
    plain.unit.clear();
    // An empty list that must not be empty is told to be missing.
    if (plain.minCount == 1 && !plain.maxCount)
        plain.minCount.reset();
    const bool isBounded = spec.min || spec.max || spec.exclusiveMin || spec.exclusiveMax;
    if (spec.type == ParameterType::real && !isBounded)
        return "a finite number";
    if (!isListType(spec.type) && !spec.choices.empty())
        return alternatives(spec.choices);
    std::string text = host::expectedValue(plain);
    const std::string ending = isListType(spec.type) ? "texts" : "text";
    const bool namesWords =
        spec.meaning == ParameterMeaning::attribute || spec.meaning == ParameterMeaning::sortKey;
    if (namesWords && text.size() > ending.size() && text.ends_with(ending))
        text.replace(text.size() - ending.size(), ending.size(),
                     isListType(spec.type) ? "header words" : "header word");
    return text;
}

std::string oneLine(const std::string& text)
{
    std::string line = text;
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return c < ' ' || c == 127; }, ' ');
    return host::trimmed(line);
}

void setDefault(const ParameterSpec& spec, Field& field)
{
    if (spec.defaultValue == nullptr)
        return;
    Diagnostics none; // the manifest has been checked
    const auto value = host::convertParameter(spec, spec.defaultValue, "/", spec.name, none);
    field.hasDefault = true;
    // The path of a file is made absolute where a job is, not here.
    if (spec.type == ParameterType::file || spec.type == ParameterType::outfile)
        field.defaults = {spec.defaultValue->text};
    else
        field.defaults = value->items ? *value->items : std::vector{value->text};
}

Field fieldOf(const ParameterSpec& spec)
{
    Field field;
    field.name = spec.name;
    field.help = oneLine(spec.help);
    field.unit = spec.unit;
    field.expected = expectation(spec);
    field.isRequired = spec.required;
    field.least = spec.min ? *spec.min : spec.exclusiveMin.value_or(-infinity);
    field.greatest = spec.max ? *spec.max : spec.exclusiveMax.value_or(infinity);
    field.excludesLeast = !spec.min && spec.exclusiveMin;
    field.excludesGreatest = !spec.max && spec.exclusiveMax;
    field.leastCount = spec.minCount.value_or(0);
    field.greatestCount = spec.maxCount.value_or(INT_MAX);
    field.words = spec.choices;
    setDefault(spec, field);
    field.kind = kindOf(spec, field.defaults);
    return field;
}

} // namespace

bool isListKind(FieldKind kind)
{
    return kind == FieldKind::realList || kind == FieldKind::integerList ||
           kind == FieldKind::wideIntegerList || kind == FieldKind::textList;
}

std::string Field::comment() const
{
    std::string text = help + (unit.empty() ? "" : " (" + oneLine(unit) + ")");
    if (isOptional())
        text += "; may be absent";
    return text;
}

std::vector<Field> fieldsOf(const host::Manifest& manifest)
{
    std::vector<Field> fields;
    fields.reserve(manifest.parameters.size());
    for (const ParameterSpec& spec : manifest.parameters)
        fields.push_back(fieldOf(spec));
    return fields;
}

} // namespace generator
