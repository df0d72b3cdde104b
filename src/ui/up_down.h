#pragma once
// An up-down control: two arrow buttons stacked, with separate click events.
#include <QWidget>
#include <functional>

class QToolButton;

namespace zpe {

class UpDown : public QWidget {
public:
    explicit UpDown(QWidget* parent);
    std::function<void()> onUpClick;
    std::function<void()> onDownClick;
    QToolButton* upButton() const { return up_; }
    QToolButton* downButton() const { return down_; }

protected:
    void resizeEvent(QResizeEvent*) override;

private:
    QToolButton* up_;
    QToolButton* down_;
};

}  // namespace zpe
