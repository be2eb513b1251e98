#include "base/Portable.h"

#include "base/CommandError.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace host {

namespace {

constexpr const char* mark = "VORN_PORTABLE";
constexpr const char* tunables = "GLIBC_TUNABLES";
// What the mathematical functions of glibc look at.
constexpr const char* withoutVectors = "glibc.cpu.hwcaps=-AVX,-AVX2,-AVX512F,-FMA,-FMA4";

// As the kernel has them: modules may have been named with any bytes but zero.
std::vector<std::string> ownWords()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    std::vector<std::string> words;
    std::istringstream rest(bytes.str());
    for (std::string word; std::getline(rest, word, '\0');)
        words.push_back(word);
    return words;
}

} // namespace

bool isPortable()
{
    const char* told = std::getenv(tunables);
    return std::getenv(mark) != nullptr && told != nullptr &&
           std::strstr(told, withoutVectors) != nullptr;
}

void becomePortable()
{
    if (isPortable())
        return;
    std::vector<std::string> words = ownWords();
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const char* former = std::getenv(tunables);
    const std::string all = former == nullptr || *former == 0
                                ? withoutVectors
                                : std::string(former) + ":" + withoutVectors;
    setenv(tunables, all.c_str(), 1);
    setenv(mark, "1", 1);
    execv("/proc/self/exe", pointers.data());
    throw CommandError(std::string("the program could not be started again: ") +
                       std::strerror(errno));
}

} // namespace host
