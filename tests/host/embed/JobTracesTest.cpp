// Traces of an application in a job file: arrays and functions in the place of modules.
#include "ProcessingTree.h"
#include "embed/vorn_job.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using VORN::Job;
using VORN::JobCollection;
using VORN::JobTrace;
using VORN::JobTraceMaker;
using VORN::JobTraces;
using VORN::RunOutcome;

// Traces whose samples and words tell which they are.
struct Rows
{
    Rows(int traces, int samples) : length(samples)
    {
        for (int i = 0; i < traces; ++i) {
            for (int j = 0; j < samples; ++j)
                values.push_back(static_cast<float>(i + 1) + 0.01F * static_cast<float>(j));
            offsets.push_back(100.0 * (i + 1));
            ensembles.push_back(i / 2 + 1);
        }
    }

    JobTraces traces() const
    {
        return {values, length, 2000, {{"offset", offsets}, {"cdp", ensembles}}};
    }

    // The first samples of the traces, which are their numbers.
    static std::vector<int> numbersIn(const JobCollection& collection)
    {
        std::vector<int> numbers;
        for (std::size_t i = 0; i < collection.samples.size();
             i += static_cast<std::size_t>(collection.traceLength))
            numbers.push_back(static_cast<int>(collection.samples[i]));
        return numbers;
    }

    int length;
    std::vector<float> values;
    std::vector<double> offsets;
    std::vector<double> ensembles;
};

std::vector<int> upTo(int last)
{
    std::vector<int> numbers(static_cast<std::size_t>(last));
    std::iota(numbers.begin(), numbers.end(), 1);
    return numbers;
}

std::string linesOf(const std::vector<VORN::JobDiagnostic>& found)
{
    std::string text;
    for (const VORN::JobDiagnostic& one : found)
        text += one.line + "\n";
    return text;
}

class JobTracesTest : public testing::Test
{
protected:
    Job job(const std::string& modules, const std::string& head = "schema: segy\n")
    {
        return Job::fromText(head + "modules:\n" + modules, tree.path("line.job.yaml"),
                             {tree.home(), {}});
    }

    // The command would run it, if there were a file line.sgy.
    static constexpr const char* line =
        "  - {name: read, module: segy_in, file: line.sgy}\n"
        "  - {name: louder, module: gain, input: read, factor: 2}\n"
        "  - {name: write, module: su_out, input: louder, file: out.su}\n";

    ProcessingTree tree;
};

// ---- What comes out is what went in ----

TEST_F(JobTracesTest, SamplesAndWordsOfArraysPassUnchanged)
{
    Job doubled = job(line);
    // Twice each of these is exact, and has bits that a detour by text or integers would lose.
    const std::vector<float> values = {1e-41F, -0.0F, 0.1F, -1.7e37F, 1.0F / 3, 12345.678F};
    const std::vector<double> offsets = {-2147483648.0, 2147483647.0};
    const std::vector<double> ensembles = {7, 8};
    JobCollection out;
    out.words = {{"offset", {}}, {"cdp", {}}, {"fldr", {}}};
    doubled.setSource("read", JobTraces{values, 3, 250, {{"offset", offsets}, {"cdp", ensembles}}});
    doubled.setSink("write", out);
    EXPECT_EQ(linesOf(doubled.check()), "");

    const VORN::JobResult result = doubled.run();
    ASSERT_EQ(result.error, "");
    EXPECT_EQ(result.outcome, RunOutcome::done);
    EXPECT_EQ(out.count, 2);
    EXPECT_EQ(out.traceLength, 3);
    EXPECT_EQ(out.sampleInterval, 250);
    std::vector<float> expected = values;
    for (float& value : expected)
        value *= 2;
    ASSERT_EQ(out.samples.size(), expected.size());
    EXPECT_EQ(std::memcmp(out.samples.data(), expected.data(), 4 * expected.size()), 0);
    EXPECT_EQ(out.words["offset"], offsets);
    EXPECT_EQ(out.words["cdp"], ensembles);
    EXPECT_THAT(out.words["fldr"], ElementsAre(0, 0)) << "the traces do not have it";
    EXPECT_FALSE(tree.exists("out.su"));
    EXPECT_TRUE(result.outputs.empty());
    ASSERT_EQ(result.modules.size(), 3u);
    EXPECT_EQ(result.modules[0].tracesOut, 2);
    EXPECT_EQ(result.modules[2].tracesIn, 2);
    EXPECT_EQ(result.modules[0].module, "") << "not segy_in";
    EXPECT_EQ(result.modules[1].module, "gain");
}

TEST_F(JobTracesTest, FunctionsMakeAndTakeTraces)
{
    Job sorted = job("  - {name: read, module: segy_in, file: line.sgy}\n"
                     "  - {name: same, module: host_filter, input: read}\n"
                     "  - {name: sort, module: sort, input: same, keys: [-offset]}\n"
                     "  - {name: write, module: segy_out, input: sort, file: out.sgy}\n");
    int asked = 0;
    bool areZeros = true;
    sorted.setSource("read", JobTraceMaker{2,
                                           4000,
                                           {"offset", "cdp"},
                                           [&](std::span<float> samples, std::span<double> words) {
                                               areZeros = areZeros && samples[0] == 0 &&
                                                          samples[1] == 0 && words[0] == 0 &&
                                                          words[1] == 0;
                                               if (++asked > 3)
                                                   return false;
                                               samples[0] = static_cast<float>(asked);
                                               samples[1] = -0.5F;
                                               words[0] = 10 * asked;
                                               words[1] = -asked;
                                               return true;
                                           }});
    std::vector<std::vector<double>> taken;
    sorted.setSink("write",
                   VORN::JobTraceTaker{{"cdp", "offset"}, [&](const JobTrace& trace) {
                                           taken.push_back({trace.samples[0], trace.samples[1],
                                                            trace.values[0], trace.values[1]});
                                           EXPECT_EQ(trace.samples.size(), 2u);
                                           EXPECT_EQ(trace.sampleInterval, 4000);
                                       }});
    ASSERT_EQ(linesOf(sorted.check()), "");
    ASSERT_EQ(sorted.run().error, "");
    // The sort learns of the end although the function knows of it only afterwards.
    EXPECT_THAT(taken, ElementsAre(ElementsAre(3, -0.5, -3, 30), ElementsAre(2, -0.5, -2, 20),
                                   ElementsAre(1, -0.5, -1, 10)));
    EXPECT_EQ(asked, 4);
    EXPECT_TRUE(areZeros);

    taken.clear();
    asked = 0;
    ASSERT_EQ(sorted.run().error, "");
    EXPECT_EQ(taken.size(), 3u) << "a run begins anew";
}

TEST_F(JobTracesTest, EveryReaderOfASourceGetsEveryTraceOnce)
{
    Job split = job("  - {name: read, module: segy_in, file: line.sgy}\n"
                    "  - {name: all, module: su_out, input: read, file: all.su}\n"
                    "  - {name: sorted, module: sort, input: read, keys: [-offset]}\n"
                    "  - {name: late, module: su_out, input: sorted, file: late.su}\n"
                    "  - {name: file, module: su_out, input: read, file: file.su}\n");
    const Rows rows(9, 5);
    JobCollection all;
    JobCollection late;
    split.setSource("read", rows.traces());
    split.setSink("all", all);
    split.setSink("late", late);
    const VORN::JobResult result = split.run();
    ASSERT_EQ(result.error, "");
    EXPECT_EQ(all.samples, rows.values);
    std::vector<int> backwards = upTo(9);
    std::reverse(backwards.begin(), backwards.end());
    EXPECT_EQ(Rows::numbersIn(late), backwards);
    ASSERT_EQ(result.outputs.size(), 1u) << "the sinks of the application are not outputs";
    EXPECT_TRUE(result.outputs[0].written);
    EXPECT_EQ(tree.read("file.su").size(), 9 * (240u + 5 * 4));
}

TEST_F(JobTracesTest, WordsHaveTheTypesOfTheJob)
{
    Job weighed = job("  - {name: read, module: segy_in, file: line.sgy}\n"
                      "  - {name: quality, module: trace_qc, input: read, gather: none}\n"
                      "  - {name: write, module: su_out, input: quality, file: out.su}\n",
                      "schema: [segy, {name: weight, type: float64}]\n");
    const std::vector<float> values = {3, 3, -5, 5};
    const std::vector<double> weights = {0.1, -1e300};
    JobCollection out;
    out.words = {{"weight", {}}, {"qc_rms", {}}};
    weighed.setSource("read", JobTraces{values, 2, 1000, {{"weight", weights}}});
    weighed.setSink("write", out);
    EXPECT_EQ(linesOf(weighed.check()), "");
    ASSERT_EQ(weighed.run().error, "");
    EXPECT_EQ(out.words["weight"], weights);
    EXPECT_THAT(out.words["qc_rms"], ElementsAre(3, 5)) << "which the module writes";
}

TEST_F(JobTracesTest, NoTracesAtAllEndTheJobAsUsual)
{
    for (const char* middle : {"gain", "sort", "agc"}) {
        SCOPED_TRACE(middle);
        Job empty = job(std::string("  - {name: read, module: segy_in, file: line.sgy}\n"
                                    "  - {name: middle, input: read, module: ") +
                        middle + (std::string(middle) == "sort" ? ", keys: [cdp]" : "") +
                        "}\n"
                        "  - {name: write, module: su_out, input: middle, file: out.su}\n");
        JobCollection out;
        out.samples = {1, 2, 3};
        empty.setSink("write", out);
        for (int i = 0; i < 2; ++i) {
            int asked = 0;
            if (i == 0)
                empty.setSource("read", JobTraces{{}, 7, 2000, {{"cdp", {}}}});
            else
                empty.setSource("read", JobTraceMaker{7, 2000, {"cdp"}, [&](auto, auto) {
                                                          ++asked;
                                                          return false;
                                                      }});
            EXPECT_EQ(linesOf(empty.check()), "");
            const VORN::JobResult result = empty.run();
            EXPECT_EQ(result.error, "");
            EXPECT_EQ(result.outcome, RunOutcome::done);
            EXPECT_EQ(out.count, 0);
            EXPECT_TRUE(out.samples.empty());
            EXPECT_EQ(asked, i);
        }
    }
}

// ---- One job, several runs ----

TEST_F(JobTracesTest, AJobRunsAgainWithOtherTracesAndAsItsTextSays)
{
    Job again = job(line);
    JobCollection out;
    out.words["offset"];
    again.setSink("write", out);
    for (const int traces : {4, 4, 2}) {
        const Rows rows(traces, 3);
        again.setSource("read", JobTraces{rows.values, 3, 500, {}}); // what is given last counts
        again.setSource("read", rows.traces());
        ASSERT_EQ(again.run().error, "");
        EXPECT_EQ(out.count, traces);
        EXPECT_EQ(out.words["offset"], rows.offsets);
        EXPECT_EQ(out.sampleInterval, 2000);
    }
    again.restore("read");
    EXPECT_THAT(linesOf(again.check()), HasSubstr("line.sgy")) << "the file that does not exist";
    EXPECT_EQ(again.run().outcome, RunOutcome::notStarted);
    EXPECT_EQ(out.count, 0) << "nothing of the run before";
    EXPECT_TRUE(out.samples.empty());
    EXPECT_TRUE(out.words["offset"].empty());

    const Rows rows(3, 3);
    again.setSource("read", rows.traces());
    again.restore("write");
    ASSERT_EQ(again.run().error, "");
    EXPECT_EQ(tree.read("out.su").size(), 3 * (240u + 3 * 4));
}

TEST_F(JobTracesTest, ProgressKnowsHowManyTracesAnArrayHas)
{
    Job counted = job(line);
    const Rows rows(20, 4);
    JobCollection out;
    counted.setSource("read", rows.traces());
    counted.setSink("write", out);
    VORN::JobProgress last;
    ASSERT_EQ(counted.run({{}, [&](const VORN::JobProgress& one) { last = one; }}).error, "");
    EXPECT_EQ(last.traces, 20);
    EXPECT_EQ(last.share, 1);
}

// ---- Jobs that do not come to their end ----

TEST_F(JobTracesTest, ACancelledJobKeepsWhatCameBefore)
{
    Job endless = job(line);
    int made = 0;
    endless.setSource("read", JobTraceMaker{2, 1000, {}, [&](std::span<float> samples, auto) {
                                                samples[0] = static_cast<float>(++made);
                                                return true;
                                            }});
    int taken = 0;
    endless.setSink("write", VORN::JobTraceTaker{{}, [&](const JobTrace&) {
                                                     if (++taken == 5)
                                                         Job::cancel();
                                                 }});
    EXPECT_EQ(endless.run().outcome, RunOutcome::cancelled);
    EXPECT_EQ(taken, 5);

    JobCollection out;
    made = 0;
    endless.setSink("write", out);
    endless.setSource("read", JobTraceMaker{2, 1000, {}, [&](std::span<float> samples, auto) {
                                                samples[0] = static_cast<float>(++made);
                                                if (made == 8)
                                                    Job::cancel();
                                                return true;
                                            }});
    EXPECT_EQ(endless.run().outcome, RunOutcome::cancelled);
    EXPECT_LT(out.count, 8);
    std::vector<int> doubled;
    for (const int number : upTo(out.count))
        doubled.push_back(2 * number);
    EXPECT_EQ(Rows::numbersIn(out), doubled);

    const Rows rows(3, 2);
    endless.setSource("read", rows.traces());
    EXPECT_EQ(endless.run().error, "");
    EXPECT_EQ(out.count, 3);
}

TEST_F(JobTracesTest, AFailingModuleEndsTheJob)
{
    Job failing =
        job("  - {name: read, module: segy_in, file: line.sgy}\n"
            "  - {name: broken, module: host_filter, input: read, fault: fatal, fault_at: 4}\n"
            "  - {name: write, module: su_out, input: broken, file: out.su}\n"
            "  - {name: beside, module: su_out, input: read, file: beside.su}\n");
    const Rows rows(30, 2);
    JobCollection out;
    failing.setSource("read", rows.traces());
    failing.setSink("write", out);
    VORN::JobResult result = failing.run();
    EXPECT_EQ(result.outcome, RunOutcome::failed);
    EXPECT_THAT(result.error, HasSubstr("broken: "));
    EXPECT_EQ(out.count, 3) << "what the module gave before";
    EXPECT_FALSE(tree.exists("beside.su")) << "no output of a failed job gets its name";

    JobCollection beside;
    failing.setSink("beside", beside);
    result = failing.run();
    EXPECT_EQ(result.outcome, RunOutcome::failed);
    EXPECT_EQ(Rows::numbersIn(beside), upTo(30)) << "other readers get all";

    Job good = job(line);
    good.setSource("read", rows.traces());
    good.setSink("write", out);
    EXPECT_EQ(good.run().error, "");
    EXPECT_EQ(out.count, 30) << "nothing is left of the failed one";
}

TEST_F(JobTracesTest, ExceptionsOfFunctionsAreFailures)
{
    Job throwing = job(line);
    const Rows rows(4, 2);
    JobCollection out;
    throwing.setSink("write", out);
    throwing.setSource("read", JobTraceMaker{2, 1000, {}, [](auto, auto) -> bool {
                                                 throw std::runtime_error("the tape is broken");
                                             }});
    VORN::JobResult result = throwing.run();
    EXPECT_EQ(result.outcome, RunOutcome::failed);
    EXPECT_THAT(result.error, AllOf(HasSubstr("\"read\""), HasSubstr("the tape is broken")));

    throwing.setSource("read", rows.traces());
    throwing.setSink("write", VORN::JobTraceTaker{{}, [](const JobTrace&) { throw 42; }});
    result = throwing.run();
    EXPECT_EQ(result.outcome, RunOutcome::failed);
    EXPECT_THAT(result.error, AllOf(HasSubstr("\"write\""), HasSubstr("not a std::exception")));

    throwing.setSink("write", out);
    EXPECT_EQ(throwing.run().error, "");
    EXPECT_EQ(out.count, 4);
}

// ---- Mistakes ----

TEST_F(JobTracesTest, WrongTracesAreDiagnosticsAndNothingRuns)
{
    const Rows rows(2, 3);
    const std::vector<double> three = {1, 2, 3};
    const std::vector<double> broken = {1, 2.5};
    const std::vector<double> large = {1, 2147483648.0};
    const auto make = [](auto, auto) { return false; };
    JobCollection out;
    JobCollection unknown;
    unknown.words["ofset"];
    JobCollection text;
    text.words["remark"];
    struct Case
    {
        const char* name;
        std::function<void(Job&)> set;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases = {
        {"rows that are not whole",
         [&](Job& one) {
             one.setSource("read", JobTraces{rows.values, 4, 1000, {}});
         },
         {"source \"read\": 6 samples are not a whole number of traces of 4"}},
        {"no length",
         [&](Job& one) {
             one.setSource("read", JobTraces{rows.values, 0, 1000, {}});
         },
         {"source \"read\": traceLength is 0; expected at least 1 sample"}},
        {"negative length and interval",
         [&](Job& one) {
             one.setSource("read", JobTraceMaker{-1, -1, {}, make});
         },
         {"traceLength is -1; expected at least 1 sample",
          "sampleInterval is -1; expected at least 1 microsecond"}},
        {"too many values",
         [&](Job& one) {
             one.setSource("read", JobTraces{rows.values, 3, 1000, {{"offset", three}}});
         },
         {"header word \"offset\" has 3 values, and there are 2 traces; give one for each trace"}},
        {"an unknown word",
         [&](Job& one) {
             one.setSource("read", JobTraces{rows.values, 3, 1000, {{"ofset", rows.offsets}}});
         },
         {"source \"read\": header word \"ofset\": the traces of this job have no attribute of "
          "that "
          "name; did you mean \"offset\"?"}},
        {"a fraction in an integer",
         [&](Job& one) {
             one.setSource("read", JobTraces{rows.values, 3, 1000, {{"cdp", broken}}});
         },
         {"header word \"cdp\": trace 2 has 2.5; it is an integer of 32 bits in this job"}},
        {"a number beyond the range",
         [&](Job& one) {
             one.setSource("read", JobTraces{rows.values, 3, 1000, {{"cdp", large}}});
         },
         {"header word \"cdp\": trace 2 has 2147483648; it is an integer of 32 bits in this job"}},
        {"a word that is named twice",
         [&](Job& one) {
             one.setSource("read", JobTraceMaker{3, 1000, {"cdp", "cdp"}, make});
         },
         {"header word \"cdp\": it is named twice"}},
        {"no functions",
         [&](Job& one) {
             one.setSource("read", JobTraceMaker{3, 1000, {}, {}});
             one.setSink("write", VORN::JobTraceTaker{});
         },
         {"source \"read\": there is no function that makes traces",
          "sink \"write\": there is no function that takes traces"}},
        {"an unknown word of a sink",
         [&](Job& one) { one.setSink("write", unknown); },
         {"sink \"write\": header word \"ofset\": the traces of this job"}},
        {"a text",
         [&](Job& one) { one.setSink("write", text); },
         {"header word \"remark\": it is a text in this job; numbers alone are exchanged"}},
        {"a module that the job does not have",
         [&](Job& one) { one.setSource("raed", rows.traces()); },
         {"source \"raed\": the job has no module \"raed\"; did you mean \"read\"?"}},
        {"a source with an input",
         [&](Job& one) { one.setSource("louder", rows.traces()); },
         {"line.job.yaml:4:34: module \"louder\" has 1 input; expected none: a source of the "
          "application is in its place"}},
        {"a sink that is read",
         [&](Job& one) { one.setSink("louder", out); },
         {"line.job.yaml:5:42: module \"louder\" (a sink of the application in its place) has no "
          "output to connect to"}},
        {"a sink without an input",
         [&](Job& one) { one.setSink("read", out); },
         {"module \"read\" has 0 inputs; expected 1"}},
        {"one collection twice",
         [&](Job& one) {
             one.setSink("write", out);
             one.setSink("other", out);
         },
         {"sink \"write\": its collection is that of the sink \"other\", too; give each sink one "
          "of its own"}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        Job wrong = job(std::string(line) +
                            "  - {name: other, module: su_out, input: louder, file: other.su}\n",
                        "schema: [segy, {name: remark, type: text32}]\n");
        wrong.setSource("read", rows.traces());
        ASSERT_EQ(linesOf(wrong.check()), "");
        one.set(wrong);
        const std::string found = linesOf(wrong.check());
        for (const std::string& expected : one.expected)
            EXPECT_THAT(found, HasSubstr(expected));
        EXPECT_EQ(wrong.run().outcome, RunOutcome::notStarted);
        wrong.setSource("read", rows.traces()); // the right ones mend what wrong ones have caused
        wrong.restore("write");
        wrong.restore("other");
        wrong.restore("louder");
        wrong.restore("raed");
        EXPECT_EQ(linesOf(wrong.check()), "");
    }
}

// What stands in the text for the command does not matter where the application has its own.
TEST_F(JobTracesTest, ReplacedModulesNeedNeitherFilesNorALibrary)
{
    Job elsewhere = job("  - {name: read, module: tape_reader, tape: 17}\n"
                        "  - {name: louder, module: gain, input: read, factor: 2}\n"
                        "  - {name: write, module: segy_out, input: louder, file: no/such/o.sgy, "
                        "wrong: yes}\n");
    EXPECT_THAT(linesOf(elsewhere.check()),
                AllOf(HasSubstr("tape_reader"), HasSubstr("no/such"), HasSubstr("wrong")));
    const Rows rows(2, 3);
    JobCollection out;
    elsewhere.setSource("read", rows.traces());
    elsewhere.setSink("write", out);
    EXPECT_EQ(linesOf(elsewhere.check()), "");
    EXPECT_EQ(elsewhere.run().error, "");
    EXPECT_EQ(out.count, 2);

    Job unread = job("  - {name: read, module: segy_in, file: line.sgy}\n"
                     "  - {name: make, module: synthetic}\n"
                     "  - {name: write, module: su_out, input: make, file: out.su}\n");
    unread.setSource("read", rows.traces());
    EXPECT_THAT(linesOf(unread.check()),
                HasSubstr("module \"read\" would never run: nothing reads its output"));
}

// Words that the job maps for its readers have the types of the map, whoever makes the traces.
TEST_F(JobTracesTest, WordsThatTheJobMapsStayDefined)
{
    Job mapped = job(line, "words: {depth: {byte: 233, type: ieee}}\n");
    const Rows rows(2, 3);
    const std::vector<double> depths = {0.25, -7.5};
    JobCollection out;
    out.words["depth"];
    mapped.setSource("read", JobTraces{rows.values, 3, 1000, {{"depth", depths}}});
    mapped.setSink("write", out);
    EXPECT_EQ(linesOf(mapped.check()), "");
    EXPECT_EQ(mapped.run().error, "");
    EXPECT_EQ(out.words["depth"], depths);

    Job wrong = job(line, "words: {depth: {byte: 233, type: float}}\n");
    wrong.setSource("read", rows.traces());
    EXPECT_THAT(linesOf(wrong.check()), HasSubstr("line.job.yaml:1:8"));
}

} // namespace
