#include "words/TraceChoice.h"

#include "MOXKernel.h"
#include "segy/TraceSelection.h"
#include "words/QualityFlags.h"
#include "words/TraceWords.h"

#include <algorithm>
#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>

namespace words {

namespace {

const std::string traceColumn = "trace"; // also in formulas: the number of the trace
const std::string fileTraceColumn = "filetrace";
const std::string flagColumn = "flags";

VORN::NumberRanges rangesOf(const std::string& subject, const std::string& numbers)
{
    try {
        return VORN::NumberRanges(numbers);
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(subject + ": " + error.what());
    }
}

bool hasColumn(const CsvFile& file, const std::string& name)
{
    const std::vector<std::string>& columns = file.columns();
    return std::find(columns.begin(), columns.end(), name) != columns.end();
}

// A number in each row, and none twice: traces of several files have theirs in common.
bool isKey(const CsvFile& file, const std::string& name)
{
    if (!hasColumn(file, name))
        return false;
    const std::size_t column = file.column(name);
    std::set<std::string> seen;
    for (std::size_t row = 0; row < file.rows(); ++row)
        if (file.text(row, column).empty() || !seen.insert(file.text(row, column)).second)
            return false;
    return true;
}

std::vector<std::string> keyOf(const CsvFile& file, const ChoiceRules& rules, void* input)
{
    if (!rules.key.empty())
        return rules.key;
    if (isTraceAttributeExist(input, fileTraceColumn.c_str()) != 0 && isKey(file, fileTraceColumn))
        return {fileTraceColumn};
    if (hasColumn(file, traceColumn))
        return {traceColumn};
    return {file.columns().front()};
}

// "dead weak"; names that are not known count where any flag is wanted.
bool hasFlag(const std::string& cell, const std::vector<std::string>& wanted)
{
    std::istringstream names(cell);
    const auto isWanted = [&](const std::string& name) {
        return wanted.empty() ||
               std::any_of(wanted.begin(), wanted.end(),
                           [&](const std::string& one) { return one == "any" || one == name; });
    };
    for (std::string name; names >> name;)
        if (isWanted(name))
            return true;
    return false;
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ",") + word;
    return text;
}

} // namespace

// ---- Rules ----

void ChoiceRules::check() const
{
    if (!table && !key.empty())
        throw std::runtime_error("key is given without a table; name its file with table");
    if (where.empty() && traces.empty() && select.empty() && flags.empty() && !table && every == 1)
        throw std::runtime_error("no trace is chosen; give where, traces, select, flags, a table, "
                                 "or every");
}

std::string ChoiceRules::text() const
{
    std::string line;
    if (!where.empty())
        line += " where=" + where;
    if (!traces.empty())
        line += " traces=" + traces;
    if (!select.empty())
        line += " select=" + select;
    if (!flags.empty())
        line += " flags=" + joined(flags);
    if (table)
        line += " table=" + table->substr(table->find_last_of('/') + 1);
    if (every != 1)
        line += " every=" + std::to_string(every);
    return line;
}

// ---- Before the first trace ----

std::size_t TraceChoice::Hash::operator()(const std::vector<double>& values) const
{
    std::size_t hash = 0;
    for (const double value : values)
        hash = hash * 1000003 + std::hash<double>()(value);
    return hash;
}

TraceChoice::TraceChoice(const ChoiceRules& rules, void* input)
    : needsAll(rules.all), step(rules.every)
{
    if (!rules.where.empty())
        condition = formulas.add(Expression(rules.where));
    if (!rules.traces.empty())
        ranges = rangesOf("traces", rules.traces);
    if (!rules.select.empty())
        addSelection(rules.select);
    const int mask = flagMask(rules.flags); // refuses unknown names also where the table has them
    const bool areInTable = rules.table && addTable(rules, input);
    if (mask == 0 || areInTable)
        return;
    if (isTraceAttributeExist(input, flagWord) == 0)
        throw std::runtime_error(std::string("flags: the traces have no attribute ") + flagWord +
                                 "; put trace_qc before this module, or name the table that it has "
                                 "written with table");
    flags = mask;
    flagPlace = formulas.use(flagWord);
}

void TraceChoice::addSelection(const std::string& text)
{
    try {
        for (const auto& [word, numbers] : VORN::TraceSelection::split(text)) {
            const std::string& name = word == "traces" ? traceColumn : word;
            const std::size_t place = formulas.use(name);
            selection.push_back({place, rangesOf("select: " + word, numbers)});
        }
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(std::string("select: ") + error.what());
    }
}

// Whether the table has flags.
bool TraceChoice::addTable(const ChoiceRules& rules, void* input)
{
    tablePath = *rules.table;
    const std::vector<std::string> unnamed =
        rules.key.empty() ? std::vector<std::string>{traceColumn} : rules.key;
    const CsvFile file(tablePath, unnamed);
    const std::vector<std::string> names = keyOf(file, rules, input);
    std::vector<std::size_t> columns;
    columns.reserve(names.size());
    for (const std::string& name : names) {
        columns.push_back(file.column(name));
        keyPlaces.push_back(formulas.use(name));
    }
    key.resize(names.size());
    readRows(file, columns, rules);
    return hasColumn(file, flagColumn);
}

void TraceChoice::readRows(const CsvFile& file, const std::vector<std::size_t>& columns,
                           const ChoiceRules& rules)
{
    rows.emplace();
    const bool isFlagged = hasColumn(file, flagColumn);
    const std::size_t flagged = isFlagged ? file.column(flagColumn) : 0;
    for (std::size_t row = 0; row < file.rows(); ++row) {
        if (isFlagged && !hasFlag(file.text(row, flagged), rules.flags))
            continue;
        for (std::size_t i = 0; i < columns.size(); ++i)
            key[i] = file.number(row, columns[i]);
        rows->emplace(key, false);
    }
}

// ---- For each trace ----

bool TraceChoice::fulfilsCondition(void* input, std::int64_t number)
{
    try {
        return formulas.value(*condition) != 0;
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(nameOfTrace(input, number) + ": " + error.what());
    }
}

bool TraceChoice::isSelected() const
{
    return std::all_of(selection.begin(), selection.end(), [&](const WordRanges& word) {
        return word.numbers.containsNumber(formulas.get(word.place));
    });
}

bool TraceChoice::isInTable()
{
    for (std::size_t i = 0; i < keyPlaces.size(); ++i)
        key[i] = formulas.get(keyPlaces[i]);
    const auto row = rows->find(key);
    if (row == rows->end())
        return false;
    if (!row->second)
        ++found;
    row->second = true;
    return true;
}

bool TraceChoice::isChosen(void* input, std::int64_t number)
{
    formulas.read(input, number);
    bool any = false;
    bool all = true;
    const auto note = [&](bool fulfilled) {
        any = any || fulfilled;
        all = all && fulfilled;
    };
    // Each rule is looked at for each trace: a condition may count them, and may fail.
    if (condition)
        note(fulfilsCondition(input, number));
    if (ranges)
        note(ranges->contains(number));
    if (!selection.empty())
        note(isSelected());
    if (flags != 0)
        note((static_cast<int>(formulas.get(flagPlace)) & flags) != 0);
    if (rows)
        note(isInTable());
    const bool hasRules = condition || ranges || !selection.empty() || flags != 0 || rows;
    if (hasRules && !(needsAll ? all : any))
        return false;
    return chosen++ % step == 0;
}

// ---- Parts ----

// One after the other.
std::vector<double> TraceChoice::foundKeys() const
{
    std::vector<double> keys;
    if (!rows)
        return keys;
    keys.reserve(found * key.size());
    for (const auto& [one, isFound] : *rows)
        if (isFound)
            keys.insert(keys.end(), one.begin(), one.end());
    return keys;
}

void TraceChoice::noteFound(const std::vector<double>& keys)
{
    for (std::size_t first = 0; rows && first + key.size() <= keys.size(); first += key.size()) {
        std::copy_n(keys.begin() + static_cast<std::ptrdiff_t>(first), key.size(), key.begin());
        const auto row = rows->find(key);
        if (row == rows->end() || row->second)
            continue;
        row->second = true;
        ++found;
    }
}

// ---- At the end ----

std::string TraceChoice::warning() const
{
    if (!rows || found == rows->size())
        return "";
    return tablePath + ": " + std::to_string(rows->size() - found) + " of " +
           std::to_string(rows->size()) +
           " keys are those of no trace; check that the table belongs to these traces";
}

} // namespace words
