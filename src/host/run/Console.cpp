#include "run/Console.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace host {

namespace {

void put(std::FILE* stream, const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

// The program opens a missing standard output for reading only, so that nothing else gets its
// number.
bool isOpenForWriting(std::FILE* stream)
{
    const int mode = fcntl(fileno(stream), F_GETFL);
    return mode >= 0 && (mode & O_ACCMODE) != O_RDONLY;
}

} // namespace

void Console::openLog(const std::string& path)
{
    log.emplace(path);
}

std::string Console::closeLog()
{
    const std::lock_guard<std::mutex> lock(mutex);
    return log ? log->close() : "";
}

void Console::line(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mutex);
    eraseStatus();
    put(stderr, text + '\n');
    writeLog(text + '\n');
    drawStatus();
}

void Console::logLine(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mutex);
    writeLog(text + '\n');
}

void Console::result(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mutex);
    eraseStatus();
    if (isOpenForWriting(resultStream))
        put(resultStream, text);
    writeLog(text);
    drawStatus();
}

void Console::status(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (text == shownStatus)
        return;
    eraseStatus();
    shownStatus = text;
    drawStatus();
}

int Console::terminalWidth()
{
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return 80;
}

bool Console::isTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

void Console::eraseStatus()
{
    if (!shownStatus.empty())
        put(stderr, "\r\x1b[K");
}

void Console::drawStatus()
{
    if (!shownStatus.empty())
        put(stderr, shownStatus);
}

void Console::writeLog(const std::string& text)
{
    if (log)
        log->write(text);
}

} // namespace host
