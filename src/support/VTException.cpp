#include "VTException.h"

#include "VTLog.h"
#include "platform/Console.h"

#include <cxxabi.h>
#include <new>
#include <stdexcept>
#include <typeinfo>

VTException::VTException(QString name, QString reason)
    : m_name(std::move(name)), m_reason(std::move(reason)),
      m_what((m_name + QStringLiteral(": ") + m_reason).toUtf8())
{}

QString VTException::nameOf(const std::exception &exception)
{
    if (const auto *own = dynamic_cast<const VTException *>(&exception)) {
        return own->name();
    }
    if (dynamic_cast<const std::out_of_range *>(&exception)) {
        return QStringLiteral("NSRangeException");
    }
    if (dynamic_cast<const std::invalid_argument *>(&exception) ||
        dynamic_cast<const std::domain_error *>(&exception)) {
        return QStringLiteral("NSInvalidArgumentException");
    }
    if (dynamic_cast<const std::bad_alloc *>(&exception)) {
        return QStringLiteral("NSMallocException");
    }
    return QStringLiteral("NSGenericException");
}

QString VTException::logException(const std::exception &exception, const char *method)
{
    QString reason;
    if (const auto *own = dynamic_cast<const VTException *>(&exception)) {
        reason = own->reason();
    } else {
        reason = QString::fromUtf8(exception.what());
    }
    const QString text = VTFormat::string(QStringLiteral("Exception in %s. %@ - %@."),
                                          qualifiedName(method), nameOf(exception), reason);
    // The text is the log's format string: a percent sign in a reason is read as a directive.
    VTLog::appendLog(text);
    Console::log(text);
    return text;
}

QString VTException::logCurrentException(const char *method)
{
    try {
        throw;
    } catch (const std::exception &e) {
        return logException(e, method);
    } catch (...) {
        return logException(
            VTException(QStringLiteral("NSGenericException"), QStringLiteral("Unknown exception")),
            method);
    }
}

bool VTException::didTimeout(const std::exception &exception)
{
    return nameOf(exception) == QLatin1String("NSPortTimeoutException");
}

QString VTException::qualifiedName(const char *prettyFunction)
{
    if (!prettyFunction) {
        return QString();
    }
    const QString signature = QString::fromUtf8(prettyFunction);
    // The name ends at the parameter list: the first '(' outside template brackets.
    int depth = 0;
    int end = -1;
    for (int i = 0; i < signature.size(); ++i) {
        const QChar c = signature[i];
        if (c == QLatin1Char('<')) {
            ++depth;
        } else if (c == QLatin1Char('>')) {
            --depth;
        } else if (c == QLatin1Char('(') && depth == 0) {
            end = i;
            break;
        }
    }
    const QString head = end >= 0 ? signature.left(end) : signature;
    // Its start is after the last blank outside template brackets (the return type).
    depth = 0;
    int start = 0;
    for (int i = head.size() - 1; i >= 0; --i) {
        const QChar c = head[i];
        if (c == QLatin1Char('>')) {
            ++depth;
        } else if (c == QLatin1Char('<')) {
            --depth;
        } else if (c == QLatin1Char(' ') && depth == 0) {
            start = i + 1;
            break;
        }
    }
    QString name = head.mid(start);
    while (name.startsWith(QLatin1Char('*')) || name.startsWith(QLatin1Char('&'))) {
        name.remove(0, 1);
    }
    return name;
}
