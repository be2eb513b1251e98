// Jobs one after the other in one process: no module may leave memory of the kernel's behind.
#include "JobManager.h"
#include "ModuleTest.h"

namespace {

struct Case
{
    const char* module;
    std::map<std::string, UniVar> parameters;
    bool hasOutput = true;
};

void PrintTo(const Case& one, std::ostream* out)
{
    *out << one.module << (one.hasOutput ? "" : " at the end of the job");
}

class ManyJobsTest : public testing::TestWithParam<Case>
{
protected:
    // What the process holds after one more job.
    int memoryAfterAJob()
    {
        ModuleHarness harness;
        harness.withSink = GetParam().hasOutput;
        harness.define("qc_rms", 4);
        for (int i = 0; i < 12; ++i)
            harness.push(std::vector<float>(200, static_cast<float>(i % 5) - 2),
                         {{"cdp", UniVar(i / 4 + 1)}, {"offset", UniVar(100 - i)}});
        HarnessModule& module =
            harness.add("module", std::string("lib") + GetParam().module + ".so");
        module.parameters = GetParam().parameters;
        const HarnessResult result = harness.run();
        EXPECT_TRUE(result.loaded);
        EXPECT_THAT(result.messagesOf(4), testing::IsEmpty());
        return JobManager::getInstance()->totalJobMemoryUsed;
    }
};

INSTANTIATE_TEST_SUITE_P(
    Modules, ManyJobsTest,
    testing::Values(Case{"agc", {}}, Case{"bandpass", {{"high", UniVar(60.0)}}},
                    Case{"gain", {{"factor", UniVar(2.0)}}}, Case{"header_plot", {}},
                    Case{"header_plot", {}, false},
                    Case{"mute", {{"offsets", floats({0, 100})}, {"times", floats({0.1, 0.2})}}},
                    Case{"section", {}}, Case{"section", {}, false},
                    Case{"sort", {{"keys", UniVar("offset")}}}, Case{"spectrum", {}},
                    Case{"spectrum", {}, false}, Case{"stack", {{"key", UniVar("cdp")}}},
                    Case{"tee", {}}, Case{"trace_qc", {{"gather", UniVar("cdp")}}},
                    Case{"trace_qc", {{"gather", UniVar("cdp")}}, false}));

TEST_P(ManyJobsTest, MemoryDoesNotGrow)
{
    const int first = memoryAfterAJob();
    for (int i = 0; i < 30; ++i)
        ASSERT_EQ(memoryAfterAJob(), first) << "job " << i + 2;
    EXPECT_EQ(first, 0);
}

} // namespace
