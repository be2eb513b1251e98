#include "file/InputFile.h"

#include "TraceFileFixture.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace VORN;
using ::testing::HasSubstr;

namespace {

using InputFileTest = TraceFileFixture;

} // namespace

TEST_F(InputFileTest, BytesAreReadForwardAndBackward)
{
    Bytes bytes(3000000);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 2654435761u >> 15);
    writeBytes(path, bytes);
    InputFile file(path);
    EXPECT_EQ(file.size(), 3000000);
    for (const int64_t offset :
         {0L, 100L, 262140L, 262144L, 1048570L, 1048576L, 2999990L, 5L, 1500000L})
    {
        const auto start = bytes.begin() + offset;
        const Bytes expected(start, start + 10);
        EXPECT_EQ(Bytes(file.at(offset, 10), file.at(offset, 10) + 10), expected) << offset;
        EXPECT_EQ(Bytes(file.peek(offset, 10), file.peek(offset, 10) + 10), expected) << offset;
    }
    const unsigned char* most = file.at(3, 2999997);
    EXPECT_TRUE(std::equal(most, most + 2999997, bytes.begin() + 3)) << "more than is read ahead";
}

TEST_F(InputFileTest, BytesBehindTheEndAreRefused)
{
    writeBytes(path, Bytes(100));
    InputFile file(path);
    EXPECT_THAT(failure([&] { file.at(95, 6); }), HasSubstr("out.sgy: ends at byte 100"));
    EXPECT_THAT(failure([&] { file.peek(95, 6); }), HasSubstr("out.sgy: ends at byte 100"));
    EXPECT_EQ(failure([&] { file.at(95, 5); }), "it did not fail");
}

TEST_F(InputFileTest, AFileThatShrankIsNotReadFromMemoryOfOtherPlaces)
{
    writeBytes(path, Bytes(5000000, 7));
    InputFile file(path);
    file.at(0, 10);
    std::filesystem::resize_file(path, 3000000);
    EXPECT_THAT(failure([&] { file.at(4000000, 10); }), HasSubstr("it was longer when"));
    EXPECT_EQ(*file.at(2000000, 10), 7) << "what is there is read all the same";
}
