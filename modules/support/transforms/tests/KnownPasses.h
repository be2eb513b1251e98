/// @file KnownPasses.h
///
/// The loops of transforms that this processor can run.
#ifndef KNOWNPASSES_H
#define KNOWNPASSES_H

#include "../RealTransform.h"

#include <vector>

/// The narrowest vectors first.
inline std::vector<const transforms::Passes*> knownPasses()
{
    std::vector<const transforms::Passes*> known = {&transforms::passesOfFour};
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2"))
        known.push_back(&transforms::passesOfEight);
    if (&transforms::fastestPasses() == &transforms::passesOfSixteen)
        known.push_back(&transforms::passesOfSixteen);
#endif
    return known;
}

#endif
