/// @file TableWriter.h
///
/// Tables of numbers and texts, written row by row as CSV or as NumPy arrays.
#ifndef TABLEWRITER_H
#define TABLEWRITER_H

#include "file/OutputFile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// How a column is stored. Texts have at most 64 bytes.
enum class ColumnType
{
    integer32,
    integer64,
    real32,
    real64,
    text
};

struct Column
{
    std::string name;
    ColumnType type;
};

/// A value of a row; its column tells which field counts.
struct Cell
{
    std::int64_t whole = 0;
    double real = 0;
    std::string text;
};

/// Writes one table. Usual order: `begin`, `write` for each row, `end`; the file is the caller's to
/// commit. Failures are exceptions whose text is for the user.
class TableWriter
{
public:
    TableWriter() = default;
    TableWriter(const TableWriter&) = delete;
    TableWriter& operator=(const TableWriter&) = delete;
    virtual ~TableWriter() = default;

    virtual void begin() = 0;
    /// `row` has a cell for each column.
    virtual void write(const std::vector<Cell>& row) = 0;
    virtual void end() = 0;
};

/// A line of names, then a line for each row. Numbers have as many digits as they need to be read
/// back exactly; texts stand in double quotes where they have to. NaN is `nan`.
std::unique_ptr<TableWriter> csvWriter(VORN::OutputFile& file, const std::vector<Column>& columns);

/// The format of NumPy's `save`, version 1.0: a one-dimensional array of records, little endian and
/// without gaps, with a field for each column. Throws std::runtime_error when the header has no
/// room for the columns.
std::unique_ptr<TableWriter> npyWriter(VORN::OutputFile& file, const std::vector<Column>& columns);

#endif
