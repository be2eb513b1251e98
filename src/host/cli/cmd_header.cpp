// vorn header FILE.sgy: what the headers of a SEG-Y file say.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Numbers.h"
#include "base/Suggestions.h"
#include "base/Text.h"
#include "base/TextLayout.h"
#include "cli/SegyOptions.h"
#include "segy/NumberRanges.h"
#include "segy/SegyReader.h"
#include "segy/SegyTraceStatements.h"
#include "segy/TextHeader.h"
#include "segy/WordRanges.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <optional>

namespace host {

namespace {

using VORN::HeaderWord;
using VORN::SegyReader;
using VORN::WordValue;
using Words = std::vector<const HeaderWord*>;

// The range of one trace header word among the selected traces.
struct WordRange
{
    const HeaderWord* word;
    WordValue minimum = 0;
    WordValue maximum = 0;
    WordValue first = 0;
    WordValue last = 0;
    int64_t changes = 0;

    void see(const WordValue& value, bool isFirst)
    {
        if (isFirst) {
            minimum = maximum = first = last = value;
            return;
        }
        minimum = isLess(value, minimum) ? value : minimum;
        maximum = isLess(maximum, value) ? value : maximum;
        changes += isLess(value, last) || isLess(last, value) ? 1 : 0;
        last = value;
    }
    bool isAlwaysZero() const { return minimum.number() == 0 && maximum.number() == 0; }

private:
    // Values of one word are all integers or all floats.
    static bool isLess(const WordValue& a, const WordValue& b)
    {
        return a.isFloat ? a.real < b.real : a.whole < b.whole;
    }
};

std::string textOf(const WordValue& value)
{
    if (!value.isFloat)
        return std::to_string(value.whole);
    // Most are floats of 32 bits, which fewer digits tell apart.
    const auto narrow = static_cast<float>(value.real);
    return static_cast<double>(narrow) == value.real && value.real != std::floor(value.real)
               ? fmt::format("{}", narrow)
               : formatNumber(value.real);
}

nlohmann::json jsonOf(const WordValue& value)
{
    return value.isFloat ? nlohmann::json(value.real) : nlohmann::json(value.whole);
}

// The words of `table` named with --words, or all of them.
Words chosenWords(const Arguments& arguments, const std::vector<HeaderWord>& table)
{
    Words words;
    for (const std::string& list : arguments.texts("--words")) {
        std::size_t at = 0;
        while (at <= list.size()) {
            const std::size_t end = std::min(list.find(',', at), list.size());
            const std::string key = trimmed(list.substr(at, end - at));
            at = end + 1;
            const HeaderWord* word = findWord(table, key);
            if (word == nullptr)
                throw CommandError("there is no trace header word " + quote(key) +
                                   suggestion(key, keysOf(table), ""));
            words.push_back(word);
        }
    }
    if (words.empty()) {
        for (const HeaderWord& word : table)
            words.push_back(&word);
    }
    return words;
}

VORN::NumberRanges chosenTraces(const Arguments& arguments)
{
    try {
        return VORN::NumberRanges(arguments.text("--traces", "1:"));
    } catch (const std::invalid_argument& error) {
        throw CommandError(std::string("--traces: ") + error.what());
    }
}

struct TraceHeaders
{
    std::vector<std::string> warnings;
    std::vector<WordRange> ranges;
    int64_t count = 0;
    // One each per trace, only where rows are wanted:
    std::vector<int64_t> numbers; // from 1
    std::vector<std::vector<WordValue>> values;
};

// The ranges without the values of each trace, which nearly all words have.
bool areRangesAlone(const Words& words, bool rows)
{
    return !rows && std::all_of(words.begin(), words.end(), [](const HeaderWord* word) {
        return VORN::WordRanges::canSee(*word);
    });
}

TraceHeaders readTraceHeaders(SegyReader& reader, const Words& words,
                              const VORN::NumberRanges& traces, bool rows)
{
    TraceHeaders found;
    for (const HeaderWord* word : words)
        found.ranges.push_back({word});
    VORN::SegyTraceStatements statements(reader);
    std::optional<VORN::WordRanges> together;
    if (areRangesAlone(words, rows))
        together.emplace(words);
    for (std::optional<int64_t> number = traces.next(1);
         number && *number <= reader.layout().traces; number = traces.next(*number + 1))
    {
        const unsigned char* header = reader.header(*number - 1);
        statements.see(*number - 1, header);
        if (together) {
            together->see(header, reader.layout().littleEndian);
            ++found.count;
            continue;
        }
        std::vector<WordValue> row;
        for (WordRange& range : found.ranges) {
            const WordValue value =
                VORN::readWordValue(header, *range.word, reader.layout().littleEndian);
            range.see(value, found.count == 0);
            if (rows)
                row.push_back(value);
        }
        ++found.count;
        if (!rows)
            continue;
        found.numbers.push_back(*number);
        found.values.push_back(std::move(row));
    }
    for (std::size_t i = 0; together && i < words.size(); ++i) {
        const VORN::WordRanges::Range range = together->range(i);
        found.ranges[i] = {words[i],    range.minimum, range.maximum,
                           range.first, range.last,    range.changes};
    }
    found.warnings = statements.warnings();
    return found;
}

void printWarnings(const SegyReader& reader, const std::vector<std::string>& warnings)
{
    for (const std::string& warning : warnings)
        std::fprintf(stderr, "vorn: %s: warning: %s\n", escaped(reader.path()).c_str(),
                     escaped(warning).c_str());
}

void printLayout(const SegyReader& reader)
{
    const VORN::SegyLayout& layout = reader.layout();
    std::printf("file      %s, %lld bytes\n", escaped(reader.path()).c_str(),
                static_cast<long long>(layout.fileBytes));
    std::printf("coding    revision %d, %s endian, %s, %s text%s\n", layout.revision,
                layout.littleEndian ? "little" : "big", VORN::sampleFormatName(layout.format),
                layout.ebcdic ? "EBCDIC" : "ASCII",
                layout.extendedHeaders > 0
                    ? (", " + counted(layout.extendedHeaders, "extended text header")).c_str()
                    : "");
    std::printf("traces    %lld of %s%d samples, every %s ms\n",
                static_cast<long long>(layout.traces), layout.variableLength ? "up to " : "",
                layout.samples, formatNumber(layout.interval / 1000.0).c_str());
}

void printCards(const std::string& title, const std::string& text)
{
    std::printf("\n%s\n", title.c_str());
    std::vector<std::string> cards = VORN::textCards(text);
    while (!cards.empty() && cards.back().empty())
        cards.pop_back();
    for (const std::string& card : cards)
        std::printf("  %s\n", escaped(card).c_str());
}

void printBinaryHeader(const SegyReader& reader)
{
    std::printf("\nbinary header\n");
    TextTable table("lrl");
    for (const HeaderWord& word : VORN::binaryHeaderWords()) {
        const int32_t value = reader.binaryWord(word.key);
        if (value != 0)
            table.row({word.key, std::to_string(value), word.text});
    }
    std::printf("%s", table.text(2).c_str());
}

void printRanges(const TraceHeaders& headers, bool withZeros)
{
    std::printf("\ntrace headers of %s%s\n", counted(headers.count, "trace").c_str(),
                withZeros ? "" : "; words that are always 0 are left out");
    if (headers.count == 0)
        return;
    TextTable table("lrrrrrl");
    table.row({"word", "minimum", "maximum", "first", "last", "changes", "meaning"});
    for (const WordRange& range : headers.ranges) {
        if (!withZeros && range.isAlwaysZero())
            continue;
        table.row({range.word->key, textOf(range.minimum), textOf(range.maximum),
                   textOf(range.first), textOf(range.last), std::to_string(range.changes),
                   range.word->text});
    }
    std::printf("%s", table.text(2).c_str());
}

// What revision 0 does not define, and is shown all the same.
std::string noteOnVendorBytes(const SegyReader& reader, const TraceHeaders& headers,
                              const VORN::WordMap& map)
{
    constexpr int lastByteOfRevision0 = 180;
    std::string keys;
    for (const WordRange& range : headers.ranges) {
        if (range.word->byte > lastByteOfRevision0 && !range.isAlwaysZero() &&
            !map.has(range.word->key))
            keys += (keys.empty() ? "" : ", ") + std::string(range.word->key);
    }
    if (reader.layout().revision != 0 || keys.empty())
        return "";
    return "revision 0 leaves bytes 181 to 240 to the maker of the file; shown as in revision 1: " +
           keys + " (--map gives bytes another meaning)";
}

// One line per trace; words that are 0 in all of them only when they were asked for.
void printRows(const TraceHeaders& headers, bool withZeros)
{
    std::printf("\nvalues by trace\n");
    std::string alignment = "r";
    std::vector<std::string> titles{"trace"};
    std::vector<std::size_t> shown;
    for (std::size_t i = 0; i < headers.ranges.size(); ++i) {
        if (!withZeros && headers.ranges[i].isAlwaysZero())
            continue;
        shown.push_back(i);
        titles.emplace_back(headers.ranges[i].word->key);
        alignment += 'r';
    }
    TextTable table(alignment);
    table.row(titles);
    for (std::size_t trace = 0; trace < headers.numbers.size(); ++trace) {
        std::vector<std::string> cells{std::to_string(headers.numbers[trace])};
        for (const std::size_t word : shown)
            cells.push_back(textOf(headers.values[trace][word]));
        table.row(cells);
    }
    std::printf("%s", table.text(2).c_str());
}

nlohmann::json jsonOf(const SegyReader& reader, const TraceHeaders& headers,
                      const VORN::WordMap& map)
{
    const VORN::SegyLayout& layout = reader.layout();
    nlohmann::json json;
    json["file"] = escaped(reader.path());
    json["bytes"] = layout.fileBytes;
    json["revision"] = layout.revision;
    json["byte_order"] = layout.littleEndian ? "little" : "big";
    json["format"] = static_cast<int>(layout.format);
    json["format_name"] = VORN::sampleFormatName(layout.format);
    json["traces"] = layout.traces;
    json["samples"] = layout.samples;
    json["variable_length"] = layout.variableLength;
    json["interval_microseconds"] = layout.interval;
    json["cut_bytes"] = layout.cutBytes;
    json["warnings"] = nlohmann::json::array();
    for (const std::string& warning : reader.warnings())
        json["warnings"].push_back(escaped(warning));
    for (const std::string& warning : headers.warnings)
        json["warnings"].push_back(escaped(warning));
    json["notes"] = nlohmann::json::array();
    if (const std::string note = noteOnVendorBytes(reader, headers, map); !note.empty())
        json["notes"].push_back(note);
    json["text"] = VORN::textCards(reader.text());
    json["extended_text"] = nlohmann::json::array();
    for (const std::string& text : reader.extendedTexts())
        json["extended_text"].push_back(VORN::textCards(text));
    for (const HeaderWord& word : VORN::binaryHeaderWords())
        json["binary"][word.key] = reader.binaryWord(word.key);
    json["words"] = nlohmann::json::object();
    for (const WordRange& range : headers.ranges) {
        if (headers.count > 0)
            json["words"][range.word->key] = {{"minimum", jsonOf(range.minimum)},
                                              {"maximum", jsonOf(range.maximum)},
                                              {"first", jsonOf(range.first)},
                                              {"last", jsonOf(range.last)},
                                              {"changes", range.changes}};
    }
    for (std::size_t trace = 0; trace < headers.values.size(); ++trace) {
        nlohmann::json row{{"trace", headers.numbers[trace]}};
        for (std::size_t i = 0; i < headers.ranges.size(); ++i)
            row[headers.ranges[i].word->key] = jsonOf(headers.values[trace][i]);
        json["values"].push_back(std::move(row));
    }
    return json;
}

int runHeader(const Arguments& arguments)
{
    const VORN::WordMap map = wordMap(arguments);
    const std::vector<HeaderWord> table = map.applied(VORN::traceHeaderWords());
    const Words words = chosenWords(arguments, table);
    const VORN::SegyOverrides overrides = segyOverrides(arguments);
    const VORN::NumberRanges traces = chosenTraces(arguments);
    const bool rows = arguments.has("--traces");
    const bool withZeros = arguments.has("--words");
    try {
        SegyReader reader(arguments.text("FILE.sgy"), overrides);
        printWarnings(reader, reader.warnings());
        const TraceHeaders headers = readTraceHeaders(reader, words, traces, rows);
        printWarnings(reader, headers.warnings);
        if (headers.count == 0)
            throw CommandError(reader.path() + ": --traces " + arguments.text("--traces") +
                               " selects no trace; the file holds " +
                               counted(reader.layout().traces, "trace"));
        if (arguments.has("--json")) {
            std::printf("%s\n", jsonOf(reader, headers, map).dump(2).c_str());
            return exitDone;
        }
        printLayout(reader);
        printCards("text header", reader.text());
        for (std::size_t i = 0; i < reader.extendedTexts().size(); ++i)
            printCards("extended text header " + std::to_string(i + 1), reader.extendedTexts()[i]);
        printBinaryHeader(reader);
        printRanges(headers, withZeros);
        if (const std::string note = noteOnVendorBytes(reader, headers, map); !note.empty())
            std::printf("  note: %s\n", note.c_str());
        if (rows)
            printRows(headers, withZeros);
    } catch (const VORN::TraceFileError& error) {
        throw CommandError(error.what());
    }
    return exitDone;
}

} // namespace

Command headerCommand()
{
    Command command = {
        "header",
        runHeader,
        "Show the headers of a SEG-Y file and the ranges of their values",
        "Prints the layout of the file, its text and binary headers, and for every trace header "
        "word its smallest and largest value and how often it changes from one trace "
        "to the next. Words have their Seismic Unix names.",
        {{"FILE.sgy", "the SEG-Y file", ValueKind::file}},
        {{"-t,--traces", "A:B", "look at these traces only, counted from 1, and list their values"},
         {"-w,--words", "WORD,…", "these trace header words only", ValueKind::text, {}, true},
         {"--json", "", "print a JSON object"}},
        {{"vorn header line.sgy", "what is in the file, before a job is written"},
         {"vorn header line.sgy -t 1:48 -w fldr,tracf,offset", "geometry of the first 48 traces"},
         {"vorn header line.sgy --map iline=9,xline=21", "words at the bytes of this file"}}};
    for (const OptionSpec& option : segyOptions())
        command.options.push_back(option);
    return command;
}

} // namespace host
