/// @file sort_order.h
///
/// The order of traces that are sorted by header words. Independent of the kernel.
#ifndef SORT_ORDER_H
#define SORT_ORDER_H

#include <string>
#include <vector>

/// A header word to sort by.
struct SortKey
{
    std::string word;
    bool descending = false;

    bool operator==(const SortKey&) const = default;
};

/// The keys that texts name: each a header word, with "-" before it for descending order. Blanks
/// around them and empty texts are ignored. Throws std::invalid_argument, with a message for the
/// user, when there is none, or one without a word, or a word twice.
std::vector<SortKey> parseSortKeys(const std::vector<std::string>& texts);

/// Whether two traces are in order: the second is equal to the first in all keys, or belongs behind
/// it.
///
/// @param values  those of the first and then those of the second, as many as there are keys
bool isInOrder(const std::vector<double>& values, const std::vector<SortKey>& keys);

/// The numbers of the traces, from 0, in sorted order: by the first key, those that are equal there
/// by the second, and so on. Traces that are equal in all keys keep their order. NaN values come
/// last, in either direction.
///
/// @param values  of each trace in turn as many as there are keys; `keys` is not empty
std::vector<int> sortedOrder(const std::vector<double>& values, const std::vector<SortKey>& keys);

#endif
