#include "TableWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace {

constexpr std::size_t textBytes = 64;

void put(VORN::OutputFile& file, const std::string& bytes)
{
    std::copy(bytes.begin(), bytes.end(), file.append(bytes.size()));
}

// ---- CSV ----

template <typename Number>
std::string shortest(Number value)
{
    if (std::isnan(static_cast<double>(value)))
        return "nan"; // its sign means nothing
    std::array<char, 40> text{};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), result.ptr};
}

std::string quoted(const std::string& text)
{
    if (text.find_first_of(",;\t\"\r\n#") == std::string::npos)
        return text;
    std::string inside;
    for (const char c : text) {
        if (c == '"')
            inside += c;
        inside += c;
    }
    return '"' + inside + '"';
}

std::string textOf(const Cell& cell, ColumnType type)
{
    switch (type) {
    case ColumnType::real32:
        return shortest(static_cast<float>(cell.real));
    case ColumnType::real64:
        return shortest(cell.real);
    case ColumnType::text:
        return quoted(cell.text);
    default:
        return shortest(cell.whole);
    }
}

class CsvWriter : public TableWriter
{
public:
    CsvWriter(VORN::OutputFile& output, const std::vector<Column>& list)
        : file(output), columns(list)
    {
    }

    void begin() override
    {
        std::string line;
        for (const Column& column : columns)
            line += (line.empty() ? "" : ",") + quoted(column.name);
        put(file, line + "\n");
    }

    void write(const std::vector<Cell>& row) override
    {
        std::string line;
        for (std::size_t i = 0; i < columns.size(); ++i)
            line += (i > 0 ? "," : "") + textOf(row[i], columns[i].type);
        put(file, line + "\n");
    }

    void end() override {}

private:
    VORN::OutputFile& file;
    std::vector<Column> columns;
};

// ---- NumPy ----

const char* descriptionOf(ColumnType type)
{
    switch (type) {
    case ColumnType::integer32:
        return "<i4";
    case ColumnType::integer64:
        return "<i8";
    case ColumnType::real32:
        return "<f4";
    case ColumnType::real64:
        return "<f8";
    default:
        return "|S64";
    }
}

// A text as Python writes it.
std::string literal(const std::string& text)
{
    std::string inside;
    for (const char c : text) {
        if (c == '\'' || c == '\\')
            inside += '\\';
        inside += c;
    }
    return "'" + inside + "'";
}

void putLittleEndian(std::string& bytes, std::uint64_t value, int count)
{
    for (int i = 0; i < count; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 0xff);
}

class NpyWriter : public TableWriter
{
public:
    NpyWriter(VORN::OutputFile& output, const std::vector<Column>& list)
        : file(output), columns(list)
    {
        // Room for the greatest number of rows: the header keeps its length when the number is
        // known. The data begin at a multiple of 64 bytes.
        const std::size_t longest = headerOf(INT64_MAX).size() + 1;
        room = (prefix + longest + 63) / 64 * 64 - prefix;
        if (room > 65535)
            throw std::runtime_error("the names of " + std::to_string(columns.size()) +
                                     " columns need " + std::to_string(room) +
                                     " bytes in the header of an npy file, which has room for "
                                     "65535; give fewer words, or write csv");
    }

    void begin() override { put(file, header()); }

    void write(const std::vector<Cell>& row) override
    {
        record.clear();
        for (std::size_t i = 0; i < columns.size(); ++i)
            add(row[i], columns[i].type);
        put(file, record);
        ++rows;
    }

    void end() override
    {
        const std::string complete = header();
        file.replace(0, complete.data(), complete.size());
    }

private:
    static constexpr std::size_t prefix = 10; // magic, version, length of the header

    std::string headerOf(std::int64_t count) const
    {
        std::string fields;
        for (const Column& column : columns)
            fields += "(" + literal(column.name) + ", '" + descriptionOf(column.type) + "'), ";
        return "{'descr': [" + fields + "], 'fortran_order': False, 'shape': (" +
               std::to_string(count) + ",), }";
    }

    std::string header() const
    {
        std::string bytes = "\x93NUMPY";
        putLittleEndian(bytes, 1, 1);
        putLittleEndian(bytes, 0, 1);
        putLittleEndian(bytes, room, 2);
        bytes += headerOf(rows);
        bytes.resize(prefix + room - 1, ' ');
        return bytes + '\n';
    }

    void add(const Cell& cell, ColumnType type)
    {
        switch (type) {
        case ColumnType::integer32:
            putLittleEndian(record, static_cast<std::uint64_t>(cell.whole), 4);
            break;
        case ColumnType::integer64:
            putLittleEndian(record, static_cast<std::uint64_t>(cell.whole), 8);
            break;
        case ColumnType::real32:
            putLittleEndian(record, std::bit_cast<std::uint32_t>(static_cast<float>(cell.real)), 4);
            break;
        case ColumnType::real64:
            putLittleEndian(record, std::bit_cast<std::uint64_t>(cell.real), 8);
            break;
        case ColumnType::text:
            record += cell.text.substr(0, textBytes);
            record.append(textBytes - std::min(textBytes, cell.text.size()), '\0');
            break;
        }
    }

    VORN::OutputFile& file;
    std::vector<Column> columns;
    std::size_t room = 0; // bytes of the header behind the prefix
    std::int64_t rows = 0;
    std::string record;
};

} // namespace

std::unique_ptr<TableWriter> csvWriter(VORN::OutputFile& file, const std::vector<Column>& columns)
{
    return std::make_unique<CsvWriter>(file, columns);
}

std::unique_ptr<TableWriter> npyWriter(VORN::OutputFile& file, const std::vector<Column>& columns)
{
    return std::make_unique<NpyWriter>(file, columns);
}
