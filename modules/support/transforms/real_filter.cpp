#include "real_filter.h"

#include "RealTransform.h"

#include <memory>
#include <new>

using transforms::RealTransform;

struct real_filter
{
    real_filter(int length, const float* amplitudes)
        : transform(length), gains(transform, amplitudes)
    {
    }

    RealTransform transform;
    RealTransform::Gains gains;
};

int real_filter_length(int64_t least)
{
    return RealTransform::lengthFor(least);
}

int64_t real_filter_bytes(int length)
{
    return RealTransform::bytesFor(length);
}

real_filter* real_filter_create(int length, const float* gains)
try {
    return std::make_unique<real_filter>(length, gains).release();
} catch (const std::bad_alloc&) {
    return nullptr;
}

float* real_filter_values(real_filter* filter)
{
    return filter->transform.values();
}

void real_filter_apply(real_filter* filter)
{
    filter->transform.filter(filter->gains);
}

void real_filter_free(real_filter* filter)
{
    delete filter;
}
