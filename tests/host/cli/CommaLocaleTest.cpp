// Numbers keep their point where the user's locale, or a module, writes a comma.
#include "ProcessingTree.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <regex>

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using Json = nlohmann::json;

namespace {

const char* const germanLocale = "de_DE.UTF-8";

class CommaLocaleTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const ProcessResult made =
            tree.shell(std::string("localedef -i de_DE -f UTF-8 ./") + germanLocale + " 2>&1");
        if (!tree.exists(germanLocale))
            GTEST_SKIP() << "no locale can be made: " << made.output;
        ASSERT_EQ(tree.shell(german("printf %.1f 1,5")).output, "1,5") << "the locale has commas";
    }

    // The command line in that locale.
    std::string german(const std::string& commandLine) const
    {
        return "export LOCPATH=" + tree.work() + " LC_ALL=" + germanLocale + "; /usr/bin/env " +
               commandLine;
    }

    ProcessingTree tree;
};

void dropMeasured(Json& json)
{
    if (json.is_object())
        json.erase("measured");
    for (Json& one : json) {
        if (one.is_structured())
            dropMeasured(one);
    }
}

// What the run, in the directory out, says and writes; without times of day and measured times.
std::map<std::string, std::string> resultsIn(const ProcessingTree& tree)
{
    std::map<std::string, std::string> results;
    for (const auto& entry : fs::recursive_directory_iterator(tree.path("out"))) {
        if (entry.is_regular_file())
            results[entry.path().filename().string()] = readFile(entry.path().string());
    }
    Json facts = Json::parse(results.at("facts.json"));
    dropMeasured(facts);
    results["facts.json"] = facts.dump(1);
    const std::regex time("[0-9]+:[0-9]+:[0-9]+ ");
    std::string& log = results["run.log"];
    log = std::regex_replace(log.substr(0, log.find("\nmodule ")), time, "");
    return results;
}

} // namespace

TEST_F(CommaLocaleTest, EverythingIsAsInTheLocaleC)
{
    tree.write("job.yaml",
               "modules:\n"
               "  - {name: make, module: synthetic, shots: 2, channels: 12, samples: 200, "
               "interval: 2.5 ms, spacing: 12.5 m}\n"
               "  - {name: local, module: host_locale, input: make}\n"
               "  - {name: louder, module: gain, input: make, factor: 1.25}\n"
               "  - {name: band, module: bandpass, input: louder, "
               "corners: [4.5 Hz, 9.5 Hz, 60.5 Hz, 80.5 Hz]}\n"
               "  - {name: check, module: trace_qc, input: band}\n"
               "  - {name: draw, module: section, input: check}\n"
               "  - {name: bands, module: spectrum, input: check}\n"
               "  - {name: plot, module: header_plot, input: check, y: [offset]}\n"
               "  - {name: write, module: segy_out, input: check, file: out/line.sgy}\n");
    const std::string call =
        "\"$VORN\" run job.yaml --pictures out --format svg --json out/facts.json "
        "--log out/run.log";
    std::map<std::string, std::string> results[2];
    for (const bool comma : {false, true}) {
        fs::remove_all(tree.path("out"));
        fs::create_directory(tree.path("out"));
        const ProcessResult run = tree.shell(comma ? german(call) : call);
        ASSERT_EQ(run.exitCode, 0) << run.errors;
        EXPECT_THAT(run.errors,
                    HasSubstr(std::string("the locale is ") + (comma ? germanLocale : "C")));
        for (const char* command :
             {"graph job.yaml -o out/graph.svg", "graph job.yaml -o out/graph.dot",
              "plot out/line.sgy -o out/plot.svg --from 0.05 --to 0.25"})
        {
            const std::string more = "\"$VORN\" " + std::string(command);
            const ProcessResult drawn = tree.shell(comma ? german(more) : more);
            EXPECT_EQ(drawn.exitCode, 0) << drawn.errors;
        }
        const std::string header = "\"$VORN\" header out/line.sgy > out/header";
        tree.shell(comma ? german(header) : header);
        results[comma ? 1 : 0] = resultsIn(tree);
    }
    std::string& log = results[1].at("run.log");
    log = std::regex_replace(log, std::regex(germanLocale), "C");
    std::string& facts = results[1].at("facts.json");
    facts = std::regex_replace(facts, std::regex(germanLocale), "C");
    EXPECT_GT(results[0].size(), 7u);
    ASSERT_EQ(results[0].size(), results[1].size());
    for (const auto& [name, content] : results[0]) {
        const std::string& other = results[1].at(name);
        const auto differing =
            std::mismatch(content.begin(), content.end(), other.begin(), other.end());
        const auto at = static_cast<std::size_t>(differing.first - content.begin());
        EXPECT_TRUE(other == content) << name << ": \"" << content.substr(at, 60)
                                      << "\", with commas \"" << other.substr(at, 60) << "\"";
    }
}
