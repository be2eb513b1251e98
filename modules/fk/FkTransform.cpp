#include "FkTransform.h"

#include "RealPlan.h"
#include "fast_length.h"

#include <algorithm>
#include <cstddef>

namespace {

std::int64_t columnsFor(int traces)
{
    return evenFastLength(2 * std::int64_t{traces});
}

std::int64_t rowsFor(int samples)
{
    return evenFastLength(samples + std::int64_t{samples} / 2);
}

// Of the longer rows of the two: those of the spectrum have two numbers more.
std::int64_t valuesFor(std::int64_t columns, std::int64_t rows)
{
    return columns * (rows + 2);
}

} // namespace

struct FkTransform::Work
{
    Work(int columns, int rows) : plan({columns, rows}, 2) {}

    // The first number of the row of the spectrum at a place: pairs of real and imaginary parts.
    double* row(int place, int frequencies)
    {
        return *(plan.spectrum() + static_cast<std::ptrdiff_t>(place) * frequencies);
    }

    transforms::RealPlan<double> plan;
};

FkTransform::FkTransform(int traces, int samples)
    : length(samples), across(static_cast<int>(columnsFor(traces))),
      down(static_cast<int>(rowsFor(samples))), work(std::make_unique<Work>(across, down))
{
}

FkTransform::~FkTransform() = default;

std::int64_t FkTransform::bytesFor(int traces, int samples)
{
    const std::int64_t columns = columnsFor(traces);
    const std::int64_t rows = rowsFor(samples);
    if (columns > TRANSFORM_LONGEST / (rows + 2))
        return -1;
    const std::int64_t values = valuesFor(columns, rows);
    // Values and spectrum; plans of two dimensions are small.
    return values * 2 * static_cast<std::int64_t>(sizeof(double)) + transform_plan_bytes(values, 2);
}

void FkTransform::forward(const double* gather, int traces)
{
    double* row = work->plan.values();
    for (int i = 0; i < across; ++i, row += down) {
        double* end = row;
        if (i < traces)
            end = std::copy_n(gather + static_cast<std::ptrdiff_t>(i) * length, length, row);
        std::fill(end, row + down, 0.0);
    }
    work->plan.forward();
}

// The library's transform has the same sign in both directions: its wavenumber is the negative.
std::complex<double> FkTransform::at(int j, int m) const
{
    const int place = m > 0 ? across - m : -m;
    const double* value = work->row(place, frequencies()) + 2 * std::ptrdiff_t{j};
    return {value[0], value[1]};
}

void FkTransform::apply(const DipFan& fan, double interval)
{
    double* value = work->row(0, frequencies());
    for (int place = 0; place < across; ++place) {
        const int m = place <= across / 2 ? -place : across - place;
        const double k = static_cast<double>(m) / across;
        for (int j = 0; j < frequencies(); ++j, value += 2) {
            const double weight = fan.weight(j / (down * interval), k);
            value[0] *= weight;
            value[1] *= weight;
        }
    }
}

void FkTransform::backward(double* gather, int traces)
{
    work->plan.backward();
    const double scale = 1 / (static_cast<double>(across) * down);
    const double* row = work->plan.values();
    for (int i = 0; i < traces; ++i, row += down)
        std::transform(row, row + length, gather + static_cast<std::ptrdiff_t>(i) * length,
                       [scale](double value) { return value * scale; });
}

// Frequencies between 0 and Nyquist stand for their negative ones, too.
double FkTransform::energy() const
{
    double sum = 0;
    const double* value = work->row(0, frequencies());
    for (int place = 0; place < across; ++place) {
        for (int j = 0; j < frequencies(); ++j, value += 2) {
            const double power = value[0] * value[0] + value[1] * value[1];
            sum += j == 0 || j == down / 2 ? power : 2 * power;
        }
    }
    return sum / (static_cast<double>(across) * down);
}
