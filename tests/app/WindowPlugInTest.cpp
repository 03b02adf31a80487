// The windowed mode comes from the plug-in beside the executable; headless commands run
// without it and without the GUI libraries.

#include "CommandLineFixture.h"

#include <QtCore>

namespace {

class WindowPlugInTest : public CommandLineFixture
{};

TEST_F(WindowPlugInTest, HeadlessCommandsLoadNoGuiLibraryAndTheWindowRunsFromThePlugIn)
{
    sandbox.setEnv("LD_DEBUG", QStringLiteral("libs"));
    const Result headless = run({"-tasks"});
    sandbox.setEnv("LD_DEBUG", std::nullopt);
    EXPECT_EQ(headless.exitCode, 0);
    EXPECT_TRUE(headless.err.contains(QStringLiteral("libQt6Core.so")));
    for (const char *library : {"libQt6Gui.so", "libQt6Widgets.so", "KairoPlannerWindow.so"}) {
        EXPECT_FALSE(headless.err.contains(QLatin1String(library))) << library;
    }

    // The window, drawn and saved by the plug-in, which shares the executable's core.
    const QString shots = sandbox.mkdir(QStringLiteral("shots"));
    sandbox.setEnv("QT_QPA_PLATFORM", QStringLiteral("offscreen"));
    sandbox.setEnv("KAIRO_SCREENSHOTS", shots);
    const Result windowed = run({});
    EXPECT_EQ(windowed.exitCode, 0) << windowed.err.toStdString();
    EXPECT_TRUE(QFile::exists(shots + QStringLiteral("/main-window.png")));
    EXPECT_TRUE(QFile::exists(shots + QStringLiteral("/preferences.png")));
}

TEST_F(WindowPlugInTest, WithoutThePlugInTheWindowIsRefusedInOneLine)
{
    // The executable alone, in a bundle without the plug-in.
    const QString copy = sandbox.file(QStringLiteral("Lone.app/Contents/MacOS/Lone"));
    ASSERT_TRUE(QFile::copy(QFileInfo(binary()).canonicalFilePath(), copy));
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    process.setProcessEnvironment(environment);
    process.start(copy, {});
    ASSERT_TRUE(finish(process));
    EXPECT_EQ(process.exitCode(), 1);
    const QString err = QString::fromUtf8(process.readAllStandardError());
    EXPECT_TRUE(err.contains(QStringLiteral("Unable to load the window from ")) &&
                err.contains(QStringLiteral("KairoPlannerWindow.so")))
        << err.toStdString();
    EXPECT_EQ(err.count(QLatin1Char('\n')), 1) << err.toStdString();
}

} // namespace
