#include "ClientApps.h"

#include "TestFiles.h"
#include "platform/PropertyList.h"

PlistValue ClientApps::entry(const QString &id, const QStringList &command,
                             const QString &description, std::optional<bool> root)
{
    PlistDict e;
    e.insert(QStringLiteral("id"), id);
    e.insert(QStringLiteral("command"), PlistValue(command));
    e.insert(QStringLiteral("description"), description);
    if (root) {
        e.insert(QStringLiteral("root"), *root);
    }
    return PlistValue(e);
}

QString ClientApps::make(const QString &folder, const QString &name, const QString &bundleID,
                         const PlistValue &tasks, bool inInfoPlist)
{
    PlistDict info;
    info.insert(QStringLiteral("CFBundleIdentifier"), bundleID);
    info.insert(QStringLiteral("CFBundleName"), name);
    info.insert(QStringLiteral("CFBundleExecutable"), name);
    if (inInfoPlist) {
        info.insert(QStringLiteral("VTTasks"), tasks);
    }
    const QString bundle = TestFiles::makeBundle(
        folder, name, info,
        QStringLiteral("printf '%s\\n' \"$*\" >> \"$(dirname \"$0\")/../runs.log\""));
    if (!inInfoPlist) {
        PlistDict catalogue;
        catalogue.insert(QStringLiteral("VTTasks"), tasks);
        PropertyList::writeXml(PlistValue(catalogue),
                               bundle + QStringLiteral("/Contents/VTTasks.plist"));
    }
    return bundle;
}

QString ClientApps::makeQuill(const QString &folder)
{
    const PlistArray tasks{
        entry(QStringLiteral("backup"), {QStringLiteral("-backup")},
              QStringLiteral("Back up the library")),
        entry(QStringLiteral("clean"), {QStringLiteral("-clean"), QStringLiteral("-quiet")},
              QStringLiteral("Clean caches")),
        entry(QStringLiteral("repair"), {QStringLiteral("-repair")},
              QStringLiteral("Repair permissions"), true),
    };
    return make(folder, QStringLiteral("Quill"), QStringLiteral("com.vantreel.Quill"),
                PlistValue(tasks));
}
