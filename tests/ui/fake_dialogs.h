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
    std::optional<QString> saveFile(const QString& filter, const QString& suggested = QString()) override {
        suggestions << suggested;
        return next(filter);
    }
    QStringList suggestions;  // the file name each save dialog proposed
    std::vector<std::pair<QString, QString>> texts;  // title and text of each text window
    void showText(const QString& title, const QString& text) override { texts.emplace_back(title, text); }

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
