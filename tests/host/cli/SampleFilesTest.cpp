// Real files, and some that were made to be wrong, through the command: headers, picture, quality
// control, and the way from a file to a file. What the files are is written in the README of their
// folder, which VORN_TEST_DATA names; without it the tests are skipped.
#include "ProcessingTree.h"

#include "SegyBytes.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <sstream>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

struct SampleRow
{
    const char* name;
    const char* coding; // as the command prints it
    const char* traces; // likewise
    int count;
    int samples;
    int sampleBytes;
    int extendedHeaders;
    bool little;
    std::vector<std::string> warnings; // parts of what `vorn header` says on standard error
};

const std::vector<std::string> f3Lengths = {
    "states 75 samples per trace, the first trace header 462, and"};

// clang-format off
const std::vector<SampleRow> rows = {
    {"npra_31_81_stack.sgy", "revision 0, big endian, 4-byte IBM float, EBCDIC text",
     "534 of 1501 samples, every 4 ms", 534, 1501, 4, 0, false, {}},
    {"viking_shots.segy", "revision 0, big endian, 4-byte IBM float, EBCDIC text",
     "480 of 600 samples, every 4 ms", 480, 600, 4, 0, false,
     {"states 600 samples per trace, the first trace header 1500, and 1267200 bytes of traces hold "
      "480 traces of 600 samples exactly; read as that"}},
    {"oz16_shot_ieee.sgy", "revision 1, big endian, 4-byte IEEE float, EBCDIC text",
     "48 of 1325 samples, every 4 ms", 48, 1325, 4, 0, false, {}},
    {"f3_crop_int16.sgy", "revision 1, big endian, 2-byte integer, EBCDIC text",
     "414 of 75 samples, every 4 ms", 414, 75, 2, 0, false, f3Lengths},
    {"f3_crop_int16_le.sgy", "revision 1, little endian, 2-byte integer, EBCDIC text",
     "414 of 75 samples, every 4 ms", 414, 75, 2, 0, true, f3Lengths},
    {"f3_crop_ieee.sgy", "revision 1, big endian, 4-byte IEEE float, EBCDIC text",
     "414 of 75 samples, every 4 ms", 414, 75, 4, 0, false, f3Lengths},
    {"lithoprobe_44_trace.sgy", "revision 0, big endian, 4-byte IBM float, EBCDIC text",
     "1 of 2050 samples, every 2 ms", 1, 2050, 4, 0, false, {}},
    {"geometrics_int32_trace.sgy", "revision 0, big endian, 4-byte integer, ASCII text",
     "1 of 8000 samples, every 0.25 ms", 1, 8000, 4, 0, false, {}},
    {"bad_60000_samples.sgy", "revision 0, big endian, 4-byte IBM float, EBCDIC text",
     "3 of 60000 samples, every 1 ms", 3, 60000, 4, 0, false,
     {"states 60000 samples per trace, the first trace header 0",
      "states a sample interval of 1000 microseconds, the first trace header 0",
      "2 of 3 traces state another number of samples than 60000, the first of them trace 2 with 1975",
      "2 of 3 traces state another sample interval than 1000 microseconds",
      "1 of 3 trace headers is empty, all bytes 0, the first of them that of trace 1"}},
    {"bad_truncated.sgy",
     "revision 0, big endian, 4-byte IBM float, EBCDIC text, 2 extended text headers",
     "3 of 4 samples, every 1 ms", 3, 4, 4, 2, false,
     {"states 4 samples per trace, the first trace header 0",
      "the last trace is cut: 68 of its 256 bytes are there; it is left out, and 3 whole traces",
      "states a sample interval of 1000 microseconds, the first trace header 0"}},
};
// clang-format on

const SampleRow& rowOf(const std::string& name)
{
    return *std::find_if(rows.begin(), rows.end(),
                         [&](const SampleRow& row) { return row.name == name; });
}

std::size_t firstTrace(int extendedHeaders)
{
    return 3600 + 3200 * static_cast<std::size_t>(extendedHeaders);
}

struct Range
{
    int64_t lowest;
    int64_t highest;
    bool operator==(const Range&) const = default;
};

// Of a word of the trace headers, by its first byte, counted from 1, and its length.
Range rangeInBytes(const Bytes& file, const SampleRow& row, std::size_t byte, int width)
{
    const auto stride = 240 + static_cast<std::size_t>(row.samples * row.sampleBytes);
    Range range = {INT64_MAX, INT64_MIN};
    for (std::size_t i = 0; i < static_cast<std::size_t>(row.count); ++i) {
        const std::size_t at = firstTrace(row.extendedHeaders) + i * stride + byte - 1;
        const int64_t value = getInteger(file, at, width, row.little);
        range = {std::min(range.lowest, value), std::max(range.highest, value)};
    }
    return range;
}

// The table of `vorn header`: word, minimum, maximum, …
std::map<std::string, Range> rangesPrinted(const std::string& output)
{
    std::map<std::string, Range> ranges;
    std::istringstream lines(output.substr(output.find("\ntrace headers of ")));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream cells(line);
        std::string word;
        Range range;
        if (cells >> word >> range.lowest >> range.highest)
            ranges[word] = range;
    }
    return ranges;
}

Bytes binaryOf(const Bytes& file)
{
    return {file.begin() + 3200, file.begin() + 3600};
}

Bytes tracesOf(const Bytes& file, int extendedHeaders)
{
    return {file.begin() + static_cast<std::ptrdiff_t>(firstTrace(extendedHeaders)), file.end()};
}

class SampleFilesTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (sampleFile(rows.front().name).empty())
            GTEST_SKIP() << "there are no sample files; VORN_TEST_DATA names their folder";
    }

    // Pictures take longer than all the rest.
    ProcessResult runQualityControl(const SampleRow& row, bool withPictures)
    {
        std::vector<std::string> words = {"run",   VORN_TEST_SOURCE_DIR "/../examples/jobs/qc.yaml",
                                          "--set", "read.file=" + sampleFile(row.name),
                                          "--set", "write.file=filtered.sgy"};
        if (withPictures)
            words.insert(words.end(), {"--pictures", "pictures"});
        return tree.run(words);
    }
    ProcessResult copy(const std::string& name, const std::vector<std::string>& more = {})
    {
        tree.write("copy.yaml", "modules:\n"
                                "  - {name: read, module: segy_in, file: line.sgy}\n"
                                "  - {name: write, module: segy_out, input: read, file: x.sgy}\n");
        std::vector<std::string> words = {"run",   "copy.yaml",
                                          "--set", "read.file=" + sampleFile(name),
                                          "--set", "write.file=copy.sgy"};
        words.insert(words.end(), more.begin(), more.end());
        return tree.run(words);
    }

    ProcessingTree tree;
};

} // namespace

TEST_F(SampleFilesTest, HeadersTellHowEachFileIsLaidOut)
{
    for (const SampleRow& row : rows) {
        SCOPED_TRACE(row.name);

        const ProcessResult result = tree.run({"header", sampleFile(row.name)});

        EXPECT_EQ(result.exitCode, 0);
        EXPECT_THAT(result.output, HasSubstr("\ncoding    " + std::string(row.coding) + "\n"));
        EXPECT_THAT(result.output, HasSubstr("\ntraces    " + std::string(row.traces) + "\n"));
        const std::vector<std::string> warnings = linesWith(result.errors, "");
        ASSERT_THAT(warnings, SizeIs(row.warnings.size())) << result.errors;
        for (std::size_t i = 0; i < warnings.size(); ++i)
            EXPECT_THAT(warnings[i], HasSubstr(row.warnings[i]));
    }
}

TEST_F(SampleFilesTest, RangesOfHeaderWordsAreThoseOfTheBytes)
{
    const struct
    {
        const char* key;
        std::size_t byte;
        int width;
    } words[] = {{"tracl", 1, 4},   {"fldr", 9, 4},   {"tracf", 13, 4}, {"cdp", 21, 4},
                 {"offset", 37, 4}, {"sx", 73, 4},    {"gx", 81, 4},    {"scalco", 71, 2},
                 {"delrt", 109, 2}, {"dt", 117, 2},   {"cdpx", 181, 4}, {"cdpy", 185, 4},
                 {"iline", 189, 4}, {"xline", 193, 4}};
    std::string keys;
    for (const auto& word : words)
        keys += (keys.empty() ? "" : ",") + std::string(word.key);
    for (const SampleRow& row : rows) {
        const Bytes bytes = readBytes(sampleFile(row.name));

        const ProcessResult result = tree.run({"header", sampleFile(row.name), "--words", keys});

        const std::map<std::string, Range> printed = rangesPrinted(result.output);
        for (const auto& word : words) {
            ASSERT_EQ(printed.count(word.key), 1u) << row.name << ", " << word.key;
            const Range expected = rangeInBytes(bytes, row, word.byte, word.width);
            EXPECT_EQ(printed.at(word.key).lowest, expected.lowest) << row.name << ", " << word.key;
            EXPECT_EQ(printed.at(word.key).highest, expected.highest)
                << row.name << ", " << word.key;
        }
    }
}

TEST_F(SampleFilesTest, GeometryIsWhatTheFoldersReadmeSays)
{
    const auto ranges = [&](const char* name) {
        return rangesPrinted(tree.run({"header", sampleFile(name)}).output);
    };

    std::map<std::string, Range> shots = ranges("viking_shots.segy");
    EXPECT_EQ(shots["fldr"].highest - shots["fldr"].lowest, 3) << "four shots";
    EXPECT_EQ(shots["tracf"], (Range{1, 120}));
    EXPECT_LT(shots["offset"].highest, 0);
    std::map<std::string, Range> cube = ranges("f3_crop_int16_le.sgy");
    EXPECT_EQ(cube["iline"].highest - cube["iline"].lowest, 22) << "23 in-lines";
    EXPECT_EQ(cube["xline"].highest - cube["xline"].lowest, 17) << "18 cross-lines";
    std::map<std::string, Range> record = ranges("oz16_shot_ieee.sgy");
    EXPECT_EQ(record["tracf"], (Range{1, 48}));
    EXPECT_EQ(record["delrt"], (Range{4, 4}));
    std::map<std::string, Range> stack = ranges("npra_31_81_stack.sgy");
    EXPECT_EQ(stack["cdp"].highest - stack["cdp"].lowest, 533);
}

TEST_F(SampleFilesTest, EachFileBecomesAPicture)
{
    for (const SampleRow& row : rows) {
        SCOPED_TRACE(row.name);

        const ProcessResult result = tree.run({"plot", sampleFile(row.name), "-o", "section.png"});

        EXPECT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(result.output, "section.png\n");
        EXPECT_EQ(problemOfPng(tree.path("section.png")), "");
        EXPECT_THAT(tree.names(), ElementsAre("section.png"));
        std::filesystem::remove(tree.path("section.png"));
    }
}

TEST_F(SampleFilesTest, QualityControlOfEachFileRunsToItsEnd)
{
    for (const SampleRow& row : rows) {
        SCOPED_TRACE(row.name);

        const ProcessResult result = runQualityControl(row, true);

        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_THAT(linesWith(result.errors, " error "), IsEmpty());
        for (const char* picture : {"pictures/check.png", "pictures/raw_section.png",
                                    "pictures/section.png", "pictures/spectrum.png"})
        {
            EXPECT_EQ(problemOfPng(tree.path(picture)), "");
            EXPECT_THAT(linesWith(result.output, picture), SizeIs(1));
        }
        EXPECT_THAT(tree.namesIn("pictures"), SizeIs(4));
        EXPECT_THAT(tree.names(), ElementsAre("filtered.sgy", "pictures"));
        const auto traceBytes = static_cast<std::size_t>(240 + 4 * row.samples);
        EXPECT_EQ(std::filesystem::file_size(tree.path("filtered.sgy")),
                  firstTrace(row.extendedHeaders) +
                      static_cast<std::size_t>(row.count) * traceBytes);
        const ProcessResult headers = tree.run({"header", "filtered.sgy"});
        EXPECT_THAT(linesWith(headers.output, "traces    "),
                    Contains("traces    " + std::string(row.traces)));
        EXPECT_EQ(headers.errors, "") << "the file that was written contradicts itself";
        std::filesystem::remove_all(tree.path("pictures"));
        std::filesystem::remove(tree.path("filtered.sgy"));
    }
}

// A module between reader and writer, with parameters that fit most files. What it cannot do, it
// says in one line.
TEST_F(SampleFilesTest, EachModuleWorksOnEachFile)
{
    const std::map<std::string, std::string> steps = {
        {"agc", "window: 200 ms"},
        {"amplitude_map", "x: tracf, y: fldr"},
        {"autocorrelation", "lag: 40 ms"},
        {"bandpass", "relative: [0.5, 1, 80, 90]"},
        {"combine", "operation: difference"},
        {"fk", "gather: fldr, spacing: 25"},
        {"gain", "time_power: 1"},
        {"header_math", "set: [\"cdpx = (sx + gx) / 2\"]"},
        {"header_plot", "x: tracl"},
        {"header_table", "file: table.csv, words: [fldr, tracf]"},
        {"histogram", "scale: log"},
        {"kill", "traces: 2"},
        {"mute", "offsets: [0, 3000], times: [0 s, 10 ms]"},
        {"nmo", "times: [0 s], velocities: [2000 m/s]"},
        {"resample", "interval: 2 ms"},
        {"section", "mode: wiggle"},
        {"select", "every: 2"},
        {"shift", "time: 1.5 ms"},
        {"slice", "inline_word: fldr, crossline_word: tracf, times: 8 ms"},
        {"sort", "keys: [-tracf]"},
        {"spectrogram", "fmax: 100 Hz"},
        {"spectrum", "tmin: 0 s"},
        {"stack", "key: fldr"},
        {"tee", ""},
        {"trace_qc", "messages: 3"},
        {"window", "end: 40 ms"}};
    const std::vector<std::string> allowed = {
        "window is 0.2 s, and the traces have 0.004 s; give a shorter one", // spectrogram
        "(delrt); give both start and end for such traces",                 // window
        "a picture has at most 20000 lines; name another word"};            // slice
    for (const auto& entry :
         std::filesystem::directory_iterator(VORN_TEST_SOURCE_DIR "/../modules")) {
        const std::string name = entry.path().filename().string();
        const bool isStep = std::filesystem::exists(entry.path() / (name + ".yaml")) &&
                            name != "synthetic" && !name.ends_with("_in") &&
                            !name.ends_with("_out");
        EXPECT_EQ(steps.count(name), isStep ? 1u : 0u) << name;
    }
#ifdef __SANITIZE_ADDRESS__
    std::size_t number = 0;
#endif
    for (const auto& [module, parameters] : steps) {
        for (const SampleRow& row : rows) {
#ifdef __SANITIZE_ADDRESS__
            // Each process takes many times as long: other files for each module, a third of them.
            if (++number % 3 != 0)
                continue;
#endif
            SCOPED_TRACE(module + " on " + row.name);
            const std::string inputs = module == "combine" ? "inputs: [read, read]" : "input: read";
            tree.write("job.yaml", "modules:\n  - {name: read, module: segy_in, file: \"" +
                                       sampleFile(row.name) +
                                       "\"}\n  - {name: step, module: " + module + ", " + inputs +
                                       (parameters.empty() ? "" : ", " + parameters) +
                                       "}\n  - {name: write, module: su_out, input: step, file: "
                                       "o.su}\n");
            const ProcessResult result = tree.run({"run", "job.yaml"});
            const std::vector<std::string> fatal = linesWith(result.errors, " fatal ");
            EXPECT_EQ(result.exitCode, fatal.empty() ? 0 : 1) << result.errors;
            EXPECT_EQ(std::filesystem::exists(tree.path("o.su")), fatal.empty());
            for (const std::string& line : fatal)
                EXPECT_THAT(allowed, Contains(testing::ResultOf(
                                         [&](const std::string& part) {
                                             return line.find(part) != std::string::npos;
                                         },
                                         true)))
                    << line;
            EXPECT_THAT(fatal, SizeIs(testing::Le(1u)));
            for (const char* name : {"o.su", "table.csv"})
                std::filesystem::remove(tree.path(name));
        }
    }
}

TEST_F(SampleFilesTest, OneDataSetInThreeCodingsIsFilteredToTheSameSamples)
{
    std::vector<Bytes> traces;
    for (const char* name : {"f3_crop_int16.sgy", "f3_crop_int16_le.sgy", "f3_crop_ieee.sgy"}) {
        ASSERT_EQ(runQualityControl(rowOf(name), false).exitCode, 0) << name;
        traces.push_back(tracesOf(readBytes(tree.path("filtered.sgy")), 0));
    }
    EXPECT_TRUE(traces[1] == traces[0]);
    EXPECT_TRUE(traces[2] == traces[0]);
}

TEST_F(SampleFilesTest, IbmFilesAreCopiedBitForBit)
{
    for (const char* name :
         {"npra_31_81_stack.sgy", "viking_shots.segy", "lithoprobe_44_trace.sgy"}) {
        const ProcessResult result = copy(name);

        ASSERT_EQ(result.exitCode, 0) << name << "\n" << result.errors;
        const Bytes before = tracesOf(readBytes(sampleFile(name)), 0);
        const Bytes after = tracesOf(readBytes(tree.path("copy.sgy")), 0);
        ASSERT_EQ(after.size(), before.size()) << name;
        const SampleRow& row = rowOf(name);
        const auto traceBytes = static_cast<std::size_t>(240 + 4 * row.samples);
        for (std::size_t i = 0; i < before.size(); ++i) {
            const std::size_t byte = i % traceBytes;
            if (byte == 114) { // the length, which is written as it is
                ASSERT_EQ(getInteger(after, i, 2), row.samples) << name;
            }
            if (byte != 114 && byte != 115) {
                ASSERT_EQ(after[i], before[i]) << name << ", byte " << 3600 + i;
            }
        }
    }
}

TEST_F(SampleFilesTest, TextHeadersAreCopiedByteForByte)
{
    for (const SampleRow& row : rows) {
        const ProcessResult result = copy(row.name);
        ASSERT_EQ(result.exitCode, 0) << row.name << "\n" << result.errors;
        const Bytes before = readBytes(sampleFile(row.name));
        const Bytes after = readBytes(tree.path("copy.sgy"));
        // Its extended text headers need revision 1, which says so on the last two cards; what was
        // there moves to the one before.
        const int cards = row.extendedHeaders > 0 ? 37 : 40;
        EXPECT_TRUE(std::equal(before.begin(), before.begin() + 80 * cards, after.begin()))
            << row.name;
        EXPECT_TRUE(std::equal(before.begin() + 3600,
                               before.begin() + 3600 + 3200 * row.extendedHeaders,
                               after.begin() + 3600))
            << row.name;
    }
}

TEST_F(SampleFilesTest, BinaryHeadersAreCopiedExceptTheWordsOfTheLayout)
{
    for (const SampleRow& row : rows) {
        ASSERT_EQ(copy(row.name).exitCode, 0) << row.name;
        Bytes expected = binaryOf(readBytes(sampleFile(row.name)));
        if (row.little) {
            for (std::size_t at = 0; at < 60; at += at < 12 ? 4 : 2)
                putInteger(expected, at, at < 12 ? 4 : 2,
                           getInteger(expected, at, at < 12 ? 4 : 2, true));
        }
        putInteger(expected, 20, 2, row.samples);
        if (std::string(row.coding).find("float") == std::string::npos)
            putInteger(expected, 24, 2, 5); // integers become IEEE floats
        if (std::string(row.coding).find("revision 1") == 0 || row.extendedHeaders > 0) {
            putInteger(expected, 300, 4, 0x01000001);
            putInteger(expected, 304, 2, row.extendedHeaders);
        }
        const Bytes after = binaryOf(readBytes(tree.path("copy.sgy")));
        for (std::size_t at = 0; at < 400; ++at)
            EXPECT_EQ(after[at], expected[at]) << row.name << ", byte " << 3201 + at;
    }
}

TEST_F(SampleFilesTest, TheBadChannelIsFoundAndNoOther)
{
    const ProcessResult result = runQualityControl(rowOf("oz16_shot_ieee.sgy"), false);

    const std::vector<std::string> warnings = linesWith(result.errors, " warning ");
    ASSERT_THAT(warnings, SizeIs(1)) << result.errors;
    EXPECT_THAT(
        warnings[0],
        HasSubstr(" check       trace 2 of the file, fldr 10016 tracf 2: weak (RMS 0.1031, "));
}

TEST_F(SampleFilesTest, GoodRecordsHaveNoBadChannels)
{
    for (const char* name : {"viking_shots.segy", "npra_31_81_stack.sgy", "f3_crop_int16.sgy"}) {
        const ProcessResult result = runQualityControl(rowOf(name), false);
        EXPECT_THAT(linesWith(result.errors, " warning     check "), IsEmpty()) << name;
    }
}
