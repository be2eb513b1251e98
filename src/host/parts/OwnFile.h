/// @file OwnFile.h
///
/// A file of a part that may run twice at once.
#ifndef OWNFILE_H
#define OWNFILE_H

#include <string>

namespace host {

/// The name for a file while it is written: no other process, on any machine, writes one of this
/// name. It gets its own name when it is whole, so that whoever reads it finds one that is,
/// whichever process has written it.
class OwnFile
{
public:
    explicit OwnFile(const std::string& path);
    /// Removes what has not got its name.
    ~OwnFile();
    OwnFile(const OwnFile&) = delete;
    OwnFile& operator=(const OwnFile&) = delete;

    const std::string& path() const { return name; }            ///< that it gets
    const std::string& temporaryPath() const { return hidden; } ///< where it is written
    /// Writes it as a whole. All of it is on disk when this returns; else false, and errno says
    /// why.
    bool write(const std::string& text) const;
    /// Brings what somebody has written at the temporary path to the disk. Without it, a loss of
    /// power may leave a file of this name with other contents. Throws as publish().
    void sync() const;
    /// Gives it its name. Throws CommandError with `exitTryAgain`.
    void publish();

private:
    std::string name;
    std::string hidden;
    bool published = false;
};

/// Brings a file, or the names in a directory, to the disk: all that any process of this machine
/// has written there. A directory whose file system cannot do that is left as it is. Throws
/// CommandError with `exitTryAgain`.
/// @{
void syncFile(const std::string& path);
void syncDirectory(const std::string& path);
/// @}

} // namespace host

#endif
