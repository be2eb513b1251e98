// Whole outputs of the command, compared with checked-in files.
//
// Each file in expected/ is a case, named by what it shows: its first line is the call, after "$ ",
// the rest is what comes of it. Job files for the calls are in jobs/, data files in data/. What
// differs from run to run (times, memory, places) is replaced. With VORN_UPDATE_EXPECTED set, the
// files are written anew; look at the difference before you keep it.
#include "TestTree.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>

namespace fs = std::filesystem;

namespace {

const std::string expectedDirectory = VORN_TEST_SOURCE_DIR "/host/expected";
const std::string jobDirectory = VORN_TEST_SOURCE_DIR "/host/jobs";
const std::string dataDirectory = VORN_TEST_SOURCE_DIR "/host/data";

std::vector<std::string> caseNames()
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(expectedDirectory)) {
        if (entry.path().extension() == ".txt")
            names.push_back(entry.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The words of a call; single quotes keep blanks together.
std::vector<std::string> wordsOf(const std::string& call)
{
    std::vector<std::string> words(1);
    bool inQuotes = false;
    for (const char c : call) {
        if (c == '\'')
            inQuotes = !inQuotes;
        else if (c == ' ' && !inQuotes)
            words.emplace_back();
        else
            words.back() += c;
    }
    return words;
}

void replaceAll(std::string& text, const std::string& what, const std::string& by)
{
    for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
}

// Lines with measured values, whose columns depend on them.
std::string withoutMeasurements(const std::string& line)
{
    static const std::regex time("\\b[0-9]{2}:[0-9]{2}:[0-9]{2}\\b");
    static const std::regex quantity(
        "\\b[0-9]+(\\.[0-9]+)? (us|ms|s|min|%|B|kB|MB|GB)(?![a-zA-Z])");
    static const std::regex rate("\\b[0-9]+(\\.[0-9]+)? (traces/s|MB/s)");
    static const std::regex blanks(" {2,}");
    static const std::regex tableRow("^.* (us|ms|s|%)  .*$|^module  .*$");
    static const std::regex version("^vorn [0-9]+(\\.[0-9]+)+$");
    static const std::regex stack("^  stack  .*$"); // of the compiler and of addr2line
    static const std::regex pageTitle("^(\\.TH .*\"VORN )[0-9.]+(\" \"VORN\")$");
    if (std::regex_match(line, version))
        return "vorn VERSION";
    if (std::regex_match(line, stack))
        return "  stack  #";
    if (std::regex_search(line, pageTitle))
        return std::regex_replace(line, pageTitle, "$1VERSION$2");
    if (std::regex_match(line, tableRow))
        return std::regex_replace(std::regex_replace(line, quantity, "#"), blanks, "  ");
    if (std::regex_search(line, rate))
        return std::regex_replace(std::regex_replace(line, rate, "# $2"), quantity, "# time");
    return std::regex_replace(line, time, "HH:MM:SS");
}

std::string normalised(std::string text, const TestTree& tree)
{
    replaceAll(text, fs::canonical(tree.work()).string(), "<work>");
    replaceAll(text, tree.work(), "<work>");
    replaceAll(text, tree.home(), "<home>");
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("  lines  ")) // where addr2line is not installed
            continue;
        result += withoutMeasurements(line) + "\n";
    }
    return result;
}

std::string outcome(const std::string& call, const TestTree& tree)
{
    std::vector<std::string> words = wordsOf(call);
    words.erase(words.begin()); // "vorn"
    const ProcessResult result = tree.run(words);
    return "$ " + call + "\nexit code " + std::to_string(result.exitCode) +
           "\n---- standard output\n" + normalised(result.output, tree) + "---- standard error\n" +
           normalised(result.errors, tree);
}

} // namespace

class ExpectedOutputTest : public ::testing::TestWithParam<std::string>
{
};

TEST_P(ExpectedOutputTest, IsWhatTheCommandPrints)
{
    const std::string path = expectedDirectory + "/" + GetParam() + ".txt";
    const std::string expected = readFile(path);
    ASSERT_EQ(expected.substr(0, 7), "$ vorn ") << path;
    const std::string call = expected.substr(2, expected.find('\n') - 2);
    const TestTree tree;
    fs::copy(jobDirectory, tree.work(), fs::copy_options::recursive);
    fs::copy(dataDirectory, tree.path("data"), fs::copy_options::recursive);

    const std::string actual = outcome(call, tree);

    if (std::getenv("VORN_UPDATE_EXPECTED") != nullptr)
        writeFile(path, actual);
    else
        EXPECT_EQ(actual, expected);
}

INSTANTIATE_TEST_SUITE_P(Vorn, ExpectedOutputTest, ::testing::ValuesIn(caseNames()));
