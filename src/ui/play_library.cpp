#include "ui/play_library.h"

#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPixmap>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace zpe {

namespace {
constexpr int kThumbWidth = 160, kThumbHeight = 106;  // the play picture's proportions
constexpr int kPathRole = Qt::UserRole;
}  // namespace

Qt::DropActions LibraryList::supportedDropActions() const { return Qt::CopyAction; }

QMimeData* LibraryList::mimeData(const QList<QListWidgetItem*>& items) const {
    auto* data = new QMimeData;
    QList<QUrl> urls;
    for (const QListWidgetItem* item : items) urls << QUrl::fromLocalFile(item->data(kPathRole).toString());
    data->setUrls(urls);
    return data;
}

PlayLibrary::PlayLibrary(QWidget* parent, std::function<LibraryEntry(const QString& path)> describe)
    : QDockWidget("Play Library", parent), describe_(std::move(describe)) {
    setObjectName("playLibrary");
    auto* body = new QWidget(this);
    auto* layout = new QVBoxLayout(body);
    auto* top = new QHBoxLayout;
    folderLabel = new QLabel(body);
    folderLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    folderLabel->setToolTip("The folder whose play and slot files are shown");
    auto* choose = new QPushButton("Folder...", body);
    choose->setToolTip("Show the play and slot files of another folder");
    connect(choose, &QPushButton::clicked, this, [this] {
        if (onChooseFolder) onChooseFolder();
    });
    top->addWidget(folderLabel, 1);
    top->addWidget(choose);
    layout->addLayout(top);
    filter = new QLineEdit(body);
    filter->setPlaceholderText("Filter: a name or an image");
    filter->setClearButtonEnabled(true);
    filter->setToolTip("Shows only the files whose name or image holds this text");
    connect(filter, &QLineEdit::textChanged, this, [this] { applyFilter(); });
    layout->addWidget(filter);
    list = new LibraryList(body);
    list->setViewMode(QListView::IconMode);
    list->setIconSize(QSize(kThumbWidth, kThumbHeight));
    list->setResizeMode(QListView::Adjust);
    list->setMovement(QListView::Static);
    list->setWordWrap(true);
    list->setDragEnabled(true);
    list->setDragDropMode(QAbstractItemView::DragOnly);
    list->setDefaultDropAction(Qt::CopyAction);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    list->setToolTip("Drag a play onto a row of Plays, or a slot onto a row of Play Slots, to bring it in");
    layout->addWidget(list, 1);
    setWidget(body);
}

void PlayLibrary::setFolder(const QString& folder) {
    folder_ = folder;
    refresh();
}

void PlayLibrary::refresh() {
    list->clear();
    if (onRefresh) onRefresh();
    folderLabel->setText(folder_.isEmpty() ? QString("(no folder)") : QDir::toNativeSeparators(folder_));
    if (folder_.isEmpty()) return;
    const QFileInfoList files = QDir(folder_).entryInfoList({"*.json"}, QDir::Files | QDir::Readable, QDir::Name);
    for (const QFileInfo& file : files) {
        LibraryEntry entry;
        try {
            entry = describe_(file.absoluteFilePath());
        } catch (const std::exception&) {
            continue;  // not a play or slot file: not shown
        }
        QPixmap thumb(kThumbWidth, kThumbHeight);
        thumb.fill(QColor(0xF0, 0xF0, 0xF0));
        if (!entry.picture.isNull()) thumb = QPixmap::fromImage(entry.picture.scaled(kThumbWidth, kThumbHeight, Qt::KeepAspectRatio, Qt::SmoothTransformation));
        auto* item = new QListWidgetItem(QIcon(thumb), entry.name + "\n" + entry.image, list);
        item->setData(kPathRole, file.absoluteFilePath());
        item->setToolTip(file.fileName() + (entry.format == "zpe slot" ? " (a slot)" : " (a play)") + ", from " + entry.image +
                         (entry.note.isEmpty() ? QString() : "\nNot drawn: " + entry.note));
    }
    applyFilter();
}

QStringList PlayLibrary::shownFiles() const {
    QStringList out;
    for (int i = 0; i < list->count(); ++i)
        if (!list->item(i)->isHidden()) out << list->item(i)->data(kPathRole).toString();
    return out;
}

void PlayLibrary::applyFilter() {
    const QString text = filter->text();
    for (int i = 0; i < list->count(); ++i) list->item(i)->setHidden(!list->item(i)->text().contains(text, Qt::CaseInsensitive));
}

}  // namespace zpe
