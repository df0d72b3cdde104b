#pragma once
// The software canvas: the diagrams' pixels in an RGB buffer, drawn exactly
// (lines with both end points, rectangles with both corners, everything
// clipped at the edges). The window shows this buffer as it stands and the
// command line writes it as PNG, so both show the same pixels.
#include "diagram/canvas.h"

#include <cstdint>
#include <vector>

namespace zpe {

class RasterCanvas : public Canvas {
public:
    // A size below 1 counts as 1. The new picture is white.
    RasterCanvas(int width, int height);

    void clear(uint32_t bgr) override;
    void line(int x1, int y1, int x2, int y2, uint32_t bgr) override;
    void rect(int x1, int y1, int x2, int y2, uint32_t bgr) override;
    void fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) override;
    int width() const override { return width_; }
    int height() const override { return height_; }

    // A new size keeps nothing of the old picture; the same size keeps it.
    void resize(int width, int height);
    // The colour at (x, y) as 0x00BBGGRR; 0 outside the picture.
    uint32_t pixel(int x, int y) const;
    // Rows top to bottom, three bytes (red, green, blue) a pixel.
    const std::vector<uint8_t>& rgb() const { return rgb_; }

private:
    void plot(int x, int y, uint32_t bgr);

    int width_ = 1, height_ = 1;
    std::vector<uint8_t> rgb_;
};

// Draws on `target` what a canvas of target's size divided by `scale` would
// show, every coordinate multiplied by `scale`: the same diagram, larger.
class ScaledCanvas : public Canvas {
public:
    ScaledCanvas(Canvas& target, int scale) : target_(target), scale_(scale < 1 ? 1 : scale) {}
    void clear(uint32_t bgr) override { target_.clear(bgr); }
    void line(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        target_.line(x1 * scale_, y1 * scale_, x2 * scale_, y2 * scale_, bgr);
    }
    void rect(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        target_.rect(x1 * scale_, y1 * scale_, x2 * scale_, y2 * scale_, bgr);
    }
    void fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        target_.fillRect(x1 * scale_, y1 * scale_, x2 * scale_, y2 * scale_, bgr);
    }
    int width() const override { return target_.width() / scale_; }
    int height() const override { return target_.height() / scale_; }

private:
    Canvas& target_;
    int scale_;
};

}  // namespace zpe
