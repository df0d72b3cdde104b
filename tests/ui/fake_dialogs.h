#pragma once
// A scripted stand-in for the window's message boxes and file dialogs: it
// records every box and answers with what the test queued.
#include "ui/dialogs.h"

#include <QStringList>
#include <deque>
#include <vector>

namespace zpe::test {

class FakeDialogs : public Dialogs {
public:
    std::vector<MessageBoxSpec> boxes;
    std::deque<MsgAnswer> answers;               // next answers; the box's default when empty
    std::deque<std::optional<QString>> files;    // next open/save dialog answers; cancel when empty
    QStringList filters;

    MsgAnswer message(const MessageBoxSpec& box) override {
        boxes.push_back(box);
        if (answers.empty()) return box.defaultButton;
        const MsgAnswer a = answers.front();
        answers.pop_front();
        return a;
    }
    std::optional<QString> openFile(const QString& filter) override { return next(filter); }
    // Answered from `files` too, as an open dialog is; recorded as the filter "folder".
    std::optional<QString> openFolder(const QString&, const QString&) override { return next("folder"); }
    std::optional<QString> saveFile(const QString& filter, const QString& suggested = QString(), int* chosenFilter = nullptr,
                                    const QString& title = QString()) override {
        suggestions << suggested;
        saveTitles << title;
        if (chosenFilter) *chosenFilter = filterChoice;
        return next(filter);
    }
    int filterChoice = 0;  // which filter entry each save dialog reports as chosen
    QStringList suggestions;  // the file name each save dialog proposed
    QStringList saveTitles;   // and its title
    std::vector<std::pair<QString, QString>> texts;  // title and text of each text window
    void showText(const QString& title, const QString& text) override { texts.emplace_back(title, text); }

    // Recorded as a box with AllCopyCancel; answered from `answers`, Copy when empty.
    MsgAnswer allOrCopy(const QString& text, const QString& title, const QString& allText, const QString& copyText) override {
        buttonTexts << allText << copyText;
        return message({text, title, MsgIcon::Question, MsgButtons::AllCopyCancel, MsgAnswer::Copy});
    }
    QStringList buttonTexts;  // the first two captions of each allOrCopy()
    std::deque<std::optional<int>> choices;  // next choose() answers; cancel when empty
    std::vector<QStringList> offered;        // the items of each choose()
    std::optional<int> choose(const QString&, const QString&, const QStringList& items, int = 0) override {
        offered.push_back(items);
        if (choices.empty()) return std::nullopt;
        const auto c = choices.front();
        choices.pop_front();
        return c;
    }

    std::vector<std::pair<QString, QString>> previews;  // title and text of each picture shown
    std::deque<bool> previewAnswers;                    // next answers; OK when empty
    bool preview(const QString& title, const QString& text, const QImage&) override {
        previews.emplace_back(title, text);
        if (previewAnswers.empty()) return true;
        const bool ok = previewAnswers.front();
        previewAnswers.pop_front();
        return ok;
    }

private:
    std::optional<QString> next(const QString& filter) {
        filters << filter;
        if (files.empty()) return std::nullopt;
        auto f = files.front();
        files.pop_front();
        return f;
    }
};

}  // namespace zpe::test
