#include "ui/up_down.h"

#include <QToolButton>

namespace zpe {

UpDown::UpDown(QWidget* parent) : QWidget(parent), up_(new QToolButton(this)), down_(new QToolButton(this)) {
    up_->setArrowType(Qt::UpArrow);
    down_->setArrowType(Qt::DownArrow);
    up_->setToolTip("Move the command one place earlier");
    down_->setToolTip("Move the command one place later");
    connect(up_, &QToolButton::clicked, this, [this] {
        if (onUpClick) onUpClick();
    });
    connect(down_, &QToolButton::clicked, this, [this] {
        if (onDownClick) onDownClick();
    });
}

void UpDown::resizeEvent(QResizeEvent*) {
    const int half = height() / 2;
    up_->setGeometry(0, 0, width(), half);
    down_->setGeometry(0, half, width(), height() - half);
}

}  // namespace zpe
