// What a start of the command costs: it loads no library that the call does not need.
#include "TestTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

class StartTest : public ::testing::Test
{
protected:
    StartTest()
    {
        tree.write("job.yaml",
                   "modules:\n"
                   "  - {name: read, module: host_source, traces: 7}\n"
                   "  - {name: write, module: host_sink, input: read, file: out.txt}\n");
    }

    // What the dynamic linker tells about the files that it loads for the call.
    std::string filesLoadedBy(const std::string& words) const
    {
        const ProcessResult result = tree.shell("LD_DEBUG=files \"$VORN\" " + words);
        EXPECT_EQ(result.exitCode, 0) << words;
        return result.errors;
    }

    TestTree tree;
};

} // namespace

TEST_F(StartTest, AJobWithoutPicturesLoadsNoDrawingLibrary)
{
    EXPECT_THAT(filesLoadedBy("run -q job.yaml"),
                AllOf(HasSubstr("libhost_source.so"), HasSubstr("libyaml"),
                      Not(HasSubstr("libcairo")), Not(HasSubstr("libX11"))));
}

TEST_F(StartTest, ChecksumsAreLoadedForAReportOnly)
{
    EXPECT_THAT(filesLoadedBy("run -q job.yaml"), Not(HasSubstr("libcrypto")));
    EXPECT_THAT(filesLoadedBy("run -q job.yaml --json facts.json"), HasSubstr("libcrypto"));
}
