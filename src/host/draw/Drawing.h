/// @file Drawing.h
///
/// A page that becomes a PNG, SVG or PDF file, and the axes that every picture has.
#ifndef DRAWING_H
#define DRAWING_H

#include <cairo.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

/// A picture that cannot be written; one line that names the file and what to do.
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

/// A page of the format that the path's ending names. It becomes a file in `finish`, whole or not
/// at all.
class Page
{
public:
    /// Throws DrawingError for an ending other than .png, .svg and .pdf.
    Page(const std::string& path, double width, double height);
    ~Page();
    Page(const Page&) = delete;
    Page& operator=(const Page&) = delete;

    cairo_t* context() const { return cr; }
    Area area() const { return {0, 0, pageWidth, pageHeight}; }
    bool isVector() const { return vector; }

    /// Throws DrawingError when the file cannot be written whole.
    void finish();

private:
    std::string target;
    std::string bytes; // of the file, as far as they have been made
    double pageWidth;
    double pageHeight;
    bool vector = false;
    cairo_surface_t* surface = nullptr;
    cairo_t* cr = nullptr;
};

/// One axis in data units; `from` may be greater than `to`.
struct Axis
{
    double from = 0;
    double to = 1;
    std::string label;
    /// Labels for places, instead of round numbers.
    std::vector<std::pair<double, std::string>> places;
};

/// Round values between `from` and `to`, about `wanted` of them, and decimals to print them with.
std::vector<double> roundTicks(double from, double to, int wanted, int& decimals);

/// Where text is anchored, as a share of its width and height.
void drawText(cairo_t* cr, double x, double y, const std::string& text, double size,
              double anchorX = 0, double anchorY = 0, double angle = 0);
double textWidth(cairo_t* cr, const std::string& text, double size);

/// Axes around `plot`: x on top for sections (as in the field) or below for graphs, y at the left.
void drawAxes(cairo_t* cr, const Area& plot, const Axis& x, const Axis& y, bool xOnTop);

void setColour(cairo_t* cr, unsigned rgb);

} // namespace host

#endif
