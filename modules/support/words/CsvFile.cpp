#include "words/CsvFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>
#include <utility>

namespace words {

namespace {

constexpr const char* blanks = " \t\r";

std::string trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

// A separator inside quotes is part of its cell.
std::vector<std::string> cellsOf(const std::string& line, char separator)
{
    std::vector<std::string> found;
    std::string cell;
    bool isQuoted = false;
    for (const char c : line) {
        if (c == '"')
            isQuoted = !isQuoted;
        else if (c == separator && !isQuoted)
            found.push_back(trimmed(std::exchange(cell, "")));
        else
            cell += c;
    }
    found.push_back(trimmed(cell));
    return found;
}

char separatorOf(const std::string& line)
{
    for (const char candidate : {',', ';', '\t'}) {
        if (line.find(candidate) != std::string::npos)
            return candidate;
    }
    return ',';
}

// Nothing where a cell is not a finite number.
std::optional<double> numberIn(const std::string& cell)
{
    const char* begin = cell.c_str() + (cell.starts_with('+') ? 1 : 0);
    const char* end = cell.c_str() + cell.size();
    double value = 0;
    const auto [stop, status] = std::from_chars(begin, end, value);
    if (cell.empty() || stop != end || status != std::errc() || !std::isfinite(value))
        return std::nullopt;
    return value;
}

bool isNumber(const std::string& cell)
{
    return numberIn(cell).has_value();
}

// A folder can be opened and only fails when it is read.
void refuseUnreadable(const std::string& path)
{
    struct stat what = {};
    if (stat(path.c_str(), &what) != 0)
        throw std::runtime_error(path + ": " + std::strerror(errno) +
                                 "; give the name of a file with a table");
    if (!S_ISREG(what.st_mode))
        throw std::runtime_error(path + ": this is not a regular file; give a file with a table");
}

} // namespace

CsvFile::CsvFile(const std::string& path, const std::vector<std::string>& unnamed) : file(path)
{
    refuseUnreadable(path);
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    std::string line;
    for (std::int64_t number = 1; std::getline(stream, line); ++number) {
        if (number == 1 && line.starts_with("\xEF\xBB\xBF"))
            line.erase(0, 3); // spreadsheets put this mark of UTF-8 in front
        const std::size_t begin = line.find_first_not_of(blanks);
        if (begin == std::string::npos || line[begin] == '#')
            continue;
        if (line.find('\0') != std::string::npos)
            throw std::runtime_error(path + ":" + std::to_string(number) +
                                     ": a byte is 0; this is not a text file");
        if (names.empty() && isRowOf(unnamed, line))
            names = unnamed;
        if (names.empty())
            readNames(line, number);
        else
            readRow(line, number);
    }
    if (stream.bad())
        throw std::runtime_error(path + ": the file cannot be read to its end");
    if (names.empty())
        throw std::runtime_error(path + ": the file is empty; its first line has to name columns");
    if (lines.empty())
        throw std::runtime_error(path + ": no row follows the line of column names");
}

bool CsvFile::isRowOf(const std::vector<std::string>& columns, const std::string& line)
{
    separator = separatorOf(line);
    const std::vector<std::string> row = cellsOf(line, separator);
    return row.size() == columns.size() && std::all_of(row.begin(), row.end(), isNumber);
}

void CsvFile::readNames(const std::string& line, std::int64_t number)
{
    separator = separatorOf(line);
    names = cellsOf(line, separator);
    const std::string place = file + ":" + std::to_string(number) + ": ";
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i].empty())
            throw std::runtime_error(place + "column " + std::to_string(i + 1) + " has no name");
        if (std::find(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(i), names[i]) !=
            names.begin() + static_cast<std::ptrdiff_t>(i))
            throw std::runtime_error(place + "two columns are named \"" + names[i] + "\"");
    }
}

void CsvFile::readRow(const std::string& line, std::int64_t number)
{
    std::vector<std::string> row = cellsOf(line, separator);
    if (row.size() != names.size())
        throw std::runtime_error(file + ":" + std::to_string(number) + ": the row has " +
                                 std::to_string(row.size()) + " cells, and there are " +
                                 std::to_string(names.size()) + " columns");
    std::move(row.begin(), row.end(), std::back_inserter(cells));
    lines.push_back(number);
}

std::size_t CsvFile::column(const std::string& name) const
{
    const auto found = std::find(names.begin(), names.end(), name);
    if (found != names.end())
        return static_cast<std::size_t>(found - names.begin());
    std::string all;
    for (const std::string& one : names)
        all += (all.empty() ? "" : ", ") + one;
    throw std::runtime_error(file + ": the column \"" + name +
                             "\" does not exist; the columns are " + all);
}

double CsvFile::number(std::size_t row, std::size_t column) const
{
    const std::string& cell = text(row, column);
    const std::optional<double> value = numberIn(cell);
    if (!value)
        refuse(row, names[column] + " is \"" + cell + "\"; give a finite number");
    return *value;
}

void CsvFile::refuse(std::size_t row, const std::string& text) const
{
    throw std::runtime_error(file + ":" + std::to_string(lines[row]) + ": " + text);
}

} // namespace words
