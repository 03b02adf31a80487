#pragma once

#include "PlistDict.h"

#include <QString>

#include <optional>

// An application bundle: a folder NAME.app with Contents/Info.plist,
// Contents/MacOS/NAME and Contents/Resources.
class Bundle
{
public:
    // A bundle for an existing folder; no value when there is no folder at the path.
    static std::optional<Bundle> atPath(const QString &path);
    // The bundle that holds the running executable; no value when it runs outside one.
    static std::optional<Bundle> mainBundle();
    // Tests: pretend the running executable lives in this bundle (no value: the real one).
    static void setMainBundlePath(const std::optional<QString> &path);

    // A folder whose extension is app, bundle, framework, plugin or kext.
    static bool isPackage(const QString &path);

    QString bundlePath() const { return m_path; }
    // Contents/Info.plist; empty when missing or unreadable.
    const PlistDict &infoDictionary() const { return m_info; }
    PlistValue objectForInfoDictionaryKey(const QString &key) const;
    std::optional<QString> bundleIdentifier() const;
    // Contents/MacOS/ plus CFBundleExecutable, else the bundle's name without extension.
    QString executablePath() const;
    QString resourcePath() const;
    // A file or folder NAME.TYPE in the resources; no value when it does not exist.
    std::optional<QString> pathForResource(const QString &name, const QString &type) const;

private:
    explicit Bundle(const QString &path);

    QString m_path;
    PlistDict m_info;
};
