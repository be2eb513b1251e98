/// @file KaiserWindow.h
///
/// The window of a windowed sinc filter. Independent of the kernel.
#ifndef KAISERWINDOW_H
#define KAISERWINDOW_H

namespace sampling {

/// w(x) = I0(b sqrt(1 - x^2)) / I0(b), with b chosen for the attenuation that the filter reaches in
/// its stop band (Kaiser 1974).
class KaiserWindow
{
public:
    explicit KaiserWindow(double attenuation); ///< dB, above 21

    /// At x between -1 and 1, the ends of the window. At the ends themselves and beyond them it is
    /// 0, so that a filter with a whole number of samples to each side is even.
    double at(double x) const;

private:
    double shape;
    double peak;
};

/// Half the length, in samples, of a Kaiser filter with this attenuation (dB) whose transition band
/// has this width (cycles per sample).
double kaiserHalfLength(double attenuation, double transition);

/// sin(pi x) / (pi x).
double sinc(double x);

} // namespace sampling

#endif
