/// @file ImagePlot.h
///
/// Images: values in cells, as colours, with a bar that shows which colour is which value. Maps,
/// spectra against two axes, and slices are drawn so.
#ifndef IMAGEPLOT_H
#define IMAGEPLOT_H

#include "draw/Axes.h"
#include "draw/Page.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace host {

/// An image to draw. A value that is not finite is a cell without data.
struct Image
{
    std::vector<std::span<const float>> columns; ///< from left to right, each from top to bottom
    Axis x;          ///< the ends are the outer edges of the first and the last column
    Axis y;          ///< likewise, from the top edge to the bottom edge
    double low = 0;  ///< value of the first colour
    double high = 1; ///< value of the last one, above `low`
};

/// How it is drawn.
struct ImageStyle
{
    std::string title;
    std::string colourMap = "blue-yellow"; ///< this, or one of those of sections
    std::string barLabel;                  ///< what the values are, with their unit
    std::string note;                      ///< printed below
    bool hasEqualScales = false;           ///< a unit of x is as long as one of y
    bool hasWholeValues = false;           ///< ticks of the bar are whole numbers
};

/// The ends of the colours, `low` below `high`: the least and the greatest finite value; where all
/// are equal, that value and one above it; 0 and 1 where there is none.
void findValueRange(const std::vector<std::span<const float>>& columns, double& low, double& high);

/// 0xRRGGBB of a share from 0 (lowest value) to 1 (highest). `blue-yellow` becomes lighter from
/// end to end, so that it can be read in gray, too.
unsigned imageColour(const std::string& map, double share);
/// 0xRRGGBB of cells without data: a colour that the map does not have.
unsigned emptyColour(const std::string& map);

/// Marks whole numbers alone, such as those of lines.
void markWholeNumbers(Axis& axis);

/// The area of the cells within `space`: all of it, or, with equal scales, the greatest part of it
/// in the middle that has the proportions of the axes.
Area imagePlot(const Area& space, const Axis& x, const Axis& y, bool hasEqualScales);

/// The colours of a picture of `width` by `height` pixels, row by row. A pixel that several cells
/// share has the greatest of their values; where `low` is below 0 and `high` above, the one that
/// is farthest from 0.
std::vector<uint32_t> imagePixels(const Image& image, const std::string& colourMap, int width,
                                  int height);

/// Draws the whole page and returns the area of the cells.
Area drawImage(cairo_t* cr, const Area& page, const Image& image, const ImageStyle& style);

} // namespace host

#endif
