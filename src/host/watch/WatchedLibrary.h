/// @file WatchedLibrary.h
///
/// Running on the kernel's watched library, which tells of each call that a module makes. The
/// dynamic linker chooses the library when a program starts: to change to the other one, the
/// program starts itself again.
#ifndef WATCHEDLIBRARY_H
#define WATCHEDLIBRARY_H

#include "watched/WatchedCalls.h"

#include <string>
#include <vector>

namespace host {

/// Returns on the watched library only: starts this program again, with its arguments and on that
/// library, where it runs on the ordinary one. To be called before anything is read or written.
/// Throws CommandError where the library is missing.
void continueOnWatchedLibrary();

/// From now on, this program starts on the watched library: for a program that starts it, as a
/// debugger. Requires: this process runs on the ordinary library. Throws as above.
void chooseWatchedLibrary();

/// Whether this process runs on the watched library.
bool isOnWatchedLibrary();

/// As long as it lives, all `observers` see the calls of modules, in this order (`returned` in the
/// opposite one). Requires: this process runs on the watched library. Only one object of this class
/// may exist at a time.
class WatchedCalls : private watched::Observer
{
public:
    explicit WatchedCalls(std::vector<watched::Observer*> observers);
    ~WatchedCalls() override;
    WatchedCalls(const WatchedCalls&) = delete;
    WatchedCalls& operator=(const WatchedCalls&) = delete;

    /// From now on `observer` sees no calls; without observers, calls cost nothing any more. Not to
    /// be called by an observer.
    void leaveOut(const watched::Observer& observer);

    /// As watched::InterfaceFunction. Requires: an object of this class exists.
    static std::string interfaceFunction(const watched::Call& call);

private:
    void passed(const watched::Call& handles) override;
    void called(const watched::Call& call) override;
    void returned(const watched::Call& call, const watched::Argument& result) override;

    std::vector<watched::Observer*> all;
};

} // namespace host

#endif
