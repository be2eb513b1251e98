/// @file Quantities.h
///
/// Durations, sizes and rates for display, with a few significant digits.
#ifndef QUANTITIES_H
#define QUANTITIES_H

#include <string>

namespace host {

std::string formatMicros(double micros);  ///< "12.34 ms", "3.210 s", "2 min 05 s"
std::string formatBytes(double bytes);    ///< "1.234 MB" (10^6 bytes)
std::string formatRate(double perSecond); ///< "12.3", "1234"

} // namespace host

#endif
