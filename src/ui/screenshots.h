#pragma once
#include <QString>
#include <QStringList>

namespace zpe {

// Opens `imagePath` in a window (needs a QApplication) and saves a picture of
// each tab into `dir`: formations.png (first formation selected, its diagram
// shown), play-slots.png (first slot selected, details shown), plays.png and
// sequences.png (first sequence selected, editor panel shown). Returns the
// paths written; throws std::runtime_error naming the file when the image does
// not open or a picture cannot be written.
QStringList writeScreenshots(const QString& imagePath, const QString& dir, const QString& dataDir);

}  // namespace zpe
