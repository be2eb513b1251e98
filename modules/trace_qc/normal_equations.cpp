#include "normal_equations.h"

#include <algorithm>

namespace {

// Longer traces go without kept sums, which would need six times the memory of their spectra.
constexpr std::size_t mostQuadsKept = 32768;
constexpr int tracesWithRuns = 17;

constexpr float leastEnergy = 0.002f; // of the strongest frequency: the others are not looked at
constexpr float damping = 0.05f;      // of the mean diagonal element

Spectra& at(SpectraCache& cache, int trace)
{
    return cache[static_cast<std::size_t>(trace - cache.front().trace)];
}

float sumOf(Lanes lanes)
{
    return (lanes[0] + lanes[1]) + (lanes[2] + lanes[3]);
}

float greatestOf(Lanes lanes)
{
    return std::max(std::max(lanes[0], lanes[1]), std::max(lanes[2], lanes[3]));
}

Lanes same(float value)
{
    return Lanes{value, value, value, value};
}

} // namespace

std::int64_t runBytes(std::int64_t quads)
{
    constexpr std::int64_t bytesPerQuad = sizeof(Quad) * (Spectra::farthestRun + 1);
    return std::min<std::int64_t>(quads, mostQuadsKept) * bytesPerQuad * tracesWithRuns;
}

NormalEquations::NormalEquations(std::size_t quads, std::size_t windows)
    : quadCount(quads), windowCount(windows), keepsRuns(quads * windows <= mostQuadsKept),
      levels(quads)
{
    constexpr std::size_t mostElements = mostTerms * (mostTerms + 1) / 2 + mostTerms;
    elements.resize(mostElements);
    sums.resize(mostElements * quads);
    chosen.reserve(quads);
}

// The products of `trace` and the one `apart` places on, summed over four successive pairs.
const Quad* NormalEquations::run(SpectraCache& cache, int trace, std::size_t apart)
{
    std::vector<Quad>& kept = at(cache, trace).runs[apart];
    if (kept.empty()) {
        std::array<const Quad*, Spectra::runLength> first;
        std::array<const Quad*, Spectra::runLength> second;
        for (std::size_t i = 0; i < Spectra::runLength; ++i) {
            first[i] = at(cache, trace + static_cast<int>(i)).values.data();
            second[i] = at(cache, trace + static_cast<int>(i + apart)).values.data();
        }
        if (!spare.empty()) {
            kept = std::move(spare.back());
            spare.pop_back();
        }
        kept.resize(quadCount * windowCount);
        for (std::size_t place = 0; place < kept.size(); ++place) {
            Quad sum{};
            for (std::size_t i = 0; i < Spectra::runLength; ++i)
                sum.addProduct(first[i][place], second[i][place]);
            kept[place] = sum;
        }
    }
    return kept.data();
}

void NormalEquations::drop(SpectraCache& cache, int first)
{
    for (Spectra& spectra : cache) {
        if (spectra.trace >= first)
            return;
        for (std::vector<Quad>& run : spectra.runs) {
            if (!run.empty())
                spare.push_back(std::move(run));
            run.clear();
        }
    }
}

void NormalEquations::gather(SpectraCache& cache, const std::vector<int>& rows, int a, int b,
                             Element& element)
{
    const int low = std::min(a, b);
    const auto apart = static_cast<std::size_t>(std::max(a, b) - low);
    element.runs.clear();
    element.pairs.clear();
    element.isConjugated = b < a;
    for (std::size_t i = 0; i < rows.size();) {
        constexpr std::size_t length = Spectra::runLength;
        const int first = rows[i] + low;
        if (keepsRuns && apart <= Spectra::farthestRun && i + length <= rows.size() &&
            rows[i + length - 1] == rows[i] + static_cast<int>(length) - 1)
        {
            element.runs.push_back(run(cache, first, apart));
            i += length;
            continue;
        }
        element.pairs.emplace_back(at(cache, first).values.data(),
                                   at(cache, first + static_cast<int>(apart)).values.data());
        ++i;
    }
}

void NormalEquations::sumUp(const Element& element, std::size_t from, Quad* results) const
{
    const std::size_t count = chosen.size();
    const std::size_t runs = element.runs.size();
    if (runs >= 2) {
        const Quad* first = element.runs[0] + from;
        const Quad* second = element.runs[1] + from;
        for (std::size_t i = 0; i < count; ++i) {
            results[i] = first[chosen[i]];
            results[i].add(second[chosen[i]]);
        }
    } else {
        std::fill(results, results + count, Quad());
    }
    for (std::size_t r = runs >= 2 ? 2 : 0; r < runs; ++r) {
        const Quad* values = element.runs[r] + from;
        for (std::size_t i = 0; i < count; ++i)
            results[i].add(values[chosen[i]]);
    }
    for (const auto& [first, second] : element.pairs) {
        for (std::size_t i = 0; i < count; ++i)
            results[i].addProduct(first[from + chosen[i]], second[from + chosen[i]]);
    }
    if (element.isConjugated) {
        for (std::size_t i = 0; i < count; ++i)
            results[i].im = -results[i].im;
    }
}

// Most windows have energy at few frequencies.
void NormalEquations::chooseQuads(std::size_t from)
{
    chosen.clear();
    for (std::size_t quad = 0; quad < quadCount; ++quad)
        chosen.push_back(quad);
    sumUp(energy, from, levels.data());
    float greatest = 0;
    for (const Quad& level : levels)
        greatest = std::max(greatest, greatestOf(level.re));
    limit = same(leastEnergy * greatest);
    const float least = limit[0];
    std::erase_if(chosen, [&](std::size_t quad) { return !(greatestOf(levels[quad].re) > least); });
}

// Cholesky's decomposition without roots, and the prediction with its result.
template <std::size_t terms>
void NormalEquations::solve(const std::vector<const Quad*>& sources, const Quad* self,
                            std::size_t from, Agreement& result)
{
    const std::size_t count = chosen.size();
    for (std::size_t i = 0; i < count; ++i) {
        Quad matrix[terms][terms]; // the lower triangle; column j times its diagonal element
        Quad factor[terms][terms];
        Quad right[terms];
        std::size_t element = 0;
        for (std::size_t j = 0; j < terms; ++j) {
            for (std::size_t k = 0; k <= j; ++k)
                matrix[j][k] = sums[count * element++ + i];
        }
        for (std::size_t j = 0; j < terms; ++j)
            right[j] = sums[count * element++ + i];
        Lanes trace{};
        for (std::size_t j = 0; j < terms; ++j)
            trace += matrix[j][j].re;
        for (std::size_t j = 0; j < terms; ++j)
            matrix[j][j].re += trace * (damping / static_cast<float>(terms));

        const std::size_t quad = chosen[i];
        auto isUsed = levels[quad].re > limit;
        Lanes inverse[terms];
        for (std::size_t j = 0; j < terms; ++j) {
            Lanes diagonal = matrix[j][j].re;
            for (std::size_t k = 0; k < j; ++k)
                diagonal -= matrix[j][k].energy() * inverse[k];
            isUsed = isUsed & (diagonal > 0);
            inverse[j] = 1 / (diagonal > 0 ? diagonal : same(1));
            for (std::size_t r = j + 1; r < terms; ++r) {
                for (std::size_t k = 0; k < j; ++k)
                    matrix[r][j].subtractProduct(factor[j][k], matrix[r][k]);
                factor[r][j] = matrix[r][j].times(inverse[j]);
            }
        }
        for (std::size_t j = 0; j < terms; ++j) {
            for (std::size_t k = 0; k < j; ++k)
                right[j].subtractPlain(matrix[j][k], right[k]);
            right[j] = right[j].times(inverse[j]);
        }
        Quad prediction{};
        for (std::size_t j = terms; j-- > 0;) {
            for (std::size_t r = j + 1; r < terms; ++r)
                right[j].subtractProduct(factor[r][j], right[r]);
            prediction.addPlain(right[j], sources[j][from + quad]);
        }

        const Lanes none{};
        const Quad& value = self[from + quad];
        ownLevels[quad].re += isUsed ? value.energy() : none;
        predictedLevels[quad].re += isUsed ? prediction.energy() : none;
        Quad product{};
        product.addProduct(prediction, value);
        result.cross[quad].re += isUsed ? product.re : none;
        result.cross[quad].im += isUsed ? product.im : none;
    }
}

void NormalEquations::agree(SpectraCache& cache, int trace, const std::vector<int>& offsets,
                            const std::vector<int>& rows, Agreement& result)
{
    const std::size_t terms = offsets.size();
    gather(cache, rows, 0, 0, energy);
    std::size_t used = 0;
    for (std::size_t j = 0; j < terms; ++j) {
        for (std::size_t k = 0; k <= j; ++k)
            gather(cache, rows, offsets[j], offsets[k], elements[used++]);
    }
    for (std::size_t j = 0; j < terms; ++j)
        gather(cache, rows, offsets[j], 0, elements[used++]);
    std::vector<const Quad*> sources;
    sources.reserve(terms);
    for (const int offset : offsets)
        sources.push_back(at(cache, trace + offset).values.data());
    const Quad* self = at(cache, trace).values.data();

    result.cross.assign(quadCount, Quad());
    ownLevels.assign(quadCount, Quad());
    predictedLevels.assign(quadCount, Quad());
    for (std::size_t window = 0; window < windowCount; ++window) {
        const std::size_t from = window * quadCount;
        chooseQuads(from);
        for (std::size_t e = 0; e < used; ++e)
            sumUp(elements[e], from, sums.data() + e * chosen.size());
        if (terms == 4)
            solve<4>(sources, self, from, result);
        else if (terms == 3)
            solve<3>(sources, self, from, result);
        else
            solve<2>(sources, self, from, result);
    }
    // Frequency 0 counts once, all others stand for two.
    const auto total = [](const std::vector<Quad>& energies) {
        double sum = -static_cast<double>(energies.front().re[0]);
        for (const Quad& lanes : energies)
            sum += 2 * static_cast<double>(sumOf(lanes.re));
        return sum;
    };
    result.own = total(ownLevels);
    result.predicted = total(predictedLevels);
}
