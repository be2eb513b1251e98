/// @file FkSpectrum.h
///
/// The mean f-k spectrum of gathers, as a picture shows it. Independent of the kernel.
#ifndef FKSPECTRUM_H
#define FKSPECTRUM_H

#include "FkTransform.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// The root of the mean power of gathers in cells of frequency and wavenumber. Gathers may have
/// transforms of different widths; those of later ones are at least as wide as the first.
class FkSpectrum
{
public:
    /// Cells for `transform`, for frequencies up to `fmax` (Hz), at most 1024 in each direction.
    /// `interval` is that of samples, in seconds.
    FkSpectrum(const FkTransform& transform, double interval, double fmax);

    /// Bytes of the cells of any spectrum, at most.
    static constexpr std::int64_t mostBytes = std::int64_t{1024} * 1024 * 16;

    void add(const FkTransform& transform);

    int columns() const { return across; }
    int rows() const { return down; }
    /// Of a cell from the left and from 0 Hz on; 0 before the first gather.
    double amplitude(int column, int row) const;
    double greatest() const; ///< amplitude of all cells
    /// @name Outer edges of the cells
    /// @{
    double left() const { return leftEdge; } ///< cycles per trace
    double right() const { return rightEdge; }
    double bottom() const { return bottomEdge; } ///< Hz
    double top() const { return topEdge; }
    /// @}

private:
    int across;
    int down;
    int perColumn; // wavenumbers of the first transform in a cell
    int perRow;    // frequencies
    int lines;     // frequencies that are drawn
    int firstColumns;
    double leftEdge;
    double rightEdge;
    double bottomEdge;
    double topEdge;
    std::vector<double> power;   // column by column
    std::vector<double> counted; // values in a cell
};

#endif
