#pragma once
// A window on a data folder of the test's own, with an image written from a
// builder and the scripted dialogs in place of real boxes.
#include "fake_dialogs.h"
#include "support/image_builder.h"
#include "ui/frm_main.h"
#include "ui/formations_tab.h"
#include "ui/list_view.h"
#include "ui/play_slots_tab.h"
#include "ui/plays_tab.h"
#include "ui/sequences_tab.h"

#include <QStandardPaths>
#include <QTest>
#include <QTreeWidget>
#include <memory>

namespace zpe::test {

// The item of the new-command list that adds `code` (0 when none does).
inline int newCommandItemOf(int code) {
    for (int i = 0; i < 77; ++i)
        if (newCommandCode(i) == code) return i;
    return 0;
}

struct WindowFixture {
    TempDir data;  // forms.txt (22 names) and whatever sheets a test adds
    TempDir cwd;   // where cpu.txt goes
    std::unique_ptr<TempFile> image;
    std::unique_ptr<FakeDialogs> dialogs;
    std::unique_ptr<frmMain> w;

    WindowFixture() { data.writeText("forms.txt", formsText()); }

    // Writes the image and shows a new window (nothing opened yet).
    void start(const ImageBuilder& builder) {
        // Settings (the recent files) go to a test folder, never the user's.
        QStandardPaths::setTestModeEnabled(true);
        image = std::make_unique<TempFile>(builder.write());
        dialogs = std::make_unique<FakeDialogs>();
        w = std::make_unique<frmMain>(*dialogs, QString::fromStdString(data.path()), QString::fromStdString(cwd.path()));
        w->show();
        (void)QTest::qWaitForWindowExposed(w.get());
    }
    void stop() { w.reset(); }
    QString imagePath() const { return QString::fromStdString(image->path()); }

    // A left click on the middle of a list row (0-based), as a user makes it.
    static void clickRow(QTreeWidget* lv, int row) {
        const QRect r = lv->visualItemRect(lv->topLevelItem(row));
        QTest::mouseClick(lv->viewport(), Qt::LeftButton, {}, r.center());
    }
};

}  // namespace zpe::test
