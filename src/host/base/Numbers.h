/// @file Numbers.h
///
/// Numbers as texts, whatever the locale: a decimal point, no grouping.
#ifndef NUMBERS_H
#define NUMBERS_H

#include <optional>
#include <string>

namespace host {

/// @name Values of scalars
/// Nothing when the text is not wholly such a value. Numbers have a decimal point, no grouping, no
/// blanks; "inf" and "nan" are not numbers here.
/// @{
std::optional<long long> parseInteger(const std::string& text);
std::optional<double> parseNumber(const std::string& text);
/// true, yes, on and false, no, off, in any case.
std::optional<bool> parseBoolean(const std::string& text);
/// @}

/// The shortest decimal number that reads back as `value`.
std::string formatNumber(double value);

/// `value` with so many decimals; -0 is written as 0.
std::string formatFixed(double value, int decimals);

} // namespace host

#endif
