#include "IconViewBox.h"

#include "ui_IconViewBox.h"

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
