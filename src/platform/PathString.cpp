#include "PathString.h"

#include "Identity.h"

namespace {

QString withoutTrailingSlashes(const QString &path)
{
    QString p = path;
    while (p.size() > 1 && p.endsWith(QLatin1Char('/'))) {
        p.chop(1);
    }
    return p;
}

} // namespace

QString PathString::lastPathComponent(const QString &path)
{
    const QString p = withoutTrailingSlashes(path);
    if (p == QLatin1String("/")) {
        return p;
    }
    const int slash = p.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? p : p.mid(slash + 1);
}

QString PathString::deletingLastPathComponent(const QString &path)
{
    const QString p = withoutTrailingSlashes(path);
    const int slash = p.lastIndexOf(QLatin1Char('/'));
    if (slash < 0) {
        return QString();
    }
    return slash == 0 ? QStringLiteral("/") : p.left(slash);
}

QString PathString::pathExtension(const QString &path)
{
    const QString last = lastPathComponent(path);
    const int dot = last.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0 || dot == last.size() - 1) {
        return QString();
    }
    return last.mid(dot + 1);
}

QString PathString::deletingPathExtension(const QString &path)
{
    const QString ext = pathExtension(path);
    if (ext.isEmpty()) {
        return withoutTrailingSlashes(path);
    }
    const QString p = withoutTrailingSlashes(path);
    return p.left(p.size() - ext.size() - 1);
}

QString PathString::appendingPathComponent(const QString &path, const QString &component)
{
    if (component.isEmpty()) {
        return path;
    }
    QString joined = path.isEmpty() ? component : path + QLatin1Char('/') + component;
    while (joined.contains(QLatin1String("//"))) {
        joined.replace(QLatin1String("//"), QLatin1String("/"));
    }
    return withoutTrailingSlashes(joined);
}

QString PathString::abbreviatingWithTildeInPath(const QString &path)
{
    const auto home = Identity::current().homeDirectory();
    if (!home || home->isEmpty() || *home == QLatin1String("/")) {
        return path;
    }
    const QString h = withoutTrailingSlashes(*home);
    if (path == h) {
        return QStringLiteral("~");
    }
    if (path.startsWith(h + QLatin1Char('/'))) {
        return QLatin1Char('~') + path.mid(h.size());
    }
    return path;
}

QString PathString::expandingTildeInPath(const QString &path)
{
    if (!path.startsWith(QLatin1Char('~'))) {
        return path;
    }
    const int slash = path.indexOf(QLatin1Char('/'));
    const QString user = path.mid(1, slash < 0 ? -1 : slash - 1);
    const QString rest = slash < 0 ? QString() : path.mid(slash);
    const auto home = user.isEmpty() ? Identity::current().homeDirectory()
                                     : Identity::current().homeDirectoryForUser(user);
    if (!home) {
        return path;
    }
    return withoutTrailingSlashes(*home) + rest;
}
