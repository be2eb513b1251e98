#include "section_window.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

// Rounding errors must not lose times that lie on a sample.
constexpr double tolerance = 1e-3;

// As an integer from `least` to `most`.
int64_t bounded(double value, double least, double most)
{
    return std::llround(std::clamp(value, least, most));
}

} // namespace

double SectionWindow::start() const
{
    return delay * 1e-3 + first * interval;
}

SectionWindow sectionWindow(int traceSamples, int delay, double interval, double from, double to)
{
    SectionWindow window{0, std::max(traceSamples, 0), delay, std::max(interval, 0.0)};
    if (interval <= 0 || traceSamples < 1)
        return window;
    const double begin = delay * 1e-3;
    const double end = static_cast<double>(traceSamples);
    const int64_t first = bounded(std::ceil((from - begin) / interval - tolerance), 0, end);
    const int64_t last = bounded(std::floor((to - begin) / interval + tolerance), -1, end - 1);
    window.first = static_cast<int>(first);
    window.samples = static_cast<int>(std::max<int64_t>(last - first + 1, 0));
    return window;
}

std::vector<float> samplesInWindow(const SectionWindow& window, std::span<const float> trace,
                                   int delay)
{
    std::vector<float> placed(static_cast<std::size_t>(window.samples), 0.0f);
    constexpr double most = 4e9; // beyond every sample number
    const int64_t later =
        window.interval > 0
            ? bounded((static_cast<double>(delay) - window.delay) * 1e-3 / window.interval, -most,
                      most)
            : 0;
    for (std::size_t i = 0; i < placed.size(); ++i) {
        const int64_t from = window.first + static_cast<int64_t>(i) - later;
        if (from >= 0 && from < static_cast<int64_t>(trace.size()))
            placed[i] = trace[static_cast<std::size_t>(from)];
    }
    return placed;
}

int64_t oddSamples(std::span<const float> samples)
{
    return std::count_if(samples.begin(), samples.end(),
                         [](float sample) { return !std::isfinite(sample); });
}

int64_t evenStep(int64_t total, int64_t most)
{
    return (total + most - 1) / most;
}
