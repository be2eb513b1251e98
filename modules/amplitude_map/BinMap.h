/// @file BinMap.h
///
/// Sums over positions: what a map of bins shows. Independent of the kernel.
#ifndef BINMAP_H
#define BINMAP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

/// What the traces of a bin have in common.
struct Bin
{
    std::int64_t traces = 0;
    double sum = 0;    ///< of the values
    double weight = 0; ///< of their weights
    double least = 0;
    double greatest = 0;

    void add(double value, double weightOfValue);
    double mean() const { return weight > 0 ? sum / weight : 0; }
};

/// Bins of one axis: number n lies from origin + (n - 1/2) size to origin + (n + 1/2) size.
struct BinAxis
{
    double origin = 0; ///< middle of bin 0
    double size = 1;

    /// Of the bin in which `position` lies; a position on an edge belongs to the bin above.
    double numberOf(double position) const;
};

/// The bins that have traces, as a picture needs them.
struct BinGrid
{
    std::array<BinAxis, 2> axes;       ///< bin 0 is the first of the grid
    std::array<std::int64_t, 2> count; ///< bins across and upwards, at least 1
    /// The bin in that place, from 0; null where no trace is.
    const Bin* at(std::int64_t column, std::int64_t row) const;

    std::unordered_map<std::uint64_t, Bin> bins;
};

/// The greatest common divisor of the differences of `values`, which are whole numbers; 1 where
/// they are all equal, 0 where one of them is not whole or too great to be exact.
double commonStep(const std::vector<double>& values);

/// The least number that is at least `value` and 1, 2 or 5 times a power of ten; 1 for values that
/// are not above 0.
double roundUp(double value);

/// Collects positions with their values. Where the bins are known they are summed at once; else
/// all are kept until `grid` has chosen the bins by them.
class BinMap
{
public:
    /// How bins are chosen where they are not known.
    enum class Choice
    {
        coordinates, ///< as many as a map shows well, of one size across and upwards
        numbers      ///< one for each number: inlines, crosslines
    };

    /// Bins of which axis lie where; nothing for those that are to be chosen. Without an origin, it
    /// is the first position that is added.
    BinMap(Choice choice, std::optional<std::array<double, 2>> sizes,
           std::optional<std::array<double, 2>> origin);

    /// `value` times 1 and `weight` are summed. False, and nothing is added, for a position that is
    /// not finite or too far from the origin to have a number.
    bool add(double x, double y, double value, double weight);

    /// Bytes that are kept.
    std::int64_t bytes() const;
    /// Bins, or positions, so far.
    std::size_t size() const { return hasSizes() ? bins.size() : points.size(); }

    /// The bins. Throws std::runtime_error when they are more than `most` across or upwards.
    /// `allow` is asked now and then about the bytes that are kept, and throws when they are too
    /// many. Requires: something has been added; nothing is added afterwards.
    BinGrid grid(std::int64_t most, const std::function<void(std::int64_t)>& allow);

private:
    struct Point
    {
        std::array<double, 2> position;
        double value;
        double weight;
    };

    bool hasSizes() const { return sizes.has_value(); }
    void chooseSizes(std::int64_t most);
    double coordinateSize(const std::array<double, 2>& least, double extent) const;
    bool addToBin(const Point& point);

    Choice choice;
    std::optional<std::array<double, 2>> sizes;
    std::optional<std::array<double, 2>> origin;
    std::vector<Point> points;
    std::unordered_map<std::uint64_t, Bin> bins; // by keyOf
};

#endif
