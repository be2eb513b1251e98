/// @file fileUtils.h
///
/// Locks on files between processes, and the expansion of wildcards.
#ifndef FILEUTILS_H
#define FILEUTILS_H

#include "fileutils_export.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace VORN {

/// Keeps processes that work on the same files out of each other's way, by two kinds of lock that
/// know nothing of each other:
///
/// - Lock files. NAME is locked as long as a file NAME.lck exists. It outlives the process that
///   made it: what a crashed process leaves behind locks until it is removed. The file holds
///   the mode given to lockFile(), a 32-bit integer in the machine's byte order, for people to
///   look at.
/// - Record locks of the operating system, taken on the file itself, always on the whole of it,
///   while it is held open as a stream. They end with closeFile() or with the process.
///
/// Record locks are advisory, belong to the process and have a trap: when a process closes *any*
/// descriptor of a file, it loses *all* its record locks on that file, whichever descriptor they
/// were taken through. Whoever holds a file here must therefore not open and close it by other
/// means, and opens it under one name only: two names of one file (a link, a relative and an
/// absolute path) are held as two files, do not exclude each other, and the first one closed, or
/// refused, takes the lock of the other with it. isLocked() avoids the trap.
///
/// One instance serves the whole process. It is made on first use without locking and lives to
/// the end of the process; all calls come from one thread. Names are kept and compared exactly as
/// passed. Nothing is printed: failures are results.
class FILEUTILS_EXPORT FileLocksProvider
{
public:
    /// The instance of the process. The caller never deletes it.
    static FileLocksProvider* getInstance();

    /// Forgets the held files; their streams stay open and locked.
    ~FileLocksProvider();

    FileLocksProvider(const FileLocksProvider&) = delete;
    FileLocksProvider& operator=(const FileLocksProvider&) = delete;

    /// Makes the lock file of `fnm`, holding `mode`. 0 when this call made it, -1 when it exists,
    /// -2 when it cannot be made. Of several processes that try at the same time, one gets 0 and
    /// the others -1. `fnm` itself need not exist and is not touched.
    int lockFile(const std::string& fnm, int mode);

    /// Removes the lock file of `fnm`, also that of another process. 0 when it existed, even if it
    /// could not be removed; -2 when it did not exist. `mode` is ignored.
    int unlockFile(const std::string& fnm, int mode);

    /// Opens file `nm`, takes a record lock on it without waiting, and returns it as a stream that
    /// this object holds; it is closed by closeFile() and never by fclose(). Null on failure.
    ///
    /// lockMode | opened                    | lock      | stream | besides
    /// -------- | ------------------------- | --------- | ------ | -------
    /// 64       | read-only                 | shared    | "r+b"  |
    /// 128      | read and write, created   | exclusive | "r+b"  | content removed, once locked
    /// 1        | read and write, created   | exclusive | "rb"   |
    /// other    | read and write, created   | exclusive | "r+b"  |
    ///
    /// Created files have the permissions 0664, less those of the process's umask. A file that is
    /// held already is returned as it is, whatever `lockMode`: neither locked anew nor emptied.
    ///
    /// With 64 the stream asks for more than the descriptor allows, and the C library returns none
    /// (glibc does so). The file is held all the same, open and locked, with a null stream: the
    /// result is null, and so is that of later calls; closeFile(nm) ends it.
    ///
    /// @param reason  may be null; otherwise receives -2 when the file cannot be opened, -1 when
    /// the
    ///                lock is refused (the file's content is untouched), 0 when the file was held
    ///                already. Untouched when the file was opened and locked, with 64 too.
    FILE* openSysLocked(const std::string& nm, int lockMode, int* reason);

    /// The stream held for `nm`; null when `nm` is not held, or is held without a stream.
    FILE* getFile(const std::string& nm);

    /// Closes `f`, which ends its lock, and returns what fclose() returned; `f` is forgotten even
    /// when that failed. 0 for a stream that is not held here (it stays open) and for null.
    int closeFile(FILE* f);

    /// Closes the file held for `nm`, with or without a stream, which ends its lock, and returns
    /// the result of closing it. 0 when `nm` is not held.
    int closeFile(const std::string& nm);

    /// Whether a record lock of another process keeps this one from reading `nm`: 2 when another
    /// process holds a write lock, otherwise 0; also 0 when the file cannot be opened or the system
    /// does not answer. Read locks of others do not keep anybody from reading and give 0; 1 is
    /// for a system that reports one nevertheless. Locks of this process give 0 and stay in force:
    /// a file that is held here is asked about through the descriptor that holds it.
    int isLocked(const std::string& nm);

private:
    FileLocksProvider();

    struct HeldFiles;
    std::unique_ptr<HeldFiles> held; ///< the files opened by openSysLocked and not yet closed
};

/// Appends the paths that match the pattern `mask` to `files`, sorted, and returns their number.
/// -1 when nothing matches or memory runs out; `files` is then untouched. Wildcards are those of
/// the shell: "*", "?" and "[...]"; a "." that begins a name is matched by a "." only. Directories
/// that cannot be read count as empty.
FILEUTILS_EXPORT int vorn_glob_files(const std::string& mask, std::vector<std::string>& files);

} // namespace VORN

#endif
