/// @file PadRenderer.h
///
/// Pads as pictures.
#ifndef PADRENDERER_H
#define PADRENDERER_H

#include "PadStore.h"

#include <string>
#include <vector>

namespace vorn {

/// Draws `pad` to `path`, a PNG, SVG or PDF by its ending. Throws DrawingError when the file cannot
/// be written; nothing is left under that name then.
void renderPad(const Pad& pad, const std::string& path);

/// File names for the pads' pictures, without directory and ending, all different.
std::vector<std::string> pictureNames(const std::vector<Pad>& pads);

} // namespace vorn

#endif
