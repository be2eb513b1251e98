// cairo brings a dozen other libraries, for fonts and for windows, and most jobs draw nothing. The
// functions of cairo that the command calls are therefore defined here; each asks the library for
// its namesake when it is called first. The linker names a function that is missing in the table.
#include "base/CommandError.h"
#include "base/LazyLibrary.h"
#include "draw/Page.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cairo.h>

namespace {

void* cairoFunction(const char* name)
{
    static constexpr host::LazyLibrary cairo(VORN_CAIRO_SONAME, "pictures");
    try {
        return cairo.function(name);
    } catch (const host::CommandError& error) {
        throw host::DrawingError(error.what());
    }
}

} // namespace

// clang-format off
#define VORN_FORWARD(Result, name, parameters, arguments)                                          \
    Result name parameters                                                                         \
    {                                                                                              \
        static const auto function = reinterpret_cast<decltype(&(name))>(cairoFunction(#name));    \
        return function arguments;                                                                 \
    }

extern "C" {

VORN_FORWARD(void, cairo_arc, (cairo_t* cr, double xc, double yc, double radius, double angle1, double angle2), (cr, xc, yc, radius, angle1, angle2))
VORN_FORWARD(void, cairo_clip, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_close_path, (cairo_t* cr), (cr))
VORN_FORWARD(cairo_t*, cairo_create, (cairo_surface_t* target), (target))
VORN_FORWARD(void, cairo_destroy, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_fill, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_fill_preserve, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_font_extents, (cairo_t* cr, cairo_font_extents_t* extents), (cr, extents))
VORN_FORWARD(cairo_pattern_t*, cairo_get_source, (cairo_t* cr), (cr))
VORN_FORWARD(cairo_bool_t, cairo_has_current_point, (cairo_t* cr), (cr))
VORN_FORWARD(cairo_surface_t*, cairo_image_surface_create, (cairo_format_t format, int width, int height), (format, width, height))
VORN_FORWARD(unsigned char*, cairo_image_surface_get_data, (cairo_surface_t* surface), (surface))
VORN_FORWARD(cairo_format_t, cairo_image_surface_get_format, (cairo_surface_t* surface), (surface))
VORN_FORWARD(int, cairo_image_surface_get_height, (cairo_surface_t* surface), (surface))
VORN_FORWARD(int, cairo_image_surface_get_stride, (cairo_surface_t* surface), (surface))
VORN_FORWARD(int, cairo_image_surface_get_width, (cairo_surface_t* surface), (surface))
VORN_FORWARD(void, cairo_line_to, (cairo_t* cr, double x, double y), (cr, x, y))
VORN_FORWARD(void, cairo_move_to, (cairo_t* cr, double x, double y), (cr, x, y))
VORN_FORWARD(void, cairo_new_path, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_new_sub_path, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_paint, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_pattern_set_filter, (cairo_pattern_t* pattern, cairo_filter_t filter), (pattern, filter))
VORN_FORWARD(cairo_surface_t*, cairo_pdf_surface_create_for_stream, (cairo_write_func_t write_func, void* closure, double width_in_points, double height_in_points), (write_func, closure, width_in_points, height_in_points))
VORN_FORWARD(void, cairo_rectangle, (cairo_t* cr, double x, double y, double width, double height), (cr, x, y, width, height))
VORN_FORWARD(void, cairo_restore, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_rotate, (cairo_t* cr, double angle), (cr, angle))
VORN_FORWARD(void, cairo_save, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_scale, (cairo_t* cr, double sx, double sy), (cr, sx, sy))
VORN_FORWARD(void, cairo_select_font_face, (cairo_t* cr, const char* family, cairo_font_slant_t slant, cairo_font_weight_t weight), (cr, family, slant, weight))
VORN_FORWARD(void, cairo_set_font_size, (cairo_t* cr, double size), (cr, size))
VORN_FORWARD(void, cairo_set_line_cap, (cairo_t* cr, cairo_line_cap_t line_cap), (cr, line_cap))
VORN_FORWARD(void, cairo_set_line_join, (cairo_t* cr, cairo_line_join_t line_join), (cr, line_join))
VORN_FORWARD(void, cairo_set_line_width, (cairo_t* cr, double width), (cr, width))
VORN_FORWARD(void, cairo_set_source_rgb, (cairo_t* cr, double red, double green, double blue), (cr, red, green, blue))
VORN_FORWARD(void, cairo_set_source_rgba, (cairo_t* cr, double red, double green, double blue, double alpha), (cr, red, green, blue, alpha))
VORN_FORWARD(void, cairo_set_source_surface, (cairo_t* cr, cairo_surface_t* surface, double x, double y), (cr, surface, x, y))
VORN_FORWARD(void, cairo_show_text, (cairo_t* cr, const char* utf8), (cr, utf8))
VORN_FORWARD(cairo_status_t, cairo_status, (cairo_t* cr), (cr))
VORN_FORWARD(const char*, cairo_status_to_string, (cairo_status_t status), (status))
VORN_FORWARD(void, cairo_stroke, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_stroke_preserve, (cairo_t* cr), (cr))
VORN_FORWARD(void, cairo_surface_destroy, (cairo_surface_t* surface), (surface))
VORN_FORWARD(void, cairo_surface_finish, (cairo_surface_t* surface), (surface))
VORN_FORWARD(void, cairo_surface_flush, (cairo_surface_t* surface), (surface))
VORN_FORWARD(void, cairo_surface_mark_dirty, (cairo_surface_t* surface), (surface))
VORN_FORWARD(cairo_status_t, cairo_surface_status, (cairo_surface_t* surface), (surface))
VORN_FORWARD(cairo_surface_t*, cairo_svg_surface_create_for_stream, (cairo_write_func_t write_func, void* closure, double width_in_points, double height_in_points), (write_func, closure, width_in_points, height_in_points))
VORN_FORWARD(void, cairo_text_extents, (cairo_t* cr, const char* utf8, cairo_text_extents_t* extents), (cr, utf8, extents))
VORN_FORWARD(void, cairo_translate, (cairo_t* cr, double tx, double ty), (cr, tx, ty))

} // extern "C"
// clang-format on
