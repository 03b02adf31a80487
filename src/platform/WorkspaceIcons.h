#pragma once

#include <QImage>
#include <QSize>
#include <QString>

// The images of the workspace, which only the windowed side links: bundle icons from
// CFBundleIconFile in Contents/Resources (.icns, .png or .svg), else the generic application
// icon, and the desktop's handler of addresses.
class WorkspaceIcons
{
public:
    // Makes Workspace::iconForFile and Workspace::openURL use these.
    static void install();

    // The icon at exactly the given size, uncached (Workspace caches it).
    static QImage iconForFile(const QString &path, const QSize &size);
};
