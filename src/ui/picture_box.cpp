#include "ui/picture_box.h"

#include <QPainter>

namespace zpe {

PictureBox::PictureBox(int widthPx, int heightPx, QWidget* parent) : QWidget(parent), canvas_(widthPx, heightPx) {
    setFixedSize(widthPx, heightPx);
    canvas_.clear(0xF0F0F0);  // the face colour of an empty picture box
}

void PictureBox::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.drawImage(0, 0, canvas_.image());
}

}  // namespace zpe
