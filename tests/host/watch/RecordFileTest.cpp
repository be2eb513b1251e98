#include "watch/RecordFile.h"

#include "KernelFixture.h"
#include "base/CommandError.h"
#include "watch/RecordBytes.h"

#include <cstdint>
#include <fstream>
#include <gmock/gmock.h>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace host {

namespace {

class RecordFileTest : public ::testing::Test
{
protected:
    RecordFileTest()
    {
        RecordWriter writer(path);
        for (const auto& [kind, bytes] : written)
            EXPECT_TRUE(writer.write(kind, bytes));
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        whole = content.str();
    }

    void replaceBy(const std::string& bytes) const
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    // How many frames can be read, each checked; and why there are no more.
    std::pair<std::size_t, std::string> readAll() const
    {
        RecordReader reader(path);
        Frame frame;
        std::size_t count = 0;
        for (; reader.next(frame); ++count) {
            EXPECT_LT(count, written.size());
            EXPECT_EQ(frame.kind, written[count].first);
            EXPECT_EQ(frame.bytes, written[count].second);
        }
        return {count, reader.problem()};
    }

    const std::vector<std::pair<FrameKind, std::string>> written = {
        {FrameKind::module, "the module"},
        {FrameKind::begin, std::string(3000, 'x') + std::string(300, '\0')},
        {FrameKind::end, ""},
        {FrameKind::finish, ""}};
    TemporaryDirectory directory;
    std::string path = directory / "some.record";
    std::string whole;
};

} // namespace

TEST_F(RecordFileTest, FramesComeBack)
{
    EXPECT_THAT(whole, StartsWith("VORN module record, format 1\n"));
    EXPECT_LT(whole.size(), 500U) << "not compressed";
    EXPECT_EQ(readAll(), std::make_pair(std::size_t{4}, std::string()));
    EXPECT_TRUE(isRecord(path));
}

TEST_F(RecordFileTest, EveryPrefixIsReadAsFarAsItGoes)
{
    const std::size_t title = whole.find('\n') + 1;
    std::size_t most = 0;
    for (std::size_t size = title; size < whole.size(); ++size) {
        replaceBy(whole.substr(0, size));
        const auto [count, problem] = readAll();
        EXPECT_GE(count, most) << size;
        EXPECT_LT(count, 4U) << size;
        EXPECT_THAT(problem, AnyOf("", HasSubstr("is cut off: it ends after " +
                                                 std::to_string(size) + " bytes")))
            << size;
        most = count;
    }
    EXPECT_EQ(most, 3U);
    for (std::size_t size = 0; size < title; ++size) {
        replaceBy(whole.substr(0, size));
        EXPECT_THROW(RecordReader{path}, CommandError) << size;
    }
}

// readAll() would notice a frame that is not as it was written.
TEST_F(RecordFileTest, EveryDamagedByteIsNoticed)
{
    for (std::size_t at = whole.find('\n') + 1; at < whole.size(); ++at) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
        replaceBy(damaged);
        const auto [count, problem] = readAll();
        EXPECT_LT(count, 4U) << at;
        EXPECT_THAT(problem, AnyOf(StartsWith("is damaged at byte "), StartsWith("is cut off")))
            << at;
    }
}

TEST_F(RecordFileTest, OtherVersionsAndOtherFilesAreRefused)
{
    std::string other = whole;
    other.replace(other.find('1'), 1, "2");
    replaceBy(other);
    try {
        const RecordReader reader(path);
        FAIL() << "read";
    } catch (const CommandError& error) {
        EXPECT_THAT(error.what(),
                    HasSubstr("has format 2, and this version of vorn reads format 1"));
    }
    EXPECT_TRUE(isRecord(path)); // which a new one may replace

    replaceBy("no record at all\n");
    EXPECT_FALSE(isRecord(path));
    EXPECT_THROW(RecordReader{path}, CommandError);
    EXPECT_THROW(RecordWriter{path}, CommandError);
    EXPECT_THROW(RecordReader{directory / "gone"}, CommandError);
    EXPECT_THROW(RecordWriter{directory / "no/such"}, CommandError);
}

TEST(RecordBytesTest, NumbersComeBack)
{
    const std::vector<int64_t> integers = {0,
                                           -1,
                                           1,
                                           63,
                                           -64,
                                           64,
                                           127,
                                           128,
                                           1000,
                                           -1000,
                                           std::numeric_limits<int64_t>::max(),
                                           std::numeric_limits<int64_t>::min()};
    ByteWriter writer;
    for (const int64_t value : integers) {
        writer.integer(value);
        writer.count(static_cast<uint64_t>(value));
    }
    writer.real(-0.1);
    writer.text(std::string_view("a\0b", 3));
    const std::vector<float> samples = {1.5F, -2.25F};
    writer.numbers(samples.data(), samples.size(), sizeof(float));

    ByteReader reader(writer.bytes);
    for (const int64_t value : integers) {
        EXPECT_EQ(reader.integer(), value);
        EXPECT_EQ(reader.count(), static_cast<uint64_t>(value));
    }
    EXPECT_EQ(reader.real(), -0.1);
    EXPECT_EQ(reader.text(), std::string_view("a\0b", 3));
    EXPECT_EQ(reader.numbers(2, sizeof(float)),
              std::string(reinterpret_cast<const char*>(samples.data()), 8));
    EXPECT_TRUE(reader.atEnd());
    EXPECT_THROW(reader.byte(), RecordError);
}

TEST(RecordBytesTest, SizesBeyondTheEndAreRefused)
{
    ByteWriter writer;
    writer.count(uint64_t{1} << 62);
    EXPECT_THROW(ByteReader(writer.bytes).text(), RecordError);
    EXPECT_THROW(ByteReader(writer.bytes).countOf(4), RecordError);
    EXPECT_THROW(ByteReader(writer.bytes).number(), RecordError);
    EXPECT_THROW(ByteReader(writer.bytes).numbers(uint64_t{1} << 62, 4), RecordError);
    EXPECT_THROW(ByteReader(std::string(11, '\xFF')).count(), RecordError);
}

} // namespace host
