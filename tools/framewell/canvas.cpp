#include "canvas.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tool {

namespace {

/// A place in a glyph: 1 is the height of a digit, y grows downwards.
struct Point {
    double x;
    double y;
};

using Stroke = std::vector<Point>;

/// What a pen draws for one character.
struct Glyph {
    double advance = 0;  ///< from its left edge to that of the next one
    double pen = 0;      ///< half the width of its strokes
    std::vector<Stroke> strokes;
};

constexpr double kDigitAdvance = 0.74;
constexpr double kMarkAdvance = 0.36;
constexpr double kPen = 0.062;
constexpr double kDot = 0.085;

/// Part of an ellipse, as a stroke of short lines; degrees clockwise, 0 points to the right.
Stroke arc(Point centre, Point radius, int from, int to) {
    constexpr int step = 10;
    Stroke stroke;
    for (int degrees = from; degrees < to + step; degrees += step) {
        const double angle = std::min(degrees, to) * 3.14159265358979323846 / 180;
        stroke.push_back(
            {centre.x + radius.x * std::cos(angle), centre.y + radius.y * std::sin(angle)});
    }
    return stroke;
}

Stroke joined(Stroke first, const Stroke& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// Digits are 0.56 wide.
std::vector<Stroke> strokes_of_digit(char digit) {
    switch (digit) {
        case '0':
            return {arc({0.28, 0.5}, {0.24, 0.46}, 0, 360)};
        case '1':
            return {{{0.10, 0.22}, {0.32, 0.04}, {0.32, 0.96}}};
        case '2':
            return {
                joined(arc({0.28, 0.30}, {0.24, 0.26}, 190, 395), {{0.04, 0.96}, {0.53, 0.96}})};
        case '3':
            return {joined(arc({0.27, 0.27}, {0.22, 0.23}, 200, 450),
                           arc({0.27, 0.73}, {0.25, 0.23}, 270, 520))};
        case '4':
            return {{{0.40, 0.96}, {0.40, 0.04}, {0.03, 0.70}, {0.54, 0.70}}};
        case '5':
            return {joined({{0.48, 0.04}, {0.12, 0.04}, {0.08, 0.47}},
                           arc({0.27, 0.66}, {0.25, 0.30}, 220, 510))};
        case '6':
            return {arc({0.28, 0.68}, {0.24, 0.28}, 0, 360),
                    arc({0.50, 0.68}, {0.46, 0.64}, 180, 255)};
        case '7':
            return {{{0.04, 0.04}, {0.52, 0.04}, {0.20, 0.96}}};
        case '8':
            return {arc({0.28, 0.27}, {0.20, 0.23}, 0, 360),
                    arc({0.28, 0.73}, {0.24, 0.23}, 0, 360)};
        case '9':
            return {arc({0.28, 0.32}, {0.24, 0.28}, 0, 360),
                    arc({0.06, 0.32}, {0.46, 0.64}, 0, 75)};
        default:
            return {};
    }
}

Glyph glyph_of(char c) {
    switch (c) {
        case ':':
            return {kMarkAdvance, kDot, {{{0.09, 0.32}}, {{0.09, 0.80}}}};
        case '.':
            return {kMarkAdvance, kDot, {{{0.09, 0.93}}}};
        case '-':
            return {0.56, kPen, {{{0.06, 0.52}, {0.38, 0.52}}}};
        default:
            return c >= '0' && c <= '9' ? Glyph{kDigitAdvance, kPen, strokes_of_digit(c)} : Glyph{};
    }
}

double distance_to_line(Point p, Point a, Point b) {
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double length = dx * dx + dy * dy;
    const double along =
        length > 0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / length, 0.0, 1.0) : 0;
    return std::hypot(p.x - (a.x + along * dx), p.y - (a.y + along * dy));
}

double distance_to(const Glyph& glyph, Point p) {
    double distance = 10;  // further than any place that is drawn
    for (const Stroke& stroke : glyph.strokes) {
        for (std::size_t i = 0; i < stroke.size(); ++i) {
            const Point& next = stroke[std::min(i + 1, stroke.size() - 1)];
            distance = std::min(distance, distance_to_line(p, stroke[i], next));
        }
    }
    return distance;
}

// How much of the pixel that begins at `pixel` lies between `from` and `to`.
double share_of_pixel(int pixel, double from, double to) {
    return std::max(0.0, std::min(to, pixel + 1.0) - std::max(from, static_cast<double>(pixel)));
}

}  // namespace

Canvas::Canvas(int width, int height, Colour colour) {
    m_image.width = width;
    m_image.height = height;
    m_image.channels = 3;
    m_image.bytes.resize(m_image.row_bytes() * static_cast<std::size_t>(height));
    for (std::size_t i = 0; i < m_image.bytes.size(); i += 3) {
        m_image.bytes[i] = colour.red;
        m_image.bytes[i + 1] = colour.green;
        m_image.bytes[i + 2] = colour.blue;
    }
}

void Canvas::fill(double left, double top, double right, double bottom, Colour colour) {
    left = std::clamp(left, 0.0, static_cast<double>(width()));
    right = std::clamp(right, left, static_cast<double>(width()));
    top = std::clamp(top, 0.0, static_cast<double>(height()));
    bottom = std::clamp(bottom, top, static_cast<double>(height()));
    for (int y = static_cast<int>(top); y < bottom; ++y) {
        const double share = share_of_pixel(y, top, bottom);
        for (int x = static_cast<int>(left); x < right; ++x) {
            blend(x, y, colour, share * share_of_pixel(x, left, right));
        }
    }
}

void Canvas::draw(const Image& picture, int x, int y) {
    const std::uint8_t* pixel = picture.bytes.data();
    for (int row = 0; row < picture.height; ++row) {
        for (int column = 0; column < picture.width; ++column) {
            const double share = picture.channels == 4 ? pixel[3] / 255.0 : 1;
            blend(x + column, y + row, {pixel[0], pixel[1], pixel[2]}, share);
            pixel += picture.pixel_bytes();
        }
    }
}

void Canvas::write(const std::string& text, double x, double y, double height, Colour colour) {
    for (const char c : text) {
        const Glyph glyph = glyph_of(c);
        const int right = static_cast<int>(std::ceil(x + glyph.advance * height));
        const int bottom = static_cast<int>(std::ceil(y + 1.05 * height));
        for (int py = static_cast<int>(y - 1); py < bottom; ++py) {
            for (int px = static_cast<int>(x - 1); px < right; ++px) {
                const Point centre{(px + 0.5 - x) / height, (py + 0.5 - y) / height};
                const double inside = (glyph.pen - distance_to(glyph, centre)) * height + 0.5;
                blend(px, py, colour, std::clamp(inside, 0.0, 1.0));
            }
        }
        x += glyph.advance * height;
    }
}

double Canvas::width_of(const std::string& text, double height) {
    double width = 0;
    for (const char c : text) {
        width += glyph_of(c).advance * height;
    }
    return width;
}

void Canvas::blend(int x, int y, Colour colour, double share) {
    if (x < 0 || y < 0 || x >= width() || y >= height() || share <= 0) {
        return;
    }
    std::uint8_t* const pixel = m_image.bytes.data() +
                                static_cast<std::size_t>(y) * m_image.row_bytes() +
                                static_cast<std::size_t>(x) * m_image.pixel_bytes();
    const std::uint8_t values[3] = {colour.red, colour.green, colour.blue};
    for (int i = 0; i < 3; ++i) {
        const double mixed = pixel[i] + (values[i] - pixel[i]) * std::min(share, 1.0);
        pixel[i] = static_cast<std::uint8_t>(std::lround(mixed));
    }
}

}  // namespace tool
