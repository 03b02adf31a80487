#pragma once

#include <QString>

// The console: standard error, one line per message, "YYYY-MM-DD HH:MM:SS.mmm NAME[PID]
// message", written with a single write so that lines of several threads never mix.
class Console
{
public:
    static void log(const QString &message);
    // Plain text to standard output, as printf("%s") writes it: nothing added.
    static void print(const QString &text);
    // The text as one line: line breaks, tabs and other control characters as C escapes
    // (\n, \t, \x1b), so that no text a caller hands over can forge a line of its own.
    static QString singleLine(const QString &text);
    // The process name of the console lines.
    static QString processName();
};
