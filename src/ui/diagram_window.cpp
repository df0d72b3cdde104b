#include "ui/diagram_window.h"

#include "diagram/diagram.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/tables.h"

#include <QBuffer>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace zpe {

namespace {

QColor colorOf(uint32_t bgr) { return QColor(bgr & 0xFF, (bgr >> 8) & 0xFF, (bgr >> 16) & 0xFF); }

// The diagram's arithmetic on a canvas of the small picture's size, drawn by a
// QPainter `scale` times larger with antialiasing, players named.
class PainterCanvas : public Canvas {
public:
    PainterCanvas(QPainter& p, int width, int height, double scale) : p_(p), width_(width), height_(height), scale_(scale) {
        p_.setRenderHint(QPainter::Antialiasing);
    }
    void clear(uint32_t bgr) override { p_.fillRect(QRectF(0, 0, width_ * scale_, height_ * scale_), colorOf(bgr)); }
    void line(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        p_.setPen(QPen(colorOf(bgr), std::max(1.0, scale_ * 0.6)));
        p_.drawLine(QPointF(x1 * scale_, y1 * scale_), QPointF(x2 * scale_, y2 * scale_));
    }
    void rect(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        p_.setPen(QPen(colorOf(bgr), std::max(1.0, scale_ * 0.6)));
        p_.setBrush(Qt::NoBrush);
        p_.drawRect(box(x1, y1, x2, y2));
    }
    void fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) override { p_.fillRect(box(x1, y1, x2, y2), colorOf(bgr)); }
    void label(int x, int y, const std::string& text, uint32_t bgr) override {
        p_.setPen(colorOf(bgr).lighter(160));
        p_.drawText(QPointF(x * scale_ + 5 * scale_, y * scale_ - 5 * scale_), QString::fromLatin1(text));
    }
    int width() const override { return width_; }
    int height() const override { return height_; }

private:
    QRectF box(int x1, int y1, int x2, int y2) const {
        return QRectF(QPointF(std::min(x1, x2) * scale_, std::min(y1, y2) * scale_),
                      QPointF((std::max(x1, x2) + 1) * scale_, (std::max(y1, y2) + 1) * scale_));
    }
    QPainter& p_;
    int width_, height_;
    double scale_;
};

// The small pictures' sizes: the window's picture boxes.
constexpr int kPlayWidth = 329, kFormationWidth = 137, kPictureHeight = 217;

}  // namespace

// Draws the diagram at its own size.
class DiagramView : public QWidget {
public:
    DiagramView(const Playbook& pb, QWidget* parent) : QWidget(parent), pb_(pb) { setMinimumSize(kPlayWidth, kPictureHeight); }
    int slot = -1, formation = -1, play = 0;

    QImage render(QSize size) const {
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::black);
        QPainter p(&image);
        const int baseWidth = slot >= 0 ? kPlayWidth : kFormationWidth;
        const double scale = std::min(size.width() / double(baseWidth), size.height() / double(kPictureHeight));
        PainterCanvas canvas(p, baseWidth, kPictureHeight, std::max(scale, 0.1));
        if (slot >= 0) DrawPlay(canvas, pb_, slot, play);
        else if (formation >= 0) (void)drawFormation(canvas, pb_, formation);
        // The legend: each position in its colour.
        QFont small = p.font();
        small.setPointSizeF(std::max(7.0, scale * 3.5));
        p.setFont(small);
        const int step = p.fontMetrics().height();
        for (int i = 0; i < kPlayersPerRecord; ++i) {
            const QRect swatch(size.width() - 6 * step, 4 + i * step, step - 4, step - 4);
            p.fillRect(swatch, colorOf(posColors[static_cast<size_t>(i)]));
            p.setPen(Qt::white);
            p.drawText(swatch.right() + 6, swatch.bottom(), QString::fromLatin1(offPosNames[static_cast<size_t>(i)].data()));
        }
        return image;
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        p.drawImage(0, 0, render(size()));
    }

private:
    const Playbook& pb_;
};

DiagramWindow::DiagramWindow(const Playbook& pb, Dialogs& dialogs, QWidget* parent)
    : QWidget(parent, Qt::Window), pb_(pb), dialogs_(dialogs) {
    setWindowTitle("Diagram");
    auto* layout = new QVBoxLayout(this);
    auto* bar = new QHBoxLayout;
    plays_ = new QComboBox(this);
    save_ = new QPushButton("Save Picture...", this);
    bar->addWidget(new QLabel("Play:", this));
    bar->addWidget(plays_);
    bar->addStretch(1);
    bar->addWidget(save_);
    layout->addLayout(bar);
    view_ = new DiagramView(pb_, this);
    layout->addWidget(view_, 1);
    connect(plays_, &QComboBox::currentIndexChanged, this, [this](int i) {
        if (i >= 0) choosePlay(i);
    });
    connect(save_, &QPushButton::clicked, this, [this] { savePicture(); });
    resize(800, 560);
}

void DiagramWindow::showSlot(int slot) {
    if (slot < 0 || slot >= kSlotCount) return;
    view_->slot = slot;
    view_->formation = -1;
    const clsPlaySlot& s = pb_.playSlots[static_cast<size_t>(slot)];
    const QSignalBlocker quiet(plays_);
    const int keep = view_->play;
    plays_->clear();
    for (int k = 0; k < kPlaysPerSlot; ++k)
        plays_->addItem(QString("Play %1  %2:%3").arg(k + 1).arg(QString::fromStdString(hex2(s.oPlay(k))))
                            .arg(QString::fromStdString(hex2(s.dPlay(k)))));
    plays_->setCurrentIndex(keep);
    plays_->setEnabled(true);
    refresh();
}

void DiagramWindow::showFormation(int formation) {
    view_->slot = -1;
    view_->formation = formation;
    const QSignalBlocker quiet(plays_);
    plays_->clear();
    plays_->setEnabled(false);
    refresh();
}

void DiagramWindow::choosePlay(int play) {
    if (play < 0 || play >= kPlaysPerSlot) return;
    view_->play = play;
    if (plays_->currentIndex() != play) {
        const QSignalBlocker quiet(plays_);
        plays_->setCurrentIndex(play);
    }
    refresh();
}

QImage DiagramWindow::picture() const { return view_->render(view_->size()); }

void DiagramWindow::refresh() { view_->update(); }

void DiagramWindow::savePicture() {
    const auto path = dialogs_.saveFile("PNG Pictures (*.png)|*.png|All Files|*.*");
    if (!path) return;
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    try {
        if (!picture().save(&buffer, "PNG")) throw std::runtime_error("cannot encode the picture");
        replaceFileContents(path->toStdString(), std::vector<uint8_t>(png.begin(), png.end()));
    } catch (const std::exception& e) {
        dialogs_.message({QString::fromLocal8Bit(e.what()), "Save Picture", MsgIcon::Exclamation, MsgButtons::Ok, MsgAnswer::Ok});
    }
}

}  // namespace zpe
