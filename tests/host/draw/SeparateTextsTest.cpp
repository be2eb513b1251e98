// Texts at marks, none of which covers another.
#include "draw/SeparateTexts.h"

#include <gtest/gtest.h>
#include <vector>

using namespace host;

namespace {

constexpr Area plot{100, 50, 400, 300};
constexpr double width = 20;
constexpr double height = 10;

bool overlap(const Area& a, const Area& b)
{
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height &&
           b.y < a.y + a.height;
}

} // namespace

TEST(SeparateTextsTest, ATextStandsAboveItsPlace)
{
    SeparateTexts texts(plot);

    const auto room = texts.place(300, 200, width, height);

    ASSERT_TRUE(room);
    EXPECT_EQ(room->area.x, 290);
    EXPECT_EQ(room->area.y + room->area.height, 191);
    EXPECT_FALSE(room->isJoined);
}

TEST(SeparateTextsTest, AtTheUpperEdgeItStandsBelow)
{
    SeparateTexts texts(plot);

    const auto room = texts.place(300, 55, width, height);

    ASSERT_TRUE(room);
    EXPECT_EQ(room->area.y, 64);
}

TEST(SeparateTextsTest, TextsCoverNeitherEachOtherNorMarks)
{
    SeparateTexts texts(plot);
    std::vector<Area> taken;
    for (int i = 0; i < 60; ++i) {
        taken.push_back({108.0 + 6 * i, 196, 8, 8});
        texts.avoid(taken.back());
    }
    int placed = 0;
    for (int i = 0; i < 60; ++i) {
        const auto room = texts.place(112 + 6 * i, 200, width, height);
        if (!room)
            continue;
        ++placed;
        EXPECT_GE(room->area.x, plot.x);
        EXPECT_LE(room->area.x + room->area.width, plot.x + plot.width);
        for (const Area& other : taken)
            EXPECT_FALSE(overlap(room->area, other)) << "text " << i;
        taken.push_back(room->area);
    }
    EXPECT_GE(placed, 30) << "above and below";
    EXPECT_LT(placed, 60);
}

TEST(SeparateTextsTest, AFartherTextIsJoinedByALineThatCrossesNoText)
{
    SeparateTexts texts(plot);
    texts.avoid({285, 180, 8, 12});  // to the upper left
    texts.avoid({290, 208, 40, 20}); // below

    const auto room = texts.place(300, 200, 30, height);

    ASSERT_TRUE(room);
    EXPECT_TRUE(room->isJoined || room->area.x > 293);
    EXPECT_GE(room->lineX, room->area.x);
    EXPECT_LE(room->lineX, room->area.x + room->area.width);
}

TEST(SeparateTextsTest, WithoutRoomATextIsLeftOut)
{
    SeparateTexts texts(plot);
    texts.avoid(plot);

    EXPECT_FALSE(texts.place(300, 200, width, height));
}
