#pragma once

#include <QWidget>

class QVBoxLayout;

// A placeholder for the keyboard shortcut panel inside another window (for example a page
// of the preferences window): it loads the panel on creation and holds it once it is shown
// in a window. There is one panel per process, so the last container shown holds it; a
// container that goes away hands it back to its owner.
class VTShortcutKeyContainerView : public QWidget
{
    Q_OBJECT

public:
    explicit VTShortcutKeyContainerView(QWidget *parent = nullptr);
    ~VTShortcutKeyContainerView() override;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void viewDidMoveToWindow();

    QVBoxLayout *m_layout;
};
