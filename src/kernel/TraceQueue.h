/// @file TraceQueue.h
///
/// The traces that one consumer of a data channel has yet to take.
#ifndef TRACEQUEUE_H
#define TRACEQUEUE_H

#include "FrontArray.h"
#include "SeisTrace.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

/// References in order of arrival, read like an array of `SeisTrace*`. Public because
/// `DataChannel::moduleTraces`, which hosts read, holds it by value.
///
/// Each keeps its number of
/// arrival, so that a trace is found by halving, wherever it stands and also when it is not there:
/// a consumer that is ahead of the others asks for traces it has taken long ago. Queued traces are
/// not looked at: a host may have put others in their place and destroyed them.
class TraceQueue
{
    struct Entry
    {
        SeisTrace* trace; // null once the trace has left the channel
        int64_t arrivalNo;
    };

public:
    /// A place in the queue.
    class const_iterator
    {
    public:
        /// @name What an iterator has
        /// @{

        /// As the member of `std::vector::const_iterator` of this name.
        using iterator_category = std::forward_iterator_tag;
        using value_type = SeisTrace*;
        using difference_type = std::ptrdiff_t;
        using pointer = SeisTrace* const*;
        using reference = SeisTrace*;

        /// At entry `at` of the queue `of`.
        const_iterator(const TraceQueue* of, std::size_t at) : queue(of), index(at) {}
        SeisTrace* operator*() const { return (*queue)[index]; }
        const_iterator& operator++()
        {
            ++index;
            return *this;
        }
        bool operator==(const const_iterator& other) const { return index == other.index; }
        bool operator!=(const const_iterator& other) const { return index != other.index; }
        /// @}

    private:
        const TraceQueue* queue;
        std::size_t index;
    };
    /// @name What a vector has
    /// @{

    /// As the member of `std::vector<SeisTrace*>` of this name.
    using iterator = const_iterator;
    using value_type = SeisTrace*;

    std::size_t size() const { return entries.size(); }
    bool empty() const { return entries.empty(); }
    SeisTrace* operator[](std::size_t i) const { return entries[i].trace; }
    SeisTrace* at(std::size_t i) const { return entries.at(i).trace; }
    SeisTrace* front() const { return entries.front().trace; }
    SeisTrace* back() const { return entries.back().trace; }
    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, size()); }
    operator std::vector<SeisTrace*>() const { return {begin(), end()}; }
    friend bool operator==(const TraceQueue& one, const TraceQueue& other)
    {
        return std::equal(one.begin(), one.end(), other.begin(), other.end());
    }
    friend bool operator==(const TraceQueue& one, const std::vector<SeisTrace*>& other)
    {
        return std::equal(one.begin(), one.end(), other.begin(), other.end());
    }

    /// @}

    /// Appends `trace`, null when it has left already. Requires: no smaller number than the last
    /// one.
    void push_back(SeisTrace* trace, int64_t arrivalNo) { entries.push_back({trace, arrivalNo}); }

    /// Whether an entry holds `trace`. Requires: not null.
    bool contains(const SeisTrace* trace) const { return find(entries, trace) != entries.end(); }

    /// Takes out the first entry that holds `trace`; false when none does. Requires: not null.
    bool take(const SeisTrace* trace)
    {
        const auto entry = find(entries, trace);
        if (entry == entries.end())
            return false;
        entries.erase(entry);
        return true;
    }

    /// Takes out the first entry if it holds `trace`. Requires: not null.
    bool takeFront(const SeisTrace* trace)
    {
        if (entries.empty() || entries.front().trace != trace)
            return false;
        entries.pop_front();
        return true;
    }

    /// @name The empty entry that the trace of this number of arrival has left
    /// @{

    /// Whether there is one.
    bool containsEmpty(int64_t arrivalNo) const
    {
        return findEmpty(entries, arrivalNo) != entries.end();
    }
    /// Takes it out; false when there is none.
    bool takeEmpty(int64_t arrivalNo)
    {
        const auto entry = findEmpty(entries, arrivalNo);
        if (entry == entries.end())
            return false;
        entries.erase(entry);
        return true;
    }
    /// @}

    /// Leaves an empty entry where `trace` was; false when it was nowhere.
    bool replaceByNull(const SeisTrace* trace)
    {
        const auto entry = find(entries, trace);
        if (entry == entries.end())
            return false;
        entry->trace = nullptr;
        return true;
    }

private:
    using Entries = FrontArray<Entry>;

    template <typename List>
    static auto find(List& entries, const SeisTrace* trace) -> decltype(entries.begin())
    {
        if (!entries.empty() && entries.front().trace == trace)
            return entries.begin();
        if (trace->arrivalNo < 0)
            return std::find_if(entries.begin(), entries.end(),
                                [=](const Entry& entry) { return entry.trace == trace; });
        return findAmong(entries, trace->arrivalNo, trace);
    }

    template <typename List>
    static auto findEmpty(List& entries, int64_t arrivalNo) -> decltype(entries.begin())
    {
        if (!entries.empty() && entries.front().arrivalNo == arrivalNo &&
            entries.front().trace == nullptr)
            return entries.begin();
        return findAmong(entries, arrivalNo, nullptr);
    }

    // A consumer attached twice has two entries of one number, and one of them may be empty
    // already.
    template <typename List>
    static auto findAmong(List& entries, int64_t arrivalNo, const SeisTrace* trace)
        -> decltype(entries.begin())
    {
        auto entry = lowerBound(entries, arrivalNo);
        for (; entry != entries.end() && entry->arrivalNo == arrivalNo; ++entry) {
            if (entry->trace == trace)
                return entry;
        }
        return entries.end();
    }

    template <typename List>
    static auto lowerBound(List& entries, int64_t arrivalNo) -> decltype(entries.begin())
    {
        return std::lower_bound(
            entries.begin(), entries.end(), arrivalNo,
            [](const Entry& one, int64_t number) { return one.arrivalNo < number; });
    }

    Entries entries;
};

#endif
