#include "FkSpectrum.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int mostCells = 1024;

int groups(int count, int per)
{
    return (count + per - 1) / per;
}

} // namespace

FkSpectrum::FkSpectrum(const FkTransform& transform, double interval, double fmax)
    : perColumn(groups(transform.columns(), mostCells)), firstColumns(transform.columns())
{
    const double step = 1 / (transform.rows() * interval);
    lines = static_cast<int>(std::clamp(std::floor(fmax / step + 1e-6) + 1, 1.0,
                                        static_cast<double>(transform.frequencies())));
    perRow = groups(lines, mostCells);
    across = groups(firstColumns, perColumn);
    down = groups(lines, perRow);
    // Values lie in the middles of the finest cells.
    leftEdge = -0.5 - 0.5 / firstColumns;
    rightEdge = leftEdge + static_cast<double>(across) * perColumn / firstColumns;
    bottomEdge = -0.5 * step;
    topEdge = bottomEdge + static_cast<double>(down) * perRow * step;
    power.resize(static_cast<std::size_t>(across) * static_cast<std::size_t>(down));
    counted.resize(power.size());
}

void FkSpectrum::add(const FkTransform& transform)
{
    const int half = transform.columns() / 2;
    for (int m = -half; m < half; ++m) {
        // On the finest wavenumbers of the first transform, rounded.
        const double place = (static_cast<double>(m) / transform.columns() + 0.5) * firstColumns;
        const int column =
            std::min(static_cast<int>(std::floor(place + 0.5)), firstColumns - 1) / perColumn;
        for (int j = 0; j < lines; ++j) {
            const auto cell = static_cast<std::size_t>(column) * static_cast<std::size_t>(down) +
                              static_cast<std::size_t>(j / perRow);
            power[cell] += std::norm(transform.at(j, m));
            counted[cell] += 1;
        }
    }
}

double FkSpectrum::amplitude(int column, int row) const
{
    const auto cell = static_cast<std::size_t>(column) * static_cast<std::size_t>(down) +
                      static_cast<std::size_t>(row);
    return counted[cell] > 0 ? std::sqrt(power[cell] / counted[cell]) : 0;
}

double FkSpectrum::greatest() const
{
    double most = 0;
    for (int column = 0; column < across; ++column)
        for (int row = 0; row < down; ++row)
            most = std::max(most, amplitude(column, row));
    return most;
}
