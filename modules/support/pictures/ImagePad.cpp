#include "pictures/ImagePad.h"

#include "MOXKernel.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <new>

namespace pictures {

namespace {

constexpr int section = 1; // type of a pad

// Two numbers that read back as they are.
std::string range(double first, double second)
{
    std::array<char, 80> text;
    std::snprintf(text.data(), text.size(), "%.15g %.15g", first, second);
    return text.data();
}

std::string padTitle(const ImageDescription& image)
{
    std::string title = oneLine(image.title) +
                        "\nmode: image\nxrange: " + range(image.left, image.right) +
                        "\nyrange: " + range(image.bottom, image.top) + "\nx: " + oneLine(image.x) +
                        "\ny: " + oneLine(image.y) + "\ncolormap: " + oneLine(image.colourMap) +
                        "\nbar: " + oneLine(image.bar);
    if (image.low < image.high)
        title += "\nvalues: " + range(image.low, image.high);
    if (image.hasWholeX || image.hasWholeY || image.hasWholeValues)
        title += std::string("\nwhole:") + (image.hasWholeX ? " x" : "") +
                 (image.hasWholeY ? " y" : "") + (image.hasWholeValues ? " values" : "");
    if (image.hasEqualScales)
        title += "\nscales: equal";
    if (!image.note.empty())
        title += "\nnote: " + oneLine(image.note);
    return title;
}

} // namespace

ImagePad::ImagePad(const ImageDescription& image, int rows, int buffer)
    : pad(createPad(section, 0, 1, padTitle(image).c_str())), work(buffer)
{
    if (bldWorkTraceBuffer(work, rows, 0, 1, nullptr) == nullptr)
        throw std::bad_alloc();
}

void ImagePad::addColumn(const std::vector<float>& cells)
{
    void* shown = getWorkTraceBuffer(work);
    setTraceSamples(shown, cells.data(), 0);
    addTraceToPad(pad, shown);
}

std::string oneLine(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

} // namespace pictures
