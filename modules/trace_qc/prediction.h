/// @file prediction.h
///
/// What the neighbours of a trace let expect of its samples. Independent of the kernel.
///
/// Events that are straight within a few traces and a short time make each frequency of such a
/// window predictable from trace to trace, whatever their dips, also where they move by more than
/// half a period (spatial aliasing). So each trace is predicted from up to four neighbours by
/// coefficients that the traces around it have determined without it. Correlated with its
/// prediction, a good trace has a maximum at lag 0, a reversed one a minimum; one with a time error
/// has its maximum at that lag; one from another place, or of noise, has none.
///
/// After L. L. Canales: Random noise reduction. SEG Technical Program Expanded Abstracts 1984,
/// 525-527, and S. Spitz: Seismic trace interpolation in the f-x domain. Geophysics 56, 785-794,
/// 1991.
#ifndef PREDICTION_H
#define PREDICTION_H

#include "normal_equations.h"
#include "real_transform.h"

#include <functional>
#include <optional>
#include <span>
#include <vector>

/// The samples of a trace, which are not needed any more when it is called again; nothing for one
/// that takes no part.
using TraceSamples = std::function<std::optional<std::span<const float>>(int)>;

/// Correlation of a trace with its prediction, -1 to 1.
struct Prediction
{
    bool isKnown = false; ///< false: the trace takes no part, or has too few neighbours that do
    double zero = 0;      ///< at lag 0
    double best = 0;      ///< the greatest one
    int lag = 0;          ///< samples by which the trace is late at the greatest one
    double least = 0;     ///< the least one at lags of at most one sample
    double typical = 0;   ///< median at lag 0 of the traces around
};

/// Predicts traces of one length.
class Predictor
{
public:
    /// @param samples  samples of each trace, 0 to 2^29
    /// @param window   samples of a time window, 16 or more; windows overlap by half
    Predictor(int samples, int window);

    /// The predictions of all traces of a gather. Those that agree less than half as well as the
    /// traces around them are predicted once more without the neighbours that agree even less: a
    /// bad trace does not make its neighbours bad.
    ///
    /// @param farthest  samples of the greatest lag
    std::vector<Prediction> predict(int traces, const TraceSamples& samplesOf, int farthest);

private:
    void transform(std::span<const float> samples, std::vector<Quad>& values);
    void load(int first, int last, const TraceSamples& samplesOf);
    Prediction predictOne(int trace, int traces, const TraceSamples& samplesOf,
                          const std::vector<char>& isLeftOut, int farthest);

    int windowLength = 0;
    int windows = 0;
    int length = 0; // of the transform
    std::size_t bins = 0;
    std::size_t quads = 0; // that the bins fill
    RealTransform fourier;
    std::vector<float> taper;
    SpectraCache cache; // of successive traces
    NormalEquations equations{0, 0};
    Agreement agreement;
};

#endif
