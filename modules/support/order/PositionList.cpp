#include "order/PositionList.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace order {

namespace {

constexpr int64_t magic = 0x5644524f4e524f56; // "VORNORDV"
constexpr int64_t version = 1;
using Head = std::array<int64_t, 4>; // magic, version, traces, numbers
constexpr int64_t windowNumbers = 1 << 13;
constexpr std::size_t smallBuffer = 1 << 13;

int64_t offsetOf(int64_t place)
{
    return static_cast<int64_t>(sizeof(Head) + static_cast<std::size_t>(place) * sizeof(int64_t));
}

std::string reason()
{
    return std::strerror(errno);
}

} // namespace

// ---- Files ----

int openUnnamedFile(const std::string& directory)
{
    std::string path = (directory.empty() ? "/tmp" : directory) + "/order-XXXXXX";
    const int descriptor = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor < 0)
        throw std::runtime_error(path + ": cannot be made: " + reason());
    unlink(path.c_str());
    return descriptor;
}

void writeAt(int descriptor, int64_t offset, const void* bytes, std::size_t count,
             const std::string& name)
{
    const char* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t done = pwrite(descriptor, next, count, offset);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            throw std::runtime_error(name +
                                     ": the order of the traces cannot be written: " + reason());
        next += done;
        offset += done;
        count -= static_cast<std::size_t>(done);
    }
}

void readAt(int descriptor, int64_t offset, void* bytes, std::size_t count, const std::string& name)
{
    char* next = static_cast<char*>(bytes);
    while (count > 0) {
        const ssize_t done = pread(descriptor, next, count, offset);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            throw std::runtime_error(name + ": the order of the traces cannot be read: " +
                                     (done < 0 ? reason() : "the file is cut"));
        next += done;
        offset += done;
        count -= static_cast<std::size_t>(done);
    }
}

// ---- A list ----

PositionList::PositionList(std::vector<int64_t> numbers, int64_t ofTraces)
    : window(std::move(numbers)), count(static_cast<int64_t>(window.size())), traces(ofTraces)
{
}

PositionList::PositionList(int file, std::string path, int64_t numbers, int64_t ofTraces)
    : count(numbers), traces(ofTraces), descriptor(file), name(std::move(path))
{
}

PositionList::PositionList(const std::string& path, int64_t ofTraces)
    : traces(ofTraces), descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), name(path)
{
    if (descriptor < 0)
        throw std::runtime_error(path + ": the order of the traces cannot be read: " + reason());
    try {
        open(path);
    } catch (...) {
        ::close(descriptor); // the destructor of an object that never was does not run
        throw;
    }
}

void PositionList::open(const std::string& path)
{
    struct stat status = {};
    Head head = {};
    if (fstat(descriptor, &status) != 0 || status.st_size < static_cast<off_t>(sizeof head))
        refuse("is not an order of traces, or is cut");
    readAt(descriptor, 0, head.data(), sizeof head, path);
    if (head[0] != magic || head[1] != version)
        refuse("is not an order of traces that this version reads");
    count = head[3];
    if (count < 0 || count > head[2] || status.st_size != offsetOf(count))
        refuse("is damaged or cut: it states " + std::to_string(head[3]) + " traces and has " +
               std::to_string(status.st_size) + " bytes");
    if (head[2] != traces)
        refuse("is of an input of " + std::to_string(head[2]) + " traces, and there are " +
               std::to_string(traces));
}

PositionList::~PositionList()
{
    if (descriptor >= 0)
        ::close(descriptor);
}

PositionList::PositionList(PositionList&& other) noexcept
    : window(std::move(other.window)), first(other.first), count(other.count), traces(other.traces),
      descriptor(std::exchange(other.descriptor, -1)), name(std::move(other.name))
{
}

PositionList& PositionList::operator=(PositionList&& other) noexcept
{
    std::swap(window, other.window);
    std::swap(first, other.first);
    std::swap(count, other.count);
    std::swap(traces, other.traces);
    std::swap(descriptor, other.descriptor);
    std::swap(name, other.name);
    return *this;
}

void PositionList::refuse(const std::string& what) const
{
    throw std::runtime_error(name + ": " + what + "; make a new plan");
}

int64_t PositionList::at(int64_t place)
{
    if (descriptor >= 0 && (place < first || place >= first + static_cast<int64_t>(window.size())))
        fill(place);
    return window[static_cast<std::size_t>(place - first)];
}

void PositionList::fill(int64_t place)
{
    if (place < 0 || place >= count)
        refuse("has no place " + std::to_string(place + 1));
    window.resize(static_cast<std::size_t>(std::min(windowNumbers, count - place)));
    first = place;
    readAt(descriptor, offsetOf(place), window.data(), window.size() * sizeof(int64_t), name);
    if (std::any_of(window.begin(), window.end(),
                    [this](int64_t number) { return number < 0 || number >= traces; }))
        refuse("is damaged: it names a trace that the input does not have");
}

// ---- Writing one ----

PositionWriter::PositionWriter(std::string place, std::string unnamedDirectory, int64_t ofTraces,
                               int64_t most)
    : traces(ofTraces), mostInMemory(most), path(std::move(place)),
      directory(std::move(unnamedDirectory))
{
    const bool isShort = path.empty() && traces < mostInMemory;
    buffer.reserve(isShort ? static_cast<std::size_t>(traces) + 1 : smallBuffer);
}

PositionWriter::~PositionWriter()
{
    if (descriptor >= 0)
        ::close(descriptor);
    if (!temporary.empty())
        unlink(temporary.c_str());
}

void PositionWriter::begin()
{
    if (path.empty()) {
        descriptor = openUnnamedFile(directory);
        return;
    }
    std::string pattern = path + "-XXXXXX";
    descriptor = mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor < 0)
        throw std::runtime_error(path + ": the order of the traces cannot be written: " + reason());
    temporary = pattern;
}

void PositionWriter::makeRoom()
{
    if (path.empty() && static_cast<int64_t>(buffer.size()) < mostInMemory && descriptor < 0)
        buffer.reserve(std::min(2 * buffer.size(), static_cast<std::size_t>(mostInMemory)));
    else
        flush();
}

void PositionWriter::flush()
{
    if (descriptor < 0)
        begin();
    writeAt(descriptor, offsetOf(written), buffer.data(), buffer.size() * sizeof(int64_t), path);
    written += static_cast<int64_t>(buffer.size());
    buffer.clear();
}

PositionList PositionWriter::finish()
{
    if (path.empty() && descriptor < 0)
        return {std::move(buffer), traces};
    flush();
    const Head head = {magic, version, traces, written};
    writeAt(descriptor, 0, head.data(), sizeof head, path);
    if (!temporary.empty()) {
        if (rename(temporary.c_str(), path.c_str()) != 0)
            throw std::runtime_error(path +
                                     ": the order of the traces cannot be written: " + reason());
        temporary.clear();
    }
    return {std::exchange(descriptor, -1), path.empty() ? "scratch file" : path, written, traces};
}

} // namespace order
