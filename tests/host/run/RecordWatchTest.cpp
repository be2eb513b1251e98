// What a run says of times off the record, of windows longer than it, and of outputs of zeros.
#include "ProcessingTree.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

// 2 shots of 4 traces with 251 samples of 2 ms: the record ends at 0.5 s.
const char* const head =
    "modules:\n"
    "  - {name: read, module: synthetic, shots: 2, channels: 4, samples: 251,\n"
    "     interval: 2 ms, times: [100 ms, 200 ms], velocities: [1800, 2000],\n"
    "     amplitudes: [1, 1]}\n";

class RecordWatchTest : public ::testing::Test
{
protected:
    // The warnings of a run of these modules, without their times of day.
    std::vector<std::string> warnings(const std::string& modules)
    {
        tree.write("job.yaml", head + modules);
        const ProcessResult run = tree.run({"run", "job.yaml"});
        EXPECT_EQ(run.exitCode, 0) << run.errors;
        std::vector<std::string> texts;
        for (const std::string& line : linesWith(run.errors, " warning "))
            texts.push_back(line.substr(line.find_first_not_of(' ', line.find("warning") + 7)));
        return texts;
    }

    const ProcessingTree tree;
};

} // namespace

TEST_F(RecordWatchTest, TimesWithoutTheirUnitAreToldWithTheLineAndTheZerosThatTheyMake)
{
    EXPECT_THAT(
        warnings("  - name: mute\n"
                 "    module: mute\n"
                 "    input: read\n"
                 "    offsets: [100, 2000]\n"
                 "    times: [100, 900]\n"
                 "  - {name: write, module: su_out, input: mute, file: out.su}\n"),
        ElementsAre("mute   times is 100, 900 s, and the traces end at 0.5 s (251 samples of 2 ms "
                    "from 0 s on); a number without a unit is in s: give the unit, as in 100 ms "
                    "(job.yaml:9)",
                    "mute   all samples of its output are zero (8 traces), and those of its input "
                    "are not; its settings are offsets 100, 2000 m, times 100, 900 s "
                    "(job.yaml:5)"));
}

TEST_F(RecordWatchTest, TimesOnTheRecordAreNotWarnedOf)
{
    EXPECT_THAT(warnings("  - {name: mute, module: mute, input: read, offsets: [100, 2000],\n"
                         "     times: [100 ms, 900 ms]}\n"
                         "  - {name: agc, module: agc, input: mute, window: 500 ms}\n"
                         "  - {name: write, module: su_out, input: agc, file: out.su}\n"),
                IsEmpty());
}

TEST_F(RecordWatchTest, ASpanLongerThanTheTracesIsToldAlsoWithItsUnit)
{
    EXPECT_THAT(
        warnings("  - name: mute\n"
                 "    module: mute\n"
                 "    input: read\n"
                 "    offsets: [100, 2000]\n"
                 "    times: [100 ms, 200 ms]\n"
                 "    taper: 5 s\n"
                 "  - {name: write, module: su_out, input: mute, file: out.su}\n"),
        ElementsAre("mute   taper is 5 s, longer than the traces, which have 0.502 s (251 samples "
                    "of 2 ms) (job.yaml:10)"));
}

TEST_F(RecordWatchTest, TheDelayOfTheTracesCounts)
{
    EXPECT_THAT(
        warnings("  - {name: late, module: header_math, input: read, set: [delrt = 1000]}\n"
                 "  - {name: mute, module: mute, input: late, offsets: [100], times: [1.2]}\n"
                 "  - {name: write, module: su_out, input: mute, file: out.su}\n"),
        IsEmpty());
    EXPECT_THAT(
        warnings("  - {name: late, module: header_math, input: read, set: [delrt = 1000]}\n"
                 "  - {name: mute, module: mute, input: late, offsets: [100], times: [1.6 s],\n"
                 "     mode: bottom}\n"
                 "  - {name: write, module: su_out, input: mute, file: out.su}\n"),
        ElementsAre("mute   times is 1.6 s, and the traces end at 1.5 s (251 samples of 2 ms from "
                    "1 s on) (job.yaml:6)"));
}

TEST_F(RecordWatchTest, OnlyTheStageThatMakesTheZerosIsNamed)
{
    const std::vector<std::string> texts =
        warnings("  - {name: zero, module: gain, input: read, factor: 0}\n"
                 "  - {name: sorted, module: sort, input: zero, keys: [offset]}\n"
                 "  - {name: agc, module: agc, input: sorted, window: 50 ms}\n"
                 "  - {name: write, module: su_out, input: agc, file: out.su}\n"
                 "  - {name: other, module: su_out, input: zero, file: other.su}\n");
    ASSERT_THAT(texts, SizeIs(1));
    EXPECT_THAT(texts[0], HasSubstr("zero   all samples of its output are zero (8 traces)"));
}

TEST_F(RecordWatchTest, ALongJobIsToldBeforeItsEnd)
{
    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: synthetic, shots: 300, channels: 10,\n"
                           "     samples: 20}\n"
                           "  - {name: zero, module: gain, input: read, factor: 0}\n"
                           "  - {name: write, module: su_out, input: zero, file: out.su}\n");
    const ProcessResult run = tree.run({"run", "job.yaml"});

    const std::vector<std::string> lines = linesWith(run.errors, "all samples");
    ASSERT_THAT(lines, SizeIs(1)) << "once, not again at the end";
    EXPECT_THAT(lines[0], HasSubstr("zero (1000 traces so far), and"));
}

TEST_F(RecordWatchTest, TracesThatBeginWithZerosAreNotWarnedOf)
{
    EXPECT_THAT(warnings("  - {name: some, module: kill, input: read, where: trace < 8}\n"
                         "  - {name: write, module: su_out, input: some, file: out.su}\n"),
                IsEmpty());
}
