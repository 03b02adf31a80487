#pragma once

#include <QTimer>
#include <QWidget>

// An indeterminate progress indicator of the spinning kind: visible only while it turns.
class VTProgressSpinner : public QWidget
{
    Q_OBJECT

public:
    explicit VTProgressSpinner(QWidget *parent = nullptr);

    void startAnimation();
    void stopAnimation();
    bool isAnimating() const { return m_timer.isActive(); }
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QTimer m_timer;
    int m_step = 0;
};
