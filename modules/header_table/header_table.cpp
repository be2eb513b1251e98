// header_table: writes header words of all traces as a table.
//
// The types of the columns are those under which the traces store the words, which their first one
// shows.
#include "MOXKernel.h"
#include "TableWriter.h"
#include "header_table_parameters.hpp"
#include "traces/JobFiles.h"
#include "vorn_kit.hpp"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using header_table_parameters::Format;
using header_table_parameters::Parameters;
using vorn_kit::fail;
using vorn_kit::message;

const std::string numberColumn = "trace";

struct State
{
    Parameters set;
    std::unique_ptr<VORN::OutputFile> file;
    std::unique_ptr<TableWriter> writer; // from the first trace on
    void* list = nullptr;                // of the words
    std::vector<Column> columns;
    std::vector<Cell> row;
    std::vector<std::int64_t> integers; // by the places of the words
    std::vector<double> reals;
    std::int64_t traces = 0;
};

// ---- Before the first trace ----

// Names of columns are unique: readers of tables ask for that.
void checkNames(const Parameters& set)
{
    std::set<std::string> seen;
    if (set.numbers)
        seen.insert(numberColumn);
    for (const std::string& word : set.words) {
        if (word.empty())
            fail("words has an empty name; give names of header words");
        if (seen.insert(word).second)
            continue;
        if (set.numbers && word == numberColumn)
            fail("words has \"" + word +
                 "\", and the numbers of traces have this name, too; "
                 "leave them out with numbers: no");
        fail("words has \"" + word + "\" twice; give each word once");
    }
}

void* listOf(const std::vector<std::string>& words)
{
    std::vector<const char*> keys(words.size());
    std::transform(words.begin(), words.end(), keys.begin(),
                   [](const std::string& word) { return word.c_str(); });
    void* list = bldAttributeList(keys.data(), static_cast<int>(keys.size()));
    if (list == nullptr)
        throw std::bad_alloc();
    return list;
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_build_output(0, in);
    auto state = std::make_unique<State>();
    state->set = header_table_parameters::readParameters();
    checkNames(state->set);
    for (const std::string& word : state->set.words)
        if (isTraceAttributeExist(in, word.c_str()) == 0)
            fail("the traces have no header word \"" + word +
                 "\"; name words that they have with words");
    traces::refuseInputs(state->set.file);
    traces::refuseSecondWriter(state->set.file);
    state->list = listOf(state->set.words);
    state->file = std::make_unique<VORN::OutputFile>(state->set.file, state->set.overwrite,
                                                     "the table", getModuleName());
    return state;
}

// ---- Trace by trace ----

ColumnType typeOf(int stored, const std::string& word)
{
    switch (stored) {
    case VORN_TYPE_TEXT:
        return ColumnType::text;
    case VORN_TYPE_INT32:
        return ColumnType::integer32;
    case VORN_TYPE_INT64:
        return ColumnType::integer64;
    case VORN_TYPE_FLOAT32:
        return ColumnType::real32;
    case VORN_TYPE_FLOAT64:
        return ColumnType::real64;
    default:
        fail("the attribute \"" + word + "\" is an array; name words with one value");
    }
}

bool isNpy(const Parameters& set)
{
    return set.format == Format::npy || (set.format == Format::auto_ && set.file.ends_with(".npy"));
}

void beginTable(State& state, void* in)
{
    const std::vector<std::string>& words = state.set.words;
    std::vector<int> types(words.size(), 0);
    getAttributeListPresence(state.list, in, types.data());
    if (state.set.numbers)
        state.columns.push_back({numberColumn, ColumnType::integer64});
    for (std::size_t i = 0; i < words.size(); ++i)
        state.columns.push_back({words[i], typeOf(types[i], words[i])});
    state.row.resize(state.columns.size());
    state.integers.resize(words.size());
    state.reals.resize(words.size());
    state.writer = isNpy(state.set) ? npyWriter(*state.file, state.columns)
                                    : csvWriter(*state.file, state.columns);
    state.writer->begin();
}

// Integers of 64 bits have no exact double, and floats no exact integer.
void readRow(State& state, void* in)
{
    getTraceAttributes(state.list, in, 0, state.integers.data());
    getTraceAttributes(state.list, in, 0, state.reals.data());
    const std::size_t first = state.set.numbers ? 1 : 0;
    if (state.set.numbers)
        state.row[0].whole = state.traces;
    for (std::size_t i = 0; i < state.integers.size(); ++i) {
        Cell& cell = state.row[first + i];
        cell.whole = state.integers[i];
        cell.real = state.reals[i];
        if (state.columns[first + i].type == ColumnType::text)
            cell.text = getTraceAttribute(in, state.set.words[i].c_str(), 0).getStrValue();
    }
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    if (!state.writer)
        beginTable(state, in);
    readRow(state, in);
    state.writer->write(state.row);
    if (out != nullptr)
        vorn_pass_trace(in, out);
}

// ---- After the last trace ----

void finish(State& state)
{
    const std::string& path = state.set.file;
    if (!traces::isToBePublished(path, state.traces > 0))
        return;
    traces::refuseInputs(path);
    state.writer->end();
    state.file->commit();
    message(VORN_INFORMATION, path + ": " + std::to_string(state.traces) + " rows of " +
                                  std::to_string(state.columns.size()) + " columns");
}

} // namespace

VORN_MODULE(prepare, process, finish);
