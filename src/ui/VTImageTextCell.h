#pragma once

#include <QColor>
#include <QImage>
#include <QStyledItemDelegate>

#include <functional>
#include <optional>

// The table cell with a small image at the left, the title beside it and an optional
// second line (the subtitle) in a small grey font under it. Like a cell it is one object
// for the whole column: the image it draws is the one last given to it, which is set just
// before each row is drawn (see setWillDisplayCell).
//
// The geometry is kept as pure functions in the table's coordinates, where y grows
// downwards (the flipped case).
class VTImageTextCell : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit VTImageTextCell(QObject *parent = nullptr);
    explicit VTImageTextCell(const QImage &image, QObject *parent = nullptr);

    // The image is drawn at its device-independent size.
    QImage image() const { return m_image; }
    void setImage(const QImage &image) { m_image = image; }
    QString subtitle() const { return m_subtitle; }
    void setSubtitle(const QString &subtitle) { m_subtitle = subtitle; }
    QColor subtitleColor() const { return m_subtitleColor; }
    void setSubtitleColor(const QColor &color) { m_subtitleColor = color; }
    QColor textColor() const { return m_textColor; }
    Qt::TextElideMode lineBreakMode() const { return Qt::ElideRight; }

    // Called with the cell and the row's index just before the row is drawn.
    void setWillDisplayCell(std::function<void(VTImageTextCell &, const QModelIndex &)> hook);

    // What the drawing of one row does, step by step.
    struct InteriorLayout
    {
        QRectF imageSlice;  // the strip left of the text, image width + 7
        QPointF imagePoint; // where the image is composited from (its lower-left corner)
        QRectF imageRect;   // the image's rectangle with its top-left corner, as Qt draws it
        QRectF titleFrame;  // where the title is drawn
    };

    static QSizeF cellSize(const QSizeF &superSize, const std::optional<QSizeF> &imageSize);
    static QRectF imageRectForBounds(const QRectF &bounds, const std::optional<QSizeF> &imageSize);
    static QRectF titleRectForBounds(const QRectF &bounds, const std::optional<QSizeF> &imageSize,
                                     const QString &subtitle);
    // The part of the frame a field editor covers when the cell is edited or selected.
    static QRectF editingFrame(const QRectF &frame, const std::optional<QSizeF> &imageSize);
    static InteriorLayout interiorLayout(const QRectF &frame,
                                         const std::optional<QSizeF> &imageSize, bool hasSubtitle,
                                         bool flipped = true);
    // The subtitle's top-left corner: the bottom line of the title frame.
    static QPointF subtitlePoint(const QRectF &titleFrame, qreal subtitleHeight);
    // The subtitle as drawn: cut to what fits in the frame width less 50, with "...".
    static QString shortenedSubtitle(const QString &subtitle, qreal subtitleWidth,
                                     qreal frameWidth);
    static QColor subtitleColorFor(bool highlighted, const QColor &subtitleColor);
    static QFont subtitleFont(const QFont &font);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;

private:
    std::optional<QSizeF> imageSize() const;

    QImage m_image;
    QString m_subtitle;
    QColor m_subtitleColor = Qt::gray;
    QColor m_textColor = Qt::black;
    std::function<void(VTImageTextCell &, const QModelIndex &)> m_willDisplayCell;
};
