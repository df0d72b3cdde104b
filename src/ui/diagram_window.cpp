#include "ui/diagram_window.h"

#include "diagram/diagram.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/tables.h"

#include <algorithm>
#include <cmath>

#include <QBuffer>
#include <QFileInfo>
#include <QFontMetricsF>
#include <QPainterPath>
#include <QRegularExpression>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

namespace zpe {

namespace {

QColor colorOf(uint32_t bgr) { return QColor(bgr & 0xFF, (bgr >> 8) & 0xFF, (bgr >> 16) & 0xFF); }

// The diagram's arithmetic on a canvas of the small picture's height and of
// the view's proportions, drawn by a QPainter `scale` times larger with
// antialiasing. Labels are drawn last, each where it meets no square, no line
// of scrimmage and no other label, outlined so that every colour reads on the field.
class PainterCanvas : public Canvas {
public:
    PainterCanvas(QPainter& p, int width, int height, double scale) : p_(p), width_(width), height_(height), scale_(scale) {
        p_.setRenderHint(QPainter::Antialiasing);
    }
    void clear(uint32_t bgr) override { p_.fillRect(QRectF(0, 0, width_ * scale_, height_ * scale_), colorOf(bgr)); }
    void line(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        p_.setPen(QPen(colorOf(bgr), std::max(1.0, scale_ * 0.6)));
        p_.drawLine(QPointF(x1 * scale_, y1 * scale_), QPointF(x2 * scale_, y2 * scale_));
        if (x1 == x2 && std::abs(y2 - y1) >= height_ - 1) taken_.push_back(box(x1 - 1, y1, x1 + 1, y2));  // the line of scrimmage
    }
    void rect(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        p_.setPen(QPen(colorOf(bgr), std::max(1.0, scale_ * 0.6)));
        p_.setBrush(Qt::NoBrush);
        p_.drawRect(box(x1, y1, x2, y2));
        taken_.push_back(box(x1, y1, x2, y2));
    }
    void fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        p_.fillRect(box(x1, y1, x2, y2), colorOf(bgr));
        taken_.push_back(box(x1, y1, x2, y2));
    }
    void label(int x, int y, const std::string& text, uint32_t bgr) override {
        labels_.push_back({QPointF(x * scale_, y * scale_), QString::fromLatin1(text), colorOf(bgr)});
    }
    int width() const override { return width_; }
    int height() const override { return height_; }

    void drawLabels() {
        const QFontMetricsF m(p_.font());
        const double gap = 2 * scale_;
        const QRectF area(0, 0, width_ * scale_, height_ * scale_);
        for (const Label& l : labels_) {
            const double w = m.horizontalAdvance(l.text), h = m.height();
            // Above right of the point first, then the other corners, then further out ring by ring.
            std::vector<QPointF> places;
            for (int ring = 1; ring <= 6; ++ring) {
                const double d = gap + (ring - 1) * h * 0.75;
                for (const QPointF& o : {QPointF(d, -d - h), QPointF(d, d), QPointF(-d - w, -d - h), QPointF(-d - w, d),
                                         QPointF(d, -h / 2), QPointF(-d - w, -h / 2), QPointF(-w / 2, -d - h), QPointF(-w / 2, d)})
                    places.push_back(o);
            }
            QRectF chosen(l.at + places[0], QSizeF(w, h));
            for (const QPointF& offset : places) {
                const QRectF r(l.at + offset, QSizeF(w, h));
                if (!area.contains(r)) continue;
                if (std::none_of(taken_.begin(), taken_.end(), [&](const QRectF& t) { return t.intersects(r); })) {
                    chosen = r;
                    break;
                }
            }
            taken_.push_back(chosen);
            QPainterPath path;
            path.addText(chosen.left(), chosen.top() + m.ascent(), p_.font(), l.text);
            p_.strokePath(path, QPen(Qt::black, std::max(2.0, scale_ * 0.5), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            QColor fill = l.color.toHsl();
            fill = QColor::fromHsl(fill.hslHue(), fill.hslSaturation(), std::max(fill.lightness(), 200));
            p_.fillPath(path, fill);
        }
    }

private:
    struct Label {
        QPointF at;
        QString text;
        QColor color;
    };
    QRectF box(int x1, int y1, int x2, int y2) const {
        return QRectF(QPointF(std::min(x1, x2) * scale_, std::min(y1, y2) * scale_),
                      QPointF((std::max(x1, x2) + 1) * scale_, (std::max(y1, y2) + 1) * scale_));
    }
    QPainter& p_;
    int width_, height_;
    double scale_;
    std::vector<QRectF> taken_;
    std::vector<Label> labels_;
};

// The small pictures' height: the window's picture boxes.
constexpr int kPlayWidth = 329, kPictureHeight = 217;

}  // namespace

// Draws the diagram at its own size: the field fills the view but for the
// legend's strip on the right; labels and legend scale with it.
class DiagramView : public QWidget {
public:
    DiagramView(const Playbook& pb, QWidget* parent) : QWidget(parent), pb_(pb) { setMinimumSize(kPlayWidth, kPictureHeight); }
    int slot = -1, formation = -1, play = 0;

    QImage render(QSize size) const {
        QImage image(size, QImage::Format_RGB32);
        image.fill(colorOf(kFieldColor));
        QPainter p(&image);
        const double scale = std::max(size.height() / double(kPictureHeight), 0.1);
        QFont font = p.font();
        font.setPixelSize(std::max(8, static_cast<int>(std::lround(scale * 4.5))));
        p.setFont(font);
        const int step = p.fontMetrics().height();
        const int legendWidth = step * 5;
        const int fieldWidth = std::max(1, size.width() - legendWidth);
        const int baseWidth = std::max(1, static_cast<int>(std::lround(fieldWidth / scale)));
        p.setClipRect(0, 0, fieldWidth, size.height());
        PainterCanvas canvas(p, baseWidth, kPictureHeight, scale);
        if (slot >= 0) DrawPlay(canvas, pb_, slot, play);
        else if (formation >= 0) (void)drawFormation(canvas, pb_, formation);
        canvas.drawLabels();
        p.setClipping(false);
        // The legend: each position in its colour.
        for (int i = 0; i < kPlayersPerRecord; ++i) {
            const QRect swatch(fieldWidth + step / 2, step / 2 + i * step, step - 4, step - 4);
            p.fillRect(swatch, colorOf(posColors[static_cast<size_t>(i)]));
            p.setPen(Qt::white);
            p.drawText(swatch.right() + step / 3, swatch.bottom(), QString::fromLatin1(offPosNames[static_cast<size_t>(i)].data()));
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
    plays_->setToolTip("Which of the slot's eight plays is drawn (offensive:defensive play numbers)");
    save_ = new QPushButton("Save Picture...", this);
    save_->setToolTip("Save the drawing as a PNG picture at the window's size");
    playsLabel_ = new QLabel("Play:", this);
    bar->addWidget(playsLabel_);
    bar->addWidget(plays_);
    bar->addStretch(1);
    said_ = new QLabel(this);  // what Save Picture wrote
    bar->addWidget(said_);
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
    plays_->setVisible(true);
    playsLabel_->setVisible(true);
    refresh();
}

void DiagramWindow::showFormation(int formation) {
    view_->slot = -1;
    view_->formation = formation;
    const QSignalBlocker quiet(plays_);
    plays_->clear();
    plays_->setVisible(false);  // a formation has no plays
    playsLabel_->setVisible(false);
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

QString DiagramWindow::subject() const {
    if (view_->slot >= 0) {
        const clsPlaySlot& s = pb_.playSlots[static_cast<size_t>(view_->slot)];
        return QString("%1 \u2014 play %2 (%3:%4)")
            .arg(QString::fromLatin1(s.name()).trimmed())
            .arg(view_->play + 1)
            .arg(QString::fromStdString(hex2(s.oPlay(view_->play))))
            .arg(QString::fromStdString(hex2(s.dPlay(view_->play))));
    }
    if (view_->formation >= 0 && static_cast<size_t>(view_->formation) < pb_.formations.size())
        return QString("%1 \u2014 formation %2")
            .arg(QString::fromLatin1(pb_.formations[static_cast<size_t>(view_->formation)].name()).trimmed())
            .arg(view_->formation);
    return QString();
}

void DiagramWindow::refresh() {
    const QString what = subject();
    setWindowTitle(what.isEmpty() ? "Diagram" : "Diagram: " + what);
    view_->update();
}

void DiagramWindow::savePicture() {
    QString name = subject();
    name.replace(QChar(0x2014), '-').replace(':', '-').replace(QRegularExpression("[^A-Za-z0-9 ()_-]"), "");
    const auto chosen = dialogs_.saveFile("PNG Pictures (*.png)|*.png|All Files|*.*", name.simplified() + ".png");
    if (!chosen) return;
    const QString file = QFileInfo(*chosen).suffix().isEmpty() ? *chosen + ".png" : *chosen;
    const std::optional<QString> path = file;
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    try {
        if (!picture().save(&buffer, "PNG")) throw std::runtime_error("cannot encode the picture");
        replaceFileContents(path->toStdString(), std::vector<uint8_t>(png.begin(), png.end()));
        said_->setText(QString("Saved %1 (%2\u00D7%3)").arg(QFileInfo(*path).fileName()).arg(view_->width()).arg(view_->height()));
    } catch (const std::exception& e) {
        dialogs_.message({QString::fromLocal8Bit(e.what()), "Save Picture", MsgIcon::Exclamation, MsgButtons::Ok, MsgAnswer::Ok});
    }
}

}  // namespace zpe
