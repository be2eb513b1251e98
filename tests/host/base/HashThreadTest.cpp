#include "base/HashThread.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

using host::HashedStream;
using host::HashThread;
using host::sha256Of;

namespace {

// With a thread, and without.
class HashThreadTest : public ::testing::TestWithParam<bool>
{
protected:
    std::string randomText(std::size_t length)
    {
        std::string text(length, '\0');
        for (char& byte : text)
            byte = static_cast<char>(random());
        return text;
    }

    // From single bytes to more than the thread may fall behind by.
    std::size_t randomLength() { return random() % 7 == 0 ? random() % 3000000 : random() % 9000; }

    std::mt19937 random{20};
    HashThread thread{GetParam()};
};

} // namespace

TEST_P(HashThreadTest, GivesTheChecksumOfAllBytesHoweverTheyCome)
{
    std::string whole;
    HashedStream stream(thread);
    EXPECT_EQ(stream.hex(), sha256Of(""));
    for (int i = 0; i < 60; ++i) {
        const std::string piece = randomText(randomLength());
        stream.add(piece.data(), piece.size());
        whole += piece;
        if (i % 20 == 7) {
            EXPECT_EQ(stream.hex(), sha256Of(whole)) << "after piece " << i;
        }
    }
    EXPECT_EQ(stream.hex(), sha256Of(whole));
    EXPECT_EQ(stream.hex(), sha256Of(whole)) << "asked again";
}

// More streams with a part of a block each than blocks may wait.
TEST_P(HashThreadTest, ManyStreamsInTurnsAreKeptApart)
{
    constexpr std::size_t count = 40;
    std::vector<std::string> texts(count);
    std::vector<std::unique_ptr<HashedStream>> streams(count);
    std::generate(streams.begin(), streams.end(),
                  [this] { return std::make_unique<HashedStream>(thread); });
    for (int turn = 0; turn < 8; ++turn) {
        for (std::size_t i = 0; i < count; ++i) {
            const std::string piece = randomText(random() % 60000);
            streams[i]->add(piece.data(), piece.size());
            texts[i] += piece;
        }
    }
    for (std::size_t i = count; i-- > 0;)
        EXPECT_EQ(streams[i]->hex(), sha256Of(texts[i])) << "stream " << i;
}

TEST_P(HashThreadTest, AStreamMayEndBeforeItsBytesAreHashed)
{
    const std::string text = randomText(5000000);
    for (int i = 0; i < 5; ++i) {
        HashedStream stream(thread);
        stream.add(text.data(), text.size());
    }
    HashedStream last(thread);
    last.add(text.data(), text.size());
    EXPECT_EQ(last.hex(), sha256Of(text));
    HashedStream unasked(thread);
    unasked.add(text.data(), text.size()); // and the thread ends, too
}

INSTANTIATE_TEST_SUITE_P(Threads, HashThreadTest, ::testing::Bool());
