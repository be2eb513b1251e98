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
constexpr int mostTerms = 4;

using Double = std::complex<double>;
using Terms = std::array<Double, mostTerms>;

// Solves the normal equations of `terms` unknowns by Cholesky's decomposition, in place; false for
// a matrix that is not positive.
bool solve(std::array<Terms, mostTerms>& matrix, Terms& right, std::size_t terms)
{
    for (std::size_t j = 0; j < terms; ++j) {
        double diagonal = matrix[j][j].real();
        for (std::size_t k = 0; k < j; ++k)
            diagonal -= std::norm(matrix[j][k]);
        if (!(diagonal > 0))
            return false;
        const double root = std::sqrt(diagonal);
        matrix[j][j] = root;
        for (std::size_t i = j + 1; i < terms; ++i) {
            Double sum = matrix[i][j];
            for (std::size_t k = 0; k < j; ++k)
                sum -= matrix[i][k] * std::conj(matrix[j][k]);
            matrix[i][j] = sum / root;
        }
    }
    for (std::size_t i = 0; i < terms; ++i) {
        for (std::size_t k = 0; k < i; ++k)
            right[i] -= matrix[i][k] * right[k];
        right[i] /= matrix[i][i].real();
    }
    for (std::size_t i = terms; i-- > 0;) {
        for (std::size_t k = i + 1; k < terms; ++k)
            right[i] -= std::conj(matrix[k][i]) * right[k];
        right[i] /= matrix[i][i].real();
    }
    return true;
}

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
    for (int i = 0; i < windowLength; ++i)
        taper.push_back(static_cast<float>(
            0.5 - 0.5 * std::cos(2 * std::numbers::pi * (i + 0.5) / windowLength)));
    cross.resize(bins);
    fourier = RealTransform(length, RealTransform::Directions::both);
}

// Each window has the energy 1, so that late and weak ones count; windows that are empty beside the
// trace stay so.
void Predictor::transform(std::span<const float> samples, std::vector<Complex>& values)
{
    constexpr double quiet = 1e-3;
    const TraceLevels levels = levelsOf(samples);
    values.assign(static_cast<std::size_t>(windows) * bins, Complex());
    if (levels.isConstant)
        return;
    float* const buffer = fourier.data();
    const int hop = std::max(1, windowLength / 2);
    for (int window = 0; window < windows; ++window) {
        const auto from = static_cast<std::size_t>(window) * static_cast<std::size_t>(hop);
        double energy = 0;
        std::fill(buffer, buffer + length, 0.0f);
        for (std::size_t i = 0; i < taper.size(); ++i) {
            const float sample = samples[from + i];
            const double value = std::isfinite(sample) ? (sample - levels.mean) * taper[i] : 0;
            buffer[i] = static_cast<float>(value / levels.peak);
            energy += static_cast<double>(buffer[i]) * buffer[i];
        }
        const double least = quiet * levels.rms / levels.peak;
        const double floor = least * least * static_cast<double>(windowLength);
        const double scale = 1 / std::sqrt(std::max(energy, floor));
        fourier.forward();
        for (std::size_t bin = 0; bin < bins; ++bin)
            values[static_cast<std::size_t>(window) * bins + bin] =
                Complex(static_cast<float>(buffer[2 * bin] * scale),
                        static_cast<float>(buffer[2 * bin + 1] * scale));
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
        Spectra spectra{trace, false, {}};
        if (const auto samples = samplesOf(trace)) {
            spectra.takesPart = true;
            transform(*samples, spectra.values);
        }
        cache.push_back(std::move(spectra));
    }
}

// Adds the spectra of the trace, times the conjugate of its prediction, of all windows.
void Predictor::correlate(int trace, const std::vector<int>& offsets, const std::vector<int>& rows,
                          double& own, double& predicted)
{
    constexpr double leastEnergy =
        0.002;                       // of the strongest frequency: the others are not looked at
    constexpr double damping = 0.05; // of the mean diagonal element
    const std::size_t terms = offsets.size();
    const auto spectra = [&](int i) {
        return cache[static_cast<std::size_t>(i - cache.front().trace)].values.data();
    };
    std::vector<const Complex*> wanted; // each row, then the traces that it is predicted from
    std::vector<const Complex*> given;
    for (const int row : rows) {
        wanted.push_back(spectra(row));
        for (const int offset : offsets)
            given.push_back(spectra(row + offset));
    }
    std::vector<const Complex*> sources;
    sources.reserve(terms);
    for (const int offset : offsets)
        sources.push_back(spectra(trace + offset));
    const Complex* self = spectra(trace);

    std::vector<double> energies(bins);
    for (int window = 0; window < windows; ++window) {
        const std::size_t from = static_cast<std::size_t>(window) * bins;
        for (std::size_t bin = 0; bin < bins; ++bin) {
            energies[bin] = 0;
            for (const Complex* row : wanted)
                energies[bin] += std::norm(row[from + bin]);
        }
        const double limit = leastEnergy * *std::max_element(energies.begin(), energies.end());
        for (std::size_t bin = 0; bin < bins; ++bin) {
            if (energies[bin] <= limit)
                continue;
            const std::size_t at = from + bin;
            std::array<Terms, mostTerms> matrix{};
            Terms right{};
            for (std::size_t row = 0; row < wanted.size(); ++row) {
                const Complex target = wanted[row][at];
                Complex from4[mostTerms];
                for (std::size_t j = 0; j < terms; ++j)
                    from4[j] = given[row * terms + j][at];
                for (std::size_t j = 0; j < terms; ++j) {
                    const Complex mine = std::conj(from4[j]);
                    right[j] += Double(mine * target);
                    for (std::size_t k = 0; k <= j; ++k)
                        matrix[j][k] += Double(mine * from4[k]);
                }
            }
            double trace4 = 0;
            for (std::size_t j = 0; j < terms; ++j)
                trace4 += matrix[j][j].real();
            for (std::size_t j = 0; j < terms; ++j)
                matrix[j][j] += damping * trace4 / static_cast<double>(terms);
            if (!solve(matrix, right, terms))
                continue;
            Double prediction = 0;
            for (std::size_t j = 0; j < terms; ++j)
                prediction += right[j] * Double(sources[j][at]);
            const Double value(self[at]);
            const double weight = bin == 0 ? 1 : 2;
            own += weight * std::norm(value);
            predicted += weight * std::norm(prediction);
            cross[bin] += value * std::conj(prediction);
        }
    }
}

Prediction Predictor::predictOne(int trace, int traces, const TraceSamples& samplesOf,
                                 const std::vector<char>& isLeftOut, int farthest)
{
    Prediction result;
    const int first = std::max(0, std::min(trace - reach, traces - 1 - 2 * reach));
    const int last = std::min(traces - 1, first + 2 * reach);
    load(std::max(0, trace - 2 * reach), std::min(traces - 1, trace + 2 * reach), samplesOf);
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

    std::fill(cross.begin(), cross.end(), Double());
    double own = 0;
    double predicted = 0;
    correlate(trace, offsets, rows, own, predicted);
    if (own <= 0 || predicted <= 0)
        return result;
    const double scale = 1 / std::sqrt(own * predicted);
    float* const buffer = fourier.data();
    for (std::size_t bin = 0; bin < bins; ++bin) {
        buffer[2 * bin] = static_cast<float>(cross[bin].real() * scale);
        buffer[2 * bin + 1] = static_cast<float>(cross[bin].imag() * scale);
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
