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

std::int64_t LevelCurve::numberOf(std::size_t bin) const
{
    return begin / perBin + static_cast<std::int64_t>(bin);
}

double LevelCurve::place(std::size_t bin) const
{
    const std::int64_t first = numberOf(bin) * perBin + 1;
    const std::int64_t last = std::min(first + perBin - 1, count);
    return static_cast<double>(first + last) / 2;
}

void LevelCurve::insert(const Bin& trace)
{
    const auto isBinOpen = [this] { return !kept.empty() && count % perBin != 0; };
    if (!isBinOpen() && kept.size() == limit)
        halve();
    // The last bin may now be half full.
    if (isBinOpen())
        kept.back() = joined(kept.back(), trace);
    else
        kept.push_back(trace);
    ++count;
}

void LevelCurve::halve()
{
    std::vector<Bin> wider;
    std::int64_t last = -1;
    for (std::size_t i = 0; i < kept.size(); ++i) {
        const std::int64_t number = numberOf(i) / 2;
        if (number == last)
            wider.back() = joined(wider.back(), kept[i]);
        else
            wider.push_back(kept[i]);
        last = number;
    }
    kept = std::move(wider);
    perBin *= 2;
}

bool LevelCurve::append(LevelCurve next)
{
    if (next.begin != count)
        return false;
    while (perBin < next.perBin)
        halve();
    while (next.perBin < perBin)
        next.halve();
    for (std::size_t i = 0; i < next.kept.size(); ++i) {
        if (!kept.empty() && numberOf(kept.size() - 1) == next.numberOf(i))
            kept.back() = joined(kept.back(), next.kept[i]);
        else
            kept.push_back(next.kept[i]);
    }
    count = next.count;
    while (kept.size() > limit)
        halve();
    return true;
}
