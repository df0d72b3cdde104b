#pragma once
// A raster canvas in pixels, origin top left, x to the right, y downwards.
// Colours are 0x00BBGGRR. Lines are one pixel wide and solid.
#include <cstdint>
#include <string>

namespace zpe {

class Canvas {
public:
    virtual ~Canvas() = default;
    virtual void clear(uint32_t bgr) = 0;
    virtual void line(int x1, int y1, int x2, int y2, uint32_t bgr) = 0;
    // Outline and filled rectangles with corners (x1, y1) and (x2, y2), both included.
    virtual void rect(int x1, int y1, int x2, int y2, uint32_t bgr) = 0;
    virtual void fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) = 0;
    // Names a player at the spot where he is first placed (his position, "QB").
    // A pixel canvas draws no text: by default nothing happens.
    virtual void label(int x, int y, const std::string& text, uint32_t bgr) {
        (void)x, (void)y, (void)text, (void)bgr;
    }
    virtual int width() const = 0;
    virtual int height() const = 0;
};

}  // namespace zpe
