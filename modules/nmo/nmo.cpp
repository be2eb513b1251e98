// nmo: normal moveout correction with velocities that vary with time and location, and its inverse.
#include "MOXKernel.h"
#include "Velocities.h"
#include "nmo_math.h"
#include "nmo_parameters.hpp"
#include "sampling/SampleCounts.h"
#include "sampling/TraceTimes.h"
#include "vorn_parts.hpp"
#include "words/CsvFile.h"
#include "words/TraceWords.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using nmo_parameters::Parameters;
using vorn_kit::fail;
using vorn_kit::message;
using vorn_kit::messageOnce;
using words::nameOfTrace;
using words::numberText;

struct State
{
    Parameters set;
    std::optional<Velocities> velocities;
    sampling::SincInterpolator interpolator;
    double interval = 0; // seconds
    int length = 0;

    std::optional<words::TraceWords> reader; // offset, and the key where locations are several
    std::vector<double> values;
    double location = 0;
    std::optional<VelocityFunction> function; // at that location

    sampling::FiniteSamples finite;
    std::vector<double> corrected;

    std::int64_t traces = 0;
    std::int64_t emptied = 0;
    bool hasOffset = false;                  // it was not 0 in some trace
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
};

// ---- Velocities ----

std::string countText(const char* name, std::size_t count)
{
    return std::string(name) + " has " + std::to_string(count) +
           (count == 1 ? " element" : " elements");
}

std::vector<VelocityPick> picksOfLists(const Parameters& set)
{
    if (set.times.empty() || set.velocities.empty())
        fail(std::string(set.times.empty() ? "times" : "velocities") +
             " are missing; give times and velocities, or a table");
    if (set.times.size() != set.velocities.size())
        fail(countText("times", set.times.size()) + " and " +
             countText("velocities", set.velocities.size()) + "; give the same number of each");
    if (!set.locations.empty() && set.locations.size() != set.times.size())
        fail(countText("times", set.times.size()) + " and " +
             countText("locations", set.locations.size()) + "; give the same number of each");
    std::vector<VelocityPick> picks;
    for (std::size_t i = 0; i < set.times.size(); ++i)
        picks.push_back(
            {set.locations.empty() ? 0 : set.locations[i], set.times[i], set.velocities[i]});
    return picks;
}

std::vector<VelocityPick> picksOfTable(const Parameters& set)
{
    if (!set.times.empty() || !set.velocities.empty() || !set.locations.empty())
        fail("velocities are given as lists and as a table; give one of them");
    const words::CsvFile file(*set.table);
    const std::size_t time = file.column("time");
    const std::size_t velocity = file.column("velocity");
    const bool hasKey =
        std::find(file.columns().begin(), file.columns().end(), set.key) != file.columns().end();
    if (!hasKey && file.columns().size() > 2)
        file.column(set.key); // says which columns there are
    std::vector<VelocityPick> picks;
    for (std::size_t row = 0; row < file.rows(); ++row)
        picks.push_back({hasKey ? file.number(row, file.column(set.key)) : 0,
                         file.number(row, time), file.number(row, velocity)});
    return picks;
}

// Times of milliseconds and velocities of kilometres per second are numbers like others.
void warnOfUnits(const State& state)
{
    constexpr double slow = 100;
    constexpr double fast = 20000;
    const Velocities& given = *state.velocities;
    if (given.slowest() < slow || given.fastest() > fast)
        message(VORN_WARNING, "velocities are from " + numberText(given.slowest()) + " to " +
                                  numberText(given.fastest()) +
                                  " m/s; give them with their unit (2 km/s)");
    const double end = state.length * state.interval;
    if (given.firstTime() > 10 * end)
        message(VORN_WARNING, "the first velocity after time 0 is at " +
                                  numberText(given.firstTime()) + " s, and the traces have " +
                                  numberText(end) + " s; give times with their unit (900 ms)");
}

// ---- Before the first trace ----

std::string historyOf(const State& state)
{
    const Parameters& set = state.set;
    std::string line = set.inverse ? "nmo inverse" : "nmo";
    if (set.table)
        line += " table=" + set.table->substr(set.table->find_last_of('/') + 1);
    line += " velocities=" + numberText(state.velocities->slowest()) + ".." +
            numberText(state.velocities->fastest()) + " m/s at " +
            std::to_string(state.velocities->locations()) + " of " + set.key;
    if (!set.inverse)
        line += " stretch=" + numberText(set.stretch) + " percent taper=" + numberText(set.taper) +
                " s";
    return line;
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_kit::buildRequiredOutput(0, in);
    auto state = std::make_unique<State>();
    state->set = nmo_parameters::readParameters();
    const Parameters& set = state->set;
    const std::vector<VelocityPick> picks = set.table ? picksOfTable(set) : picksOfLists(set);
    try {
        state->velocities.emplace(picks);
    } catch (const std::runtime_error& error) {
        fail((set.table ? *set.table + ": " : std::string()) + error.what());
    }
    if (getTraceSampleInterval(in) <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    state->interval = getTraceSampleInterval(in) * 1e-6;
    state->length = std::max(getTraceLength(in), 0);
    vorn_kit::allowMemory(set.memory_limit, std::int64_t{16} * state->length,
                          "correcting traces of " + std::to_string(state->length) + " samples",
                          "shorten the traces");
    state->corrected.resize(static_cast<std::size_t>(state->length));
    std::vector<std::string> read = {set.header};
    if (state->velocities->locations() > 1)
        read.push_back(set.key);
    state->reader.emplace(read);
    warnOfUnits(*state);
    vorn_kit::addHistory(historyOf(*state));
    return state;
}

// ---- For each trace ----

void readWords(State& state, void* in)
{
    state.reader->read(in, state.before + state.traces, state.values);
    for (std::size_t i = 0; i < state.values.size(); ++i)
        if (!std::isfinite(state.values[i]))
            fail(nameOfTrace(in, state.before + state.traces) + ": " + state.reader->names()[i] +
                 " is " + numberText(state.values[i]) + "; give a word of finite numbers");
    const double location = state.values.size() > 1 ? state.values[1] : 0;
    if (!state.function || location != state.location) {
        state.function = state.velocities->at(location);
        state.location = location;
    }
    state.hasOffset = state.hasOffset || state.values[0] != 0;
}

void tellEmptied(State& state, void* in, double offset)
{
    if (state.emptied++ > 0)
        return;
    messageOnce(VORN_WARNING, "stretched",
                nameOfTrace(in, state.before + state.traces) + ": at the offset " +
                    numberText(offset) + " m every sample is stretched by more than " +
                    numberText(state.set.stretch) +
                    " percent and set to zero; check the units of the offset and of the "
                    "velocities, or give a larger stretch");
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    readWords(state, in);
    const double offset = std::fabs(state.values[0]);
    const TraceGrid grid{static_cast<double>(sampling::delayOf(in)) * 1e-6, state.interval,
                         state.length};
    const int number = vorn_pass_trace(in, out);
    float* samples = state.length > 0 ? getTraceSamples(out, number) : nullptr;
    if (samples == nullptr || offset == 0)
        return;
    const double* input = state.finite.of(samples, state.length);
    double* output = state.corrected.data();
    if (state.set.inverse) {
        undoMoveout(state.interpolator, *state.function, offset, grid, input, output);
    } else {
        const StretchMute mute{state.set.stretch / 100, state.set.taper};
        if (correctMoveout(state.interpolator, *state.function, offset, grid, mute, input,
                           output) == state.length)
            tellEmptied(state, in, offset);
    }
    std::transform(output, output + state.length, samples, sampling::toSample);
}

// ---- After the last trace ----

void finish(State& state)
{
    const std::string all = std::to_string(state.traces) + " traces";
    if (state.emptied > 0)
        message(VORN_WARNING, std::to_string(state.emptied) + " of " + all +
                                  " were stretched everywhere by more than the limit and became "
                                  "zeros");
    if (state.traces > 0 && !state.hasOffset)
        message(VORN_WARNING, state.set.header + " is 0 in all " + all +
                                  ", and none was corrected; name a header word that has values "
                                  "with header");
    const std::string warning = state.finite.warning();
    if (!warning.empty())
        message(VORN_WARNING, warning);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.emptied, state.hasOffset);
    state.finite.save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    state.emptied += file.get<std::int64_t>();
    state.hasOffset = file.get<bool>() || state.hasOffset;
    state.finite.merge(file);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
