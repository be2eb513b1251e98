#include "xoshiro.h"

static uint64_t rotate_left(uint64_t bits, int places)
{
    return (bits << places) | (bits >> (64 - places));
}

uint64_t splitmix64_next(uint64_t* state)
{
    uint64_t mixed = *state += 0x9e3779b97f4a7c15u;

    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9u;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebu;
    return mixed ^ (mixed >> 31);
}

xoshiro xoshiro_seeded(uint64_t seed)
{
    xoshiro generator;
    int i;

    for (i = 0; i < 4; ++i)
        generator.state[i] = splitmix64_next(&seed);
    return generator;
}

uint64_t xoshiro_next(xoshiro* generator)
{
    uint64_t* s = generator->state;
    const uint64_t result = rotate_left(s[1] * 5, 7) * 9;
    const uint64_t shifted = s[1] << 17;

    s[2] ^= s[0];
    s[3] ^= s[1];
    s[1] ^= s[2];
    s[0] ^= s[3];
    s[2] ^= shifted;
    s[3] = rotate_left(s[3], 45);
    return result;
}

uint32_t xoshiro_below(xoshiro* generator, uint32_t bound)
{
    return (uint32_t)(((xoshiro_next(generator) >> 32) * bound) >> 32);
}
