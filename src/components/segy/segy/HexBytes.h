/// @file HexBytes.h
///
/// Bytes as text, for places that hold texts only.
#ifndef HEXBYTES_H
#define HEXBYTES_H

#include "segy_export.h"

#include <string>
#include <string_view>
#include <vector>

namespace VORN {

/// Two hexadecimal digits for each byte, in lower case.
VORN_SEGY_EXPORT std::string hexOf(const std::vector<unsigned char>& bytes);

/// The bytes that such a text stands for; none where it is not such a text.
VORN_SEGY_EXPORT std::vector<unsigned char> bytesOfHex(std::string_view text);

} // namespace VORN

#endif
