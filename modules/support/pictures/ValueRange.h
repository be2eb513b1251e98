/// @file ValueRange.h
///
/// Which values the colours of an image stand for. Independent of the kernel.
#ifndef VALUERANGE_H
#define VALUERANGE_H

#include <string>
#include <vector>

namespace pictures {

/// The value that `percent` percent of the finite ones do not exceed: of n values in ascending
/// order that with the number (n - 1) percent / 100, rounded, from 0. 0 when there is none.
double percentile(std::vector<float> values, double percent);

/// `amplitude` in dB relative to `reference`, at least `floor` (below 0); `floor` where one of them
/// is 0.
double decibels(double amplitude, double reference, double floor);

/// A value in legends, with four digits.
std::string shortText(double value);

} // namespace pictures

#endif
