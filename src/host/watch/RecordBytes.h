/// @file RecordBytes.h
///
/// Numbers and texts as the bytes of a record, and back. docs/replay.md describes them.
///
/// Integers are written seven bits at a time, the low ones first, with the high bit set in all
/// bytes but the last; signed ones alternate (0, -1, 1, -2, ...), so that small numbers of either
/// sign are short. Everything else is little-endian.
#ifndef RECORDBYTES_H
#define RECORDBYTES_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host {

/// A record, or a piece of one, that cannot be read. The text says what is wrong, without the name
/// of the file.
class RecordError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Appends to a block of bytes.
class ByteWriter
{
public:
    std::string bytes; ///< what has been written

    void byte(int value) { bytes.push_back(static_cast<char>(value)); }

    void count(uint64_t value)
    {
        for (; value >= 0x80; value >>= 7)
            byte(static_cast<int>(value & 0x7F) | 0x80);
        byte(static_cast<int>(value));
    }

    void integer(int64_t value)
    {
        count(static_cast<uint64_t>(value) << 1 ^ (value < 0 ? ~uint64_t{0} : uint64_t{0}));
    }

    void real(double value)
    {
        const uint64_t bits = std::bit_cast<uint64_t>(value);
        for (int shift = 0; shift < 64; shift += 8)
            byte(static_cast<int>(bits >> shift & 0xFF));
    }

    void text(std::string_view value)
    {
        count(value.size());
        bytes.append(value);
    }

    /// `size` bytes as they are; the reader knows how many.
    void raw(const void* first, std::size_t size)
    {
        bytes.append(static_cast<const char*>(first), size);
    }

    /// Numbers of `width` bytes each, which this machine holds at `first`.
    void numbers(const void* first, std::size_t number, std::size_t width)
    {
        if constexpr (std::endian::native == std::endian::little) {
            raw(first, number * width);
        } else {
            const auto* from = static_cast<const char*>(first);
            for (std::size_t i = 0; i < number; ++i, from += width) {
                for (std::size_t at = width; at > 0; --at)
                    bytes.push_back(from[at - 1]);
            }
        }
    }
};

/// Reads a block of bytes. All functions throw RecordError where it ends too early.
class ByteReader
{
public:
    ByteReader() = default;
    /// Keeps a reference to the bytes.
    explicit ByteReader(std::string_view all) : rest(all) {}

    bool atEnd() const { return rest.empty(); }

    int byte() { return static_cast<unsigned char>(take(1).front()); }

    uint64_t count()
    {
        uint64_t value = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            const auto next = static_cast<uint64_t>(byte());
            value |= (next & 0x7F) << shift;
            if (next < 0x80)
                return value;
        }
        throw RecordError("a number has too many bytes");
    }

    /// A number of items of which each takes at least `width` bytes of what follows.
    std::size_t countOf(std::size_t width)
    {
        const uint64_t number = count();
        if (number > rest.size() / width)
            throw RecordError("a list is longer than the bytes that hold it");
        return static_cast<std::size_t>(number);
    }

    int64_t integer()
    {
        const uint64_t value = count();
        return static_cast<int64_t>(value >> 1 ^ (0 - (value & 1)));
    }

    /// An integer that must fit into 32 bits.
    int number()
    {
        const int64_t value = integer();
        if (value != static_cast<int>(value))
            throw RecordError("a number does not fit into 32 bits");
        return static_cast<int>(value);
    }

    double real()
    {
        uint64_t bits = 0;
        for (int shift = 0; shift < 64; shift += 8)
            bits |= static_cast<uint64_t>(byte()) << shift;
        return std::bit_cast<double>(bits);
    }

    std::string_view text() { return take(countOf(1)); }

    std::string_view take(std::size_t size)
    {
        if (size > rest.size())
            throw RecordError("a part of it ends too early");
        const std::string_view taken = rest.substr(0, size);
        rest.remove_prefix(size);
        return taken;
    }

    /// Numbers of `width` bytes, as this machine holds them.
    std::string numbers(std::size_t number, std::size_t width)
    {
        if (number > rest.size() / width)
            throw RecordError("a list is longer than the bytes that hold it");
        std::string values(take(number * width));
        if constexpr (std::endian::native != std::endian::little) {
            for (std::size_t i = 0; i < number; ++i)
                std::reverse(values.begin() + static_cast<std::ptrdiff_t>(i * width),
                             values.begin() + static_cast<std::ptrdiff_t>((i + 1) * width));
        }
        return values;
    }

private:
    std::string_view rest;
};

} // namespace host

#endif
