/// @file LogFile.h
///
/// A log that grows line by line while a job runs.
#ifndef LOGFILE_H
#define LOGFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

/// An open log file. What an earlier run has left in it is replaced; while another run writes the
/// same log, this one appends to it, and no text of either is lost. Every text goes to the end of
/// the file in one piece. Devices, pipes and descriptors (/dev/stderr) are written through.
class LogFile
{
public:
    /// Throws CommandError when the file cannot be written or must not be (see FileOutput.h).
    explicit LogFile(const std::string& path);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Appends the text. After a failure nothing more is written; see `close`.
    void write(const std::string& text);

    /// What has gone wrong with the writing, as one sentence that names the file; "" when the log
    /// is complete. Nothing can be written afterwards.
    std::string close();

private:
    void open();
    void refuseWhatIsOpen();
    void beginAnew() const;
    void note(int error);
    void leave() const noexcept;

    std::string name;
    int descriptor = -1;
    int64_t written = 0;
    int failure = 0; ///< the error number of the first write that failed
};

/// Appends lines to the log that this process has opened last, for a process that is about to end:
/// takes no lock and no memory, may be called in handlers of signals and in children that they
/// fork. The lines begin at the beginning of a line, also where a text has been written only in
/// part. Nothing happens without a log, after it was closed, and when writing it has failed.
void addToOpenLog(const char* lines, std::size_t size) noexcept;

} // namespace host

#endif
