#include "RealTransform.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace transforms {

namespace {

constexpr int shortest = 32;

// Radices behind the first pass, in order: the first ones make strides that fill wide vectors.
constexpr int radices[] = {4, 5, 3, 2};

bool isSmooth(std::int64_t number)
{
    for (const int factor : {2, 3, 5})
        while (number % factor == 0)
            number /= factor;
    return number == 1;
}

// So that arrays that are used together do not fall on the same lines of a cache.
std::size_t apart(int count)
{
    constexpr std::size_t floats = Floats::line / sizeof(float);
    const std::size_t lines = (static_cast<std::size_t>(count) + floats) / floats;
    return (lines + 3) * floats;
}

std::size_t rotationsFor(int count)
{
    // Those of the stride 4 stand there four times.
    std::size_t sum = static_cast<std::size_t>(count);
    for (std::size_t left = static_cast<std::size_t>(count); left > 1;) {
        // Each pass has fewer than `left`, and leaves at most half of it.
        sum += left;
        left /= 2;
    }
    return sum;
}

// exp(-pi i k / count) as the product of two rotations from short tables: sines take long. They are
// those of long double, whose code is the same on all processors of a kind.
class Turns
{
public:
    explicit Turns(int count)
    {
        const auto value = [count](long double k) {
            const long double angle = -std::numbers::pi_v<long double> * k / count;
            return Value{static_cast<double>(std::cos(angle)),
                         static_cast<double>(std::sin(angle))};
        };
        while (std::int64_t{step} * step < count)
            step *= 2;
        fine.reserve(static_cast<std::size_t>(step));
        for (int k = 0; k < step; ++k)
            fine.push_back(value(k));
        coarse.reserve(static_cast<std::size_t>(count / step) + 1);
        for (int k = 0; k <= count / step; ++k)
            coarse.push_back(value(static_cast<long double>(k) * step));
    }

    struct Value
    {
        double re, im;
    };
    Value at(int k) const
    {
        const Value a = coarse[static_cast<std::size_t>(k / step)];
        const Value b = fine[static_cast<std::size_t>(k % step)];
        return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
    }

private:
    int step = 1;
    std::vector<Value> fine;
    std::vector<Value> coarse;
};

} // namespace

Floats::Floats(std::size_t count)
    : values(static_cast<float*>(
          ::operator new (std::max<std::size_t>(count, 1) * sizeof(float), std::align_val_t{line})))
{
    std::fill_n(values, count, 0.0F);
}

const Passes& fastestPasses()
{
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512vl"))
        return passesOfSixteen;
    if (__builtin_cpu_supports("avx2"))
        return passesOfEight;
#endif
    return passesOfFour;
}

int RealTransform::lengthFor(std::int64_t least)
{
    std::int64_t length = std::max<std::int64_t>(least + 7, shortest) / 8 * 8;
    while (length <= longest && !isSmooth(length))
        length += 8;
    return length <= longest ? static_cast<int>(length) : 0;
}

std::int64_t RealTransform::bytesFor(std::int64_t length)
{
    const int count = static_cast<int>(length / 2);
    // Rotations, input and work space, turns, gains.
    const std::size_t floats =
        2 * rotationsFor(count) + 6 * apart(count) + 5 * static_cast<std::size_t>(count);
    return static_cast<std::int64_t>(floats * sizeof(float));
}

RealTransform::RealTransform(int length)
    : count(length / 2), turnsRe(static_cast<std::size_t>(count) + 1),
      turnsIm(static_cast<std::size_t>(count) + 1), rotations(2 * rotationsFor(count)),
      input(2 * apart(count)), work(4 * apart(count)), passes(&fastestPasses())
{
    const Turns turns(count);
    for (int k = 0; k <= count; ++k) {
        const Turns::Value value = turns.at(k);
        turnsRe.data()[k] = static_cast<float>(value.re);
        turnsIm.data()[k] = static_cast<float>(value.im);
    }

    float* next = rotations.data();
    const auto add = [&](int radix, int stride, int left) {
        Pass step = {radix, stride, left / radix, {nullptr, nullptr}};
        // See Pass::turns.
        const int times = stride == 4 ? 4 : 1;
        const int row = times * step.groups;
        const auto size = static_cast<std::ptrdiff_t>(radix - 1) * row;
        step.turns = {next, next + size};
        next += 2 * size;
        for (int k = 1; k < radix; ++k) {
            for (int place = 0; place < row; ++place) {
                // Of the whole circle, which has 2 count turns: the second half is the negative.
                const std::int64_t turn = std::int64_t{2} * stride * k * (place / times);
                const bool isSecond = turn >= count;
                const auto at = static_cast<std::ptrdiff_t>(isSecond ? turn - count : turn);
                const std::ptrdiff_t to = static_cast<std::ptrdiff_t>(k - 1) * row + place;
                step.turns.re[to] = isSecond ? -turnsRe.data()[at] : turnsRe.data()[at];
                step.turns.im[to] = isSecond ? -turnsIm.data()[at] : turnsIm.data()[at];
            }
        }
        steps.push_back(step);
    };
    add(4, 1, count);
    int left = count / 4;
    for (const int radix : radices) {
        for (; left % radix == 0; left /= radix)
            add(radix, count / left, left);
    }
}

Split RealTransform::half(int number)
{
    float* first = work.data() + 2 * static_cast<std::size_t>(number) * apart(count);
    return {first, first + apart(count)};
}

// From the input to the first half of the work space.
void RealTransform::transformPairs()
{
    // Each pass goes from one half to the other, the last one to the first.
    int at = steps.size() % 2 == 0 ? 1 : 0;
    passes->firstOfPairs(steps.front(), input.data(), half(at));
    for (std::size_t i = 1; i + 1 < steps.size(); ++i, at = 1 - at)
        passes->middle(steps[i], half(at), half(1 - at));
    passes->last(steps.back(), half(at), half(1 - at));
}

void RealTransform::filter(const Gains& gains)
{
    transformPairs();
    // What is multiplied here is only read by the passes.
    const Split turned = {const_cast<float*>(gains.turnedRe.data()),
                          const_cast<float*>(gains.turnedIm.data())};
    passes->filter(count, half(0), gains.even.data(), turned, half(1));
    // Backwards: the same transform of values whose real and imaginary parts are exchanged.
    int at = 1;
    const auto exchanged = [this](int number) {
        const Split split = half(number);
        return Split{split.im, split.re};
    };
    passes->first(steps.front(), exchanged(at), exchanged(1 - at));
    at = 1 - at;
    for (std::size_t i = 1; i + 1 < steps.size(); ++i, at = 1 - at)
        passes->middle(steps[i], exchanged(at), exchanged(1 - at));
    passes->lastToPairs(steps.back(), exchanged(at), input.data());
}

void RealTransform::amplitudes(float* to)
{
    transformPairs();
    passes->amplitudes(count, half(0), {turnsRe.data(), turnsIm.data()}, to);
}

RealTransform::Gains::Gains(const RealTransform& transform, const float* gains)
    : even(static_cast<std::size_t>(transform.count) / 2 + 1),
      turnedRe(static_cast<std::size_t>(transform.count) / 2 + 1),
      turnedIm(static_cast<std::size_t>(transform.count) / 2 + 1)
{
    const int all = transform.count;
    // The transforms multiply by the count, and gains are for twice of it.
    for (int k = 1; k <= all / 2; ++k) {
        const double sum = static_cast<double>(gains[k]) + static_cast<double>(gains[all - k]);
        const double difference =
            static_cast<double>(gains[k]) - static_cast<double>(gains[all - k]);
        even.data()[k] = static_cast<float>(sum);
        turnedRe.data()[k] =
            static_cast<float>(difference * static_cast<double>(transform.turnsRe.data()[k]));
        turnedIm.data()[k] =
            static_cast<float>(difference * static_cast<double>(transform.turnsIm.data()[k]));
    }
    even.data()[0] = 2 * gains[0];
    turnedRe.data()[0] = 2 * gains[all];
}

} // namespace transforms
