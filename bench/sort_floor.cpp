// What the job segy_in -> sort -> segy_out costs at least: one program that reads the sort key of
// each trace, sorts the numbers of the traces, and copies the traces in that order.
//
//     bench_sort_floor IN OUT BYTE [BYTE ...]
//
// BYTE is where a 4-byte header word begins, from 1; a "-" before it means descending order. Files
// are SEG-Y, big endian, with 4-byte samples and traces of one length; anything else is refused.
// Samples are swapped on their way in and out, as in any program that looks at them.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t fileHeaderBytes = 3600;
constexpr std::size_t traceHeaderBytes = 240;
constexpr std::size_t bufferBytes = 1 << 20;
constexpr int ieeeFloats = 5;

struct Key
{
    std::size_t offset = 0; // in the header
    bool descends = false;
};

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

uint32_t wordAt(const unsigned char* bytes)
{
    uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return __builtin_bswap32(word);
}

void swapSamples(const unsigned char* from, unsigned char* to, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        const uint32_t bits = wordAt(from + 4 * i);
        std::memcpy(to + 4 * i, &bits, sizeof bits);
    }
}

void readAll(int file, unsigned char* to, std::size_t count, std::size_t offset)
{
    if (pread(file, to, count, static_cast<off_t>(offset)) != static_cast<ssize_t>(count))
        fail("can not read");
}

// The order that the traces have when they are sorted.
std::vector<std::size_t> orderOf(int file, std::size_t traces, std::size_t record,
                                 const std::vector<Key>& keys)
{
    std::vector<int64_t> values;
    values.reserve(traces * keys.size());
    unsigned char header[traceHeaderBytes];
    for (std::size_t i = 0; i < traces; ++i) {
        readAll(file, header, sizeof header, fileHeaderBytes + i * record);
        for (const Key& key : keys) {
            const auto value = static_cast<int32_t>(wordAt(header + key.offset));
            values.push_back(key.descends ? -int64_t{value} : value);
        }
    }
    std::vector<std::size_t> order(traces);
    std::iota(order.begin(), order.end(), std::size_t{0});
    const std::size_t width = keys.size();
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return std::lexicographical_compare(&values[a * width], &values[a * width] + width,
                                            &values[b * width], &values[b * width] + width);
    });
    return order;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4)
        fail("usage: bench_sort_floor IN OUT BYTE [BYTE ...]");
    const int in = open(argv[1], O_RDONLY | O_CLOEXEC);
    FILE* out = std::fopen(argv[2], "wb");
    struct stat status;
    if (in < 0 || out == nullptr || fstat(in, &status) != 0)
        fail("can not open a file");
    std::setvbuf(out, nullptr, _IOFBF, bufferBytes);
    std::vector<Key> keys;
    for (int i = 3; i < argc; ++i) {
        const long byte = std::atol(argv[i]);
        if (byte == 0 || std::labs(byte) > 237)
            fail("BYTE is a number from 1 to 237");
        keys.push_back({static_cast<std::size_t>(std::labs(byte) - 1), byte < 0});
    }

    unsigned char fileHeader[fileHeaderBytes];
    readAll(in, fileHeader, sizeof fileHeader, 0);
    const auto halfWord = [&](int offset) {
        return static_cast<std::size_t>(fileHeader[offset] << 8 | fileHeader[offset + 1]);
    };
    if (halfWord(3224) != ieeeFloats)
        fail("the file is not SEG-Y with IEEE floats");
    const std::size_t samples = halfWord(3220);
    const std::size_t record = traceHeaderBytes + samples * 4;
    const std::size_t traces =
        (static_cast<std::size_t>(status.st_size) - fileHeaderBytes) / record;
    std::fwrite(fileHeader, sizeof fileHeader, 1, out);

    std::vector<unsigned char> bytes(record);
    std::vector<float> trace(samples);
    unsigned char* const coded = bytes.data() + traceHeaderBytes;
    unsigned char* const plain = reinterpret_cast<unsigned char*>(trace.data());
    for (const std::size_t index : orderOf(in, traces, record, keys)) {
        readAll(in, bytes.data(), record, fileHeaderBytes + index * record);
        swapSamples(coded, plain, samples);
        swapSamples(plain, coded, samples);
        if (std::fwrite(bytes.data(), record, 1, out) != 1)
            fail("can not write");
    }
    close(in);
    return std::fclose(out) == 0 ? 0 : 2;
}
