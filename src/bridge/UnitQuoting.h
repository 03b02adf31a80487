#pragma once

#include <QString>

#include <optional>

// How text from a job file is put into a unit file so that systemd reads back exactly that
// text and nothing else: no value can end a line, continue one, start a directive, or be
// expanded as a specifier (%) or an environment variable ($).
class UnitQuoting
{
public:
    // Backslash, double quote and every control character as C escapes (\n, \t, \xNN ...),
    // and each byte of a file name that is not UTF-8 (FileNames' surrogate escape) as \xNN.
    static QString cEscape(const QString &text);
    // The inverse of cEscape for the texts the bridge itself wrote; \x80 to \xff become
    // surrogate escapes again.
    static QString cUnescape(const QString &text);
    // One word of ExecStart=: quoted, C escapes, "%%" for "%" and "$$" for "$".
    static QString execWord(const QString &word);
    // One quoted item of an assignment list such as Environment=: quoted, C escapes, "%%".
    // systemd expands no "$" there.
    static QString assignment(const QString &item);
    // A quoted text inside a comment (no expansion happens there).
    static QString comment(const QString &text);
    // The text of Description=, which systemd does not unquote: C escapes and "%%", unquoted.
    static QString description(const QString &text);
    // A path for PathModified= and the like, which are taken verbatim: "%%" for "%". No
    // value when systemd could not read the path back exactly (control characters, blanks or
    // a backslash at its end, or not absolute).
    static std::optional<QString> path(const QString &path);
};
