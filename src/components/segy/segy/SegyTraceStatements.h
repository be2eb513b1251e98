/// @file SegyTraceStatements.h
///
/// What single trace headers of a SEG-Y file say against the rest of it.
#ifndef SEGYTRACESTATEMENTS_H
#define SEGYTRACESTATEMENTS_H

#include "segy/SegyReader.h"
#include "segy_export.h"

#include <cstdint>
#include <string>
#include <vector>

namespace VORN {

/// Counts the traces whose own headers contradict the layout of their file. Opening a file looks at
/// few of them; a caller that goes through the traces shows each one's header here.
class VORN_SEGY_EXPORT SegyTraceStatements
{
public:
    /// For the file of `reader`, which need not live longer.
    explicit SegyTraceStatements(SegyReader& reader);

    /// Takes note of `header`, the 240 bytes of trace `index` (from 0) as in the file. Traces may
    /// come in any order: the first one in the file is named.
    void see(int64_t index, const unsigned char* header);
    /// One line for the interval and one for the length, if traces seen so far contradict them.
    /// One more for trace headers without any value, which state nothing else.
    /// What the user has stated, and what `SegyReader::warnings()` say of the first trace, is
    /// known: traces that state the same are not counted.
    std::vector<std::string> warnings() const;

    /// Adds what `later` has seen, of other traces of the same file.
    void add(const SegyTraceStatements& later);
    /// Names the counts to a file that saves or reads them: `file(count, ...)`.
    template <typename File>
    void transfer(File& file)
    {
        for (Statement* statement : {&samples, &interval})
            file(statement->contradictions, statement->firstIndex, statement->firstValue);
        file(seen, blank, firstBlank);
    }

private:
    struct Statement
    {
        const HeaderWord* word = nullptr;
        bool matters = true;
        int resolved = 0; // as all traces are read
        int known = 0;    // from the first trace of the file
        int64_t contradictions = 0;
        int64_t firstIndex = 0;
        int firstValue = 0;
    };
    static void count(Statement& statement, int64_t index, int value);
    static void add(Statement& statement, const Statement& later);

    bool little; // byte order of the headers
    Statement samples;
    Statement interval;
    int64_t seen = 0;
    int64_t blank = 0; // headers in which all bytes are 0
    int64_t firstBlank = 0;
};

} // namespace VORN

#endif
