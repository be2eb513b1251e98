/// @file LiveFile.h
///
/// How far a part is, for the process that waits for it.
#ifndef LIVEFILE_H
#define LIVEFILE_H

#include "run/RunRecorder.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace host {

/// Counters of a part that runs, as they were a moment ago.
struct LiveState
{
    int64_t traces = 0;    ///< that have entered the part
    int64_t done = 0;      ///< see LiveCounters
    int64_t announced = 0; ///< likewise
    int64_t bytes = 0;     ///< of memory held
    int64_t seconds = 0;   ///< when this was written, since 1970
    int64_t process = 0;   ///< number of the process on its machine
};

/// As long as it lives, a thread writes the counters to a file five times a second. A file that
/// cannot be written is no error: nothing depends on it.
class LiveFile
{
public:
    /// `counters` must live longer.
    LiveFile(const std::string& path, const LiveCounters& counters);
    ~LiveFile();
    LiveFile(const LiveFile&) = delete;
    LiveFile& operator=(const LiveFile&) = delete;

private:
    void run();
    void write() const;

    const LiveCounters& counters;
    int descriptor;
    std::mutex mutex;
    std::condition_variable wake;
    bool ended = false;
    std::thread thread;
};

/// What the file says; nothing where there is none, or not yet.
std::optional<LiveState> readLiveState(const std::string& path);

} // namespace host

#endif
