#include "job/ParameterRules.h"

#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "job/Manifest.h"
#include "job/YamlFields.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <utility>

namespace host {

namespace {

// clang-format off
constexpr std::array<std::pair<RuleKind, const char*>, 14> kindNames = {{
    {RuleKind::needs,          "needs"},
    {RuleKind::excludes,       "excludes"},
    {RuleKind::sameCount,      "same_count"},
    {RuleKind::sameCountOrOne, "same_count_or_one"},
    {RuleKind::single,         "single"},
    {RuleKind::below,          "below"},
    {RuleKind::notAbove,       "not_above"},
    {RuleKind::ascending,      "ascending"},
    {RuleKind::notDescending,  "not_descending"},
    {RuleKind::differ,         "differ"},
    {RuleKind::distinct,       "distinct"},
    {RuleKind::multiple,       "multiple"},
    {RuleKind::product,        "product"},
    {RuleKind::columns,        "columns"},
}};
// clang-format on

// How many parameters a rule needs, and of which types.
struct Demand
{
    std::size_t least;
    std::size_t most;
    bool areNumbers;
    bool areLists;
};

constexpr std::size_t anyNumber = 1000;

Demand demandOf(RuleKind kind)
{
    switch (kind) {
    case RuleKind::sameCount:
    case RuleKind::sameCountOrOne:
        return {2, anyNumber, false, true};
    case RuleKind::single:
        return {1, anyNumber, false, true};
    case RuleKind::below:
    case RuleKind::notAbove:
        return {2, anyNumber, true, false};
    case RuleKind::ascending:
    case RuleKind::notDescending:
    case RuleKind::differ:
        return {1, 1, true, true};
    case RuleKind::multiple:
        return {1, 1, true, false};
    case RuleKind::product:
        return {2, anyNumber, true, false};
    case RuleKind::columns:
        return {0, anyNumber, false, false};
    default:
        return {1, anyNumber, false, false};
    }
}

// Reads the keys of one rule and complains about what does not fit.
class RuleReader
{
public:
    RuleReader(YamlFields& keys, const Manifest& owner, Diagnostics& list)
        : fields(keys), manifest(owner), diagnostics(list), before(list.errors())
    {
    }

    std::optional<ParameterRule> read()
    {
        rule.place = fields.place();
        readKind();
        readCondition();
        rule.within = fields.text("within").value_or("");
        rule.table = fields.text("of").value_or("");
        rule.named = fields.texts("named");
        rule.key = fields.text("key").value_or("");
        rule.takesOthers = fields.boolean("others").value_or(false);
        readNumber();
        fields.refuseOthers();
        checkTypes();
        return diagnostics.errors() == before ? std::optional(rule) : std::nullopt;
    }

private:
    void complain(const std::string& text) { diagnostics.error(rule.place, "the rule " + text); }

    void readKind()
    {
        int found = 0;
        for (const auto& [kind, name] : kindNames) {
            if (fields.entry(name) == nullptr)
                continue;
            rule.kind = kind;
            rule.of = fields.texts(name);
            ++found;
        }
        std::vector<std::string> names;
        names.reserve(kindNames.size());
        for (const auto& one : kindNames)
            names.emplace_back(one.second);
        if (found != 1)
            complain(fmt::format("has {} of the keys {}; give one", found == 0 ? "none" : "several",
                                 enumerated(names, "and")));
    }

    void readCondition()
    {
        const YamlEntry* entry = fields.entry("when");
        if (entry == nullptr)
            return;
        if (!entry->value->isMap()) {
            rule.when = fields.text("when").value_or("");
            return;
        }
        if (entry->value->entries.size() != 1) {
            complain("has \"when\" with several parameters; give one");
            return;
        }
        rule.when = entry->value->entries.front().key;
        YamlFields condition(entry->value, "\"when\"", diagnostics);
        rule.values = condition.texts(rule.when);
    }

    void readNumber()
    {
        const char* key = rule.kind == RuleKind::multiple  ? "step"
                          : rule.kind == RuleKind::product ? "max"
                                                           : nullptr;
        if (key == nullptr)
            return;
        const std::optional<double> number = fields.number(key);
        if (!number || *number <= 0)
            complain(fmt::format("needs the key {} with a number above 0", quote(key)));
        rule.number = number.value_or(1);
    }

    const ParameterSpec* find(const std::string& name)
    {
        const ParameterSpec* spec = manifest.find(name);
        if (spec == nullptr)
            complain("names " + quote(name) + ", which is not a parameter of this module");
        return spec;
    }

    void checkTypes()
    {
        const Demand demand = demandOf(rule.kind);
        const bool isFew = rule.of.size() < demand.least;
        if (isFew || rule.of.size() > demand.most)
            complain(fmt::format("has {} for {}, which needs {} at {}",
                                 counted(static_cast<int64_t>(rule.of.size()), "parameter"),
                                 quote(ruleKindName(rule.kind)), isFew ? demand.least : demand.most,
                                 isFew ? "least" : "most"));
        for (const std::string& name : rule.of) {
            const ParameterSpec* spec = find(name);
            if (spec != nullptr && demand.areNumbers && !isNumberType(spec->type))
                complain("names " + quote(name) + ", which is not a number");
            if (spec != nullptr && demand.areLists && !isListType(spec->type))
                complain("names " + quote(name) + ", which is not a list");
        }
        if (!rule.when.empty())
            checkCondition(find(rule.when));
        if (!rule.within.empty())
            find(rule.within);
        if (rule.kind == RuleKind::columns)
            checkTable(rule.table.empty() ? nullptr : find(rule.table));
        if (!rule.key.empty())
            find(rule.key);
    }

    void checkCondition(const ParameterSpec* spec)
    {
        for (const std::string& value : rule.values) {
            if (spec != nullptr &&
                std::find(spec->choices.begin(), spec->choices.end(), value) == spec->choices.end())
                complain(fmt::format("names {}, which is not a choice of {}", quote(value),
                                     quote(rule.when)));
        }
    }

    void checkTable(const ParameterSpec* spec)
    {
        if (spec == nullptr || spec->type != ParameterType::file)
            complain("for \"columns\" needs the key \"of\" with a parameter that is a file");
    }

    YamlFields& fields;
    const Manifest& manifest;
    Diagnostics& diagnostics;
    int before;
    ParameterRule rule;
};

std::string conditionText(const ParameterRule& rule)
{
    return rule.values.empty() ? rule.when : rule.when + " " + enumerated(rule.values, "or");
}

std::string demandText(const ParameterRule& rule)
{
    const std::string all = enumerated(rule.of, "and");
    switch (rule.kind) {
    case RuleKind::sameCount:
        return all + " have the same number of elements";
    case RuleKind::sameCountOrOne:
        return fmt::format("{} {} one element, or as many as {}",
                           enumerated({rule.of.begin() + 1, rule.of.end()}, "and"),
                           rule.of.size() > 2 ? "have" : "has", rule.of.front());
    case RuleKind::single:
        return all + (rule.of.size() > 1 ? " have" : " has") + " at most one element";
    case RuleKind::below:
        return fmt::format("{}", fmt::join(rule.of, " is below "));
    case RuleKind::notAbove:
        return fmt::format("{}", fmt::join(rule.of, " is not above "));
    case RuleKind::ascending:
        return "the elements of " + all + " ascend" +
               (rule.within.empty() ? "" : " where " + rule.within + " is the same");
    case RuleKind::notDescending:
        return "the elements of " + all + " do not descend";
    case RuleKind::differ:
        return "the elements of " + all + " are not all equal";
    case RuleKind::distinct:
        return "no two values of " + all + " are the same";
    case RuleKind::multiple:
        return all + " is a multiple of " + formatNumber(rule.number);
    case RuleKind::product:
        return "the product of " + all + " is at most " + formatNumber(rule.number);
    case RuleKind::columns: {
        std::vector<std::string> parts = rule.named;
        if (!rule.key.empty())
            parts.push_back("those of " + rule.key);
        for (const std::string& name : rule.of)
            parts.push_back("those of " + name);
        return rule.table + " has the columns " + enumerated(parts, "and") +
               ", with a number in each row" +
               (rule.key.empty() ? "" : "; no two rows have one key");
    }
    default:
        return "";
    }
}

} // namespace

std::string enumerated(const std::vector<std::string>& names, const std::string& word)
{
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const bool isLast = i + 1 == names.size();
        text += (i == 0 ? "" : isLast ? " " + word + " " : ", ") + names[i];
    }
    return text;
}

const char* ruleKindName(RuleKind kind)
{
    for (const auto& one : kindNames) {
        if (one.first == kind)
            return one.second;
    }
    return "";
}

std::string ParameterRule::text() const
{
    if (kind == RuleKind::needs)
        return when.empty() ? enumerated(of, "or") + (of.size() > 1 ? " is required"
                                                                    : " is required, other than "
                                                                      "its default")
                            : conditionText(*this) + " needs " + enumerated(of, "or");
    if (kind == RuleKind::excludes)
        return when.empty() ? enumerated(of, "and") + " cannot be given"
                            : conditionText(*this) + " excludes " + enumerated(of, "and");
    return (when.empty() ? "" : "with " + conditionText(*this) + ", ") + demandText(*this);
}

std::optional<ParameterRule> readRule(YamlFields& fields, const Manifest& manifest,
                                      Diagnostics& diagnostics)
{
    return RuleReader(fields, manifest, diagnostics).read();
}

} // namespace host
