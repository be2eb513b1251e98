// Exact sums against sums in 128 bits, in other orders, and at the ends of the range of doubles.
#include "sums/ExactSums.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <random>

namespace {

using sums::ExactSums;

__extension__ typedef __int128 Wide;

std::vector<double> randomValues(std::size_t count, int leastExponent, int greatestExponent)
{
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> mantissa(-1, 1);
    std::uniform_int_distribution<int> exponent(leastExponent, greatestExponent);
    std::vector<double> values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
        values.push_back(std::ldexp(mantissa(random), exponent(random)));
    return values;
}

double wholeSum(const std::vector<double>& values)
{
    ExactSums sum;
    for (const double value : values)
        sum.addWhole(0, value);
    return sum.value();
}

TEST(ExactSums, SumsOfNothingAreZero)
{
    ExactSums sum(3);
    EXPECT_EQ(sum.value(2), 0);
    sum.add(1, 0);
    sum.add(1, -0.0);
    EXPECT_EQ(sum.value(1), 0);
}

TEST(ExactSums, OneTermIsItself)
{
    for (const double value : {1.0, -1.0, 0.1, -1e300, 1e-300, 3e-290, DBL_MAX, -DBL_MAX, 0x1p-1000,
                               4294967296.0, 1234567890123456.7})
        EXPECT_EQ(wholeSum({value}), value);
    for (const float value : {0.1F, -FLT_MAX, FLT_MIN, 16777215.0F}) {
        ExactSums sum;
        sum.add(0, static_cast<double>(value));
        EXPECT_EQ(sum.value(), static_cast<double>(value));
    }
}

TEST(ExactSums, TermsAreRoundedTo28Bits)
{
    ExactSums sum(4);
    sum.add(0, 1 + 0x1p-27);
    sum.add(1, 1 + 0x1p-28); // half-way
    sum.add(2, 1 + 0x1p-29);
    sum.add(3, -(2 - 0x1p-50));
    EXPECT_EQ(sum.value(0), 1 + 0x1p-27);
    EXPECT_EQ(sum.value(1), 1 + 0x1p-27);
    EXPECT_EQ(sum.value(2), 1);
    EXPECT_EQ(sum.value(3), -2);
}

TEST(ExactSums, NothingIsLostBesideGreatTerms)
{
    EXPECT_EQ(wholeSum({1e300, 1, -1e300}), 1);
    EXPECT_EQ(wholeSum({1e300, 1e-300, -1e300}), 1e-300);
    EXPECT_EQ(wholeSum({DBL_MAX, DBL_MAX, -DBL_MAX}), DBL_MAX);
    EXPECT_EQ(wholeSum({DBL_MAX, DBL_MAX}), std::numeric_limits<double>::infinity());
    EXPECT_EQ(wholeSum({-1e-300, -1e300, 1e300}), -1e-300);
}

TEST(ExactSums, TheSumIsRoundedToTheNearestDouble)
{
    EXPECT_EQ(wholeSum({1, 0x1p-53}), 1); // half-way, to even
    EXPECT_EQ(wholeSum({1 + 0x1p-52, 0x1p-53}), 1 + 0x1p-51);
    EXPECT_EQ(wholeSum({1, 0x1p-53, 0x1p-900}), 1 + 0x1p-52); // just above it
    EXPECT_EQ(wholeSum({1, 0x1p-53, -0x1p-900}), 1);
    EXPECT_EQ(wholeSum({-1, -0x1p-53, -0x1p-900}), -1 - 0x1p-52);
}

TEST(ExactSums, AgreesWithSumsOf128Bits)
{
    std::vector<double> values = randomValues(100000, 0, 40);
    Wide expected = 0; // in units of 2^-60
    for (double& value : values) {
        value = std::ldexp(std::round(std::ldexp(value, 20)), -20);
        expected += static_cast<Wide>(std::ldexp(value, 60));
    }
    // A double of an integer of 128 bits is the nearest.
    EXPECT_EQ(wholeSum(values), std::ldexp(static_cast<double>(expected), -60));
}

TEST(ExactSums, NoOrderAndNoPartialSumMatters)
{
    std::vector<double> values = randomValues(20000, -300, 300);
    ExactSums one(2);
    for (const double value : values) {
        one.add(0, value);
        one.addWhole(1, value);
    }
    std::mt19937 random(3);
    for (int turn = 0; turn < 5; ++turn) {
        std::shuffle(values.begin(), values.end(), random);
        ExactSums all(2);
        for (std::size_t first = 0; first < values.size();) {
            const std::size_t end = std::min(values.size(), first + 1 + random() % 9000);
            ExactSums part(2);
            for (; first < end; ++first) {
                part.add(0, values[first]);
                part.addWhole(1, values[first]);
            }
            all.add(part);
        }
        EXPECT_EQ(all.value(0), one.value(0));
        EXPECT_EQ(all.value(1), one.value(1));
    }
}

TEST(ExactSums, ManyEqualTermsAreCarried)
{
    for (const double value : {0x1.fffffffp30, -0x1.fffffffp30, 0x1p-1022, -3.0}) {
        ExactSums sum;
        constexpr int terms = 3000000;
        for (int i = 0; i < terms; ++i)
            sum.add(0, value);
        ExactSums one;
        one.add(0, value);
        EXPECT_EQ(sum.value(), terms * one.value());
    }
}

TEST(ExactSums, BatchesAreExactSumsOfRoundedTerms)
{
    // More terms than a batch holds, of several bounds.
    const std::vector<double> values = randomValues(40000, -20, 3);
    ExactSums one(2);
    ExactSums reversed(2);
    ExactSums rounded;
    const auto boundOf = [](std::size_t i) { return i % 3 == 0 ? 8.0 : 300.0; };
    const auto addTo = [&](ExactSums& to, std::size_t i) {
        const exact_batch batch = to.begin(boundOf(i));
        exact_batch_add(&batch, 1, values[i]);
    };
    for (std::size_t i = 0; i < values.size(); ++i) {
        addTo(one, i);
        addTo(reversed, values.size() - 1 - i);
        const int unit = i % 3 == 0 ? 8 - 40 : 16 - 40;
        rounded.addWhole(0, std::ldexp(std::nearbyint(std::ldexp(values[i], -unit)), unit));
    }
    one.flush();
    reversed.flush();
    EXPECT_EQ(one.value(0), 0);
    EXPECT_EQ(one.value(1), rounded.value());
    EXPECT_EQ(reversed.value(1), rounded.value());
    EXPECT_NE(one.value(1), wholeSum(values)); // rounded they are
    EXPECT_NEAR(one.value(1), wholeSum(values), 40000 * 0x1p-25);
}

TEST(ExactSums, BatchesHaveBoundsOfAnySize)
{
    for (const double bound : {0x1p-900, 1e-40, 255.0, 256.0, 257.0, 1e300 / 1e30, 0x1p900}) {
        ExactSums sum;
        for (const double share : {1.0, -0.5, 0.75}) {
            const exact_batch batch = sum.begin(bound);
            exact_batch_add(&batch, 0, share * bound);
        }
        sum.flush();
        EXPECT_NEAR(sum.value() / bound, 1.25, 0x1p-31) << bound;
    }
}

TEST(ExactSums, ClearedSumsBeginAnew)
{
    ExactSums sum(2);
    sum.add(1, 5);
    const exact_batch batch = sum.begin(10);
    exact_batch_add(&batch, 0, 3);
    sum.clear();
    sum.flush();
    sum.add(1, 2);
    EXPECT_EQ(sum.value(0), 0);
    EXPECT_EQ(sum.value(1), 2);
}

} // namespace
