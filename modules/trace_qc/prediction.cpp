#include "prediction.h"

#include "neighbourhood.h"
#include "trace_measures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>

namespace {

constexpr int reach = 8;       // traces to each side that determine the coefficients
constexpr int farthestOff = 5; // traces from one to those that it is predicted from
constexpr std::size_t mostTerms = NormalEquations::mostTerms;

// The nearest usable traces, two on each side where there are two.
std::vector<int> chooseOffsets(const std::function<bool(int)>& isUsable, int trace)
{
    std::vector<int> sides[2];
    for (int side = 0; side < 2; ++side) {
        for (int step = 1; step <= farthestOff; ++step) {
            const int offset = side == 0 ? -step : step;
            if (isUsable(trace + offset))
                sides[side].push_back(offset);
        }
    }
    constexpr std::size_t half = mostTerms / 2;
    const std::size_t left =
        std::min(sides[0].size(), std::max(half, mostTerms - std::min(sides[1].size(), half)));
    const std::size_t right = std::min(sides[1].size(), mostTerms - std::min(left, half));
    std::vector<int> offsets(sides[0].begin(),
                             sides[0].begin() + static_cast<std::ptrdiff_t>(left));
    for (std::size_t i = 0; i < right && offsets.size() < mostTerms; ++i)
        offsets.push_back(sides[1][i]);
    return offsets;
}

void setTypical(std::vector<Prediction>& predictions)
{
    constexpr std::size_t around = 15; // traces to each side
    for (std::size_t i = 0; i < predictions.size(); ++i) {
        std::vector<double> near;
        const std::size_t end = std::min(predictions.size(), i + around + 1);
        for (std::size_t j = i - std::min(i, around); j < end; ++j) {
            if (j != i && predictions[j].isKnown)
                near.push_back(predictions[j].zero);
        }
        predictions[i].typical = medianOf(std::move(near));
    }
}

} // namespace

Predictor::Predictor(int samples, int window)
{
    if (samples < 16)
        return;
    windowLength = std::clamp(window, 16, samples);
    const int hop = std::max(1, windowLength / 2);
    windows = 1 + (samples - windowLength) / hop;
    // A window of as many samples would fit twice.
    length =
        std::min<int>(boundedTransformLength(windowLength),
                      static_cast<int>(transformLength(int64_t{windowLength} + windowLength / 4)));
    bins = static_cast<std::size_t>(length) / 2 + 1;
    quads = (bins + Quad::width - 1) / Quad::width;
    for (int i = 0; i < windowLength; ++i)
        taper.push_back(static_cast<float>(
            0.5 - 0.5 * std::cos(2 * std::numbers::pi * (i + 0.5) / windowLength)));
    equations = NormalEquations(quads, static_cast<std::size_t>(windows));
    fourier = RealTransform(length, RealTransform::Directions::both);
}

// Each window has the energy 1, so that late and weak ones count; windows that are empty beside the
// trace stay so.
void Predictor::transform(std::span<const float> samples, std::vector<Quad>& values)
{
    constexpr double quiet = 1e-3;
    const TraceLevels levels = levelsOf(samples);
    values.assign(static_cast<std::size_t>(windows) * quads, Quad());
    if (levels.isConstant)
        return;
    // Both windows that a sample is in take it from here.
    std::vector<float> scaled(samples.size());
    const double toOne = 1 / levels.peak;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double value = (samples[i] - levels.mean) * toOne;
        scaled[i] =
            std::fabs(value) <= 2 ? static_cast<float>(value) : 0.0f; // not of infinite ones
    }
    float* const buffer = fourier.data();
    const int hop = std::max(1, windowLength / 2);
    for (int window = 0; window < windows; ++window) {
        const auto from = static_cast<std::size_t>(window) * static_cast<std::size_t>(hop);
        for (std::size_t i = 0; i < taper.size(); ++i)
            buffer[i] = scaled[from + i] * taper[i];
        std::fill(buffer + taper.size(), buffer + length, 0.0f);
        const std::span<const float> tapered(buffer, taper.size());
        const double energy = productOf(tapered, tapered);
        const double least = quiet * levels.rms / levels.peak;
        const double floor = least * least * static_cast<double>(windowLength);
        const double scale = 1 / std::sqrt(std::max(energy, floor));
        fourier.forward();
        const auto factor = static_cast<float>(scale);
        Quad* to = values.data() + static_cast<std::size_t>(window) * quads;
        for (std::size_t bin = 0; bin < bins; ++bin) {
            to[bin / Quad::width].re[bin % Quad::width] = buffer[2 * bin] * factor;
            to[bin / Quad::width].im[bin % Quad::width] = buffer[2 * bin + 1] * factor;
        }
    }
}

// Keeps the spectra of the traces from `first` to `last`, which move on from call to call.
void Predictor::load(int first, int last, const TraceSamples& samplesOf)
{
    while (!cache.empty() && cache.front().trace < first)
        cache.pop_front();
    if (!cache.empty() && cache.front().trace > first)
        cache.clear();
    for (int trace = cache.empty() ? first : cache.back().trace + 1; trace <= last; ++trace) {
        Spectra spectra;
        spectra.trace = trace;
        if (const auto samples = samplesOf(trace)) {
            spectra.takesPart = true;
            transform(*samples, spectra.values);
        }
        cache.push_back(std::move(spectra));
    }
}

Prediction Predictor::predictOne(int trace, int traces, const TraceSamples& samplesOf,
                                 const std::vector<char>& isLeftOut, int farthest)
{
    Prediction result;
    const int first = std::max(0, std::min(trace - reach, traces - 1 - 2 * reach));
    const int last = std::min(traces - 1, first + 2 * reach);
    load(std::max(0, trace - 2 * reach), std::min(traces - 1, trace + 2 * reach), samplesOf);
    equations.drop(cache, first);
    const auto isUsable = [&](int i) {
        return i >= first && i <= last && isLeftOut[static_cast<std::size_t>(i)] == 0 &&
               cache[static_cast<std::size_t>(i - cache.front().trace)].takesPart;
    };
    if (!cache[static_cast<std::size_t>(trace - cache.front().trace)].takesPart)
        return result;

    std::vector<int> offsets = chooseOffsets(isUsable, trace);
    std::vector<int> rows;
    // Fewer terms where too few traces determine them.
    for (; offsets.size() >= 2; offsets.pop_back()) {
        rows.clear();
        for (int row = first; row <= last; ++row) {
            const bool isComplete = row != trace && isUsable(row) &&
                                    std::all_of(offsets.begin(), offsets.end(), [&](int offset) {
                                        return row + offset != trace && isUsable(row + offset);
                                    });
            if (isComplete)
                rows.push_back(row);
        }
        if (rows.size() > offsets.size())
            break;
    }
    if (offsets.size() < 2)
        return result;

    equations.agree(cache, trace, offsets, rows, agreement);
    if (agreement.own <= 0 || agreement.predicted <= 0)
        return result;
    const double scale = 1 / std::sqrt(agreement.own * agreement.predicted);
    float* const buffer = fourier.data();
    for (std::size_t bin = 0; bin < bins; ++bin) {
        const Quad& cross = agreement.cross[bin / Quad::width];
        buffer[2 * bin] = static_cast<float>(cross.re[bin % Quad::width] * scale);
        buffer[2 * bin + 1] = static_cast<float>(cross.im[bin % Quad::width] * scale);
    }
    fourier.backward();
    result.isKnown = true;
    result.zero = result.best = buffer[0];
    result.least = std::min({buffer[0], buffer[1], buffer[length - 1]});
    for (int lag = 1; lag <= std::min(farthest, length / 2 - 1); ++lag) {
        if (buffer[lag] > result.best) {
            result.best = buffer[lag];
            result.lag = lag;
        }
        if (buffer[length - lag] > result.best) {
            result.best = buffer[length - lag];
            result.lag = -lag;
        }
    }
    return result;
}

std::vector<Prediction> Predictor::predict(int traces, const TraceSamples& samplesOf, int farthest)
{
    constexpr double suspicious = 0.6; // of what is typical around
    std::vector<Prediction> results(static_cast<std::size_t>(std::max(traces, 0)));
    if (!fourier)
        return results;
    cache.clear();
    std::vector<char> isLeftOut(results.size(), 0);
    for (int i = 0; i < traces; ++i)
        results[static_cast<std::size_t>(i)] =
            predictOne(i, traces, samplesOf, isLeftOut, farthest);

    setTypical(results);
    const auto isSuspect = [&](const Prediction& p) {
        return p.isKnown && p.zero < suspicious * p.typical;
    };
    std::vector<Prediction> again = results;
    for (int i = 0; i < traces; ++i) {
        const Prediction& own = results[static_cast<std::size_t>(i)];
        if (!isSuspect(own))
            continue;
        const int first = std::max(0, i - 2 * reach);
        const int last = std::min(traces - 1, i + 2 * reach);
        for (int j = first; j <= last; ++j) {
            const Prediction& other = results[static_cast<std::size_t>(j)];
            isLeftOut[static_cast<std::size_t>(j)] = isSuspect(other) && other.zero < own.zero;
        }
        Prediction better = predictOne(i, traces, samplesOf, isLeftOut, farthest);
        again[static_cast<std::size_t>(i)] = better;
        std::fill(isLeftOut.begin() + first, isLeftOut.begin() + last + 1, 0);
    }
    cache.clear();
    setTypical(again);
    return again;
}
