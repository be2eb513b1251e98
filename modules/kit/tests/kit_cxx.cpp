// Tells every parameter that it was given, as "name=value", and fails where it is told to.
#include "kit_cxx_parameters.hpp"
#include "kit_numbers.h"
#include "vorn_kit.hpp"

#include <memory>
#include <numeric>
#include <sstream>

namespace {

using namespace kit_cxx_parameters;

struct State
{
    kit_cxx_parameters::Parameters set;
    int traces = 0;
};

void tell(const std::string& name, const std::string& value)
{
    vorn_kit::message(VORN_INFORMATION, name + "=" + value);
}

void tell(const std::string& name, double value)
{
    std::ostringstream text;
    text << value;
    tell(name, text.str());
}

template <typename Value>
void tell(const std::string& name, const std::optional<Value>& value)
{
    if (!value)
        vorn_kit::message(VORN_INFORMATION, name + " absent");
    else if constexpr (std::is_enum_v<Value>)
        tell(name, static_cast<double>(*value));
    else
        tell(name, *value);
}

void tellText(const std::string& name, const std::string& value)
{
    if (value.size() > 100)
        vorn_kit::message(VORN_INFORMATION, name + " has " + std::to_string(value.size()) +
                                                " bytes, the last is " + value.back());
    else
        tell(name, value);
}

void tellAll(const kit_cxx_parameters::Parameters& p)
{
    tell("real", p.real);
    tell("free", p.free);
    tell("absent_real", p.absent_real);
    tell("count", p.count);
    tell("wide", std::to_string(p.wide));
    tell("absent_count", p.absent_count);
    tell("flag", p.flag);
    tell("absent_flag", p.absent_flag);
    tellText("word", p.word);
    tell("absent_word", p.absent_word);
    tell("mode", p.mode == Mode_::black_white ? 2 : static_cast<double>(p.mode));
    tell("called", wordOf(p.mode));
    tell("absent_mode", p.absent_mode);
    tell("reals", static_cast<double>(p.reals.size()));
    tell("sum", std::accumulate(p.reals.begin(), p.reals.end(), 0.0));
    tell("ints", static_cast<double>(p.ints.size()));
    tell("last int", p.ints.empty() ? std::nullopt : std::optional<double>(p.ints.back()));
    for (const std::int64_t wide : p.wides)
        tell("wides", std::to_string(wide));
    tell("four", p.four[3]);
    for (const std::string& word : p.words)
        tellText("words", word);
    for (const std::string& pick : p.picks)
        tellText("picks", pick);
    tell("infile", p.infile);
    tell("needed", p.needed);
    tell("hard names",
         p.default_ + p.class_ + p.operator_ + p.end + p.if_ + p.linux_ + p.NULL_ + p.p_leading +
             p.Case + p.case_ + p.has_absent_real + p.reals_count + p.memory + p.Parameters_ +
             p.Mode + p.a_name_of_more_than_sixty_three_characters_which_is_what_fortran_takes_one +
             p.a_name_of_more_than_sixty_three_characters_which_is_what_fortran_takes_two);
}

// The numbers that have names, one after the other.
void tellNumbers()
{
    constexpr int numbers[] = {KIT_NUMBERS};
    std::string text = "numbers:";
    for (const int number : numbers)
        text += " " + std::to_string(number);
    vorn_kit::message(VORN_DETAIL, text);
}

std::unique_ptr<State> prepare()
{
    vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput());
    auto state = std::make_unique<State>();
    state->set = readParameters();
    tellAll(state->set);
    tellNumbers();
    if (state->set.fails == Fails::prepare)
        vorn_kit::fail("told to fail in prepare");
    return state;
}

void process(State& state)
{
    vorn_pass_trace(vorn_input(0), vorn_output(0));
    if (++state.traces < 2)
        return;
    if (state.set.fails == Fails::process)
        throw std::runtime_error("told to fail in process");
    if (state.set.fails == Fails::unknown)
        throw 1;
}

void finish(State& state)
{
    if (state.set.fails == Fails::finish)
        vorn_kit::fail("told to fail in finish");
    tell("traces", state.traces);
}

} // namespace

VORN_MODULE(prepare, process, finish);
