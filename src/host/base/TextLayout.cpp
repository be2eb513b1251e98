#include "base/TextLayout.h"

#include "base/Text.h"

#include <algorithm>
#include <cstddef>

namespace host {

std::string wrapped(std::string_view text, int width, int indent)
{
    const std::string margin(static_cast<std::size_t>(indent), ' ');
    std::string result;
    std::string line;
    const auto flush = [&] {
        if (!line.empty())
            result += margin + line + '\n';
        line.clear();
    };
    for (const std::string& source : splitLines(text)) {
        if (trimmed(source).empty()) {
            flush();
            result += '\n';
            continue;
        }
        std::size_t from = 0;
        while ((from = source.find_first_not_of(' ', from)) != std::string::npos) {
            const std::size_t to = std::min(source.find(' ', from), source.size());
            const std::string word = source.substr(from, to - from);
            if (!line.empty() && indent + displayWidth(line) + 1 + displayWidth(word) > width)
                flush();
            line += (line.empty() ? "" : " ") + word;
            from = to;
        }
    }
    flush();
    return result;
}

int displayWidth(std::string_view text)
{
    // cppcheck-suppress invalidLifetime ; it takes callers' variables for what `text` refers to
    return static_cast<int>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
    }));
}

std::string padRight(std::string_view text, int width)
{
    return std::string(text) +
           std::string(static_cast<std::size_t>(std::max(0, width - displayWidth(text))), ' ');
}

std::string padLeft(std::string_view text, int width)
{
    return std::string(static_cast<std::size_t>(std::max(0, width - displayWidth(text))), ' ') +
           std::string(text);
}

void TextTable::row(std::vector<std::string> cells)
{
    cells.resize(columns.size());
    rows.push_back(std::move(cells));
}

std::string TextTable::text(int indent) const
{
    std::vector<int> widths(columns.size(), 0);
    for (const auto& cells : rows) {
        for (std::size_t i = 0; i < columns.size(); ++i)
            widths[i] = std::max(widths[i], displayWidth(cells[i]));
    }
    std::string result;
    for (const auto& cells : rows) {
        std::string line(static_cast<std::size_t>(indent), ' ');
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (i > 0)
                line += "  ";
            line +=
                columns[i] == 'r' ? padLeft(cells[i], widths[i]) : padRight(cells[i], widths[i]);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        result += line + '\n';
    }
    return result;
}

} // namespace host
