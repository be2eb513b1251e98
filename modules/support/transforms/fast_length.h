/// @file fast_length.h
///
/// Lengths of Fourier transforms.
#ifndef FAST_LENGTH_H
#define FAST_LENGTH_H

#include <algorithm>
#include <cstdint>

/// The next even number from `least` on that is a product of powers of 2, 3 and 5: transforms of
/// such lengths are fast.
inline std::int64_t evenFastLength(std::int64_t least)
{
    for (std::int64_t length = std::max<std::int64_t>(least + least % 2, 2);; length += 2) {
        std::int64_t rest = length;
        for (const int factor : {2, 3, 5})
            while (rest % factor == 0)
                rest /= factor;
        if (rest == 1)
            return length;
    }
}

#endif
