#include "platform/PropertyList.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

namespace {

const QString kBuild = QStringLiteral(KAIRO_BINARY_DIR);
const QString kApp = QStringLiteral("/usr/lib/kairo-planner/Kairo Planner.app");

// cmake --install of the build tree into DESTDIR with the prefix /usr.
bool install(const QString &destdir, QString *output)
{
    QProcess cmake;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DESTDIR"), destdir);
    cmake.setProcessEnvironment(environment);
    cmake.setProcessChannelMode(QProcess::MergedChannels);
    cmake.start(QStringLiteral("cmake"), {QStringLiteral("--install"), kBuild,
                                          QStringLiteral("--prefix"), QStringLiteral("/usr")});
    cmake.waitForFinished(120000);
    *output = QString::fromUtf8(cmake.readAll());
    return cmake.exitStatus() == QProcess::NormalExit && cmake.exitCode() == 0;
}

} // namespace

TEST(InstallTest, AnInstallationIsCompleteAndRuns)
{
    QTemporaryDir destdir;
    QString output;
    ASSERT_TRUE(install(destdir.path(), &output)) << output.toStdString();
    const QString root = destdir.path();

    // The bundle with everything installed beside the application.
    for (const char *program :
         {"Kairo Planner", "kairo-launchctl", "kairo-helper", "kairo-alert"}) {
        const QFileInfo info(root + kApp + "/Contents/MacOS/" + QLatin1String(program));
        EXPECT_TRUE(info.isFile() && info.isExecutable()) << program;
    }
    const auto info = PropertyList::readDictionary(root + kApp + "/Contents/Info.plist");
    ASSERT_TRUE(info);
    EXPECT_EQ(info->value(QStringLiteral("CFBundleIdentifier")).string(),
              QStringLiteral("com.vantreel.KairoPlanner"));
    EXPECT_EQ(info->value(QStringLiteral("CFBundleVersion")).string(),
              QStringLiteral(KAIRO_VERSION));
    EXPECT_TRUE(QFileInfo::exists(root + kApp + "/Contents/Resources/KairoPlanner.icns"));
    EXPECT_TRUE(QFileInfo::exists(root + kApp + "/Contents/Resources/disableall.png"));

    // On the PATH, as relative links that still work after DESTDIR is dropped.
    for (const char *name : {"kairo-planner", "kairo-launchctl"}) {
        const QFileInfo link(root + "/usr/bin/" + QLatin1String(name));
        ASSERT_TRUE(link.isSymLink()) << name;
        EXPECT_TRUE(link.symLinkTarget().startsWith(root + kApp))
            << link.symLinkTarget().toStdString();
    }

    // The desktop's menu entry, its icon, and the policy naming the installed helper.
    const QString desktop = QString::fromUtf8(
        TestFiles::read(root + "/usr/share/applications/com.vantreel.KairoPlanner.desktop"));
    EXPECT_TRUE(desktop.contains(QStringLiteral("\nExec=kairo-planner\n")));
    EXPECT_TRUE(desktop.contains(QStringLiteral("\nIcon=com.vantreel.KairoPlanner\n")));
    EXPECT_TRUE(QFileInfo::exists(
        root + "/usr/share/icons/hicolor/256x256/apps/com.vantreel.KairoPlanner.png"));
    const QString policy = QString::fromUtf8(
        TestFiles::read(root + "/usr/share/polkit-1/actions/com.vantreel.KairoPlanner.policy"));
    EXPECT_TRUE(policy.contains(kApp + "/Contents/MacOS/kairo-helper")) << policy.toStdString();

    // The installed program works: a headless listing on an empty sandbox.
    Sandbox sandbox;
    QProcess program;
    program.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
    program.start(root + "/usr/bin/kairo-planner", {QStringLiteral("-tasks")});
    ASSERT_TRUE(program.waitForFinished(30000));
    EXPECT_EQ(program.exitCode(), 0) << program.readAllStandardError().toStdString();
    EXPECT_EQ(program.readAllStandardOutput(), QByteArray("{\n}"));
}
