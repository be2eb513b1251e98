#include "report/NotedTable.h"

#include <charconv>
#include <cmath>

namespace host {

namespace {

// One line of CSV from `place` on, which moves to the next one.
std::vector<std::string> nextLine(std::string_view csv, std::size_t& place)
{
    std::vector<std::string> cells(1);
    bool quoted = false;
    while (place < csv.size()) {
        const char c = csv[place++];
        if (quoted) {
            if (c != '"')
                cells.back() += c;
            else if (place < csv.size() && csv[place] == '"')
                cells.back() += csv[place++];
            else
                quoted = false;
        } else if (c == '"' && cells.back().empty()) {
            quoted = true;
        } else if (c == ',') {
            cells.emplace_back();
        } else if (c == '\n') {
            break;
        } else if (c != '\r' || place >= csv.size() || csv[place] != '\n') {
            cells.back() += c;
        }
    }
    return cells;
}

bool isNumber(const std::string& text)
{
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && rest == end && std::isfinite(value);
}

void findNumbers(NotedTable& table)
{
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
        bool any = false;
        bool all = true;
        for (const std::vector<std::string>& row : table.rows) {
            const std::string& cell = row[column];
            any = any || !cell.empty();
            all = all && (cell.empty() || isNumber(cell));
        }
        table.isNumeric.push_back(any && all ? 1 : 0);
    }
}

} // namespace

bool isTableKey(std::string_view key)
{
    return key.ends_with(".table");
}

std::optional<NotedTable> notedTable(std::string_view csv)
{
    NotedTable table;
    std::size_t place = 0;
    table.columns = nextLine(csv, place);
    if (table.columns.size() > mostColumnsNoted ||
        (table.columns.size() == 1 && table.columns.front().empty()))
        return std::nullopt;
    while (place < csv.size()) {
        std::vector<std::string> row = nextLine(csv, place);
        if (row.size() != table.columns.size())
            return std::nullopt;
        if (table.rows.size() < mostRowsNoted)
            table.rows.push_back(std::move(row));
        else
            ++table.rowsLeftOut;
    }
    table.isNumeric.reserve(table.columns.size());
    findNumbers(table);
    return table;
}

} // namespace host
