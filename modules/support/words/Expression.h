/// @file Expression.h
///
/// Formulas over header words, such as `(sx + gx) / 2` or `offset > 3000 ? 0 : 1`.
#ifndef EXPRESSION_H
#define EXPRESSION_H

#include <memory>
#include <string>
#include <vector>

namespace words {

/// A formula in double precision. Operators, from the weakest: `a ? b : c`, `||`, `&&`, `==` and
/// `!=`, `<` `<=` `>` `>=`, `+` and `-`, `*` and `/`, `^`. Comparisons give 1 or 0. Functions: abs,
/// sign, sqrt, exp, log (natural), log10, sin, cos, tan, asin, acos, atan, atan2, hypot, floor,
/// ceil, round, trunc, mod, min, max, not, has; the constant pi. `a = b` is refused: a comparison
/// has two signs.
///
/// Counters are written like functions of words: `count(fldr)` and `group(fldr, cdp)`. The formula
/// only names them; their values are the caller's, like those of words.
///
/// Movable; not for two threads at once.
class Expression
{
public:
    /// A counter over the traces that the formula uses.
    struct Counter
    {
        bool numbersGroups;             ///< of `group`; otherwise of `count`
        std::vector<std::string> words; ///< whose change begins a new group
    };

    /// Throws std::runtime_error, with the formula and what is wrong with it.
    explicit Expression(const std::string& formula);
    Expression(Expression&&) noexcept;
    Expression& operator=(Expression&&) noexcept;
    ~Expression();

    const std::string& text() const { return formula; } ///< as it was given
    /// The words that the formula itself uses, each once, without those of its counters.
    const std::vector<std::string>& names() const { return used; }
    /// In the order in which they stand in the formula.
    const std::vector<Counter>& counters() const { return counting; }

    /// The result for the values of the words, in the order of `names`, followed by those of the
    /// counters. Throws std::runtime_error for a division by zero, a value outside the domain of a
    /// function, and a result that is not finite; branches of `? :` that are not taken do not
    /// count.
    double value(const std::vector<double>& values);

private:
    struct Parser;

    void compile(const std::string& prepared);

    std::string formula;
    std::vector<std::string> used;
    std::vector<Counter> counting;
    std::unique_ptr<Parser> parser;
};

/// Whether `name` can be the name of a word in a formula: letters, digits, "_" and ".", not
/// beginning with a digit, and not that of a function.
bool isWordName(const std::string& name);

} // namespace words

#endif
