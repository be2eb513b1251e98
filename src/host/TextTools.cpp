#include "TextTools.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <numeric>
#include <optional>

namespace vorn {

namespace {

// One character of UTF-8 text; `length` 0: the bytes are none.
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

// Insertions, deletions, replacements and swaps of neighbours that lead from one text to the other.
int editDistance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<int>> d(a.size() + 1, std::vector<int>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        d[i][0] = static_cast<int>(i);
    std::iota(d[0].begin(), d[0].end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const int replaced = d[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

std::string fourDigits(double value)
{
    const int decimals = value >= 1000 ? 0 : value >= 100 ? 1 : value >= 10 ? 2 : 3;
    return fmt::format("{:.{}f}", value, decimals);
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

std::string nearestName(const std::string& wrong, const std::vector<std::string>& names)
{
    // Names are short; who calls with a page of text gets no suggestion.
    constexpr std::size_t longest = 100;
    if (wrong.size() > longest)
        return "";
    const std::string lower = lowerCase(wrong);
    std::string nearest;
    // A third of the letters may be wrong, never all of them.
    const int letters = static_cast<int>(wrong.size());
    int least = std::min(letters, std::max(1, letters / 3) + 1);
    for (const std::string& name : names) {
        if (name.size() > longest)
            continue;
        const int distance = editDistance(lower, lowerCase(name));
        if (distance < least) {
            least = distance;
            nearest = name;
        }
    }
    return nearest;
}

std::string suggestion(const std::string& wrong, const std::vector<std::string>& names,
                       const std::string& otherwise)
{
    const std::string nearest = nearestName(wrong, names);
    if (!nearest.empty())
        return "; did you mean " + quote(nearest) + "?";
    if (names.empty() || otherwise.empty())
        return "";
    return "; " + otherwise + " " + escaped(joined(names, ", "));
}

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

std::string formatMicros(double micros)
{
    if (micros < 1000)
        return fmt::format("{:.{}f} us", micros, micros == std::floor(micros) ? 0 : 1);
    if (micros < 999950)
        return fourDigits(micros / 1000) + " ms";
    const double seconds = micros / 1e6;
    if (seconds < 120)
        return fourDigits(seconds) + " s";
    const auto whole = static_cast<long long>(std::llround(seconds));
    if (whole < 7200)
        return fmt::format("{} min {:02} s", whole / 60, whole % 60);
    return fmt::format("{} h {:02} min", whole / 3600, whole % 3600 / 60);
}

std::string formatBytes(double bytes)
{
    static constexpr std::array units = {"B", "kB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    while (bytes >= 999.95 && unit + 1 < units.size()) {
        bytes /= 1000;
        ++unit;
    }
    return (unit == 0 ? fmt::format("{:.0f}", bytes) : fourDigits(bytes)) + " " + units[unit];
}

std::string formatRate(double perSecond)
{
    if (!std::isfinite(perSecond))
        return "-";
    const int decimals = perSecond >= 100 ? 0 : perSecond >= 10 ? 1 : perSecond >= 1 ? 2 : 3;
    return fmt::format("{:.{}f}", perSecond, decimals);
}

std::string formatNumber(double value)
{
    std::array<char, 40> buffer;
    char* const last = buffer.data() + buffer.size();
    // Whole numbers as people write them: 10000000, not 1e+07.
    const bool isWhole = value == std::floor(value) && std::abs(value) < 1e15;
    const auto end = isWhole ? std::to_chars(buffer.data(), last, static_cast<long long>(value))
                             : std::to_chars(buffer.data(), last, value);
    return std::string(buffer.data(), end.ptr);
}

std::string counted(int64_t count, const std::string& noun)
{
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

} // namespace vorn
