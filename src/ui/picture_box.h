#pragma once
// A picture box: a canvas kept in a QImage and painted as it stands, so a
// drawing made while the box is hidden shows when it is shown.
#include "render/qimage_canvas.h"

#include <QWidget>

namespace zpe {

class PictureBox : public QWidget {
public:
    PictureBox(int widthPx, int heightPx, QWidget* parent);
    QImageCanvas& canvas() { return canvas_; }
    const QImage& image() const { return canvas_.image(); }

protected:
    void paintEvent(QPaintEvent*) override;

private:
    QImageCanvas canvas_;
};

}  // namespace zpe
