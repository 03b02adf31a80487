#pragma once

#include <QString>

#include <exception>
#include <utility>

// An error raised inside the system, with a name and a reason. Exceptions never cross a
// public method: each one runs its body through guard(), which reports the exception as
// "Exception in %s. %@ - %@." with the method's qualified name and returns a neutral value.
class VTException : public std::exception
{
public:
    VTException(QString name, QString reason);

    const QString &name() const { return m_name; }
    const QString &reason() const { return m_reason; }
    const char *what() const noexcept override { return m_what.constData(); }

    // Reports the exception in the log and on the console; returns the text.
    static QString logException(const std::exception &exception, const char *method);
    // The same for the exception being handled now (inside a catch block).
    static QString logCurrentException(const char *method);
    static bool didTimeout(const std::exception &exception);

    // "Class::method" from a compiler's function signature (__PRETTY_FUNCTION__).
    static QString qualifiedName(const char *prettyFunction);
    // The exception's name: its own for system exceptions, Foundation's for the standard
    // ones (an index out of range is an NSRangeException).
    static QString nameOf(const std::exception &exception);

    template <typename R, typename F>
    static R guard(const char *method, R neutral, F &&body)
    {
        try {
            return std::forward<F>(body)();
        } catch (...) {
            logCurrentException(method);
            return neutral;
        }
    }

    template <typename F>
    static void guard(const char *method, F &&body)
    {
        try {
            std::forward<F>(body)();
        } catch (...) {
            logCurrentException(method);
        }
    }

private:
    QString m_name;
    QString m_reason;
    QByteArray m_what;
};

// The signature of the enclosing function, for guard().
#define VT_METHOD __PRETTY_FUNCTION__
