#pragma once
// The window lays out in twips (1/1440 inch); at 96 dpi a pixel is 15 twips.
// Layout rules work on TwipRects; conversion happens at the widget boundary.
#include <cmath>

namespace zpe {

inline constexpr int kTwipsPerPixel = 15;

struct TwipRect {
    int left = 0, top = 0, width = 0, height = 0;
    int right() const { return left + width; }
    int bottom() const { return top + height; }
    bool operator==(const TwipRect&) const = default;
};

constexpr int pixels(int twips) { return static_cast<int>(twips >= 0 ? (twips + kTwipsPerPixel / 2) / kTwipsPerPixel
                                                                     : -((-twips + kTwipsPerPixel / 2) / kTwipsPerPixel)); }
constexpr int twips(int pixels) { return pixels * kTwipsPerPixel; }

}  // namespace zpe
