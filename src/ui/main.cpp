// zpe-editor: the playbook editor's window. An optional argument names an
// image to open at start-up, through the same open procedure as File > Open.
// `zpe-editor --screenshot DIR [IMAGE]` writes a picture of each tab into DIR
// without showing a window (IMAGE defaults to the demo image beside it).
#include "model/text_file.h"
#include "ui/dialogs.h"
#include "ui/frm_main.h"
#include "ui/screenshots.h"

#include <QApplication>
#include <QDir>
#include <csignal>
#include <cstring>
#include <iostream>

int main(int argc, char** argv) {
    std::signal(SIGXFSZ, SIG_IGN);  // a size limit makes a save fail with a message instead of a kill
    const bool screenshot = argc >= 3 && std::strcmp(argv[1], "--screenshot") == 0;
    if (screenshot && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setApplicationName(zpe::kProgramName);
    QApplication::setApplicationVersion(ZPE_VERSION);
    const QString dataDir = QString::fromStdString(zpe::dataFolderFor(QCoreApplication::applicationDirPath().toStdString()));
    const QStringList args = QCoreApplication::arguments();
    if (screenshot) {
        const QString image = args.size() > 3 ? args.at(3) : QDir(dataDir).filePath("demo.nes");
        try {
            for (const QString& path : zpe::writeScreenshots(image, args.at(2), dataDir)) std::cout << path.toStdString() << '\n';
        } catch (const std::exception& e) {
            std::cerr << "zpe-editor: " << e.what() << '\n';
            return 1;
        }
        return 0;
    }
    zpe::QtDialogs dialogs;
    zpe::frmMain window(dialogs, dataDir, QDir::currentPath());
    dialogs.setParent(&window);
    window.restoreWindowGeometry();
    window.show();
    if (args.size() > 1) window.openImage(args.at(1));
    return QApplication::exec();
}
