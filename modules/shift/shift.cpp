// shift: moves traces in time, by fractions of samples.
#include "MOXKernel.h"
#include "sampling/SampleCounts.h"
#include "sampling/SincInterpolator.h"
#include "shift_parameters.hpp"
#include "vorn_parts.hpp"
#include "words/CsvFile.h"
#include "words/KeyedTable.h"
#include "words/TraceWords.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using shift_parameters::Parameters;
using shift_parameters::Unmatched;
using vorn_kit::fail;
using vorn_kit::message;
using vorn_kit::messageOnce;
using words::nameOfTrace;
using words::numberText;

struct State
{
    Parameters set;
    double interval = 0; // milliseconds
    int length = 0;

    std::vector<std::string> key;
    std::optional<words::KeyedTable> table;
    std::optional<words::TraceWords> reader; // of the key, and behind it of the word
    std::vector<double> values;
    std::vector<double> keyValues;

    sampling::FiniteSamples finite;
    std::vector<double> moved;

    std::int64_t traces = 0;
    std::int64_t unmatched = 0;
    std::int64_t emptied = 0; // by a shift longer than the record
    std::string firstUnmatched;
    bool hasWord = false;                    // it was not 0 in some trace
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
};

// ---- Before the first trace ----

void checkUse(const Parameters& set)
{
    if (set.time == 0 && !set.word && !set.table)
        fail("no shift is given; give time, word or table");
    if (!set.table && !set.key.empty())
        fail("key is given without a table; name its file with table");
}

void readTable(State& state)
{
    if (!state.set.table)
        return;
    const std::string& path = *state.set.table;
    state.key = state.set.key;
    if (state.key.empty())
        state.key.push_back(words::CsvFile(path).columns().front());
    state.table.emplace(path, state.key, std::vector<std::string>{state.set.column});
    state.keyValues.resize(state.key.size());
}

std::string historyOf(const Parameters& set)
{
    std::string line = "shift";
    if (set.time != 0)
        line += " time=" + numberText(set.time) + " s";
    if (set.word)
        line += " word=" + *set.word;
    if (set.table)
        line += " table=" + set.table->substr(set.table->find_last_of('/') + 1) +
                " column=" + set.column;
    return line + (set.reverse ? " reverse=yes" : "");
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_kit::buildRequiredOutput(0, in);
    auto state = std::make_unique<State>();
    state->set = shift_parameters::readParameters();
    checkUse(state->set);
    if (getTraceSampleInterval(in) <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    state->interval = getTraceSampleInterval(in) * 1e-3;
    state->length = std::max(getTraceLength(in), 0);
    vorn_kit::allowMemory(state->set.memory_limit, std::int64_t{16} * state->length,
                          "shifting traces of " + std::to_string(state->length) + " samples",
                          "shorten the traces");
    state->moved.resize(static_cast<std::size_t>(state->length));
    readTable(*state);
    std::vector<std::string> read = state->key;
    if (state->set.word)
        read.push_back(*state->set.word);
    if (!read.empty())
        state->reader.emplace(read);
    vorn_kit::addHistory(historyOf(state->set));
    return state;
}

// ---- For each trace ----

double shiftOfTable(State& state, void* in)
{
    std::copy_n(state.values.begin(), state.keyValues.size(), state.keyValues.begin());
    const double* row = state.table->find(state.keyValues);
    if (row != nullptr)
        return row[0];
    std::string missing;
    for (std::size_t i = 0; i < state.key.size(); ++i)
        missing += (i > 0 ? ", " : "") + state.key[i] + " " + numberText(state.keyValues[i]);
    const std::string text =
        nameOfTrace(in, state.before + state.traces) + ": the table has no row for " + missing;
    if (state.set.unmatched == Unmatched::fail)
        fail(text + "; complete " + *state.set.table +
             ", or leave such traces without its shift with unmatched: keep");
    if (state.unmatched++ == 0)
        state.firstUnmatched = text;
    return 0;
}

// Milliseconds.
double shiftOf(State& state, void* in)
{
    double sum = state.set.time * 1e3;
    if (state.reader)
        state.reader->read(in, state.before + state.traces, state.values);
    if (state.table)
        sum += shiftOfTable(state, in);
    if (state.set.word) {
        const double value = state.values.back();
        if (!std::isfinite(value))
            fail(nameOfTrace(in, state.before + state.traces) + ": " + *state.set.word + " is " +
                 numberText(value) + "; a shift is a finite number of milliseconds");
        state.hasWord = state.hasWord || value != 0;
        sum += value;
    }
    return state.set.reverse ? -sum : sum;
}

void tellEmptied(State& state, void* in, double shift)
{
    if (state.emptied++ > 0)
        return;
    messageOnce(VORN_WARNING, "emptied",
                nameOfTrace(in, state.before + state.traces) + " is shifted by " +
                    numberText(shift) + " ms and has only " +
                    numberText(state.length * state.interval) +
                    " ms: it becomes zeros; words and tables are in milliseconds, time has a unit "
                    "(20 ms)");
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    const double shift = shiftOf(state, in);
    const int number = vorn_pass_trace(in, out);
    float* samples = state.length > 0 ? getTraceSamples(out, number) : nullptr;
    if (samples == nullptr || shift == 0)
        return;
    if (std::fabs(shift) >= state.length * state.interval)
        tellEmptied(state, in, shift);
    sampling::SincInterpolator::shift(state.finite.of(samples, state.length), state.length,
                                      shift / state.interval, state.moved.data());
    std::transform(state.moved.begin(), state.moved.end(), samples, sampling::toSample);
}

// ---- After the last trace ----

void finish(State& state)
{
    const std::string all = std::to_string(state.traces) + " traces";
    if (state.unmatched > 0)
        message(VORN_WARNING,
                std::to_string(state.unmatched) + " of " + all +
                    " have no row in the table and got no shift from it; the first: " +
                    state.firstUnmatched);
    if (state.emptied > 0)
        message(VORN_WARNING, std::to_string(state.emptied) + " of " + all +
                                  " were shifted by more than their length and became zeros");
    if (state.set.word && state.traces > 0 && !state.hasWord)
        message(VORN_WARNING, *state.set.word + " is 0 in all " + all +
                                  ", and shifted none of them; name a header word that has values "
                                  "with word");
    const std::string warning = state.finite.warning();
    if (!warning.empty())
        message(VORN_WARNING, warning);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.unmatched, state.emptied, state.firstUnmatched, state.hasWord);
    state.finite.save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    const bool isFirst = state.unmatched == 0;
    state.unmatched += file.get<std::int64_t>();
    state.emptied += file.get<std::int64_t>();
    const auto firstUnmatched = file.get<std::string>();
    if (isFirst)
        state.firstUnmatched = firstUnmatched;
    state.hasWord = file.get<bool>() || state.hasWord;
    state.finite.merge(file);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
