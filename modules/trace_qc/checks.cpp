#include "checks.h"

#include "transform_memory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <deque>
#include <numeric>

namespace {

// Of a trace that is bad by itself the agreement with its neighbours says nothing more.
constexpr int explained = dead | weak | noisy | spiky | ringing | invalid | hum | bias;
constexpr double leastTypical = 0.15;    // agreement, below which neighbours say nothing
constexpr double resolvedHum = 1;        // seconds
constexpr double arrivalWindow = 0.05;   // seconds
constexpr double predictionWindow = 0.4; // seconds
constexpr double predictionLag = 0.16;   // seconds

int samplesIn(double seconds, double interval, int otherwise)
{
    return interval > 0
               ? std::max(1, static_cast<int>(std::lround(std::min(seconds / interval, 1e6))))
               : otherwise;
}

double decibels(double level)
{
    return 20 * std::log10(level);
}

std::optional<double> decibelsOf(double level)
{
    return level > 0 ? std::optional<double>(decibels(level)) : std::nullopt;
}

std::vector<double> inOrder(std::size_t traces)
{
    std::vector<double> places(traces);
    std::iota(places.begin(), places.end(), 0.0);
    return places;
}

// A line that is continued beyond the traces that determine it is less certain.
double limitOf(const Deviation& d, double deviations, double least)
{
    constexpr double lessCertain = 1.6;
    return std::max(deviations * d.spread, least) * (d.isAtEnd ? lessCertain : 1);
}

bool isAbove(const Deviation& d, double deviations, double least)
{
    return d.isKnown && d.distance > limitOf(d, deviations, least);
}

bool isBelow(const Deviation& d, double deviations, double least)
{
    return d.isKnown && -d.distance > limitOf(d, deviations, least);
}

template <typename... Values>
std::string text(const char* format, Values... values)
{
    std::array<char, 160> written;
    std::snprintf(written.data(), written.size(), format, values...);
    return written.data();
}

} // namespace

double leastHum(const CheckRule& rule, double duration)
{
    return rule.hum * std::max(1.0, resolvedHum / std::max(duration, 1e-9));
}

bool agreesAsItIs(const GatherChecks& compared)
{
    const Prediction& p = compared.prediction;
    return p.isKnown && p.typical >= leastTypical && p.zero >= 0.5 * p.typical;
}

int64_t checkingBytes(int samples, int traces)
{
    if (samples < 1)
        return 0;
    // Windows overlap by half and are padded by a quarter, and more up to the length that
    // transforms well and to whole quads: 2.5 numbers and some for each sample.
    constexpr int64_t spectraKept = 33;
    constexpr int64_t numbersOfSpectra = 4;
    constexpr int64_t numbersOfQuad = 2 * Quad::width;
    constexpr int64_t bytesOfSpectra = numbersOfSpectra * sizeof(float);
    constexpr int64_t bytesOfCopies =
        3 * sizeof(float) + 2 * sizeof(double); // twins, sums of energy
    const int64_t length = boundedTransformLength(samples);
    const int64_t hum = length * static_cast<int64_t>(2 * sizeof(float) + sizeof(double) / 2);
    return hum + transform_plan_bytes(length, 3) +
           runBytes(samples * numbersOfSpectra / numbersOfQuad) +
           samples * (spectraKept * bytesOfSpectra + bytesOfCopies) +
           int64_t{2} * traces * static_cast<int64_t>(sizeof(CheckedTrace));
}

Checker::Checker(int samples, double secondsPerSample, const CheckRule& rule)
    : count(samples), interval(secondsPerSample), limits(rule), humMeter(samples, secondsPerSample),
      predictor(samples, samplesIn(predictionWindow, secondsPerSample, 100))
{
}

SingleChecks Checker::measure(std::span<const float> samples, const TraceLevels& levels)
{
    SingleChecks single;
    if (levels.isConstant)
        return single;
    const double square = levels.rms * levels.rms - levels.mean * levels.mean;
    const double about = std::sqrt(std::max(square, 0.0));
    single.bias = about > 0 ? levels.mean / about : 0;
    single.hum = humMeter.measure(samples, levels.mean);
    single.roughness = roughness(samples, levels.mean);
    const int window = samplesIn(arrivalWindow, interval, 12);
    single.arrival = firstArrival(samples, window);
    single.noise = noiseWindows(samples, levels.mean, single.arrival, window);
    return single;
}

void Checker::compareLevels(std::vector<CheckedTrace>& traces) const
{
    const std::vector<double> places = inOrder(traces.size());
    const auto compare = [&](bool countTails, auto&& valueOf, Deviation GatherChecks::*result) {
        const Neighbourhood around{5, limits.window, countTails};
        std::vector<std::optional<double>> values;
        values.reserve(traces.size());
        for (const CheckedTrace& trace : traces)
            values.push_back((trace.flags & dead) != 0 ? std::nullopt : valueOf(trace));
        const std::vector<Deviation> found = deviations(places, values, around);
        for (std::size_t i = 0; i < traces.size(); ++i)
            traces[i].compared.*result = found[i];
    };
    compare(
        false,
        [](const CheckedTrace& t) {
            return decibelsOf(std::sqrt(
                std::max(t.levels.rms * t.levels.rms - t.levels.mean * t.levels.mean, 0.0)));
        },
        &GatherChecks::level);
    compare(
        true, [](const CheckedTrace& t) { return decibelsOf(t.single.noise.before); },
        &GatherChecks::before);
    compare(
        true, [](const CheckedTrace& t) { return decibelsOf(t.single.noise.late); },
        &GatherChecks::late);
    compare(
        true, [](const CheckedTrace& t) { return decibelsOf(t.single.roughness); },
        &GatherChecks::rough);
    compare(
        true, [](const CheckedTrace& t) { return std::optional<double>(t.single.bias); },
        &GatherChecks::bias);

    constexpr double surelyNoise = 10; // dB, of windows that vary more than whole traces
    for (CheckedTrace& trace : traces) {
        if ((trace.flags & dead) != 0)
            continue;
        const GatherChecks& c = trace.compared;
        // A wrong pick puts signal into the window before it.
        const bool isPicked = c.arrival.isKnown && std::fabs(c.arrival.distance) < arrivalWindow;
        if (isBelow(c.level, limits.outlier, limits.level))
            trace.flags |= weak;
        else if (isAbove(c.level, limits.outlier, limits.level) ||
                 // Hum and spikes are noise that has a name.
                 ((trace.flags & (hum | spiky)) == 0 &&
                  ((isPicked && isAbove(c.before, limits.outlier, surelyNoise)) ||
                   isAbove(c.late, limits.outlier, surelyNoise) ||
                   isAbove(c.rough, limits.outlier, limits.level))))
            trace.flags |= noisy;
        if (std::fabs(trace.single.bias) > limits.bias &&
            (isAbove(c.bias, limits.outlier, limits.bias) ||
             isBelow(c.bias, limits.outlier, limits.bias)))
            trace.flags |= bias;
    }
}

// Where a record is too short to tell a line from a wavelet, the traces around decide.
void Checker::compareHum(std::vector<CheckedTrace>& traces) const
{
    const double least = leastHum(limits, count * interval);
    std::vector<std::optional<double>> shares;
    shares.reserve(traces.size());
    for (const CheckedTrace& trace : traces)
        shares.push_back((trace.flags & dead) != 0 ? std::nullopt
                                                   : std::optional<double>(trace.single.hum.share));
    const std::vector<Deviation> found =
        deviations(inOrder(traces.size()), shares, {5, limits.window, true});
    for (std::size_t i = 0; i < traces.size(); ++i) {
        CheckedTrace& trace = traces[i];
        trace.compared.hum = found[i];
        const bool isHum = count * interval < resolvedHum ? isAbove(found[i], limits.outlier, least)
                                                          : trace.single.hum.share > limits.hum;
        if ((trace.flags & dead) == 0 && isHum)
            trace.flags |= hum;
    }
}

void Checker::compareArrivals(std::vector<CheckedTrace>& traces) const
{
    if (interval <= 0)
        return;
    const Neighbourhood around{5, limits.window, true};
    std::vector<std::optional<double>> times;
    for (const CheckedTrace& trace : traces) {
        const bool isGood = (trace.flags & (dead | spiky)) == 0 && trace.single.arrival;
        times.push_back(isGood ? std::optional<double>(*trace.single.arrival * interval)
                               : std::nullopt);
    }
    const std::vector<Deviation> byPlace = deviations(inOrder(traces.size()), times, around);
    for (std::size_t i = 0; i < traces.size(); ++i)
        traces[i].compared.arrival = byPlace[i];

    // Against offset, where the offsets differ; each side of the shot by itself.
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < traces.size(); ++i) {
        if (traces[i].offset)
            order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return *traces[a].offset < *traces[b].offset;
    });
    if (order.empty() || *traces[order.front()].offset == *traces[order.back()].offset)
        return;
    std::vector<double> places;
    std::vector<std::optional<double>> sorted;
    for (const std::size_t i : order) {
        places.push_back(*traces[i].offset);
        sorted.push_back(times[i]);
    }
    // A few wrong offsets stand side by side in this order, and must not widen the spread.
    const Neighbourhood alongOffsets{5, limits.window, false};
    const std::vector<Deviation> byOffset = deviations(places, sorted, alongOffsets);
    // Where the arrival fits those recorded beside it and not those of its offset, the offset is
    // wrong. Where it fits neither, the pick or the trace is.
    const auto isWrong = [&](const Deviation& d, const Deviation& beside) {
        return (isAbove(d, limits.outlier, limits.late) ||
                isBelow(d, limits.outlier, limits.late)) &&
               beside.isKnown && std::fabs(beside.distance) < 0.5 * std::fabs(d.distance);
    };
    std::vector<std::optional<double>> trusted = sorted;
    std::vector<std::size_t> candidates;
    for (std::size_t k = 0; k < order.size(); ++k) {
        GatherChecks& compared = traces[order[k]].compared;
        compared.offset = byOffset[k];
        if (isWrong(byOffset[k], compared.arrival)) {
            candidates.push_back(k);
            trusted[k].reset();
        }
    }
    // Several of them side by side bend the line of good ones: each is looked at without the
    // others.
    const auto reach = static_cast<std::size_t>(limits.window);
    for (const std::size_t k : candidates) {
        const std::size_t first = k - std::min(k, reach);
        const std::size_t end = std::min(order.size(), k + reach + 1);
        const auto part = [&](const auto& values) {
            return std::vector(values.begin() + static_cast<std::ptrdiff_t>(first),
                               values.begin() + static_cast<std::ptrdiff_t>(end));
        };
        std::vector<std::optional<double>> near = part(trusted);
        near[k - first] = sorted[k];
        CheckedTrace& trace = traces[order[k]];
        const Deviation alone = deviations(part(places), near, alongOffsets)[k - first];
        if (!alone.isKnown)
            continue;
        trace.compared.offset = alone;
        if (isWrong(alone, trace.compared.arrival))
            trace.flags |= geometry;
    }
}

void Checker::compareTwins(std::vector<CheckedTrace>& traces,
                           const std::function<std::span<const float>(int)>& samplesOf) const
{
    constexpr std::size_t farthest = 2; // traces
    constexpr double closer = 0.03;     // than neighbours are around
    constexpr double allAlike = 1e-6;   // modelled traces without noise
    struct Scaled
    {
        std::size_t trace;
        std::vector<float> samples; // without mean, of energy 1
    };
    std::deque<Scaled> before;
    for (std::size_t i = 0; i < traces.size(); ++i) {
        if ((traces[i].flags & dead) != 0 || traces[i].levels.invalid > 0 ||
            traces[i].levels.isConstant)
            continue;
        const std::span<const float> samples = samplesOf(static_cast<int>(i));
        Scaled own{i, {}};
        own.samples.resize(samples.size());
        copyScaled(samples, traces[i].levels.mean, own.samples.data());
        const double energy = productOf(own.samples, own.samples);
        const double scale = energy > 0 ? 1 / std::sqrt(energy) : 0;
        for (float& sample : own.samples)
            sample = static_cast<float>(sample * scale);
        for (const Scaled& other : before) {
            const double correlation = productOf(own.samples, other.samples);
            const double difference =
                correlation > 0 ? 1 - std::min(1.0, correlation * correlation) : 1;
            const auto note = [&](std::size_t trace, std::size_t twin) {
                GatherChecks& c = traces[trace].compared;
                if (difference < c.twin) {
                    c.twin = difference;
                    c.twinTrace = static_cast<int>(twin);
                }
            };
            note(i, other.trace);
            note(other.trace, i);
        }
        before.push_front(std::move(own));
        if (before.size() > farthest)
            before.pop_back();
    }
    const auto half = static_cast<std::size_t>(limits.window / 2);
    for (std::size_t i = 0; i < traces.size(); ++i) {
        std::vector<double> near;
        for (std::size_t j = i - std::min(i, half); j < std::min(traces.size(), i + half + 1); ++j)
        {
            if (j != i && traces[j].compared.twinTrace >= 0)
                near.push_back(traces[j].compared.twin);
        }
        GatherChecks& c = traces[i].compared;
        c.twinAround = medianOf(std::move(near));
        if (c.twinTrace >= 0 && c.twinAround > allAlike && c.twin < limits.twin &&
            c.twin < closer * c.twinAround)
            traces[i].flags |= duplicate;
    }
}

void Checker::comparePredictions(std::vector<CheckedTrace>& traces,
                                 const std::function<std::span<const float>(int)>& samplesOf)
{
    constexpr double surelyTypical = 0.3;
    // Traces that have nothing in common still correlate by about one over the root of their
    // degrees of freedom, of which a bandwidth of 30 Hz has 60 per second.
    const double duration = interval > 0 ? count * interval : count * 0.004;
    constexpr double enough = 1; // seconds; below that, chance has long tails
    const double anywhere = (duration < enough ? 3 : 2) / std::sqrt(std::max(60 * duration, 1.0));
    constexpr double gain = 0.35; // of the agreement, by the lag
    // Where the record is too short for that, the agreement must fall out of the ordinary.
    constexpr double fewer = 4; // spreads
    constexpr double leastFall = 0.12;
    const auto samples = [&](int i) -> std::optional<std::span<const float>> {
        if ((traces[static_cast<std::size_t>(i)].flags & (dead | invalid)) != 0)
            return std::nullopt;
        return samplesOf(i);
    };
    const std::vector<Prediction> predictions = predictor.predict(
        static_cast<int>(traces.size()), samples, samplesIn(predictionLag, interval, 40));
    std::vector<std::optional<double>> lags;
    lags.reserve(predictions.size());
    for (const Prediction& p : predictions)
        lags.push_back(p.isKnown ? std::optional<double>(p.lag) : std::nullopt);
    const std::vector<Deviation> byLag =
        deviations(inOrder(traces.size()), lags, {5, limits.window, true});
    std::vector<std::optional<double>> agreements;
    agreements.reserve(predictions.size());
    for (const Prediction& p : predictions)
        agreements.push_back(p.isKnown ? std::optional<double>(p.zero) : std::nullopt);
    const std::vector<Deviation> byAgreement =
        deviations(inOrder(traces.size()), agreements, {5, limits.window, false});
    for (std::size_t i = 0; i < traces.size(); ++i) {
        const Prediction& p = predictions[i];
        CheckedTrace& trace = traces[i];
        trace.compared.prediction = p;
        trace.compared.lag = byLag[i];
        trace.compared.agreement = byAgreement[i];
        if ((trace.flags & explained) != 0 || !p.isKnown || p.typical < leastTypical)
            continue;
        // A trace at an end is predicted from one side alone.
        const double chance = byLag[i].isAtEnd ? 1.5 * anywhere : anywhere;
        const Deviation& arrival = trace.compared.arrival;
        const bool comesAtAnotherTime = isAbove(arrival, limits.outlier, limits.late) ||
                                        isBelow(arrival, limits.outlier, limits.late);
        const bool agreesElsewhere =
            std::abs(p.lag) > std::max(limits.outlier * byLag[i].spread, 1.5) &&
            p.best > 0.5 * p.typical && p.best - p.zero > gain * p.typical &&
            (p.best - p.zero > chance || (std::abs(p.lag) * interval > limits.late &&
                                          isBelow(byAgreement[i], fewer, leastFall)));
        // Parts of both ends are missing where a trace is late by a part of the window.
        const bool arrivesElsewhere = comesAtAnotherTime && p.zero < limits.mismatch * p.typical &&
                                      p.typical - p.zero > chance;
        if (-p.least > std::max(0.5 * p.typical, chance) && -p.least > p.best)
            trace.flags |= reversed;
        else if (agreesElsewhere || arrivesElsewhere)
            trace.flags |= shifted;
        else if (p.typical >= surelyTypical && p.best < limits.mismatch * p.typical &&
                 p.typical - p.best > chance)
            trace.flags |= unlike;
    }
}

// Two traces that arrive when the other one should, and do not fit where they are.
void Checker::compareSwapped(std::vector<CheckedTrace>& traces) const
{
    constexpr std::size_t farthest = 8;  // traces
    constexpr double tolerance = 0.35;   // of the error of its arrival
    constexpr double disagreeing = 0.65; // of the typical agreement
    const auto isMisplaced = [&](const CheckedTrace& trace) {
        const GatherChecks& c = trace.compared;
        return (trace.flags & explained) == 0 && c.arrival.isKnown && !c.arrival.isAtEnd &&
               std::fabs(c.arrival.distance) > limits.late &&
               (!c.prediction.isKnown || c.prediction.zero < disagreeing * c.prediction.typical) &&
               c.prediction.typical >= leastTypical;
    };
    const auto fitsAt = [&](const Deviation& own, const Deviation& other) {
        const double arrival = own.expected + own.distance;
        return std::fabs(arrival - other.expected) < tolerance * std::fabs(own.distance);
    };
    for (std::size_t i = 0; i < traces.size(); ++i) {
        if (!isMisplaced(traces[i]))
            continue;
        for (std::size_t j = i + 1; j < std::min(traces.size(), i + farthest + 1); ++j) {
            const Deviation& first = traces[i].compared.arrival;
            const Deviation& second = traces[j].compared.arrival;
            if (!isMisplaced(traces[j]) || !fitsAt(first, second) || !fitsAt(second, first))
                continue;
            const auto apart = static_cast<int>(j - i);
            traces[i].compared.swappedBy = apart;
            traces[j].compared.swappedBy = -apart;
            for (const std::size_t one : {i, j})
                traces[one].flags = (traces[one].flags & ~unlike) | shifted;
        }
    }
}

void Checker::judge(std::vector<CheckedTrace>& traces,
                    const std::function<std::span<const float>(int)>& samplesOf)
{
    compareArrivals(traces);
    compareHum(traces);
    compareLevels(traces);
    compareTwins(traces, samplesOf);
    comparePredictions(traces, samplesOf);
    compareSwapped(traces);
}

std::string Checker::reason(Flag flag, const SingleChecks& single,
                            const GatherChecks& compared) const
{
    switch (flag) {
    case hum:
        return text("%.0f %% of the energy at %.0f Hz and harmonics", single.hum.share * 100,
                    single.hum.mains);
    case bias:
        return text("mean %.2f of the RMS, around it %.2f", single.bias, compared.bias.expected);
    case duplicate:
        return text("differs from a neighbour by %.2g %% of its energy", compared.twin * 100);
    case shifted:
        if (compared.swappedBy != 0)
            return text("first arrival %+.0f ms against its neighbours, as if exchanged with the "
                        "trace %+d from it",
                        compared.arrival.distance * 1000, compared.swappedBy);
        if (compared.prediction.lag == 0)
            return text("first arrival %+.0f ms against its neighbours",
                        compared.arrival.distance * 1000);
        return interval > 0 ? text("%+.1f ms against its neighbours",
                                   compared.prediction.lag * interval * 1000)
                            : text("%+d samples against its neighbours", compared.prediction.lag);
    case geometry:
        return text("first arrival at %.0f ms, at its offset %.0f ms are expected",
                    (compared.offset.expected + compared.offset.distance) * 1000,
                    compared.offset.expected * 1000);
    case unlike:
        return text("agreement %.2f with its neighbours, around it %.2f", compared.prediction.best,
                    compared.prediction.typical);
    case noisy:
    case weak: {
        std::string parts;
        const auto add = [&](const char* what, const Deviation& d) {
            if (isAbove(d, limits.outlier, limits.level) ||
                isBelow(d, limits.outlier, limits.level))
                parts += text(", %s %+.1f dB against its neighbours with a spread of %.1f dB", what,
                              d.distance, d.spread);
        };
        add("RMS", compared.level);
        add("noise before the first arrival", compared.before);
        add("end of the record", compared.late);
        add("roughness", compared.rough);
        return parts;
    }
    default:
        return "";
    }
}
