/// @file ExactSums.h
///
/// exact_sums.h for modules in C++. Independent of the kernel.
#ifndef EXACTSUMS_H
#define EXACTSUMS_H

#include "exact_sums.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

namespace sums {

/// Sums that depend neither on the order of their terms nor on partial sums. Terms are finite;
/// `add` rounds them to 28 bits. Throws std::bad_alloc.
class ExactSums
{
public:
    explicit ExactSums(std::size_t count = 1) : sums(exact_sums_create(count))
    {
        if (!sums)
            throw std::bad_alloc();
    }

    std::size_t size() const { return sums->count; }

    void add(std::size_t sum, double value) { check(exact_sums_add(sums.get(), sum, value)); }
    void addWhole(std::size_t sum, double value)
    {
        check(exact_sums_add_whole(sums.get(), sum, value));
    }
    /// Terms that are not above `bound` in size, at most one for each sum: see exact_sums_begin().
    /// They are added by exact_batch_add().
    exact_batch begin(double bound)
    {
        exact_batch batch{};
        check(exact_sums_begin(sums.get(), bound, &batch));
        return batch;
    }
    /// Adds the sums of another, which has as many.
    void add(ExactSums& other)
    {
        other.flush();
        check(exact_sums_merge(sums.get(), other.sums.get()));
    }
    /// After batches, before values are read.
    void flush() { check(exact_sums_flush(sums.get())); }
    void clear() { exact_sums_clear(sums.get()); }

    /// Rounded to the nearest double.
    double value(std::size_t sum = 0) const { return exact_sums_value(sums.get(), sum); }

    /// Saves all, or reads what was saved in place of what is there: see vorn_parts.hpp.
    template <typename File>
    void transfer(File& file)
    {
        if constexpr (File::isReader)
            read(file);
        else
            write(file);
    }

private:
    struct Free
    {
        void operator()(exact_sums* kept) const { exact_sums_free(kept); }
    };

    static void check(bool isDone)
    {
        if (!isDone)
            throw std::bad_alloc();
    }

    template <typename File>
    void write(File& file)
    {
        flush();
        std::uint64_t count = sums->count;
        file(count);
        for (int row = 0; row < EXACT_SUMS_ROWS; ++row) {
            if (sums->rows[row] == nullptr)
                continue;
            file(row);
            file.putArray(sums->rows[row], count);
        }
        int end = EXACT_SUMS_ROWS;
        file(end);
    }

    template <typename File>
    void read(File& file)
    {
        constexpr std::uint64_t most = std::uint64_t{1} << 48;
        const auto count = file.template get<std::uint64_t>();
        if (count > most)
            file.refuse("it has more sums than memory could hold");
        *this = ExactSums(static_cast<std::size_t>(count));
        for (;;) {
            const int row = file.template get<int>();
            if (row == EXACT_SUMS_ROWS)
                return;
            if (row < 0 || row > EXACT_SUMS_ROWS)
                file.refuse("it has a row that sums do not have");
            const auto limbs = file.template get<std::vector<std::int64_t>>();
            if (limbs.size() != count)
                file.refuse("it has a row of another length than its sums");
            check(exact_sums_merge_row(sums.get(), row, limbs.data()));
        }
    }

    std::unique_ptr<exact_sums, Free> sums;
};

} // namespace sums

#endif
