/// @file CsvFile.h
///
/// Tables in text files, one row a line.
#ifndef CSVFILE_H
#define CSVFILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace words {

/// A table of comma-separated values (also semicolons or tabs, whichever the first line has). The
/// first line has the names of the columns. Empty lines and lines that begin with "#" are skipped;
/// a cell may stand in double quotes. Failures are std::runtime_error with file, line and what was
/// expected.
class CsvFile
{
public:
    /// Reads the whole file. Where its first line has as many cells as `unnamed`, and all of them
    /// are numbers, it is a row, and the columns have the names of `unnamed`.
    explicit CsvFile(const std::string& path, const std::vector<std::string>& unnamed = {});

    const std::string& path() const { return file; }
    const std::vector<std::string>& columns() const { return names; }
    std::size_t rows() const { return lines.size(); }
    std::int64_t line(std::size_t row) const { return lines[row]; } ///< in the file, from 1

    /// The place of a column, from 0; throws with all names when the column does not exist.
    std::size_t column(const std::string& name) const;
    /// What stands in a cell, without blanks around it.
    const std::string& text(std::size_t row, std::size_t column) const
    {
        return cells[row * names.size() + column];
    }
    /// The number in a cell; throws when it is not a finite number.
    double number(std::size_t row, std::size_t column) const;
    /// Throws: `text` is what is wrong in that row.
    [[noreturn]] void refuse(std::size_t row, const std::string& text) const;

private:
    void readNames(const std::string& line, std::int64_t number);
    bool isRowOf(const std::vector<std::string>& columns, const std::string& line);
    void readRow(const std::string& line, std::int64_t number);

    std::string file;
    char separator = ',';
    std::vector<std::string> names;
    std::vector<std::string> cells; // row by row
    std::vector<std::int64_t> lines;
};

} // namespace words

#endif
