#include "shared_hum.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

bool SharedHum::add(std::span<const Hum> gather)
{
    constexpr std::int64_t fewest = 5;
    ++gathers;
    traces += static_cast<std::int64_t>(gather.size());
    for (const double mains : {50.0, 60.0}) {
        const auto isWith = [&](const Hum& hum) { return hum.mains == mains && hum.share > least; };
        const auto with = std::count_if(gather.begin(), gather.end(), isWith);
        if (with < fewest || 2 * with <= static_cast<std::int64_t>(gather.size()))
            continue;
        ++gathersWith;
        tracesWith += with;
        (mains < 55 ? has50 : has60) = true;
        for (const Hum& hum : gather) {
            if (!isWith(hum))
                continue;
            sum.addWhole(0, hum.share);
            lowest = std::min(lowest, hum.share);
            highest = std::max(highest, hum.share);
        }
        return true;
    }
    return false;
}

void SharedHum::add(SharedHum& other)
{
    gathers += other.gathers;
    gathersWith += other.gathersWith;
    traces += other.traces;
    tracesWith += other.tracesWith;
    sum.add(other.sum);
    lowest = std::min(lowest, other.lowest);
    highest = std::max(highest, other.highest);
    has50 = has50 || other.has50;
    has60 = has60 || other.has60;
}

std::string SharedHum::summary() const
{
    if (tracesWith == 0)
        return "";
    const char* mains = has50 && has60 ? "50 and 60 Hz" : (has50 ? "50 Hz" : "60 Hz");
    std::array<char, 80> shares;
    std::snprintf(shares.data(), shares.size(), "%.0f %% of the energy on average, %.0f to %.0f %%",
                  100 * sum.value() / static_cast<double>(tracesWith), 100 * lowest, 100 * highest);
    return std::string(mains) + " and harmonics: " + std::to_string(tracesWith) + " of " +
           std::to_string(traces) + " traces in " + std::to_string(gathersWith) + " of " +
           std::to_string(gathers) + (gathers == 1 ? " gather, " : " gathers, ") + shares.data();
}
