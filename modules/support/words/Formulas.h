/// @file Formulas.h
///
/// Formulas computed from trace to trace.
#ifndef FORMULAS_H
#define FORMULAS_H

#include "words/Expression.h"
#include "words/TraceWords.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace words {

/// Formulas, the values that they share, and their counters. A value is a word of the trace, or one
/// that the caller defines: a result that later formulas use, a column of a table. `trace` is the
/// number of the trace, from 1.
///
/// `count(fldr)` is the number of the trace among consecutive traces of equal `fldr`, from 1;
/// `group(fldr)` the number of that run, from 1. A counter takes its step when its formula is
/// computed. In a part of a job, which does not know the traces before its own, `add` refuses
/// counters.
///
/// Usual order: `define` and `add` in pre-processing; for each trace `read`, then `value` of each
/// formula, with `set` between them. Belongs to the running module. Failures are std::runtime_error
/// for the user.
class Formulas
{
public:
    Formulas();

    /// The place of a value that the caller sets. What formulas that were added before use under
    /// this name stays the word of the trace until it is set.
    std::size_t define(const std::string& name);
    /// The place of a formula. Names that are not defined become words of the trace.
    std::size_t add(Expression expression);
    /// The place of a word of the trace, unless it is defined, for callers that need its value.
    std::size_t use(const std::string& name);

    /// Takes the words of the first trace of `input`, the trace `number` of the module, from 1.
    void read(void* input, std::int64_t number);
    /// Computes a formula with the present values.
    double value(std::size_t formula);
    void set(std::size_t place, double number) { values[place] = number; }
    double get(std::size_t place) const { return values[place]; }

private:
    struct CounterState
    {
        bool numbersGroups;
        std::vector<std::size_t> places; // of the words
        std::vector<double> last;        // their values in the trace before; empty before the first
        double number = 0;
        bool hasBegun = false;
    };
    struct Formula
    {
        Expression expression;
        std::vector<std::size_t> places;
        std::vector<CounterState> counters;
        std::vector<double> arguments;
    };

    double step(CounterState& counter) const;

    std::map<std::string, std::size_t> places;
    std::vector<double> values;
    std::vector<std::string> fromTrace; // words to be read
    std::vector<std::size_t> fromTracePlaces;
    std::optional<TraceWords> reader; // made with the first trace
    std::vector<double> buffer;
    std::vector<Formula> formulas;
};

} // namespace words

#endif
