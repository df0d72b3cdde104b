#include "render/qimage_canvas.h"

#include <QPainter>
#include <algorithm>

namespace zpe {

QImageCanvas::QImageCanvas(int width, int height)
    : image_(std::max(width, 1), std::max(height, 1), QImage::Format_RGB32) {
    image_.fill(Qt::white);
}

QColor QImageCanvas::toColor(uint32_t bgr) { return QColor(bgr & 0xFF, (bgr >> 8) & 0xFF, (bgr >> 16) & 0xFF); }

void QImageCanvas::clear(uint32_t bgr) { image_.fill(toColor(bgr)); }

void QImageCanvas::line(int x1, int y1, int x2, int y2, uint32_t bgr) {
    QPainter p(&image_);
    p.setPen(QPen(toColor(bgr), 0));
    p.drawLine(x1, y1, x2, y2);
}

void QImageCanvas::rect(int x1, int y1, int x2, int y2, uint32_t bgr) {
    QPainter p(&image_);
    p.setPen(QPen(toColor(bgr), 0));
    p.setBrush(Qt::NoBrush);
    p.drawRect(QRect(QPoint(std::min(x1, x2), std::min(y1, y2)), QPoint(std::max(x1, x2), std::max(y1, y2))).adjusted(0, 0, -1, -1));
}

void QImageCanvas::fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) {
    QPainter p(&image_);
    p.fillRect(QRect(QPoint(std::min(x1, x2), std::min(y1, y2)), QPoint(std::max(x1, x2), std::max(y1, y2))), toColor(bgr));
}

void QImageCanvas::resize(int width, int height) {
    if (width == image_.width() && height == image_.height()) return;
    image_ = QImage(std::max(width, 1), std::max(height, 1), QImage::Format_RGB32);
    image_.fill(Qt::white);
}

bool QImageCanvas::savePng(const QString& path) const { return image_.save(path, "PNG"); }

}  // namespace zpe
