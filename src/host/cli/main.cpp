#include "cli/CommandTable.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A descriptor that the caller has closed would become that of the first file that is opened, which
// then receives messages or results. Reading is all that /dev/null is opened for: a result that
// nobody can get is still noticed.
void openStandardDescriptors()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) < 0 && errno == EBADF)
            open("/dev/null", O_RDONLY); // gets the lowest number that is free: this one
    }
}

} // namespace

int main(int argc, char** argv)
{
    openStandardDescriptors();
    return host::runCommandLine({argv + 1, argv + argc});
}
