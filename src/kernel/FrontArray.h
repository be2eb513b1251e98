/// @file FrontArray.h
///
/// A growable array whose first element leaves in constant time: data channels and their queues
/// are filled at the end and drained from the front, and may hold hundreds of thousands of traces.
#ifndef FRONTARRAY_H
#define FRONTARRAY_H

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <vector>

/// The face of a `std::vector`, as far as traces need it. Elements lie in one block, so reading by
/// index costs what a vector's does; the room before the first element is given back when it
/// outgrows the elements, which keeps `pop_front` constant on average.
template <typename T>
class FrontArray
{
public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    std::size_t size() const { return items.size() - first; }
    bool empty() const { return items.size() == first; }

    T& operator[](std::size_t i) { return items[first + i]; }
    const T& operator[](std::size_t i) const { return items[first + i]; }
    /// Element `i`; throws std::out_of_range when there is none.
    const T& at(std::size_t i) const
    {
        if (i >= size())
            throw std::out_of_range("FrontArray::at");
        return items[first + i];
    }
    T& front() { return items[first]; }
    const T& front() const { return items[first]; }
    T& back() { return items.back(); }
    const T& back() const { return items.back(); }

    iterator begin() { return items.begin() + static_cast<std::ptrdiff_t>(first); }
    iterator end() { return items.end(); }
    const_iterator begin() const { return items.begin() + static_cast<std::ptrdiff_t>(first); }
    const_iterator end() const { return items.end(); }
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
        if (items.size() < items.capacity()) {
            items.push_back(item);
            return;
        }
        const T copy = item; // which may be one of the elements that move
        items.reserve(items.size() + items.size() / 2 + fewestAdded);
        items.push_back(copy);
    }
    void push_front(const T& item)
    {
        if (first > 0)
            items[--first] = item;
        else
            items.insert(items.begin(), item);
    }
    void pop_front()
    {
        ++first;
        if (first == items.size()) {
            items.clear();
            first = 0;
        } else if (first >= roomKept && first > size()) {
            items.erase(items.begin(), begin());
            first = 0;
        }
    }
    /// Takes one element out; later ones move down. Constant time for the first element.
    void erase(iterator item)
    {
        if (item == begin())
            pop_front();
        else
            items.erase(item);
    }
    void clear()
    {
        items.clear();
        first = 0;
    }

private:
    static constexpr std::size_t fewestAdded = 8;
    static constexpr std::size_t roomKept = 32; // moving fewer elements costs more than it frees

    std::vector<T> items;
    std::size_t first = 0; // elements before it have left
};

#endif
