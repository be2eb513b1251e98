#include "draw/SeparateTexts.h"

#include <algorithm>
#include <cmath>

namespace host {

namespace {

constexpr double stripWidth = 20; // points
constexpr double fromPlace = 9;   // beside the place's own mark
constexpr double longestLine = 110;

bool overlap(const Area& a, const Area& b)
{
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height &&
           b.y < a.y + a.height;
}

bool isWithin(const Area& inner, const Area& outer)
{
    return inner.x >= outer.x && inner.x + inner.width <= outer.x + outer.width &&
           inner.y >= outer.y && inner.y + inner.height <= outer.y + outer.height;
}

// Narrows [from, to], shares of a line from `start` over `length`, to what lies within [low, high].
void narrow(double start, double length, double low, double high, double& from, double& to)
{
    if (length == 0) {
        if (start <= low || start >= high)
            to = from - 1;
        return;
    }
    const double a = (low - start) / length;
    const double b = (high - start) / length;
    from = std::max(from, std::min(a, b));
    to = std::min(to, std::max(a, b));
}

bool crosses(double x1, double y1, double x2, double y2, const Area& area)
{
    double from = 0;
    double to = 1;
    narrow(x1, x2 - x1, area.x, area.x + area.width, from, to);
    narrow(y1, y2 - y1, area.y, area.y + area.height, from, to);
    return from < to;
}

} // namespace

SeparateTexts::SeparateTexts(const Area& plot)
    : within(plot), taken(static_cast<std::size_t>(std::max(plot.width, 0.0) / stripWidth) + 1)
{
}

std::size_t SeparateTexts::strip(double x) const
{
    const double number = (x - within.x) / stripWidth;
    return static_cast<std::size_t>(std::clamp(number, 0.0, static_cast<double>(taken.size()) - 1));
}

void SeparateTexts::avoid(const Area& area)
{
    for (std::size_t i = strip(area.x); i <= strip(area.x + area.width); ++i)
        taken[i].push_back(area);
}

bool SeparateTexts::isFree(const Area& area) const
{
    if (!isWithin(area, within))
        return false;
    for (std::size_t i = strip(area.x); i <= strip(area.x + area.width); ++i) {
        if (std::any_of(taken[i].begin(), taken[i].end(),
                        [&](const Area& other) { return overlap(area, other); }))
            return false;
    }
    return true;
}

bool SeparateTexts::isFreeLine(double x, const Room& room) const
{
    const auto isHit = [&](const Area& area) {
        return crosses(x, room.fromY, room.lineX, room.lineY, area);
    };
    for (std::size_t i = strip(std::min(x, room.lineX)); i <= strip(std::max(x, room.lineX)); ++i) {
        if (std::any_of(taken[i].begin(), taken[i].end(), isHit))
            return false;
    }
    return true;
}

std::optional<SeparateTexts::Room> SeparateTexts::place(double x, double y, double width,
                                                        double height)
{
    constexpr double mostAside[] = {0.55, 1.1, 2.2}; // shares of the width, by levels
    for (int level = 0; level * height < longestLine; ++level) {
        const double away = fromPlace + level * height;
        for (const double aside : {0.0, -0.55, 0.55, -1.1, 1.1, -2.2, 2.2}) {
            if (std::fabs(aside) > mostAside[std::min(level, 2)])
                break; // its line would be too flat
            for (const bool isAbove : {true, false}) {
                Room room;
                room.area = {x + (aside - 0.5) * width, isAbove ? y - away - height : y + away,
                             width, height};
                room.isJoined = level > 0;
                room.lineX = std::clamp(x, room.area.x + 2, room.area.x + width - 2);
                room.lineY = isAbove ? room.area.y + height : room.area.y;
                room.fromY = isAbove ? y - fromPlace : y + fromPlace;
                if (!isFree(room.area) || (room.isJoined && !isFreeLine(x, room)))
                    continue;
                avoid(room.area);
                return room;
            }
        }
    }
    return std::nullopt;
}

void SeparateTexts::draw(cairo_t* cr, double x, const Room& room, const std::string& text,
                         double size)
{
    const Area& area = room.area;
    cairo_save(cr);
    if (room.isJoined) {
        cairo_set_line_width(cr, 0.4);
        cairo_new_path(cr);
        cairo_move_to(cr, x, room.fromY + (room.lineY < room.fromY ? 5 : -5));
        cairo_line_to(cr, room.lineX, room.lineY);
        cairo_stroke(cr);
    }
    // On an almost opaque background, to be read on curves.
    cairo_set_source_rgba(cr, 1, 1, 1, 0.85);
    cairo_rectangle(cr, area.x, area.y, area.width, area.height);
    cairo_fill(cr);
    cairo_restore(cr);
    drawText(cr, area.x + area.width / 2, area.y + area.height / 2, text, size, 0.5, 0.5);
}

} // namespace host
