// What the job segy_in -> segy_out costs at least: one program that reads a file, makes floats of
// the samples as this machine has them, makes the samples of the output of these, and writes.
//
//     bench_copy_floor IN OUT
//
// Files are SEG-Y, big endian, with IEEE floats and traces of one length; anything else is refused.
// Blocks of 256 KB are the size at which reading and writing took least.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t fileHeaderBytes = 3600;
constexpr std::size_t traceHeaderBytes = 240;
constexpr std::size_t blockBytes = 1 << 18;
constexpr int ieeeFloats = 5;

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

std::size_t word(const unsigned char* bytes)
{
    return static_cast<std::size_t>(bytes[0] << 8 | bytes[1]);
}

void swapSamples(const unsigned char* from, unsigned char* to, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        uint32_t bits;
        std::memcpy(&bits, from + 4 * i, sizeof bits);
        bits = __builtin_bswap32(bits);
        std::memcpy(to + 4 * i, &bits, sizeof bits);
    }
}

// As many of `count` bytes as the file still has.
std::size_t readBlock(int file, unsigned char* to, std::size_t count)
{
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got = read(file, to + done, count - done);
        if (got < 0)
            fail("can not read");
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

void writeBlock(int file, const unsigned char* from, std::size_t count)
{
    while (count > 0) {
        const ssize_t put = write(file, from, count);
        if (put <= 0)
            fail("can not write");
        from += put;
        count -= static_cast<std::size_t>(put);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
        fail("usage: bench_copy_floor IN OUT");
    const int in = open(argv[1], O_RDONLY);
    const int out = open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (in < 0 || out < 0)
        fail("can not open a file");
    posix_fadvise(in, 0, 0, POSIX_FADV_SEQUENTIAL);

    unsigned char fileHeader[fileHeaderBytes];
    if (readBlock(in, fileHeader, fileHeaderBytes) != fileHeaderBytes ||
        word(fileHeader + 3224) != ieeeFloats)
        fail("the file is not SEG-Y with IEEE floats");
    writeBlock(out, fileHeader, fileHeaderBytes);

    const std::size_t samples = word(fileHeader + 3220);
    const std::size_t traceBytes = traceHeaderBytes + 4 * samples;
    const std::size_t traces = traceBytes < blockBytes ? blockBytes / traceBytes : 1;
    std::vector<unsigned char> block(traces * traceBytes);
    std::vector<float> trace(samples);
    auto* const plain = reinterpret_cast<unsigned char*>(trace.data());
    std::size_t got = 0;
    while ((got = readBlock(in, block.data(), block.size())) > 0) {
        for (std::size_t at = 0; at + traceBytes <= got; at += traceBytes) {
            unsigned char* const coded = block.data() + at + traceHeaderBytes;
            swapSamples(coded, plain, samples);
            asm volatile("" : : "r"(plain) : "memory"); // the floats exist
            swapSamples(plain, coded, samples);
        }
        writeBlock(out, block.data(), got - got % traceBytes);
    }
    close(in);
    return close(out) == 0 ? 0 : 2;
}
