#include "gain_math.h"

#include <float.h>
#include <math.h>

double gain_at(double time, double interval, double power, double exponent)
{
    const double least = power < 0 ? interval : 0;

    if (time < least)
        time = least;
    /* An infinite factor would turn the zeros of a trace into NaN. */
    return fmin(pow(time, power) * exp(exponent * time), DBL_MAX);
}

void gain_curve(double start, double interval, double power, double exponent, double* curve,
                int count)
{
    int i;

    for (i = 0; i < count; ++i)
        curve[i] = gain_at(start + i * interval, interval, power, exponent);
}

void gain_apply_curve(const double* curve, float* samples, int count)
{
    int i;

    for (i = 0; i < count; ++i)
        samples[i] = (float)(samples[i] * curve[i]);
}

static double greatest(const float* samples, int count)
{
    double level = 0;
    int i;

    for (i = 0; i < count; ++i) {
        const double amplitude = fabsf(samples[i]);
        if (amplitude > level && amplitude <= FLT_MAX)
            level = amplitude;
    }
    return level;
}

double gain_level_of(gain_level kind, const float* samples, int count)
{
    double sum = 0;
    int used = 0;
    int i;

    if (kind == GAIN_LEVEL_NONE)
        return 1;
    if (kind == GAIN_LEVEL_MAX)
        return greatest(samples, count);
    for (i = 0; i < count; ++i) {
        const double amplitude = fabsf(samples[i]);
        if (!(amplitude <= FLT_MAX))
            continue;
        sum += kind == GAIN_LEVEL_RMS ? amplitude * amplitude : amplitude;
        ++used;
    }
    if (used == 0)
        return 0;
    return kind == GAIN_LEVEL_RMS ? sqrt(sum / used) : sum / used;
}

void gain_scale(double factor, double clip, float* samples, int count)
{
    int i;

    for (i = 0; i < count; ++i) {
        double scaled = samples[i] * factor;
        if (clip > 0 && fabs(scaled) > clip)
            scaled = copysign(clip, scaled);
        samples[i] = (float)scaled;
    }
}
