/// @file Quantities.h
///
/// Durations, sizes and rates for display, with a few significant digits; durations as typed.
#ifndef QUANTITIES_H
#define QUANTITIES_H

#include <optional>
#include <string>

namespace host {

/// The seconds of "90", "90 s", "500 ms", "1.5 min", "2h"; nothing for any other text.
std::optional<double> parseDuration(const std::string& text);

std::string formatMicros(double micros);  ///< "12.34 ms", "3.210 s", "2 min 05 s"
std::string formatBytes(double bytes);    ///< "1.234 MB" (10^6 bytes)
std::string formatRate(double perSecond); ///< "12.3", "1234"

} // namespace host

#endif
