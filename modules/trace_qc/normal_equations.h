/// @file normal_equations.h
///
/// The prediction of one spectrum from others by least squares, frequency by frequency.
/// Independent of the kernel.
///
/// The rows of the equations are traces, each predicted from those at the same distances. Nearly
/// the same products of traces appear in the equations of many traces of a gather. So sums of
/// products over four successive traces are kept, and equations are put together from them: one
/// trace more costs five such sums instead of all products of its rows.
#ifndef NORMAL_EQUATIONS_H
#define NORMAL_EQUATIONS_H

#include "quads.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

/// A trace's spectra of all windows, one after the other, and the sums that begin with it.
struct Spectra
{
    static constexpr std::size_t runLength = 4;   ///< traces that a sum extends over
    static constexpr std::size_t farthestRun = 4; ///< traces between the factors of a product

    int trace = 0;          ///< number in the gather, from 0
    bool takesPart = false; ///< false: without values
    std::vector<Quad> values;
    /// Of conj(this) times the trace so many places on, and so on for the next three; empty until
    /// they are asked for.
    std::array<std::vector<Quad>, farthestRun + 1> runs;
};

/// The spectra of successive traces.
using SpectraCache = std::deque<Spectra>;

/// What one trace and its prediction have in common, summed over all windows.
struct Agreement
{
    double own = 0;          ///< energy of the trace
    double predicted = 0;    ///< energy of the prediction
    std::vector<Quad> cross; ///< trace times the conjugate of its prediction, for each frequency
};

class NormalEquations
{
public:
    static constexpr std::size_t mostTerms = 4;

    /// @param quads    groups of four frequencies in a window, from frequency 0 on
    /// @param windows  windows of a trace
    NormalEquations(std::size_t quads, std::size_t windows);

    /// Predicts `trace` by the coefficients that predict each of `rows` best from the traces at
    /// `offsets` from it, damped by 5 % of the mean diagonal element. Frequencies that have less
    /// than 0.002 of the energy of the strongest one in their window are left out.
    ///
    /// @param rows     ascending; they and the traces at the offsets from them take part
    /// @param offsets  2 to mostTerms
    void agree(SpectraCache& cache, int trace, const std::vector<int>& offsets,
               const std::vector<int>& rows, Agreement& result);

    /// Drops the sums that begin with traces before `first`; no later call may need them.
    void drop(SpectraCache& cache, int first);

private:
    // A sum of conj(a) b over all rows: kept sums of four rows, and products of single ones.
    struct Element
    {
        std::vector<const Quad*> runs;
        std::vector<std::pair<const Quad*, const Quad*>> pairs;
        bool isConjugated = false; // the sums are those of a conj(b)
    };

    void gather(SpectraCache& cache, const std::vector<int>& rows, int a, int b, Element& element);
    const Quad* run(SpectraCache& cache, int trace, std::size_t apart);
    void chooseQuads(std::size_t from);
    void sumUp(const Element& element, std::size_t from, Quad* sums) const;
    template <std::size_t terms>
    void solve(const std::vector<const Quad*>& sources, const Quad* self, std::size_t from,
               Agreement& result);

    std::size_t quadCount;
    std::size_t windowCount;
    bool keepsRuns;
    Element energy;                       // of the rows
    std::vector<std::vector<Quad>> spare; // room for sums
    std::vector<Element> elements; // the lower triangle of the matrix by rows, the right side
    std::vector<Quad> sums;        // of one window, for each element those of the chosen quads
    std::vector<Quad> levels;      // energies of the rows in one window, in the real parts
    std::vector<Quad> ownLevels;   // energies of the trace, summed over the windows
    std::vector<Quad> predictedLevels;
    std::vector<std::size_t> chosen; // quads of the window that are looked at
    Lanes limit{};                   // energy above which a frequency is
};

/// At most as many bytes the sums take that are kept, of traces with so many quads in all windows.
std::int64_t runBytes(std::int64_t quads);

#endif
