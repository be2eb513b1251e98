#include "job/YamlFields.h"

#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>

namespace host {

YamlFields::YamlFields(const YamlValue& value, const std::string& name, Diagnostics& list)
    : subject(name), diagnostics(list)
{
    if (value == nullptr)
        return;
    mapPlace = value->place;
    if (value->isMap())
        map = value;
    else
        diagnostics.error(mapPlace, fmt::format("{} must be a group of keys, not {}", subject,
                                                value->description()));
}

const YamlEntry* YamlFields::entry(const std::string& key)
{
    if (std::find(known.begin(), known.end(), key) == known.end())
        known.push_back(key);
    const YamlEntry* found = map != nullptr ? map->find(key) : nullptr;
    return found != nullptr && !found->value->isNull() ? found : nullptr;
}

const YamlEntry* YamlFields::scalar(const std::string& key, const std::string& expected)
{
    const YamlEntry* found = entry(key);
    if (found == nullptr || found->value->isScalar())
        return found;
    complain(*found, expected);
    return nullptr;
}

void YamlFields::complain(const YamlEntry& entry, const std::string& expected)
{
    diagnostics.error(entry.value->place,
                      fmt::format("{}: {} is {}; expected {}", subject, quote(entry.key),
                                  entry.value->description(), expected));
}

std::optional<std::string> YamlFields::text(const std::string& key)
{
    const YamlEntry* found = scalar(key, "a text");
    return found != nullptr ? std::optional(found->value->text) : std::nullopt;
}

std::optional<std::string> YamlFields::requiredText(const std::string& key)
{
    const YamlEntry* found = entry(key);
    const std::optional<std::string> value = text(key);
    if (map != nullptr && (found == nullptr || (value && value->empty())))
        diagnostics.error(mapPlace, fmt::format("{} needs the key {}", subject, quote(key)));
    return value && !value->empty() ? value : std::nullopt;
}

std::optional<long long> YamlFields::integer(const std::string& key, long long least,
                                             long long most)
{
    const std::string expected = most == std::numeric_limits<long long>::max()
                                     ? fmt::format("a whole number of at least {}", least)
                                     : fmt::format("a whole number from {} to {}", least, most);
    const YamlEntry* found = scalar(key, expected);
    if (found == nullptr)
        return std::nullopt;
    const std::optional<long long> value = parseInteger(found->value->text);
    if (value && *value >= least && *value <= most)
        return value;
    complain(*found, expected);
    return std::nullopt;
}

std::optional<double> YamlFields::number(const std::string& key)
{
    const YamlEntry* found = scalar(key, "a number");
    if (found == nullptr)
        return std::nullopt;
    const std::optional<double> value = parseNumber(found->value->text);
    if (!value)
        complain(*found, "a number");
    return value;
}

std::optional<bool> YamlFields::boolean(const std::string& key)
{
    const YamlEntry* found = scalar(key, "true or false");
    if (found == nullptr)
        return std::nullopt;
    const std::optional<bool> value = parseBoolean(found->value->text);
    if (!value)
        complain(*found, "true or false");
    return value;
}

std::vector<std::string> YamlFields::texts(const std::string& key)
{
    const YamlEntry* found = entry(key);
    if (found == nullptr)
        return {};
    if (found->value->isScalar())
        return {found->value->text};
    std::vector<std::string> all;
    const bool good = found->value->isList() &&
                      std::all_of(found->value->items.begin(), found->value->items.end(),
                                  [](const YamlValue& item) { return item->isScalar(); });
    if (!good) {
        complain(*found, "a list of texts");
        return {};
    }
    for (const YamlValue& item : found->value->items)
        all.push_back(item->text);
    return all;
}

std::optional<std::string> YamlFields::choice(const std::string& key,
                                              const std::vector<std::string>& allowed)
{
    const std::string expected = "one of " + joined(allowed, ", ");
    const YamlEntry* found = scalar(key, expected);
    if (found == nullptr)
        return std::nullopt;
    if (std::find(allowed.begin(), allowed.end(), found->value->text) != allowed.end())
        return found->value->text;
    const std::string nearest = nearestName(found->value->text, allowed);
    complain(*found, expected + (nearest.empty() ? "" : "; did you mean " + quote(nearest) + "?"));
    return std::nullopt;
}

void YamlFields::refuseOthers()
{
    if (map == nullptr)
        return;
    for (const YamlEntry& one : map->entries) {
        if (std::find(known.begin(), known.end(), one.key) == known.end())
            diagnostics.error(one.place, fmt::format("{} has no key {}{}", subject, quote(one.key),
                                                     suggestion(one.key, known, "it has")));
    }
}

} // namespace host
