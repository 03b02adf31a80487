#pragma once

#include <QSize>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>

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

    // Images belong to the windowed side, which installs the provider of icons (a QImage in
    // the variant) and of addresses; headless commands, which show neither, load no image
    // library at all.
    using IconProvider = QVariant (*)(const QString &path, const QSize &size);
    using URLOpener = bool (*)(const QUrl &url);
    static void setIconProvider(IconProvider provider);
    static void setURLOpener(URLOpener opener);

    // The icon of a file or bundle at the given size, from the provider and cached; none
    // without a provider.
    static QVariant iconForFile(const QString &path, const QSize &size);

    // The desktop's default handler for an address: the provider's, else xdg-open.
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
