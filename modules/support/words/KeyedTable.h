/// @file KeyedTable.h
///
/// Tables that are joined to traces by the values of header words.
#ifndef KEYEDTABLE_H
#define KEYEDTABLE_H

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

namespace words {

/// The numbers of a CSV file by the values of its key columns: looked up in constant time.
class KeyedTable
{
public:
    /// Reads the columns `keys` and `columns` of the file; others may hold anything. Throws
    /// std::runtime_error with file and line, also where several rows have one key.
    KeyedTable(const std::string& path, const std::vector<std::string>& keys,
               const std::vector<std::string>& columns);

    /// The values of `columns` in the row of the key, or null when it has none. A key is found that
    /// is equal in all its numbers.
    const double* find(const std::vector<double>& key) const;

    std::size_t size() const { return rows.size(); } ///< how many keys there are

private:
    struct Hash
    {
        std::size_t operator()(const std::vector<double>& key) const;
    };

    std::unordered_map<std::vector<double>, std::size_t, Hash> rows;
    std::size_t width;
    std::vector<double>
        values; // a row after the other; one number more, so that each has an address
};

} // namespace words

#endif
