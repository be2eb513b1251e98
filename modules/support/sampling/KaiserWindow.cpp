#include "sampling/KaiserWindow.h"

#include <cmath>
#include <numbers>

namespace sampling {

namespace {

// The modified Bessel function of order 0, by its power series, whose terms are all positive.
double bessel(double x)
{
    double sum = 1;
    double term = 1;
    for (int k = 1; term > 1e-17 * sum; ++k) {
        term *= (x / (2 * k)) * (x / (2 * k));
        sum += term;
    }
    return sum;
}

double shapeFor(double attenuation)
{
    if (attenuation > 50)
        return 0.1102 * (attenuation - 8.7);
    return 0.5842 * std::pow(attenuation - 21, 0.4) + 0.07886 * (attenuation - 21);
}

} // namespace

KaiserWindow::KaiserWindow(double attenuation) : shape(shapeFor(attenuation)), peak(bessel(shape))
{
}

double KaiserWindow::at(double x) const
{
    const double rest = 1 - x * x;
    return rest <= 0 ? 0 : bessel(shape * std::sqrt(rest)) / peak;
}

double kaiserHalfLength(double attenuation, double transition)
{
    return (attenuation - 7.95) / (2.285 * 2 * std::numbers::pi * transition) / 2;
}

double sinc(double x)
{
    if (std::fabs(x) < 1e-12)
        return 1;
    return std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

} // namespace sampling
