#include "cli/CommandTable.h"

#include <cerrno>
#include <fcntl.h>
#include <locale.h>
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

// Numbers keep their point in this thread, which runs the modules, whatever locale one of them sets
// for the process as applications with windows do: here and in modules, printf and its like ask the
// thread first.
void keepLocale()
{
    if (const locale_t classic = newlocale(LC_ALL_MASK, "C", nullptr))
        uselocale(classic);
}

} // namespace

int main(int argc, char** argv)
{
    openStandardDescriptors();
    keepLocale();
    return host::runCommandLine({argv + 1, argv + argc});
}
