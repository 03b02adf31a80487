#include "BenchClient.h"

#include "platform/PlistDict.h"
#include "platform/PropertyList.h"

#include <QDir>
#include <QFile>

QString BenchClient::write(const QString &folder, const QString &name, const QString &bundleID,
                           int tasks)
{
    const QString bundle = folder + QLatin1Char('/') + name + QStringLiteral(".app");
    QDir().mkpath(bundle + QStringLiteral("/Contents/MacOS"));
    QDir().mkpath(bundle + QStringLiteral("/Contents/Resources"));
    PlistDict info;
    info.insert(QStringLiteral("CFBundleIdentifier"), bundleID);
    info.insert(QStringLiteral("CFBundleName"), name);
    PropertyList::writeXml(PlistValue(info), bundle + QStringLiteral("/Contents/Info.plist"));
    QFile exe(bundle + QStringLiteral("/Contents/MacOS/") + name);
    exe.open(QIODevice::WriteOnly);
    exe.write("#!/bin/sh\n");
    exe.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (tasks <= 0) {
        return bundle;
    }
    PlistArray entries;
    for (int t = 0; t < tasks; ++t) {
        PlistDict entry;
        entry.insert(QStringLiteral("id"), QStringLiteral("task%1").arg(t));
        entry.insert(QStringLiteral("command"),
                     PlistValue(QStringList{QStringLiteral("-task"), QString::number(t)}));
        entry.insert(QStringLiteral("description"), QStringLiteral("%1 task %2").arg(name).arg(t));
        entries.emplace_back(entry);
    }
    PlistDict catalogue;
    catalogue.insert(QStringLiteral("VTTasks"), PlistValue(entries));
    PropertyList::writeXml(PlistValue(catalogue),
                           bundle + QStringLiteral("/Contents/VTTasks.plist"));
    return bundle;
}
