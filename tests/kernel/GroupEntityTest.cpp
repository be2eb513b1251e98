#include "GroupEntity.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace {

TEST(GroupEntityTest, DefaultGroupHasNoOccurrences)
{
    EXPECT_EQ(GroupEntity().getSize(), 0);
}

TEST(GroupEntityTest, ConstructorMakesItsIndexValid)
{
    EXPECT_EQ(GroupEntity(0).getSize(), 1);
    EXPECT_EQ(GroupEntity(3).getSize(), 4);
    EXPECT_EQ(GroupEntity(-1).getSize(), 0);
    EXPECT_TRUE(GroupEntity(0).groupParams[0].empty());
}

TEST(GroupEntityTest, SetNumberOfOccurencesMakesOneMoreThanItsNumber)
{
    GroupEntity group;
    group.setNumberOfOccurences(2);
    EXPECT_EQ(group.getSize(), 3);
    group.setNumberOfOccurences(3);
    EXPECT_EQ(group.getSize(), 4);
}

TEST(GroupEntityTest, SetNumberOfOccurencesNeverShrinks)
{
    for (int number : {4, 3, 1, 0, -1, INT_MIN}) {
        SCOPED_TRACE(number);
        GroupEntity group(4);
        ASSERT_EQ(group.getSize(), 5);
        group.setNumberOfOccurences(number);
        EXPECT_EQ(group.getSize(), 5);
    }
}

TEST(GroupEntityTest, SetParameterGrowsStoresAndReturnsOne)
{
    GroupEntity group;
    EXPECT_EQ(group.setParameter("depth", 2, UniVar(1500)), 1);
    EXPECT_EQ(group.getSize(), 3);
    EXPECT_EQ(group.getParameter("depth", 2).getI32Value(), 1500);
    EXPECT_FALSE(group.isParameterPresent("depth", 0));
    EXPECT_FALSE(group.isParameterPresent("depth", 1));
}

TEST(GroupEntityTest, SetParameterReplaces)
{
    GroupEntity group;
    group.setParameter("depth", 0, UniVar(1));
    EXPECT_EQ(group.setParameter("depth", 0, UniVar("deep")), 1);
    EXPECT_EQ(group.getParameter("depth", 0).getStrValue(), "deep");
    EXPECT_EQ(group.groupParams[0].size(), 1u);
}

TEST(GroupEntityTest, GrowthKeepsEarlierOccurrences)
{
    GroupEntity group;
    for (int i = 0; i < 1000; ++i)
        group.setParameter("name", i, UniVar("occurrence with a long text " + int2string(i)));
    ASSERT_EQ(group.getSize(), 1000);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(group.getParameter("name", i).getStrValue(),
                  "occurrence with a long text " + int2string(i));
}

TEST(GroupEntityTest, ParameterCanBeSetFromAnotherOccurrenceThatGrowthMoves)
{
    GroupEntity group;
    group.setParameter("name", 0, UniVar("a text that needs a block of its own"));
    group.setParameter("name", 1000, group.groupParams[0]["name"]);
    EXPECT_EQ(group.getParameter("name", 1000).getStrValue(),
              "a text that needs a block of its own");
}

TEST(GroupEntityTest, AskingForPresenceNeverGrows)
{
    GroupEntity group;
    EXPECT_FALSE(group.isParameterPresent("a", 0));
    EXPECT_FALSE(group.isParameterPresent("a", 5));
    EXPECT_FALSE(group.isParameterPresent("a", INT_MAX));
    EXPECT_EQ(group.getSize(), 0);

    group.setNumberOfOccurences(0);
    EXPECT_FALSE(group.isParameterPresent("a", 0));
    EXPECT_TRUE(group.groupParams[0].empty());
}

TEST(GroupEntityTest, AskingForAMissingParameterGrowsAndInserts)
{
    GroupEntity group;
    EXPECT_EQ(group.getParameter("a", 2).getType(), undefinedType);
    EXPECT_EQ(group.getSize(), 3);
    EXPECT_TRUE(group.isParameterPresent("a", 2));
    EXPECT_FALSE(group.isParameterPresent("a", 1));
}

TEST(GroupEntityTest, ParameterIsACopyOnTheWayInAndOut)
{
    const int elements[] = {1, 2};
    UniVar given(elements, 2);
    GroupEntity group;
    group.setParameter("list", 0, given);
    given.getI32ArrayValue()[0] = 9;
    EXPECT_EQ(group.getParameter("list", 0).getStrValue(), "[1,2]");

    group.getParameter("list", 0).getI32ArrayValue()[1] = 9;
    EXPECT_EQ(group.getParameter("list", 0).getStrValue(), "[1,2]");
}

TEST(GroupEntityTest, NegativeIndexIsNoOccurrence)
{
    for (int index : {-1, INT_MIN}) {
        SCOPED_TRACE(index);
        GroupEntity group(0);
        group.setParameter("a", 0, UniVar(1));
        EXPECT_EQ(group.setParameter("a", index, UniVar(2)), 0);
        EXPECT_EQ(group.getParameter("a", index).getType(), undefinedType);
        EXPECT_FALSE(group.isParameterPresent("a", index));
        EXPECT_EQ(group.getSize(), 1);
        EXPECT_EQ(group.getParameter("a", 0).getI32Value(), 1);
    }
}

TEST(GroupEntityTest, ValueRefersToTheGroupWithoutOwningIt)
{
    GroupEntity group(1);
    {
        const UniVar value(&group);
        const UniVar copy = value;
        EXPECT_EQ(copy.getGroupValue(), &group);
    }
    EXPECT_EQ(group.getSize(), 2);
}

} // namespace
