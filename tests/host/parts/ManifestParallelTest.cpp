// What manifests declare about jobs in parts, held against real data: with any number of parts and
// cut anywhere that the declaration allows, a job gives what one process gives, byte for byte.
#include "ProcessingTree.h"

#include "job/Manifest.h"
#include "parts/PlanFile.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>

using namespace host;
using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

namespace {

/// A job around one module. It reads $DATA/viking_shots.segy, four shots of 120 channels, unless
/// `job` is a whole one.
struct ModuleJob
{
    const char* module;
    const char* parameters; ///< of the module, behind its input
    const char* job = "";   ///< instead, the whole list of modules; @ stands for the parameters
    /// Whether parts may begin with any trace: no module of the job works on gathers.
    bool isCutAnywhere = true;
};

void PrintTo(const ModuleJob& job, std::ostream* stream)
{
    *stream << job.module;
}

const char* const chain = "  - {name: read, module: segy_in, file: $DATA/viking_shots.segy}\n"
                          "  - {name: before, module: gain, input: read, balance: rms}\n"
                          "  - {name: one, module: $MODULE, input: before@}\n"
                          "  - {name: write, module: segy_out, input: one, file: out.sgy}\n";
const char* const lastOfChain = "  - {name: read, module: segy_in, file: $DATA/viking_shots.segy}\n"
                                "  - {name: before, module: gain, input: read, balance: rms}\n"
                                "  - {name: one, module: $MODULE, input: before@}\n";

const std::vector<ModuleJob> moduleJobs = {
    {"agc", "window: 200 ms"},
    {"amplitude_map", "measure: rms, x: fldr, y: tracf"},
    {"autocorrelation", "lag: 100 ms"},
    {"bandpass", "corners: [5, 10, 40, 60]"},
    {"combine", "operation: difference",
     "  - {name: read, module: segy_in, file: $DATA/viking_shots.segy}\n"
     "  - {name: other, module: agc, input: read}\n"
     "  - {name: one, module: combine, inputs: [read, other]@}\n"
     "  - {name: write, module: segy_out, input: one, file: out.sgy}\n"},
    {"fk", "spacing: 25 m, filter: reject, velocities: [0, 1500]", "", false},
    {"gain", "time_power: 1.5, clip: 3"},
    {"header_math", "set: ['cdp = fldr * 2 + tracf', 'ep = mod(cdp, 7) > 3']"},
    {"header_plot", "x: tracf, y: fldr"},
    {"header_table", "file: table.csv, words: [fldr, tracf, offset]"},
    {"histogram", ""},
    {"kill", "traces: '7:400:13'"},
    {"mute", "header: tracf, offsets: [1, 120], times: [0.1, 1.5]"},
    {"nmo", "header: tracf, times: [0.2, 2], velocities: [100, 200]"},
    {"resample", "interval: 3 ms"},
    {"section", "gather: fldr"},
    {"segy_in", "traces: '11:470'",
     "  - {name: one, module: segy_in, file: $DATA/viking_shots.segy@}\n"
     "  - {name: write, module: segy_out, input: one, file: out.sgy}\n"},
    {"segy_out", "file: out.sgy, format: ieee", lastOfChain},
    {"select", "where: 'tracf > 30 && tracf < 100'"},
    {"shift", "time: 13 ms"},
    {"slice", "inline_word: fldr, crossline_word: tracf, times: [0.5, 1]"},
    {"sort", "keys: [tracf, -fldr]"},
    {"spectrogram", "traces: '1,200,450'"},
    {"spectrum", ""},
    {"stack", "key: fldr", "", false},
    {"su_in", "",
     "  - {name: one, module: su_in, file: in.su@}\n"
     "  - {name: write, module: segy_out, input: one, file: out.sgy}\n"},
    {"su_out", "file: out.su", lastOfChain},
    {"synthetic", "shots: 7, channels: 30, bad: 2",
     "  - {name: one, module: synthetic@}\n"
     "  - {name: write, module: segy_out, input: one, file: out.sgy}\n"},
    {"tee", "",
     "  - {name: one, module: synthetic, shots: 5}\n"
     "  - {name: write, module: segy_out, input: one, file: out.sgy}\n"
     "  - {name: write2, module: su_out, input: one, file: out.su}\n"},
    {"trace_qc", "gather: fldr, table: qc.csv", "", false},
    {"window", "start: 100 ms, end: 1300 ms"},
};

void replaceAll(std::string& text, const std::string& from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

std::string textOf(const ModuleJob& one, const std::string& data)
{
    std::string text = *one.job == 0 ? chain : one.job;
    const std::string parameters = one.parameters;
    replaceAll(text, "@", parameters.empty() ? "" : ", " + parameters);
    replaceAll(text, "$MODULE", one.module);
    replaceAll(text, "$DATA", data);
    return "modules:\n" + text;
}

// What a run has left: everything in its folder but the facts that differ from run to run.
struct Outcome
{
    int exitCode = 0;
    std::string errors; // messages, without times
    std::string facts;
    std::map<std::string, std::string> files;
};

// Times, and memory, which depends on how many processes share it.
void dropMeasurements(Json& json)
{
    if (json.is_array()) {
        for (Json& item : json)
            dropMeasurements(item);
        return;
    }
    if (!json.is_object())
        return;
    for (const char* name :
         {"measured", "preprocess_microseconds", "process_microseconds", "postprocess_microseconds",
          "microseconds_per_trace", "share", "peak_bytes", "bytes_left", "seconds", "time",
          "started", "microseconds", "traces_per_second", "bytes_per_second"})
        json.erase(name);
    for (auto& item : json.items())
        dropMeasurements(item.value());
}

class ManifestParallelTest : public ::testing::TestWithParam<ModuleJob>
{
protected:
    void SetUp() override
    {
        const char* const data = std::getenv("VORN_TEST_DATA");
        if (data == nullptr)
            GTEST_SKIP() << "VORN_TEST_DATA is not set";
        tree.write("job.yaml", textOf(GetParam(), data));
        tree.write("make.yaml", "modules:\n"
                                "  - {name: make, module: synthetic, shots: 6, channels: 31}\n"
                                "  - {name: write, module: su_out, input: make, file: in.su}\n");
        ASSERT_EQ(tree.run({"run", "-q", "make.yaml"}).exitCode, 0);
    }

    // Takes what a command has left, and removes it.
    Outcome take(const ProcessResult& result)
    {
        Outcome outcome;
        outcome.exitCode = result.exitCode;
        outcome.errors = std::regex_replace(result.errors,
                                            std::regex("(^|\n)[0-9]{2}:[0-9]{2}:[0-9]{2} "), "$1");
        Json facts = Json::parse(tree.read("facts.json"), nullptr, false);
        dropMeasurements(facts);
        outcome.facts = facts.dump(1);
        for (const auto& entry : fs::recursive_directory_iterator(tree.work())) {
            const std::string name = fs::relative(entry.path(), tree.work()).string();
            if (entry.is_regular_file() && name != "facts.json" && !isKept(name))
                outcome.files[name] = readFile(entry.path());
        }
        std::vector<fs::path> all;
        for (const auto& entry : fs::directory_iterator(tree.work()))
            all.push_back(entry.path());
        for (const fs::path& path : all) {
            if (!isKept(path.filename()))
                fs::remove_all(path);
        }
        return outcome;
    }

    static bool isKept(const std::string& name)
    {
        return name == "job.yaml" || name == "make.yaml" || name == "in.su" ||
               name.starts_with("plan");
    }

    Outcome run(std::vector<std::string> words)
    {
        const std::vector<std::string> rest = {"--json",   "facts.json", "--pictures",
                                               "pictures", "--format",   "svg"};
        words.insert(words.end(), rest.begin(), rest.end());
        return take(tree.run(words));
    }

    static void expectSame(const Outcome& whole, const Outcome& parts, const std::string& how)
    {
        SCOPED_TRACE(how);
        EXPECT_EQ(parts.exitCode, whole.exitCode);
        EXPECT_EQ(parts.errors, whole.errors);
        EXPECT_EQ(parts.facts, whole.facts);
        std::vector<std::string> names;
        std::vector<std::string> expected;
        for (const auto& [name, bytes] : parts.files)
            names.push_back(name);
        for (const auto& [name, bytes] : whole.files)
            expected.push_back(name);
        EXPECT_EQ(names, expected);
        for (const auto& [name, bytes] : whole.files) {
            const auto same = parts.files.find(name);
            EXPECT_TRUE(same == parts.files.end() || same->second == bytes) << name << " differs";
        }
    }

    // Parts of a plan whose cuts are drawn: from all traces, or from places that a finer plan has
    // found.
    Outcome runCut(std::mt19937& random)
    {
        fs::remove_all(tree.path("plan"));
        const ProcessResult planned =
            tree.run({"plan", "job.yaml", "--parts", "40", "--output", "plan"});
        EXPECT_EQ(planned.exitCode, 0) << planned.errors;
        Plan plan = readPlan(tree.path("plan")).plan;
        std::vector<int64_t> places;
        if (GetParam().isCutAnywhere) {
            for (int64_t place = 1; place < plan.traces; ++place)
                places.push_back(place);
        } else {
            for (const PlannedPart& part : plan.parts)
                places.push_back(part.first);
        }
        std::vector<int64_t> cuts;
        const int parts = std::uniform_int_distribution<int>(2, 6)(random);
        std::sample(places.begin(), places.end(), std::back_inserter(cuts), parts - 1, random);
        cuts.erase(std::remove(cuts.begin(), cuts.end(), 0), cuts.end());
        cuts.push_back(plan.traces);
        plan.parts.clear();
        int64_t first = 0;
        for (const int64_t cut : cuts) {
            plan.parts.push_back({first, cut - first});
            first = cut;
        }
        told = ::testing::PrintToString(cuts);
        writePlan(plan, tree.path("plan"));
        for (std::size_t part = plan.parts.size(); part > 0; --part) { // in any order
            const ProcessResult result = tree.run({"part", "plan", std::to_string(part)});
            EXPECT_EQ(result.exitCode, 0) << result.errors;
        }
        return run({"merge", "plan"});
    }

    bool runsInParts()
    {
        const std::string text = tree.run({"plan", "job.yaml", "--dry-run"}).output;
        return text.find("no module of the job can run in parts") == std::string::npos;
    }

    ProcessingTree tree;
    std::string told;
};

} // namespace

TEST_P(ManifestParallelTest, PartsGiveWhatOneProcessGives)
{
    const Outcome whole = run({"run", "job.yaml"});
    ASSERT_EQ(whole.exitCode, 0) << whole.errors;
    ASSERT_NE(whole.facts, "null");
    // With a sanitizer each process takes ten times as long.
    using Numbers = std::vector<const char*>;
    for (const char* parts : memoryIsOurs ? Numbers{"1", "2", "3", "7"} : Numbers{"3"})
        expectSame(whole, run({"run", "job.yaml", "--jobs", parts}), std::string(parts) + " parts");
    if (!runsInParts())
        return;
    std::mt19937 random(11);
    for (int round = memoryIsOurs ? 0 : 1; round < 2; ++round) {
        const Outcome parts = runCut(random);
        expectSame(whole, parts, "parts that end at " + told);
    }
}

INSTANTIATE_TEST_SUITE_P(Modules, ManifestParallelTest, ::testing::ValuesIn(moduleJobs),
                         [](const auto& row) { return std::string(row.param.module); });

TEST(ManifestParallelTableTest, EveryModuleHasAJob)
{
    const ProcessingTree tree;
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(tree.home() + "/lib")) {
        if (entry.path().extension() != ".yaml")
            continue;
        const std::string name = entry.path().stem();
        if (fs::exists(std::string(VORN_TEST_SOURCE_DIR "/../modules/") + name + "/" + name +
                       ".yaml"))
            names.push_back(name);
    }
    std::vector<std::string> inTable;
    for (const ModuleJob& job : moduleJobs)
        inTable.emplace_back(job.module);
    EXPECT_THAT(inTable, ::testing::UnorderedElementsAreArray(names));
}
