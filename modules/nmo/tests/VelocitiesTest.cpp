#include "../Velocities.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

TEST(VelocitiesTest, StraightLinesBetweenPicksAndConstantBeyond)
{
    const Velocities velocities({{0, 0.5, 2000}, {0, 1.5, 3000}, {0, 2.0, 2500}});
    const VelocityFunction function = velocities.at(77);

    const struct
    {
        double time, velocity;
    } rows[] = {{-1, 2000},  {0, 2000},    {0.5, 2000}, {1, 2500}, {1.25, 2750},
                {1.5, 3000}, {1.75, 2750}, {2, 2500},   {9, 2500}};
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(function.at(row.time), row.velocity) << row.time;
    EXPECT_EQ(velocities.slowest(), 2000);
    EXPECT_EQ(velocities.fastest(), 3000);
    EXPECT_EQ(velocities.firstTime(), 0.5);
    EXPECT_EQ(velocities.locations(), 1U);
}

// v(100, t) = 1000 + 1000 t up to 1 s; v(300, t) = 3000 at all times.
TEST(VelocitiesTest, BetweenLocationsTheVelocityOfEachTimeIsInterpolated)
{
    const Velocities velocities({{300, 0.3, 3000}, {100, 0, 1000}, {100, 1, 2000}});
    const struct
    {
        double location, time, velocity;
    } rows[] = {{100, 0.5, 1500}, {50, 0.5, 1500},  {300, 0.5, 3000}, {900, 0.5, 3000},
                {200, 0, 2000},   {200, 0.5, 2250}, {200, 0.4, 2200}, {150, 1, 2250},
                {150, 7, 2250},   {250, 0.3, 2575}};
    for (const auto& row : rows)
        EXPECT_NEAR(velocities.at(row.location).at(row.time), row.velocity, 1e-9)
            << row.location << " " << row.time;
    EXPECT_EQ(velocities.locations(), 2U);
}

TEST(VelocitiesTest, PicksAreRefused)
{
    const struct
    {
        std::vector<VelocityPick> picks;
        const char* why;
    } rows[] = {
        {{}, "there are no velocities"},
        {{{0, 0, 2000}, {0, 1, 0}}, "time 1 s: the velocity is 0 m/s; give one above 0"},
        {{{0, 0, -2000}}, "give one above 0"},
        {{{0, 0, NAN}}, "give finite numbers"},
        {{{0, 1, 2000}, {0, 1, 2100}},
         "time 1 s comes after 1 s; give the times of a location in "
         "ascending order"},
        {{{7, 1, 2000}, {8, 0.5, 2000}, {7, 0.5, 2100}},
         "at location 7, time 0.5 s comes after 1 s"},
    };
    for (const auto& row : rows) {
        try {
            Velocities made(row.picks);
            ADD_FAILURE() << row.why;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.why));
        }
    }
}

} // namespace
