// Modules that need whole gathers tell where a selection by numbers of traces cuts one.
#include "ProcessingTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Shots of 12 channels.
class CutGathersTest : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* file : {"line.sgy", "line.su"}) {
            const std::string writer = file == std::string("line.su") ? "su_out" : "segy_out";
            tree.write("make.yaml", "job: make\nmodules:\n"
                                    "  - {name: s, module: synthetic, shots: 5, channels: 12, "
                                    "samples: 100}\n"
                                    "  - {name: w, module: " +
                                        writer + ", input: s, file: " + file + "}\n");
            ASSERT_EQ(tree.run({"run", "make.yaml", "-q"}).exitCode, 0);
        }
    }

    // What is told of gathers, without time, severity and place.
    std::vector<std::string> told(const std::string& read, const std::string& between,
                                  const std::vector<std::string>& more = {}) const
    {
        tree.write("job.yaml",
                   "job: cut\nmodules:\n"
                   "  - {name: read, " +
                       read + "}\n" + between +
                       "  - {name: write, module: segy_out, input: sum, file: o.sgy}\n");
        std::vector<std::string> words = {"run", "job.yaml"};
        words.insert(words.end(), more.begin(), more.end());
        const ProcessResult run = tree.run(words);
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        std::vector<std::string> texts;
        for (const std::string& line : linesWith(run.errors, "gather is cut")) {
            EXPECT_NE(line.find(" warning "), std::string::npos) << line;
            const std::size_t begin = line.find("its ");
            texts.push_back(line.substr(begin, line.find(" (job.yaml") - begin));
        }
        return texts;
    }

    static std::string text(const char* end, int trace, const char* where, const char* values)
    {
        return std::string("its ") + end + " gather is cut: trace " + std::to_string(trace) +
               " of the file, right " + where + " one that read takes, has " + values +
               ", too; select whole gathers, unless this is meant";
    }

    ProcessingTree tree;
};

const char* const sum = "  - {name: sum, module: stack, input: read, key: fldr}\n";

} // namespace

TEST_F(CutGathersTest, EitherEndOfASelectionIsLookedAt)
{
    const std::string first = text("first", 4, "before the first", "fldr=1");
    const std::string last = text("last", 31, "behind the last", "fldr=3");
    for (const char* file : {"module: segy_in, file: line.sgy", "module: su_in, file: line.su"}) {
        const auto tellsOf = [&](const std::string& selection) {
            return told(std::string(file) + selection, sum);
        };
        EXPECT_THAT(tellsOf(", traces: '1:30'"), ElementsAre(last)) << file;
        EXPECT_THAT(tellsOf(", traces: '5:36'"), ElementsAre(first)) << file;
        EXPECT_THAT(tellsOf(", traces: '5:30'"), ElementsAre(first, last)) << file;
        EXPECT_THAT(tellsOf(", traces: '13:36'"), IsEmpty()) << file;
        EXPECT_THAT(tellsOf(""), IsEmpty()) << file;
        EXPECT_THAT(tellsOf(", traces: '1:30', select: 'offset=0:100000'"), IsEmpty()) << file;
    }
    EXPECT_THAT(told("module: segy_in, file: [line.sgy, line.sgy], traces: '25:30'", sum),
                ElementsAre(last));
}

TEST_F(CutGathersTest, OnlyGathersOfTheFileAreMeant)
{
    const std::string read = "module: segy_in, file: line.sgy, traces: '1:30'";
    const std::string last = text("last", 31, "behind the last", "fldr=3");
    const auto behind = [&](const char* module) {
        return told(read, "  - {name: before, input: read, " + std::string(module) +
                              "}\n  - {name: sum, module: stack, input: before, key: fldr}\n");
    };
    EXPECT_THAT(behind("module: gain, factor: 2"), ElementsAre(last));
    EXPECT_THAT(behind("module: header_math, set: [sx = 1]"), ElementsAre(last));
    EXPECT_THAT(behind("module: header_math, set: [fldr = fldr * 2]"), IsEmpty());
    EXPECT_THAT(behind("module: sort, keys: [fldr]"), IsEmpty());
    EXPECT_THAT(told(read, "  - {name: sum, module: stack, input: read, key: tracl}\n"), IsEmpty());
}

TEST_F(CutGathersTest, PartsTellItOnce)
{
    const std::string read = "module: segy_in, file: line.sgy, traces: '5:30'";
    const std::vector<std::string> one = told(read, sum);
    EXPECT_EQ(one.size(), 2U);
    EXPECT_EQ(told(read, sum, {"--jobs", "3"}), one);
}
