#pragma once
// A picture box: the software canvas, painted as it stands, so a drawing made
// while the box is hidden shows when it is shown, with the pixels `zpe render`
// writes.
#include "render/raster_canvas.h"

#include <QImage>
#include <QWidget>

namespace zpe {

class PictureBox : public QWidget {
public:
    PictureBox(int widthPx, int heightPx, QWidget* parent);
    RasterCanvas& canvas() { return canvas_; }
    // A new, empty canvas of that size (nothing happens when it has it already).
    void resizeCanvas(int widthPx, int heightPx);
    // The canvas's pixels as an image (a copy).
    QImage image() const;

protected:
    void paintEvent(QPaintEvent*) override;

private:
    RasterCanvas canvas_;
};

// The canvas's buffer seen as a QImage, without a copy; valid while the canvas
// keeps its size.
QImage wrapCanvas(const RasterCanvas& canvas);

}  // namespace zpe
