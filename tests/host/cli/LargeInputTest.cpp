// Files that state much, or are mostly holes: the command needs the memory that the work takes, not
// what a header states.
#include "ProcessingTree.h"

#include "SegyBytes.h"

#include <filesystem>
#include <gmock/gmock.h>

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::SizeIs;

namespace fs = std::filesystem;

namespace {

constexpr long megabyte = 1000000;

class LargeInputTest : public ::testing::Test
{
protected:
    // With little memory: the command itself and its libraries need some 60 MB.
    ProcessResult runSmall(const std::vector<std::string>& words) const
    {
        const ProcessResult result = tree.run(words);
        if (memoryIsOurs)
            EXPECT_LT(result.peakBytes, 120 * megabyte) << result.errors;
        return result;
    }

    ProcessingTree tree;
};

} // namespace

// ---- Lengths that the file does not hold ----

TEST_F(LargeInputTest, AFewBytesThatStateManySamplesEndEachCommandAtOnce)
{
    SegyBytes file;
    file.describe(0, 4000, 5);
    file.header[3500] = 2;
    file.setBinary(3269, 4, 500000000);
    file.addIeeeTrace(1, 100, 1);
    file.setTrace(0, 115, 2, 0);
    file.write(tree.path("few.sgy"));
    ASSERT_EQ(fs::file_size(tree.path("few.sgy")), 4240u);
    const std::string refusal =
        "few.sgy: holds no whole trace: the binary header states 500000000 samples per trace and "
        "the first trace header 0; a trace of 500000000 samples in format 5, 4-byte IEEE float, "
        "takes 2000000240 bytes with its header, and 640 bytes follow the headers of the file; if "
        "its traces are shorter, state `samples`";

    const ProcessResult header = runSmall({"header", "few.sgy"});
    EXPECT_EQ(header.exitCode, 2);
    EXPECT_EQ(header.errors, "vorn: " + refusal + "\n");
    const ProcessResult picture = runSmall({"plot", "few.sgy", "-o", "few.png"});
    EXPECT_EQ(picture.exitCode, 2);
    EXPECT_EQ(picture.errors, "vorn: " + refusal + "\n");
    EXPECT_FALSE(tree.exists("few.png"));

    for (const std::string step : {"module: trace_qc", "module: bandpass, low: 10",
                                   "module: spectrum", "module: agc, window: 0.1"})
    {
        tree.write("job.yaml", "modules:\n"
                               "  - {name: read, module: segy_in, file: few.sgy}\n"
                               "  - {name: step, input: read, " +
                                   step + "}\n");
        const ProcessResult job = runSmall({"run", "job.yaml"});
        EXPECT_EQ(job.exitCode, 1) << step;
        const std::vector<std::string> fatal = linesWith(job.errors, " fatal ");
        ASSERT_THAT(fatal, SizeIs(1)) << job.errors;
        EXPECT_THAT(fatal[0], EndsWith(refusal)) << step;
    }

    tree.write("job.yaml", "modules:\n"
                           "  - {name: read, module: segy_in, file: few.sgy, samples: 100}\n"
                           "  - {name: step, input: read, module: trace_qc}\n");
    EXPECT_EQ(runSmall({"run", "job.yaml"}).exitCode, 0) << "the advice of the message";
}
