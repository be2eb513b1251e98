/// @file NotedTable.h
///
/// Tables that modules note for the report: CSV as the value of a metadata key that ends in
/// ".table".
#ifndef NOTEDTABLE_H
#define NOTEDTABLE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct NotedTable
{
    std::vector<std::string> columns;
    std::vector<char> isNumeric; ///< of a column: all its cells are numbers or empty, not all empty
    std::vector<std::vector<std::string>> rows; ///< as many cells each as there are columns
    std::size_t rowsLeftOut = 0;
};

constexpr std::size_t mostRowsNoted = 1000;
constexpr std::size_t mostColumnsNoted = 60;

/// Whether the value of this key is shown as a table.
bool isTableKey(std::string_view key);

/// The table in `csv` (RFC 4180; lines may end with a line feed alone): its first line has the
/// names of the columns. Nothing where it has no columns, more than mostColumnsNoted, or rows with
/// another number of cells. Rows beyond mostRowsNoted are counted.
std::optional<NotedTable> notedTable(std::string_view csv);

} // namespace host

#endif
