// The same as parts_c.c in C++, which has more types to save.
#include "parts_cxx_parameters.hpp"
#include "vorn_parts.hpp"

#include <array>
#include <map>
#include <memory>

namespace {

using namespace parts_cxx_parameters;

struct Sum
{
    double value = 0;

    template <typename File>
    void transfer(File& file)
    {
        file(value);
    }
};

struct State
{
    Parameters set;
    std::int64_t traces = 0;
    Sum sum;
    bool hasWarned = false;
    std::vector<std::string> names;
    std::map<int, std::vector<int>> numbers; // of traces, by the last digit of tracf
    std::optional<float> first;
    std::array<int, 2> parities{};
};

std::unique_ptr<State> prepare()
{
    vorn_build_output(0, vorn_kit::requiredInput());
    auto state = std::make_unique<State>();
    state->set = readParameters();
    return state;
}

void process(State& state)
{
    void* in = vorn_input(0);
    int number = 0;
    knl_getI32TraceAttribute(in, "tracf", &number);
    ++state.traces;
    state.sum.value += number;
    state.names.push_back(" " + std::to_string(number));
    state.numbers[number % 10].push_back(number);
    ++state.parities[static_cast<unsigned>(number) % 2];
    if (!state.first)
        state.first = static_cast<float>(number);
    if (number > 2 && !state.hasWarned) {
        state.hasWarned = true;
        vorn_kit::messageOnce(VORN_WARNING, "above",
                              "trace " + std::to_string(vorn_part_first() + state.traces) +
                                  " is above 2");
    }
    vorn_kit::message(VORN_DETAIL, std::to_string(number));
    vorn_pass_trace(in, vorn_output(0));
    if (state.set.fails == Fails::process)
        vorn_kit::fail("told to fail in process");
}

void finish(State& state)
{
    std::size_t listed = 0;
    for (const auto& [digit, numbers] : state.numbers)
        listed += numbers.size();
    if (listed != state.names.size() || (listed > 0) != state.first.has_value() ||
        static_cast<std::size_t>(state.parities[0] + state.parities[1]) != listed ||
        (state.first && std::to_string(static_cast<int>(*state.first)) != state.names[0].substr(1)))
        vorn_kit::fail("the numbers differ from the names");
    std::string names;
    for (const std::string& name : state.names)
        names += name;
    std::array<char, 40> sum{};
    std::snprintf(sum.data(), sum.size(), "%g", state.sum.value);
    vorn_kit::message(VORN_INFORMATION, "traces=" + std::to_string(state.traces) +
                                            " sum=" + sum.data() + " names=" + names);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    if (state.set.fails == Fails::save)
        vorn_kit::fail("told to fail in save");
    if (state.set.saves == Saves::other)
        file(state.sum);
    file(state.traces);
    if (state.set.saves != Saves::less)
        file(state.sum);
    file(state.names, state.numbers, state.first, state.parities);
    if (state.set.saves == Saves::more)
        file(state.traces);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    if (state.set.fails == Fails::merge)
        vorn_kit::fail("told to fail in merge");
    state.traces += file.get<std::int64_t>();
    state.sum.value += file.get<Sum>().value;
    for (std::string& name : file.get<std::vector<std::string>>())
        state.names.push_back(std::move(name));
    for (const auto& [digit, numbers] : file.get<std::map<int, std::vector<int>>>())
        state.numbers[digit].insert(state.numbers[digit].end(), numbers.begin(), numbers.end());
    const auto first = file.get<std::optional<float>>();
    if (!state.first)
        state.first = first;
    const auto parities = file.get<std::array<int, 2>>();
    state.parities[0] += parities[0];
    state.parities[1] += parities[1];
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
