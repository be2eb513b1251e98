#include "job/ParameterValue.h"

#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "base/Units.h"
#include "job/YamlFields.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <limits>

namespace host {

namespace {

struct Quantity
{
    std::string number;
    std::string unit; // empty: none was written
};

// "0.5 s", "0.5s", "0.5" into number and unit.
Quantity splitQuantity(const std::string& text)
{
    std::size_t end = 0;
    const auto isPart = [&](std::size_t i) {
        const char c = text[i];
        if (std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '+' || c == '-')
            return true;
        // An exponent, but not the beginning of a unit.
        const bool exponent = (c == 'e' || c == 'E') && i > 0 && i + 1 < text.size();
        return exponent && (std::isdigit(static_cast<unsigned char>(text[i + 1])) != 0 ||
                            text[i + 1] == '-' || text[i + 1] == '+');
    };
    while (end < text.size() && isPart(end))
        ++end;
    return {text.substr(0, end), trimmed(std::string_view(text).substr(end))};
}

std::string boundsText(const ParameterSpec& spec)
{
    const auto low = spec.min ? spec.min : spec.exclusiveMin;
    const auto high = spec.max ? spec.max : spec.exclusiveMax;
    const bool lowIn = spec.min.has_value();
    const bool highIn = spec.max.has_value();
    if (low && high && lowIn && highIn)
        return fmt::format(" from {} to {}", formatNumber(*low), formatNumber(*high));
    std::string text;
    if (low)
        text = (lowIn ? " of at least " : " above ") + formatNumber(*low);
    if (high)
        text += std::string(low ? " and" : " of") + (highIn ? " at most " : " below ") +
                formatNumber(*high);
    return text;
}

std::string unitText(const std::string& unit)
{
    if (unit.empty())
        return "";
    std::vector<std::string> others = unitsLike(unit);
    others.erase(others.begin());
    return " in " + unit + (others.empty() ? "" : " (also " + joined(others, ", ") + ")");
}

std::string countText(const ParameterSpec& spec)
{
    if (spec.minCount && spec.maxCount && *spec.minCount == *spec.maxCount)
        return fmt::format("{} ", *spec.minCount);
    if (spec.minCount && spec.maxCount)
        return fmt::format("{} to {} ", *spec.minCount, *spec.maxCount);
    if (spec.minCount == 1 && !spec.maxCount)
        return "one or more ";
    if (spec.minCount)
        return fmt::format("at least {} ", *spec.minCount);
    return spec.maxCount ? fmt::format("at most {} ", *spec.maxCount) : "";
}

bool isWithin(const ParameterSpec& spec, double value)
{
    return !(spec.min && value < *spec.min) && !(spec.max && value > *spec.max) &&
           !(spec.exclusiveMin && value <= *spec.exclusiveMin) &&
           !(spec.exclusiveMax && value >= *spec.exclusiveMax);
}

bool isWholeNumberType(ParameterType type)
{
    return type == ParameterType::integer || type == ParameterType::integerList;
}

// Converts the scalars of one parameter into values, and reports those that are wrong.
class Converter
{
public:
    Converter(const ParameterSpec& parameter, const std::string& directory, const std::string& name,
              Diagnostics& list)
        : spec(parameter), folder(directory), subject(name), diagnostics(list)
    {
    }

    std::optional<double> number(const YamlNode& node)
    {
        const Quantity quantity = splitQuantity(trimmed(node.text));
        std::optional<double> value = parseNumber(quantity.number);
        if (value && !quantity.unit.empty()) {
            value =
                spec.unit.empty() ? std::nullopt : convertUnit(*value, quantity.unit, spec.unit);
            if (!value)
                return complain(node,
                                fmt::format("; the unit {} does not fit", quote(quantity.unit)));
        }
        if (!value || (isWholeNumberType(spec.type) && *value != std::floor(*value)) ||
            !isWithin(spec, *value))
            return complain(node);
        return value;
    }

    // A whole number is not converted through a double, which has only 53 bits.
    std::optional<long long> integer(const YamlNode& node)
    {
        if (const auto whole = parseInteger(trimmed(node.text))) {
            if (isWithin(spec, static_cast<double>(*whole)))
                return whole;
            complain(node);
            return std::nullopt;
        }
        const std::optional<double> value = number(node);
        if (!value)
            return std::nullopt;
        if (std::abs(*value) < 9e15)
            return static_cast<long long>(*value);
        complain(node);
        return std::nullopt;
    }

    std::optional<std::string> text(const YamlNode& node)
    {
        const auto& choices = spec.choices;
        if (choices.empty() ||
            std::find(choices.begin(), choices.end(), node.text) != choices.end())
            return node.text;
        const std::string nearest = nearestName(node.text, choices);
        complain(node, nearest.empty() ? "" : "; did you mean " + quote(nearest) + "?");
        return std::nullopt;
    }

    std::optional<std::string> path(const YamlNode& node)
    {
        if (node.text.empty()) {
            complain(node);
            return std::nullopt;
        }
        return std::filesystem::absolute(std::filesystem::path(folder) / node.text)
            .lexically_normal()
            .string();
    }

    std::optional<double> complain(const YamlNode& node, const std::string& more = "")
    {
        diagnostics.error(node.place, fmt::format("{} is {}; expected {}{}", subject,
                                                  node.description(), expectation(), more));
        return std::nullopt;
    }

    /// From now on errors are those of the elements of the list.
    void enterList() { inList = true; }

private:
    std::string expectation() const
    {
        if (!inList)
            return expectedValue(spec);
        ParameterSpec element = spec;
        element.type = spec.type == ParameterType::integerList ? ParameterType::integer
                       : spec.type == ParameterType::realList  ? ParameterType::real
                       : spec.type == ParameterType::fileList  ? ParameterType::file
                                                               : ParameterType::text;
        return expectedValue(element);
    }

    bool inList = false;
    const ParameterSpec& spec;
    const std::string& folder;
    const std::string& subject;
    Diagnostics& diagnostics;
};

bool fitsInt32(long long value)
{
    return value >= std::numeric_limits<int32_t>::min() &&
           value <= std::numeric_limits<int32_t>::max();
}

ParameterValue integerValue(long long value)
{
    const std::string text = std::to_string(value);
    if (fitsInt32(value))
        return {UniVar(static_cast<int>(value)), text, {}};
    return {UniVar(static_cast<int64_t>(value)), text, {}};
}

ParameterValue integerList(const std::vector<long long>& values)
{
    std::vector<std::string> texts;
    texts.reserve(values.size());
    for (const long long value : values)
        texts.push_back(std::to_string(value));
    const int count = static_cast<int>(values.size());
    if (std::all_of(values.begin(), values.end(), fitsInt32)) {
        const std::vector<int> narrow(values.begin(), values.end());
        return {UniVar(narrow.data(), count), joined(texts, ", "), texts};
    }
    const std::vector<int64_t> wide(values.begin(), values.end());
    return {UniVar(wide.data(), count), joined(texts, ", "), texts};
}

ParameterValue realList(const std::vector<double>& values)
{
    std::vector<std::string> texts;
    texts.reserve(values.size());
    for (const double value : values)
        texts.push_back(formatNumber(value));
    return {UniVar(values.data(), static_cast<int>(values.size())), joined(texts, ", "), texts};
}

// Converts every element; nothing when one fails, after all have been tried.
template <typename Value, typename Convert>
std::optional<std::vector<Value>> convertAll(const std::vector<YamlValue>& items, Convert convert)
{
    std::vector<Value> values;
    for (const YamlValue& item : items) {
        if (const std::optional<Value> value = convert(*item))
            values.push_back(*value);
    }
    return values.size() == items.size() ? std::optional(values) : std::nullopt;
}

std::optional<ParameterValue> convertList(const ParameterSpec& spec,
                                          const std::vector<YamlValue>& items, Converter& converter)
{
    const auto scalarOr = [&](auto convert) {
        return [&converter, convert](const YamlNode& node) -> decltype(convert(node)) {
            if (node.isScalar())
                return convert(node);
            converter.complain(node);
            return std::nullopt;
        };
    };
    if (spec.type == ParameterType::integerList) {
        const auto values = convertAll<long long>(
            items, scalarOr([&](const YamlNode& node) { return converter.integer(node); }));
        return values ? std::optional(integerList(*values)) : std::nullopt;
    }
    if (spec.type == ParameterType::realList) {
        const auto values = convertAll<double>(
            items, scalarOr([&](const YamlNode& node) { return converter.number(node); }));
        return values ? std::optional(realList(*values)) : std::nullopt;
    }
    const auto values = convertAll<std::string>(items, scalarOr([&](const YamlNode& node) {
                                                    return spec.type == ParameterType::fileList
                                                               ? converter.path(node)
                                                               : converter.text(node);
                                                }));
    if (!values)
        return std::nullopt;
    return ParameterValue{UniVar(joined(*values, "\n")), joined(*values, ", "), *values};
}

// ---- Maps of header words, as the text that modules read ----

// A whole number, or nothing after an error.
std::optional<std::string> wholeNumber(const YamlNode& node, const std::string& subject,
                                       Diagnostics& diagnostics)
{
    if (node.isScalar() && parseInteger(trimmed(node.text)))
        return trimmed(node.text);
    diagnostics.error(
        node.place, fmt::format("{} is {}; expected a whole number", subject, node.description()));
    return std::nullopt;
}

// [FIRST, LAST] or [FIRST, LAST, STEP] as FIRST:LAST:STEP.
std::optional<std::string> rangeText(const YamlNode& list, const std::string& subject,
                                     Diagnostics& diagnostics)
{
    if (list.items.size() < 2 || list.items.size() > 3) {
        diagnostics.error(list.place,
                          fmt::format("{} is {} in brackets; a range is [FIRST, LAST] or [FIRST, "
                                      "LAST, STEP]; write single numbers as \"7, 9, 12\"",
                                      subject,
                                      counted(static_cast<int64_t>(list.items.size()), "number")));
        return std::nullopt;
    }
    std::string text;
    std::vector<long long> numbers;
    for (const YamlValue& item : list.items) {
        const auto number = wholeNumber(*item, subject, diagnostics);
        if (!number)
            return std::nullopt;
        text += (text.empty() ? "" : ":") + *number;
        numbers.push_back(*parseInteger(*number));
    }
    // [7, 9, 12] is meant as a list.
    if (numbers.size() == 3 && numbers[1] >= numbers[0] && numbers[2] > numbers[1] - numbers[0]) {
        diagnostics.error(list.place,
                          fmt::format("{} is a range from {} to {} whose step {} exceeds it; write "
                                      "single numbers as \"{}, {}, {}\"",
                                      subject, numbers[0], numbers[1], numbers[2], numbers[0],
                                      numbers[1], numbers[2]));
        return std::nullopt;
    }
    return text;
}

// A number, a text of ranges, one range in brackets, or a list in which some are ranges.
std::optional<std::string> numbersText(const YamlNode& node, const std::string& subject,
                                       Diagnostics& diagnostics)
{
    if (node.isScalar())
        return trimmed(node.text);
    if (!node.isList()) {
        diagnostics.error(node.place,
                          fmt::format("{} is {}; expected numbers: 7, [FIRST, LAST], [FIRST, LAST, "
                                      "STEP] or \"1:100:2, 200\"",
                                      subject, node.description()));
        return std::nullopt;
    }
    const auto isPlain = [](const YamlValue& item) {
        return item->isScalar() && item->text.find(':') == std::string::npos;
    };
    if (std::all_of(node.items.begin(), node.items.end(), isPlain))
        return rangeText(node, subject, diagnostics);
    std::string text;
    for (const YamlValue& item : node.items) {
        const auto piece = item->isList() ? rangeText(*item, subject, diagnostics)
                                          : numbersText(*item, subject, diagnostics);
        if (!piece)
            return std::nullopt;
        text += (text.empty() ? "" : ",") + *piece;
    }
    return text;
}

// {byte: 73, type: int32} as 73:int32; 73 as it is.
std::optional<std::string> wordPlaceText(const YamlValue& value, const std::string& subject,
                                         Diagnostics& diagnostics)
{
    if (value->isScalar())
        return trimmed(value->text);
    if (!value->isMap()) {
        diagnostics.error(value->place, fmt::format("{} is {}; expected a byte, or {{byte: 73, "
                                                    "type: int32}}",
                                                    subject, value->description()));
        return std::nullopt;
    }
    const int before = diagnostics.errors();
    YamlFields fields(value, subject, diagnostics);
    const std::string byte = fields.requiredText("byte").value_or("");
    const std::string type = fields.text("type").value_or("");
    fields.refuseOthers();
    if (diagnostics.errors() != before)
        return std::nullopt;
    return byte + (type.empty() ? "" : ":" + type);
}

std::optional<ParameterValue> convertWords(const ParameterSpec& spec, const YamlNode& map,
                                           const std::string& subject, Diagnostics& diagnostics)
{
    const bool isSelection = spec.type == ParameterType::selection;
    std::string text;
    bool good = true;
    for (const YamlEntry& entry : map.entries) {
        const std::string of = quote(entry.key) + " in " + subject;
        const auto piece = isSelection ? numbersText(*entry.value, of, diagnostics)
                                       : wordPlaceText(entry.value, of, diagnostics);
        good = good && piece;
        if (piece)
            text += (text.empty() ? "" : isSelection ? "; " : ", ") + entry.key + "=" + *piece;
    }
    return good ? std::optional(ParameterValue{UniVar(text), text, {}}) : std::nullopt;
}

bool isOfWords(ParameterType type)
{
    return type == ParameterType::selection || type == ParameterType::wordMap;
}

std::optional<ParameterValue> convertScalar(const ParameterSpec& spec, const YamlNode& node,
                                            Converter& converter)
{
    switch (spec.type) {
    case ParameterType::integer:
        if (const auto value = converter.integer(node))
            return integerValue(*value);
        return std::nullopt;
    case ParameterType::real:
        if (const auto value = converter.number(node))
            return ParameterValue{UniVar(*value), formatNumber(*value), {}};
        return std::nullopt;
    case ParameterType::boolean:
        if (const auto value = parseBoolean(node.text))
            return ParameterValue{UniVar(*value ? 1 : 0), *value ? "true" : "false", {}};
        converter.complain(node);
        return std::nullopt;
    case ParameterType::file:
    case ParameterType::outfile:
        if (const auto value = converter.path(node))
            return ParameterValue{UniVar(*value), *value, {}};
        return std::nullopt;
    default:
        if (const auto value = converter.text(node))
            return ParameterValue{UniVar(*value), *value, {}};
        return std::nullopt;
    }
}

bool countFits(const ParameterSpec& spec, std::size_t count)
{
    const int elements = static_cast<int>(count);
    return !(spec.minCount && elements < *spec.minCount) &&
           !(spec.maxCount && elements > *spec.maxCount);
}

} // namespace

std::string expectedValue(const ParameterSpec& spec)
{
    switch (spec.type) {
    case ParameterType::integer:
        return "a whole number" + boundsText(spec) + unitText(spec.unit);
    case ParameterType::real:
        return "a number" + boundsText(spec) + unitText(spec.unit);
    case ParameterType::boolean:
        return "true or false";
    case ParameterType::file:
        return "the name of a file";
    case ParameterType::outfile:
        return "the name of a file to write";
    case ParameterType::fileList:
        return "the name of a file, a pattern such as line_*.sgy, or a list of them";
    case ParameterType::selection:
        return "header words with the numbers wanted, as in {offset: [100, 2000], cdp: 7}";
    case ParameterType::wordMap:
        return "header words with their bytes, as in {iline: 9, cdpx: {byte: 73, type: int32}}";
    case ParameterType::integerList:
        return "a list of " + countText(spec) + "whole numbers" + boundsText(spec) +
               unitText(spec.unit);
    case ParameterType::realList:
        return "a list of " + countText(spec) + "numbers" + boundsText(spec) + unitText(spec.unit);
    case ParameterType::textList:
        return "a list of " + countText(spec) +
               (spec.choices.empty() ? "texts" : "words out of " + joined(spec.choices, ", "));
    default:
        if (spec.meaning == ParameterMeaning::ranges)
            return "numbers and ranges, as in 1:100:2,200";
        return spec.choices.empty() ? "a text" : "one of " + joined(spec.choices, ", ");
    }
}

std::optional<ParameterValue> convertParameter(const ParameterSpec& spec, const YamlValue& value,
                                               const std::string& folder,
                                               const std::string& subject, Diagnostics& diagnostics)
{
    Converter converter(spec, folder, subject, diagnostics);
    if (isListType(spec.type) && (value->isList() || value->isScalar())) {
        const std::vector<YamlValue> items =
            value->isList() ? value->items : std::vector<YamlValue>{value};
        if (value->isList())
            converter.enterList();
        auto converted = convertList(spec, items, converter);
        if (converted && !countFits(spec, items.size())) {
            diagnostics.error(value->place,
                              fmt::format("{} has {}; expected {}", subject,
                                          counted(static_cast<int64_t>(items.size()), "element"),
                                          expectedValue(spec)));
            return std::nullopt;
        }
        return converted;
    }
    if (isOfWords(spec.type) && value->isMap())
        return convertWords(spec, *value, subject, diagnostics);
    if (value->isScalar())
        return convertScalar(spec, *value, converter);
    converter.complain(*value);
    return std::nullopt;
}

std::optional<ParameterValue> guessParameter(const YamlValue& value, const std::string& subject,
                                             Diagnostics& diagnostics)
{
    const std::vector<YamlValue> items =
        value->isList() ? value->items : std::vector<YamlValue>{value};
    std::vector<std::string> texts;
    std::vector<double> numbers;
    std::vector<long long> integers;
    for (const YamlValue& item : items) {
        if (!item->isScalar()) {
            diagnostics.error(item->place,
                              fmt::format("{} is {}; expected a number, a text or a list of them",
                                          subject, item->description()));
            return std::nullopt;
        }
        texts.push_back(item->text);
        if (item->isQuoted)
            continue;
        if (const auto integer = parseInteger(item->text))
            integers.push_back(*integer);
        if (const auto number = parseNumber(item->text))
            numbers.push_back(*number);
    }
    const std::string text = joined(texts, ", ");
    if (integers.size() == items.size())
        return value->isList() ? integerList(integers) : integerValue(integers.front());
    if (numbers.size() == items.size())
        return value->isList() ? realList(numbers)
                               : ParameterValue{UniVar(numbers[0]), formatNumber(numbers[0]), {}};
    if (value->isList())
        return ParameterValue{UniVar(joined(texts, "\n")), text, texts};
    return ParameterValue{UniVar(text), text, {}};
}

} // namespace host
