// Runs a fuzz target without a fuzzer: every file in the directories on the command line, as it is
// and cut at many places. Whatever once stopped a target stops it here again.
#include "FuzzInput.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

constexpr std::size_t mostCuts = 64;

std::vector<uint8_t> contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// In a block of its own, so that a read beyond the end is one beyond the block.
void run(const std::vector<uint8_t>& content, std::size_t size)
{
    const std::vector<uint8_t> input(content.begin(),
                                     content.begin() + static_cast<std::ptrdiff_t>(size));
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

int runWithCuts(const std::vector<uint8_t>& content)
{
    run(content, content.size());
    int runs = 1;
    const std::size_t step = std::max<std::size_t>(1, content.size() / mostCuts);
    for (std::size_t size = 0; size < content.size(); size += step) {
        run(content, size);
        ++runs;
    }
    return runs;
}

} // namespace

int main(int argc, char** argv)
{
    int files = 0;
    int runs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : fs::directory_iterator(argv[i])) {
            // Before the run: the name of the file that stops it is the last that is printed.
            std::printf("%s\n", entry.path().filename().c_str());
            std::fflush(stdout);
            runs += runWithCuts(contentOf(entry.path()));
            ++files;
        }
    }
    std::printf("%d files, %d runs\n", files, runs);
    return files > 0 ? 0 : 1; // a test without inputs has tested nothing
}
