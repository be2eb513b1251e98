#include "words/Formulas.h"

#include "MOXKernel.h"

#include <cstdio>
#include <stdexcept>

namespace words {

namespace {

// Whether the process runs one of several parts of a job.
bool isPartOfJob()
{
    const std::string part = getMetaDataValue(0, "vorn.part").getStrValue();
    long long number = 0;
    long long count = 0;
    return std::sscanf(part.c_str(), "%lld %lld", &number, &count) == 2 && count > 1;
}

} // namespace

Formulas::Formulas()
{
    define("trace");
}

std::size_t Formulas::define(const std::string& name)
{
    const auto [place, isNew] = places.emplace(name, values.size());
    if (isNew)
        values.push_back(0);
    return place->second;
}

std::size_t Formulas::use(const std::string& name)
{
    const auto [place, isNew] = places.emplace(name, values.size());
    if (isNew) {
        values.push_back(0);
        fromTrace.push_back(name);
        fromTracePlaces.push_back(place->second);
    }
    return place->second;
}

std::size_t Formulas::add(Expression expression)
{
    Formula formula{std::move(expression), {}, {}, {}};
    if (!formula.expression.counters().empty() && isPartOfJob())
        throw std::runtime_error("count() and group() count all traces of the job, and a part has "
                                 "not seen those before it; run the job in one process");
    for (const std::string& name : formula.expression.names())
        formula.places.push_back(use(name));
    for (const Expression::Counter& counter : formula.expression.counters()) {
        CounterState state{counter.numbersGroups, {}, {}};
        for (const std::string& name : counter.words)
            state.places.push_back(use(name));
        state.last.resize(state.places.size());
        formula.counters.push_back(std::move(state));
    }
    formula.arguments.resize(formula.places.size() + formula.counters.size());
    formulas.push_back(std::move(formula));
    return formulas.size() - 1;
}

void Formulas::read(void* input, std::int64_t number)
{
    values[0] = static_cast<double>(number);
    if (fromTrace.empty())
        return;
    if (!reader)
        reader.emplace(fromTrace);
    reader->read(input, number, buffer);
    for (std::size_t i = 0; i < buffer.size(); ++i)
        values[fromTracePlaces[i]] = buffer[i];
}

double Formulas::value(std::size_t number)
{
    Formula& formula = formulas[number];
    std::size_t next = 0;
    for (const std::size_t place : formula.places)
        formula.arguments[next++] = values[place];
    for (CounterState& counter : formula.counters)
        formula.arguments[next++] = step(counter);
    return formula.expression.value(formula.arguments);
}

double Formulas::step(CounterState& counter) const
{
    bool isEqual = counter.hasBegun;
    for (std::size_t i = 0; i < counter.places.size(); ++i) {
        const double value = values[counter.places[i]];
        isEqual = isEqual && counter.last[i] == value;
        counter.last[i] = value;
    }
    counter.hasBegun = true;
    if (counter.numbersGroups)
        counter.number += isEqual ? 0 : 1;
    else
        counter.number = isEqual ? counter.number + 1 : 1;
    return counter.number;
}

} // namespace words
