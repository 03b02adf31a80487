#include "ClientApps.h"

#include "TestFiles.h"
#include "platform/PropertyList.h"

PlistValue ClientApps::entry(const QString &id, const QStringList &command,
                             const QString &description, std::optional<bool> root)
{
    PlistDict e{{"id", id}, {"command", PlistValue(command)}, {"description", description}};
    if (root) {
        e.insert(QStringLiteral("root"), *root);
    }
    return PlistValue(e);
}

QString ClientApps::make(const QString &folder, const QString &name, const QString &bundleID,
                         const PlistValue &tasks, bool inInfoPlist)
{
    PlistDict info{
        {"CFBundleIdentifier", bundleID}, {"CFBundleName", name}, {"CFBundleExecutable", name}};
    if (inInfoPlist) {
        info.insert(QStringLiteral("VTTasks"), tasks);
    }
    const QString bundle = TestFiles::makeBundle(
        folder, name, info,
        QStringLiteral("printf '%s\\n' \"$*\" >> \"$(dirname \"$0\")/../runs.log\""));
    if (!inInfoPlist) {
        PropertyList::writeXml(PlistValue(PlistDict{{"VTTasks", tasks}}),
                               bundle + QStringLiteral("/Contents/VTTasks.plist"));
    }
    return bundle;
}

QString ClientApps::makeQuill(const QString &folder)
{
    return make(folder, "Quill", "com.vantreel.Quill",
                PlistValue(PlistArray{entry("backup", {"-backup"}, "Back up the library"),
                                      entry("clean", {"-clean", "-quiet"}, "Clean caches"),
                                      entry("repair", {"-repair"}, "Repair permissions", true)}));
}
