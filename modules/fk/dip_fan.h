/// @file dip_fan.h
///
/// A range of dips in the plane of frequency and wavenumber. Independent of the kernel.
#ifndef DIP_FAN_H
#define DIP_FAN_H

/// Events whose dip, the time by which they are later from trace to trace, lies in a range.
struct DipFan
{
    enum class Side
    {
        both,
        positive, ///< later from trace to trace
        negative
    };

    double low = 0;   ///< seconds from trace to trace, at least 0
    double high = 0;  ///< above `low`; infinite for a range without an upper end
    double taper = 0; ///< part of `low` and `high` over which the weight falls to 0 outside, 0 to 1
    Side side = Side::both;
    bool rejects = false; ///< the range is taken out; else it is kept, and all else taken out

    /// The factor, 0 to 1, of the frequency `f` (Hz, at least 0) and the wavenumber `k` (cycles
    /// per trace). With dip d = |k| / f, it falls as a squared cosine of d outside of the range.
    double weight(double f, double k) const;
};

#endif
