/// @file TraceChoice.h
///
/// Which traces a module works on.
#ifndef TRACECHOICE_H
#define TRACECHOICE_H

#include "segy/NumberRanges.h"
#include "words/Formulas.h"
#include "words/KeyedTable.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace words {

/// Traces that fulfil a condition, whose number is in a list, or whose key is in a table; a trace
/// is chosen by any of them. Belongs to the running module. Failures are std::runtime_error for the
/// user.
class TraceChoice
{
public:
    /// A table of keys: a CSV file, whose columns of these names are compared with the words.
    struct Table
    {
        std::string path;
        std::vector<std::string> key;
    };

    /// `condition` is a formula; `numbers` are those of traces, from 1, as in "1:100:2,200" (see
    /// VORN::NumberRanges). An empty text chooses none.
    TraceChoice(const std::string& condition, const std::string& numbers,
                const std::optional<Table>& table = {});

    /// Whether the first trace of `input`, the trace `number` of the module (from 1), is chosen: by
    /// the list, by a result of the condition that is not 0, or by the table.
    bool isChosen(void* input, std::int64_t number);

private:
    VORN::NumberRanges ranges;
    Formulas formulas;
    std::optional<std::size_t> condition;
    std::optional<KeyedTable> table;
    std::vector<std::size_t> keyPlaces;
    std::vector<double> key;
};

} // namespace words

#endif
