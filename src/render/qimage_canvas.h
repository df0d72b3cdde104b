#pragma once
// A canvas that keeps its pixels in a QImage until the next clear, so a
// picture drawn while hidden appears when it is shown.
#include "diagram/canvas.h"

#include <QImage>
#include <QString>

namespace zpe {

class QImageCanvas : public Canvas {
public:
    QImageCanvas(int width, int height);

    void clear(uint32_t bgr) override;
    void line(int x1, int y1, int x2, int y2, uint32_t bgr) override;
    void rect(int x1, int y1, int x2, int y2, uint32_t bgr) override;
    void fillRect(int x1, int y1, int x2, int y2, uint32_t bgr) override;
    int width() const override { return image_.width(); }
    int height() const override { return image_.height(); }

    // A new size keeps nothing of the old picture (the next drawing fills it).
    void resize(int width, int height);
    const QImage& image() const { return image_; }
    // Writes the picture as PNG; false when the file cannot be written.
    bool savePng(const QString& path) const;

    static QColor toColor(uint32_t bgr);

private:
    QImage image_;
};

}  // namespace zpe
