#include "VTImageTextCell.h"

#include <QApplication>
#include <QPainter>

#include <cmath>

namespace {

// The title's assumed line height, against which a single line is centred on the icon.
constexpr qreal kTitleLineHeight = 12;
constexpr qreal kImageInset = 3;
constexpr qreal kImageSliceExtra = 7;
constexpr qreal kSubtitleReserve = 50;

} // namespace

VTImageTextCell::VTImageTextCell(QObject *parent) : QStyledItemDelegate(parent) {}

VTImageTextCell::VTImageTextCell(const QImage &image, QObject *parent)
    : QStyledItemDelegate(parent), m_image(image)
{}

void VTImageTextCell::setWillDisplayCell(
    std::function<void(VTImageTextCell &, const QModelIndex &)> hook)
{
    m_willDisplayCell = std::move(hook);
}

std::optional<QSizeF> VTImageTextCell::imageSize() const
{
    if (m_image.isNull()) {
        return std::nullopt;
    }
    return m_image.deviceIndependentSize();
}

QSizeF VTImageTextCell::cellSize(const QSizeF &superSize, const std::optional<QSizeF> &imageSize)
{
    const qreal extra = imageSize ? imageSize->width() + kImageInset : kImageInset;
    return QSizeF(superSize.width() + extra, superSize.height());
}

QRectF VTImageTextCell::imageRectForBounds(const QRectF &bounds,
                                           const std::optional<QSizeF> &imageSize)
{
    if (!imageSize) {
        return QRectF(0, 0, 0, 0);
    }
    // The y comes from the heights alone, without the bounds' own y.
    return QRectF(bounds.x() + kImageInset,
                  std::ceil((bounds.height() - imageSize->height()) * 0.5), imageSize->width(),
                  imageSize->height());
}

QRectF VTImageTextCell::titleRectForBounds(const QRectF &bounds,
                                           const std::optional<QSizeF> &imageSize,
                                           const QString &subtitle)
{
    if (!imageSize) {
        return QRectF(0, 0, 0, 0);
    }
    // The vertical offset is taken from the image's width, not its height.
    const qreal width = imageSize->width();
    const qreal y = subtitle.isEmpty() ? bounds.y() - width : bounds.y() - (width + kImageInset);
    return QRectF(bounds.x() + width + kImageInset, y, bounds.width() - (width + kImageInset),
                  bounds.height());
}

QRectF VTImageTextCell::editingFrame(const QRectF &frame, const std::optional<QSizeF> &imageSize)
{
    const qreal slice =
        std::min(frame.width(), (imageSize ? imageSize->width() : 0) + kImageSliceExtra);
    return QRectF(frame.x() + slice, frame.y(), frame.width() - slice, frame.height());
}

VTImageTextCell::InteriorLayout
VTImageTextCell::interiorLayout(const QRectF &frame, const std::optional<QSizeF> &imageSize,
                                bool hasSubtitle, bool flipped)
{
    InteriorLayout layout;
    QRectF remainder = frame;
    if (imageSize) {
        const qreal sliceWidth = std::min(frame.width(), imageSize->width() + kImageSliceExtra);
        layout.imageSlice = QRectF(frame.x(), frame.y(), sliceWidth, frame.height());
        remainder =
            QRectF(frame.x() + sliceWidth, frame.y(), frame.width() - sliceWidth, frame.height());
        const qreal height = imageSize->height();
        const qreal offset = flipped ? std::ceil((remainder.height() + height) * 0.5)
                                     : std::ceil((remainder.height() - height) * 0.5);
        layout.imagePoint =
            QPointF(layout.imageSlice.x() + kImageInset, layout.imageSlice.y() + offset);
        // Composited from its lower-left corner: in a flipped view the top lies above it.
        const qreal top = flipped ? layout.imagePoint.y() - height : layout.imagePoint.y();
        layout.imageRect = QRectF(QPointF(layout.imagePoint.x(), top), *imageSize);
        if (!hasSubtitle) {
            const qreal shift = (height - kTitleLineHeight) * 0.5;
            remainder.setY(remainder.y() + shift);
        }
    }
    layout.titleFrame = remainder;
    return layout;
}

QPointF VTImageTextCell::subtitlePoint(const QRectF &titleFrame, qreal subtitleHeight)
{
    return QPointF(titleFrame.x() + 2, titleFrame.y() + titleFrame.height() - subtitleHeight - 1);
}

QString VTImageTextCell::shortenedSubtitle(const QString &subtitle, qreal subtitleWidth,
                                           qreal frameWidth)
{
    const qreal available = frameWidth - kSubtitleReserve;
    if (subtitle.isEmpty() || subtitleWidth <= available) {
        return subtitle;
    }
    // The average character width decides how many characters fit. A cell too narrow for
    // any of them shows the three dots alone.
    const qreal average = subtitleWidth / subtitle.size();
    const qreal fitting = available > 0 ? std::floor(available / average) : 0;
    const int count = static_cast<int>(std::clamp<qreal>(fitting, 0, subtitle.size()));
    return subtitle.left(count) + QStringLiteral("...");
}

QColor VTImageTextCell::subtitleColorFor(bool highlighted, const QColor &subtitleColor)
{
    return highlighted ? QColor(Qt::white) : subtitleColor;
}

QFont VTImageTextCell::subtitleFont(const QFont &font)
{
    // The small system size is two points below the regular one.
    QFont small = font;
    if (font.pointSizeF() > 0) {
        small.setPointSizeF(std::max(6.0, font.pointSizeF() - 2));
    } else if (font.pixelSize() > 0) {
        small.setPixelSize(std::max(8, font.pixelSize() - 2));
    }
    return small;
}

void VTImageTextCell::paint(QPainter *painter, const QStyleOptionViewItem &option,
                            const QModelIndex &index) const
{
    if (m_willDisplayCell) {
        // The cell is shared by every row, as a column's cell is: each row first sets what it
        // draws. The object itself is not const; only this interface is.
        m_willDisplayCell(const_cast<VTImageTextCell &>(*this), index);
    }

    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    const QString title = opt.text;
    opt.text.clear();
    opt.icon = QIcon();
    opt.features &= ~QStyleOptionViewItem::HasDecoration;
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, widget);

    const bool highlighted = opt.state & QStyle::State_Selected;
    const InteriorLayout layout =
        interiorLayout(QRectF(opt.rect), imageSize(), !m_subtitle.isEmpty(), true);

    painter->save();
    painter->setClipRect(opt.rect);
    if (!m_image.isNull()) {
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawImage(layout.imageRect, m_image);
    }

    // The title, drawn as a text cell draws it: from the top of its frame, inset by two
    // points at the sides and one at the top, cut at the tail.
    const QRectF titleArea = layout.titleFrame.adjusted(2, 1, -2, 0);
    const QFontMetricsF metrics(opt.font);
    painter->setFont(opt.font);
    // Black is the ordinary text colour of a light desktop; on a dark one it stands for the
    // palette's text colour, which stays readable.
    const QColor textColor =
        m_textColor == QColor(Qt::black) ? opt.palette.color(QPalette::Text) : m_textColor;
    painter->setPen(highlighted ? opt.palette.color(QPalette::Active, QPalette::HighlightedText)
                                : textColor);
    painter->drawText(titleArea, Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine,
                      metrics.elidedText(title, lineBreakMode(), titleArea.width()));

    if (!m_subtitle.isEmpty()) {
        const QFont font = subtitleFont(opt.font);
        const QFontMetricsF small(font);
        const QSizeF size(small.horizontalAdvance(m_subtitle), small.height());
        const QPointF point = subtitlePoint(layout.titleFrame, size.height());
        const QString text = shortenedSubtitle(m_subtitle, size.width(), layout.titleFrame.width());
        painter->setFont(font);
        painter->setPen(subtitleColorFor(highlighted, m_subtitleColor));
        painter->drawText(QRectF(point, QSizeF(small.horizontalAdvance(text) + 1, size.height())),
                          Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine, text);
    }
    painter->restore();
}

QSize VTImageTextCell::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt(option);
    initStyleOption(&opt, index);
    opt.icon = QIcon();
    opt.features &= ~QStyleOptionViewItem::HasDecoration;
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    const QSize base = style->sizeFromContents(QStyle::CT_ItemViewItem, &opt, QSize(), widget);
    return cellSize(QSizeF(base), imageSize()).toSize();
}

void VTImageTextCell::updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                                           const QModelIndex &index) const
{
    Q_UNUSED(index);
    editor->setGeometry(editingFrame(QRectF(option.rect), imageSize()).toRect());
}
