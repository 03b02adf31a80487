#include "VTImages.h"

#include "platform/Bundle.h"
#include "platform/PathString.h"

#include <QFileInfo>
#include <QHash>
#include <QPainter>
#include <QPainterPath>

#include <functional>

static void initBuiltInImages()
{
    Q_INIT_RESOURCE(KairoPlannerImages);
}

namespace {

QString builtInPath(const QString &name)
{
    // The application icon is built in as a PNG: the .icns reader is a plugin that may
    // be missing.
    const QString base = PathString::deletingPathExtension(name);
    for (const QString &candidate : {name, base + QStringLiteral(".png")}) {
        const QString path = QStringLiteral(":/images/") + candidate;
        if (QFileInfo::exists(path)) {
            return path;
        }
    }
    return QString();
}

QIcon loadIcon(const QString &path)
{
    QIcon icon(path);
    // An icon whose file cannot be decoded has no sizes.
    return icon.availableSizes().isEmpty() && icon.pixmap(32).isNull() ? QIcon() : icon;
}

// A round badge in the style of the application's own images, with a white glyph.
QImage badge(const QColor &color, int size, const std::function<void(QPainter &, qreal)> &glyph)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    QLinearGradient fill(0, 0, 0, s);
    fill.setColorAt(0, color.lighter(125));
    fill.setColorAt(1, color.darker(110));
    painter.setPen(QPen(color.darker(135), s / 32.0));
    painter.setBrush(fill);
    painter.drawEllipse(QRectF(s * 0.06, s * 0.06, s * 0.88, s * 0.88));
    painter.setPen(QPen(Qt::white, s * 0.11, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    glyph(painter, s);
    return image;
}

QIcon drawnIcon(const QString &name)
{
    QIcon icon;
    for (int size : {16, 24, 32, 48, 64}) {
        QImage image;
        if (name == QLatin1String("NewTask")) {
            image = badge(QColor(0x3f, 0xa3, 0x4d), size, [](QPainter &p, qreal s) {
                p.drawLine(QPointF(s * 0.5, s * 0.28), QPointF(s * 0.5, s * 0.72));
                p.drawLine(QPointF(s * 0.28, s * 0.5), QPointF(s * 0.72, s * 0.5));
            });
        } else if (name == QLatin1String("EditTask")) {
            image = badge(QColor(0x2f, 0x7d, 0xd1), size, [](QPainter &p, qreal s) {
                // A pencil: a slanted stroke with a pointed tip.
                p.drawLine(QPointF(s * 0.36, s * 0.64), QPointF(s * 0.66, s * 0.34));
                QPainterPath tip;
                tip.moveTo(s * 0.27, s * 0.73);
                tip.lineTo(s * 0.31, s * 0.58);
                tip.lineTo(s * 0.42, s * 0.69);
                tip.closeSubpath();
                p.fillPath(tip, Qt::white);
            });
        } else if (name == QLatin1String("DeleteTask")) {
            // Red, not grey: a grey badge reads as a disabled one.
            image = badge(QColor(0xd0, 0x43, 0x3a), size, [](QPainter &p, qreal s) {
                p.drawLine(QPointF(s * 0.28, s * 0.5), QPointF(s * 0.72, s * 0.5));
            });
        } else {
            return QIcon();
        }
        icon.addPixmap(QPixmap::fromImage(image));
    }
    return icon;
}

} // namespace

QIcon VTImages::imageNamed(const QString &name)
{
    static QHash<QString, QIcon> cache;
    if (const auto hit = cache.constFind(name); hit != cache.constEnd()) {
        return *hit;
    }
    QIcon icon;
    if (const auto main = Bundle::mainBundle()) {
        const QString base = PathString::deletingPathExtension(name);
        const QString type = PathString::pathExtension(name);
        if (const auto path = main->pathForResource(base, type)) {
            icon = loadIcon(*path);
        }
    }
    if (icon.isNull()) {
        initBuiltInImages();
        const QString path = builtInPath(name);
        if (!path.isEmpty()) {
            icon = loadIcon(path);
        }
    }
    cache.insert(name, icon);
    return icon;
}

QIcon VTImages::applicationIcon()
{
    return imageNamed(QStringLiteral("KairoPlanner.icns"));
}

QIcon VTImages::toolbarImage(const QString &name)
{
    static QHash<QString, QIcon> cache;
    if (const auto hit = cache.constFind(name); hit != cache.constEnd()) {
        return *hit;
    }
    const QIcon icon = drawnIcon(name);
    cache.insert(name, icon);
    return icon;
}
