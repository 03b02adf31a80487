#include "IconViewBox.h"

#include "ui_IconViewBox.h"

#include <QPainter>
#include <QPixmap>

IconViewBox::IconViewBox(QWidget *parent)
    : QFrame(parent), m_ui(std::make_unique<Ui::IconViewBox>())
{
    m_ui->setupUi(this);
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

IconViewBox::~IconViewBox() = default;

void IconViewBox::setIcon(const QImage &icon)
{
    m_ui->iconLabel->setPixmap(QPixmap::fromImage(icon));
}

void IconViewBox::setTitle(const QString &title)
{
    m_title = title;
    const QFontMetrics metrics(m_ui->nameLabel->font());
    m_ui->nameLabel->setText(metrics.elidedText(title, Qt::ElideMiddle, width() - 8));
}

void IconViewBox::setSelected(bool selected)
{
    if (selected == m_selected) {
        return;
    }
    m_selected = selected;
    m_ui->nameLabel->setForegroundRole(selected ? QPalette::HighlightedText : QPalette::Text);
    update();
}

void IconViewBox::setFocusShown(bool shown)
{
    if (shown == m_focusShown) {
        return;
    }
    m_focusShown = shown;
    update();
}

void IconViewBox::paintEvent(QPaintEvent *event)
{
    QFrame::paintEvent(event);
    QPainter painter(this);
    const QRect area = rect().adjusted(1, 1, -1, -1);
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_selected) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(palette().brush(QPalette::Highlight));
        painter.drawRoundedRect(area, 5, 5);
    }
    if (m_focusShown) {
        // A ring that stays visible on the highlight as well as beside it.
        QPen pen(palette().color(m_selected ? QPalette::HighlightedText : QPalette::Highlight));
        pen.setWidth(2);
        painter.setPen(pen);
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(QRectF(area).adjusted(2, 2, -2, -2), 4, 4);
    }
}
