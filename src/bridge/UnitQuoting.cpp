#include "UnitQuoting.h"

#include "platform/FileNames.h"

namespace {

QString quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

QString escapePercent(QString text)
{
    return text.replace(QLatin1Char('%'), QStringLiteral("%%"));
}

int hexValue(QChar c)
{
    if (c >= QLatin1Char('0') && c <= QLatin1Char('9')) {
        return c.unicode() - '0';
    }
    if (c >= QLatin1Char('a') && c <= QLatin1Char('f')) {
        return c.unicode() - 'a' + 10;
    }
    if (c >= QLatin1Char('A') && c <= QLatin1Char('F')) {
        return c.unicode() - 'A' + 10;
    }
    return -1;
}

} // namespace

QString UnitQuoting::cEscape(const QString &text)
{
    QString escaped;
    escaped.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            escaped += c;
            escaped += text.at(++i);
            continue;
        }
        if (c.isSurrogate()) {
            // A byte of a file name that is not UTF-8 (or a stray surrogate, which has no
            // bytes of its own): unit files must be UTF-8, and systemd turns \xNN back into
            // the byte where it unescapes.
            for (const char byte : FileNames::encode(QString(c))) {
                escaped += QStringLiteral("\\x%1").arg(static_cast<uint>(static_cast<uchar>(byte)),
                                                       2, 16, QLatin1Char('0'));
            }
            continue;
        }
        switch (c.unicode()) {
        case '\\':
            escaped += QStringLiteral("\\\\");
            break;
        case '"':
            escaped += QStringLiteral("\\\"");
            break;
        case '\a':
            escaped += QStringLiteral("\\a");
            break;
        case '\b':
            escaped += QStringLiteral("\\b");
            break;
        case '\f':
            escaped += QStringLiteral("\\f");
            break;
        case '\n':
            escaped += QStringLiteral("\\n");
            break;
        case '\r':
            escaped += QStringLiteral("\\r");
            break;
        case '\t':
            escaped += QStringLiteral("\\t");
            break;
        case '\v':
            escaped += QStringLiteral("\\v");
            break;
        default:
            if (c.unicode() < 0x20 || c.unicode() == 0x7f) {
                escaped += QStringLiteral("\\x%1").arg(static_cast<uint>(c.unicode()), 2, 16,
                                                       QLatin1Char('0'));
            } else {
                escaped += c;
            }
        }
    }
    return escaped;
}

QString UnitQuoting::cUnescape(const QString &text)
{
    QString plain;
    plain.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c != QLatin1Char('\\') || i + 1 == text.size()) {
            plain += c;
            continue;
        }
        const QChar next = text.at(++i);
        switch (next.unicode()) {
        case 'a':
            plain += QLatin1Char('\a');
            break;
        case 'b':
            plain += QLatin1Char('\b');
            break;
        case 'f':
            plain += QLatin1Char('\f');
            break;
        case 'n':
            plain += QLatin1Char('\n');
            break;
        case 'r':
            plain += QLatin1Char('\r');
            break;
        case 't':
            plain += QLatin1Char('\t');
            break;
        case 'v':
            plain += QLatin1Char('\v');
            break;
        case 'x':
            if (i + 2 < text.size() && hexValue(text.at(i + 1)) >= 0 &&
                hexValue(text.at(i + 2)) >= 0) {
                const int byte = hexValue(text.at(i + 1)) * 16 + hexValue(text.at(i + 2));
                // Bytes from 0x80 come back as the file-name byte cEscape wrote them for.
                plain += FileNames::decode(QByteArray(1, static_cast<char>(byte)));
                i += 2;
            } else {
                plain += next;
            }
            break;
        default:
            plain += next;
        }
    }
    return plain;
}

QString UnitQuoting::execWord(const QString &word)
{
    return quoted(escapePercent(cEscape(word)).replace(QLatin1Char('$'), QStringLiteral("$$")));
}

QString UnitQuoting::assignment(const QString &item)
{
    return quoted(escapePercent(cEscape(item)));
}

QString UnitQuoting::comment(const QString &text)
{
    return quoted(cEscape(text));
}

QString UnitQuoting::description(const QString &text)
{
    return escapePercent(cEscape(text));
}

std::optional<QString> UnitQuoting::path(const QString &path)
{
    if (!path.startsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('\\')) ||
        path.back().isSpace()) {
        return std::nullopt;
    }
    for (const QChar c : path) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f) {
            return std::nullopt;
        }
    }
    return escapePercent(path);
}
