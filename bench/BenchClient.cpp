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

void BenchClient::writeClients(const QString &applications, int clients)
{
    for (int c = 0; c < clients; ++c) {
        const QString name = QStringLiteral("Client%1").arg(c);
        write(applications, name, QStringLiteral("com.vantreel.") + name, 5);
    }
}

QStringList BenchClient::writeJobs(const QString &agents, const QString &applications, int clients,
                                   int count)
{
    QStringList files;
    QDir().mkpath(agents);
    for (int j = 0; j < count; ++j) {
        const QString name = QStringLiteral("Client%1").arg(j % clients);
        PlistDict job;
        const QString file =
            agents + QStringLiteral("/com.vantreel.ScheduledTask%1.plist").arg(j + 1);
        job.insert(QStringLiteral("Label"),
                   QStringLiteral("com.vantreel.ScheduledTask%1").arg(j + 1));
        job.insert(QStringLiteral("Program"), applications + QLatin1Char('/') + name +
                                                  QStringLiteral(".app/Contents/MacOS/") + name);
        job.insert(QStringLiteral("ProgramArguments"),
                   PlistValue(QStringList{name, QStringLiteral("-task"), QString::number(j % 5)}));
        job.insert(QStringLiteral("LowPriorityIO"), true);
        job.insert(QStringLiteral("Nice"), 15);
        PlistDict when;
        when.insert(QStringLiteral("Hour"), 7);
        when.insert(QStringLiteral("Minute"), 0);
        job.insert(QStringLiteral("StartCalendarInterval"),
                   PlistValue(PlistArray{PlistValue(when)}));
        PlistDict environment;
        environment.insert(QStringLiteral("VTAppBundleID"), QStringLiteral("com.vantreel.") + name);
        environment.insert(QStringLiteral("VTCommandID"), QStringLiteral("task%1").arg(j % 5));
        job.insert(QStringLiteral("EnvironmentVariables"), PlistValue(environment));
        PropertyList::writeXml(PlistValue(job), file);
        files << file;
    }
    return files;
}
