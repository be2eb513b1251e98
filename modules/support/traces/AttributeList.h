/// @file AttributeList.h
///
/// Handles of the trace attributes of header words.
#ifndef ATTRIBUTELIST_H
#define ATTRIBUTELIST_H

#include "MOXKernel.h"
#include "segy/HeaderWords.h"

#include <new>
#include <vector>

namespace traces {

/// A list of the attributes named by the keys of `words`, in their order; it belongs to the running
/// module. Throws std::bad_alloc when it cannot be made.
inline void* attributeList(const std::vector<const VORN::HeaderWord*>& words)
{
    std::vector<const char*> keys;
    keys.reserve(words.size());
    for (const VORN::HeaderWord* word : words)
        keys.push_back(word->key);
    void* list = bldAttributeList(keys.data(), static_cast<int>(keys.size()));
    if (list == nullptr)
        throw std::bad_alloc();
    return list;
}

} // namespace traces

#endif
