#include "spectrum_math.h"

#include "amplitude_spectrum.h"
#include "sample_loops.h"
#include "transform_memory.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

struct spectrum_sum
{
    int samples;    /* of the window; the transform has twice as many */
    double step;    /* Hz */
    double weight;  /* sum of the weights */
    int64_t traces; /* added */
    float* weights;
    amplitude_spectrum* transform; /* whose values are the padded window */
    exact_sums* sums;              /* of the spectra's absolute values */
};

static const double pi = 3.14159265358979323846;

/* Places are the middles of samples: weights are symmetric, and those of a whole squared sine sum
 * up to half the number of samples for any number. */
double spectrum_weight(spectrum_taper taper, int i, int samples)
{
    const double flank = taper == SPECTRUM_HANN ? 0.5 : 0.1;
    const double place = (i + 0.5) / samples;
    const double distance = place < 0.5 ? place : 1 - place;
    double sine;

    if (taper == SPECTRUM_NONE || distance >= flank)
        return 1;
    sine = sin(pi * distance / (2 * flank));
    return sine * sine;
}

static void weigh(spectrum_sum* sum, spectrum_taper taper)
{
    int i;

    for (i = 0; i < sum->samples; ++i) {
        const double weight = spectrum_weight(taper, i, sum->samples);
        sum->weights[i] = (float)weight;
        sum->weight += weight;
    }
}

int64_t spectrum_bytes(int samples)
{
    const int64_t length = 2 * (int64_t)samples;

    /* Weights, and in the end the mean; sums of amplitudes that are not too different. */
    return (2 + 4) * length + exact_sums_bytes(samples, 5) + amplitude_spectrum_bytes(length);
}

spectrum_sum* spectrum_create(int samples, double interval, spectrum_taper taper)
{
    spectrum_sum* sum;

    if (samples < 1 || samples > TRANSFORM_LONGEST / 2)
        return NULL;
    sum = calloc(1, sizeof *sum);
    if (sum == NULL)
        return NULL;
    sum->samples = samples;
    sum->step = 1 / (2.0 * samples * interval);
    sum->weights = malloc((size_t)samples * sizeof *sum->weights);
    sum->sums = exact_sums_create((size_t)samples + 1);
    sum->transform = amplitude_spectrum_create(2 * samples);
    if (sum->weights == NULL || sum->sums == NULL || sum->transform == NULL) {
        spectrum_free(sum);
        return NULL;
    }
    weigh(sum, taper);
    return sum;
}

/* Fills the window with the finite samples of the trace and with zeros; the number of the others.
 */
static int load(spectrum_sum* sum, const float* samples, int count, int64_t first)
{
    float* const values = amplitude_spectrum_values(sum->transform);
    const int64_t end = first + sum->samples;
    const int64_t from = first > 0 ? first : 0;
    const int64_t to = end < count ? end : count;

    if (from > first || to < end)
        memset(values, 0, (size_t)sum->samples * sizeof *values);
    if (from >= to)
        return 0;
    return sample_loops_copy_finite(samples + from, (int)(to - from), values + (from - first));
}

/* A power of two that brings a value to 0.5 to 1, or near to that where the value is very small. */
static float scale_for(float greatest)
{
    const int most = 126;
    int exponent;

    frexpf(greatest, &exponent);
    return ldexpf(1, -exponent < most ? -exponent : most);
}

int spectrum_add(spectrum_sum* sum, const float* samples, int count, int64_t first, int* odd)
{
    float* const values = amplitude_spectrum_values(sum->transform);
    exact_batch batch;
    float greatest, scale;

    *odd = load(sum, samples, count, first);
    greatest = sample_loops_greatest(values, sum->samples);
    if (greatest == 0)
        return 0;
    /* Transformed as values up to 1: so that neither large nor small ones, nor their squares, leave
     * the range of floats. */
    scale = scale_for(greatest);
    sample_loops_weigh(values, sum->weights, scale, sum->samples);
    if (!exact_sums_begin(sum->sums, greatest * (sum->weight + 1), &batch))
        return -1;
    sample_loops_add_rounded(amplitude_spectrum_of(sum->transform), sum->samples + 1,
                             1 / (double)scale, batch.rounding, batch.sums);
    ++sum->traces;
    return 1;
}

int spectrum_bins(const spectrum_sum* sum)
{
    return sum->samples + 1;
}

double spectrum_step(const spectrum_sum* sum)
{
    return sum->step;
}

int64_t spectrum_traces(const spectrum_sum* sum)
{
    return sum->traces;
}

/* A sinusoid has half of its amplitude at the negative frequency, except at both ends, where the
 * two coincide. */
int spectrum_mean(spectrum_sum* sum, double* amplitudes)
{
    const double divisor = sum->weight * (double)(sum->traces > 0 ? sum->traces : 1);
    int i;

    if (!exact_sums_flush(sum->sums))
        return 0;
    for (i = 0; i <= sum->samples; ++i) {
        const int is_end = i == 0 || i == sum->samples;
        amplitudes[i] = (is_end ? 1 : 2) * exact_sums_value(sum->sums, (size_t)i) / divisor;
    }
    return 1;
}

int spectrum_samples(const spectrum_sum* sum)
{
    return sum->samples;
}

exact_sums* spectrum_bin_sums(spectrum_sum* sum)
{
    return exact_sums_flush(sum->sums) ? sum->sums : NULL;
}

void spectrum_count(spectrum_sum* sum, int64_t traces)
{
    sum->traces += traces;
}

void spectrum_free(spectrum_sum* sum)
{
    if (sum == NULL)
        return;
    amplitude_spectrum_free(sum->transform);
    exact_sums_free(sum->sums);
    free(sum->weights);
    free(sum);
}

/* Where the line from bin `below` to its neighbour `above` has the amplitude `level`. */
static double crossing(const double* amplitudes, int below, int above, double level)
{
    const double rise = amplitudes[above] - amplitudes[below];

    return below + (above - below) * (level - amplitudes[below]) / rise;
}

spectrum_band spectrum_find_band(const double* amplitudes, int from, int to, double step,
                                 double share)
{
    spectrum_band band;
    double level;
    int peak = from;
    int low = from;
    int high = to;
    int i;

    for (i = from; i <= to; ++i)
        if (amplitudes[i] > amplitudes[peak])
            peak = i;
    level = share * amplitudes[peak];
    while (amplitudes[low] < level)
        ++low;
    while (amplitudes[high] < level)
        --high;
    band.peak = peak * step;
    band.amplitude = amplitudes[peak];
    band.low = step * (low > from ? crossing(amplitudes, low - 1, low, level) : low);
    band.high = step * (high < to ? crossing(amplitudes, high + 1, high, level) : high);
    return band;
}

double spectrum_decibels(double amplitude, double reference, double floor)
{
    double decibels;

    if (!(amplitude > 0 && reference > 0))
        return floor;
    decibels = 20 * log10(amplitude / reference);
    return decibels > floor ? decibels : floor;
}

double spectrum_round_up(double value)
{
    static const double steps[] = {1, 1.2, 1.5, 2, 2.5, 3, 4, 5, 6, 8, 10};
    double power;
    size_t i;

    if (!(value > 0 && isfinite(value)))
        return 1;
    power = pow(10, floor(log10(value)));
    for (i = 0; i + 1 < sizeof steps / sizeof steps[0]; ++i)
        if (value <= steps[i] * power * (1 + 1e-12)) /* 0.3 / 0.1 is a little more than 3 */
            break;
    return steps[i] * power;
}

static int column_of(int bin, int from, int to, int columns)
{
    return (int)((int64_t)(bin - from) * columns / ((int64_t)to - from + 1));
}

int spectrum_thin(const double* amplitudes, int from, int to, int columns, int* chosen)
{
    int count = 0;
    int bin;

    if (to - from < 2 * columns) {
        for (bin = from; bin <= to; ++bin)
            chosen[count++] = bin;
        return count;
    }
    chosen[count++] = from;
    for (bin = from; bin <= to;) {
        const int column = column_of(bin, from, to, columns);
        int smallest = bin;
        int greatest = bin;
        int first, second;
        for (; bin <= to && column_of(bin, from, to, columns) == column; ++bin) {
            if (amplitudes[bin] < amplitudes[smallest])
                smallest = bin;
            if (amplitudes[bin] > amplitudes[greatest])
                greatest = bin;
        }
        first = smallest < greatest ? smallest : greatest;
        second = smallest < greatest ? greatest : smallest;
        if (first > chosen[count - 1])
            chosen[count++] = first;
        if (second > chosen[count - 1])
            chosen[count++] = second;
    }
    if (chosen[count - 1] < to)
        chosen[count++] = to;
    return count;
}
