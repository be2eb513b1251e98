/// @file Console.h
///
/// The output of a running job: lines on standard error and in a log file, and on a terminal a last
/// line that changes.
#ifndef CONSOLE_H
#define CONSOLE_H

#include "base/LogFile.h"

#include <cstdio>
#include <mutex>
#include <optional>
#include <string>

namespace host {

/// May be used by several threads. Texts are shown as they are: escape what comes from elsewhere.
class Console
{
public:
    Console() = default;
    ~Console() { status(""); }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Opens the log file (see LogFile). Throws CommandError.
    void openLog(const std::string& path);
    /// Ends the log. Returns what has gone wrong with it as one sentence, or "".
    std::string closeLog();

    /// From now on results go to standard error: the job's data go to standard output.
    void leaveStandardOutput() { resultStream = stderr; }

    /// A line on standard error and in the log.
    void line(const std::string& text);
    /// A line in the log only.
    void logLine(const std::string& text);
    /// A text of several lines on standard output and in the log. In the log only where the process
    /// was started without standard output.
    void result(const std::string& text);

    /// Replaces the line at the bottom of the terminal; "" removes it.
    void status(const std::string& text);

    /// Columns of the terminal that standard error is; 80 when it is not a terminal.
    static int terminalWidth();
    /// Whether standard error is a terminal.
    static bool isTerminal();

private:
    void eraseStatus();
    void drawStatus();
    void writeLog(const std::string& text);

    std::mutex mutex;
    std::string shownStatus;
    std::FILE* resultStream = stdout;
    std::optional<LogFile> log;
};

} // namespace host

#endif
