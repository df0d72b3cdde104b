#pragma once
// What the four tabs share: the document they show and edit, the dialogs,
// the command names and sheets, the status bar and the filter box; and what
// they ask of the window around them (TabHost), which frmMain answers. A tab
// knows no other tab: whatever reaches across tabs goes through the host.
#include "analysis/entries.h"
#include "save/document.h"
#include "sequence/catalogue.h"
#include "sequence/command_sheet.h"
#include "ui/dialogs.h"

#include <QLabel>

namespace zpe {

class DiagramWindow;
class ListFilter;

class TabHost {
public:
    virtual ~TabHost() = default;
    // Lays the shown tab out again (a panel or picture shown or hidden).
    virtual void relayout() = 0;
    // Both pictures and the big diagram drawn from the document as it is now.
    virtual void refreshPictures() = 0;
    // The caption's modified marker follows the document.
    virtual void refreshModified() = 0;
    virtual int selectedTab() const = 0;
    virtual void selectTab(int index) = 0;
    // The big diagram window, when one was opened; nullptr otherwise.
    virtual DiagramWindow* diagram() const = 0;
    // The Formations, Plays and Sequences lists after table entries or new sequences changed; selections stay.
    virtual void refreshEntryLists() = 0;
    // A player's entry (a Plays or Formations cell): his sequence in the editor; pointed at another one.
    virtual void editEntry(const AreaEntry& entry) = 0;
    virtual void pointEntry(const AreaEntry& entry) = 0;
    // The Plays or Formations row of the entry shown, selected, its player's cell current.
    virtual void goToEntry(const AreaEntry& entry) = 0;
    // A play or a slot written into a play or slot file another image can take.
    virtual void exportPlay(int play) = 0;
    virtual void exportSlot(int slot) = 0;
};

struct TabContext {
    Document& doc;
    Dialogs& dialogs;
    const CmdNames& cmdNames;
    CommandSheets& sheets;
    QLabel* status;      // the status bar's text
    ListFilter* filter;  // the filter box over the shown list
    TabHost& host;

    Playbook& pb() const { return doc.pb; }
    // Puts `text` in the status bar.
    void say(const QString& text) const { status->setText(text); }
};

}  // namespace zpe
