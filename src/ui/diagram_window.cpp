#include "ui/diagram_window.h"

#include "ui/gif_writer.h"

#include "diagram/diagram.h"
#include "model/file_io.h"
#include "model/hex.h"
#include "model/tables.h"

#include <algorithm>
#include <cmath>

#include <QAction>
#include <QBuffer>
#include <QScrollArea>
#include <QScrollBar>
#include <QWheelEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QSlider>
#include <QTimer>
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
        p_.setPen(QPen(colorOf(bgr), lineWidth()));
        p_.drawLine(QPointF(x1 * scale_, y1 * scale_), QPointF(x2 * scale_, y2 * scale_));
        if (x1 == x2 && std::abs(y2 - y1) >= height_ - 1) taken_.push_back(box(x1 - 1, y1, x1 + 1, y2));  // the line of scrimmage
    }
    void rect(int x1, int y1, int x2, int y2, uint32_t bgr) override {
        p_.setPen(QPen(colorOf(bgr), lineWidth()));
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
            // Level with the point on its left first (the backfield side, where
            // no path runs, and unambiguous where squares stand in a column),
            // then on its right, then the corners, then further out ring by ring.
            std::vector<QPointF> places;
            for (int ring = 1; ring <= 6; ++ring) {
                const double d = gap + (ring - 1) * h * 0.75;
                for (const QPointF& o : {QPointF(-d - w, -h / 2), QPointF(d, -h / 2), QPointF(d, -d - h), QPointF(d, d),
                                         QPointF(-d - w, -d - h), QPointF(-d - w, d), QPointF(-w / 2, -d - h), QPointF(-w / 2, d)})
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
    // Lines stay readable at every size: two pixels at least.
    double lineWidth() const { return std::max(2.0, scale_ * 0.6); }
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
// legend's strip on the right; labels and legend scale with it. For a slot's
// play it also holds the handles: the picked player's points, the one picked
// or moved, the one of the command selected in the editor panel.
class DiagramView : public QWidget {
public:
    DiagramView(const Playbook& pb, QWidget* parent) : QWidget(parent), pb_(pb) {
        setMinimumSize(kPlayWidth, kPictureHeight);
        setObjectName("diagramView");
        setFocusPolicy(Qt::StrongFocus);  // the arrow keys move the picked point
    }
    int slot = -1, formation = -1, play = 0;
    const clsSequence* workingCopy = nullptr;  // the editor panel's, while it holds edits
    std::optional<clsSequence> dragged;        // the moved point's sequence while a drag lasts
    int player = -1, point = -1;               // the picked player and point
    std::optional<SeqKey> markedSequence;      // the command selected in the editor panel
    int markedCommand = -1;
    int step = -1;                             // the animation's step; -1: everything
    std::function<void(int, const DiagramPoint&)> onPick;
    std::function<void(int, const DiagramPoint&, int, int)> onMove;
    std::function<void(double factor)> onZoom;

    double scale() const { return std::max(height() / double(kPictureHeight), 0.1); }

    // The points as drawn now (with a drag's or the panel's edits).
    std::vector<std::vector<DiagramPoint>> points() const {
        if (slot < 0) return {};
        return playPoints(pb_, slot, play, drawOptions().workingCopy);
    }

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
        std::vector<std::vector<DiagramPoint>> pts;
        DrawOptions options = drawOptions();
        options.points = &pts;
        options.maxPoints = this->step < 0 ? -1 : this->step + 1;
        if (slot >= 0) DrawPlay(canvas, pb_, slot, play, options);
        else if (formation >= 0) (void)drawFormation(canvas, pb_, formation, workingCopy);
        canvas.drawLabels();
        drawMarks(p, pts, scale);
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

    void mousePressEvent(QMouseEvent* e) override {
        if (slot < 0 || e->button() != Qt::LeftButton) return;
        const auto all = points();
        // The nearest point within a handle's reach, the picked player's first.
        double best = handleReach();
        int bestPlayer = -1, bestPoint = -1;
        for (size_t j = 0; j < all.size(); ++j)
            for (size_t k = 0; k < all[j].size(); ++k) {
                const double d = std::hypot(all[j][k].x * scale() - e->position().x(), all[j][k].y * scale() - e->position().y()) -
                                 (static_cast<int>(j) == player ? 0.5 : 0);
                if (d < best) best = d, bestPlayer = static_cast<int>(j), bestPoint = static_cast<int>(k);
            }
        if (bestPlayer < 0) return;
        player = bestPlayer;
        point = bestPoint;
        dragging_ = true;
        moved_ = false;
        update();
        if (onPick) onPick(player, all[static_cast<size_t>(player)][static_cast<size_t>(point)]);
    }

    void mouseMoveEvent(QMouseEvent* e) override {
        if (!dragging_) return;
        moveTo(static_cast<int>(std::lround(e->position().x() / scale())), static_cast<int>(std::lround(e->position().y() / scale())));
    }

    void mouseReleaseEvent(QMouseEvent* e) override {
        if (!dragging_ || e->button() != Qt::LeftButton) return;
        dragging_ = false;
        finish();
    }

    // Ctrl and the wheel zoom (the window decides how far); the wheel alone scrolls.
    void wheelEvent(QWheelEvent* e) override {
        if (!(e->modifiers() & Qt::ControlModifier) || !onZoom) return e->ignore();
        onZoom(e->angleDelta().y() > 0 ? 1.25 : 0.8);
        e->accept();
    }

    void keyPressEvent(QKeyEvent* e) override {
        const int dx = e->key() == Qt::Key_Left ? -1 : e->key() == Qt::Key_Right ? 1 : 0;
        const int dy = e->key() == Qt::Key_Up ? -1 : e->key() == Qt::Key_Down ? 1 : 0;
        const auto at = picked();
        if ((dx == 0 && dy == 0) || !at) return QWidget::keyPressEvent(e);
        moveTo(at->x + dx, at->y + dy);
        finish();
    }

private:
    double handleReach() const { return std::max(6.0, scale() * 3); }

    DrawOptions drawOptions() const {
        DrawOptions options;
        options.workingCopy = dragged ? &*dragged : workingCopy;
        return options;
    }

    std::optional<DiagramPoint> picked() const {
        const auto all = points();
        if (player < 0 || static_cast<size_t>(player) >= all.size() || point < 0 ||
            static_cast<size_t>(point) >= all[static_cast<size_t>(player)].size())
            return std::nullopt;
        return all[static_cast<size_t>(player)][static_cast<size_t>(point)];
    }

    // The picked point to (x, y), or as near as its command reaches: the lines follow at once.
    void moveTo(int x, int y) {
        const auto all = points();
        const auto at = picked();
        if (!at) return;
        // The pen before the point: the point before it, or the previous player's last.
        DiagramPoint pen;
        if (point > 0) pen = all[static_cast<size_t>(player)][static_cast<size_t>(point) - 1];
        else
            for (int j = 0; j < player; ++j)
                if (!all[static_cast<size_t>(j)].empty()) pen = all[static_cast<size_t>(j)].back();
        const clsSequence* seq = dragged && dragged->key() == at->sequence       ? &*dragged
                                 : workingCopy && workingCopy->key() == at->sequence ? workingCopy
                                                                                      : pb_.sequences.find(at->sequence);
        if (!seq || at->command >= seq->commandCount()) return;
        const int code = seq->command(at->command), oldA = seq->data(at->command, 0), oldB = seq->data(at->command, 1);
        DiagramPoint nearest;
        auto data = dataForPoint(code, pen.x, pen.y, x, y, oldA, oldB, &nearest);
        if (!data) data = dataForPoint(code, pen.x, pen.y, nearest.x, nearest.y, oldA, oldB);
        if (!data) return;
        if (!dragged || dragged->key() != at->sequence) dragged = *seq;
        dragged->data(at->command, 0, static_cast<int16_t>(data->first));
        dragged->data(at->command, 1, static_cast<int16_t>(data->second));
        moved_ = true;
        update();
    }

    // Hands a finished move to the main window; the drawing then follows the model again.
    void finish() {
        if (!moved_ || !dragged) {
            dragged.reset();
            return;
        }
        const auto at = picked();
        const clsSequence moved = *dragged;
        dragged.reset();
        moved_ = false;
        if (!at) return;
        // The point as it stood before the move names the command; its new data goes with it.
        if (onMove) onMove(player, *at, moved.data(at->command, 0), moved.data(at->command, 1));
        update();
    }

    // Handles of the picked player, the picked point filled; the panel's command ringed;
    // in the animation, every player where he stands.
    void drawMarks(QPainter& p, const std::vector<std::vector<DiagramPoint>>& all, double scale) const {
        const double r = std::max(3.0, scale * 2.2);
        auto at = [&](const DiagramPoint& pt) { return QPointF(pt.x * scale, pt.y * scale); };
        if (step >= 0) {
            for (size_t j = 0; j < all.size(); ++j)
                if (!all[j].empty()) {
                    p.setPen(QPen(Qt::black, 1));
                    p.setBrush(colorOf(posColors[j]));
                    p.drawEllipse(at(all[j].back()), r * 1.3, r * 1.3);
                }
            return;
        }
        for (size_t j = 0; j < all.size(); ++j)
            for (size_t k = 0; k < all[j].size(); ++k) {
                const DiagramPoint& pt = all[j][k];
                if (pt.sequence == markedSequence && pt.command == markedCommand) {
                    p.setPen(QPen(QColor(255, 255, 0), std::max(1.5, scale * 0.6)));
                    p.setBrush(Qt::NoBrush);
                    p.drawEllipse(at(pt), r * 2, r * 2);
                }
                if (static_cast<int>(j) != player) continue;
                p.setPen(QPen(Qt::black, 1));
                p.setBrush(static_cast<int>(k) == point ? QBrush(Qt::white) : QBrush(QColor(255, 255, 255, 90)));
                p.drawRect(QRectF(at(pt) - QPointF(r, r), QSizeF(2 * r, 2 * r)));
            }
    }

    const Playbook& pb_;
    bool dragging_ = false, moved_ = false;
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
    play_ = new QPushButton("Play", this);
    play_->setToolTip("Animate the play: every player moves along his path one segment a step");
    steps_ = new QSlider(Qt::Horizontal, this);
    steps_->setToolTip("Scrub through the play: it shows the order of the movements, a segment a step for every "
                       "player at the same pace, not the game's timing");
    steps_->setMinimumWidth(120);
    saveAnimation_ = new QPushButton("Save Animation...", this);
    saveAnimation_->setToolTip("Save the animation as an animated GIF at the window's size");
    timer_ = new QTimer(this);
    timer_->setInterval(450);
    bar->addWidget(playsLabel_);
    bar->addWidget(plays_);
    bar->addWidget(play_);
    bar->addWidget(steps_);
    bar->addWidget(saveAnimation_);
    bar->addStretch(1);
    said_ = new QLabel(this);  // what Save Picture wrote
    bar->addWidget(said_);
    bar->addWidget(save_);
    layout->addLayout(bar);
    scroll_ = new QScrollArea(this);
    scroll_->setWidgetResizable(true);  // at zoom 1 the drawing fills the window
    scroll_->setAlignment(Qt::AlignCenter);
    view_ = new DiagramView(pb_, scroll_);
    view_->setToolTip("Click a player's point to pick it (its command shows in the Sequences editor); drag it, or "
                      "use the arrow keys, to move it");
    scroll_->setWidget(view_);
    layout->addWidget(scroll_, 1);
    const struct {
        QList<QKeySequence> keys;
        double factor;
    } zooms[] = {{{QKeySequence::ZoomIn, QKeySequence(Qt::CTRL | Qt::Key_Equal)}, 1.25},
                 {{QKeySequence::ZoomOut}, 0.8},
                 {{QKeySequence(Qt::CTRL | Qt::Key_0)}, 0}};
    for (const auto& z : zooms) {
        auto* action = new QAction(this);
        action->setShortcuts(z.keys);
        const double factor = z.factor;
        connect(action, &QAction::triggered, this, [this, factor] { setZoom(factor == 0 ? 1 : zoom_ * factor); });
        addAction(action);
    }
    view_->onPick = [this](int player, const DiagramPoint& pt) {
        if (onPick) onPick(player, pt);
    };
    view_->onMove = [this](int player, const DiagramPoint& pt, int a, int b) {
        if (onMove) onMove(player, pt, a, b);
    };
    view_->onZoom = [this](double factor) { setZoom(zoom_ * factor); };
    connect(plays_, &QComboBox::currentIndexChanged, this, [this](int i) {
        if (i >= 0) choosePlay(i);
    });
    connect(save_, &QPushButton::clicked, this, [this] { savePicture(); });
    connect(saveAnimation_, &QPushButton::clicked, this, [this] { saveAnimation(); });
    connect(steps_, &QSlider::valueChanged, this, [this](int v) { showStep(v >= steps_->maximum() ? -1 : v); });
    connect(play_, &QPushButton::clicked, this, [this] {
        if (timer_->isActive()) {
            timer_->stop();
            play_->setText("Play");
            return;
        }
        steps_->setValue(0);
        play_->setText("Stop");
        timer_->start();
    });
    connect(timer_, &QTimer::timeout, this, [this] {
        if (steps_->value() >= steps_->maximum()) {
            timer_->stop();
            play_->setText("Play");
            return;
        }
        steps_->setValue(steps_->value() + 1);
    });
    resize(900, 560);
}

void DiagramWindow::setZoom(double zoom) {
    constexpr double kMaxZoom = 4;  // the drawing is rendered whole: 4 times a large window is about 30 MB
    zoom_ = std::clamp(zoom, 1.0, kMaxZoom);
    if (zoom_ == 1) {
        scroll_->setWidgetResizable(true);
        return;
    }
    // The point at the viewport's centre stays there.
    const QSize viewport = scroll_->viewport()->size();
    const double cx = (scroll_->horizontalScrollBar()->value() + viewport.width() / 2.0) / std::max(1, view_->width());
    const double cy = (scroll_->verticalScrollBar()->value() + viewport.height() / 2.0) / std::max(1, view_->height());
    scroll_->setWidgetResizable(false);
    view_->resize(static_cast<int>(viewport.width() * zoom_), static_cast<int>(viewport.height() * zoom_));
    scroll_->horizontalScrollBar()->setValue(static_cast<int>(cx * view_->width() - viewport.width() / 2.0));
    scroll_->verticalScrollBar()->setValue(static_cast<int>(cy * view_->height() - viewport.height() / 2.0));
}

void DiagramWindow::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (zoom_ != 1) setZoom(zoom_);
}

int DiagramWindow::slot() const { return view_->slot; }
int DiagramWindow::play() const { return view_->play; }

void DiagramWindow::setWorkingCopy(const clsSequence* seq) {
    if (view_->workingCopy == seq && !seq) return;
    view_->workingCopy = seq;
    refresh();
}

void DiagramWindow::highlightCommand(SeqKey sequence, int command) {
    view_->markedSequence = sequence;
    view_->markedCommand = command;
    view_->update();
}

int DiagramWindow::animationSteps() const {
    size_t longest = 0;
    for (const auto& list : view_->points()) longest = std::max(longest, list.size());
    return longest == 0 ? 0 : static_cast<int>(longest) - 1;
}

void DiagramWindow::showStep(int step) {
    view_->step = step;
    view_->update();
}

void DiagramWindow::saveAnimation() {
    if (view_->slot < 0) return;
    QString name = subject();
    name.replace(QChar(0x2014), '-').replace(':', '-').replace(QRegularExpression("[^A-Za-z0-9 ()_-]"), "");
    const auto chosen = dialogs_.saveFile("GIF Animations (*.gif)|*.gif|All Files|*.*", name.simplified() + ".gif", nullptr, "Save Animation");
    if (!chosen) return;
    const QString file = QFileInfo(*chosen).suffix().isEmpty() ? *chosen + ".gif" : *chosen;
    const int keep = view_->step, steps = animationSteps();
    std::vector<QImage> frames;
    for (int k = 0; k <= steps; ++k) {
        view_->step = k;
        frames.push_back(view_->render(view_->size()));
    }
    frames.push_back(frames.back());  // the last step held a moment longer
    view_->step = keep;
    try {
        replaceFileContents(file.toStdString(), gifAnimation(frames, 60));
        said_->setText(QString("Saved %1 (%2 steps)").arg(QFileInfo(file).fileName()).arg(steps + 1));
    } catch (const std::exception& e) {
        dialogs_.message({QString::fromLocal8Bit(e.what()), "Save Animation", MsgIcon::Exclamation, MsgButtons::Ok, MsgAnswer::Ok});
    }
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
    for (QWidget* w : std::initializer_list<QWidget*>{plays_, playsLabel_, play_, steps_, saveAnimation_}) w->setVisible(true);
    refresh();
}

void DiagramWindow::showFormation(int formation) {
    view_->slot = -1;
    view_->formation = formation;
    const QSignalBlocker quiet(plays_);
    plays_->clear();
    // A formation has no plays to pick, animate or edit here.
    for (QWidget* w : std::initializer_list<QWidget*>{plays_, playsLabel_, play_, steps_, saveAnimation_}) w->setVisible(false);
    view_->player = view_->point = -1;
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
    // The slider's last position draws the whole play.
    const QSignalBlocker quiet(steps_);
    steps_->setRange(0, animationSteps() + 1);
    if (view_->step < 0) steps_->setValue(steps_->maximum());
    view_->update();
}

void DiagramWindow::savePicture() {
    QString name = subject();
    name.replace(QChar(0x2014), '-').replace(':', '-').replace(QRegularExpression("[^A-Za-z0-9 ()_-]"), "");
    const auto chosen = dialogs_.saveFile("PNG Pictures (*.png)|*.png|All Files|*.*", name.simplified() + ".png", nullptr, "Save Picture");
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
