#pragma once

#include "platform/PlistDict.h"
#include "testsupport/DBusDaemon.h"
#include "testsupport/LaunchctlRecorder.h"
#include "testsupport/Sandbox.h"

#include <gtest/gtest.h>

#include <QProcess>

#include <memory>

// The real executable on a sandboxed machine, run as an ordinary user the way a client
// application runs it (as "nobody" when the tests themselves run as root), with the
// client "Quill" installed in the local Applications folder, a recording launchctl, and a
// private session bus on which Quill's callback object (NotificationClient) listens.
class CommandLineFixture : public ::testing::Test
{
protected:
    struct Result
    {
        int exitCode = -1;
        QString out;
        QString err;
    };

    Sandbox sandbox;
    std::unique_ptr<DBusDaemon> bus;
    QProcess callbackClient;
    std::unique_ptr<LaunchctlRecorder> launchctl;
    QString quill;
    // When set, the sandbox keeps its owners: a test that made a folder root's own.
    bool keepOwners = false;

    void SetUp() override;
    void TearDown() override;

    static QString binary();
    static bool runningAsRoot();
    // Runs the executable with the arguments (position 0 added) as an ordinary user, or as
    // root when asked and possible.
    Result run(const QStringList &arguments, bool asRoot = false);
    // Starts it (as root only when asked), HOME given when not empty; the names are bytes.
    std::unique_ptr<QProcess> launch(const QList<QByteArray> &arguments, const QByteArray &home,
                                     bool asRoot);
    // The error texts (field 3) or user infos (field 4) Quill was sent, waiting until at
    // least count have arrived or a few seconds have passed.
    QStringList errors(int count, int field = 3) const;
    QString callbackRecord() const;
    // Waits for a started command; false after a minute.
    static bool finish(QProcess &process);
    // Starts it without waiting.
    std::unique_ptr<QProcess> start(const QStringList &arguments);
    // Runs it with arguments and HOME (when not empty) given as bytes, which need not be
    // UTF-8 (Qt would pass others); its output is decoded byte for byte (FileNames).
    Result runBytes(const QList<QByteArray> &arguments, const QByteArray &home,
                    bool asRoot = false);

    QString agents() const;
    QString daemons() const;
    QString job(int number, bool root = false) const;
    PlistDict readJob(const QString &path) const;
    QStringList logLines() const;
    // Hands the sandbox to the user the executable runs as.
    void handOver() const;
};
