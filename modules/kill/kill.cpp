// kill: sets chosen traces to zero.
#include "MOXKernel.h"
#include "kill_parameters.hpp"
#include "vorn_kit.hpp"
#include "words/CsvFile.h"
#include "words/TraceChoice.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace {

using kill_parameters::Parameters;
using vorn_kit::fail;
using vorn_kit::message;

struct State
{
    explicit State(const Parameters& set, const std::optional<words::TraceChoice::Table>& table)
        : choice(set.where.value_or(""), set.traces.value_or(""), table)
    {
    }

    words::TraceChoice choice;
    std::int64_t traces = 0;
    std::int64_t killed = 0;
};

// Without a key, the table is joined by its first column.
std::optional<words::TraceChoice::Table> tableOf(const Parameters& set)
{
    if (!set.table) {
        if (!set.key.empty())
            fail("key is given without a table; name its file with table");
        return {};
    }
    if (!set.key.empty())
        return words::TraceChoice::Table{*set.table, set.key};
    return words::TraceChoice::Table{*set.table, {words::CsvFile(*set.table).columns().front()}};
}

std::string historyOf(const Parameters& set)
{
    std::string line = "kill";
    if (set.where)
        line += " where=" + *set.where;
    if (set.traces)
        line += " traces=" + *set.traces;
    if (set.table)
        line += " table=" + set.table->substr(set.table->find_last_of('/') + 1);
    return line;
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_kit::buildRequiredOutput(0, in);
    const Parameters set = kill_parameters::readParameters();
    if (set.where.value_or("").empty() && set.traces.value_or("").empty() && !set.table)
        fail("no trace is chosen; give a condition with where, numbers with traces, or a table");
    auto state = std::make_unique<State>(set, tableOf(set));
    vorn_kit::addHistory(historyOf(set));
    return state;
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    const bool isChosen = state.choice.isChosen(in, ++state.traces);
    const int number = vorn_pass_trace(in, out);
    if (!isChosen)
        return;
    ++state.killed;
    const int length = getTraceLength(out);
    float* samples = length > 0 ? getTraceSamples(out, number) : nullptr;
    if (samples != nullptr)
        std::fill(samples, samples + length, 0.0F);
}

void finish(State& state)
{
    const std::string all = std::to_string(state.traces);
    if (state.traces == 0)
        return;
    if (state.killed == 0)
        message(VORN_WARNING, "none of " + all + " traces was chosen; none was set to zero");
    else if (state.killed == state.traces)
        message(VORN_WARNING, "all " + all + " traces were chosen and set to zero");
    else
        message(VORN_INFORMATION,
                std::to_string(state.killed) + " of " + all + " traces were set to zero");
}

} // namespace

VORN_MODULE(prepare, process, finish);
