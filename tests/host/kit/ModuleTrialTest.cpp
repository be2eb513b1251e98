// "vorn test MODULE" as a person uses it.
#include "ProcessingTree.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ModuleTrialTest : public testing::Test
{
protected:
    ProcessResult test(std::vector<std::string> words) const
    {
        words.insert(words.begin(), "test");
        return tree.run(words);
    }

    // As a module of one trace of so many samples would give them.
    void writeTrace(const std::string& name, const std::vector<float>& samples, int offset) const
    {
        std::string bytes(240, '\0');
        const auto put = [&](std::size_t at, auto value) {
            std::memcpy(bytes.data() + at, &value, sizeof value);
        };
        put(36, offset);
        put(114, static_cast<short>(samples.size()));
        put(116, static_cast<short>(4000));
        bytes.append(reinterpret_cast<const char*>(samples.data()), 4 * samples.size());
        tree.write(name, bytes);
    }

    ProcessingTree tree;
};

} // namespace

TEST_F(ModuleTrialTest, WhatIsBlessedIsExpectedFromThenOn)
{
    const ProcessResult blessed =
        test({"gain", "--set", "factor=2", "--expect", "a.su", "--bless"});
    EXPECT_EQ(blessed.exitCode, 0) << blessed.errors;
    EXPECT_THAT(blessed.output, HasSubstr("traces       36 in, 36 out\n"));
    EXPECT_THAT(blessed.output, HasSubstr("expected     written to a.su\n"));
    EXPECT_EQ(tree.read("a.su").size(), 36u * (240 + 4 * 250));

    const ProcessResult same = test({"gain", "--set", "factor=2", "--expect", "a.su"});
    EXPECT_EQ(same.exitCode, 0) << same.output;
    EXPECT_THAT(same.output, HasSubstr("36 traces compared, largest difference 0 of"));
    EXPECT_THAT(same.output, HasSubstr("gain passes\n"));
    EXPECT_EQ(same.errors, "");

    const ProcessResult other = test({"gain", "--set", "factor=2.5", "--expect", "a.su"});
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_THAT(other.output, HasSubstr("gain: trace 1: sample "));
    EXPECT_THAT(other.output, HasSubstr("gain: 33 more traces differ from those expected\n"));
    EXPECT_THAT(other.output, HasSubstr("gain does not pass\n"));
}

TEST_F(ModuleTrialTest, SamplesMayDifferByTheToleranceAndHeadersNotAtAll)
{
    writeTrace("in.su", {1, -4, 2}, 100);
    writeTrace("near.su", {1.0001F, -4, 2}, 100);
    writeTrace("words.su", {1, -4, 2}, 101);
    writeTrace("long.su", {1, -4, 2, 0}, 100);
    const auto compare = [&](const char* expected, const char* tolerance) {
        return test({"gain", "--in", "in.su", "--set", "factor=1", "--expect", expected,
                     "--tolerance", tolerance});
    };
    EXPECT_EQ(compare("near.su", "3e-5").exitCode, 0); // of the largest sample, 4
    const ProcessResult near = compare("near.su", "2e-5");
    EXPECT_EQ(near.exitCode, 1);
    EXPECT_THAT(near.output, HasSubstr("trace 1: sample 1 is 1, expected 1.00010002\n"));
    EXPECT_THAT(compare("words.su", "1").output,
                HasSubstr("trace 1: offset is 100, expected 101\n"));
    EXPECT_THAT(compare("long.su", "1").output, HasSubstr("3 samples in a trace, expected 4\n"));
}

TEST_F(ModuleTrialTest, WhatAModuleLeavesOrSpoilsIsFound)
{
    const ProcessResult leak = test({"host_filter", "--set", "fault=leak"});
    EXPECT_EQ(leak.exitCode, 1);
    EXPECT_THAT(leak.output, HasSubstr(" bytes of memory are not freed at the end"));

    const ProcessResult inf = test({"host_filter", "--set", "factor=1e300"});
    EXPECT_EQ(inf.exitCode, 1);
    EXPECT_THAT(inf.output, HasSubstr(", and the input holds numbers only\n"));

    const ProcessResult crash = test({"host_filter", "--set", "fault=crash"});
    EXPECT_EQ(crash.exitCode, 1);
    EXPECT_THAT(crash.output, HasSubstr("host_filter: the job ended with exit code "));
    EXPECT_THAT(crash.errors, HasSubstr("tested")); // says which module it was

    const ProcessResult endless =
        test({"host_filter", "--set", "fault=endless", "--time-limit", "0.5 s"});
    EXPECT_EQ(endless.exitCode, 1);
    EXPECT_THAT(endless.output, HasSubstr("host_filter does not pass\n"));

    EXPECT_EQ(test({"host_filter"}).exitCode, 0);
}

TEST_F(ModuleTrialTest, ExpectedMessagesAndFailures)
{
    EXPECT_EQ(test({"host_filter", "--set", "fault=warning", "--message", "trace 2 is"}).exitCode,
              0);
    const ProcessResult none = test({"host_filter", "--message", "trace 2 is"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_THAT(none.output, HasSubstr("no message contains \"trace 2 is\"\n"));
    EXPECT_EQ(test({"host_filter", "--set", "fault=fatal", "--fails"}).exitCode, 0);
    EXPECT_EQ(test({"host_filter", "--set", "fault=fatal"}).exitCode, 1);
    const ProcessResult good = test({"host_filter", "--fails"});
    EXPECT_EQ(good.exitCode, 1);
    EXPECT_THAT(good.output, HasSubstr("was expected to fail, but the job ended with exit code 0"));
}

TEST_F(ModuleTrialTest, InputsAreGivenToEachPort)
{
    writeTrace("one.su", {1, 2, 3}, 0);
    writeTrace("two.su", {3, 2, 1}, 0);
    writeTrace("sum.su", {4, 4, 4}, 0);
    const ProcessResult sum = test({"combine", "--set", "operation=sum", "--in", "one.su", "--in",
                                    "two.su", "--expect", "sum.su"});
    EXPECT_EQ(sum.exitCode, 0) << sum.output;
    const ProcessResult one = test({"combine", "--set", "operation=sum"});
    EXPECT_THAT(one.output, HasSubstr("input        synthetic\ninput        synthetic\n"));
}

TEST_F(ModuleTrialTest, CtrlCLeavesNothing)
{
    tree.environment.push_back("TMPDIR=" + tree.work());
    const pid_t process =
        tree.start({"test", "host_filter", "--set", "fault=endless", "--time-limit", "60 s"});
    const auto isRunning = [&] {
        const std::vector<std::string> names = tree.namesIn(".");
        return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
            return name.starts_with("vorn-test-") && tree.exists(name + "/log.txt");
        });
    };
    for (int i = 0; i < 1000 && !isRunning(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(isRunning());
    kill(process, SIGINT);
    EXPECT_EQ(tree.finish(process).exitCode, 130);
    EXPECT_FALSE(isRunning());
    for (const std::string& name : tree.namesIn("."))
        EXPECT_FALSE(name.starts_with("vorn-test-")) << name;
}

TEST_F(ModuleTrialTest, WrongCallsAreRefused)
{
    const auto refusal = [&](const std::vector<std::string>& words) {
        const ProcessResult result = test(words);
        EXPECT_EQ(result.exitCode, 2) << result.output;
        EXPECT_EQ(result.output, "");
        return result.errors;
    };
    EXPECT_THAT(refusal({"nothing"}), HasSubstr("the module \"nothing\" is not in"));
    EXPECT_THAT(refusal({"gain", "--in", "a.txt"}), HasSubstr("must end with .su, .sgy or .segy"));
    EXPECT_THAT(refusal({"gain", "--in", "a.su"}), HasSubstr("the file \"a.su\" does not exist"));
    EXPECT_THAT(refusal({"synthetic", "--in", "synthetic"}),
                HasSubstr("names 1 inputs; the module \"synthetic\" has none"));
    EXPECT_THAT(refusal({"gain", "--bless"}), HasSubstr("--expect names the file to write"));
    EXPECT_THAT(refusal({"gain", "--expect", "no.su"}), HasSubstr("does not exist; --bless"));
    EXPECT_THAT(refusal({"segy_out", "--expect", "no.su"}), HasSubstr("has no output"));
    EXPECT_THAT(refusal({"gain", "--allow-modules-from", "no"}), HasSubstr("is not a directory"));
    EXPECT_THAT(tree.names(), IsEmpty());
}
