/// @file Units.h
///
/// The units that numbers in job files may have.
#ifndef UNITS_H
#define UNITS_H

#include <optional>
#include <string>
#include <vector>

namespace host {

/// `value`, a number in the unit `from`, as a number in `to`: 500 ms are 0.5 s. Nothing when the
/// two are not of one quantity. Times (s, ms, us), frequencies (Hz, kHz), lengths (m, km) and
/// sizes of memory (kB, MB, GB) convert; any other unit is only equal to itself.
std::optional<double> convertUnit(double value, const std::string& from, const std::string& to);

/// Units that convert to `unit`, itself first.
std::vector<std::string> unitsLike(const std::string& unit);

} // namespace host

#endif
