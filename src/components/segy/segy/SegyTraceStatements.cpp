#include "segy/SegyTraceStatements.h"

#include "segy/HeaderWords.h"

#include <algorithm>

namespace VORN {

SegyTraceStatements::SegyTraceStatements(SegyReader& reader) : little(reader.layout().littleEndian)
{
    const SegyLayout& layout = reader.layout();
    samples.word = findTraceHeaderWord("ns");
    samples.resolved = layout.samples;
    samples.matters = !reader.overrides().samples && !layout.variableLength;
    interval.word = findTraceHeaderWord("dt");
    interval.resolved = layout.interval;
    interval.matters = !reader.overrides().interval;
    if (layout.traces == 0)
        return;
    const unsigned char* first = reader.header(0);
    samples.known = reader.word(first, *samples.word);
    interval.known = reader.word(first, *interval.word);
}

void SegyTraceStatements::count(Statement& statement, int64_t index, int value)
{
    if (!statement.matters || value == statement.resolved || value == statement.known)
        return;
    if (statement.contradictions++ > 0 && index > statement.firstIndex)
        return;
    statement.firstIndex = index;
    statement.firstValue = value;
}

void SegyTraceStatements::see(int64_t index, const unsigned char* header)
{
    ++seen;
    if (std::all_of(header, header + segyTraceHeaderBytes,
                    [](unsigned char byte) { return byte == 0; }))
    {
        if (blank++ == 0 || index < firstBlank)
            firstBlank = index;
        return;
    }
    count(samples, index, readWord(header, *samples.word, little));
    count(interval, index, readWord(header, *interval.word, little));
}

void SegyTraceStatements::add(Statement& statement, const Statement& later)
{
    if (statement.contradictions == 0 ||
        (later.contradictions > 0 && later.firstIndex < statement.firstIndex))
    {
        statement.firstIndex = later.firstIndex;
        statement.firstValue = later.firstValue;
    }
    statement.contradictions += later.contradictions;
}

void SegyTraceStatements::add(const SegyTraceStatements& later)
{
    add(samples, later.samples);
    add(interval, later.interval);
    if (blank == 0 || (later.blank > 0 && later.firstBlank < firstBlank))
        firstBlank = later.firstBlank;
    blank += later.blank;
    seen += later.seen;
}

std::vector<std::string> SegyTraceStatements::warnings() const
{
    const auto line = [this](const Statement& statement, const std::string& what,
                             const std::string& unit, const std::string& key) {
        const std::string resolved = std::to_string(statement.resolved);
        return std::to_string(statement.contradictions) + " of " + std::to_string(seen) +
               " traces state " + what + " than " + resolved + unit + ", the first of them trace " +
               std::to_string(statement.firstIndex + 1) + " with " +
               std::to_string(statement.firstValue) + "; all are read as " + resolved +
               "; where theirs is right, read them apart with `traces` and `" + key + "`";
    };
    std::vector<std::string> lines;
    if (samples.contradictions > 0)
        lines.push_back(line(samples, "another number of samples", "", "samples"));
    if (interval.contradictions > 0)
        lines.push_back(line(interval, "another sample interval", " microseconds", "interval"));
    if (blank > 0)
        lines.push_back(std::to_string(blank) + " of " + std::to_string(seen) + " trace headers " +
                        (blank == 1 ? "is" : "are") +
                        " empty, all bytes 0, the first of them that of trace " +
                        std::to_string(firstBlank + 1) + "; the words of these traces are 0");
    return lines;
}

} // namespace VORN
