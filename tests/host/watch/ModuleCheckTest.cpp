// "vorn run --check-modules": mistakes of modules, and what their authors are told.
#include "ProcessingTree.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Json = nlohmann::json;

constexpr char source[] =
    "  - {name: source, module: synthetic, shots: 1, channels: 5, samples: 50}\n";

struct Mistake
{
    const char* name;
    const char* kind; // in the JSON facts
    const char* text; // a part of what is told
};

// What ends no process: all of them are made in one job, each by a module of its own.
constexpr Mistake mistakes[] = {
    {"null_handle", "null_handle", "passes a null handle for a trace set: check"},
    {"channel_not_there", "null_handle", "has asked for input 1, and 0 to 0 are connected"},
    {"negative_channel", "channel_number",
     "asks for channel -1: channels and work buffers are counted from 0 in C"},
    {"handle_of_another_module", "foreign_handle", "passes a handle of module \"none\""},
    {"input_trace_counted_from_1", "made_input",
     "asks for trace 1 of input 0, which has 1 trace: the trace is made there"},
    {"output_trace_counted_from_1", "skipped_output", "which has 1 trace: those before it"},
    {"negative_trace", "trace_number",
     "asks for trace -1 of input 0: traces are counted from 0 in C"},
    {"copy_of_a_trace_that_is_not_there", "missing_source",
     "copies or moves trace 0 of work buffer 0, which has 0 traces"},
    {"overrun_by_4_bytes", "overrun",
     "writes 4 bytes behind the end of a block of 200 bytes, as of 50 samples"},
    {"overrun_by_64_bytes", "overrun", "writes 64 bytes behind the end of a block of 200 bytes"},
    {"underrun_by_4_bytes", "underrun", "writes 4 bytes in front of a block of 200 bytes"},
    {"overrun_of_memory", "overrun", "writes 8 bytes behind the end of memory of 40 bytes"},
    {"write_after_the_call", "use_after_free", "writes 4 bytes to a block of 200 bytes"},
    {"read_after_the_call", "not_finite", "gives a sample that is not a number, sample 0"},
    {"read_behind_the_end", "not_finite", "gives a sample that is not a number, sample 0"},
    {"write_after_free", "use_after_free",
     "writes 4 bytes to memory of 40 bytes after it was freed"},
    {"free_twice", "freed_twice", "frees memory that it has freed before"},
    {"memory_left", "memory_left", "leaves 40 bytes of memory in 1 block"},
    {"traces_left", "traces_left", "leaves 3 traces in its work buffers: call"},
    {"not_a_number", "not_finite", "gives a sample that is not a number, sample 7"},
    {"infinite", "not_finite", "gives a sample that is infinite, sample 7"},
    {"changed_samples", "input_changed", "changes the samples of the trace of its input 0"},
    {"changed_header", "input_changed", "changes the header of the trace of its input 0"},
    {"changed_flag", "input_changed", "changes the flag of the trace of its input 0"},
    {"empty_input", "made_input", "which has 0 traces: the trace is made there"},
    {"undeclared_parameter", "undeclared_parameter",
     "reads the parameter \"numbr\", which its manifest does not declare; did you mean "
     "\"number\"?"},
    {"parameter_not_read", "unread_parameter", "has never read the parameter \"number\""},
    {"int_getter_of_a_float", "wrong_getter",
     "by knl_getI32ModuleParameter, which cuts off the fraction"},
    {"text_getter_of_a_float", "wrong_getter",
     "by knl_getStrModuleParameter, which gives digits as text"},
    {"scalar_getter_of_a_list", "wrong_getter", "which gives no list"},
    {"float_array_of_an_int_list", "wrong_getter",
     "by knl_getF32ArrayModuleParameter, which gives nothing: the list comes as I32 numbers"},
    {"undeclared_attribute", "undeclared_attribute", "writes the trace attribute \"cdp\""},
    {"attribute_that_nobody_writes", "missing_attribute", "reads the trace attribute \"ofset\""},
    {"thread", "thread", "calls the kernel from another thread"},
    {"empty_message", "message_text", "sends a message without a text"},
    {"message_of_two_lines", "message_text", "sends a message of several lines"},
    {"message_in_Latin-1", "message_text", "with bytes that are not UTF-8"},
    {"type_of_message", "message_type", "sends a message of type 9"},
};

class ModuleCheckTest : public testing::Test
{
protected:
    ModuleCheckTest()
    {
        for (const char* name : {"mistakes", "mistakes_fortran", "end_process", "fortran_stop"}) {
            const std::string library = "lib" + std::string(name) + ".so";
            std::filesystem::create_symlink(VORN_TEST_HOME "/lib/" + library,
                                            tree.home() + "/lib/" + library);
        }
        writeFile(tree.home() + "/lib/mistakes.yaml",
                  "module: mistakes\n"
                  "purpose: Makes a mistake\n"
                  "inputs: {min: 1, max: 1}\n"
                  "outputs: {min: 1, max: 1}\n"
                  "parameters:\n"
                  "  - {name: mistake, type: text, required: true, help: Which one}\n"
                  "  - {name: number, type: float, default: 1.5, help: A number}\n"
                  "  - {name: list, type: int_list, default: [1, 2], help: Numbers}\n"
                  "reads: [offset]\n"
                  "writes: []\n"
                  "draws: none\n");
    }

    ProcessResult run(const std::string& modules, std::vector<std::string> more = {}) const
    {
        tree.write("job.yaml", "modules:\n" + std::string(source) + modules);
        std::vector<std::string> words = {"run", "job.yaml", "-q", "--check-modules"};
        words.insert(words.end(), more.begin(), more.end());
        return tree.run(words);
    }

    // One module between the source and a file.
    ProcessResult make(const std::string& module) const
    {
        return run("  - {name: bad, input: source, module: " + module +
                       "}\n"
                       "  - {name: write, input: bad, module: su_out, file: o.su}\n",
                   {"--time-limit", "20 s"});
    }

    Json findings() const { return Json::parse(tree.read("run.json")).at("findings"); }

    ProcessingTree tree;
};

} // namespace

TEST_F(ModuleCheckTest, EachMistakeIsToldWithModulePlaceAndFunction)
{
    std::string modules = "  - {name: none, module: mistakes, input: source, mistake: none}\n";
    for (const Mistake& mistake : mistakes)
        modules += "  - {name: " + std::string(mistake.name) +
                   ", module: mistakes, input: source, mistake: " + mistake.name + "}\n";
    const ProcessResult result = run(modules, {"--json", "run.json"});
    EXPECT_EQ(result.exitCode, 1);

    const Json found = findings();
    for (const Mistake& mistake : mistakes) {
        std::vector<Json> own;
        for (const Json& finding : found) {
            if (finding.at("module") == mistake.name)
                own.push_back(finding);
        }
        ASSERT_EQ(own.size(), 1u) << mistake.name << '\n' << result.errors;
        EXPECT_EQ(own.front().at("kind"), mistake.kind) << mistake.name;
        EXPECT_THAT(own.front().at("text").get<std::string>(), HasSubstr(mistake.text))
            << mistake.name;
        EXPECT_THAT(linesWith(result.errors, "module \"" + std::string(mistake.name) + "\" "),
                    Not(IsEmpty()));
    }
    EXPECT_EQ(found.size(), std::size(mistakes)) << result.errors; // and none by "none"
    EXPECT_THAT(result.errors,
                HasSubstr("vorn: module \"empty_input\" asks for trace 0 of input 0, which has 0 "
                          "traces: the trace is made there, and goes through the job as data; ask "
                          "for the number of traces first, and set the keep flag of an empty input "
                          "(knl_getTraceSamples, in process_, after trace 5 of its input)\n"));
    EXPECT_THAT(result.errors,
                HasSubstr("vorn: 5 times: module \"not_a_number\" gives a sample that is not a "
                          "number, sample 7 of a trace of output 0 (both counted from 0), and "));
    EXPECT_THAT(result.errors, HasSubstr("vorn: the check of the modules has found 38 mistakes"));
}

TEST_F(ModuleCheckTest, CallsThatWouldCrashEndTheProcessWhenTheyAreTold)
{
    constexpr Mistake fatal[] = {
        {"no_handle_at_all", "passes a handle that is not a trace set of this job",
         "vorn: module \"bad\" passed a handle that is not a trace set in process_, trace 1 of its "
         "input; the kernel would have crashed on it\n"},
        {"freed_list", "passes a list of attributes that it has freed",
         "passed a handle that is not a list of attributes in process_, trace 1"},
        {"free_of_malloc", "frees memory that knl_allocateResource did not give",
         "frees memory that is not its own in process_, trace 1 of its input"},
        {"free_of_samples", "frees memory of a trace, which belongs to the kernel",
         "frees memory that is not its own in process_, trace 1 of its input"},
    };
    for (const Mistake& mistake : fatal) {
        const ProcessResult result = make("mistakes, mistake: " + std::string(mistake.name));
        EXPECT_EQ(result.exitCode, 1) << mistake.name;
        EXPECT_THAT(result.errors, HasSubstr(mistake.kind)) << mistake.name;
        EXPECT_THAT(result.errors, HasSubstr(mistake.text)) << mistake.name;
    }
}

TEST_F(ModuleCheckTest, NumbersOfFortranModulesAreCountedFromOne)
{
    const ProcessResult channel = make("mistakes_fortran, mistake: channel");
    EXPECT_EQ(channel.exitCode, 1);
    EXPECT_THAT(channel.errors,
                HasSubstr("asks for channel 0: channels and work buffers are counted from 1 in "
                          "Fortran (knl_getinputtracebuffer_, in process_, trace 1 of its input)"));
    const ProcessResult trace = make("mistakes_fortran, mistake: trace");
    EXPECT_EQ(trace.exitCode, 1);
    EXPECT_THAT(trace.errors,
                HasSubstr("asks for trace 0 of input 1: traces are counted from 1 in Fortran"));
}

// These need no check; its run tells them as every other one does. DeadlockTest has the ends of
// data that are never marked.
TEST_F(ModuleCheckTest, EndsOfTheProcessAndOfTheDataAreToldAsInEveryRun)
{
    struct End
    {
        const char* module;
        int exitCode;
        const char* text;
    };
    constexpr End ends[] = {
        {"end_process, how: exit, with: 0, where: process, at: 3", 1,
         "module \"bad\" ended the process in process_, trace 3 of its input by exit with exit "
         "code 0; modules must report errors by messages\n"},
        {"end_process, how: _exit, with: 0, where: process, at: 3", 1, "by _exit with exit code 0"},
        {"end_process, how: pthread_exit, where: process, at: 3", 1,
         "module \"bad\" ended the thread of the job in process_, trace 3 of its input"},
        {"end_process, how: raise, with: 6, where: process, at: 3", 134,
         "module \"bad\" crashed in process_, trace 3 of its input (SIGABRT)"},
        {"fortran_stop", 1, "in process_, trace 1 of its input by exit with exit code 0"},
        {"fortran_stop, error: 1", 1, "by exit with exit code 3"},
        {"host_throw", 1, "ended with an exception that it does not handle: no luck today"},
    };
    for (const End& end : ends) {
        const std::string job = end.module;
        const ProcessResult result =
            job == "host_throw" ? run("  - {name: bad, input: source, module: host_throw}\n")
                                : make(job);
        EXPECT_EQ(result.exitCode, end.exitCode) << job << '\n' << result.errors;
        EXPECT_THAT(result.errors, HasSubstr(end.text)) << job;
    }
}

TEST_F(ModuleCheckTest, AnEndlessLoopIsToldWhenTheTimeHasPassed)
{
    const ProcessResult result = run("  - {name: bad, input: source, module: end_process, how: "
                                     "loop, with: 0, where: process, at: 3}\n",
                                     {"--time-limit", "0.5 s"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, HasSubstr("module \"bad\" was running in process_, trace 3"));
}

// With more memory than is kept apart when it is freed.
TEST_F(ModuleCheckTest, ResultsAreThoseOfAnOrdinaryRun)
{
    tree.write("long.yaml", R"(modules:
  - {name: shots, module: synthetic, shots: 4, channels: 100, samples: 1500}
  - {name: filtered, module: bandpass, input: shots, corners: [15, 22, 60, 80]}
  - {name: level, module: agc, input: filtered, window: 0.5 s}
  - {name: write, module: segy_out, input: level, file: o.sgy}
)");
    const ProcessResult plain = tree.run({"run", "long.yaml", "-q", "--json", "plain.json"});
    ASSERT_EQ(plain.exitCode, 0) << plain.errors;
    const std::string traces = tree.read("o.sgy");
    EXPECT_FALSE(Json::parse(tree.read("plain.json")).contains("findings"));

    const ProcessResult checked = tree.run({"run", "long.yaml", "--check-modules"});
    EXPECT_EQ(checked.exitCode, 0) << checked.errors;
    EXPECT_THAT(checked.errors, HasSubstr("vorn: the check of the modules has found nothing\n"));
    EXPECT_TRUE(tree.read("o.sgy") == traces);
}

// A module may have several traces of its input at once. Those that it has taken out are its own.
TEST_F(ModuleCheckTest, AllInputTracesThatAModuleGetsAtAreCompared)
{
    constexpr Mistake changes[] = {
        {"changed_samples_of_a_later_trace", "samples",
         "changes the samples of trace 2 of its input 0 (both counted from 0)"},
        {"copy_to_a_later_trace", "samples", "changes the samples of trace 2 of its input 0"},
        {"cleared_later_trace", "samples", "changes the samples of the trace of its input 0"},
        {"cleared_later_trace", "header", "changes the header of the trace of its input 0"},
        {"changed_header_of_a_later_trace", "header",
         "changes the header of trace 1 of its input 0 (both counted from 0)"},
        {"changed_flag_of_a_later_trace", "flag", "changes the flag of trace 2 of its input 0"},
    };
    std::string modules;
    std::set<std::string> names = {"later_trace_that_goes"};
    for (const Mistake& change : changes)
        names.insert(change.name);
    for (const std::string& name : names)
        modules +=
            "  - {name: three_" + name +
            ", module: mistakes, input: source, mistake: none_gives_three}\n  - {name: " + name +
            ", module: mistakes, input: three_" + name + ", mistake: " + name + "}\n";
    const ProcessResult result = run(modules, {"--json", "run.json"});
    EXPECT_EQ(result.exitCode, 1);
    const Json found = findings();
    EXPECT_EQ(found.size(), std::size(changes)) << result.errors;
    for (const Mistake& change : changes) {
        const bool isFound = std::any_of(found.begin(), found.end(), [&](const Json& finding) {
            return finding.at("module") == change.name && finding.at("kind") == "input_changed" &&
                   finding.at("text").get<std::string>().starts_with(change.text);
        });
        EXPECT_TRUE(isFound) << change.name << ", " << change.kind << '\n' << result.errors;
    }
    EXPECT_THAT(result.errors,
                HasSubstr("vorn: 3 times: module \"cleared_later_trace\" changes the samples"));
}

TEST_F(ModuleCheckTest, ACheckedRunCanBeRecorded)
{
    const std::string nan = "gives a sample that is not a number";
    const auto record = [&](const std::vector<std::string>& more) {
        return run("  - {name: bad, input: source, module: mistakes, mistake: not_a_number}\n"
                   "  - {name: write, input: bad, module: su_out, file: o.su}\n",
                   more);
    };
    const std::vector<std::string> mistake = linesWith(record({}).errors, nan);
    ASSERT_EQ(mistake.size(), 2U);
    EXPECT_THAT(mistake.back(), HasSubstr("vorn: 5 times: "));

    const ProcessResult checked = record({"--record", "bad=bad.record"});
    EXPECT_EQ(checked.exitCode, 1) << checked.errors;
    EXPECT_EQ(linesWith(checked.errors, nan), mistake);
    const ProcessResult replayed = tree.run({"replay", "bad.record"});
    EXPECT_EQ(replayed.exitCode, 0) << replayed.output << replayed.errors;
    EXPECT_THAT(replayed.output, HasSubstr("7 calls of entry points"));
    EXPECT_THAT(replayed.output, HasSubstr("no difference"));

    // The check goes on when the record is full.
    const ProcessResult full = record({"--record", "bad=bad.record", "--record-traces", "1"});
    EXPECT_EQ(linesWith(full.errors, nan), mistake);
    const ProcessResult begun = tree.run({"replay", "bad.record"});
    EXPECT_THAT(begun.output, HasSubstr("2 calls of entry points")) << begun.errors;
    EXPECT_THAT(begun.output, HasSubstr("no difference"));
}

TEST_F(ModuleCheckTest, SeveralProcessesAreRefused)
{
    for (const char* option : {"--each=x/*.sgy", "--jobs=2"}) {
        const ProcessResult result = run("", {option});
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_THAT(result.errors, HasSubstr("--check-modules: looks at the modules of one "
                                             "process; leave out " +
                                             std::string(option).substr(0, 6)));
    }
}

// A finding here is a mistake of the module, or of the check.
TEST_F(ModuleCheckTest, ShippedModulesMakeNoMistakes)
{
    for (const char* name : {"line.sgy", "line.su"})
        std::filesystem::copy_file(std::string(VORN_TEST_SOURCE_DIR "/host/data/") + name,
                                   tree.path(name));
    const ProcessResult result = run(R"(
  - {name: read, module: segy_in, file: line.sgy}
  - {name: su, module: su_in, file: line.su}
  - {name: agc, module: agc, input: source, window: 100 ms}
  - {name: amplitude_map, module: amplitude_map, input: source, bin: 25, x: sx, y: gx}
  - {name: autocorrelation, module: autocorrelation, input: source, lag: 40 ms}
  - {name: bandpass, module: bandpass, input: source, corners: [15, 22, 60, 80]}
  - {name: combine, module: combine, inputs: [source, bandpass], operation: difference,
     keys: [fldr, tracf]}
  - {name: fk, module: fk, input: source, filter: reject, velocities: [0, 1200]}
  - {name: gain, module: gain, input: agc, factor: 2}
  - {name: header_math, module: header_math, input: source, set: "cdpx = (sx + gx) / 2"}
  - {name: header_plot, module: header_plot, input: source, x: tracf, y: offset}
  - {name: header_table, module: header_table, input: trace_qc, file: t.csv, words: [fldr, qc_rms]}
  - {name: histogram, module: histogram, input: source}
  - {name: trace_qc, module: trace_qc, input: source}
  - {name: last_qc, module: trace_qc, input: su}
  - {name: kill, module: kill, input: trace_qc, flags: [noisy]}
  - {name: mute, module: mute, input: source, offsets: [0, 100], times: [10 ms, 90 ms]}
  - {name: sort, module: sort, input: source, keys: [cdp, offset]}
  - {name: nmo, module: nmo, input: sort, times: [0 s], velocities: [1800]}
  - {name: stack, module: stack, input: nmo}
  - {name: resample, module: resample, input: source, interval: 8 ms}
  - {name: section, module: section, input: source, gather: fldr}
  - {name: select, module: select, input: source, where: tracf < 4}
  - {name: shift, module: shift, input: source, time: 12.5 ms}
  - {name: numbered, module: header_math, input: source, set: ["iline = fldr", "xline = tracf"]}
  - {name: slice, module: slice, input: numbered, times: [50 ms]}
  - {name: spectrogram, module: spectrogram, input: source, traces: "1"}
  - {name: spectrum, module: spectrum, inputs: [source, bandpass]}
  - {name: tee, module: tee, input: source}
  - {name: window, module: window, input: tee.1, start: 20 ms, end: 100 ms}
  - {name: write, module: segy_out, input: read, file: o.sgy}
  - {name: su_write, module: su_out, input: stack, file: o.su}
)",
                                     {"--json", "run.json"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(findings(), Json::array()) << result.errors;

    // Every shipped module is in the job.
    const std::string job = tree.read("job.yaml");
    for (const auto& entry :
         std::filesystem::directory_iterator(VORN_TEST_SOURCE_DIR "/../modules")) {
        const std::string name = entry.path().filename();
        if (std::filesystem::exists(entry.path() / (name + ".yaml"))) {
            EXPECT_THAT(job, HasSubstr("module: " + name + ","));
        }
    }
}
