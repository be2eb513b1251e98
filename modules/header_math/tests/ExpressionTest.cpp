#include "words/Expression.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using words::Expression;

std::string refusal(const std::string& formula)
{
    try {
        Expression made(formula);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

std::string failure(const std::string& formula, const std::vector<double>& values)
{
    Expression made(formula);
    try {
        made.value(values);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(ExpressionTest, ResultsOfFormulas)
{
    const struct
    {
        const char* formula;
        double value;
    } rows[] = {
        {"1 + 2 * 3", 7},
        {"(1 + 2) * 3", 9},
        {"7 / 2", 3.5},
        {"1 - 2 - 3", -4},
        {"2 ^ 3 ^ 2", 512},
        {"-3 + 1", -2},
        {"1.5e3 + 2E-1", 1500.2},
        {"3 > 2", 1},
        {"3 <= 2", 0},
        {"2 != 2 || 1 == 1", 1},
        {"1 < 2 && 2 < 1", 0},
        {"1 > 2 ? 10 : 20", 20},
        {"0 ? 1 : 0 ? 2 : 3", 3},
        {"abs(-4.5)", 4.5},
        {"sign(-3) + sign(0) + sign(8)", 0},
        {"sqrt(16) + exp(0)", 5},
        {"log(2.718281828459045)", 1},
        {"log10(1000)", 3},
        {"sin(pi / 6)", 0.5},
        {"cos(pi / 3)", 0.5},
        {"tan(pi / 4)", 1},
        {"asin(1) - acos(0)", 0},
        {"atan(1) * 4", M_PI},
        {"atan2(1, -1)", 0.75 * M_PI},
        {"hypot(3, -4)", 5},
        {"floor(-1.5)", -2},
        {"ceil(-1.5)", -1},
        {"round(-2.5)", -3},
        {"round(2.5)", 3},
        {"rint(2.5)", 2},
        {"trunc(-1.7)", -1},
        {"mod(7, 3)", 1},
        {"mod(-7, 3)", 2},
        {"min(3, 1, 2)", 1},
        {"max(3, 1, 2, 9)", 9},
        {"not(0) + not(5)", 1},
        {"has(37, 4)", 1},
        {"has(37, 8)", 0},
        {"has(37, 5)", 1},
    };
    for (const auto& row : rows)
        EXPECT_NEAR(Expression(row.formula).value({}), row.value, 1e-12) << row.formula;
}

TEST(ExpressionTest, NamesAreThoseOfTheFormulaInTheirOrder)
{
    Expression midpoint("(sx + gx) / 2 + sx * 1e0");

    EXPECT_THAT(midpoint.names(), ElementsAre("sx", "gx"));
    EXPECT_DOUBLE_EQ(midpoint.value({10, 20}), 25);
    EXPECT_DOUBLE_EQ(midpoint.value({-4, 2}), -5);
    EXPECT_EQ(midpoint.text(), "(sx + gx) / 2 + sx * 1e0");
}

TEST(ExpressionTest, CountersAreNamedAndTakeTheirPlaceBehindTheWords)
{
    Expression numbered("100 * group(fldr) + count(fldr, ep) + cdp");

    EXPECT_THAT(numbered.names(), ElementsAre("cdp"));
    ASSERT_THAT(numbered.counters(), SizeIs(2));
    EXPECT_TRUE(numbered.counters()[0].numbersGroups);
    EXPECT_THAT(numbered.counters()[0].words, ElementsAre("fldr"));
    EXPECT_FALSE(numbered.counters()[1].numbersGroups);
    EXPECT_THAT(numbered.counters()[1].words, ElementsAre("fldr", "ep"));
    EXPECT_DOUBLE_EQ(numbered.value({0.5, 3, 7}), 307.5);
}

TEST(ExpressionTest, AMovedFormulaKeepsItsValues)
{
    Expression first("a - b");
    Expression second = std::move(first);

    EXPECT_DOUBLE_EQ(second.value({5, 3}), 2);
}

TEST(ExpressionTest, FormulasAreRefused)
{
    const struct
    {
        const char* formula;
        const char* why;
    } rows[] = {
        {"", "a formula is empty"},
        {"  ", "a formula is empty"},
        {"(sx + gx", "parenthesis"},
        {"sx +", "unexpected end"},
        {"sx gx", "unexpected"},
        {"sx = 3", "= does not compare; write =="},
        {"a, b", "a formula has one result"},
        {"sqr(sx)", "the function sqr does not exist"},
        {"sqrt", "sqrt is a function"},
        {"count(", "takes names of words"},
        {"count(3)", "takes names of words"},
        {"group()", "takes names of words"},
        {"group(fldr + 1)", "takes names of words"},
        {"3km", "a number goes on with letters"},
        {"cdp == \"7\"", "words are numbers"},
        {"sqrt(1, 2)", "too many"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(refusal(row.formula), HasSubstr(row.why)) << row.formula;
}

TEST(ExpressionTest, ResultsThatAreNotFiniteAreRefused)
{
    const double infinity = INFINITY;
    EXPECT_THAT(failure("1 / a", {0}), HasSubstr("\"1 / a\": division by zero"));
    EXPECT_THAT(failure("0 * a / b", {1, 0}), HasSubstr("is NaN"));
    EXPECT_THAT(failure("log(a)", {0}), HasSubstr("division by zero, or the logarithm of zero"));
    EXPECT_THAT(failure("sqrt(a)", {-1}), HasSubstr("root of a negative number"));
    EXPECT_THAT(failure("mod(a, b)", {1, 0}), HasSubstr("division by zero"));
    EXPECT_THAT(failure("exp(a)", {1000}), HasSubstr("too large"));
    EXPECT_THAT(failure("a", {NAN}), HasSubstr("is NaN"));
    EXPECT_THAT(failure("a", {infinity}), HasSubstr("too large"));
}

// The result itself, 0 or 1, would hide it.
TEST(ExpressionTest, ADivisionByZeroInsideAComparisonIsRefused)
{
    EXPECT_THAT(failure("1 / a > 3", {0}), HasSubstr("division by zero"));
}

TEST(ExpressionTest, BranchesThatAreNotTakenMayDivideByZero)
{
    Expression slope("gx == sx ? 0 : 1 / (gx - sx)");

    EXPECT_EQ(slope.value({5, 5}), 0);
    EXPECT_EQ(slope.value({7, 5}), 0.5);
}

TEST(ExpressionTest, NamesForWords)
{
    for (const char* name : {"cdp", "qc_rms", "_x", "a1", "table.elev"})
        EXPECT_TRUE(words::isWordName(name)) << name;
    for (const char* name : {"", "1a", "a b", "a-b", "sqrt", "count", "pi", "_counter.0"})
        EXPECT_FALSE(words::isWordName(name)) << name;
}

} // namespace
