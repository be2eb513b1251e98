/// @file tracefile.h
///
/// The bytes of trace files: an input that is read ahead, and an output that nobody takes for a
/// whole file before it is one.
#ifndef TRACEFILE_H
#define TRACEFILE_H

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace VORN {

/// A file that cannot be read or written. The text is one line that names the file, what is wrong
/// and what to do.
class TraceFileError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Which file stands behind a path, links followed: two paths of one file have the same text, two
/// files never do while both exist. Empty when there is no such file.
std::string fileIdentity(const std::string& path);

/// A path as one text for one place, whether or not there is a file yet: absolute, links followed.
std::string canonicalPath(const std::string& path);

/// Whether there is a file at `path`, links followed, that its owner has no permission to write, as
/// data are protected that nobody may change. Such a file could be replaced all the same where its
/// directory can be written, and by root anyway; it is not.
bool isWriteProtected(const std::string& path);

/// A regular file, open for reading. What it does not hold is neither read nor allocated.
class InputFile
{
public:
    /// Throws TraceFileError when the file cannot be opened or is none (a directory, a pipe).
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& path() const { return name; }
    int64_t size() const { return bytes; } ///< when it was opened

    /// `count` bytes from byte `offset` on; valid until the next call. Reading forward is cheap: a
    /// call of the operating system fetches many traces. Throws TraceFileError when the file ends
    /// before, cannot be read, or so many bytes find no room in memory.
    const unsigned char* at(int64_t offset, int64_t count);
    /// The same without reading ahead, for looking here and there.
    const unsigned char* peek(int64_t offset, int64_t count);
    /// Reads into the caller's memory.
    void read(int64_t offset, unsigned char* to, std::size_t count) const;

    /// Throws TraceFileError with the file's name before `what`.
    [[noreturn]] void fail(const std::string& what) const;

private:
    bool inWindow(int64_t offset, int64_t count) const;
    void moveWindow(int64_t offset, int64_t count);
    void makeRoom(std::vector<unsigned char>& bytesRead, int64_t count) const;

    std::string name;
    int descriptor;
    int64_t bytes = 0;
    std::vector<unsigned char> window; // bytes of the file from `windowStart` on
    int64_t windowStart = 0;
    std::vector<unsigned char> glance; // what `peek` found outside the window
};

/// A file that is being written, under a name of its own beside the final one (.NAME.vorn-XXXXXX).
/// It gets the final name when `commit` finds all bytes with the operating system; an object that
/// ends without that removes it.
class OutputFile
{
public:
    /// Creates the temporary file, readable by its owner only. Throws TraceFileError when the
    /// directory cannot be written, when `path` is something else than a regular file or
    /// write-protected, and when it exists and `overwrite` is false. A symbolic link stays, and the
    /// file behind it is replaced; a link that somebody else has put into a directory for all
    /// (sticky, as /tmp) is refused.
    OutputFile(const std::string& path, bool overwrite);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& path() const { return name; } ///< as given
    const std::string& temporaryPath() const { return temporary; }
    int64_t size() const { return written + static_cast<int64_t>(filled); } ///< bytes so far

    /// Room for the next `count` bytes of the file; the caller fills it before the next call.
    /// Throws TraceFileError when earlier bytes cannot be written. Nothing can be written or
    /// committed after that.
    unsigned char* append(std::size_t count);

    /// Writes what is left, closes the file, gives it the permissions of a new file and its final
    /// name. Throws TraceFileError, and the temporary file is removed, when any of that fails.
    void commit();

    /// Removes the temporary file. Nothing happens after `commit`.
    void discard() noexcept;

private:
    void flush();
    void publish();
    void close();
    [[noreturn]] void fail(const std::string& what);

    std::string name;
    std::string target; // with links resolved
    std::string temporary;
    bool mayReplace;
    int descriptor = -1;
    std::vector<unsigned char> buffer;
    std::size_t filled = 0;
    int64_t written = 0;

    // Those that are not complete yet are a list: a process that ends without destroying them, for
    // lack of memory for one, still removes their files.
    friend struct UnfinishedFiles;
    void enter();
    void leave() noexcept;
    OutputFile* next = nullptr;
    OutputFile** pointer = nullptr; // what points at this one; null when it is in no list
};

/// Removes the temporary files of all outputs that are being written, by whichever library of this
/// process, and calls `tell` (may be null) with the path of each: for a process that ends without
/// destroying its objects. What is still written goes nowhere, and a later `commit` fails. Only
/// regular files under such a name are touched that this process has opened for writing itself and
/// not closed. Calls nothing that a signal handler may not call; so must `tell` there.
void removeUnfinishedOutputs(void (*tell)(void* context, const char* path), void* context) noexcept;

} // namespace VORN

#endif
