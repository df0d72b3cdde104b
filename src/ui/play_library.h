#pragma once
// The Play Library: a folder of play and slot files shown as a grid of
// diagram thumbnails, each with its name and the image it came from, and a
// filter. A thumbnail dragged onto a row of the Plays or Play Slots list
// brings that file in there (the window handles the drop).
#include <QDockWidget>
#include <QImage>
#include <QListWidget>
#include <functional>

class QLabel;
class QLineEdit;

namespace zpe {

// What the library shows of one file: its kind ("zpe play", "zpe slot"),
// its name, the image it came from and its picture (null: none could be drawn).
struct LibraryEntry {
    QString format;
    QString name;
    QString image;
    QImage picture;
    QString note;  // why no picture could be drawn (it would not go into the open image), or ""
};

// The list of thumbnails; a drag carries the file as a URL.
class LibraryList : public QListWidget {
public:
    using QListWidget::QListWidget;

protected:
    QMimeData* mimeData(const QList<QListWidgetItem*>& items) const override;
    // A thumbnail is copied, never moved, out of the library.
    Qt::DropActions supportedDropActions() const override;
};

class PlayLibrary : public QDockWidget {
public:
    // `describe` reads a file (throws for one that is no play or slot file).
    PlayLibrary(QWidget* parent, std::function<LibraryEntry(const QString& path)> describe);
    // Shows the play and slot files of `folder` (*.json; other files are left out).
    void setFolder(const QString& folder);
    const QString& folder() const { return folder_; }
    // Reads the folder again (files come and go; the open image changes the pictures).
    void refresh();
    // The file of each item shown, in order.
    QStringList shownFiles() const;

    LibraryList* list;
    QLineEdit* filter;
    QLabel* folderLabel;
    std::function<void()> onChooseFolder;  // the "Folder..." button
    std::function<void()> onRefresh;       // told before the files are read again

private:
    void applyFilter();
    std::function<LibraryEntry(const QString&)> describe_;
    QString folder_;
};

}  // namespace zpe
