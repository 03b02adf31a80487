#pragma once

#include "platform/PlistDict.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

// Small file helpers for tests.
class TestFiles
{
public:
    // Writes the bytes, making parent folders; the path.
    static QString write(const QString &path, const QByteArray &bytes);
    static QByteArray read(const QString &path);
    // Writes an executable shell script ("#!/bin/sh" is prepended).
    static QString writeScript(const QString &path, const QString &body);
    // Makes an application bundle NAME.app in folder with the given Info.plist keys and a
    // small executable; returns the bundle's path.
    static QString makeBundle(const QString &folder, const QString &name, const PlistDict &info,
                              const QString &executableBody = QStringLiteral("exit 0"));
    // Lines of a text file, without the trailing empty line.
    static QStringList lines(const QString &path);
    // The messages of the current log, once written, without their time stamps and
    // without the log's header.
    static QStringList logMessages();
    // Captures what the process writes to standard error while it lives.
    class CaptureStderr
    {
    public:
        CaptureStderr();
        ~CaptureStderr();
        // Stops capturing and returns what was written.
        QString finish();

    private:
        int m_saved = -1;
        QString m_path;
        bool m_done = false;
        QString m_text;
    };
};
