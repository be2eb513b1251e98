/// @file BlockBytes.h
///
/// Private to the kernel: copying and clearing the samples of a trace.
#ifndef BLOCKBYTES_H
#define BLOCKBYTES_H

#include <cstddef>
#include <cstring>

namespace blocks {

// C libraries handle more than about two kilobytes by the processor's string instruction, which is
// the best there is for memory outside the first cache. Nothing before or after it runs beside it,
// though, and the samples that go from module to module are in that cache: in pieces, a trace of
// 1,500 of them is copied in two thirds of the time.
constexpr std::size_t piece = 2048;
constexpr std::size_t largestInPieces = 16384; // twice that is a usual first cache

// A number of bytes that the compiler does not know: for known ones it writes the string
// instruction itself.
inline std::size_t pieceSize()
{
    std::size_t size = piece;
    asm("" : "+r"(size));
    return size;
}

/// Copies `bytes` bytes; `to` lies before `from`, at the same address, or beyond the bytes copied.
inline void copy(void* to, const void* from, std::size_t bytes)
{
    auto* target = static_cast<unsigned char*>(to);
    const auto* source = static_cast<const unsigned char*>(from);
    if (bytes <= largestInPieces) {
        for (; bytes > piece; bytes -= piece, target += piece, source += piece)
            std::memmove(target, source, pieceSize());
    }
    if (bytes > 0) // of no bytes the addresses may be null
        std::memmove(target, source, bytes);
}

/// Writes `bytes` zeros.
inline void clear(void* to, std::size_t bytes)
{
    auto* target = static_cast<unsigned char*>(to);
    if (bytes <= largestInPieces) {
        for (; bytes > piece; bytes -= piece, target += piece)
            std::memset(target, 0, pieceSize());
    }
    if (bytes > 0)
        std::memset(target, 0, bytes);
}

} // namespace blocks

#endif
