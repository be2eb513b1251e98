#include "file/InputFile.h"

#include "file/SystemFailure.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace VORN {

namespace {

constexpr int64_t windowBytes = 1 << 18;

std::atomic<InputObserver*> currentObserver{nullptr};

std::string number(int64_t value)
{
    return std::to_string(value);
}

} // namespace

InputObserver::~InputObserver() = default;

void observeInputs(InputObserver* observer)
{
    currentObserver = observer;
}

// Without O_NONBLOCK, opening a pipe waits for a writer.
InputFile::InputFile(const std::string& path)
    : name(path), descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
{
    if (descriptor < 0)
        fail("cannot be opened: " + systemReason());
    struct stat status;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor);
        fail("is not a file that can be read; give the path of a trace file");
    }
    bytes = status.st_size;
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    observer = currentObserver;
    if (observer == nullptr)
        return;
    try {
        observer->opened(*this);
    } catch (...) {
        ::close(descriptor); // the destructor of an object that never was does not run
        throw;
    }
    // Headers are read in an order of their own; out of the window, they are bytes in sequence.
    try {
        moveWindow(0, std::min(bytes, windowBytes));
    } catch (const TraceFileError&) { // whoever needs those bytes will say so
    }
}

InputFile::~InputFile()
{
    if (observer != nullptr)
        observer->closed(*this);
    ::close(descriptor);
}

void InputFile::fail(const std::string& what) const
{
    throw TraceFileError(name + ": " + what);
}

bool InputFile::inWindow(int64_t offset, int64_t count) const
{
    return offset >= windowStart &&
           offset + count <= windowStart + static_cast<int64_t>(window.size());
}

// Headers that are wrong may ask for more than any machine has.
void InputFile::makeRoom(std::vector<unsigned char>& bytesRead, int64_t count) const
{
    try {
        bytesRead.resize(static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        fail("there is no memory for a trace of " + number(count) +
             " bytes; if its traces are shorter than that, state `samples`");
    }
}

// Reading on from where the window ends is worth a large one; a reader that skips most of the file
// would read all of it.
int64_t InputFile::readAhead(int64_t offset) const
{
    constexpr int64_t afterASkip = 4096;
    if (jumps)
        return 0;
    const int64_t skipped = offset - windowStart - static_cast<int64_t>(window.size());
    return offset >= windowStart && skipped < windowBytes ? windowBytes : afterASkip;
}

void InputFile::expectJumps()
{
    jumps = true;
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_RANDOM);
}

void InputFile::willRead(int64_t offset, int64_t count) const
{
    posix_fadvise(descriptor, offset, count, POSIX_FADV_WILLNEED);
}

const unsigned char* InputFile::at(int64_t offset, int64_t count)
{
    if (!inWindow(offset, count)) {
        if (offset + count > bytes)
            fail("ends at byte " + number(bytes) + ", before byte " + number(offset + count));
        try {
            moveWindow(offset, std::min(bytes - offset, std::max(count, readAhead(offset))));
        } catch (const TraceFileError&) {
            moveWindow(offset, count); // what lies ahead may be damaged: that is for later calls
        }
    }
    return window.data() + (offset - windowStart);
}

void InputFile::moveWindow(int64_t offset, int64_t count)
{
    makeRoom(window, count);
    windowStart = offset;
    try {
        read(offset, window.data(), window.size());
    } catch (...) {
        window.clear(); // it holds nothing that could be handed out later
        throw;
    }
}

const unsigned char* InputFile::peek(int64_t offset, int64_t count)
{
    if (inWindow(offset, count))
        return at(offset, count);
    makeRoom(glance, count);
    read(offset, glance.data(), glance.size());
    return glance.data();
}

void InputFile::read(int64_t offset, unsigned char* to, std::size_t count) const
{
    if (inWindow(offset, static_cast<int64_t>(count)) && to != window.data()) {
        std::memcpy(to, window.data() + (offset - windowStart), count);
        return;
    }
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got =
            pread(descriptor, to + done, count - done, offset + static_cast<int64_t>(done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail("cannot be read at byte " + number(offset + static_cast<int64_t>(done)) + ": " +
                 systemReason());
        if (got == 0)
            fail("ends at byte " + number(offset + static_cast<int64_t>(done)) +
                 "; it was longer when it was opened");
        done += static_cast<std::size_t>(got);
    }
    if (observer != nullptr)
        observer->read(*this, offset, to, count);
}

} // namespace VORN
