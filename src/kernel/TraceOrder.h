/// @file TraceOrder.h
///
/// Traces in the order in which they were last touched.
#ifndef TRACEORDER_H
#define TRACEORDER_H

#include "SeisTrace.h"

#include <algorithm>
#include <cstddef>
#include <deque>
#include <iterator>
#include <stdexcept>

/// A queue of traces, most recently touched first, with the links in the traces themselves: a trace
/// is found, taken out and put in front in constant time however many are resident (a search
/// through a deque costs microseconds at ten thousand). A trace stands in one order at most; its
/// `order` says in which. References only: the traces belong to others.
///
/// Public because `ScratchManager::traces_cache`, which hosts read, holds it by value.
class VORN_EXPORT TraceOrder
{
public:
    /// A place in the order.
    class iterator
    {
    public:
        /// @name What an iterator has
        /// @{

        /// As the member of `std::deque::const_iterator` of this name.
        using iterator_category = std::forward_iterator_tag;
        using value_type = SeisTrace*;
        using difference_type = std::ptrdiff_t;
        using pointer = SeisTrace* const*;
        using reference = SeisTrace*;

        /// At a trace; null: behind the last one.
        explicit iterator(SeisTrace* at = nullptr) : trace(at) {}
        SeisTrace* operator*() const { return trace; }
        iterator& operator++()
        {
            trace = trace->lessRecent;
            return *this;
        }
        iterator operator++(int)
        {
            const iterator here = *this;
            ++*this;
            return here;
        }
        bool operator==(const iterator& other) const { return trace == other.trace; }
        bool operator!=(const iterator& other) const { return trace != other.trace; }
        /// @}

    private:
        SeisTrace* trace;
    };
    /// @name What a queue has
    /// @{

    /// As the member of `std::deque<SeisTrace*>` of this name.
    using const_iterator = iterator;
    using value_type = SeisTrace*;

    /// An empty order.
    TraceOrder() = default;
    TraceOrder(const TraceOrder&) = delete;
    TraceOrder& operator=(const TraceOrder&) = delete;
    ~TraceOrder() { clear(); }

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    SeisTrace* front() const { return first; } ///< most recently touched; null when empty
    SeisTrace* back() const { return last; }   ///< least recently touched; null when empty
    iterator begin() const { return iterator(first); }
    iterator end() const { return iterator(nullptr); }
    /// The trace that `i` others were touched after. Walks there: for a look, not for loops.
    SeisTrace* operator[](std::size_t i) const
    {
        return *std::next(begin(), static_cast<std::ptrdiff_t>(i));
    }
    /// The same; throws std::out_of_range when there are not as many.
    SeisTrace* at(std::size_t i) const
    {
        if (i >= count)
            throw std::out_of_range("TraceOrder::at");
        return (*this)[i];
    }
    operator std::deque<SeisTrace*>() const { return {begin(), end()}; }
    friend bool operator==(const TraceOrder& one, const std::deque<SeisTrace*>& other)
    {
        return std::equal(one.begin(), one.end(), other.begin(), other.end());
    }

    /// @}

    /// Whether `trace` stands in this order. Requires: not null.
    bool contains(const SeisTrace* trace) const { return trace->order == this; }

    /// Puts `trace` in front, taking it out of the order that it stood in.
    void push_front(SeisTrace* trace)
    {
        if (trace->order != nullptr)
            trace->order->erase(trace);
        trace->order = this;
        trace->moreRecent = nullptr;
        trace->lessRecent = first;
        (first != nullptr ? first->moreRecent : last) = trace;
        first = trace;
        ++count;
    }

    /// Takes `trace` out. Requires: the trace stands in this order.
    void erase(SeisTrace* trace)
    {
        (trace->moreRecent != nullptr ? trace->moreRecent->lessRecent : first) = trace->lessRecent;
        (trace->lessRecent != nullptr ? trace->lessRecent->moreRecent : last) = trace->moreRecent;
        trace->moreRecent = trace->lessRecent = nullptr;
        trace->order = nullptr;
        --count;
    }

    /// Takes the least recently touched trace out. Requires: not empty.
    void pop_back() { erase(last); }

    /// Takes all traces out.
    void clear()
    {
        while (!empty())
            pop_back();
    }

private:
    SeisTrace* first = nullptr;
    SeisTrace* last = nullptr;
    std::size_t count = 0;
};

#endif
