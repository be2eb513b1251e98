/// @file FileIdentity.h
///
/// Which file stands behind a path, and whether it may be replaced.
#ifndef FILEIDENTITY_H
#define FILEIDENTITY_H

#include "segy_export.h"

#include <string>

namespace VORN {

/// Identifies the file behind a path, links followed: two paths of one file have the same text, two
/// files never do while both exist. Where the file system notes when files were made, a file that
/// has got the number of one that is gone has another text, too. Empty when the file does not
/// exist.
VORN_SEGY_EXPORT std::string fileIdentity(const std::string& path);

/// The path as one text for one place, whether or not there is a file yet: absolute, links
/// followed. The path itself where that cannot be determined.
VORN_SEGY_EXPORT std::string canonicalPath(const std::string& path);

/// Whether both paths lead to one file, or will: links are followed, and hard links are one file.
VORN_SEGY_EXPORT bool isSameFile(const std::string& a, const std::string& b);

/// Whether there is a file at `path`, links followed, that its owner has no permission to write, as
/// data are protected that nobody may change. Such a file could be replaced all the same where its
/// directory can be written, and by root anyway; it is not.
VORN_SEGY_EXPORT bool isWriteProtected(const std::string& path);

/// The first link on the way of `path` that another user has put into a directory where everybody
/// may make names (sticky and writable for all, as /tmp); "" when there is none. Links of one's own
/// and of the directory's owner lead on. This is the rule by which Linux itself can be told not to
/// follow links (fs.protected_symlinks), for all of the path and on every machine.
VORN_SEGY_EXPORT std::string foreignLinkOn(const std::string& path);

/// The open descriptor of this process that `path` names, directly or through links: N for
/// /dev/fd/N and /proc/self/fd/N, 1 for /dev/stdout. -1 for all other paths.
VORN_SEGY_EXPORT int descriptorOf(const std::string& path);

/// Whether bytes for `path` go to what is there, since it has no content to be replaced: a
/// character device, a named pipe, or an open descriptor (see `descriptorOf`).
VORN_SEGY_EXPORT bool isWrittenThrough(const std::string& path);

} // namespace VORN

#endif
