// How far the parts of a plan are, from the files that parts leave.
#include "parts/Status.h"

#include "KernelFixture.h"
#include "parts/LiveFile.h"
#include "parts/Receipt.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace fs = std::filesystem;

using host::LiveState;
using host::PartState;
using host::PlanStatus;
using host::Receipt;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

namespace {

constexpr const char* planSha256 = "5eed";

// A plan of five parts with 100 traces each, and what they leave in its directory.
class StatusTest : public ::testing::Test
{
protected:
    StatusTest()
    {
        stored.sha256 = planSha256;
        for (int64_t part = 0; part < 5; ++part)
            stored.plan.parts.push_back({100 * part, 100});
    }

    std::string path() const { return directory / "."; }
    PlanStatus status() const { return statusOf(stored, path()); }
    PartState state(int part) const
    {
        return status().parts.at(static_cast<std::size_t>(part - 1)).state;
    }

    void finish(int part, const std::string& plan = planSha256) const
    {
        Receipt receipt;
        receipt.planSha256 = plan;
        receipt.part = part;
        writeReceipt(host::receiptPath(path(), part), receipt);
    }

    void fail(int part, const std::string& text) const
    {
        Receipt receipt;
        receipt.planSha256 = planSha256;
        receipt.part = part;
        receipt.failed = true;
        for (const int severity : {host::warningSeverity, host::errorSeverity, host::fatalSeverity})
        {
            host::PartMessage one;
            one.message.module = "agc";
            one.message.severity = severity;
            one.message.text = text + " " + std::to_string(severity);
            receipt.messages.push_back(one);
        }
        writeReceipt(host::failurePath(path(), part), receipt);
    }

    // As a part that has told about itself `age` seconds ago.
    void live(int part, int64_t age, int64_t traces = 0) const
    {
        LiveState now;
        now.traces = traces;
        now.seconds = static_cast<int64_t>(std::time(nullptr)) - age;
        std::ofstream file(host::livePath(path(), part), std::ios::binary);
        file.write(reinterpret_cast<const char*>(&now), sizeof now);
    }

    host::StoredPlan stored;
    TemporaryDirectory directory;
};

} // namespace

TEST_F(StatusTest, PartsWithoutFilesWait)
{
    EXPECT_THAT(status().inState(PartState::waiting), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(status().missing(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(status().tracesSoFar(), 0);
    EXPECT_EQ(status().traces, 500);
}

TEST_F(StatusTest, EveryStateIsSeenFromTheFiles)
{
    finish(1);
    live(1, 100);
    live(2, 1, 40);
    live(3, 60, 70);
    fail(4, "the window is empty");
    live(4, 5);

    const PlanStatus now = status();

    EXPECT_THAT(now.inState(PartState::done), ElementsAre(1));
    EXPECT_THAT(now.inState(PartState::running), ElementsAre(2));
    EXPECT_THAT(now.inState(PartState::lost), ElementsAre(3));
    EXPECT_THAT(now.inState(PartState::failed), ElementsAre(4));
    EXPECT_THAT(now.inState(PartState::waiting), ElementsAre(5));
    EXPECT_THAT(now.missing(), ElementsAre(3, 4, 5));
    EXPECT_EQ(now.tracesSoFar(), 140) << "all of part 1, and what part 2 has read";
}

TEST_F(StatusTest, PartIsLostWhenItHasBeenSilentForLonger)
{
    live(1, host::liveSeconds - 2);
    EXPECT_EQ(state(1), PartState::running);

    live(1, host::liveSeconds + 2);
    EXPECT_EQ(state(1), PartState::lost);
}

TEST_F(StatusTest, PartThatHasJustBegunRuns)
{
    const std::string file = host::livePath(path(), 1);
    std::ofstream(file).flush();
    EXPECT_EQ(state(1), PartState::running);

    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::minutes(1));

    EXPECT_EQ(state(1), PartState::lost) << "it was killed before it had told anything";
}

// A failed part that has been started again writes its counters anew.
TEST_F(StatusTest, FailureOfAnEarlierRunDoesNotCountWhileThePartRuns)
{
    fail(2, "no such word");
    const auto earlier = fs::file_time_type::clock::now() - std::chrono::minutes(5);
    fs::last_write_time(host::failurePath(path(), 2), earlier);
    EXPECT_EQ(state(2), PartState::failed);

    live(2, 0);

    EXPECT_EQ(state(2), PartState::running);
}

TEST_F(StatusTest, FirstErrorOfAFailedPartIsShown)
{
    fail(4, "the window is empty");

    EXPECT_EQ(status().parts[3].reason, "agc: the window is empty 3");
    EXPECT_THAT(describeStatus(status(), 0), HasSubstr("part 4: agc: the window is empty 3\n"));
}

TEST_F(StatusTest, ReceiptThatIsDamagedOrOfAnotherPlanIsNotDone)
{
    finish(1, "another");
    finish(2);
    fs::resize_file(host::receiptPath(path(), 2), 100);

    const PlanStatus now = status();

    EXPECT_THAT(now.inState(PartState::lost), ElementsAre(1, 2));
    EXPECT_THAT(now.missing(), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(now.parts[0].reason, HasSubstr("part-1.json\" is of another plan"));
    EXPECT_THAT(now.parts[1].reason, HasSubstr("part-2.json\" is damaged or cut"));
}

TEST_F(StatusTest, SpeedIsThatOfThePartsThatRun)
{
    finish(1);
    live(2, 0, 10);
    live(3, 0, 10);
    const PlanStatus before = status();
    live(2, 0, 40);
    finish(3);
    live(4, 0, 50); // was not there before

    EXPECT_DOUBLE_EQ(tracesPerSecond(before, status(), 2), (30 + 90) / 2.);
}

TEST_F(StatusTest, TableNamesThePartsOfEachState)
{
    finish(1);
    finish(2);
    finish(4);
    live(3, 0, 50);

    EXPECT_EQ(describeStatus(status(), 25), "state    parts  which\n"
                                            "done         3  1-2,4\n"
                                            "running      1  3\n"
                                            "failed       0\n"
                                            "lost         0\n"
                                            "waiting      1  5\n"
                                            "350 of 500 traces, 25.0 traces/s, 6.000 s left\n");
    EXPECT_THAT(describeStatus(status(), 0), Not(HasSubstr("left")));
}

TEST_F(StatusTest, MergedPlanIsSaidToBe)
{
    EXPECT_FALSE(status().isMerged);

    std::ofstream(path() + "/merged") << "merged\n";

    EXPECT_TRUE(status().isMerged);
    EXPECT_THAT(describeStatus(status(), 0), HasSubstr("merged: the outputs have their names\n"));
}

TEST_F(StatusTest, NothingIsWritten)
{
    live(1, 0);
    finish(2);
    std::size_t files = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(path()))
        ++files;

    status();

    std::size_t after = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(path()))
        ++after;
    EXPECT_EQ(after, files);
}

TEST(PartListTest, RunsOfNumbersAreRanges)
{
    EXPECT_EQ(host::partList({}), "");
    EXPECT_EQ(host::partList({3}), "3");
    EXPECT_EQ(host::partList({3, 17, 18, 19}), "3,17-19");
    EXPECT_EQ(host::partList({1, 2, 4, 6, 7}), "1-2,4,6-7");
}
