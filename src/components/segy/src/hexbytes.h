/// @file hexbytes.h
///
/// Bytes as text, for places that hold texts only.
#ifndef HEXBYTES_H
#define HEXBYTES_H

#include <string>
#include <string_view>
#include <vector>

namespace VORN {

/// Two hexadecimal digits for each byte, in lower case.
std::string hexOf(const std::vector<unsigned char>& bytes);

/// The bytes of such a text; none where it is no such text.
std::vector<unsigned char> bytesOfHex(std::string_view text);

} // namespace VORN

#endif
