// What the sources of a job would give, found out in a child process, and cuts of whole jobs.
#include "parts/HeaderScan.h"

#include "ProcessingTree.h"
#include "base/CommandError.h"
#include "job/JobCheck.h"
#include "parts/Cuts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class HeaderScanTest : public ::testing::Test
{
protected:
    const ResolvedJob& check(const std::string& text)
    {
        Diagnostics diagnostics;
        const auto file = parseJobFile(text, tree.path("job.yaml"), diagnostics);
        job = checkJob(*file, ModuleCatalog(tree.home()), diagnostics);
        for (const Diagnostic& one : diagnostics.sorted()) {
            if (!one.isWarning)
                ADD_FAILURE() << one.line();
        }
        return job;
    }

    std::string refusal(const std::vector<PlannedPart>& ranges)
    {
        try {
            headerValues(job, 0, ranges, {"fldr"});
        } catch (const CommandError& error) {
            return error.what();
        }
        return "not refused";
    }

    std::vector<std::pair<int64_t, int64_t>> cut(int64_t parts)
    {
        const auto traces = tracesOfSources(job);
        const Stages stages = stagesOf(job, traces);
        std::vector<std::pair<int64_t, int64_t>> ranges;
        for (const PlannedPart& part : cutsFor(job, stages, traces.begin()->second, parts))
            ranges.emplace_back(part.first, part.count);
        return ranges;
    }

    ProcessingTree tree;
    ResolvedJob job;
};

const char* const shots = "modules:\n"
                          "  - {name: make, module: synthetic, shots: 5, channels: 4, samples: 9}\n"
                          "  - {name: gain, module: gain, input: make, factor: 2}\n"
                          "  - {name: write, module: segy_out, input: gain, file: out.sgy}\n";

} // namespace

TEST_F(HeaderScanTest, ASourceAnnouncesItsTraces)
{
    check(shots);
    EXPECT_EQ(announcedTraces(job, 0), 20);
    EXPECT_FALSE(tree.exists("out.sgy"));
}

TEST_F(HeaderScanTest, WordsComeTraceByTraceInTheOrderOfTheRanges)
{
    check(shots);
    EXPECT_THAT(headerValues(job, 0, {{3, 2}, {11, 2}}, {"fldr", "tracf"}),
                ElementsAre(1, 4, 2, 1, 3, 4, 4, 1));
    EXPECT_THAT(headerValues(job, 0, {}, {"fldr"}), IsEmpty());
    EXPECT_THAT(headerValues(job, 0, {{0, 1}}, {"fldr", "unknown"}), ElementsAre(1, 0));
}

TEST_F(HeaderScanTest, ScansFollowEachOtherInOneProcess)
{
    check(shots);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(announcedTraces(job, 0), 20);
        EXPECT_THAT(headerValues(job, 0, {{19, 1}}, {"fldr"}), ElementsAre(5));
    }
}

TEST_F(HeaderScanTest, ARangeBehindTheLastTraceIsRefused)
{
    check(shots);
    EXPECT_THAT(refusal({{18, 5}}), HasSubstr("module \"make\""));
}

TEST_F(HeaderScanTest, TheModulesOwnWordsTellWhatIsWrong)
{
    tree.write("in.sgy", std::string(3700, 'x'));
    check("modules:\n"
          "  - {name: read, module: segy_in, file: in.sgy}\n"
          "  - {name: write, module: segy_out, input: read, file: out.sgy}\n");
    EXPECT_THAT(refusal({{0, 1}}), HasSubstr("module \"read\": "));
    EXPECT_THAT(refusal({{0, 1}}), HasSubstr("in.sgy"));
}

TEST_F(HeaderScanTest, AJobIsCutBetweenItsGathers)
{
    check("modules:\n"
          "  - {name: make, module: synthetic, shots: 5, channels: 4, samples: 9}\n"
          "  - {name: stack, module: stack, input: make, key: fldr}\n"
          "  - {name: write, module: segy_out, input: stack, file: out.sgy}\n");
    auto manifest = std::make_shared<Manifest>(*job.modules[1].manifest);
    manifest->parallel.given = true;
    manifest->parallel.work = ParallelWork::gather;
    manifest->parallel.count = ParallelCount::fewer;
    manifest->parallel.keyParameter = "key";
    job.modules[1].manifest = manifest;

    EXPECT_THAT(cut(3), ElementsAre(std::pair(0, 8), std::pair(8, 8), std::pair(16, 4)));
    EXPECT_THAT(cut(2), ElementsAre(std::pair(0, 12), std::pair(12, 8)));
}

TEST_F(HeaderScanTest, FilesAreScannedWithTheirSelection)
{
    if (std::getenv("VORN_TEST_DATA") == nullptr)
        GTEST_SKIP() << "VORN_TEST_DATA is not set";
    check(std::string("modules:\n"
                      "  - {name: read, module: segy_in, traces: '101:200', file: ") +
          std::getenv("VORN_TEST_DATA") +
          "/viking_shots.segy}\n"
          "  - {name: gain, module: gain, input: read, factor: 2}\n");
    EXPECT_EQ(announcedTraces(job, 0), 100);
    EXPECT_THAT(headerValues(job, 0, {{0, 1}, {98, 2}}, {"filetrace"}), ElementsAre(101, 199, 200));
}
