/// @file SetPage.h
///
/// The index page of the runs of one job on many files.
#ifndef SETPAGE_H
#define SETPAGE_H

#include "report/SetResult.h"

#include <string>

namespace host {

/// The page as HTML, to be written into the directory of the set: pictures and reports are links to
/// the folders in it, and pictures are loaded as they are scrolled to. The page loads nothing else,
/// runs no script but its own, and shows names and messages literally, whatever they contain.
std::string setPage(const SetResult& result);

/// A relative path as the target of a link: every byte that is not a letter, a digit or one of
/// "-._~/" as %XX.
std::string linkTo(const std::string& path);

} // namespace host

#endif
