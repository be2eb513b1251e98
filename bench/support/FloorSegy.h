/// @file FloorSegy.h
///
/// Reading and writing of trace files for programs that show what a job costs at least: SEG-Y, big
/// endian, with IEEE floats and traces of one length. Anything else ends the program.
#ifndef FLOORSEGY_H
#define FLOORSEGY_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace floors {

constexpr std::size_t fileHeaderBytes = 3600;
constexpr std::size_t traceHeaderBytes = 240;

[[noreturn]] inline void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

inline FILE* open(const char* path, const char* mode)
{
    constexpr std::size_t bufferBytes = 1 << 20;
    FILE* file = std::fopen(path, mode);
    if (file == nullptr)
        fail("can not open a file");
    std::setvbuf(file, nullptr, _IOFBF, bufferBytes);
    return file;
}

inline std::uint32_t word32(const unsigned char* bytes)
{
    std::uint32_t bits;
    std::memcpy(&bits, bytes, sizeof bits);
    return __builtin_bswap32(bits);
}
inline int word16(const unsigned char* bytes)
{
    return bytes[0] << 8 | bytes[1];
}

/// The traces of a file, one after the other.
class Reader
{
public:
    explicit Reader(const char* path) : file(open(path, "rb"))
    {
        constexpr int ieeeFloats = 5;
        if (std::fread(fileHeader, fileHeaderBytes, 1, file) != 1 ||
            word16(fileHeader + 3224) != ieeeFloats)
            fail("the file is not SEG-Y with IEEE floats");
        interval = word16(fileHeader + 3216) * 1e-6;
        count = word16(fileHeader + 3220);
        record.resize(traceHeaderBytes + static_cast<std::size_t>(count) * 4);
        samples.resize(static_cast<std::size_t>(count));
    }
    ~Reader() { std::fclose(file); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// The next trace; false behind the last one.
    bool next()
    {
        if (std::fread(record.data(), record.size(), 1, file) != 1)
            return false;
        const unsigned char* from = record.data() + traceHeaderBytes;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const std::uint32_t bits = word32(from + 4 * i);
            std::memcpy(&samples[i], &bits, sizeof bits);
        }
        return true;
    }

    unsigned char fileHeader[fileHeaderBytes];
    double interval; ///< seconds
    int count;       ///< samples of a trace
    std::vector<unsigned char> record;
    std::vector<float> samples;

private:
    FILE* file;
};

} // namespace floors

#endif
