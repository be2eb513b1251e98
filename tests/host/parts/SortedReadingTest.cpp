// Where sort alone reads a file, the file is read in sorted order: by one process, and by parts.
// The results are those of a sort that holds all traces. That is the one of a run with a report,
// which shows the file in its own order.
#include "ProcessingTree.h"

#include <algorithm>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <string>
#include <vector>

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int jobsTried = memoryIsOurs ? 24 : 9; // five processes each, slow ones with a sanitizer

// Messages but for their times, without those of the kernel's phases.
std::vector<std::string> messagesOf(const std::string& errors)
{
    std::vector<std::string> lines;
    for (const char* severity : {" information ", " warning ", " error ", " fatal "}) {
        for (std::string line : linesWith(errors, severity)) {
            line.erase(0, line.find(' '));
            lines.push_back(line);
        }
    }
    return lines;
}

class SortedReadingTest : public testing::Test
{
protected:
    void SetUp() override
    {
        make("line.sgy", "segy_out", 7, 12);
        make("more.sgy", "segy_out", 3, 5);
        make("line.su", "su_out", 4, 9);
    }

    void make(const std::string& file, const std::string& writer, int shots, int channels) const
    {
        tree.write("make.yaml", "job: make\nmodules:\n"
                                "  - {name: s, module: synthetic, shots: " +
                                    std::to_string(shots) +
                                    ", channels: " + std::to_string(channels) +
                                    ", samples: 150, bad: 3}\n"
                                    "  - {name: w, module: " +
                                    writer + ", input: s, file: " + file + "}\n");
        ASSERT_EQ(tree.run({"run", "make.yaml", "-q"}).exitCode, 0);
    }

    void job(const std::string& read, const std::string& keys, const std::string& behind) const
    {
        tree.write("job.yaml", "job: sorted\nmodules:\n"
                               "  - {name: read, " +
                                   read +
                                   "}\n"
                                   "  - {name: sorted, module: sort, input: read, keys: " +
                                   keys + "}\n" + behind);
    }

    // What a run gives; its outputs are removed.
    struct Results
    {
        std::vector<std::string> messages;
        std::map<std::string, std::string> files;
        bool operator==(const Results&) const = default;
    };
    Results take(const ProcessResult& run) const
    {
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        Results results;
        results.messages = messagesOf(run.errors);
        for (const char* name : {"out.sgy", "out.su"}) {
            results.files[name] = tree.exists(name) ? tree.read(name) : "(missing)";
            std::remove(tree.path(name).c_str());
        }
        return results;
    }
    Results held() const { return take(tree.run({"run", "job.yaml", "--json", "facts.json"})); }

    static void expectSame(const Results& results, const Results& expected)
    {
        EXPECT_EQ(results.messages, expected.messages);
        for (const auto& [name, content] : expected.files)
            EXPECT_TRUE(results.files.at(name) == content) << name;
    }

    ProcessingTree tree;
};

const char* const writer = "  - {name: write, module: segy_out, input: sorted, file: out.sgy}\n";

} // namespace

TEST_F(SortedReadingTest, AnyJobHasTheResultsOfASortThatHoldsAllTraces)
{
    const std::vector<std::string> reads = {
        "module: segy_in, file: line.sgy",
        "module: segy_in, file: [line.sgy, more.sgy, line.sgy]",
        "module: segy_in, file: line.sgy, traces: '5:80:3'",
        "module: segy_in, file: [more.sgy, line.sgy], fldr: '2:5'",
        "module: segy_in, file: line.sgy, part: '10:30,41:'",
        "module: segy_in, file: line.sgy, words: {tracf: 37}",
        "module: su_in, file: line.su",
        "module: su_in, file: line.su, select: 'offset=100:900'",
    };
    const std::vector<std::string> keys = {"[cdp]",           "[-cdp, offset]", "[tracf, -fldr]",
                                           "[offset, tracl]", "[dt]",           "[-tracl]",
                                           "[cdp, cdp]",      "[filetrace]",    "[fldr]"};
    const std::vector<std::string> behind = {
        writer,
        "  - {name: sum, module: stack, input: sorted, key: cdp}\n"
        "  - {name: write, module: segy_out, input: sum, file: out.sgy}\n",
        "  - {name: balanced, module: agc, input: sorted, window: 100 ms}\n"
        "  - {name: write, module: segy_out, input: balanced, file: out.sgy}\n"
        "  - {name: checked, module: trace_qc, input: balanced, gather: cdp}\n"
        "  - {name: other, module: su_out, input: checked, file: out.su}\n",
    };
    std::mt19937 random(11);
    const auto one = [&](const std::vector<std::string>& of) { return of[random() % of.size()]; };
    for (int i = 0; i < jobsTried; ++i) {
        const std::string read =
            i < static_cast<int>(reads.size()) ? reads[static_cast<std::size_t>(i)] : one(reads);
        const std::string by = one(keys);
        SCOPED_TRACE(read + " " + by);
        job(read, by, one(behind));
        if (tree.run({"check", "job.yaml"}).exitCode != 0)
            continue; // such as a key that is named twice
        const ProcessResult plain = tree.run({"run", "job.yaml", "--json", "facts.json"});
        if (plain.exitCode != 0) {
            const ProcessResult same = tree.run({"run", "job.yaml"});
            EXPECT_EQ(messagesOf(same.errors), messagesOf(plain.errors));
            EXPECT_EQ(same.exitCode, plain.exitCode);
            continue;
        }
        const Results expected = take(plain);
        expectSame(take(tree.run({"run", "job.yaml"})), expected);
        expectSame(take(tree.run({"run", "job.yaml", "--scratch-traces", "3"})), expected);
        for (const char* jobs : {"2", "5"}) {
            const ProcessResult parts = tree.run({"run", "job.yaml", "--jobs", jobs});
            expectSame(take(parts), expected);
        }
    }
}

// By its number in the file, not by its place in the order.
TEST_F(SortedReadingTest, TheFirstOfSeveralStrangeTracesIsThatOfTheFile)
{
    std::string bytes = tree.read("line.sgy");
    for (const std::size_t trace : {20, 40, 60}) // another sample interval, of 1 ms
        bytes.replace(3600 + trace * (240 + 150 * 4) + 116, 2, "\x03\xe8");
    tree.write("line.sgy", bytes);
    job("module: segy_in, file: line.sgy", "[-tracl]",
        "  - {name: sum, module: stack, input: sorted, key: cdp}\n" + std::string(writer));
    const Results expected = held();
    EXPECT_THAT(expected.messages,
                testing::Contains(HasSubstr("the first of them trace 21 with 1000")));
    expectSame(take(tree.run({"run", "job.yaml"})), expected);
    expectSame(take(tree.run({"run", "job.yaml", "--jobs", "3"})), expected);
}

TEST_F(SortedReadingTest, APlanHasTheOrderOfTheTraces)
{
    job("module: segy_in, file: [line.sgy, more.sgy]", "[cdp, -offset]",
        "  - {name: sum, module: stack, input: sorted, key: cdp}\n"
        "  - {name: write, module: segy_out, input: sum, file: out.sgy}\n"
        "  - {name: all, module: su_out, input: sorted, file: out.su}\n");
    const Results expected = held();
    const ProcessResult dry = tree.run({"plan", "job.yaml", "--dry-run", "--parts", "4"});
    EXPECT_THAT(dry.output, HasSubstr("read    parts  read gives ranges of its sorted traces\n"));
    EXPECT_THAT(dry.output, HasSubstr("sorted  parts  sorted takes the traces of read sorted by "
                                      "cdp and -offset\n"));
    EXPECT_THAT(dry.output, HasSubstr("sum     parts  sum works on gathers of cdp\n"));
    EXPECT_THAT(tree.namesIn("."), Not(testing::Contains("order")));

    ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "4", "-o", "plan"}).exitCode, 0);
    EXPECT_THAT(tree.namesIn("plan"), testing::Contains("order"));
    for (const char* part : {"3", "1", "4", "2", "3"}) {
        const ProcessResult run = tree.run({"part", "plan", part});
        EXPECT_EQ(run.exitCode, 0) << run.errors;
    }
    const ProcessResult merged = tree.run({"merge", "plan", "--json", "facts.json"});
    expectSame(take(merged), expected);
    EXPECT_THAT(tree.read("facts.json"), HasSubstr("\"bytes_read\": null"));
}

TEST_F(SortedReadingTest, AnOrderThatIsDamagedOrGoneIsNotUsed)
{
    job("module: segy_in, file: line.sgy", "[cdp]", writer);
    const Results expected = held();
    ASSERT_EQ(tree.run({"plan", "job.yaml", "--parts", "2", "-o", "plan"}).exitCode, 0);
    const std::string order = tree.read("plan/order");
    tree.write("plan/order", order.substr(0, order.size() - 3));
    const ProcessResult cut = tree.run({"part", "plan", "1"});
    EXPECT_EQ(cut.exitCode, 1);
    EXPECT_THAT(cut.errors, HasSubstr("plan/order: is damaged or cut"));

    // Numbers of traces that exist, in another order.
    std::string turned = order;
    std::swap_ranges(turned.begin() + 32, turned.begin() + 40, turned.begin() + 32 + 8 * 20);
    tree.write("plan/order", turned);
    const ProcessResult wrong = tree.run({"part", "plan", "1"});
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_THAT(wrong.errors, HasSubstr("does not belong behind the one before it"));

    // The parts make it again.
    std::remove(tree.path("plan/order").c_str());
    EXPECT_EQ(tree.run({"part", "plan", "missing"}).exitCode, 0);
    expectSame(take(tree.run({"merge", "plan"})), expected);
}

// Others see the file in its own order, or could keep the file from being read to its end.
TEST_F(SortedReadingTest, AnOutputThatOthersReadKeepsItsOrder)
{
    job("module: segy_in, file: line.sgy", "[-tracl]",
        std::string(writer) + "  - {name: plain, module: su_out, input: read, file: out.su}\n");
    const Results expected = held();
    expectSame(take(tree.run({"run", "job.yaml"})), expected);
    const ProcessResult dry = tree.run({"plan", "job.yaml", "--dry-run"});
    EXPECT_THAT(dry.output, HasSubstr("sorted  merge  sorted needs all traces\n"));
}

TEST_F(SortedReadingTest, NothingIsHeld)
{
    if (!memoryIsOurs)
        GTEST_SKIP() << "a sanitizer takes the memory";
    tree.write("make.yaml", "job: make\nmodules:\n"
                            "  - {name: s, module: synthetic, shots: 40, channels: 100, samples: "
                            "2500}\n"
                            "  - {name: w, module: segy_out, input: s, file: large.sgy}\n");
    ASSERT_EQ(tree.run({"run", "make.yaml", "-q"}).exitCode, 0);
    job("module: segy_in, file: large.sgy", "[cdp, offset]", writer);
    const auto peakOf = [&](const std::vector<std::string>& more) {
        std::vector<std::string> words = {"run", "job.yaml", "-q", "--scratch-traces", "100000"};
        words.insert(words.end(), more.begin(), more.end());
        const ProcessResult run = tree.run(words);
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        return run.peakBytes;
    };
    constexpr long file = 40L * 100 * 2500 * 4;
    const long one = peakOf({});
    EXPECT_GT(peakOf({"--json", "facts.json"}), one + file / 2);
}
