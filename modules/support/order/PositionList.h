/// @file PositionList.h
///
/// A long list of 64-bit numbers, in memory or in a file.
#ifndef POSITIONLIST_H
#define POSITIONLIST_H

#include <cstdint>
#include <string>
#include <vector>

namespace order {

/// Which traces come one after another, each by its number. Lists that are too long for memory lie
/// in a file, of which a window is kept: reading forward is cheap.
///
/// A list with a name can be used by other processes of the same machine type. Its file has
/// a magic number, a version, the number of traces that there are, the number of those in the list,
/// and then the list, all as 64-bit integers in the byte order of the machine.
class PositionList
{
public:
    /// In memory; `traces` is how many there are: all numbers are below.
    PositionList(std::vector<int64_t> numbers, int64_t traces);
    /// The list in the file `path`, of an input of `traces` traces. Throws std::runtime_error,
    /// which names the file, where it is not such a list, where it is cut, and where it is of
    /// another input.
    PositionList(const std::string& path, int64_t traces);
    ~PositionList();
    PositionList(PositionList&& other) noexcept;
    PositionList& operator=(PositionList&& other) noexcept;
    PositionList(const PositionList&) = delete;
    PositionList& operator=(const PositionList&) = delete;

    int64_t size() const { return count; }
    /// Number `place` (from 0) of the list. Throws std::runtime_error where the file cannot be read
    /// or holds a number of a trace that does not exist.
    int64_t at(int64_t place);

private:
    friend class PositionWriter;
    PositionList(int descriptor, std::string path, int64_t count, int64_t traces);
    void open(const std::string& path);
    void fill(int64_t place);
    [[noreturn]] void refuse(const std::string& what) const;

    std::vector<int64_t> window; ///< from number `first` on; without a file the whole list
    int64_t first = 0;
    int64_t count = 0;
    int64_t traces = 0;
    int descriptor = -1;
    std::string name;
};

/// Writes a list number by number. Short ones without a name stay in memory.
class PositionWriter
{
public:
    /// For an input of `traces` traces. With a `path`, the list gets that name when it is complete;
    /// without one, it lies in memory, or, when it becomes longer than `mostInMemory`, in a file
    /// without a name in `directory`.
    PositionWriter(std::string path, std::string directory, int64_t traces,
                   int64_t mostInMemory = int64_t{1} << 23);
    ~PositionWriter();
    PositionWriter(const PositionWriter&) = delete;
    PositionWriter& operator=(const PositionWriter&) = delete;

    /// Throws std::runtime_error where the file cannot be written.
    void add(int64_t number)
    {
        buffer.push_back(number);
        if (buffer.size() == buffer.capacity())
            makeRoom();
    }
    /// The list, which is complete. Throws as `add` does.
    PositionList finish();

private:
    void makeRoom();
    void begin();
    void flush();

    std::vector<int64_t> buffer;
    int64_t written = 0;
    int64_t traces;
    int64_t mostInMemory;
    std::string path;
    std::string temporary;
    std::string directory;
    int descriptor = -1;
};

/// Opens a new file without a name in `directory`, for reading and writing. Throws
/// std::runtime_error.
int openUnnamedFile(const std::string& directory);
/// Writes all of `bytes` at `offset`. Throws std::runtime_error, which names `name`.
void writeAt(int descriptor, int64_t offset, const void* bytes, std::size_t count,
             const std::string& name);
/// Reads `count` bytes from `offset` on. Throws likewise, also where the file ends before.
void readAt(int descriptor, int64_t offset, void* bytes, std::size_t count,
            const std::string& name);

} // namespace order

#endif
