#include "run/InputDigests.h"

#include "base/Sha256.h"
#include "file/InputFile.h"

#include <KernelFixture.h>

#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

using host::InputDigests;
using testing::ElementsAre;

namespace {

class InputDigestsTest : public ::testing::Test
{
protected:
    InputDigestsTest() { std::ofstream(path) << content; }

    static constexpr int64_t window = 1 << 18; // bytes that are read at a time
    TemporaryDirectory directory;
    const std::string path = directory / "in";
    const std::string content = std::string(3 * window, 'a') + "end";
    const int64_t end = static_cast<int64_t>(content.size());
    InputDigests digests;
};

} // namespace

TEST_F(InputDigestsTest, AFileThatIsReadInItsOrderHasTheChecksumOfItsBytes)
{
    VORN::InputFile file(path);
    for (int64_t at = 0; at < end; at += 1000)
        file.at(at, std::min<int64_t>(1000, end - at));
    const auto record = digests.find("", path);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->sha256, host::sha256Of(content));
    EXPECT_EQ(record->bytesRead, end);
    EXPECT_THAT(record->ranges, ElementsAre(std::pair(int64_t{0}, end)));
}

TEST_F(InputDigestsTest, WhatOtherProcessesHaveReadCountsOnce)
{
    VORN::InputFile file(path);
    file.at(0, 10);
    ASSERT_EQ(digests.find("", path)->bytesRead, window);

    digests.add("", path, {{5, 100}, {2 * window, 2 * window + 7}});
    EXPECT_EQ(digests.find("", path)->bytesRead, window + 7);
    digests.add("", path, {{2 * window + 3, 2 * window + 9}});
    EXPECT_THAT(digests.find("", path)->ranges,
                ElementsAre(std::pair(int64_t{0}, window), std::pair(2 * window, 2 * window + 9)));
    EXPECT_EQ(digests.find("", path)->sha256, "");

    digests.add("", path, {{0, end}});
    EXPECT_EQ(digests.find("", path)->bytesRead, end);
    EXPECT_EQ(digests.find("", path)->sha256, "") << "of bytes that this process has not seen";

    digests.add("other", path, {{0, end}});
    EXPECT_FALSE(digests.find("other", path));
}
