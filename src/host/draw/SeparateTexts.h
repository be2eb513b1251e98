/// @file SeparateTexts.h
///
/// Texts at the marks of a graph, of which none covers another or a mark.
#ifndef SEPARATETEXTS_H
#define SEPARATETEXTS_H

#include "draw/Page.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// Finds room for texts, one after the other: above or below their place, as near as possible.
class SeparateTexts
{
public:
    /// A text's room, and the line that joins it to its place.
    struct Room
    {
        Area area;
        bool isJoined = false; ///< it is so far away that the line is needed
        double lineX = 0;      ///< where the line ends, at the text
        double lineY = 0;
        double fromY = 0; ///< where it begins, above or below the place
    };

    /// No text leaves `plot`.
    explicit SeparateTexts(const Area& plot);

    /// No later text is put there.
    void avoid(const Area& area);
    /// Room for a text of that size at the place (x, y); later texts avoid it. None where all is
    /// taken.
    std::optional<Room> place(double x, double y, double width, double height);
    /// Draws the text in that room, in the current colour, and the line.
    static void draw(cairo_t* cr, double x, const Room& room, const std::string& text, double size);

private:
    bool isFree(const Area& area) const;
    bool isFreeLine(double x, const Room& room) const;
    std::size_t strip(double x) const;

    Area within;
    std::vector<std::vector<Area>> taken; // by strips of the plot, from left to right
};

} // namespace host

#endif
