/// @file ImagePad.h
///
/// Images of a module: values in cells, which the host draws as colours with a bar beside them.
#ifndef IMAGEPAD_H
#define IMAGEPAD_H

#include <string>
#include <vector>

namespace pictures {

/// What an image shows, apart from its values. Texts are for the user; line feeds become blanks.
struct ImageDescription
{
    std::string title;
    std::string x, y;           ///< labels of the axes, with units
    std::string bar;            ///< what the values are, with their unit
    std::string note;           ///< a line below; may be empty
    std::string colourMap;      ///< as in manifests: "blue-yellow", "gray", ...
    double left = 0, right = 1; ///< outer edges of the first and the last column
    double bottom = 0, top = 1; ///< likewise of the rows
    double low = 0, high = 1;   ///< values of the first and the last colour; the host's choice
                                ///< where they are equal
    /// Whether whole numbers alone are marked on the axes and on the bar.
    bool hasWholeX = false, hasWholeY = false, hasWholeValues = false;
    bool hasEqualScales = false; ///< a unit of x is drawn as long as one of y
};

/// A pad with an image. Belongs to the running module, which may have several, one after the
/// other.
class ImagePad
{
public:
    /// An image of columns of `rows` cells, at least 1. Work buffer `buffer` of the module is used
    /// for it, and for no other number of rows. Throws std::bad_alloc.
    ImagePad(const ImageDescription& image, int rows, int buffer);

    /// The next column from the left, its cells from top to bottom; NaN for cells without data.
    /// Requires: as many as there are rows.
    void addColumn(const std::vector<float>& cells);

    /// For what pens draw over the cells, in the units of the axes: addPlotToPad() and others.
    int ident() const { return pad; }

private:
    int pad;
    int work;
};

/// `text` without line feeds, which would begin a directive of the pad.
std::string oneLine(std::string text);

} // namespace pictures

#endif
