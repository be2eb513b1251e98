#include "synthetic_math.h"

#include "xoshiro.h"

#include <math.h>

static const double pi = 3.14159265358979323846;

enum
{
    KINDS_OF_DEFECTS = 4,
    SPIKES = 3 /* samples of a spiky trace */
};

double synthetic_ricker(double time, double frequency)
{
    const double square = pi * frequency * time * (pi * frequency * time);

    return (1 - 2 * square) * exp(-square);
}

double synthetic_traveltime(const synthetic_event* event, double offset)
{
    return hypot(event->time, offset / event->velocity);
}

void synthetic_add_event(const synthetic_event* event, double offset, double interval,
                         float* samples, int count)
{
    const double arrival = synthetic_traveltime(event, offset);
    const double reach = 1.5 / event->frequency;
    /* As numbers of samples, which an int may not be able to hold. */
    const double first = fmax(ceil((arrival - reach) / interval), 0);
    const double last = fmin(floor((arrival + reach) / interval), count - 1.0);
    int i;

    if (!(first <= last))
        return;
    for (i = (int)first; i <= (int)last; ++i)
        samples[i] +=
            (float)(event->amplitude * synthetic_ricker(i * interval - arrival, event->frequency));
}

uint64_t synthetic_trace_seed(uint64_t seed, int shot, int channel)
{
    uint64_t state = seed;

    state = splitmix64_next(&state) ^ (uint64_t)(int64_t)shot;
    state = splitmix64_next(&state) ^ (uint64_t)(int64_t)channel;
    return splitmix64_next(&state);
}

/* Of mean 0 and root mean square 1, nearly: the sum of four integers from 0 to 65535, less its mean
 * and divided by the root of its variance, 4 (65536^2 - 1) / 12. */
static double noise_sample(xoshiro* generator)
{
    const uint64_t bits = xoshiro_next(generator);
    const int sum =
        (int)((bits & 0xffff) + ((bits >> 16) & 0xffff) + ((bits >> 32) & 0xffff) + (bits >> 48));

    return (sum - 131070) / 37837.22723720648;
}

static void add_noise(xoshiro* generator, double rms, float* samples, int count)
{
    int i;

    for (i = 0; i < count; ++i)
        samples[i] += (float)(rms * noise_sample(generator));
}

void synthetic_add_noise(uint64_t seed, double rms, float* samples, int count)
{
    xoshiro generator = xoshiro_seeded(seed);

    add_noise(&generator, rms, samples, count);
}

void synthetic_damage(synthetic_defect defect, uint64_t seed, double level, float* samples,
                      int count)
{
    /* Deliberate: not the generator of the seed itself, which may have made the trace's noise. */
    xoshiro generator = xoshiro_seeded(~seed);
    int i;

    switch (defect) {
    case SYNTHETIC_GOOD:
        break;
    case SYNTHETIC_DEAD:
        for (i = 0; i < count; ++i)
            samples[i] = 0;
        break;
    case SYNTHETIC_NOISY:
        add_noise(&generator, 5 * level, samples, count);
        break;
    case SYNTHETIC_REVERSED:
        for (i = 0; i < count; ++i)
            samples[i] = -samples[i];
        break;
    case SYNTHETIC_SPIKY:
        for (i = 0; i < SPIKES && count > 0; ++i) {
            const uint32_t place = xoshiro_below(&generator, (uint32_t)count);
            const double sign = xoshiro_below(&generator, 2) == 0 ? 1 : -1;
            samples[place] = (float)(sign * 50 * level);
        }
        break;
    }
}

/* One pass that takes each channel with the chance that is still due: every choice is equally
 * likely. */
void synthetic_choose_defects(uint64_t seed, int bad, synthetic_defect* defects, int channels)
{
    xoshiro generator = xoshiro_seeded(seed);
    int i;

    for (i = 0; i < channels; ++i) {
        defects[i] = SYNTHETIC_GOOD;
        if (bad > 0 && xoshiro_below(&generator, (uint32_t)(channels - i)) < (uint32_t)bad) {
            defects[i] =
                (synthetic_defect)(SYNTHETIC_DEAD + xoshiro_below(&generator, KINDS_OF_DEFECTS));
            --bad;
        }
    }
}
