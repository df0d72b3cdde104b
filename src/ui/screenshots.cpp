#include "ui/screenshots.h"

#include "ui/diagram_window.h"
#include "ui/frm_main.h"
#include "ui/formations_tab.h"
#include "ui/list_view.h"
#include "ui/play_slots_tab.h"
#include "ui/plays_tab.h"
#include "ui/sequences_tab.h"

#include "exchange/play_file.h"
#include "model/file_io.h"
#include "ui/play_library.h"
#include <QFileInfo>

#include <QApplication>
#include <QBuffer>
#include <QLineEdit>
#include <QLabel>
#include <QDir>
#include <QPixmap>
#include <QTreeWidget>
#include <stdexcept>

namespace zpe {

namespace {
// Answers every box with its default button and asks for no file.
class SilentDialogs : public Dialogs {
public:
    MsgAnswer message(const MessageBoxSpec& box) override { return box.defaultButton; }
    std::optional<QString> openFile(const QString&) override { return std::nullopt; }
    std::optional<QString> saveFile(const QString&, const QString&, int*, const QString&) override { return std::nullopt; }
    void showText(const QString&, const QString&) override {}
    std::optional<int> choose(const QString&, const QString&, const QStringList&, int) override { return std::nullopt; }
    MsgAnswer allOrCopy(const QString&, const QString&, const QString&, const QString&) override { return MsgAnswer::Cancel; }
    bool preview(const QString&, const QString&, const QImage&) override { return false; }
    std::optional<QString> openFolder(const QString&, const QString&) override { return std::nullopt; }
};
}  // namespace

QStringList writeScreenshots(const QString& imagePath, const QString& dir, const QString& dataDir) {
    SilentDialogs dialogs;
    frmMain window(dialogs, dataDir, QString());  // no folder for cpu.txt: the pictures are all it writes
    window.show();
    if (!window.openImage(imagePath)) throw std::runtime_error(window.StatusBar1->text().toStdString());
    QDir().mkpath(dir);

    QStringList written;
    auto shoot = [&](const char* name, QWidget* of = nullptr) {
        QApplication::processEvents();
        const QString path = QDir(dir).filePath(name);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        if (!(of ? of : static_cast<QWidget*>(&window))->grab().save(&buffer, "PNG"))
            throw std::runtime_error(path.toStdString() + ": cannot encode the picture");
        replaceFileContents(path.toStdString(), std::vector<uint8_t>(png.begin(), png.end()));
        written << path;
    };

    window.selectTab(1);
    selectRow(window.formations().lvFormations, 0);
    window.formations().lvFormations_Click();
    window.formations().cmdFormationViewGFX_Click();  // a new window starts with every picture and panel hidden
    shoot("formations.png");

    window.selectTab(2);
    window.playSlots().cmdPlaySlotDetails_Click();
    selectRow(window.playSlots().lvPlaySlots, 0);
    window.playSlots().lvPlaySlots_Click();
    shoot("play-slots.png");

    // The big diagram of that slot's play, zoomed in twice, and the list filtered.
    window.openDiagram(true);
    window.diagram_->resize(900, 560);
    QApplication::processEvents();
    window.diagram_->setZoom(1.25 * 1.25);
    shoot("diagram-zoom.png", window.diagram_);
    window.diagram_->close();
    window.filterBox_->setText("shotgun");
    shoot("play-slots-filter.png");
    window.filterBox_->clear();

    window.selectTab(3);
    shoot("plays.png");

    // Three plays exported into a folder of their own, shown in the Play Library beside the Plays tab.
    const QString library = QDir(dir).filePath("library");
    QDir().mkpath(library);
    for (const int play : {1, 5, 9}) {
        const std::string text = playFile(window.pb, play, std::nullopt, QFileInfo(imagePath).fileName().toStdString()).dump(1);
        replaceFileContents(QDir(library).filePath(QString("play %1.json").arg(play)).toStdString(), std::vector<uint8_t>(text.begin(), text.end()));
    }
    window.library_->show();
    window.library_->setFolder(library);
    window.resize(window.width() + 420, window.height());
    shoot("play-library.png");
    window.library_->hide();
    QDir(library).removeRecursively();

    window.selectTab(4);
    window.sequences().cmdSeqDetails_Click();
    selectRow(window.sequences().lvSequences, 0);
    window.sequences().lvSequences_Click();
    shoot("sequences.png");
    return written;
}

}  // namespace zpe
