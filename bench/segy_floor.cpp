// What the job segy_in -> bandpass -> agc -> segy_out costs at least: one program that reads a
// file, filters with the same plan of the transform, gains in the same way, and writes.
//
//     bench_segy_floor IN OUT LOW HIGH WINDOW
//
// Frequencies in Hz, the window in seconds. Files are SEG-Y, big endian, with IEEE floats and
// traces of one length; anything else is refused.
#include "bandpass_math.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" void agc_balance(float* samples, int count, int half, int measure, double level,
                            double* forward, double* backward);

namespace {

constexpr std::size_t fileHeaderBytes = 3600;
constexpr std::size_t traceHeaderBytes = 240;
constexpr std::size_t bufferBytes = 1 << 20;
constexpr int ieeeFloats = 5;
constexpr int rootMeanSquare = 1;

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "%s\n", what);
    std::exit(2);
}

int word(const unsigned char* bytes)
{
    return bytes[0] << 8 | bytes[1];
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

double response(const void* band, double frequency)
{
    return bandpass_butterworth(static_cast<const bandpass_band*>(band), frequency);
}

FILE* open(const char* path, const char* mode)
{
    FILE* file = std::fopen(path, mode);
    if (file == nullptr)
        fail("can not open a file");
    std::setvbuf(file, nullptr, _IOFBF, bufferBytes);
    return file;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 6)
        fail("usage: bench_segy_floor IN OUT LOW HIGH WINDOW");
    FILE* in = open(argv[1], "rb");
    FILE* out = open(argv[2], "wb");

    unsigned char fileHeader[fileHeaderBytes];
    if (std::fread(fileHeader, fileHeaderBytes, 1, in) != 1 ||
        word(fileHeader + 3224) != ieeeFloats)
        fail("the file is no SEG-Y with IEEE floats");
    std::fwrite(fileHeader, fileHeaderBytes, 1, out);
    const double interval = word(fileHeader + 3216) * 1e-6;
    const int count = word(fileHeader + 3220);
    const std::size_t samples = static_cast<std::size_t>(count);

    // The slopes are those that the module takes when none are given.
    const bandpass_band band = {std::atof(argv[3]), 18, std::atof(argv[4]), 36};
    bandpass_filter* filter = bandpass_create(count, interval, response, &band);
    if (filter == nullptr)
        fail("can not make the filter");
    const int half = static_cast<int>(std::lround(std::atof(argv[5]) / (2 * interval)));

    std::vector<unsigned char> record(traceHeaderBytes + samples * 4);
    std::vector<float> trace(samples);
    std::vector<double> forward(samples);
    std::vector<double> backward(samples);
    unsigned char* const coded = record.data() + traceHeaderBytes;
    unsigned char* const plain = reinterpret_cast<unsigned char*>(trace.data());
    while (std::fread(record.data(), record.size(), 1, in) == 1) {
        swapSamples(coded, plain, samples);
        bandpass_apply(filter, trace.data());
        agc_balance(trace.data(), count, half, rootMeanSquare, 1, forward.data(), backward.data());
        swapSamples(plain, coded, samples);
        if (std::fwrite(record.data(), record.size(), 1, out) != 1)
            fail("can not write");
    }
    bandpass_free(filter);
    std::fclose(in);
    return std::fclose(out) == 0 ? 0 : 2;
}
