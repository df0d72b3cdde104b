#include "render/raster_canvas.h"

#include <algorithm>
#include <cstdlib>

namespace zpe {

RasterCanvas::RasterCanvas(int width, int height) { resize(width, height); }

void RasterCanvas::resize(int width, int height) {
    width = std::max(width, 1);
    height = std::max(height, 1);
    if (!rgb_.empty() && width == width_ && height == height_) return;
    width_ = width;
    height_ = height;
    rgb_.assign(static_cast<size_t>(width_) * static_cast<size_t>(height_) * 3, 0xFF);
}

void RasterCanvas::plot(int x, int y, uint32_t bgr) {
    if (x < 0 || y < 0 || x >= width_ || y >= height_) return;
    const size_t at = (static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)) * 3;
    rgb_[at] = static_cast<uint8_t>(bgr & 0xFF);
    rgb_[at + 1] = static_cast<uint8_t>((bgr >> 8) & 0xFF);
    rgb_[at + 2] = static_cast<uint8_t>((bgr >> 16) & 0xFF);
}

uint32_t RasterCanvas::pixel(int x, int y) const {
    if (x < 0 || y < 0 || x >= width_ || y >= height_) return 0;
    const size_t at = (static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)) * 3;
    return rgb_[at] | (rgb_[at + 1] << 8) | (static_cast<uint32_t>(rgb_[at + 2]) << 16);
}

void RasterCanvas::clear(uint32_t bgr) {
    for (size_t i = 0; i < rgb_.size(); i += 3) {
        rgb_[i] = static_cast<uint8_t>(bgr & 0xFF);
        rgb_[i + 1] = static_cast<uint8_t>((bgr >> 8) & 0xFF);
        rgb_[i + 2] = static_cast<uint8_t>((bgr >> 16) & 0xFF);
    }
}

void RasterCanvas::line(int x1, int y1, int x2, int y2, uint32_t bgr) {
    // Wholly beyond one edge: nothing to draw (and no long walk outside).
    if ((x1 < 0 && x2 < 0) || (y1 < 0 && y2 < 0) || (x1 >= width_ && x2 >= width_) || (y1 >= height_ && y2 >= height_))
        return;
    // Bresenham's walk from the first end point to the second, both drawn.
    const long dx = std::labs(long{x2} - x1), dy = -std::labs(long{y2} - y1);
    const int sx = x1 < x2 ? 1 : -1, sy = y1 < y2 ? 1 : -1;
    long err = dx + dy;
    long x = x1, y = y1;
    for (;;) {
        plot(static_cast<int>(x), static_cast<int>(y), bgr);
        if (x == x2 && y == y2) return;
        const long e2 = 2 * err;
        if (e2 >= dy) {
            err += dy;
            x += sx;
        }
        if (e2 <= dx) {
            err += dx;
            y += sy;
        }
    }
}

void RasterCanvas::rect(int x1, int y1, int x2, int y2, uint32_t bgr) {
    line(x1, y1, x2, y1, bgr);
    line(x2, y1, x2, y2, bgr);
    line(x2, y2, x1, y2, bgr);
    line(x1, y2, x1, y1, bgr);
}

void RasterCanvas::fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) {
    const int left = std::max(std::min(x1, x2), 0), right = std::min(std::max(x1, x2), width_ - 1);
    const int top = std::max(std::min(y1, y2), 0), bottom = std::min(std::max(y1, y2), height_ - 1);
    for (int y = top; y <= bottom; ++y)
        for (int x = left; x <= right; ++x) plot(x, y, bgr);
}

}  // namespace zpe
