/// @file PadRenderer.h
///
/// Pads as pictures.
#ifndef PADRENDERER_H
#define PADRENDERER_H

#include "draw/PadStore.h"

#include <string>
#include <vector>

namespace host {

/// Draws `pad` to `path`, a PNG, SVG or PDF by its ending. Throws DrawingError when the file cannot
/// be written; nothing is left under that name then.
void renderPad(const Pad& pad, const std::string& path);

/// A picture in memory.
struct PadPicture
{
    std::string mediaType; ///< "image/png" or "image/svg+xml"
    std::string bytes;     ///< of the file that it would be
    int width = 0;         ///< in points, as renderPad draws it
    int height = 0;
};

/// `pad` as a picture for a page: a graph as SVG as long as it is small, everything else as PNG of
/// two pixels per point. Throws DrawingError.
PadPicture pictureOf(const Pad& pad);

/// File names for the pads' pictures, without directory and ending, all different.
std::vector<std::string> pictureNames(const std::vector<Pad>& pads);

} // namespace host

#endif
