#include "sort_order.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace {

std::string trimmed(const std::string& text)
{
    const char* blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

SortKey parseKey(const std::string& text)
{
    const bool descending = text.front() == '-';
    SortKey key{trimmed(descending ? text.substr(1) : text), descending};
    if (key.word.empty())
        throw std::invalid_argument("keys hold \"" + text + "\"; give a header word");
    return key;
}

// Below 0: a comes first; above 0: b does.
int compare(double a, double b, bool descending)
{
    if (std::isnan(a) || std::isnan(b))
        return static_cast<int>(std::isnan(a)) - static_cast<int>(std::isnan(b));
    const int ascending = static_cast<int>(a > b) - static_cast<int>(a < b);
    return descending ? -ascending : ascending;
}

// The same for all keys in turn.
int compare(const double* a, const double* b, const std::vector<SortKey>& keys)
{
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (const int result = compare(a[i], b[i], keys[i].descending))
            return result;
    }
    return 0;
}

} // namespace

std::vector<SortKey> parseSortKeys(const std::vector<std::string>& texts)
{
    std::vector<SortKey> keys;
    for (const std::string& text : texts) {
        const std::string trimmedText = trimmed(text);
        if (trimmedText.empty())
            continue;
        const SortKey key = parseKey(trimmedText);
        if (std::any_of(keys.begin(), keys.end(),
                        [&](const SortKey& known) { return known.word == key.word; }))
            throw std::invalid_argument("keys name \"" + key.word + "\" twice");
        keys.push_back(key);
    }
    if (keys.empty())
        throw std::invalid_argument("keys are missing; give the header words to sort by");
    return keys;
}

std::vector<int> sortedOrder(const std::vector<double>& values, const std::vector<SortKey>& keys)
{
    const std::size_t width = keys.size();
    std::vector<int> order(values.size() / width);
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
        return compare(&values[static_cast<std::size_t>(a) * width],
                       &values[static_cast<std::size_t>(b) * width], keys) < 0;
    });
    return order;
}

bool isInOrder(const std::vector<double>& values, const std::vector<SortKey>& keys)
{
    return compare(values.data(), values.data() + keys.size(), keys) <= 0;
}
