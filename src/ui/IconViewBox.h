#pragma once

#include <QFrame>

#include <memory>

namespace Ui {
class IconViewBox;
}

// One item of the client-application grid: the application's icon above its name. It
// never takes a mouse event, neither it nor anything inside it, so every click reaches the
// grid beneath, which selects the item. The grid tells it whether it is selected and
// whether it carries the keyboard focus, which it shows in the desktop's colours.
class IconViewBox : public QFrame
{
    Q_OBJECT

public:
    explicit IconViewBox(QWidget *parent = nullptr);
    ~IconViewBox() override;

    void setIcon(const QImage &icon);
    void setTitle(const QString &title);
    QString title() const { return m_title; }
    void setSelected(bool selected);
    bool isSelected() const { return m_selected; }
    void setFocusShown(bool shown);
    bool isFocusShown() const { return m_focusShown; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    std::unique_ptr<Ui::IconViewBox> m_ui;
    QString m_title;
    bool m_selected = false;
    bool m_focusShown = false;
};
