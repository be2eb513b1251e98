#include "bandpass_math.h"

#include "plan_flags.h"
#include "transform_memory.h"

#include <fftw3.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

struct bandpass_filter
{
    int samples;
    int length;    /* of the transform */
    float* gains;  /* length / 2 + 1 amplitudes, divided by the length */
    float* buffer; /* the padded trace; and its spectrum, which takes two floats more */
    fftwf_plan forward;
    fftwf_plan backward;
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

static int has_small_factors(int number)
{
    static const int factors[] = {2, 3, 5, 7};
    size_t i;

    for (i = 0; i < sizeof factors / sizeof factors[0]; ++i)
        while (number % factors[i] == 0)
            number /= factors[i];
    return number == 1;
}

int bandpass_transform_length(int samples)
{
    int length;

    if (samples < 1 || samples > TRANSFORM_LONGEST / 2)
        return 0;
    for (length = 2 * samples; !has_small_factors(length);)
        length += 2;
    return length;
}

/* The transform and its inverse multiply by the length, which the amplitudes compensate. */
static void sample_response(bandpass_filter* filter, double interval, bandpass_response response,
                            const void* design)
{
    int i;

    for (i = 0; i <= filter->length / 2; ++i)
        filter->gains[i] =
            (float)(response(design, i / (filter->length * interval)) / filter->length);
}

int64_t bandpass_bytes(int samples)
{
    const int64_t length = bandpass_transform_length(samples);

    return (2 + 4) * length + transform_plan_bytes(length, 2);
}

bandpass_filter* bandpass_create(int samples, double interval, bandpass_response response,
                                 const void* design)
{
    bandpass_filter* filter = calloc(1, sizeof *filter);
    size_t bins;

    if (filter == NULL)
        return NULL;
    filter->samples = samples;
    filter->length = bandpass_transform_length(samples);
    bins = (size_t)filter->length / 2 + 1;
    if (filter->length > 0) {
        filter->gains = fftwf_alloc_real(bins);
        filter->buffer = fftwf_alloc_real(2 * bins);
    }
    if (filter->gains != NULL && filter->buffer != NULL && transform_has_room(filter->length, 2)) {
        /* Estimated plans do not depend on measured times: every run gives the same samples. */
        fftwf_complex* spectrum = (fftwf_complex*)filter->buffer;
        filter->forward = fftwf_plan_dft_r2c_1d(filter->length, filter->buffer, spectrum,
                                                transforms_plan_flags());
        filter->backward = fftwf_plan_dft_c2r_1d(filter->length, spectrum, filter->buffer,
                                                 transforms_plan_flags());
    }
    if (filter->forward == NULL || filter->backward == NULL) {
        bandpass_free(filter);
        return NULL;
    }
    sample_response(filter, interval, response, design);
    return filter;
}

/* Fills the buffer with the finite samples and zeros; the number of the others. */
static int load(bandpass_filter* filter, const float* samples)
{
    int others = 0;
    int i;

    for (i = 0; i < filter->samples; ++i) {
        const int is_finite = isfinite(samples[i]) != 0;
        filter->buffer[i] = is_finite ? samples[i] : 0;
        others += !is_finite;
    }
    memset(filter->buffer + filter->samples, 0,
           (size_t)(filter->length - filter->samples) * sizeof(float));
    return others;
}

int bandpass_apply(bandpass_filter* filter, float* samples)
{
    const int others = load(filter, samples);
    const int bins = filter->length / 2 + 1;
    int i;

    fftwf_execute(filter->forward);
    for (i = 0; i < bins; ++i) {
        float* bin = filter->buffer + 2 * (size_t)i;

        bin[0] *= filter->gains[i];
        bin[1] *= filter->gains[i];
    }
    fftwf_execute(filter->backward);

    if (others == 0) {
        memcpy(samples, filter->buffer, (size_t)filter->samples * sizeof(float));
        return 0;
    }
    for (i = 0; i < filter->samples; ++i)
        if (isfinite(samples[i]))
            samples[i] = filter->buffer[i];
    return others;
}

void bandpass_free(bandpass_filter* filter)
{
    if (filter == NULL)
        return;
    if (filter->forward != NULL)
        fftwf_destroy_plan(filter->forward);
    if (filter->backward != NULL)
        fftwf_destroy_plan(filter->backward);
    fftwf_free(filter->buffer);
    fftwf_free(filter->gains);
    free(filter);
}
