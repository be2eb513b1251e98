/// @file FileIdentity.h
///
/// Which file stands behind a path, and whether it may be replaced.
#ifndef FILEIDENTITY_H
#define FILEIDENTITY_H

#include "segy_export.h"

#include <string>

namespace VORN {

/// Identifies the file behind a path, links followed: two paths of one file have the same text, two
/// files never do while both exist. Empty when the file does not exist.
VORN_SEGY_EXPORT std::string fileIdentity(const std::string& path);

/// The path as one text for one place, whether or not there is a file yet: absolute, links
/// followed. The path itself where that cannot be determined.
VORN_SEGY_EXPORT std::string canonicalPath(const std::string& path);

/// Whether there is a file at `path`, links followed, that its owner has no permission to write, as
/// data are protected that nobody may change. Such a file could be replaced all the same where its
/// directory can be written, and by root anyway; it is not.
VORN_SEGY_EXPORT bool isWriteProtected(const std::string& path);

} // namespace VORN

#endif
