#include "base/Escaping.h"

#include <cstdint>
#include <fmt/format.h>
#include <optional>

namespace host {

namespace {

// One character of UTF-8 text; `length` 0: the bytes are not UTF-8.
struct Character
{
    uint32_t code = 0;
    std::size_t length = 0;
};

Character characterAt(std::string_view text, std::size_t at)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const unsigned char first = byte(0);
    if (first < 0x80)
        return {first, 1};
    std::size_t length = 0;
    uint32_t code = 0;
    uint32_t lowest = 0;
    if ((first & 0xe0) == 0xc0) {
        length = 2, code = first & 0x1fu, lowest = 0x80;
    } else if ((first & 0xf0) == 0xe0) {
        length = 3, code = first & 0x0fu, lowest = 0x800;
    } else if ((first & 0xf8) == 0xf0) {
        length = 4, code = first & 0x07u, lowest = 0x10000;
    }
    if (length == 0 || at + length > text.size())
        return {};
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return {};
        code = code << 6 | (byte(i) & 0x3fu);
    }
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < lowest || code > 0x10ffff || surrogate)
        return {};
    return {code, length};
}

// Controls, and marks that make text look different from what it is.
bool isHarmful(uint32_t code)
{
    return code < 0x20 || (code >= 0x7f && code < 0xa0) || code == 0x200e || code == 0x200f ||
           (code >= 0x2028 && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069) ||
           code == 0xfeff;
}

std::string escapeOf(uint32_t code)
{
    switch (code) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        return code < 0x100 ? fmt::format("\\x{:02x}", code) : fmt::format("\\u{:04x}", code);
    }
}

std::string escapedExcept(std::string_view text, std::optional<char> kept)
{
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        if (character.length == 0) {
            result += escapeOf(static_cast<unsigned char>(text[i]));
            ++i;
            continue;
        }
        if (isHarmful(character.code) && text[i] != kept)
            result += escapeOf(character.code);
        else
            result += text.substr(i, character.length);
        i += character.length;
    }
    return result;
}

} // namespace

std::string escaped(std::string_view text)
{
    return escapedExcept(text, std::nullopt);
}

std::string escapedLines(std::string_view text)
{
    return escapedExcept(text, '\n');
}

std::string quote(std::string_view text)
{
    std::string marked;
    for (const char c : text) {
        if (c == '"' || c == '\\')
            marked += '\\';
        marked += c;
    }
    return '"' + escaped(marked) + '"';
}

std::string shellWord(std::string_view word)
{
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789_@%+=:,./-";
    if (!word.empty() && word.find_first_not_of(plain) == std::string_view::npos)
        return std::string(word);
    if (escaped(word) == word) {
        std::string quoted = "'";
        for (const char c : word)
            quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
        return quoted + "'";
    }
    std::string quoted = "$'";
    for (const char c : word) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\'' || c == '\\')
            quoted += std::string("\\") + c;
        else if (byte < 0x20 || byte >= 0x7f)
            quoted += fmt::format("\\{:03o}", byte);
        else
            quoted += c;
    }
    return quoted + "'";
}

std::size_t utf8Prefix(std::string_view text)
{
    std::size_t i = 0;
    while (i < text.size()) {
        const Character character = characterAt(text, i);
        if (character.length == 0 || character.code == 0)
            break;
        i += character.length;
    }
    return i;
}

} // namespace host
