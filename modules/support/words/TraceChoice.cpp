#include "words/TraceChoice.h"

#include <stdexcept>

namespace words {

namespace {

VORN::NumberRanges rangesOf(const std::string& numbers)
{
    try {
        return numbers.empty() ? VORN::NumberRanges() : VORN::NumberRanges(numbers);
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(std::string("traces: ") + error.what());
    }
}

} // namespace

TraceChoice::TraceChoice(const std::string& where, const std::string& numbers,
                         const std::optional<Table>& given)
    : ranges(rangesOf(numbers))
{
    if (!where.empty())
        condition = formulas.add(Expression(where));
    if (!given)
        return;
    table.emplace(given->path, given->key, std::vector<std::string>(),
                  KeyedTable::Repeats::allowed);
    for (const std::string& word : given->key)
        keyPlaces.push_back(formulas.use(word));
    key.resize(keyPlaces.size());
}

bool TraceChoice::isChosen(void* input, std::int64_t number)
{
    formulas.read(input, number);
    bool chosen = ranges.contains(number);
    // Computed for each trace: it may count them, and may fail.
    if (condition) {
        try {
            chosen = formulas.value(*condition) != 0 || chosen;
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(nameOfTrace(input, number) + ": " + error.what());
        }
    }
    for (std::size_t i = 0; i < keyPlaces.size(); ++i)
        key[i] = formulas.get(keyPlaces[i]);
    return chosen || (table && table->find(key) != nullptr);
}

} // namespace words
