#pragma once

#include <QImage>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

// The desktop services of the workspace: finding applications, their icons, opening
// addresses and starting applications.
class Workspace
{
public:
    // The first bundle whose CFBundleIdentifier matches, searching VT_APP_SEARCH_PATH (colon
    // separated) or else ~/Applications then the local Applications folder, recursively,
    // without descending into packages. Answers are cached and checked before reuse.
    static std::optional<QString> absolutePathForAppBundleWithIdentifier(const QString &bundleID);

    // The icon of a file or bundle at the given size: the bundle's CFBundleIconFile from
    // Contents/Resources (.icns, .png or .svg), else the generic application icon.
    static QImage iconForFile(const QString &path, const QSize &size);

    // The desktop's default handler for an address.
    static bool openURL(const QUrl &url);
    // Starts the bundle's executable with the file as its argument, not waited for.
    static bool openFile(const QString &file, const QString &applicationBundlePath);
    // Starts the bundle's executable with the arguments, not waited for.
    static bool launchApplication(const QString &bundlePath, const QStringList &arguments = {});
    static bool launchAppWithBundleIdentifier(const QString &bundleID);

    // Forgets cached lookups and icons.
    static void invalidateCaches();

private:
    static std::optional<QString> lookUpApplication(const QString &bundleID);
};
