#include "words/KeyedTable.h"

#include "words/CsvFile.h"

#include <algorithm>
#include <functional>

namespace words {

namespace {

// "fldr 3, tracf 7"
std::string keyText(const std::vector<std::string>& names, const CsvFile& file, std::size_t row)
{
    std::string text;
    for (const std::string& name : names) {
        std::string number = std::to_string(file.number(row, file.column(name)));
        number.erase(number.find_last_not_of('0') + 1);
        if (number.back() == '.')
            number.pop_back();
        text += (text.empty() ? "" : ", ") + name + " " + number;
    }
    return text;
}

std::vector<std::size_t> placesOf(const CsvFile& file, const std::vector<std::string>& names)
{
    std::vector<std::size_t> places(names.size());
    std::transform(names.begin(), names.end(), places.begin(),
                   [&](const std::string& name) { return file.column(name); });
    return places;
}

} // namespace

std::size_t KeyedTable::Hash::operator()(const std::vector<double>& key) const
{
    std::size_t hash = 0;
    for (const double value : key)
        hash = hash * 1000003 + std::hash<double>()(value);
    return hash;
}

KeyedTable::KeyedTable(const std::string& path, const std::vector<std::string>& keys,
                       const std::vector<std::string>& columns)
    : width(columns.size())
{
    const CsvFile file(path);
    const std::vector<std::size_t> keyPlaces = placesOf(file, keys);
    const std::vector<std::size_t> places = placesOf(file, columns);
    values.reserve(file.rows() * width + 1);
    for (std::size_t row = 0; row < file.rows(); ++row) {
        std::vector<double> key(keyPlaces.size());
        std::transform(keyPlaces.begin(), keyPlaces.end(), key.begin(),
                       [&](std::size_t place) { return file.number(row, place); });
        const auto [known, isNew] = rows.emplace(std::move(key), row);
        if (!isNew)
            file.refuse(row, keyText(keys, file, row) + " is also in line " +
                                 std::to_string(file.line(known->second)) +
                                 "; give each key one row");
        for (const std::size_t place : places)
            values.push_back(file.number(row, place));
    }
    values.push_back(0);
}

const double* KeyedTable::find(const std::vector<double>& key) const
{
    const auto found = rows.find(key);
    return found == rows.end() ? nullptr : values.data() + found->second * width;
}

} // namespace words
