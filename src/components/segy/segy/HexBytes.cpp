#include "segy/HexBytes.h"

#include <cstddef>

namespace VORN {

namespace {

constexpr std::string_view digits = "0123456789abcdef";

} // namespace

std::string hexOf(const std::vector<unsigned char>& bytes)
{
    std::string text;
    text.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::vector<unsigned char> bytesOfHex(std::string_view text)
{
    if (text.size() % 2 != 0)
        return {};
    std::vector<unsigned char> bytes;
    bytes.reserve(text.size() / 2);
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const std::size_t high = digits.find(text[at]);
        const std::size_t low = digits.find(text[at + 1]);
        if (high == std::string_view::npos || low == std::string_view::npos)
            return {};
        bytes.push_back(static_cast<unsigned char>(high << 4 | low));
    }
    return bytes;
}

} // namespace VORN
