#include "sample_loops.h"

#include "RealTransform.h"

namespace {

const transforms::Passes& loops()
{
    static const transforms::Passes& fastest = transforms::fastestPasses();
    return fastest;
}

} // namespace

int sample_loops_copy_finite(const float* from, int count, float* to)
{
    return loops().copyFinite(from, count, to);
}

float sample_loops_greatest(const float* values, int count)
{
    return loops().greatest(values, count);
}

void sample_loops_weigh(float* values, const float* weights, float factor, int count)
{
    loops().weigh(values, weights, factor, count);
}

void sample_loops_add_rounded(const float* values, int count, double factor, double rounding,
                              double* sums)
{
    loops().addRounded(values, count, factor, rounding, sums);
}

void sample_loops_add(const float* values, int count, double* sums, int* live)
{
    loops().add(values, count, sums, live);
}

int sample_loops_beyond(const double* values, int count, double least, double most)
{
    return loops().beyond(values, count, least, most);
}

void sample_loops_balance(float* samples, const double* means, int count, float level, int has_root)
{
    loops().balance(samples, means, count, level, has_root != 0);
}
