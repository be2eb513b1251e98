// header_math: computes header words from header words, and joins tables to traces.
//
// All numbers of a trace are read at once into places that the formulas share. The results go to
// their places as the words store them, so that a later formula sees what a later module will see.
#include "MOXKernel.h"
#include "header_math_parameters.hpp"
#include "vorn_parts.hpp"
#include "words/Assignment.h"
#include "words/CsvFile.h"
#include "words/Formulas.h"
#include "words/KeyedTable.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using header_math_parameters::Parameters;
using header_math_parameters::Unmatched;
using vorn_kit::fail;
using vorn_kit::message;
using words::Assignment;
using words::parseAssignment;

// A word that the module writes.
struct Target
{
    std::string word;
    words::WordType type;
    std::size_t place; // of its value
};

struct Step
{
    Target target;
    std::size_t formula;
    std::string text;
    bool usesTable;
};

struct Column
{
    std::size_t number;           // in the rows of the table
    std::size_t place;            // of "table.COLUMN"
    std::optional<Target> target; // where it is also a word
};

struct State
{
    Parameters set;
    words::Formulas formulas;
    std::vector<Step> steps;

    std::optional<words::KeyedTable> table;
    std::vector<std::size_t> keyPlaces;
    std::vector<double> key;
    std::vector<Column> columns;

    std::int64_t traces = 0;
    std::int64_t unmatched = 0;
    std::string firstUnmatched;
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
};

// ---- Before the first trace ----

Target targetOf(State& state, void* in, void* out, const std::string& word)
{
    if (word == "ns" || word == "dt")
        message(VORN_WARNING, word + " is written, but the traces keep their samples and their "
                                     "sample interval; use window or resample to change them");
    if (getTraceAttributeType(word.c_str()) == -1 && isTraceAttributeExist(in, word.c_str()) == 0)
        message(VORN_INFORMATION, "the new word " + word +
                                      " is an integer of 32 bits; define it in the schema of the "
                                      "job for another type");
    Target target{word, words::wordTypeOf(word), state.formulas.define(word)};
    defineTraceAttribute(out, word.c_str());
    return target;
}

bool usesTable(const words::Expression& formula)
{
    return std::any_of(formula.names().begin(), formula.names().end(), [](const std::string& name) {
        return name.starts_with(words::columnPrefix);
    });
}

// The columns that the table is asked for: those that become words, and those in formulas.
std::vector<std::string> columnsWanted(const std::vector<Assignment>& assignments,
                                       const std::vector<std::string>& written)
{
    std::vector<std::string> wanted = written;
    for (const Assignment& assignment : assignments) {
        for (const std::string& name : assignment.formula.names()) {
            if (!name.starts_with(words::columnPrefix))
                continue;
            const std::string column = name.substr(words::columnPrefix.size());
            if (std::find(wanted.begin(), wanted.end(), column) == wanted.end())
                wanted.push_back(column);
        }
    }
    return wanted;
}

void readTable(State& state, const std::vector<Assignment>& assignments, void* in, void* out)
{
    const std::string& path = *state.set.table;
    const words::CsvFile file(path);
    std::vector<std::string> key = state.set.key;
    if (key.empty())
        key.push_back(file.columns().front());
    std::vector<std::string> written = state.set.columns;
    const bool isInFormulas =
        std::any_of(assignments.begin(), assignments.end(),
                    [](const Assignment& assignment) { return usesTable(assignment.formula); });
    if (written.empty() && !isInFormulas) {
        for (const std::string& column : file.columns())
            if (std::find(key.begin(), key.end(), column) == key.end())
                written.push_back(column);
    }
    const std::vector<std::string> wanted = columnsWanted(assignments, written);
    if (wanted.empty())
        fail(path + ": the table has no column besides its key");
    state.table.emplace(path, key, wanted);
    for (const std::string& word : key)
        state.keyPlaces.push_back(state.formulas.use(word));
    state.key.resize(key.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        Column column{i, state.formulas.define(words::columnPrefix + wanted[i]), {}};
        if (i < written.size()) {
            if (!words::isWordName(written[i]))
                fail(path + ": the column \"" + written[i] +
                     "\" cannot be a header word; choose others with columns");
            column.target = targetOf(state, in, out, written[i]);
        }
        state.columns.push_back(std::move(column));
    }
}

void checkUse(const Parameters& set, const std::vector<Assignment>& assignments)
{
    if (set.set.empty() && !set.table)
        fail("there is nothing to do; give assignments with set, or a table");
    if (set.table)
        return;
    if (!set.key.empty() || !set.columns.empty())
        fail(std::string(set.key.empty() ? "columns" : "key") +
             " is given without a table; name its file with table");
    for (const Assignment& assignment : assignments)
        if (usesTable(assignment.formula))
            fail("\"" + assignment.formula.text() + "\" uses a table; name its file with table");
}

std::string historyOf(const State& state)
{
    constexpr std::size_t room = 400; // characters
    std::string line = "header_math";
    if (state.set.table) {
        line += " table=" + state.set.table->substr(state.set.table->find_last_of('/') + 1);
        for (const Column& column : state.columns)
            line += column.target ? " " + column.target->word : "";
    }
    for (std::size_t i = 0; i < state.steps.size(); ++i) {
        const std::string one = " " + state.steps[i].target.word + " = " + state.steps[i].text +
                                (i + 1 < state.steps.size() ? ";" : "");
        if (line.size() + one.size() > room)
            return line + " and " + std::to_string(state.steps.size() - i) + " more";
        line += one;
    }
    return line;
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    void* out = vorn_kit::buildRequiredOutput(0, in);
    auto state = std::make_unique<State>();
    state->set = header_math_parameters::readParameters();
    std::vector<Assignment> assignments;
    for (const std::string& text : state->set.set)
        assignments.push_back(parseAssignment(text));
    checkUse(state->set, assignments);
    if (state->set.table)
        readTable(*state, assignments, in, out);
    for (Assignment& assignment : assignments) {
        const bool ofTheTable = usesTable(assignment.formula);
        const std::string text = assignment.formula.text();
        const std::size_t formula = state->formulas.add(std::move(assignment.formula));
        state->steps.push_back(
            {targetOf(*state, in, out, assignment.word), formula, text, ofTheTable});
    }
    vorn_kit::addHistory(historyOf(*state));
    return state;
}

// ---- For each trace ----

void write(State& state, void* out, int number, const Target& target, double value)
{
    const UniVar kept = words::stored(value, target.type);
    setTraceAttribute(out, target.word.c_str(), kept, number);
    state.formulas.set(target.place, kept.getF64Value());
}

// Whether the table has a row for the trace; its columns get their values.
bool join(State& state, void* in, void* out, int number)
{
    for (std::size_t i = 0; i < state.keyPlaces.size(); ++i)
        state.key[i] = state.formulas.get(state.keyPlaces[i]);
    const double* row = state.table->find(state.key);
    if (row == nullptr) {
        std::string missing;
        const std::vector<std::string>& names = state.set.key;
        for (std::size_t i = 0; i < state.key.size(); ++i)
            missing += (i > 0 ? ", " : "") + (names.empty() ? "" : names[i] + " ") +
                       words::numberText(state.key[i]);
        const std::string text = words::nameOfTrace(in, state.before + state.traces) +
                                 ": the table has no row for " + (names.empty() ? "the key " : "") +
                                 missing;
        if (state.set.unmatched == Unmatched::fail)
            fail(text + "; complete " + *state.set.table +
                 ", or keep the words of such traces with unmatched: keep");
        if (state.unmatched++ == 0)
            state.firstUnmatched = text;
        return false;
    }
    for (const Column& column : state.columns) {
        const double value = row[column.number];
        state.formulas.set(column.place, value);
        if (column.target)
            try {
                write(state, out, number, *column.target, value);
            } catch (const std::runtime_error& error) {
                fail(words::nameOfTrace(in, state.before + state.traces) + ": " +
                     column.target->word + ": " + error.what());
            }
    }
    return true;
}

void assign(State& state, void* in, void* out, int number, const Step& step)
{
    try {
        write(state, out, number, step.target, state.formulas.value(step.formula));
    } catch (const std::runtime_error& error) {
        fail(words::nameOfTrace(in, state.before + state.traces) + ": " + step.target.word + ": " +
             error.what());
    }
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    state.formulas.read(in, state.before + state.traces);
    const int number = vorn_pass_trace(in, out);
    const bool isJoined = !state.table || join(state, in, out, number);
    for (const Step& step : state.steps)
        if (isJoined || !step.usesTable)
            assign(state, in, out, number, step);
}

// ---- After the last trace ----

void finish(State& state)
{
    if (state.unmatched > 0)
        message(VORN_WARNING, std::to_string(state.unmatched) + " of " +
                                  std::to_string(state.traces) +
                                  " traces have no row in the table and keep their words; the "
                                  "first: " +
                                  state.firstUnmatched);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.unmatched, state.firstUnmatched);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    const bool isFirst = state.unmatched == 0;
    state.unmatched += file.get<std::int64_t>();
    const auto firstUnmatched = file.get<std::string>();
    if (isFirst)
        state.firstUnmatched = firstUnmatched;
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
