#include "level_curve.h"

#include <algorithm>

namespace {

LevelCurve::Bin joined(const LevelCurve::Bin& a, const LevelCurve::Bin& b)
{
    if (a.traces == 0)
        return b;
    if (b.traces == 0)
        return a;
    return {std::min(a.least, b.least), std::max(a.greatest, b.greatest), a.traces + b.traces};
}

} // namespace

double LevelCurve::place(std::size_t bin) const
{
    const std::int64_t first = static_cast<std::int64_t>(bin) * perBin + 1;
    const std::int64_t last = std::min(first + perBin - 1, count);
    return static_cast<double>(first + last) / 2;
}

void LevelCurve::insert(const Bin& trace)
{
    if (count % perBin != 0) {
        kept.back() = joined(kept.back(), trace);
        ++count;
        return;
    }
    if (kept.size() == limit)
        halve();
    // The last bin may now be half full.
    if (count % perBin != 0)
        kept.back() = joined(kept.back(), trace);
    else
        kept.push_back(trace);
    ++count;
}

void LevelCurve::halve()
{
    std::vector<Bin> wider;
    for (std::size_t i = 0; i < kept.size(); i += 2)
        wider.push_back(i + 1 < kept.size() ? joined(kept[i], kept[i + 1]) : kept[i]);
    kept = std::move(wider);
    perBin *= 2;
}
