#include "VTProgressSpinner.h"

#include <QPainter>

#include <cmath>

namespace {

constexpr int kSpokes = 12;
constexpr int kStepMs = 80;

} // namespace

VTProgressSpinner::VTProgressSpinner(QWidget *parent) : QWidget(parent)
{
    m_timer.setInterval(kStepMs);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_step = (m_step + 1) % kSpokes;
        update();
    });
    setAttribute(Qt::WA_TransparentForMouseEvents);
    hide();
}

void VTProgressSpinner::startAnimation()
{
    m_timer.start();
    show();
}

void VTProgressSpinner::stopAnimation()
{
    m_timer.stop();
    hide();
}

QSize VTProgressSpinner::sizeHint() const
{
    return QSize(18, 18);
}

void VTProgressSpinner::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal side = std::min(width(), height());
    painter.translate(width() / 2.0, height() / 2.0);
    QColor color = palette().color(QPalette::WindowText);
    QPen pen(color, std::max(1.5, side / 10.0), Qt::SolidLine, Qt::RoundCap);
    for (int i = 0; i < kSpokes; ++i) {
        // The newest spoke is darkest; the trail fades behind it.
        const int age = (m_step - i + kSpokes) % kSpokes;
        color.setAlphaF(1.0 - age / double(kSpokes) * 0.85);
        pen.setColor(color);
        painter.setPen(pen);
        const qreal angle = i * 2 * M_PI / kSpokes;
        const QPointF direction(std::sin(angle), -std::cos(angle));
        painter.drawLine(direction * side * 0.22, direction * side * 0.45);
    }
}
