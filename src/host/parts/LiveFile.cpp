#include "parts/LiveFile.h"

#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace host {

LiveFile::LiveFile(const std::string& path, const LiveCounters& live)
    : counters(live),
      descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)),
      thread([this] { run(); })
{
}

LiveFile::~LiveFile()
{
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
    }
    wake.notify_all();
    thread.join();
    write();
    if (descriptor >= 0)
        close(descriptor);
}

void LiveFile::run()
{
    constexpr std::chrono::milliseconds period(200);
    std::unique_lock<std::mutex> lock(mutex);
    while (!wake.wait_for(lock, period, [this] { return ended; }))
        write();
}

void LiveFile::write() const
{
    constexpr auto relaxed = std::memory_order_relaxed;
    LiveState state;
    state.traces = counters.traces.load(relaxed);
    state.done = counters.done.load(relaxed);
    state.announced = counters.announced.load(relaxed);
    state.bytes = counters.bytes.load(relaxed);
    state.seconds = static_cast<int64_t>(std::time(nullptr));
    state.process = getpid();
    if (descriptor >= 0)
        static_cast<void>(pwrite(descriptor, &state, sizeof state, 0) == sizeof state);
}

std::optional<LiveState> readLiveState(const std::string& path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return std::nullopt;
    LiveState state;
    const bool whole = pread(file, &state, sizeof state, 0) == sizeof state;
    close(file);
    return whole ? std::optional(state) : std::nullopt;
}

} // namespace host
