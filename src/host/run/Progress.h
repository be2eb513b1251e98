/// @file Progress.h
///
/// How far a job is, shown while it runs.
#ifndef PROGRESS_H
#define PROGRESS_H

#include "run/Console.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace host {

/// A moment of a running job.
struct ProgressState
{
    const char* phase = ""; ///< "preparing", "processing", "finishing"
    double seconds = 0;     ///< since processing began
    int64_t traces = 0;     ///< that entered the job
    int64_t done = 0;       ///< of the announced traces, those that have passed
    int64_t announced = 0;  ///< 0: no module has announced any
    int64_t bytes = 0;      ///< of memory held by the job
    std::string module;     ///< whose code runs, quoted; "" for none
    std::string place;      ///< where in it: "in process_, trace 17 of its input"
    double callSeconds = 0; ///< for which this call has been seen running
};

/// One line of at most `width` columns: bar, percent and time left where a total was announced,
/// then traces, rate and memory.
std::string progressBar(const ProgressState& state, int width);
/// The same facts without a bar, for logs.
std::string progressText(const ProgressState& state);

/// How the progress is shown.
enum class ProgressMode
{
    none,
    bar,  ///< the changing line of a terminal, several times a second
    lines ///< a line every `lineSeconds` seconds
};

/// Shows the state again and again from a thread of its own, so that a module that works for
/// minutes on one trace does not stop the clock. `read` is called on that thread.
class Progress
{
public:
    /// Starts the thread. `console` must live longer.
    Progress(Console& console, ProgressMode mode, double lineSeconds,
             std::function<ProgressState()> read);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Removes the line; nothing is shown any more.
    void stop();

private:
    void show();
    void run();

    Console& console;
    ProgressMode mode;
    double lineSeconds;
    std::function<ProgressState()> read;
    std::mutex mutex;
    std::condition_variable wake;
    bool ended = false;
    std::thread thread;
};

} // namespace host

#endif
