#include "run/ThrowWatch.h"

#include <unwind.h>

namespace host {

namespace {

constexpr int mostNoted = 100;

// The last exception that was noted, by the thread that is watched.
struct Noted
{
    const void* object = nullptr;
    std::array<uintptr_t, 32> codes = {};
    std::size_t count = 0;
};
Noted noted;
int notedCount = 0;
KeptThrow kept;

_Unwind_Reason_Code takeCall(_Unwind_Context* context, void*)
{
    const uintptr_t code = _Unwind_GetIP(context);
    if (code == 0 || noted.count == noted.codes.size())
        return _URC_END_OF_STACK;
    noted.codes[noted.count++] = code;
    return _URC_NO_REASON;
}

} // namespace

void noteThrow(const void* object) noexcept
{
    if (runningCode().entry == EntryPoint::none)
        return;
    noted.object = nullptr;
    if (notedCount >= mostNoted)
        return;
    ++notedCount;
    noted.object = object;
    noted.count = 0;
    _Unwind_Backtrace(takeCall, nullptr);
}

void keepThrow(const void* object) noexcept
{
    kept.running = runningCode();
    kept.count = noted.object == object ? noted.count : 0;
    kept.codes = noted.codes;
    noted.object = nullptr;
}

void forgetThrows() noexcept
{
    kept = {};
}

const KeptThrow& keptThrow() noexcept
{
    return kept;
}

} // namespace host
