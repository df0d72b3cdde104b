#include "render/qimage_canvas.h"
#include "support/image_builder.h"

#include <gtest/gtest.h>

namespace zpe {
namespace {

QRgb rgb(uint32_t bgr) { return QImageCanvas::toColor(bgr).rgb(); }

TEST(QImageCanvas, PrimitivesCoverTheirCornersExactly) {
    QImageCanvas c(20, 10);
    c.clear(0x008000);
    c.rect(2, 2, 6, 6, 0x0000FF);
    EXPECT_EQ(c.image().pixel(2, 2), rgb(0x0000FF));
    EXPECT_EQ(c.image().pixel(6, 6), rgb(0x0000FF));
    EXPECT_EQ(c.image().pixel(4, 4), rgb(0x008000)) << "an outline leaves the inside";
    EXPECT_EQ(c.image().pixel(7, 7), rgb(0x008000));
    c.fillRect(10, 2, 12, 4, 0xFF0000);
    EXPECT_EQ(c.image().pixel(11, 3), qRgb(0, 0, 255));
    EXPECT_EQ(c.image().pixel(12, 4), qRgb(0, 0, 255));
    EXPECT_EQ(c.image().pixel(13, 4), rgb(0x008000));
    c.line(0, 9, 19, 9, 0xFFFFFF);
    EXPECT_EQ(c.image().pixel(10, 9), qRgb(255, 255, 255));
    c.line(-50, -50, 500, -50, 0xFFFFFF);  // wholly outside: nothing, no failure
    EXPECT_EQ(c.width(), 20);
    EXPECT_EQ(c.height(), 10);
}

TEST(QImageCanvas, KeepsItsPixelsUntilTheNextClearAndSavesPng) {
    QImageCanvas c(8, 8);
    c.clear(0x008000);
    c.fillRect(0, 0, 1, 1, 0x0000FF);
    test::TempDir dir;
    ASSERT_TRUE(c.savePng(QString::fromStdString(dir.file("a.png"))));
    QImage back(QString::fromStdString(dir.file("a.png")));
    EXPECT_EQ(back.size(), QSize(8, 8));
    EXPECT_EQ(back.pixel(0, 0), qRgb(255, 0, 0));
    EXPECT_FALSE(c.savePng("/nonexistent/folder/a.png"));
    c.resize(8, 8);
    EXPECT_EQ(c.image().pixel(0, 0), qRgb(255, 0, 0)) << "same size: the picture stays";
}

}  // namespace
}  // namespace zpe
