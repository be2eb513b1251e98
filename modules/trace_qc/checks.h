/// @file checks.h
///
/// The checks of traces: what they measure of each trace by itself, what they compare within a
/// gather, and which flags follow. Independent of the kernel.
#ifndef CHECKS_H
#define CHECKS_H

#include "arrivals.h"
#include "mains_hum.h"
#include "neighbourhood.h"
#include "prediction.h"
#include "trace_measures.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// What is wrong with a trace; they add up.
enum Flag
{
    dead = 1,
    weak = 2,
    noisy = 4,
    clipped = 8,
    spiky = 16,
    reversed = 32,
    ringing = 64,
    invalid = 128,
    hum = 256,
    bias = 512,
    duplicate = 1024,
    shifted = 2048,
    geometry = 4096,
    unlike = 8192
};

/// Thresholds of the checks.
struct CheckRule
{
    int window = 31;        ///< traces that the spread of a measure is taken from
    double outlier = 5;     ///< robust standard deviations of the neighbourhood
    double level = 6;       ///< dB that a level must differ by at least
    double hum = 0.15;      ///< share of the energy
    double bias = 0.25;     ///< of the RMS about the mean
    double twin = 0.01;     ///< energy by which a duplicate differs at most, of its own
    double mismatch = 0.45; ///< of the agreement with neighbours that is typical around
    double late = 0.02;     ///< seconds that a first arrival must differ by at least
};

/// The share of the energy from which on a trace has hum. Below 1 s of record, where a line cannot
/// be told from a wavelet, it rises.
///
/// @param duration  seconds
double leastHum(const CheckRule& rule, double duration);

/// Measures of a trace by itself.
struct SingleChecks
{
    Hum hum;
    double bias = 0;            ///< mean over the RMS about the mean
    std::optional<int> arrival; ///< sample
    NoiseWindows noise;
    double roughness = 0;
};

/// Measures in comparison with the gather. Levels in dB.
struct GatherChecks
{
    Deviation level;       ///< RMS about the mean
    Deviation before;      ///< RMS before the first arrival
    Deviation late;        ///< RMS at the end of the trace
    Deviation rough;       ///< roughness
    Deviation bias;        ///< bias as a share, not in dB
    Deviation arrival;     ///< first arrival against the traces recorded next to it, seconds
    Deviation offset;      ///< first arrival against traces of nearly the same offset, seconds
    Deviation hum;         ///< its share, not in dB
    Deviation lag;         ///< of the prediction, samples
    double twin = 1;       ///< least energy by which it differs from one of its neighbours, 0 to 1
    double twinAround = 1; ///< median of that
    int twinTrace = -1;    ///< place of that neighbour in the gather
    Deviation agreement;   ///< of the trace with its prediction at lag 0
    int swappedBy = 0;     ///< traces to the one with which it seems to be exchanged; 0: with none
    Prediction prediction;
};

/// Whether a trace agrees with what its neighbours let expect as it is: then it cannot be reversed.
bool agreesAsItIs(const GatherChecks& compared);

struct CheckedTrace
{
    int flags = 0; ///< sum of Flag; judge() adds to it
    TraceLevels levels;
    SingleChecks single;
    std::optional<double> offset; ///< from the header
    GatherChecks compared;        ///< judge() fills it
};

/// Bytes of memory that a Checker takes for gathers of `traces` traces with `samples` samples each:
/// transforms, the spectra of the traces that predict each other, copies of neighbours, and the
/// measures of a gather. Throws std::length_error for traces that are too long to be transformed.
int64_t checkingBytes(int samples, int traces);

class Checker
{
public:
    /// @param interval  seconds; 0 when it is not known: no hum, no arrivals, windows of 100
    /// samples
    Checker(int samples, double interval, const CheckRule& rule = {});

    SingleChecks measure(std::span<const float> samples, const TraceLevels& levels);

    /// Compares the traces of a gather, in the order of recording.
    void judge(std::vector<CheckedTrace>& traces,
               const std::function<std::span<const float>(int)>& samplesOf);

    /// The numbers behind a flag.
    std::string reason(Flag flag, const SingleChecks& single, const GatherChecks& compared) const;

private:
    void compareLevels(std::vector<CheckedTrace>& traces) const;
    void compareHum(std::vector<CheckedTrace>& traces) const;
    void compareArrivals(std::vector<CheckedTrace>& traces) const;
    void compareTwins(std::vector<CheckedTrace>& traces,
                      const std::function<std::span<const float>(int)>& samplesOf) const;
    void comparePredictions(std::vector<CheckedTrace>& traces,
                            const std::function<std::span<const float>(int)>& samplesOf);
    void compareSwapped(std::vector<CheckedTrace>& traces) const;

    int count;
    double interval;
    CheckRule limits;
    HumMeter humMeter;
    Predictor predictor;
};

#endif
