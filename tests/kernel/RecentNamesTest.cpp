#include "private/RecentNames.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

using Map = std::map<std::string, int>;

TEST(RecentNamesTest, AnswersAreThoseOfTheMap)
{
    // Far more names than are remembered, so that they drive each other out, in random order.
    Map map;
    RecentNames<int> names;
    std::mt19937 random(7);
    for (int i = 0; i < 60000; ++i) {
        const int number = static_cast<int>(random() % 1500);
        const std::string name = "name" + std::to_string(number);
        switch (random() % 8) {
        case 0:
            map.emplace(name, number);
            break;
        case 1:
            map.erase(name); // by hand, behind the back of what remembers
            break;
        default:
            break;
        }
        const auto there = map.find(name);
        const int* found = names.find(map, name);
        ASSERT_EQ(found, there == map.end() ? nullptr : &there->second) << name << " at " << i;
    }
}

TEST(RecentNamesTest, ANameThatCameInMeanwhileIsFound)
{
    Map map{{"tracl", 1}};
    RecentNames<int> names;
    EXPECT_EQ(names.find(map, "offset"), nullptr);
    map["offset"] = 5;
    ASSERT_NE(names.find(map, "offset"), nullptr);
    EXPECT_EQ(*names.find(map, "offset"), 5);
    EXPECT_EQ(*names.find(map, "tracl"), 1);
}

TEST(RecentNamesTest, AnErasedNameIsNotRemembered)
{
    Map map{{"offset", 5}, {"tracl", 1}};
    RecentNames<int> names;
    ASSERT_NE(names.find(map, "offset"), nullptr);
    map.erase("offset");
    EXPECT_EQ(names.find(map, "offset"), nullptr);
}

TEST(RecentNamesTest, AfterForgettingOneNameCanHaveTakenThePlaceOfAnother)
{
    Map map{{"offset", 5}, {"tracl", 1}};
    RecentNames<int> names;
    ASSERT_NE(names.find(map, "offset"), nullptr);
    map.erase("offset");
    map["tracr"] = 2;
    names.forget();
    EXPECT_EQ(names.find(map, "offset"), nullptr);
    EXPECT_EQ(*names.find(map, "tracr"), 2);
}

TEST(RecentNamesTest, TheEmptyNameAndLongNamesAreNamesLikeOthers)
{
    const std::string longName(1000, 'n');
    Map map{{"", 1}, {longName, 2}};
    RecentNames<int> names;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(*names.find(map, ""), 1);
        EXPECT_EQ(*names.find(map, longName), 2);
        EXPECT_EQ(names.find(map, longName + "n"), nullptr);
    }
}

} // namespace
