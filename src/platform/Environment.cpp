#include "Environment.h"

#include "FileNames.h"

#include <cstdlib>

std::optional<QString> Environment::value(const char *name)
{
    const char *v = secure_getenv(name);
    if (!v) {
        return std::nullopt;
    }
    // Mostly paths (HOME, VT_LOCAL_ROOT...): kept byte for byte, also when not UTF-8.
    return FileNames::decode(QByteArray(v));
}

QString Environment::localRoot()
{
    QString root = value("VT_LOCAL_ROOT").value_or(QString());
    while (root.size() > 1 && root.endsWith(QLatin1Char('/'))) {
        root.chop(1);
    }
    return root == QLatin1String("/") ? QString() : root;
}

QString Environment::localPath(const QString &absolutePath)
{
    return localRoot() + absolutePath;
}
