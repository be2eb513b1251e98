#include "base/Text.h"

#include <fmt/format.h>

namespace host {

std::string trimmed(std::string_view text)
{
    const auto blank = " \t\r\n\f\v";
    const auto first = text.find_first_not_of(blank);
    if (first == std::string_view::npos)
        return "";
    return std::string(text.substr(first, text.find_last_not_of(blank) - first + 1));
}

std::string joined(const std::vector<std::string>& items, const std::string& separator)
{
    return fmt::format("{}", fmt::join(items, separator));
}

std::vector<std::string> splitLines(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const auto end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos)
            break;
        text.remove_prefix(end + 1);
    }
    return lines;
}

std::string lowerCase(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
}

std::string counted(int64_t count, const std::string& noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

} // namespace host
