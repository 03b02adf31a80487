#include "WorkspaceIcons.h"

#include "Bundle.h"
#include "FileNames.h"
#include "Workspace.h"

#include <QDesktopServices>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QIcon>
#include <QImageReader>
#include <QPainter>
#include <QPainterPath>
#include <QThread>
#include <QVariant>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The image scaled to fit the size, keeping its proportions, centred on a transparent
// square of exactly that size.
QImage fitted(const QImage &image, const QSize &size)
{
    QImage scaled = image.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation)
                        .convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (scaled.size() == size) {
        return scaled;
    }
    QImage canvas(size, QImage::Format_ARGB32_Premultiplied);
    canvas.fill(Qt::transparent);
    QPainter painter(&canvas);
    painter.drawImage((size.width() - scaled.width()) / 2, (size.height() - scaled.height()) / 2,
                      scaled);
    painter.end();
    return canvas;
}

QImage loadImage(const QString &file, const QSize &size)
{
    // Opened by its bytes, and only when it is a plain file: a FIFO must not block.
    const int fd = ::open(FileNames::encode(file).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat st
    {};
    QFile device;
    if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        !device.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        if (fd >= 0) {
            ::close(fd);
        }
        return QImage();
    }
    QImageReader reader(&device, QFileInfo(file).suffix().toLower().toLatin1());
    if (!reader.canRead()) {
        return QImage();
    }
    // .icns files hold several sizes; take the largest and scale it down.
    QImage best;
    do {
        QImage frame = reader.read();
        if (!frame.isNull() && (best.isNull() || frame.width() > best.width())) {
            best = frame;
        }
    } while (reader.jumpToNextImage());
    if (best.isNull()) {
        return best;
    }
    return fitted(best, size);
}

QImage bundleIcon(const QString &path, const QSize &size)
{
    const auto bundle = Bundle::atPath(path);
    if (!bundle) {
        return QImage();
    }
    const QString iconFile =
        bundle->objectForInfoDictionaryKey(QStringLiteral("CFBundleIconFile")).string();
    if (iconFile.isEmpty() || iconFile.contains(QLatin1Char('/'))) {
        return QImage();
    }
    const QString base = bundle->resourcePath() + QLatin1Char('/') + iconFile;
    for (const char *ext : {"", ".icns", ".png", ".svg"}) {
        const QString candidate = base + QLatin1String(ext);
        if (FileNames::exists(candidate) && !FileNames::isDirectory(candidate)) {
            QImage image = loadImage(candidate, size);
            if (!image.isNull()) {
                return image;
            }
        }
    }
    return QImage();
}

// The generic application icon: the icon theme's when a desktop session runs, else a
// plain drawn tile, so that headless runs never depend on a theme.
QImage genericIcon(const QSize &size)
{
    // Icon themes and pixmaps belong to the GUI thread; elsewhere (the discovery of client
    // applications runs on its own thread) the drawn tile stands in.
    QCoreApplication *app = QCoreApplication::instance();
    if (qobject_cast<QGuiApplication *>(app) && QThread::currentThread() == app->thread()) {
        const QIcon themed = QIcon::fromTheme(QStringLiteral("application-x-executable"));
        if (!themed.isNull()) {
            const QImage image = themed.pixmap(size).toImage();
            if (!image.isNull()) {
                return fitted(image, size);
            }
        }
    }
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal w = size.width();
    const qreal h = size.height();
    QPainterPath tile;
    tile.addRoundedRect(QRectF(w * 0.08, h * 0.08, w * 0.84, h * 0.84), w * 0.18, h * 0.18);
    painter.fillPath(tile, QColor(0x5b, 0x7d, 0xb1));
    painter.fillRect(QRectF(w * 0.08, h * 0.08, w * 0.84, h * 0.2), QColor(0x3d, 0x5a, 0x88));
    painter.fillRect(QRectF(w * 0.25, h * 0.42, w * 0.5, h * 0.08), QColor(0xee, 0xf2, 0xf8));
    painter.fillRect(QRectF(w * 0.25, h * 0.58, w * 0.35, h * 0.08), QColor(0xee, 0xf2, 0xf8));
    return image;
}

QVariant provideIcon(const QString &path, const QSize &size)
{
    return QVariant::fromValue(WorkspaceIcons::iconForFile(path, size));
}

} // namespace

void WorkspaceIcons::install()
{
    Workspace::setIconProvider(&provideIcon);
    Workspace::setURLOpener(&QDesktopServices::openUrl);
}

QImage WorkspaceIcons::iconForFile(const QString &path, const QSize &size)
{
    QImage image = Bundle::isPackage(path) ? bundleIcon(path, size) : QImage();
    return image.isNull() ? genericIcon(size) : image;
}
