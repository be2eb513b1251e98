/// @file Quantities.h
///
/// Durations, sizes and rates for display, with a few significant digits; durations as typed.
#ifndef QUANTITIES_H
#define QUANTITIES_H

#include <cstdint>
#include <optional>
#include <string>

namespace host {

/// The seconds of "90", "90 s", "500 ms", "1.5 min", "2h"; nothing for any other text.
std::optional<double> parseDuration(const std::string& text);

std::string formatMicros(double micros);  ///< "12.34 ms", "3.210 s", "2 min 05 s"
std::string formatBytes(double bytes);    ///< "1.234 MB" (10^6 bytes)
std::string formatRate(double perSecond); ///< "12.3", "1234"

/// A number of any size, with four significant digits at least: "0.8125", "12.50", "40961",
/// "1.225e-09".
std::string formatSignificant(double value);
/// "1st", "2nd", "11th", "122nd".
std::string ordinal(int64_t number);

} // namespace host

#endif
