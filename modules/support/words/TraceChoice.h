/// @file TraceChoice.h
///
/// Which traces a module works on.
#ifndef TRACECHOICE_H
#define TRACECHOICE_H

#include "segy/NumberRanges.h"
#include "words/CsvFile.h"
#include "words/Formulas.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace words {

/// How traces are chosen: the parameters of a module. What is empty, or not there, is not asked
/// for.
struct ChoiceRules
{
    std::string where;              ///< formula, not 0 for chosen traces
    std::string traces;             ///< numbers of traces from 1, as in "1:100:2,200"
    std::string select;             ///< "offset=100:2000; iline=100:200:2"
    std::vector<std::string> flags; ///< names: see QualityFlags.h
    std::optional<std::string> table;
    std::vector<std::string> key; ///< columns of the table, and words
    bool all = false;             ///< a trace must fulfil all of them; else one is enough
    int every = 1;                ///< of the traces chosen so far, the first of each so many

    /// Throws std::runtime_error when no rule is given, and for a key without a table.
    void check() const;
    /// " where=offset > 3000 every=10", for histories.
    std::string text() const;
};

/// The rules of a module whose parameters have the names of the fields.
template <typename Parameters>
ChoiceRules choiceRules(const Parameters& set)
{
    ChoiceRules rules;
    rules.where = set.where.value_or("");
    rules.traces = set.traces.value_or("");
    rules.select = set.select.value_or("");
    rules.flags = set.flags;
    rules.table = set.table;
    rules.key = set.key;
    rules.all = set.match == decltype(set.match)::all;
    rules.every = set.every;
    rules.check();
    return rules;
}

/// Chooses traces by rules. With a table, the traces of its rows are chosen: of a table that has a
/// column "flags", as quality control writes it, those of rows with one of the `flags`, or with any
/// flag where none is named. Without a key such a table is joined by the number in the file, where
/// it is known and not repeated, or by the number of the trace; another one by its first column.
/// A table whose first line has numbers only has no names: its columns are those of the key, or the
/// numbers of traces. Belongs to the running module. Failures are std::runtime_error for the user.
class TraceChoice
{
public:
    /// `input` has the words of the traces to come.
    TraceChoice(const ChoiceRules& rules, void* input);

    /// Whether the first trace of `input`, the trace `number` of the module (from 1), is chosen. To
    /// be asked for each trace once, in order.
    bool isChosen(void* input, std::int64_t number);

    /// At the end: what is odd about the table, as a warning; empty where nothing is.
    std::string warning() const;

    /// Which rows were found, for a job in parts: see vorn_parts.hpp. What `every` counts is not
    /// there: with it, a module needs all traces.
    template <typename File>
    void save(File& file)
    {
        std::vector<double> keys = foundKeys();
        file(keys);
    }
    template <typename File>
    void merge(File& file)
    {
        noteFound(file.template get<std::vector<double>>());
    }

private:
    struct Hash
    {
        std::size_t operator()(const std::vector<double>& key) const;
    };
    struct WordRanges
    {
        std::size_t place;
        VORN::NumberRanges numbers;
    };

    void addSelection(const std::string& text);
    bool addTable(const ChoiceRules& rules, void* input);
    void readRows(const CsvFile& file, const std::vector<std::size_t>& columns,
                  const ChoiceRules& rules);
    bool isSelected() const;
    bool isInTable();
    std::vector<double> foundKeys() const;
    void noteFound(const std::vector<double>& keys);
    bool fulfilsCondition(void* input, std::int64_t number);

    Formulas formulas;
    std::optional<std::size_t> condition;
    std::optional<VORN::NumberRanges> ranges;
    std::vector<WordRanges> selection;
    int flags = 0; // sum, of the attribute
    std::size_t flagPlace = 0;
    std::optional<std::unordered_map<std::vector<double>, bool, Hash>> rows; // whether it was found
    std::string tablePath;
    std::size_t found = 0; // rows
    std::vector<std::size_t> keyPlaces;
    std::vector<double> key;
    bool needsAll;
    std::int64_t step;
    std::int64_t chosen = 0; // before `every`
};

} // namespace words

#endif
