// What the ranges of all trace header words cost at least: one program that reads each trace header
// and keeps the least, the greatest, the first and the last value of each word, and how often it
// changes.
//
//     bench_header_floor IN
//
// Files are SEG-Y, big endian, with traces of one length and 4-byte samples; anything else is
// refused. Prints a line for each word that is not always 0, in the order of the header.
#include "segy/HeaderWords.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t fileHeaderBytes = 3600;

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

struct Range
{
    int32_t least = 0;
    int32_t greatest = 0;
    int32_t first = 0;
    int32_t last = 0;
    int64_t changes = 0;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
        fail("usage: bench_header_floor IN");
    const int in = open(argv[1], O_RDONLY);
    if (in < 0)
        fail("can not open the file");
    unsigned char fileHeader[fileHeaderBytes];
    if (pread(in, fileHeader, sizeof fileHeader, 0) != static_cast<ssize_t>(sizeof fileHeader))
        fail("the file is not SEG-Y");
    const int samples = fileHeader[3220] << 8 | fileHeader[3221];
    const int format = fileHeader[3224] << 8 | fileHeader[3225];
    if (samples == 0 || (format != 1 && format != 2 && format != 5))
        fail("the file is not SEG-Y with 4-byte samples");
    const off_t traceBytes = VORN::segyTraceHeaderBytes + 4 * static_cast<off_t>(samples);

    const std::vector<VORN::HeaderWord>& words = VORN::traceHeaderWords();
    std::vector<Range> ranges(words.size());
    unsigned char header[VORN::segyTraceHeaderBytes];
    bool isFirst = true;
    for (off_t at = fileHeaderBytes; pread(in, header, sizeof header, at) == sizeof header;
         at += traceBytes)
    {
        for (std::size_t i = 0; i < words.size(); ++i) {
            const int32_t value = VORN::readWord(header, words[i], false);
            Range& range = ranges[i];
            if (isFirst)
                range = {value, value, value, value, 0};
            range.least = std::min(range.least, value);
            range.greatest = std::max(range.greatest, value);
            range.changes += value != range.last ? 1 : 0;
            range.last = value;
        }
        isFirst = false;
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
        const Range& range = ranges[i];
        if (range.least != 0 || range.greatest != 0)
            std::printf("%s %d %d %d %d %lld\n", words[i].key, range.least, range.greatest,
                        range.first, range.last, static_cast<long long>(range.changes));
    }
    close(in);
    return 0;
}
