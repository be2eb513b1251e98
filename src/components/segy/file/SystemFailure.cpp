#include "file/SystemFailure.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace VORN {

namespace {

constexpr std::array passing = {ENOSPC,    EDQUOT,    EIO,    ESTALE,       EMFILE, ENFILE,
                                ETIMEDOUT, EHOSTDOWN, ENOMEM, EHOSTUNREACH, ENOLCK, EREMOTEIO};

std::atomic<int> last{0};

} // namespace

std::string systemReason()
{
    const int error = errno;
    if (std::find(passing.begin(), passing.end(), error) != passing.end())
        last.store(error);
    return std::strerror(error);
}

int passingFailure() noexcept
{
    return last.load();
}

} // namespace VORN
