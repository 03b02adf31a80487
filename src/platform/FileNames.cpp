#include "FileNames.h"

#include <QDir>

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char16_t kEscapeBase = 0xDC00;

// The length of the valid UTF-8 sequence at p (at most end), or 0 when there is none:
// no overlong forms, no surrogates, nothing above U+10FFFF.
int validSequence(const unsigned char *p, const unsigned char *end, char32_t *codePoint)
{
    const unsigned char b0 = p[0];
    if (b0 < 0x80) {
        *codePoint = b0;
        return 1;
    }
    int length = 0;
    char32_t cp = 0;
    char32_t minimum = 0;
    if ((b0 & 0xE0) == 0xC0) {
        length = 2;
        cp = b0 & 0x1F;
        minimum = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        length = 3;
        cp = b0 & 0x0F;
        minimum = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        length = 4;
        cp = b0 & 0x07;
        minimum = 0x10000;
    } else {
        return 0;
    }
    if (end - p < length) {
        return 0;
    }
    for (int i = 1; i < length; ++i) {
        if ((p[i] & 0xC0) != 0x80) {
            return 0;
        }
        cp = (cp << 6) | (p[i] & 0x3F);
    }
    if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        return 0;
    }
    *codePoint = cp;
    return length;
}

void appendUtf8(QByteArray &out, char32_t cp)
{
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

} // namespace

QString FileNames::decode(const QByteArray &native)
{
    // Most names are UTF-8, for which Qt's faster decoder gives the same whenever it had
    // nothing to replace.
    QString utf8 = QString::fromUtf8(native);
    if (!utf8.contains(QChar::ReplacementCharacter)) {
        return utf8;
    }
    const auto *p = reinterpret_cast<const unsigned char *>(native.constData());
    const auto *end = p + native.size();
    QString out;
    out.reserve(native.size());
    while (p < end) {
        char32_t cp = 0;
        const int length = validSequence(p, end, &cp);
        if (length == 0) {
            out += QChar(static_cast<char16_t>(kEscapeBase + *p));
            ++p;
            continue;
        }
        if (cp >= 0x10000) {
            out += QChar(QChar::highSurrogate(cp));
            out += QChar(QChar::lowSurrogate(cp));
        } else {
            out += QChar(static_cast<char16_t>(cp));
        }
        p += length;
    }
    return out;
}

QByteArray FileNames::encode(const QString &path)
{
    // Without surrogates (no escaped bytes, nothing outside the BMP) this is plain UTF-8.
    bool plain = true;
    for (const QChar c : path) {
        if (c.isSurrogate()) {
            plain = false;
            break;
        }
    }
    if (plain) {
        return path.toUtf8();
    }
    QByteArray out;
    out.reserve(path.size());
    const qsizetype n = path.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t u = path[i].unicode();
        if (QChar::isHighSurrogate(u) && i + 1 < n &&
            QChar::isLowSurrogate(path[i + 1].unicode())) {
            appendUtf8(out, QChar::surrogateToUcs4(u, path[i + 1].unicode()));
            ++i;
        } else if (u >= kEscapeBase + 0x80 && u <= kEscapeBase + 0xFF) {
            out += static_cast<char>(u - kEscapeBase);
        } else if (QChar::isSurrogate(u)) {
            appendUtf8(out, 0xFFFD);
        } else {
            appendUtf8(out, u);
        }
    }
    return out;
}

QStringList FileNames::entryList(const QString &folder)
{
    QStringList names;
    DIR *dir = ::opendir(encode(folder).constData());
    if (!dir) {
        return names;
    }
    while (const dirent *entry = ::readdir(dir)) {
        const char *name = entry->d_name;
        if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
            continue;
        }
        names.append(decode(QByteArray(name)));
    }
    ::closedir(dir);
    names.sort();
    return names;
}

bool FileNames::exists(const QString &path)
{
    struct stat st
    {};
    return !path.isEmpty() && ::stat(encode(path).constData(), &st) == 0;
}

bool FileNames::isDirectory(const QString &path)
{
    struct stat st
    {};
    return !path.isEmpty() && ::stat(encode(path).constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool FileNames::isSymbolicLink(const QString &path)
{
    struct stat st
    {};
    return !path.isEmpty() && ::lstat(encode(path).constData(), &st) == 0 && S_ISLNK(st.st_mode);
}

bool FileNames::isExecutable(const QString &path)
{
    struct stat st
    {};
    const QByteArray native = encode(path);
    return !path.isEmpty() && ::stat(native.constData(), &st) == 0 && !S_ISDIR(st.st_mode) &&
           ::access(native.constData(), X_OK) == 0;
}

QString FileNames::canonicalPath(const QString &path)
{
    if (path.isEmpty()) {
        return QString();
    }
    char resolved[PATH_MAX];
    if (!::realpath(encode(path).constData(), resolved)) {
        return QString();
    }
    return decode(QByteArray(resolved));
}

QString FileNames::absolutePath(const QString &path)
{
    if (path.isEmpty() || path.startsWith(QLatin1Char('/'))) {
        return QDir::cleanPath(path);
    }
    char *cwd = ::getcwd(nullptr, 0);
    if (!cwd) {
        return QDir::cleanPath(path);
    }
    const QString base = decode(QByteArray(cwd));
    ::free(cwd);
    return QDir::cleanPath(base + QLatin1Char('/') + path);
}
