#include "base/Portable.h"

#include "base/Programs.h"

#include <cstdlib>
#include <cstring>
#include <string>

namespace host {

namespace {

constexpr const char* mark = "VORN_PORTABLE";
constexpr const char* tunables = "GLIBC_TUNABLES";
// What the mathematical functions of glibc look at.
constexpr const char* withoutVectors = "glibc.cpu.hwcaps=-AVX,-AVX2,-AVX512F,-FMA,-FMA4";

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
    const char* former = std::getenv(tunables);
    const std::string all = former == nullptr || *former == 0
                                ? withoutVectors
                                : std::string(former) + ":" + withoutVectors;
    setenv(tunables, all.c_str(), 1);
    setenv(mark, "1", 1);
    startAgain();
}

} // namespace host
