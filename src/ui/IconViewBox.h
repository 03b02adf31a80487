#pragma once

#include <QFrame>

#include <memory>

namespace Ui {
class IconViewBox;
}

// One item of the client-application grid: the application's icon above its name. It
// never takes a mouse event, neither it nor anything inside it, so every click reaches the
// grid beneath, which selects the item.
class IconViewBox : public QFrame
{
    Q_OBJECT

public:
    explicit IconViewBox(QWidget *parent = nullptr);
    ~IconViewBox() override;

    void setIcon(const QImage &icon);
    void setTitle(const QString &title);
    QString title() const { return m_title; }

private:
    std::unique_ptr<Ui::IconViewBox> m_ui;
    QString m_title;
};
