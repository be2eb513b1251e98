/// @file Png.h
///
/// PNG files of drawings.
#ifndef PNG_H
#define PNG_H

#include <cairo.h>
#include <string>

namespace host {

/// Puts the PNG file of `surface`, an image in the format CAIRO_FORMAT_RGB24, into `file`. Its
/// pixels are stored in the smallest form that holds all of their colours: levels of gray, a
/// palette of up to 256 colours, or red, green and blue. Returns CAIRO_STATUS_SUCCESS, or what is
/// wrong with the surface, or CAIRO_STATUS_NO_MEMORY; `file` is then left alone.
cairo_status_t writePng(cairo_surface_t* surface, std::string& file);

} // namespace host

#endif
