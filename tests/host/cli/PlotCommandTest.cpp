// vorn plot: where the samples of traces lie in the picture.
#include "SegyBytes.h"
#include "TestTree.h"

#include <gmock/gmock.h>

namespace {

constexpr int interval = 4000; // microseconds

// A trace of a file in the making: zeros, and one sample of 1.
struct Spike
{
    int delay = 0;     // milliseconds
    int samples = 200; // of the trace
    int at = 100;      // index of the sample
};

class PlotCommandTest : public ::testing::Test
{
protected:
    void write(const std::string& name, const std::vector<Spike>& spikes) const
    {
        SegyBytes file;
        file.describe(200, interval, 5);
        for (const Spike& spike : spikes) {
            const std::size_t start = file.addHeader(1, 1, spike.samples, interval);
            file.setTrace(start, 109, 2, spike.delay);
            for (int i = 0; i < spike.samples; ++i)
                file.addSample(bitsOf(i == spike.at ? 1.0f : 0.0f));
        }
        file.write(tree.path(name));
    }
    // The picture of the file from 0.1 s to 0.5 s, whatever its name.
    std::string picture(const std::string& file, const std::string& ending,
                        const std::vector<std::string>& more = {}) const
    {
        std::vector<std::string> words = {"plot",   file,     "-o",      "out" + ending, "--title",
                                          "spikes", "--clip", "100",     "--from",       "0.1",
                                          "--to",   "0.5",    "--label", "tracl"};
        words.insert(words.end(), more.begin(), more.end());
        const ProcessResult result = tree.run(words);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return tree.read("out" + ending);
    }

    TestTree tree;
};

} // namespace

// All of them have their spike at 0.4 s.
TEST_F(PlotCommandTest, TracesWithDelaysBeginWhereTheyWereRecorded)
{
    write("plain.sgy", {{}, {}, {}, {}});
    write("later.sgy", {{0, 200, 100}, {100, 200, 75}, {0, 200, 100}, {100, 200, 75}});
    write("first.sgy", {{100, 200, 75}, {60, 200, 85}, {0, 200, 100}, {0, 200, 100}});
    write("before.sgy", {{-100, 200, 125}, {-100, 200, 125}, {0, 200, 100}, {0, 200, 100}});
    write("elsewhere.sgy", {{0, 200, 99}, {100, 200, 75}, {0, 200, 100}, {100, 200, 75}});
    const std::vector<std::vector<std::string>> ways = {{}, {"-m", "wiggle"}};
    for (const auto& way : ways) {
        const std::string expected = picture("plain.sgy", ".png", way);
        for (const char* name : {"later.sgy", "first.sgy", "before.sgy"})
            EXPECT_TRUE(picture(name, ".png", way) == expected) << name;
        EXPECT_FALSE(picture("elsewhere.sgy", ".png", way) == expected) << "a spike 4 ms earlier";
    }
}

TEST_F(PlotCommandTest, ThePictureGoesFromTheFirstSampleOfAllToTheLast)
{
    write("file.sgy", {{0, 200, 100}, {1000, 200, 75}});

    const ProcessResult late =
        tree.run({"plot", "file.sgy", "-o", "a.png", "--from", "1.7", "--to", "1.796"});
    const ProcessResult beyond =
        tree.run({"plot", "file.sgy", "-o", "b.png", "--from", "3", "--to", "4"});

    EXPECT_EQ(late.exitCode, 0) << late.errors;
    EXPECT_EQ(beyond.exitCode, 2);
    EXPECT_THAT(beyond.errors, testing::HasSubstr("the traces go from 0 s to 1.796 s"));
}
