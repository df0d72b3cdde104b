#pragma once
// Message boxes and file dialogs go through this interface: the window uses
// QtDialogs, tests a scripted fake that records each box.
#include <QString>
#include <optional>

class QImage;
class QWidget;

namespace zpe {

enum class MsgIcon { None, Information, Exclamation, Question };
enum class MsgButtons { Ok, YesNo, YesNoCancel, SaveDiscardCancel, ApplyDiscardCancel, AllCopyCancel };
enum class MsgAnswer { Ok, Yes, No, Save, Discard, Cancel, Apply, All, Copy };

struct MessageBoxSpec {
    QString text;
    QString title;
    MsgIcon icon = MsgIcon::None;
    MsgButtons buttons = MsgButtons::Ok;
    MsgAnswer defaultButton = MsgAnswer::Ok;
};

// The filter of the open and save dialogs, in the "text|pattern|..." form.
inline const char* const kRomFilter = "NES ROMS (*.nes)|*.nes|All Files|*.*";
// The default title of message boxes without one of their own (About).
inline const char* const kProgramName = "Zentrel Playbook Editor";

class Dialogs {
public:
    virtual ~Dialogs() = default;
    // Shows a modal box and returns the button pressed.
    virtual MsgAnswer message(const MessageBoxSpec& box) = 0;
    // Open and save dialogs with a "text|pattern|..." filter; none when cancelled.
    virtual std::optional<QString> openFile(const QString& filter) = 0;
    // `suggested`: the file name the dialog proposes ("" for none); `chosenFilter`,
    // when given, receives which of the filter's entries was chosen (from 0);
    // `title`: what the dialog is for ("Export Patch"; "" for the platform's own).
    virtual std::optional<QString> saveFile(const QString& filter, const QString& suggested = QString(), int* chosenFilter = nullptr,
                                            const QString& title = QString()) = 0;
    // A question with three buttons: `allText` (MsgAnswer::All), `copyText`
    // (MsgAnswer::Copy, the default) and Cancel (also Escape).
    virtual MsgAnswer allOrCopy(const QString& text, const QString& title, const QString& allText, const QString& copyText) = 0;
    // A list to pick one of `items` from, with a filter box; the chosen index,
    // none when cancelled. `current` is selected at first.
    virtual std::optional<int> choose(const QString& title, const QString& prompt, const QStringList& items, int current = 0) = 0;
    // Shows a long text read-only in a resizable window the user can copy from.
    virtual void showText(const QString& title, const QString& text) = 0;
    // A folder to choose (`title` says what for), starting in `start`; none when cancelled.
    virtual std::optional<QString> openFolder(const QString& title, const QString& start) = 0;
    // Shows `picture` with `text` under it and OK / Cancel; true for OK.
    virtual bool preview(const QString& title, const QString& text, const QImage& picture) = 0;
};

// "NES ROMS (*.nes)|*.nes|All Files|*.*" in Qt's form: "NES ROMS (*.nes);;All Files (*)".
QString qtFilter(const QString& filter);

class QtDialogs : public Dialogs {
public:
    explicit QtDialogs(QWidget* parent = nullptr) : parent_(parent) {}
    // The window the boxes and dialogs belong to.
    void setParent(QWidget* parent) { parent_ = parent; }
    MsgAnswer message(const MessageBoxSpec& box) override;
    std::optional<QString> openFile(const QString& filter) override;
    std::optional<QString> saveFile(const QString& filter, const QString& suggested = QString(), int* chosenFilter = nullptr,
                                    const QString& title = QString()) override;
    void showText(const QString& title, const QString& text) override;
    std::optional<int> choose(const QString& title, const QString& prompt, const QStringList& items, int current = 0) override;
    MsgAnswer allOrCopy(const QString& text, const QString& title, const QString& allText, const QString& copyText) override;
    bool preview(const QString& title, const QString& text, const QImage& picture) override;
    std::optional<QString> openFolder(const QString& title, const QString& start) override;

private:
    QWidget* parent_;
};

}  // namespace zpe
