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
    /// Reads the whole file.
    explicit CsvFile(const std::string& path);

    const std::string& path() const { return file; }
    const std::vector<std::string>& columns() const { return names; }
    std::size_t rows() const { return lines.size(); }
    std::int64_t line(std::size_t row) const { return lines[row]; } ///< in the file, from 1

    /// The place of a column, from 0; throws with all names when the column does not exist.
    std::size_t column(const std::string& name) const;
    /// The number in a cell; throws when it is not a finite number.
    double number(std::size_t row, std::size_t column) const;
    /// Throws: `text` is what is wrong in that row.
    [[noreturn]] void refuse(std::size_t row, const std::string& text) const;

private:
    void readNames(const std::string& line, std::int64_t number);
    void readRow(const std::string& line, std::int64_t number);

    std::string file;
    char separator = ',';
    std::vector<std::string> names;
    std::vector<std::string> cells; // row by row
    std::vector<std::int64_t> lines;
};

} // namespace words

#endif
