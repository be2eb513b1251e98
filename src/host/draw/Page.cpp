#include "draw/Page.h"

#include "draw/Png.h"
#include "file/OutputFile.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <utility>

namespace host {

namespace {

constexpr double pngScale = 2.0; // pixels per point: text stays legible on today's screens

cairo_status_t append(void* bytes, const unsigned char* data, unsigned int length)
{
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

} // namespace

Page::Page(const std::string& path, double width, double height, std::string owner)
    : target(path), usedBy(std::move(owner)), pageWidth(width), pageHeight(height)
{
    const std::string ending = std::filesystem::path(path).extension().string();
    if (ending == ".png") {
        surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                             static_cast<int>(std::ceil(width * pngScale)),
                                             static_cast<int>(std::ceil(height * pngScale)));
    } else if (ending == ".svg") {
        surface = cairo_svg_surface_create_for_stream(append, &bytes, width, height);
        vector = true;
    } else if (ending == ".pdf") {
        surface = cairo_pdf_surface_create_for_stream(append, &bytes, width, height);
        vector = true;
    } else {
        throw DrawingError(path + ": pictures end in .png, .svg or .pdf");
    }
    cr = cairo_create(surface);
    if (!vector)
        cairo_scale(cr, pngScale, pngScale);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_select_font_face(cr, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
}

Page::~Page()
{
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
}

void Page::finish()
{
    cairo_status_t status = cairo_status(cr);
    if (status == CAIRO_STATUS_SUCCESS && !vector)
        status = writePng(surface, bytes);
    cairo_surface_finish(surface);
    if (status == CAIRO_STATUS_SUCCESS)
        status = cairo_surface_status(surface);
    if (status != CAIRO_STATUS_SUCCESS)
        throw DrawingError(target +
                           ": the picture cannot be drawn: " + cairo_status_to_string(status));
    try {
        VORN::OutputFile file(target, true, "the picture", usedBy);
        std::memcpy(file.append(bytes.size()), bytes.data(), bytes.size());
        file.commit();
    } catch (const VORN::TraceFileError& error) {
        throw DrawingError(error.what());
    }
}

double textWidth(cairo_t* cr, const std::string& text, double size)
{
    cairo_set_font_size(cr, size);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    return extents.x_advance;
}

void paintPixels(cairo_t* cr, const Area& plot, cairo_surface_t* image)
{
    if (cairo_surface_status(image) != CAIRO_STATUS_SUCCESS) {
        cairo_set_source_surface(cr, image, 0, 0); // its error becomes that of the context
        return;
    }
    cairo_save(cr);
    cairo_translate(cr, plot.x, plot.y);
    cairo_scale(cr, plot.width / cairo_image_surface_get_width(image),
                plot.height / cairo_image_surface_get_height(image));
    cairo_set_source_surface(cr, image, 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_NEAREST);
    cairo_paint(cr);
    cairo_restore(cr);
}

void drawText(cairo_t* cr, double x, double y, const std::string& text, double size, double anchorX,
              double anchorY, double angle)
{
    cairo_save(cr);
    cairo_set_font_size(cr, size);
    cairo_font_extents_t font;
    cairo_font_extents(cr, &font);
    cairo_translate(cr, x, y);
    cairo_rotate(cr, angle);
    cairo_move_to(cr, -anchorX * textWidth(cr, text, size),
                  font.ascent - anchorY * (font.ascent + font.descent));
    cairo_show_text(cr, text.c_str());
    cairo_restore(cr);
}

void setColour(cairo_t* cr, unsigned rgb)
{
    cairo_set_source_rgb(cr, (rgb >> 16 & 0xFF) / 255.0, (rgb >> 8 & 0xFF) / 255.0,
                         (rgb & 0xFF) / 255.0);
}

} // namespace host
