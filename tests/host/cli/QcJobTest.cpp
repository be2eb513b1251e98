// The job examples/jobs/qc.yaml on records of very different sample intervals and lengths.
#include "ProcessingTree.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <sstream>

using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class QcJobTest : public ::testing::Test
{
protected:
    // A file of 24 traces of reflections with their greatest amplitudes at `frequency`.
    void makeFile(const std::string& name, const std::string& interval, int samples,
                  const std::string& frequency)
    {
        tree.write("make.yaml", "modules:\n"
                                "  - name: made\n"
                                "    module: synthetic\n"
                                "    shots: 2\n"
                                "    channels: 12\n"
                                "    spacing: 1 m\n"
                                "    first_offset: 1 m\n"
                                "    direct_amplitude: 0\n"
                                "    roll_amplitude: 0\n"
                                "    noise: 0\n"
                                "    times: [10 ms, 15 ms, 20 ms, 25 ms]\n"
                                "    interval: " +
                                    interval + "\n    samples: " + std::to_string(samples) +
                                    "\n    frequency: " + frequency +
                                    "\n"
                                    "  - {name: write, module: segy_out, input: made, format: "
                                    "ieee, file: " +
                                    name + "}\n");
        const ProcessResult run = tree.run({"run", "make.yaml"});
        ASSERT_EQ(run.exitCode, 0) << run.errors;
    }

    // The mean of the RMS of all traces.
    double levelOf(const std::string& file)
    {
        tree.write("measure.yaml", "modules:\n"
                                   "  - {name: read, module: segy_in, file: " +
                                       file +
                                       "}\n"
                                       "  - {name: check, module: trace_qc, input: read, table: "
                                       "table.csv}\n");
        EXPECT_EQ(tree.run({"run", "measure.yaml"}).exitCode, 0);
        std::istringstream lines(tree.read("table.csv"));
        std::string line;
        std::getline(lines, line);
        const auto before = line.substr(0, line.find(",rms,") + 1);
        const auto column = std::count(before.begin(), before.end(), ',');
        double sum = 0;
        int rows = 0;
        while (std::getline(lines, line)) {
            std::istringstream cells(line);
            std::string cell;
            for (long i = 0; i <= column; ++i)
                std::getline(cells, cell, ',');
            sum += std::stod(cell);
            ++rows;
        }
        return sum / rows;
    }

    ProcessResult runQc(const std::string& file)
    {
        return tree.run({"run", VORN_TEST_SOURCE_DIR "/../examples/jobs/qc.yaml", "--set",
                         "read.file=" + file, "--set", "write.file=filtered.sgy"});
    }

    const ProcessingTree tree;
};

} // namespace

TEST_F(QcJobTest, TheSignalPassesAtAnySampleInterval)
{
    const struct
    {
        const char* interval;
        int samples;
        const char* frequency;
        const char* corners;
        const char* window;
    } rows[] = {
        {"4 ms", 1000, "30 Hz", "corners are 0.625, 1.25, 100 and 112.5 Hz", "window is 0.8 s"},
        {"0.25 ms", 400, "400 Hz", "corners are 10, 20, 1600 and 1800 Hz", "window is 0.02 s"},
        {"10 us", 4000, "9 kHz", "corners are 250, 500, 40000 and 45000 Hz", "window is 0.008 s"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.interval);
        makeFile("in.sgy", row.interval, row.samples, row.frequency);

        const ProcessResult run = runQc("in.sgy");

        EXPECT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_THAT(linesWith(run.errors, " warning "), IsEmpty());
        EXPECT_THAT(run.errors, HasSubstr(row.corners));
        EXPECT_THAT(run.errors, HasSubstr(row.window));
        const double before = levelOf("in.sgy");
        EXPECT_GT(before, 0);
        EXPECT_GT(levelOf("filtered.sgy"), 0.95 * before);
    }
}
