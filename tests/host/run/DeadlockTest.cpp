// Jobs in which no trace moves any more, jobs that only seem so, and jobs that would be so without
// the command's help.
#include "run/Deadlock.h"

#include "ExpectedLeaks.h"
#include "ListFixture.h"
#include "list_model.h"

using namespace host;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

using DeadlockTest = ListFixture;

const std::string source = "modules:\n"
                           "  - {name: read, module: list_source, traces: 5, from: 1}\n";
const std::string noTrace = "the job is deadlocked: no trace moves any more; ";

} // namespace

// One pass of the scheduler asks the first module 2^40 times.
TEST_F(DeadlockTest, IsFoundWithinOnePassOfTheScheduler)
{
    const ExpectedLeaks leaks;
    std::string text = source + "  - {name: m0, module: endless_end, input: read}\n";
    for (int i = 1; i <= 40; ++i) {
        const std::string before = "m" + std::to_string(i - 1);
        text += "  - {name: m" + std::to_string(i) + ", module: list_step, kind: 6, inputs: [" +
                before + ", " + before + "]}\n";
    }

    const RunResult result = run(text + "  - {name: end, module: list_sink, input: m40}\n", 10);

    EXPECT_EQ(result.end, RunEnd::stalled);
    EXPECT_THAT(errorsOf(result),
                ElementsAre(StartsWith(noTrace + "module \"m0\" is called after the end of its "
                                                 "data, but does not mark the end of its output; "
                                                 "module \"m1\" waits for \"m0\" at input 1, "
                                                 "\"m0\" at input 2; ")));
}

TEST_F(DeadlockTest, AModuleThatNeitherTakesNorGivesIsNamed)
{
    const ExpectedLeaks leaks;
    const RunResult result =
        run(source + "  - {name: split, module: list_split, kind: 3, input: read}\n"
                     "  - {name: keep, module: list_step, calls: 2000000000, input: split.2}\n"
                     "  - {name: all, module: list_sink, input: split.1}\n"
                     "  - {name: end, module: list_sink, input: keep}\n",
            10);

    EXPECT_EQ(result.end, RunEnd::stalled);
    EXPECT_THAT(errorsOf(result),
                ElementsAre(noTrace + "module \"keep\" has traces in all inputs, but neither takes "
                                      "nor gives one; module \"end\" waits for \"keep\""));
}

TEST_F(DeadlockTest, TheOutputIsNamedWhereThereAreSeveral)
{
    const ExpectedLeaks leaks;
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: list_source, traces: 1, from: 1}\n"
            "  - {name: keep, module: list_step, calls: 2000000000, input: read}\n"
            "  - {name: split, module: list_split, kind: 3, input: keep}\n"
            "  - {name: one, module: list_sink, input: split.1}\n"
            "  - {name: two, module: list_sink, input: split.2}\n",
            10);

    EXPECT_EQ(result.end, RunEnd::stalled);
    EXPECT_THAT(errorsOf(result),
                ElementsAre(noTrace +
                            "module \"keep\" has traces in all inputs, but neither takes "
                            "nor gives one; module \"split\" waits for \"keep\"; module "
                            "\"one\" waits for \"split\" (output 1); module \"two\" waits "
                            "for \"split\" (output 2)"));
}

TEST_F(DeadlockTest, ASinkThatIsCalledForEverIsNamed)
{
    const RunResult result =
        run(source + "  - {name: sink, module: endless_sink, input: read}\n", 10);

    EXPECT_EQ(result.end, RunEnd::stalled);
    EXPECT_THAT(errorsOf(result),
                ElementsAre(noTrace + "module \"sink\" is called after the end of its data, but "
                                      "has no output whose end it could mark"));
}

// A source that searches its file, for example.
TEST_F(DeadlockTest, AModuleThatWorksForLongWithoutATraceIsLeftAlone)
{
    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: list_source, traces: 5, from: 1, idle: 1500000}\n"
            "  - {name: end, module: list_sink, input: read}\n",
            10);

    EXPECT_EQ(result.end, RunEnd::done);
    EXPECT_THAT(errorsOf(result), IsEmpty());
    EXPECT_EQ(listOf(result, "end"), "1:1 2:2 3:3 4:4 5:5 ");
}

// The kernel looks at the first trace of the last output, which "first" leaves there.
TEST_F(DeadlockTest, AReaderThatEndsEarlyDoesNotKeepAModuleWithSeveralOutputsFromEnding)
{
    const ExpectedLeaks leaks; // traces that nobody takes
    const RunResult result =
        run(source + "  - {name: split, module: list_split, kind: 3, input: read}\n"
                     "  - {name: first, module: list_step, kind: 5, n: 2, input: split.2}\n"
                     "  - {name: all, module: list_sink, input: split.1}\n"
                     "  - {name: end, module: list_sink, input: first}\n",
            10);

    EXPECT_THAT(errorsOf(result), IsEmpty());
    EXPECT_EQ(listOf(result, "all"), "1:1 2:2 3:3 4:4 5:5 ");
    EXPECT_EQ(listOf(result, "end"), "1:1 2:2 ");
}

// "again" is not called any more once "first" has ended.
TEST_F(DeadlockTest, NorDoesAReaderThatNobodyAsksAnyMore)
{
    const ExpectedLeaks leaks; // traces that nobody takes
    const RunResult result =
        run(source + "  - {name: split, module: list_split, kind: 3, input: read}\n"
                     "  - {name: again, module: list_step, kind: 2, n: 3, input: split.2}\n"
                     "  - {name: first, module: list_step, kind: 5, n: 2, input: again}\n"
                     "  - {name: all, module: list_sink, input: split.1}\n"
                     "  - {name: end, module: list_sink, input: first}\n",
            10);

    EXPECT_THAT(errorsOf(result), IsEmpty());
    EXPECT_EQ(listOf(result, "all"), "1:1 2:2 3:3 4:4 5:5 ");
    EXPECT_EQ(listOf(result, "end"), "1:1 1:1 ");
}

// As it does where a tee stands between: nobody asks that any more.
TEST_F(DeadlockTest, NorDoSeveralReadersThatHaveAllEnded)
{
    const ExpectedLeaks leaks; // traces that nobody takes
    const RunResult result =
        run(source + "  - {name: split, module: list_split, kind: 3, input: read}\n"
                     "  - {name: first, module: list_step, kind: 5, n: 2, input: split.2}\n"
                     "  - {name: one, module: list_step, kind: 5, n: 1, input: split.2}\n"
                     "  - {name: all, module: list_sink, input: split.1}\n"
                     "  - {name: end, module: list_sink, input: first}\n"
                     "  - {name: end1, module: list_sink, input: one}\n",
            10);

    EXPECT_THAT(errorsOf(result), IsEmpty());
    EXPECT_EQ(listOf(result, "all"), "1:1 2:2 3:3 4:4 5:5 ");
    EXPECT_EQ(listOf(result, "end"), "1:1 2:2 ");
    EXPECT_EQ(listOf(result, "end1"), "1:1 ");
}

// "join" has enough of split.2, so nobody takes the marked trace there; it waits for split.1.
TEST_F(DeadlockTest, AJoinOfLongAndShortOutputsOfOneModuleEnds)
{
    List all;
    for (int id = 1; id <= 27; ++id)
        all.push_back(listTrace(id));
    const std::vector<List> split = splitOf(SplitKind::rest, 5, 2, all);
    ListStep merge;
    merge.kind = ListKind::merge;
    std::string expected;
    for (const ListTrace& trace : ::listOf(merge, {split[1], split[0], split[1]}))
        expected += listText(trace);

    const RunResult result =
        run("modules:\n"
            "  - {name: read, module: list_source, traces: 27, from: 1, bursts: 1, seed: 122}\n"
            "  - {name: split, module: list_split, kind: 2, n: 5, input: read}\n"
            "  - {name: join, module: list_step, kind: 7, inputs: [split.2, split.1, split.2]}\n"
            "  - {name: end, module: list_sink, input: join}\n",
            10);

    EXPECT_THAT(errorsOf(result), IsEmpty());
    EXPECT_EQ(result.modules[3].metadata.at("traces"), expected);
}
