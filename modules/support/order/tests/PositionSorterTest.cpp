#include "order/PositionSorter.h"

#include "KernelFixture.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <random>

using order::PositionList;
using order::PositionSorter;
using order::PositionWriter;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class PositionSorterTest : public testing::Test
{
protected:
    // In runs of `memory` bytes, and lists of which `inMemory` numbers stay in memory.
    std::vector<int64_t> sorted(const std::vector<std::vector<int32_t>>& values,
                                const std::vector<bool>& descending, int64_t memory = 1 << 20,
                                int64_t inMemory = 1 << 20, const std::string& name = "")
    {
        PositionSorter sorter(descending, directory.path(), memory);
        const auto traces = static_cast<int64_t>(values.size());
        for (int64_t i = 0; i < traces; ++i)
            sorter.add(values[static_cast<std::size_t>(i)].data(), i);
        PositionWriter writer(name, directory.path(), traces, inMemory);
        sorter.finish(writer);
        PositionList list = writer.finish();
        std::vector<int64_t> numbers;
        for (int64_t i = 0; i < list.size(); ++i)
            numbers.push_back(list.at(i));
        return numbers;
    }

    static std::vector<int64_t> expected(const std::vector<std::vector<int32_t>>& values,
                                         const std::vector<bool>& descending)
    {
        std::vector<int64_t> numbers(values.size());
        std::iota(numbers.begin(), numbers.end(), 0);
        std::stable_sort(numbers.begin(), numbers.end(), [&](int64_t a, int64_t b) {
            for (std::size_t i = 0; i < descending.size(); ++i) {
                const int32_t left = values[static_cast<std::size_t>(a)][i];
                const int32_t right = values[static_cast<std::size_t>(b)][i];
                if (left != right)
                    return descending[i] ? left > right : left < right;
            }
            return false;
        });
        return numbers;
    }

    std::string refusal(const std::string& path, int64_t traces)
    {
        try {
            PositionList list(path, traces);
            for (int64_t i = 0; i < list.size(); ++i)
                list.at(i);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "not refused";
    }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(PositionSorterTest, EqualTracesKeepTheirOrderInEitherDirection)
{
    EXPECT_THAT(sorted({{5}, {1}, {5}, {1}}, {false}), ElementsAre(1, 3, 0, 2));
    EXPECT_THAT(sorted({{5}, {1}, {5}, {1}}, {true}), ElementsAre(0, 2, 1, 3));
}

TEST_F(PositionSorterTest, ValuesHaveTheirSigns)
{
    constexpr int32_t least = std::numeric_limits<int32_t>::min();
    constexpr int32_t most = std::numeric_limits<int32_t>::max();
    EXPECT_THAT(sorted({{0}, {most}, {-1}, {least}}, {false}), ElementsAre(3, 2, 0, 1));
    EXPECT_THAT(sorted({{0}, {most}, {-1}, {least}}, {true}), ElementsAre(1, 0, 2, 3));
}

// As a stable sort of the lists of values, however many runs there are.
TEST_F(PositionSorterTest, AnyNumberOfRunsGivesTheSameOrder)
{
    std::mt19937 random(7);
    for (std::size_t keys = 1; keys <= PositionSorter::mostKeys; ++keys) {
        std::vector<bool> descending;
        for (std::size_t i = 0; i < keys; ++i)
            descending.push_back(random() % 2 == 0);
        std::vector<std::vector<int32_t>> values(1 + random() % 400);
        for (auto& one : values) {
            for (std::size_t i = 0; i < keys; ++i)
                one.push_back(static_cast<int32_t>(random() % 3) - 1);
        }
        const std::vector<int64_t> right = expected(values, descending);
        for (const int64_t memory : {100, 1000, 1 << 20}) {
            for (const int64_t inMemory : {10, 1 << 20})
                EXPECT_EQ(sorted(values, descending, memory, inMemory), right)
                    << keys << " keys, " << memory << " bytes";
        }
    }
    EXPECT_THROW(PositionSorter(std::vector<bool>(9), ""), std::invalid_argument);
}

TEST_F(PositionSorterTest, AListWithANameIsFoundAgain)
{
    const std::string path = directory / "order";
    std::vector<std::vector<int32_t>> values(20000);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = {static_cast<int32_t>(i * 7919 % 1000)};
    const std::vector<int64_t> right = sorted(values, {false}, 1 << 20, 1 << 20, path);
    EXPECT_EQ(right, expected(values, {false}));
    PositionList list(path, 20000);
    ASSERT_EQ(list.size(), 20000);
    for (const int64_t place : {0, 19999, 8191, 8192, 5})
        EXPECT_EQ(list.at(place), right[static_cast<std::size_t>(place)]) << place;
}

TEST_F(PositionSorterTest, DamagedListsAreRefused)
{
    const std::string path = directory / "order";
    sorted({{3}, {1}, {2}}, {false}, 1000, 1000, path);
    EXPECT_EQ(refusal(path, 3), "not refused");
    EXPECT_THAT(refusal(path, 4), HasSubstr("is of an input of 3 traces, and there are 4"));
    EXPECT_THAT(refusal(directory / "none", 3), HasSubstr("cannot be read: No such file"));

    std::ifstream file(path, std::ios::binary);
    const std::string whole{std::istreambuf_iterator<char>(file), {}};
    const auto write = [&](const std::string& bytes) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    };
    for (std::size_t size : {std::size_t{0}, std::size_t{10}, whole.size() - 1}) {
        write(whole.substr(0, size));
        EXPECT_THAT(refusal(path, 3), HasSubstr("cut")) << size;
    }
    std::string damaged = whole;
    damaged[0] = 'x';
    write(damaged);
    EXPECT_THAT(refusal(path, 3), HasSubstr("is not an order of traces"));
    damaged = whole;
    damaged[damaged.size() - 8] = 3; // a trace behind the last one
    write(damaged);
    EXPECT_THAT(refusal(path, 3), HasSubstr("it names a trace that the input does not have"));
}
