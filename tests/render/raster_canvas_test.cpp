// The software canvas draws exactly what it is asked, clipped at every edge,
// and its PNG holds those pixels.
#include "render/png.h"
#include "render/raster_canvas.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

constexpr uint32_t kGreen = 0x008000, kRed = 0x0000FF, kWhite = 0xFFFFFF;

TEST(RasterCanvas, LinesKeepBothEndPointsAndClipAtEveryEdge) {
    RasterCanvas c(20, 10);
    c.clear(kGreen);
    c.line(2, 3, 7, 5, kRed);
    EXPECT_EQ(c.pixel(2, 3), kRed);
    EXPECT_EQ(c.pixel(7, 5), kRed);
    c.line(5, 9, 5, 9, kWhite);
    EXPECT_EQ(c.pixel(5, 9), kWhite) << "a one-point line";
    c.line(-10, 0, 30, 0, kWhite);  // across, beyond left and right
    EXPECT_EQ(c.pixel(0, 0), kWhite);
    EXPECT_EQ(c.pixel(19, 0), kWhite);
    c.line(19, -5, 19, 50, kWhite);  // beyond top and bottom
    EXPECT_EQ(c.pixel(19, 9), kWhite);
    const std::vector<uint8_t> before = c.rgb();
    c.line(-32768, -5, 32767, -5, kRed);  // wholly outside
    c.line(25, 0, 40000, 9, kRed);
    EXPECT_EQ(c.rgb(), before);
}

TEST(RasterCanvas, SquaresAtTheCornersAndFilledRectangles) {
    RasterCanvas c(10, 10);
    c.clear(kGreen);
    c.rect(-4, -4, 4, 4, kRed);  // a square centred on the top-left corner
    EXPECT_EQ(c.pixel(4, 0), kRed);
    EXPECT_EQ(c.pixel(4, 4), kRed);
    EXPECT_EQ(c.pixel(2, 2), kGreen) << "an outline leaves the inside";
    c.fillRect(5, 5, 14, 14, kWhite);  // at the bottom-right corner
    EXPECT_EQ(c.pixel(5, 5), kWhite);
    EXPECT_EQ(c.pixel(9, 9), kWhite);
    EXPECT_EQ(c.pixel(4, 9), kGreen);
    c.resize(10, 10);
    EXPECT_EQ(c.pixel(9, 9), kWhite) << "the same size keeps the picture";
}

TEST(Png, HoldsTheCanvasSizeAndPixels) {
    RasterCanvas c(3, 2);
    c.clear(kGreen);
    const std::vector<uint8_t> png = encodePng(c);
    ASSERT_GT(png.size(), 24u);
    EXPECT_EQ(std::vector<uint8_t>(png.begin(), png.begin() + 8), (std::vector<uint8_t>{0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A}));
    // IHDR: width and height, big-endian, after the signature and the chunk's length and name.
    EXPECT_EQ(png[19], 3);
    EXPECT_EQ(png[23], 2);
}

}  // namespace
}  // namespace zpe
