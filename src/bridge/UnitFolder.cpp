#include "UnitFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <unistd.h>

QString UnitFolder::filePath(const QString &unitName) const
{
    return m_path + QLatin1Char('/') + unitName;
}

UnitFolder::State UnitFolder::state(const QString &unitName) const
{
    const QFileInfo info(filePath(unitName));
    if (!info.exists() && !info.isSymLink()) {
        return State::Missing;
    }
    // A link (as "systemctl link" makes) or anything unreadable is not ours either.
    if (info.isSymLink() || !info.isFile()) {
        return State::Foreign;
    }
    return UnitHeader::hasMarker(text(unitName)) ? State::Ours : State::Foreign;
}

QString UnitFolder::text(const QString &unitName) const
{
    QFile file(filePath(unitName));
    if (!file.open(QIODevice::ReadOnly)) {
        return QString();
    }
    return QString::fromUtf8(file.readAll());
}

std::optional<UnitHeader> UnitFolder::header(const QString &unitName) const
{
    if (state(unitName) != State::Ours) {
        return std::nullopt;
    }
    return UnitHeader::parse(text(unitName));
}

QStringList UnitFolder::jobServices() const
{
    QStringList services;
    const QStringList names =
        QDir(m_path).entryList({QStringLiteral("*.service")}, QDir::Files, QDir::Name);
    for (const QString &name : names) {
        if (header(name)) {
            services.append(name);
        }
    }
    return services;
}

bool UnitFolder::write(const QString &unitName, const QString &text, QString *error) const
{
    const QString target = filePath(unitName);
    if (state(unitName) == State::Foreign) {
        *error =
            QStringLiteral("kairo-launchctl: %1 was not written by kairo-launchctl; it is left "
                           "as it is")
                .arg(target);
        return false;
    }
    if (!makeFolder()) {
        *error = QStringLiteral("kairo-launchctl: cannot create the folder %1").arg(m_path);
        return false;
    }
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly)) {
        *error =
            QStringLiteral("kairo-launchctl: cannot write %1: %2").arg(target, file.errorString());
        return false;
    }
    file.write(text.toUtf8());
    if (!file.commit()) {
        *error =
            QStringLiteral("kairo-launchctl: cannot write %1: %2").arg(target, file.errorString());
        return false;
    }
    // Readable by the manager whatever the umask.
    QFile::setPermissions(target, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                      QFileDevice::ReadGroup | QFileDevice::ReadOther);
    handOver(target);
    return true;
}

bool UnitFolder::makeFolder() const
{
    QStringList missing;
    for (QString folder = m_path; !folder.isEmpty() && !QFileInfo::exists(folder);
         folder = QFileInfo(folder).absolutePath()) {
        missing.prepend(folder);
        if (folder == QLatin1String("/")) {
            break;
        }
    }
    if (!QDir().mkpath(m_path)) {
        return false;
    }
    for (const QString &folder : missing) {
        handOver(folder);
    }
    return true;
}

void UnitFolder::handOver(const QString &path) const
{
    if (m_owner) {
        // The user's own manager reads the unit, and the user may remove it.
        if (::lchown(QFile::encodeName(path).constData(), *m_owner, static_cast<gid_t>(-1)) != 0) {
            return;
        }
    }
}

bool UnitFolder::remove(const QString &unitName, QString *error) const
{
    const QString target = filePath(unitName);
    switch (state(unitName)) {
    case State::Missing:
        return true;
    case State::Foreign:
        *error =
            QStringLiteral("kairo-launchctl: %1 was not written by kairo-launchctl; it is left "
                           "as it is")
                .arg(target);
        return false;
    case State::Ours:
        break;
    }
    QFile file(target);
    if (!file.remove()) {
        *error =
            QStringLiteral("kairo-launchctl: cannot remove %1: %2").arg(target, file.errorString());
        return false;
    }
    return true;
}
