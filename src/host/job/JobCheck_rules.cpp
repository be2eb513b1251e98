// The rules between the parameters of a module, and the formulas and tables among them.
//
// Modules check the same when a job begins. Here the errors of all modules come at once, with the
// line of the job file. Formulas and tables are read by the code that the modules use.
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Text.h"
#include "job/JobCheck.h"
#include "words/Assignment.h"
#include "words/CsvFile.h"
#include "words/KeyedTable.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>

namespace host {

namespace {

std::vector<std::string> quoted(const std::vector<std::string>& names)
{
    std::vector<std::string> result;
    result.reserve(names.size());
    for (const std::string& name : names)
        result.push_back(quote(name));
    return result;
}

class RuleCheck
{
public:
    RuleCheck(const JobModule& given, const ResolvedModule& resolved, Diagnostics& list)
        : job(given), module(resolved), diagnostics(list)
    {
    }

    void run()
    {
        for (const ParameterRule& rule : module.manifest->rules) {
            if (holds(rule))
                check(rule);
        }
    }

    /// Reports what `parse` throws for a text of the parameter.
    template <typename Parse>
    void report(const std::string& parameter, const Place& place, Parse parse)
    {
        try {
            parse();
        } catch (const std::runtime_error& error) {
            diagnostics.error(place, subjectOf(parameter) + ": " + escaped(error.what()));
        }
    }

    /// The formulas of the module: all parse.
    void checkFormulas()
    {
        for (const JobParameter& parameter : job.parameters) {
            const ParameterSpec* spec = module.manifest->find(parameter.name);
            if (spec == nullptr || (spec->meaning != ParameterMeaning::formula &&
                                    spec->meaning != ParameterMeaning::assignment))
                continue;
            for (const YamlValue& item : itemsOf(*parameter.value, parameter.value)) {
                if (!item->isScalar() || item->text.empty())
                    continue;
                report(parameter.name, item->place, [&, text = item->text] {
                    if (spec->meaning == ParameterMeaning::assignment)
                        words::parseAssignment(text);
                    else
                        words::Expression formula(text);
                });
            }
        }
    }

private:
    static std::vector<YamlValue> itemsOf(const YamlNode& node, const YamlValue& self)
    {
        return node.isList() ? node.items : std::vector<YamlValue>{self};
    }

    std::string subjectOf(const std::string& parameter) const
    {
        return fmt::format("parameter {} of module {}", quote(parameter), quote(module.name));
    }

    const ResolvedParameter* find(const std::string& name) const
    {
        for (const ResolvedParameter& parameter : module.parameters) {
            if (parameter.name == name)
                return &parameter;
        }
        return nullptr;
    }

    // Where the job gives the parameter, or the entry of the module.
    Place placeOf(const std::string& name) const
    {
        for (const JobParameter& parameter : job.parameters) {
            if (parameter.name == name)
                return parameter.value->place;
        }
        return job.place;
    }

    // The place of that of the parameters which stands last in the job file.
    Place placeOf(const std::vector<std::string>& names) const
    {
        Place place = job.place;
        for (const std::string& name : names) {
            const Place given = placeOf(name);
            if (given.line >= place.line)
                place = given;
        }
        return place;
    }

    bool isGiven(const std::string& name) const
    {
        const ResolvedParameter* parameter = find(name);
        if (parameter == nullptr || !parameter->given || parameter->value.text.empty())
            return false;
        const YamlValue& usual = module.manifest->find(name)->defaultValue;
        if (usual == nullptr || !usual->isScalar())
            return true;
        const auto number = parseNumber(usual->text);
        return number ? parseNumber(parameter->value.text) != number
                      : parameter->value.text != usual->text;
    }

    bool anyGiven(const std::vector<std::string>& names) const
    {
        return std::any_of(names.begin(), names.end(),
                           [this](const std::string& name) { return isGiven(name); });
    }

    // Whether the condition of the rule holds.
    bool holds(const ParameterRule& rule) const
    {
        if (rule.when.empty())
            return true;
        if (rule.values.empty())
            return isGiven(rule.when);
        const ResolvedParameter* parameter = find(rule.when);
        return parameter != nullptr && std::find(rule.values.begin(), rule.values.end(),
                                                 parameter->value.text) != rule.values.end();
    }

    // The elements of a list; of anything else, its value.
    std::vector<std::string> textsOf(const std::string& name) const
    {
        const ResolvedParameter* parameter = find(name);
        if (parameter == nullptr)
            return {};
        return parameter->value.items.value_or(std::vector<std::string>{parameter->value.text});
    }

    std::vector<double> numbersOf(const std::string& name) const
    {
        std::vector<double> numbers;
        for (const std::string& text : textsOf(name))
            numbers.push_back(parseNumber(text).value_or(0));
        return numbers;
    }

    std::string withUnit(double number, const std::string& name) const
    {
        const std::string& unit = module.manifest->find(name)->unit;
        return formatNumber(number) + (unit.empty() ? "" : " " + unit);
    }

    // "mode" is "surgical"
    std::string conditionText(const ParameterRule& rule) const
    {
        return rule.values.empty()
                   ? quote(rule.when)
                   : fmt::format("{} {}", quote(rule.when), quote(find(rule.when)->value.text));
    }

    void check(const ParameterRule& rule)
    {
        switch (rule.kind) {
        case RuleKind::needs:
            checkNeeds(rule);
            break;
        case RuleKind::excludes:
            checkExcludes(rule);
            break;
        case RuleKind::sameCount:
        case RuleKind::sameCountOrOne:
            checkCounts(rule);
            break;
        case RuleKind::single:
            checkSingle(rule);
            break;
        case RuleKind::below:
        case RuleKind::notAbove:
            for (std::size_t i = 1; i < rule.of.size(); ++i)
                checkPair(rule, rule.of[i - 1], rule.of[i]);
            break;
        case RuleKind::ascending:
        case RuleKind::notDescending:
            checkOrder(rule);
            break;
        case RuleKind::differ:
            checkDiffer(rule);
            break;
        case RuleKind::distinct:
            checkDistinct(rule);
            break;
        case RuleKind::multiple:
            checkMultiple(rule);
            break;
        case RuleKind::product:
            checkProduct(rule);
            break;
        case RuleKind::columns:
            checkColumns(rule);
            break;
        }
    }

    void checkNeeds(const ParameterRule& rule)
    {
        if (anyGiven(rule.of))
            return;
        const std::string wanted = enumerated(quoted(rule.of), "or");
        if (rule.when.empty())
            diagnostics.error(placeOf(rule.of),
                              fmt::format("module {} needs {}; give {}", quote(module.name), wanted,
                                          rule.of.size() > 1 ? "one of them" : "it"));
        else
            diagnostics.error(placeOf(rule.when),
                              fmt::format("module {}: {} needs {}; give {} as well",
                                          quote(module.name), conditionText(rule), wanted,
                                          rule.of.size() > 1 ? "one of them" : "it"));
    }

    void checkExcludes(const ParameterRule& rule)
    {
        for (const std::string& name : rule.of) {
            if (!isGiven(name))
                continue;
            diagnostics.error(placeOf(name),
                              fmt::format("module {}: {} cannot be given with {}; remove one of "
                                          "them",
                                          quote(module.name), quote(name), conditionText(rule)));
            return;
        }
    }

    void checkCounts(const ParameterRule& rule)
    {
        const std::string& first = rule.of.front();
        const std::size_t count = textsOf(first).size();
        if (find(first) == nullptr)
            return;
        for (std::size_t i = 1; i < rule.of.size(); ++i) {
            const std::string& name = rule.of[i];
            const std::size_t other = textsOf(name).size();
            if (find(name) == nullptr || other == count ||
                (rule.kind == RuleKind::sameCountOrOne && other == 1))
                continue;
            diagnostics.error(
                placeOf({first, name}),
                fmt::format("module {}: {} and {} have {} and {} elements; give {}",
                            quote(module.name), quote(first), quote(name), count, other,
                            rule.kind == RuleKind::sameCount
                                ? "the same number of each"
                                : fmt::format("one element of {}, or as many as of {}", quote(name),
                                              quote(first))));
            return;
        }
    }

    void checkSingle(const ParameterRule& rule)
    {
        for (const std::string& name : rule.of) {
            const std::size_t count = textsOf(name).size();
            if (count > 1)
                diagnostics.error(
                    placeOf(name),
                    fmt::format("{} has {} elements{}; give one", subjectOf(name), count,
                                rule.when.empty() ? "" : " with " + conditionText(rule)));
        }
    }

    // Lists of one length element by element; otherwise every element with every one.
    void checkPair(const ParameterRule& rule, const std::string& low, const std::string& high)
    {
        const std::vector<double> lows = numbersOf(low);
        const std::vector<double> highs = numbersOf(high);
        const bool isStrict = rule.kind == RuleKind::below;
        const bool inStep = lows.size() == highs.size();
        for (std::size_t i = 0; i < lows.size(); ++i) {
            for (std::size_t k = inStep ? i : 0; k < (inStep ? i + 1 : highs.size()); ++k) {
                if (isStrict ? lows[i] < highs[k] : lows[i] <= highs[k])
                    continue;
                diagnostics.error(placeOf({low, high}),
                                  fmt::format("module {}: {} is {} and {} is {}; {} must {} {}",
                                              quote(module.name), quote(low),
                                              withUnit(lows[i], low), quote(high),
                                              withUnit(highs[k], high), quote(low),
                                              isStrict ? "be below" : "not be above", quote(high)));
                return;
            }
        }
    }

    void checkOrder(const ParameterRule& rule)
    {
        const std::string& name = rule.of.front();
        const std::vector<double> numbers = numbersOf(name);
        std::vector<double> groups(numbers.size(), 0);
        if (!rule.within.empty() && find(rule.within) != nullptr)
            groups = numbersOf(rule.within);
        if (groups.size() != numbers.size())
            return; // a rule of its own
        for (std::size_t i = 1; i < numbers.size(); ++i) {
            // The last element before it of the same group.
            std::size_t k = i;
            while (k > 0 && groups[k - 1] != groups[i])
                --k;
            if (k == 0)
                continue;
            const double last = numbers[k - 1];
            if (rule.kind == RuleKind::ascending ? numbers[i] > last : numbers[i] >= last)
                continue;
            diagnostics.error(
                placeOfElement(name, i),
                fmt::format("{} has {} after {}; give its elements in ascending order",
                            subjectOf(name), withUnit(numbers[i], name), withUnit(last, name)));
            return;
        }
    }

    Place placeOfElement(const std::string& name, std::size_t i) const
    {
        for (const JobParameter& parameter : job.parameters) {
            if (parameter.name == name && i < parameter.value->items.size())
                return parameter.value->items[i]->place;
        }
        return placeOf(name);
    }

    void checkDiffer(const ParameterRule& rule)
    {
        const std::string& name = rule.of.front();
        const std::vector<double> numbers = numbersOf(name);
        if (numbers.size() > 1 && std::equal(numbers.begin() + 1, numbers.end(), numbers.begin()))
            diagnostics.error(placeOf(name),
                              fmt::format("the elements of {} are all {}; give different ones",
                                          subjectOf(name), withUnit(numbers.front(), name)));
    }

    void checkDistinct(const ParameterRule& rule)
    {
        std::vector<std::string> seen;
        for (const std::string& name : rule.of) {
            const std::vector<std::string> texts = textsOf(name);
            for (std::size_t i = 0; i < texts.size(); ++i) {
                if (std::find(seen.begin(), seen.end(), texts[i]) != seen.end()) {
                    diagnostics.error(
                        rule.of.size() > 1 ? placeOf(rule.of) : placeOfElement(name, i),
                        fmt::format("module {}: {} {} {} twice; give each once", quote(module.name),
                                    enumerated(quoted(rule.of), "and"),
                                    rule.of.size() > 1 ? "have" : "has", quote(texts[i])));
                    return;
                }
                seen.push_back(texts[i]);
            }
        }
    }

    void checkMultiple(const ParameterRule& rule)
    {
        const std::string& name = rule.of.front();
        for (const double number : numbersOf(name)) {
            const double steps = number / rule.number;
            const double whole = std::round(steps);
            if (whole >= 1 && std::fabs(steps - whole) <= 1e-6 * std::max(steps, 1.0))
                continue;
            diagnostics.error(placeOf(name),
                              fmt::format("{} is {}; expected a multiple of {}", subjectOf(name),
                                          withUnit(number, name), withUnit(rule.number, name)));
        }
    }

    void checkProduct(const ParameterRule& rule)
    {
        double product = 1;
        std::vector<std::string> parts;
        for (const std::string& name : rule.of) {
            const std::vector<double> numbers = numbersOf(name);
            if (numbers.empty())
                return;
            product *= numbers.front();
            parts.push_back(fmt::format("{} {}", quote(name), withUnit(numbers.front(), name)));
        }
        if (product > rule.number)
            diagnostics.error(placeOf(rule.of),
                              fmt::format("module {}: the product of {} is {}; expected at most {}",
                                          quote(module.name), enumerated(parts, "and"),
                                          formatNumber(product), formatNumber(rule.number)));
    }

    // ---- Tables ----

    void checkColumns(const ParameterRule& rule)
    {
        const ResolvedParameter* table = find(rule.table);
        std::error_code error; // files that cannot be read are reported with all others
        if (table == nullptr || !std::filesystem::is_regular_file(table->value.text, error))
            return;
        std::vector<std::string> wanted = rule.named;
        for (const std::string& name : rule.of) {
            for (const std::string& column : textsOf(name))
                wanted.push_back(column);
        }
        for (const std::string& column : columnsOfFormulas())
            wanted.push_back(column);
        report(rule.table, placeOf(rule.table),
               [&] { readTable(rule, table->value.text, wanted); });
    }

    void readTable(const ParameterRule& rule, const std::string& path,
                   std::vector<std::string> wanted) const
    {
        std::vector<std::string> key =
            rule.key.empty() ? std::vector<std::string>() : textsOf(rule.key);
        const words::CsvFile file(path);
        if (!rule.key.empty() && key.empty())
            key.push_back(file.columns().front());
        if (wanted.empty() && rule.takesOthers) {
            for (const std::string& column : file.columns()) {
                if (std::find(key.begin(), key.end(), column) == key.end())
                    wanted.push_back(column);
            }
        }
        if (!key.empty()) {
            const words::KeyedTable joined(path, key, wanted);
            return;
        }
        for (const std::string& name : wanted) {
            const std::size_t column = file.column(name);
            for (std::size_t row = 0; row < file.rows(); ++row)
                (void)file.number(row, column);
        }
    }

    // What the formulas of the module take from its table. Those that do not parse are left out.
    std::vector<std::string> columnsOfFormulas() const
    {
        std::vector<std::string> columns;
        for (const JobParameter& parameter : job.parameters) {
            const ParameterSpec* spec = module.manifest->find(parameter.name);
            if (spec == nullptr)
                continue;
            for (const std::string& name : namesInFormulas(*spec, *parameter.value)) {
                if (name.starts_with(words::columnPrefix))
                    columns.push_back(name.substr(words::columnPrefix.size()));
            }
        }
        return columns;
    }

    const JobModule& job;
    const ResolvedModule& module;
    Diagnostics& diagnostics;
};

// The texts of a parameter of formulas; none of any other.
std::vector<std::string> formulasIn(const ParameterSpec& spec, const YamlNode& value)
{
    std::vector<std::string> texts;
    if (spec.meaning != ParameterMeaning::formula && spec.meaning != ParameterMeaning::assignment)
        return texts;
    if (!value.isList())
        return {value.text};
    texts.reserve(value.items.size());
    for (const YamlValue& item : value.items)
        texts.push_back(item->text);
    return texts;
}

// The formula in the text; nothing when it does not parse.
std::optional<words::Expression> formulaOf(const ParameterSpec& spec, const std::string& text)
{
    try {
        if (spec.meaning == ParameterMeaning::assignment)
            return words::parseAssignment(text).formula;
        return words::Expression(text);
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

} // namespace

std::vector<std::string> namesInFormulas(const ParameterSpec& spec, const YamlNode& value)
{
    std::vector<std::string> names;
    for (const std::string& text : formulasIn(spec, value)) {
        const std::optional<words::Expression> formula = formulaOf(spec, text);
        if (!formula)
            continue;
        names.insert(names.end(), formula->names().begin(), formula->names().end());
        for (const words::Expression::Counter& counter : formula->counters())
            names.insert(names.end(), counter.words.begin(), counter.words.end());
    }
    return names;
}

std::vector<std::string> wordsAssigned(const ParameterSpec& spec, const YamlNode& value)
{
    std::vector<std::string> assigned;
    if (spec.meaning != ParameterMeaning::assignment)
        return assigned;
    for (const std::string& text : formulasIn(spec, value)) {
        try {
            assigned.push_back(words::parseAssignment(text).word);
        } catch (const std::runtime_error&) {
            continue; // reported
        }
    }
    return assigned;
}

std::vector<std::string> wordsOfTable(const ResolvedModule& module)
{
    for (const ParameterRule& rule : module.manifest->rules) {
        if (rule.kind != RuleKind::columns || !rule.takesOthers)
            continue;
        std::vector<std::string> columns;
        std::string path;
        for (const ResolvedParameter& parameter : module.parameters) {
            if (parameter.name == rule.table)
                path = parameter.value.text;
            else if (std::find(rule.of.begin(), rule.of.end(), parameter.name) != rule.of.end())
                columns = parameter.value.items.value_or(columns);
        }
        try {
            return path.empty() || !columns.empty() ? columns : words::CsvFile(path).columns();
        } catch (const std::runtime_error&) {
            return {}; // reported
        }
    }
    return {};
}

void checkRules(const JobModule& job, const ResolvedModule& module, Diagnostics& diagnostics)
{
    RuleCheck check(job, module, diagnostics);
    check.checkFormulas();
    check.run();
}

} // namespace host
