#include "ui/picture_box.h"

#include <QPainter>

namespace zpe {

QImage wrapCanvas(const RasterCanvas& canvas) {
    return QImage(canvas.rgb().data(), canvas.width(), canvas.height(), canvas.width() * 3, QImage::Format_RGB888);
}

PictureBox::PictureBox(int widthPx, int heightPx, QWidget* parent) : QWidget(parent), canvas_(widthPx, heightPx) {
    setFixedSize(widthPx, heightPx);
    canvas_.clear(0xF0F0F0);  // the face colour of an empty picture box
}

void PictureBox::resizeCanvas(int widthPx, int heightPx) {
    if (canvas_.width() == widthPx && canvas_.height() == heightPx) return;
    canvas_ = RasterCanvas(widthPx, heightPx);
    canvas_.clear(0xF0F0F0);
    setFixedSize(widthPx, heightPx);
}

QImage PictureBox::image() const { return wrapCanvas(canvas_).copy(); }

void PictureBox::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.drawImage(0, 0, wrapCanvas(canvas_));
}

}  // namespace zpe
