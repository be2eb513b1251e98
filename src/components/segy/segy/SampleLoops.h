/// @file SampleLoops.h
///
/// Private to this library and its tests: the loops over samples, for each class of processors.
#ifndef SAMPLELOOPS_H
#define SAMPLELOOPS_H

#include "segy/Samples.h"
#include "segy_export.h"

#include <cstddef>
#include <span>

namespace VORN {

/// The conversions of Samples.h for one class of processors. All classes give the same bytes.
struct SampleLoops
{
    const char* instructions; ///< the class: "baseline", "AVX2", "AVX-512"
    /// See `decodeSamples`.
    void (*decode)(const unsigned char* from, SampleFormat format, bool littleEndian,
                   std::size_t count, float* to);
    /// See `encodeSamples`.
    std::size_t (*encode)(const float* from, std::size_t count, SampleFormat format,
                          bool littleEndian, unsigned char* to);
};

/// Those that this processor has, from the slowest to the fastest: at least one. They live as long
/// as the library, and take no memory of the heap.
VORN_SEGY_EXPORT std::span<const SampleLoops> sampleLoops();

} // namespace VORN

#endif
