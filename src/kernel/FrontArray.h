/// @file FrontArray.h
///
/// A growable array whose first element leaves in constant time: data channels and their queues
/// are filled at the end and drained from the front, and may hold hundreds of thousands of traces.
#ifndef FRONTARRAY_H
#define FRONTARRAY_H

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

/// The interface of a `std::vector`, as far as traces need it. Public because fields of
/// SeisTraceSet, DataChannel and ScratchManager, which hosts read, hold it by value. Elements lie
/// in one block, so reading by index costs what a vector's does. Leaving only moves the start;
/// appending uses the room that has come free there before it takes more, so both are constant on
/// average.
template <typename T>
class FrontArray
{
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved as bytes");

public:
    /// @name What a vector has
    /// @{

    /// As the member of `std::vector` of this name.
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    FrontArray() = default;
    FrontArray(const FrontArray& other) { append(other); }
    FrontArray(FrontArray&& other) noexcept { swap(other); }
    FrontArray& operator=(FrontArray other) noexcept
    {
        swap(other);
        return *this;
    }
    ~FrontArray() = default;

    std::size_t size() const { return static_cast<std::size_t>(last - first); }
    bool empty() const { return first == last; }

    T& operator[](std::size_t i) { return first[i]; }
    const T& operator[](std::size_t i) const { return first[i]; }
    /// Element `i`; throws std::out_of_range when there is none.
    const T& at(std::size_t i) const
    {
        if (i >= size())
            throw std::out_of_range("FrontArray::at");
        return first[i];
    }
    T& front() { return *first; }
    const T& front() const { return *first; }
    T& back() { return last[-1]; }
    const T& back() const { return last[-1]; }

    iterator begin() { return first; }
    iterator end() { return last; }
    const_iterator begin() const { return first; }
    const_iterator end() const { return last; }
    operator std::vector<T>() const { return std::vector<T>(begin(), end()); }
    friend bool operator==(const FrontArray& one, const FrontArray& other)
    {
        return std::equal(one.begin(), one.end(), other.begin(), other.end());
    }
    friend bool operator==(const FrontArray& one, const std::vector<T>& other)
    {
        return std::equal(one.begin(), one.end(), other.begin(), other.end());
    }

    void push_back(const T& item)
    {
        const T copy = item; // which may be one of the elements that move
        if (last == roomEnd)
            makeRoom();
        *last++ = copy;
    }
    /// Puts an element before all others.
    void push_front(const T& item)
    {
        if (first > room.get()) {
            *--first = item;
            return;
        }
        push_back(item);
        std::rotate(first, last - 1, last);
    }
    /// Takes the first element out, in constant time. Requires: not empty.
    void pop_front()
    {
        if (++first == last)
            clear();
    }
    /// Takes one element out; later ones move down. Constant time for the first element.
    void erase(iterator item)
    {
        if (item == first)
            pop_front();
        else
            last = std::move(item + 1, last, item);
    }
    void clear() { first = last = room.get(); }

    void swap(FrontArray& other) noexcept
    {
        std::swap(room, other.room);
        std::swap(roomEnd, other.roomEnd);
        std::swap(first, other.first);
        std::swap(last, other.last);
    }
    /// @}

private:
    static constexpr std::size_t fewestAdded = 8;

    void append(const FrontArray& other)
    {
        for (const T& item : other)
            push_back(item);
    }

    // Behind the last element, for as many as half of those that are there: what moves now has been
    // paid for by those that came since the last time.
    void makeRoom()
    {
        const std::size_t wanted = size() / 2 + fewestAdded;
        if (static_cast<std::size_t>(first - room.get()) >= wanted) {
            last = std::move(first, last, room.get());
            first = room.get();
            return;
        }
        const std::size_t most = size() + wanted;
        std::unique_ptr<T[]> former(new T[most]);
        former.swap(room);
        last = std::copy(first, last, room.get());
        first = room.get();
        roomEnd = first + most;
    }

    std::unique_ptr<T[]> room;
    T* roomEnd = nullptr;
    T* first = nullptr; // elements before it have left
    T* last = nullptr;  // behind the elements
};

#endif
