#include "bandpass_math.h"

#include "real_filter.h"
#include "sample_loops.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

struct bandpass_filter
{
    int samples;
    int length;          /* of the transform */
    real_filter* filter; /* whose values are the padded trace */
};

/* 20 log10(2): an octave changes the amplitude of a filter of order 1 by as many dB. */
static const double octave_of_order_one = 6.020599913279624;

double bandpass_trapezoid(const double corners[4], double frequency)
{
    if (frequency < corners[0] || frequency > corners[3])
        return 0;
    if (frequency < corners[1])
        return (frequency - corners[0]) / (corners[1] - corners[0]);
    if (frequency > corners[2])
        return (corners[3] - frequency) / (corners[3] - corners[2]);
    return 1;
}

/* 1 / sqrt(1 + ratio^(2 order)), of the order that has the slope. */
static double one_slope(double ratio, double slope)
{
    return 1 / sqrt(1 + pow(ratio, 2 * slope / octave_of_order_one));
}

double bandpass_butterworth(const bandpass_band* band, double frequency)
{
    double amplitude = 1;

    if (band->low > 0)
        amplitude *= frequency > 0 ? one_slope(band->low / frequency, band->low_slope) : 0;
    if (band->high > 0)
        amplitude *= one_slope(frequency / band->high, band->high_slope);
    return amplitude;
}

int bandpass_transform_length(int samples)
{
    return samples < 1 ? 0 : real_filter_length(2 * (int64_t)samples);
}

/* The transform and its inverse multiply by the length, which the amplitudes compensate. Null where
 * there is not enough memory. */
static real_filter* make_filter(int length, double interval, bandpass_response response,
                                const void* design)
{
    float* gains = malloc(((size_t)length / 2 + 1) * sizeof *gains);
    real_filter* filter;
    int i;

    if (gains == NULL)
        return NULL;
    for (i = 0; i <= length / 2; ++i)
        gains[i] = (float)(response(design, i / (length * interval)) / length);
    filter = real_filter_create(length, gains);
    free(gains);
    return filter;
}

int64_t bandpass_bytes(int samples)
{
    const int length = bandpass_transform_length(samples);

    /* And the amplitudes, for a while. */
    return length == 0 ? 0 : real_filter_bytes(length) + 2 * (int64_t)length;
}

bandpass_filter* bandpass_create(int samples, double interval, bandpass_response response,
                                 const void* design)
{
    bandpass_filter* filter = calloc(1, sizeof *filter);

    if (filter == NULL)
        return NULL;
    filter->samples = samples;
    filter->length = bandpass_transform_length(samples);
    if (filter->length > 0)
        filter->filter = make_filter(filter->length, interval, response, design);
    if (filter->filter == NULL) {
        bandpass_free(filter);
        return NULL;
    }
    return filter;
}

int bandpass_apply(bandpass_filter* filter, float* samples)
{
    float* const values = real_filter_values(filter->filter);
    const int others = sample_loops_copy_finite(samples, filter->samples, values);
    int i;

    memset(values + filter->samples, 0,
           (size_t)(filter->length - filter->samples) * sizeof *values);
    real_filter_apply(filter->filter);

    if (others == 0) {
        memcpy(samples, values, (size_t)filter->samples * sizeof *samples);
        return 0;
    }
    for (i = 0; i < filter->samples; ++i)
        if (isfinite(samples[i]))
            samples[i] = values[i];
    return others;
}

void bandpass_free(bandpass_filter* filter)
{
    if (filter == NULL)
        return;
    real_filter_free(filter->filter);
    free(filter);
}
