#include "UnitName.h"

#include "platform/FileNames.h"

namespace {

bool isPlainByte(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ':' ||
           c == '_' || c == '.';
}

// A label that escaping would change only in "-" is still a valid name: keep it, so the
// usual reverse-domain labels give the unit names one expects. A leading "." is escaped
// even so, because systemd skips hidden files when it looks for units.
bool isValidAsItIs(const QString &label)
{
    if (label.isEmpty() || label.startsWith(QLatin1Char('.'))) {
        return false;
    }
    for (const QChar c : label) {
        if (c.unicode() > 0x7f ||
            !(isPlainByte(static_cast<char>(c.unicode())) || c == QLatin1Char('-'))) {
            return false;
        }
    }
    return true;
}

} // namespace

QString UnitName::escape(const QString &label)
{
    if (isValidAsItIs(label)) {
        return label;
    }
    const QByteArray bytes = FileNames::encode(label);
    QString escaped;
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const char c = bytes.at(i);
        if (c == '/') {
            escaped += QLatin1Char('-');
        } else if (isPlainByte(c) && !(i == 0 && c == '.')) {
            escaped += QLatin1Char(c);
        } else {
            escaped += QStringLiteral("\\x%1").arg(static_cast<uint>(static_cast<uchar>(c)), 2, 16,
                                                   QLatin1Char('0'));
        }
    }
    return escaped;
}

std::optional<QString> UnitName::forLabel(const QString &label, const QString &suffix)
{
    const QString name = escape(label) + QLatin1Char('.') + suffix;
    if (name.toUtf8().size() > kMaxLength) {
        return std::nullopt;
    }
    return name;
}
