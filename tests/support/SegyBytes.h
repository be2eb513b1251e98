/// @file SegyBytes.h
///
/// Trace files made by hand, byte by byte, with nothing of the code that they test.
#ifndef SEGYBYTES_H
#define SEGYBYTES_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

inline void putInteger(Bytes& bytes, std::size_t at, int width, int64_t value, bool little = false)
{
    for (int i = 0; i < width; ++i) {
        const std::size_t place = at + static_cast<std::size_t>(little ? i : width - 1 - i);
        bytes[place] = static_cast<unsigned char>(value >> (8 * i));
    }
}

inline int64_t getInteger(const Bytes& bytes, std::size_t at, int width, bool little = false)
{
    uint64_t value = 0;
    for (int i = 0; i < width; ++i)
        value = value << 8 | bytes[at + static_cast<std::size_t>(little ? width - 1 - i : i)];
    const int spare = 64 - 8 * width;
    return static_cast<int64_t>(value << spare) >> spare;
}

inline uint32_t bitsOf(float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

inline float floatOf(uint32_t bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

inline void appendBytes(Bytes& bytes, const Bytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

inline void writeBytes(const std::string& path, const Bytes& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("cannot write " + path);
}

inline Bytes readBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

/// A SEG-Y file in the making. Positions are those of the standard, counted from 1.
struct SegyBytes
{
    bool little = false;
    Bytes header = Bytes(3600, 0x40); ///< text in EBCDIC blanks; the binary header is zero
    Bytes extended;                   ///< between file header and first trace
    Bytes traces;

    SegyBytes()
    {
        for (std::size_t i = 3200; i < 3600; ++i)
            header[i] = 0;
        setText("C 1 A SEG-Y FILE MADE BY HAND");
    }

    /// ASCII letters, digits and a few signs as EBCDIC, from the start of the text header.
    void setText(const std::string& text)
    {
        for (std::size_t i = 0; i < text.size(); ++i)
            header[i] = ebcdic(text[i]);
    }
    /// A word of the binary header, by its position in the file, 3201 to 3600.
    void setBinary(int position, int width, int64_t value)
    {
        putInteger(header, static_cast<std::size_t>(position) - 1, width, value, little);
    }
    /// The words that every file has.
    void describe(int samples, int interval, int format)
    {
        setBinary(3217, 2, interval);
        setBinary(3221, 2, samples);
        setBinary(3225, 2, format);
    }
    /// Appends a trace header with the words at positions 9 (field record), 21 (CDP), 115 (samples)
    /// and 117 (interval). Returns where it begins in `traces`.
    std::size_t addHeader(int fldr, int cdp, int samples, int interval)
    {
        const std::size_t start = traces.size();
        traces.resize(start + 240);
        setTrace(start, 9, 4, fldr);
        setTrace(start, 21, 4, cdp);
        setTrace(start, 115, 2, samples);
        setTrace(start, 117, 2, interval);
        return start;
    }
    void setTrace(std::size_t start, int position, int width, int64_t value)
    {
        putInteger(traces, start + static_cast<std::size_t>(position) - 1, width, value, little);
    }
    /// Appends one sample of so many bytes.
    void addSample(int64_t bits, int width = 4)
    {
        traces.resize(traces.size() + static_cast<std::size_t>(width));
        putInteger(traces, traces.size() - static_cast<std::size_t>(width), width, bits, little);
    }
    /// Appends a trace of 4-byte IEEE floats: `first`, `first` + 1, ...
    void addIeeeTrace(int fldr, int samples, float first, int interval = 4000)
    {
        addHeader(fldr, 100 + fldr, samples, interval);
        for (int i = 0; i < samples; ++i)
            addSample(bitsOf(first + static_cast<float>(i)));
    }

    Bytes bytes() const
    {
        Bytes all = header;
        appendBytes(all, extended);
        appendBytes(all, traces);
        return all;
    }
    void write(const std::string& path) const { writeBytes(path, bytes()); }

    static unsigned char ebcdic(char c)
    {
        if (c >= '0' && c <= '9')
            return static_cast<unsigned char>(0xF0 + c - '0');
        const int letter = (c | 0x20) - 'a';
        const int base = c >= 'a' ? 0x81 : 0xC1;
        if (letter >= 0 && letter < 26 && c >= 'A')
            return static_cast<unsigned char>(base + letter +
                                              (letter > 17  ? 15
                                               : letter > 8 ? 7
                                                            : 0));
        const std::string signs = "(:)-.,/=";
        const unsigned char codes[] = {0x4D, 0x7A, 0x5D, 0x60, 0x4B, 0x6B, 0x61, 0x7E};
        const std::size_t sign = signs.find(c);
        return sign == std::string::npos ? 0x40 : codes[sign];
    }
};

/// A file of IEEE traces, `traces` of `samples`: field records 1, 2, ..., and in each the samples
/// 100 * fldr, 100 * fldr + 1, ...
inline SegyBytes ieeeFile(int traces, int samples, bool little = false)
{
    SegyBytes file;
    file.little = little;
    file.describe(samples, 4000, 5);
    for (int i = 1; i <= traces; ++i)
        file.addIeeeTrace(i, samples, 100.0f * static_cast<float>(i));
    return file;
}

/// The path of a sample file in the folder that VORN_TEST_DATA names. Empty when the variable is
/// not set or the folder does not hold it; tests that need it are skipped then.
inline std::string sampleFile(const std::string& name)
{
    const char* folder = std::getenv("VORN_TEST_DATA");
    if (folder == nullptr)
        return {};
    const std::string path = folder + ("/" + name);
    return std::filesystem::exists(path) ? path : std::string();
}

#endif
