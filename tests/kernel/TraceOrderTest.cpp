#include "TraceOrder.h"

#include "KernelFixture.h"
#include "TraceVerbs.h"

#include <algorithm>
#include <deque>
#include <gmock/gmock.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TraceOrderTest : public KernelFixture
{
protected:
    TraceOrderTest()
    {
        for (int i = 0; i < 4; ++i)
            traces.push_back(ownedTrace(0));
        a = traces[0].get();
        b = traces[1].get();
        c = traces[2].get();
    }
    static std::vector<SeisTrace*> tracesOf(const TraceOrder& one)
    {
        return {one.begin(), one.end()};
    }

    std::vector<OwnedTrace> traces;
    SeisTrace *a, *b, *c;
    TraceOrder order;
};

TEST_F(TraceOrderTest, NewOrderIsEmpty)
{
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(order.size(), 0u);
    EXPECT_EQ(order.front(), nullptr);
    EXPECT_EQ(order.back(), nullptr);
    EXPECT_THAT(tracesOf(order), IsEmpty());
    EXPECT_FALSE(order.contains(a));
}

TEST_F(TraceOrderTest, LastPutInFrontIsTheFirst)
{
    for (SeisTrace* trace : {a, b, c})
        order.push_front(trace);
    EXPECT_THAT(tracesOf(order), ElementsAre(c, b, a));
    EXPECT_EQ(order.front(), c);
    EXPECT_EQ(order.back(), a);
    EXPECT_EQ(order.size(), 3u);
    EXPECT_TRUE(order.contains(b));
}

TEST_F(TraceOrderTest, OrderReadsLikeADeque)
{
    for (SeisTrace* trace : {a, b, c})
        order.push_front(trace);
    EXPECT_EQ(order[0], c);
    EXPECT_EQ(order[2], a);
    EXPECT_EQ(order.at(1), b);
    EXPECT_THROW(order.at(3), std::out_of_range);
    const std::deque<SeisTrace*> copy = order;
    EXPECT_THAT(copy, ElementsAre(c, b, a));
    EXPECT_EQ(order, copy);
    EXPECT_NE(order, (std::deque<SeisTrace*>{a, b, c}));
    EXPECT_NE(order, (std::deque<SeisTrace*>{c, b}));
}

TEST_F(TraceOrderTest, TraceIsInTheOrderOnce)
{
    for (SeisTrace* trace : {a, b, c, a, a, b})
        order.push_front(trace);
    EXPECT_THAT(tracesOf(order), ElementsAre(b, a, c));
    EXPECT_EQ(order.size(), 3u);
}

TEST_F(TraceOrderTest, AnyPlaceCanBeGivenUp)
{
    for (SeisTrace* taken : {a, b, c}) {
        for (SeisTrace* trace : {a, b, c})
            order.push_front(trace);
        order.erase(taken);
        std::vector<SeisTrace*> expected = {c, b, a};
        std::erase(expected, taken);
        EXPECT_EQ(tracesOf(order), expected);
        EXPECT_EQ(order.front(), expected.front());
        EXPECT_EQ(order.back(), expected.back());
        EXPECT_FALSE(order.contains(taken));
        order.clear();
    }
}

TEST_F(TraceOrderTest, LastTraceLeavesFromTheBack)
{
    for (SeisTrace* trace : {a, b})
        order.push_front(trace);
    order.pop_back();
    EXPECT_THAT(tracesOf(order), ElementsAre(b));
    order.pop_back();
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(order.front(), nullptr);
    order.push_front(a);
    EXPECT_THAT(tracesOf(order), ElementsAre(a));
}

TEST_F(TraceOrderTest, TraceStandsInOneOrderAtATime)
{
    TraceOrder other;
    order.push_front(a);
    order.push_front(b);
    other.push_front(a);
    EXPECT_THAT(tracesOf(order), ElementsAre(b));
    EXPECT_THAT(tracesOf(other), ElementsAre(a));
    EXPECT_FALSE(order.contains(a));
    EXPECT_TRUE(other.contains(a));
}

TEST_F(TraceOrderTest, TracesOutliveTheOrder)
{
    {
        TraceOrder other;
        other.push_front(a);
        other.push_front(b);
    }
    order.push_front(a);
    EXPECT_THAT(tracesOf(order), ElementsAre(a));
}

TEST_F(TraceOrderTest, BehavesLikeADequeUnderRandomOperations)
{
    for (unsigned seed = 1; seed <= 10; ++seed) {
        Dice dice(seed);
        std::vector<OwnedTrace> all;
        for (int i = 0; i < 12; ++i)
            all.push_back(ownedTrace(0));
        TraceOrder tested;
        std::deque<SeisTrace*> model;
        for (int step = 0; step < 2000; ++step) {
            SeisTrace* trace = dice.pick(all).get();
            const auto place = std::find(model.begin(), model.end(), trace);
            if (dice.oneIn(5) && !model.empty()) {
                tested.pop_back();
                model.pop_back();
            } else if (dice.oneIn(4) && place != model.end()) {
                tested.erase(trace);
                model.erase(place);
            } else {
                if (place != model.end())
                    model.erase(place);
                tested.push_front(trace);
                model.push_front(trace);
            }
            ASSERT_TRUE(std::equal(tested.begin(), tested.end(), model.begin(), model.end()))
                << "seed " << seed << ", step " << step;
            ASSERT_EQ(tested.size(), model.size());
            ASSERT_EQ(tested.front(), model.empty() ? nullptr : model.front());
            ASSERT_EQ(tested.back(), model.empty() ? nullptr : model.back());
            for (const OwnedTrace& one : all)
                ASSERT_EQ(tested.contains(one.get()),
                          std::find(model.begin(), model.end(), one.get()) != model.end());
        }
    }
}

} // namespace
