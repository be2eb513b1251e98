/// @file Page.h
///
/// A page that becomes a PNG, SVG or PDF file, and text on it. Coordinates and sizes are in points,
/// x to the right and y downwards from the page's upper left corner.
#ifndef PAGE_H
#define PAGE_H

#include <cairo.h>
#include <stdexcept>
#include <string>

namespace host {

/// Reports a picture that cannot be written: one line that names the file and what to do.
class DrawingError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A rectangle in points (1/72 inch; one pixel of a PNG at scale 1).
struct Area
{
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
};

/// A white page of the format that the path's ending names. It becomes a file in `finish`, whole or
/// not at all.
class Page
{
public:
    /// `width` and `height` are in points. `owner` tells which of the used files the picture is
    /// (see VORN::FileRoles). Throws DrawingError for an ending other than .png, .svg and .pdf.
    Page(const std::string& path, double width, double height, std::string owner = "");
    ~Page();
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    /// What the page is drawn with; owned by the page.
    cairo_t* context() const { return cr; }
    /// The whole page.
    Area area() const { return {0, 0, pageWidth, pageHeight}; }
    /// Whether the file is an SVG or a PDF, which hold lines and text as such.
    bool isVector() const { return vector; }

    /// Writes the file. Throws DrawingError when it cannot be written whole; there is no new file
    /// then. Nothing may be drawn afterwards.
    void finish();

private:
    std::string target;
    std::string usedBy;
    std::string bytes; // of the file, as far as they have been made
    double pageWidth;
    double pageHeight;
    bool vector = false;
    cairo_surface_t* surface = nullptr;
    cairo_t* cr = nullptr;
};

/// Draws one line of text at (x, y) in the current colour. `size` is that of the font; `anchorX`
/// and `anchorY` say which point of the text lies there, as shares of its width and height from its
/// upper left corner; `angle` turns it around that point, in radians, clockwise.
void drawText(cairo_t* cr, double x, double y, const std::string& text, double size,
              double anchorX = 0, double anchorY = 0, double angle = 0);

/// The width of the text in points at that font size. Sets the font size of the context.
double textWidth(cairo_t* cr, const std::string& text, double size);

/// Sets the colour of what is drawn next: 0xRRGGBB.
void setColour(cairo_t* cr, unsigned rgb);

/// Fills `plot` with an image, each pixel as a rectangle with sharp edges.
void paintPixels(cairo_t* cr, const Area& plot, cairo_surface_t* image);

} // namespace host

#endif
