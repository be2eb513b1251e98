#include "dip_fan.h"

#include <cmath>
#include <limits>
#include <numbers>

namespace {

// 1 to 0 as `share` goes from 0 to 1.
double taperAt(double share)
{
    const double cosine = std::cos(share * std::numbers::pi / 2);
    return cosine * cosine;
}

// The weight in the range, for dips of one sign.
double inRange(double dip, const DipFan& fan)
{
    if (dip < fan.low) {
        const double width = fan.low * fan.taper;
        return dip > fan.low - width ? taperAt((fan.low - dip) / width) : 0;
    }
    if (dip > fan.high) {
        const double width = fan.high * fan.taper;
        return dip < fan.high + width ? taperAt((dip - fan.high) / width) : 0;
    }
    return 1;
}

} // namespace

double DipFan::weight(double f, double k) const
{
    double dip = std::fabs(k) / f;
    if (f <= 0)
        dip = k == 0 ? 0 : std::numeric_limits<double>::infinity();
    // Level events, and those that alternate from trace to trace, have no sign.
    const bool isOther = (side == Side::positive && k < 0) || (side == Side::negative && k > 0);
    const double within = isOther && std::fabs(k) < 0.5 ? 0 : inRange(dip, *this);
    return rejects ? 1 - within : within;
}
