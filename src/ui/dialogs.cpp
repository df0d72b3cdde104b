#include "ui/dialogs.h"

#include <algorithm>

#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFontDatabase>
#include <QLabel>
#include <QCoreApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStringList>
#include <QVBoxLayout>

namespace zpe {

QString qtFilter(const QString& filter) {
    const QStringList parts = filter.split('|');
    QStringList out;
    for (int i = 0; i + 1 < parts.size(); i += 2) {
        QString text = parts[i];
        QString pattern = parts[i + 1] == "*.*" ? "*" : parts[i + 1];
        pattern.replace(';', ' ');
        if (!text.contains('(')) text += " (" + pattern + ")";
        out << text;
    }
    return out.join(";;");
}

MsgAnswer QtDialogs::message(const MessageBoxSpec& box) {
    QMessageBox m(parent_);
    m.setWindowTitle(box.title);
    m.setText(box.text);
    switch (box.icon) {
    case MsgIcon::None: m.setIcon(QMessageBox::NoIcon); break;
    case MsgIcon::Information: m.setIcon(QMessageBox::Information); break;
    case MsgIcon::Exclamation: m.setIcon(QMessageBox::Warning); break;
    case MsgIcon::Question: m.setIcon(QMessageBox::Question); break;
    }
    if (box.buttons == MsgButtons::YesNo) {
        m.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        m.setDefaultButton(box.defaultButton == MsgAnswer::No ? QMessageBox::No : QMessageBox::Yes);
        m.setEscapeButton(QMessageBox::No);
        return m.exec() == QMessageBox::Yes ? MsgAnswer::Yes : MsgAnswer::No;
    }
    if (box.buttons == MsgButtons::YesNoCancel) {
        m.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
        m.setDefaultButton(box.defaultButton == MsgAnswer::No ? QMessageBox::No : QMessageBox::Yes);
        m.setEscapeButton(QMessageBox::Cancel);
        switch (m.exec()) {
        case QMessageBox::Yes: return MsgAnswer::Yes;
        case QMessageBox::No: return MsgAnswer::No;
        default: return MsgAnswer::Cancel;
        }
    }
    if (box.buttons == MsgButtons::SaveDiscardCancel || box.buttons == MsgButtons::ApplyDiscardCancel) {
        const auto keep = box.buttons == MsgButtons::SaveDiscardCancel ? QMessageBox::Save : QMessageBox::Apply;
        m.setStandardButtons(keep | QMessageBox::Discard | QMessageBox::Cancel);
        m.setDefaultButton(keep);
        m.setEscapeButton(QMessageBox::Cancel);
        switch (m.exec()) {
        case QMessageBox::Save: return MsgAnswer::Save;
        case QMessageBox::Apply: return MsgAnswer::Apply;
        case QMessageBox::Discard: return MsgAnswer::Discard;
        default: return MsgAnswer::Cancel;
        }
    }
    m.setStandardButtons(QMessageBox::Ok);
    m.exec();
    return MsgAnswer::Ok;
}

std::optional<QString> QtDialogs::openFile(const QString& filter) {
    const QString path = QFileDialog::getOpenFileName(parent_, QString(), QString(), qtFilter(filter));
    if (path.isEmpty()) return std::nullopt;
    return path;
}

std::optional<QString> QtDialogs::openFolder(const QString& title, const QString& start) {
    const QString path = QFileDialog::getExistingDirectory(parent_, title, start);
    if (path.isEmpty()) return std::nullopt;
    return path;
}

std::optional<QString> QtDialogs::saveFile(const QString& filter, const QString& suggested, int* chosenFilter, const QString& title) {
    const QString filters = qtFilter(filter);
    QString selected;
    const QString path = QFileDialog::getSaveFileName(parent_, title, suggested, filters, &selected);
    if (path.isEmpty()) return std::nullopt;
    if (chosenFilter) *chosenFilter = std::max<int>(0, static_cast<int>(filters.split(";;").indexOf(selected)));
    return path;
}

void QtDialogs::showText(const QString& title, const QString& text) {
    QDialog d(parent_);
    d.setWindowTitle(title);
    d.setSizeGripEnabled(true);
    auto* layout = new QVBoxLayout(&d);
    auto* view = new QPlainTextEdit(text, &d);
    view->setReadOnly(true);
    view->setLineWrapMode(QPlainTextEdit::NoWrap);
    view->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    layout->addWidget(view);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, &d);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &d, &QDialog::reject);
    layout->addWidget(buttons);
    d.resize(760, 480);
    d.exec();
}

MsgAnswer QtDialogs::allOrCopy(const QString& text, const QString& title, const QString& allText, const QString& copyText) {
    QMessageBox m(parent_);
    m.setWindowTitle(title);
    m.setText(text);
    m.setIcon(QMessageBox::Question);
    QPushButton* all = m.addButton(allText, QMessageBox::AcceptRole);
    QPushButton* copy = m.addButton(copyText, QMessageBox::AcceptRole);
    QPushButton* cancel = m.addButton(QMessageBox::Cancel);
    m.setDefaultButton(copy);
    m.setEscapeButton(cancel);
    m.exec();
    return m.clickedButton() == all ? MsgAnswer::All : m.clickedButton() == copy ? MsgAnswer::Copy : MsgAnswer::Cancel;
}

namespace {

// The arrow and page keys typed in a filter box move the selection of the list it filters.
class KeysToList : public QObject {
public:
    KeysToList(QObject* box, QListWidget* list) : QObject(box), list_(list) { box->installEventFilter(this); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::KeyPress) {
            const int key = static_cast<QKeyEvent*>(event)->key();
            if (key == Qt::Key_Up || key == Qt::Key_Down || key == Qt::Key_PageUp || key == Qt::Key_PageDown) {
                QCoreApplication::sendEvent(list_, event);
                return true;
            }
        }
        return QObject::eventFilter(watched, event);
    }

private:
    QListWidget* list_;
};

}  // namespace

std::optional<int> QtDialogs::choose(const QString& title, const QString& prompt, const QStringList& items, int current) {
    QDialog d(parent_);
    d.setWindowTitle(title);
    d.setSizeGripEnabled(true);
    auto* layout = new QVBoxLayout(&d);
    layout->addWidget(new QLabel(prompt, &d));
    auto* filter = new QLineEdit(&d);
    filter->setPlaceholderText("Filter: any part of the text");
    filter->setClearButtonEnabled(true);
    layout->addWidget(filter);
    auto* list = new QListWidget(&d);
    list->addItems(items);
    list->setCurrentRow(current);
    layout->addWidget(list);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &d);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &d, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &d, &QDialog::reject);
    QObject::connect(list, &QListWidget::itemDoubleClicked, &d, &QDialog::accept);
    // The filter hides what does not hold its text and keeps a visible row selected.
    QObject::connect(filter, &QLineEdit::textChanged, &d, [list](const QString& text) {
        int first = -1;
        for (int i = 0; i < list->count(); ++i) {
            const bool shown = list->item(i)->text().contains(text, Qt::CaseInsensitive);
            list->item(i)->setHidden(!shown);
            if (shown && first < 0) first = i;
        }
        if (list->currentItem() == nullptr || list->currentItem()->isHidden()) list->setCurrentRow(first);
    });
    new KeysToList(filter, list);
    layout->addWidget(buttons);
    d.resize(640, 420);
    filter->setFocus();
    if (d.exec() != QDialog::Accepted || list->currentRow() < 0 || list->currentItem()->isHidden()) return std::nullopt;
    return list->currentRow();
}

bool QtDialogs::preview(const QString& title, const QString& text, const QImage& picture) {
    QDialog d(parent_);
    d.setWindowTitle(title);
    auto* layout = new QVBoxLayout(&d);
    auto* image = new QLabel(&d);
    image->setPixmap(QPixmap::fromImage(picture));
    layout->addWidget(image);
    auto* words = new QLabel(text, &d);
    words->setWordWrap(true);
    layout->addWidget(words);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &d);
    QObject::connect(buttons, &QDialogButtonBox::accepted, &d, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &d, &QDialog::reject);
    layout->addWidget(buttons);
    return d.exec() == QDialog::Accepted;
}

}  // namespace zpe
