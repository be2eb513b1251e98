#include "words/Expression.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cfenv>
#include <cmath>
#include <map>
#include <muParser.h>
#include <numbers>
#include <stdexcept>

namespace words {

namespace {

// muParser's own functions are replaced: the meaning of its `log`, for one, depends on its version.
const std::array<std::pair<const char*, double (*)(double)>, 18> functionsOfOne = {{
    {"abs", [](double a) { return std::fabs(a); }},
    {"sign", [](double a) { return static_cast<double>((a > 0) - (a < 0)); }},
    {"sqrt", [](double a) { return std::sqrt(a); }},
    {"exp", [](double a) { return std::exp(a); }},
    {"log", [](double a) { return std::log(a); }},
    {"log10", [](double a) { return std::log10(a); }},
    {"sin", [](double a) { return std::sin(a); }},
    {"cos", [](double a) { return std::cos(a); }},
    {"tan", [](double a) { return std::tan(a); }},
    {"asin", [](double a) { return std::asin(a); }},
    {"acos", [](double a) { return std::acos(a); }},
    {"atan", [](double a) { return std::atan(a); }},
    {"floor", [](double a) { return std::floor(a); }},
    {"ceil", [](double a) { return std::ceil(a); }},
    {"round", [](double a) { return std::round(a); }},
    {"trunc", [](double a) { return std::trunc(a); }},
    {"not", [](double a) { return static_cast<double>(a == 0); }},
    {"rint", [](double a) { return std::nearbyint(a); }},
}};

// The remainder has the sign of the divisor, so that mod(a, n) of negative numbers goes on
// counting.
double modulo(double a, double b)
{
    const double rest = a - b * std::floor(a / b);
    return rest;
}

// Whether all bits of `mask` are set. Beyond 2^63 there are no bits.
double hasBits(double value, double mask)
{
    constexpr double limit = 9.2e18;
    if (!(std::fabs(value) < limit) || !(std::fabs(mask) < limit))
        return std::nan("");
    const auto bits = static_cast<long long>(mask);
    return static_cast<double>((static_cast<long long>(value) & bits) == bits);
}

const std::array<std::pair<const char*, double (*)(double, double)>, 4> functionsOfTwo = {{
    {"atan2", [](double a, double b) { return std::atan2(a, b); }},
    {"hypot", [](double a, double b) { return std::hypot(a, b); }},
    {"mod", modulo},
    {"has", hasBits},
}};

double least(const double* values, int count)
{
    return *std::min_element(values, values + count);
}

double greatest(const double* values, int count)
{
    return *std::max_element(values, values + count);
}

bool isFunction(const std::string& name)
{
    const auto isNamed = [&](const auto& function) { return name == function.first; };
    return name == "min" || name == "max" || name == "count" || name == "group" ||
           std::any_of(functionsOfOne.begin(), functionsOfOne.end(), isNamed) ||
           std::any_of(functionsOfTwo.begin(), functionsOfTwo.end(), isNamed);
}

bool beginsName(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool continuesName(char c)
{
    return beginsName(c) || std::isdigit(static_cast<unsigned char>(c)) != 0 || c == '.';
}

[[noreturn]] void refuse(const std::string& formula, const std::string& why)
{
    throw std::runtime_error("\"" + formula + "\": " + why);
}

// Reads a formula from the left, and replaces counters by names that stand for them.
class Reader
{
public:
    explicit Reader(const std::string& text) : formula(text) {}

    void read()
    {
        while (at < formula.size()) {
            if (beginsName(formula[at]))
                readName();
            else if (std::isdigit(static_cast<unsigned char>(formula[at])) != 0 ||
                     formula[at] == '.')
                readNumber();
            else
                readSign();
        }
    }

    std::string prepared;
    std::vector<std::string> names;
    std::vector<Expression::Counter> counters;

    // Cannot be typed: a name does not begin with a digit, nor a number go on with letters.
    static std::string nameOfCounter(std::size_t i) { return "_counter." + std::to_string(i); }

private:
    char next(std::size_t i) const { return i < formula.size() ? formula[i] : '\0'; }

    void skipBlanks()
    {
        while (std::isspace(static_cast<unsigned char>(next(at))) != 0)
            ++at;
    }

    std::string takeName()
    {
        const std::size_t begin = at;
        while (continuesName(next(at)))
            ++at;
        return formula.substr(begin, at - begin);
    }

    void readName()
    {
        const std::string name = takeName();
        skipBlanks();
        const bool isCall = next(at) == '(';
        if (name.starts_with("_counter."))
            refuse(formula, name + " is not a name for a word");
        if (isCall && !isFunction(name))
            refuse(formula, "the function " + name + " does not exist" +
                                "; the page of header_math lists the functions");
        if (!isCall && isFunction(name))
            refuse(formula, name + " is a function; give it its arguments in parentheses");
        if (name == "count" || name == "group") {
            readCounter(name == "group");
            return;
        }
        prepared += name;
        if (!isCall && name != "pi" && std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }

    // "(", words, ")"
    void readCounter(bool numbersGroups)
    {
        Expression::Counter counter{numbersGroups, {}};
        do {
            ++at;
            skipBlanks();
            if (next(at) == ')' && counter.words.empty() && !numbersGroups)
                break;
            if (!beginsName(next(at)))
                refuse(formula, std::string(numbersGroups ? "group" : "count") +
                                    " takes names of words, as in count(fldr)");
            counter.words.push_back(takeName());
            skipBlanks();
        } while (next(at) == ',');
        if (next(at) != ')')
            refuse(formula, std::string(numbersGroups ? "group" : "count") +
                                " takes names of words, as in count(fldr)");
        ++at;
        prepared += nameOfCounter(counters.size());
        counters.push_back(std::move(counter));
    }

    void readNumber()
    {
        const std::size_t begin = at;
        while (std::isdigit(static_cast<unsigned char>(next(at))) != 0 || next(at) == '.')
            ++at;
        if (next(at) == 'e' || next(at) == 'E') {
            ++at;
            if (next(at) == '+' || next(at) == '-')
                ++at;
            while (std::isdigit(static_cast<unsigned char>(next(at))) != 0)
                ++at;
        }
        if (beginsName(next(at)))
            refuse(formula, "a number goes on with letters: " + formula.substr(begin));
        prepared += formula.substr(begin, at - begin);
    }

    void readSign()
    {
        const char sign = formula[at];
        const bool isPair = next(at + 1) == '=';
        if (sign == '=' && !isPair)
            refuse(formula, "= does not compare; write ==");
        if (sign == '"' || sign == '\'')
            refuse(formula, "texts have no place in a formula; words are numbers");
        prepared += sign;
        ++at;
        if (isPair && (sign == '=' || sign == '<' || sign == '>' || sign == '!')) {
            prepared += '=';
            ++at;
        }
    }

    const std::string& formula;
    std::size_t at = 0;
};

} // namespace

// muParser keeps the addresses of the values, hence one block of memory that does not move.
struct Expression::Parser
{
    mu::Parser formula;
    std::vector<double> values;
};

Expression::Expression(const std::string& given) : formula(given)
{
    if (std::all_of(formula.begin(), formula.end(),
                    [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }))
        throw std::runtime_error("a formula is empty");
    Reader reader(formula);
    reader.read();
    used = std::move(reader.names);
    counting = std::move(reader.counters);
    compile(reader.prepared);
}

Expression::Expression(Expression&&) noexcept = default;
Expression& Expression::operator=(Expression&&) noexcept = default;
Expression::~Expression() = default;

void Expression::compile(const std::string& prepared)
{
    parser = std::make_unique<Parser>();
    parser->values.assign(used.size() + counting.size(), 1);
    mu::Parser& made = parser->formula;
    try {
        made.ClearFun();
        made.ClearConst();
        made.DefineNameChars("0123456789_.abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
        made.DefineConst("pi", std::numbers::pi);
        for (const auto& [name, function] : functionsOfOne)
            made.DefineFun(name, function);
        for (const auto& [name, function] : functionsOfTwo)
            made.DefineFun(name, function);
        made.DefineFun("min", least);
        made.DefineFun("max", greatest);
        for (std::size_t i = 0; i < used.size(); ++i)
            made.DefineVar(used[i], &parser->values[i]);
        for (std::size_t i = 0; i < counting.size(); ++i)
            made.DefineVar(Reader::nameOfCounter(i), &parser->values[used.size() + i]);
        made.SetExpr(prepared);
        static_cast<void>(made.Eval());
        if (made.GetNumResults() != 1)
            refuse(formula, "a formula has one result; a comma only parts arguments of functions");
    } catch (const mu::Parser::exception_type& error) {
        std::string why = error.GetMsg();
        if (!why.empty() && why.back() == '.')
            why.pop_back();
        if (!why.empty())
            why[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(why[0])));
        refuse(formula, why);
    }
}

double Expression::value(const std::vector<double>& values)
{
    std::copy_n(values.begin(), parser->values.size(), parser->values.begin());
    // The flags of the processor also see a division by zero whose result only a comparison uses.
    std::feclearexcept(FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW);
    const double result = parser->formula.Eval();
    const int raised = std::fetestexcept(FE_DIVBYZERO | FE_INVALID | FE_OVERFLOW);
    const std::string avoid = "; avoid it with a condition, as in gx == sx ? 0 : 1 / (gx - sx)";
    if ((raised & FE_DIVBYZERO) != 0)
        refuse(formula, "division by zero, or the logarithm of zero" + avoid);
    if ((raised & FE_INVALID) != 0 || std::isnan(result))
        refuse(formula,
               "a value has no result, as the root of a negative number, or is NaN" + avoid);
    if ((raised & FE_OVERFLOW) != 0 || std::isinf(result))
        refuse(formula, "the result is too large to be a number");
    return result;
}

bool isWordName(const std::string& name)
{
    return !name.empty() && beginsName(name[0]) &&
           std::all_of(name.begin(), name.end(), continuesName) && !isFunction(name) &&
           name != "pi" && !name.starts_with("_counter.");
}

} // namespace words
