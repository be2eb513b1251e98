// Whole jobs with few traces in memory: whatever the limit, their outputs are the same, byte for
// byte.
#include "ProcessingTree.h"

#include "SegyBytes.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <ostream>

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace fs = std::filesystem;

namespace {

constexpr const char* source =
    "  - {name: read, module: synthetic, shots: 6, channels: 20, samples: 40, noise: 0.3, "
    "dead: [3], reversed: [7], spiky: [11]}\n";

struct PagingRow
{
    const char* name;
    std::string modules; // that read "read" and write o1, o2, ...

    friend void PrintTo(const PagingRow& row, std::ostream* stream) { *stream << row.name; }
};

std::string output(int number, const std::string& input)
{
    return "  - {name: write" + std::to_string(number) + ", module: segy_out, input: " + input +
           ", file: o" + std::to_string(number) + ".sgy}\n";
}

const std::vector<PagingRow> rows = {
    {"a sort",
     "  - {name: s, module: sort, input: read, keys: [offset, -fldr]}\n" + output(1, "s")},
    {"a stack behind a sort", "  - {name: s, module: sort, input: read, keys: [cdp]}\n"
                              "  - {name: t, module: stack, input: s}\n" +
                                  output(1, "t")},
    {"gathers", "  - {name: q, module: trace_qc, input: read, gather: fldr}\n" + output(1, "q")},
    {"three readers of one output", "  - {name: s, module: sort, input: read, keys: [-tracf]}\n"
                                    "  - {name: g, module: gain, input: read, factor: 2}\n" +
                                        output(1, "s") + output(2, "g") + output(3, "read")},
    {"a tee", "  - {name: tee, module: tee, input: read}\n"
              "  - {name: s, module: sort, input: tee, keys: [-tracl]}\n" +
                  output(1, "s")},
    {"two sorts and a picture", "  - {name: s, module: sort, input: read, keys: [-offset]}\n"
                                "  - {name: u, module: sort, input: s, keys: [cdp, offset]}\n"
                                "  - {name: b, module: bandpass, input: u, low: 10, high: 60}\n"
                                "  - {name: p, module: section, input: u}\n"
                                "  - {name: x, module: spectrum, inputs: [u, s]}\n" +
                                    output(1, "b")},
};

class PagingTest : public ::testing::TestWithParam<PagingRow>
{
protected:
    // Everything that the job writes, by name.
    std::map<std::string, std::string> outputs(const std::vector<std::string>& more)
    {
        for (const std::string& name : tree.namesIn(".")) {
            if (name != "job.yaml")
                fs::remove_all(tree.path(name));
        }
        fs::create_directory(tree.path("scratch"));
        std::vector<std::string> words = {"run",     "job.yaml",   "-v",      "--scratch",
                                          "scratch", "--pictures", "pictures"};
        words.insert(words.end(), more.begin(), more.end());
        last = tree.run(words);
        EXPECT_EQ(last.exitCode, 0) << last.errors;
        EXPECT_THAT(tree.namesIn("scratch"), IsEmpty());
        std::map<std::string, std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(tree.work())) {
            if (entry.is_regular_file() && entry.path().extension() != ".yaml")
                found[entry.path().string()] = readFile(entry.path().string());
        }
        return found;
    }

    ProcessingTree tree;
    ProcessResult last;
};

} // namespace

TEST_P(PagingTest, GivesTheSameWithAnyNumberOfTracesInMemory)
{
    tree.write("job.yaml", "modules:\n" + std::string(source) + GetParam().modules);
    const auto whole = outputs({});
    EXPECT_THAT(last.errors, Not(HasSubstr(" successfully created")));
    ASSERT_TRUE(whole.count(tree.path("o1.sgy")) == 1);
    for (const char* limit : {"1", "2", "3", "5", "9"}) {
        SCOPED_TRACE(limit);
        EXPECT_TRUE(outputs({"--scratch-traces", limit}) == whole);
        EXPECT_THAT(last.errors, HasSubstr(" successfully created")) << "nothing was paged";
    }
    tree.environment = {"VORN_SCRATCH_SIZE=4"};
    EXPECT_TRUE(outputs({}) == whole) << "by the environment";
    EXPECT_THAT(last.errors, HasSubstr(" successfully created")) << "nothing was paged";
    EXPECT_THAT(last.errors, Not(HasSubstr("VORN_SCRATCH_SIZE")));
}

// The kernel ignores it without a word.
TEST(PagingEnvironmentTest, ASizeThatIsIgnoredIsNamedOnceWithWhatIsUsed)
{
    ProcessingTree tree;
    tree.write("job.yaml", "modules:\n" + std::string(source) + output(1, "read"));
    for (const char* value : {"0", "-1", "100000000", "many"}) {
        tree.environment = {"VORN_SCRATCH_SIZE=" + std::string(value)};
        const ProcessResult result = tree.run({"run", "job.yaml"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_THAT(linesWith(result.errors, "VORN_SCRATCH_SIZE"),
                    testing::ElementsAre("vorn: VORN_SCRATCH_SIZE: warning: \"" +
                                         std::string(value) +
                                         "\" is ignored, 10000 traces stay in memory; expected a "
                                         "number from 1 to 99999999"));
    }
}

INSTANTIATE_TEST_SUITE_P(Vorn, PagingTest, ::testing::ValuesIn(rows),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });
