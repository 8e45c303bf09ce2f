#pragma once

#include "image.h"

#include <cstdint>
#include <string>

namespace tool {

struct Colour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
};

/// An opaque picture that is drawn on. Places are in pixels from the upper left corner and may lie
/// between pixels, which are then covered in part; what lies outside is left out.
class Canvas {
public:
    /// @param width, height  at least 1.
    Canvas(int width, int height, Colour colour);

    int width() const { return m_image.width; }

    int height() const { return m_image.height; }

    /// RGB, 8 bits per channel.
    const Image& image() const { return m_image; }

    /// Fills the rectangle that reaches from (left, top) to (right, bottom).
    void fill(double left, double top, double right, double bottom, Colour colour);

    /// Puts an RGBA or RGB picture of 8 bits per channel with its upper left corner at (x, y); what
    /// shines through it stays visible.
    void draw(const Image& picture, int x, int y);

    /// Writes digits, ':', '.' and '-' of this height with their upper left corner at (x, y).
    /// Other characters are left out.
    void write(const std::string& text, double x, double y, double height, Colour colour);

    /// How wide write() makes the text.
    static double width_of(const std::string& text, double height);

private:
    void blend(int x, int y, Colour colour, double share);

    Image m_image;
};

}  // namespace tool
