/// @file wrapping.h
///
/// Private to the kernel: 32-bit arithmetic that wraps. Counters of the statistics record,
/// accounted bytes and places in headers are 32-bit words by agreement with hosts and modules;
/// where they overflow they wrap, which the language defines for unsigned numbers only.
#ifndef WRAPPING_H
#define WRAPPING_H

#include <cstdint>

namespace wrapping {

/// a + b
constexpr int sum(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

/// a - b
constexpr int difference(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

/// a * b
constexpr int product(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

/// The low 32 bits.
constexpr int narrow(uint64_t value)
{
    return static_cast<int>(static_cast<uint32_t>(value));
}

} // namespace wrapping

#endif
