/// @file OutputFile.h
///
/// A file that appears under its name when it is whole, or not at all.
#ifndef OUTPUTFILE_H
#define OUTPUTFILE_H

#include "file/PartOutputs.h"
#include "file/TraceFileError.h"
#include "file/UnfinishedOutputs.h"
#include "segy_export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace VORN {

class OutputFile;

/// Learns of every byte that outputs get: for a checksum of what is written, without reading it
/// again. One object may serve outputs of several threads.
class VORN_SEGY_EXPORT OutputObserver
{
public:
    virtual ~OutputObserver();
    /// `file` begins; what the others say of it follows until it is closed.
    virtual void opened(const OutputFile& file) = 0;
    /// `count` bytes have been written from byte `offset` (from 0) on, perhaps in place of others.
    virtual void written(const OutputFile& file, int64_t offset, const unsigned char* bytes,
                         std::size_t count) = 0;
    /// `file` has all its bytes and its final name.
    virtual void completed(const OutputFile& file) = 0;
    /// The object `file` ends.
    virtual void closed(const OutputFile& file) noexcept = 0;
};

/// From now on, outputs that begin under a hidden name of their own tell `observer`, which must
/// outlive them, what they write; null: none.
VORN_SEGY_EXPORT void observeOutputs(OutputObserver* observer);

/// A file that is being written, under a name of its own beside the final one (.NAME.vorn-XXXXXX).
/// It gets the final name when `commit` finds all bytes with the operating system; an object that
/// ends without that removes it. So does the process when it ends before its objects (see
/// UnfinishedOutputs.h). An object is used by one thread at a time; one that a child process has
/// inherited fails to write and leaves the file to the parent.
///
/// What is at the path is replaced only where that loses nothing that somebody needs: see the
/// constructor. It is looked at again before the file gets its name, since files come and go while
/// an output is written.
///
/// A character device, a named pipe and an open descriptor of this process (/dev/stdout, /dev/fd/N)
/// are written through, never replaced. They, too, get everything or nothing: until `commit`, the
/// bytes are in an unnamed file in the directory for temporary files.
///
/// Of an output that several processes write (see PartOutputs.h), an object writes a range of the
/// file that has been announced: it is neither renamed nor removed, whatever happens, and what
/// speaks against the final name speaks against it here too. An object for the whole of such an
/// output adopts that file, writes nothing, and `commit` gives it its final name as ever; without
/// that it is removed.
class VORN_SEGY_EXPORT OutputFile
{
public:
    /// Creates the temporary file, readable by its owner only. Throws TraceFileError when the
    /// directory cannot be written, after `stopOutputs`, and when what is at `path` may not be
    /// replaced: a directory, a socket or a disk; a write-protected file; a file that this process
    /// uses in another role (see FileRoles.h); any file if `overwrite` is false. A symbolic link
    /// stays, and the file behind it is replaced; a link that somebody else has put into a
    /// directory for all (sticky, as /tmp) is refused.
    ///
    /// `role` is what messages call the output, such as: the picture. `owner` tells which of
    /// `usedFiles` is this output itself.
    OutputFile(const std::string& path, bool overwrite, std::string role = "the output",
               std::string owner = "");
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& path() const { return name; } ///< as given
    std::string temporaryPath() const;               ///< "" when there is none (any longer)
    int64_t size() const { return written + static_cast<int64_t>(filled); } ///< bytes so far

    /// @name Outputs that several processes write
    /// @{
    /// The number, from 0, of the first trace that this process writes; 0 for an ordinary output.
    int64_t firstTrace() const { return part ? part->firstTrace : 0; }
    /// Whether the object writes a range of a file that others write, too.
    bool isRange() const { return part && !part->isWhole; }
    /// The next byte belongs to `position`, from 0, of the whole file. Requires: nothing has been
    /// appended, and the output is a range.
    void startAt(int64_t position);
    /// How many bytes the whole file must have: `commit` fails where an adopted file has another
    /// size, since a process has not written its range then.
    void expectSize(int64_t bytes) { expected = bytes; }
    /// @}

    /// Room for the next `count` bytes of the file; the caller fills it before the next call.
    /// Throws TraceFileError when earlier bytes cannot be written. Nothing can be written or
    /// committed after that.
    unsigned char* append(std::size_t count);

    /// Replaces `count` bytes from `position` on, from 0, that have been appended: what is known
    /// only in the end, as a number of records. Throws TraceFileError as `append` does. Requires:
    /// `position + count` is at most `size()`.
    void replace(int64_t position, const void* bytes, std::size_t count);

    /// Writes what is left, closes the file, gives it the permissions of a new file and its final
    /// name. Throws TraceFileError, and the temporary file is removed, when any of that fails. A
    /// range keeps the name that it has, and is there when this returns.
    void commit();

    /// Removes the temporary file, unless it is a range. Nothing happens after `commit`.
    void discard() noexcept;

private:
    void refuseReplacing();
    void openRange();
    void adopt();
    int64_t checkTarget();
    void checkAdopted();
    void failWhereNoneBegins();
    void closeWhole();
    void createSpool();
    void copySpool();
    void flush();
    void writeTo(int to, const unsigned char* bytes, std::size_t count, int64_t& done);
    void publish();
    void close() noexcept;
    [[noreturn]] void fail(const std::string& what);

    std::string name;
    std::string role;
    std::string owner;
    std::string target; // absolute, with links resolved
    bool through = false;
    pid_t process = -1;             // that made the object
    std::optional<PartOutput> part; // none for an ordinary output
    std::optional<int64_t> expected;
    OutputObserver* observer = nullptr;
    UnfinishedOutput temporary;
    bool mayReplace;
    int descriptor = -1;
    std::vector<unsigned char> buffer;
    std::size_t filled = 0;
    int64_t written = 0; // bytes that the operating system has
};

} // namespace VORN

#endif
