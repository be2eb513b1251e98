/// @file InputFile.h
///
/// A trace file that is read, mostly from its first byte to its last.
#ifndef INPUTFILE_H
#define INPUTFILE_H

#include "file/TraceFileError.h"
#include "segy_export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VORN {

class InputFile;

/// Learns of every byte that input files give to their readers: for a checksum of what has really
/// been read, at the cost of no second pass. One object may serve files of several threads.
class VORN_SEGY_EXPORT InputObserver
{
public:
    virtual ~InputObserver();
    /// `file` has been opened; what the others say of it follows until it is closed.
    virtual void opened(const InputFile& file) = 0;
    /// `count` bytes from byte `offset` (from 0) on have been read, perhaps not for the first time.
    virtual void read(const InputFile& file, int64_t offset, const unsigned char* bytes,
                      std::size_t count) = 0;
    /// The object `file` ends.
    virtual void closed(const InputFile& file) noexcept = 0;
};

/// From now on, files that are opened tell `observer`, which must outlive them, what they read;
/// null: none.
VORN_SEGY_EXPORT void observeInputs(InputObserver* observer);

/// A regular file, open for reading. Bytes that the file does not have are neither read nor
/// allocated, whatever its headers announce. An object is used by one thread at a time.
class VORN_SEGY_EXPORT InputFile
{
public:
    /// Throws TraceFileError when the file cannot be opened or is not a regular file (a directory,
    /// a pipe).
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& path() const { return name; } ///< as given
    int64_t size() const { return bytes; }           ///< bytes, when it was opened
    int handle() const { return descriptor; }        ///< the open file, for its state

    /// `count` bytes from byte `offset` (from 0) on; valid until the next call. Reading forward is
    /// cheap: a call of the operating system fetches many traces. Throws TraceFileError when the
    /// file ends before, cannot be read, or there is no memory for so many bytes.
    const unsigned char* at(int64_t offset, int64_t count);
    /// The same without reading ahead, for single headers far apart.
    const unsigned char* peek(int64_t offset, int64_t count);
    /// From now on `at` reads no more than it is asked for: the caller reads in jumps.
    void expectJumps();
    /// Asks the system to have `count` bytes from byte `offset` on in memory soon. Nothing is
    /// waited for, and nothing fails.
    void willRead(int64_t offset, int64_t count) const;
    /// Reads into the caller's memory. Throws as `at` does.
    void read(int64_t offset, unsigned char* to, std::size_t count) const;

    /// Throws TraceFileError with the file's name before `what`.
    [[noreturn]] void fail(const std::string& what) const;

private:
    bool inWindow(int64_t offset, int64_t count) const;
    int64_t readAhead(int64_t offset) const;
    void moveWindow(int64_t offset, int64_t count);
    void makeRoom(std::vector<unsigned char>& bytesRead, int64_t count) const;

    std::string name;
    int descriptor;
    InputObserver* observer = nullptr;
    int64_t bytes = 0;
    std::vector<unsigned char> window; // bytes of the file from `windowStart` on
    int64_t windowStart = 0;
    bool jumps = false;                // nothing is read ahead
    std::vector<unsigned char> glance; // what `peek` found outside the window
};

} // namespace VORN

#endif
