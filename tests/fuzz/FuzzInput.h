/// @file FuzzInput.h
///
/// What the fuzz targets share: numbers and texts out of a run of bytes, memory with guards around
/// it, and files that live in memory.
///
/// A target is one function, `LLVMFuzzerTestOneInput`. It must survive every input, and it holds
/// the code to what its header promises: VORN_ASSERT stops the process where it does not.
#ifndef FUZZINPUT_H
#define FUZZINPUT_H

#include "vorn_assert.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

/// Takes an input apart, front to back. An input that has come to its end goes on with zeros.
class FuzzInput
{
public:
    FuzzInput(const uint8_t* data, std::size_t size) : bytes(data), left(size) {}

    bool isEmpty() const { return left == 0; }

    int byte()
    {
        if (left == 0)
            return 0;
        --left;
        return *bytes++;
    }

    /// A text of up to `most` bytes, any bytes.
    std::string text(std::size_t most)
    {
        const std::size_t size = std::min(most, left);
        std::string taken(reinterpret_cast<const char*>(bytes), size);
        bytes += size;
        left -= size;
        return taken;
    }

    std::string rest() { return text(left); }

private:
    const uint8_t* bytes;
    std::size_t left;
};

/// A block of exactly `size` bytes between guards. `check` finds what was written to the guards;
/// AddressSanitizer finds what is read or written beyond them.
class GuardedBlock
{
public:
    explicit GuardedBlock(std::size_t size, char fill = '?') : block(size + 2 * guard, mark)
    {
        std::fill_n(data(), size, fill);
    }

    char* data() { return block.data() + guard; }
    std::size_t size() const { return block.size() - 2 * guard; }
    std::string text() { return std::string(data(), size()); }

    void check() const
    {
        const auto isMark = [](char c) { return c == mark; };
        VORN_ASSERT(std::all_of(block.begin(), block.begin() + guard, isMark));
        VORN_ASSERT(std::all_of(block.end() - guard, block.end(), isMark));
    }

private:
    static constexpr std::ptrdiff_t guard = 64;
    static constexpr char mark = '\x5A';

    std::vector<char> block;
};

/// A regular file without a name in any directory, gone with the object.
class MemoryFile
{
public:
    MemoryFile(const uint8_t* data, std::size_t size)
        : descriptor(memfd_create("fuzz", MFD_CLOEXEC))
    {
        VORN_ASSERT(descriptor >= 0);
        VORN_ASSERT(write(descriptor, data, size) == static_cast<ssize_t>(size));
    }
    ~MemoryFile() { close(descriptor); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor); }

private:
    int descriptor;
};

/// Whether `text` is one line that does no harm to a terminal.
inline bool isPlainLine(const std::string& text)
{
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

#endif
