#include "job/ManifestParallel.h"

#include "base/Escaping.h"
#include "base/Suggestions.h"
#include "job/Manifest.h"
#include "job/YamlFields.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>
#include <utility>

namespace host {

namespace {

// clang-format off
constexpr std::array<std::pair<ParallelWork, const char*>, 5> workNames = {{
    {ParallelWork::whole,  "whole"},
    {ParallelWork::source, "source"},
    {ParallelWork::trace,  "trace"},
    {ParallelWork::gather, "gather"},
    {ParallelWork::sink,   "sink"},
}};

constexpr std::array<std::pair<ParallelCount, const char*>, 3> countNames = {{
    {ParallelCount::same,  "same"},
    {ParallelCount::fewer, "fewer"},
    {ParallelCount::other, "other"},
}};
// clang-format on

constexpr char parameterMark = '$';

template <typename Names>
std::vector<std::string> secondsOf(const Names& names)
{
    std::vector<std::string> result;
    result.reserve(names.size());
    for (const auto& one : names)
        result.emplace_back(one.second);
    return result;
}

template <typename Value, typename Names>
Value valueOf(const std::optional<std::string>& name, const Names& names, Value otherwise)
{
    for (const auto& one : names) {
        if (name == one.second)
            return one.first;
    }
    return otherwise;
}

class ParallelReader
{
public:
    ParallelReader(YamlFields& given, const Manifest& of, Diagnostics& list)
        : fields(given), manifest(of), diagnostics(list)
    {
    }

    ParallelSpec read()
    {
        spec.given = true;
        spec.place = fields.place();
        const int before = diagnostics.errors();
        fields.requiredText("work");
        spec.work = valueOf(fields.choice("work", secondsOf(workNames)), workNames, spec.work);
        const bool isKnown = diagnostics.errors() == before;
        spec.count = valueOf(fields.choice("count", secondsOf(countNames)), countNames, spec.count);
        spec.merge = fields.boolean("merge").value_or(false);
        readKey();
        readBlock();
        readRange();
        readSorts();
        spec.sortable = fields.boolean("sortable").value_or(false);
        spec.wholeWhen = readConditions("whole_when");
        spec.numberedWhen = readConditions("numbered_when");
        fields.refuseOthers();
        if (isKnown)
            checkWork();
        return spec;
    }

private:
    void complain(const Place& place, const std::string& text)
    {
        diagnostics.error(place, "\"parallel\" " + text);
    }

    // The parameter of that name; null after a message.
    const ParameterSpec* find(const std::string& name, const Place& place)
    {
        const ParameterSpec* found = manifest.find(name);
        if (found == nullptr)
            complain(place,
                     fmt::format("names {}, which is not a parameter of this module{}", quote(name),
                                 suggestion(name, manifest.parameterNames(), "")));
        return found;
    }

    void readKey()
    {
        const YamlEntry* entry = fields.entry("key");
        spec.key = fields.texts("key");
        if (entry == nullptr)
            return;
        const Place& place = entry->value->place;
        for (const std::string& word : spec.key) {
            if (word.empty())
                complain(place, "has an empty word in \"key\"");
            else if (word.front() == parameterMark)
                readKeyParameter(word.substr(1), place);
        }
        if (spec.keyParameter.empty())
            return;
        if (spec.key.size() > 1)
            complain(place, "has a parameter and other words in \"key\"; give the parameter alone");
        spec.key.clear();
    }

    void readKeyParameter(const std::string& name, const Place& place)
    {
        spec.keyParameter = name;
        const ParameterSpec* found = find(name, place);
        if (found != nullptr && !namesAttributes(found->meaning))
            complain(place, fmt::format("takes the words of gathers from {}, which does not name "
                                        "trace attributes",
                                        quote(name)));
    }

    void readBlock()
    {
        const YamlEntry* entry = fields.entry("block");
        const std::optional<std::string> text = fields.text("block");
        if (!text)
            return;
        const Place& place = entry->value->place;
        if (text->empty() || text->front() != parameterMark) {
            complain(place, fmt::format("has {} for \"block\"; expected \"$\" and the name of a "
                                        "parameter",
                                        quote(*text)));
            return;
        }
        spec.blockParameter = text->substr(1);
        const ParameterSpec* found = find(spec.blockParameter, place);
        if (found != nullptr && found->type != ParameterType::integer)
            complain(place, fmt::format("takes the size of blocks from {}, which is not a whole "
                                        "number",
                                        quote(spec.blockParameter)));
    }

    void readRange()
    {
        const YamlEntry* entry = fields.entry("range");
        const std::optional<std::string> name = fields.text("range");
        if (!name)
            return;
        spec.rangeParameter = *name;
        const ParameterSpec* found = find(*name, entry->value->place);
        if (found != nullptr &&
            (found->type != ParameterType::text || found->meaning != ParameterMeaning::ranges))
            complain(entry->value->place,
                     fmt::format("takes ranges by {}, which is not a text with \"is: ranges\"",
                                 quote(*name)));
    }

    void readSorts()
    {
        const YamlEntry* entry = fields.entry("sorts");
        const std::optional<std::string> text = fields.text("sorts");
        if (!text)
            return;
        const Place& place = entry->value->place;
        if (text->empty() || text->front() != parameterMark) {
            complain(place, fmt::format("has {} for \"sorts\"; expected \"$\" and the name of a "
                                        "parameter",
                                        quote(*text)));
            return;
        }
        spec.sortParameter = text->substr(1);
        const ParameterSpec* found = find(spec.sortParameter, place);
        if (found != nullptr && found->meaning != ParameterMeaning::sortKey)
            complain(place, fmt::format("takes the words to sort by from {}, which is not a list "
                                        "with \"is: sort_key\"",
                                        quote(spec.sortParameter)));
    }

    // A parameter, a parameter with some of its values, or a list of these.
    std::vector<ParallelCondition> readConditions(const char* key)
    {
        std::vector<ParallelCondition> conditions;
        const YamlEntry* entry = fields.entry(key);
        if (entry == nullptr)
            return conditions;
        const std::vector<YamlValue> items =
            entry->value->isList() ? entry->value->items : std::vector<YamlValue>{entry->value};
        for (const YamlValue& item : items) {
            if (item->isScalar() && find(item->text, item->place) != nullptr)
                conditions.push_back({item->text, {}});
            if (item->isMap())
                readValues(*item, conditions);
            if (!item->isScalar() && !item->isMap())
                complain(item->place, fmt::format("has {} in {}; expected a parameter, or a "
                                                  "parameter with its values",
                                                  item->description(), quote(key)));
        }
        return conditions;
    }

    void readValues(const YamlNode& map, std::vector<ParallelCondition>& conditions)
    {
        for (const YamlEntry& entry : map.entries) {
            ParallelCondition condition{entry.key, {}};
            const ParameterSpec* found = find(entry.key, entry.place);
            if (entry.value->isScalar())
                condition.values.push_back(entry.value->text);
            for (const YamlValue& item : entry.value->items)
                condition.values.push_back(item->text);
            for (const std::string& value : condition.values) {
                if (found != nullptr && found->type == ParameterType::choice &&
                    std::find(found->choices.begin(), found->choices.end(), value) ==
                        found->choices.end())
                    complain(entry.value->place,
                             fmt::format("names {}, which is not a choice of {}", quote(value),
                                         quote(entry.key)));
            }
            conditions.push_back(std::move(condition));
        }
    }

    // Whether the keys fit the kind of work, and the kind of work the ports.
    void checkWork()
    {
        const auto refuse = [this](const std::string& text) {
            complain(spec.place,
                     fmt::format("has \"work: {}\" {}", parallelWorkName(spec.work), text));
        };
        const bool isGather = spec.work == ParallelWork::gather;
        const bool isSource = spec.work == ParallelWork::source;
        const bool hasKey = !spec.key.empty() || !spec.keyParameter.empty();
        if (isGather && !hasKey)
            refuse("without \"key\"; name the header words of a gather");
        if (!isGather && (hasKey || !spec.blockParameter.empty()))
            refuse("with \"key\" or \"block\", which belong to \"work: gather\"");
        if (isSource && spec.rangeParameter.empty())
            refuse("without \"range\"; name the parameter that takes the range of traces");
        if (!isSource && !spec.rangeParameter.empty())
            refuse("with \"range\", which belongs to \"work: source\"");
        if (spec.work == ParallelWork::sink && !spec.merge)
            refuse("without \"merge: true\", which every sink needs");
        if (!isSource && spec.sortable)
            refuse("with \"sortable\", which belongs to \"work: source\"");
        if (spec.work != ParallelWork::whole && !spec.sortParameter.empty())
            refuse("with \"sorts\", which belongs to \"work: whole\"");
        if (isSource && manifest.inputs.max != 0)
            refuse("but the module has inputs");
        if (!isSource && spec.work != ParallelWork::whole && manifest.inputs.min == 0)
            refuse("but the module may have no input");
    }

    YamlFields& fields;
    const Manifest& manifest;
    Diagnostics& diagnostics;
    ParallelSpec spec;
};

std::string conditionsText(const std::vector<ParallelCondition>& conditions)
{
    std::vector<std::string> texts;
    texts.reserve(conditions.size());
    for (const ParallelCondition& condition : conditions)
        texts.push_back(condition.text());
    return enumerated(texts, "or");
}

std::string workText(const ParallelSpec& spec)
{
    switch (spec.work) {
    case ParallelWork::whole:
        return "needs all traces";
    case ParallelWork::source:
        return "each part gives a range of the traces";
    case ParallelWork::trace:
        return "cut between any two traces";
    case ParallelWork::sink:
        return "cut between any two traces, written to one file";
    case ParallelWork::gather: {
        std::string text = "cut between gathers of " + (spec.keyParameter.empty()
                                                            ? enumerated(spec.key, "and")
                                                            : "the words in " + spec.keyParameter);
        if (!spec.blockParameter.empty())
            text += ", and in them after each " + spec.blockParameter + " traces";
        return text;
    }
    }
    return "";
}

} // namespace

const char* parallelWorkName(ParallelWork work)
{
    for (const auto& one : workNames) {
        if (one.first == work)
            return one.second;
    }
    return "";
}

const char* parallelCountName(ParallelCount count)
{
    for (const auto& one : countNames) {
        if (one.first == count)
            return one.second;
    }
    return "";
}

std::string ParallelCondition::text() const
{
    return values.empty() ? parameter : parameter + " " + enumerated(values, "or");
}

std::string ParallelSpec::text() const
{
    std::string text = workText(*this);
    if (!wholeWhen.empty())
        text += "; needs all traces with " + conditionsText(wholeWhen);
    if (!numberedWhen.empty())
        text += "; counts its input with " + conditionsText(numberedWhen);
    return text;
}

ParallelSpec readParallel(YamlFields& fields, const Manifest& manifest, Diagnostics& diagnostics)
{
    return ParallelReader(fields, manifest, diagnostics).read();
}

} // namespace host
