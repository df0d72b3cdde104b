// zpe-editor: the playbook editor's window. An optional argument names an
// image to open at start-up, through the same open procedure as File > Open.
#include "ui/dialogs.h"
#include "ui/frm_main.h"

#include <QApplication>
#include <QDir>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(zpe::kProgramName);
    zpe::QtDialogs dialogs;
    zpe::frmMain window(dialogs, QCoreApplication::applicationDirPath(), QDir::currentPath());
    dialogs.setParent(&window);
    window.show();
    const QStringList args = QCoreApplication::arguments();
    if (args.size() > 1) window.openImage(args.at(1));
    return QApplication::exec();
}
