#include "app/AppController.h"
#include "app/AppControllerView.h"
#include "platform/FileNames.h"
#include "platform/PathString.h"
#include "support/VTLog.h"
#include "testsupport/ClientApps.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Poll.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QtCore>

#include <unistd.h>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &string, std::ostream *os)
{
    *os << '"' << string.toStdString() << '"';
}

namespace {

// A view that records what the controller tells it, and on which thread.
class RecordingView : public AppControllerView
{
public:
    QStringList calls;
    bool offMainThread = false;
    AppController *controller = nullptr;
    std::optional<VTClientApplication> selected;

    void note(const QString &call)
    {
        if (QThread::currentThread() != QCoreApplication::instance()->thread()) {
            offMainThread = true;
        }
        calls.append(call);
    }
    void applySortingForTableView() override {}
    void updateEnableDisableToolbar() override {}
    QString enableDisableAllLabel() const override { return QString(); }
    void setEnableDisableAllItem(const QString &, const QString &) override {}
    int selectedTaskRow() const override { return -1; }
    std::optional<int> selectedClientIndex() const override { return std::nullopt; }
    void startProgress() override { note("startProgress"); }
    void endProgress() override { note("endProgress"); }
    void selectItem(const std::optional<VTClientApplication> &item) override
    {
        selected = item;
        note(item ? "selectItem " + item->bundleid : "selectItem none");
    }
    void clientApplicationsChanged() override
    {
        note(QStringLiteral("clientApplicationsChanged %1").arg(controller->taskArray().size()));
    }
};

PlistValue oneTask(const QString &id = "backup")
{
    return PlistValue(PlistArray{ClientApps::entry(id, {"-" + id}, "Task " + id)});
}

} // namespace

class DiscoveryTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    QString applications;
    RecordingView view;
    std::unique_ptr<AppController> controller;

    void SetUp() override
    {
        identity->home = sandbox.home();
        applications = sandbox.mkdir("root/Applications");
        VTLog::createNewLog("Kairo Planner");
        controller = AppController::init(&view);
        view.controller = controller.get();
    }

    void TearDown() override { controller.reset(); }

    QString app(const QString &folder, const QString &name, const QString &bundleID,
                const PlistValue &tasks = oneTask())
    {
        return ClientApps::make(sandbox.mkdir("root/Applications/" + folder), name, bundleID,
                                tasks);
    }

    static QStringList identifiers(const std::optional<AppController::ClientList> &apps)
    {
        QStringList out;
        for (const VTClientApplication &client : apps.value_or(AppController::ClientList())) {
            out.append(client.bundleid);
        }
        return out;
    }
};

TEST_F(DiscoveryTest, TheWalkFindsTheMakersApplicationsWithCataloguesAtAnyDepth)
{
    app("", "Quill", "com.vantreel.Quill");
    app("Vantreel/Tools", "Inkwell", "com.vantreel.Inkwell", oneTask("spell"));
    app("Documentation", "Manual", "com.vantreel.Manual");
    app("", "Loose", "com.vantreelLoose",
        PlistValue(PlistDict{{"-backup ### -quiet", "Back up quietly"}})); // the old form
    // Not found: hidden, blacklisted, in a folder with an extension, in a package, without
    // a catalogue, with an empty one, of another maker, or with the catalogue in Info.plist.
    app(".Hidden", "Hidden", "com.vantreel.Hidden");
    app("Adobe Things", "Adobe", "com.vantreel.Adobe");
    app("David", "Davids", "com.vantreel.Davids");
    app("Wacom Tablet", "Wacom", "com.vantreel.Wacom"); // the last name of the list
    app("Games.localized", "Localized", "com.vantreel.Localized");
    app("Quill.app/Contents/Helpers", "Inner", "com.vantreel.Inner");
    TestFiles::makeBundle(applications, "NoCatalogue",
                          PlistDict{{"CFBundleIdentifier", "com.vantreel.NoCatalogue"}});
    app("", "Empty", "com.vantreel.Empty", PlistValue(PlistArray{}));
    app("", "Other", "org.example.Other");
    ClientApps::make(applications, "Tessel", "com.vantreel.Tessel", oneTask(), true);
    // A folder named like a package that is a plain file is no folder at all.
    TestFiles::write(applications + "/Fake.app", "not a bundle");
    // A bundle whose folder name is not UTF-8 is found by its bytes.
    const QByteArray latin1 = FileNames::encode(applications) + "/Tess\xe9ra.app";
    ASSERT_EQ(::rename(FileNames::encode(app("", "Tessera", "com.vantreel.Tessera")).constData(),
                       latin1.constData()),
              0);

    const auto apps = controller->appsForFolder(applications);
    ASSERT_TRUE(apps);
    EXPECT_EQ(identifiers(apps),
              QStringList({"com.vantreel.Manual", "com.vantreelLoose", "com.vantreel.Quill",
                           "com.vantreel.Tessera", "com.vantreel.Inkwell"}));
    EXPECT_EQ(apps->back().tasks, oneTask("spell"));
}

// A link back into the folder, or a folder that cannot be listed, ends only its branch.
TEST_F(DiscoveryTest, ABranchThatCannotBeWalkedEndsOnlyItself)
{
    app("", "Quill", "com.vantreel.Quill");
    app("Vantreel", "Inkwell", "com.vantreel.Inkwell");
    ASSERT_EQ(::symlink(applications.toLocal8Bit().constData(),
                        (applications + "/Vantreel/Loop").toLocal8Bit().constData()),
              0);
    ASSERT_EQ(::symlink("..", (applications + "/Vantreel/Up").toLocal8Bit().constData()), 0);
    // Deeper than any path can be: even root cannot list it.
    const QString part(200, QLatin1Char('d'));
    struct RemoveDeepTree
    {
        QString path;
        ~RemoveDeepTree() { QProcess::execute("/bin/rm", {"-rf", path}); }
    } cleanup{applications + "/" + part};
    const QString start = QDir::currentPath();
    ASSERT_EQ(::chdir(applications.toLocal8Bit().constData()), 0);
    for (int level = 0; level < 22; ++level) {
        ASSERT_TRUE(QDir().mkdir(part));
        ASSERT_EQ(::chdir(part.toLocal8Bit().constData()), 0);
    }
    ASSERT_EQ(::chdir(start.toLocal8Bit().constData()), 0);

    EXPECT_EQ(identifiers(controller->appsForFolder(applications)),
              QStringList({"com.vantreel.Quill", "com.vantreel.Inkwell"}));
    const QStringList log = TestFiles::logMessages();
    EXPECT_EQ(log.filter("Warning: Symbolic link links back to itself.").size(), 2);
    EXPECT_EQ(log.filter("Unable to get contents of directory " + applications + "/" + part).size(),
              1);
    // The link itself, walked on its own, gives none, nor a missing folder.
    EXPECT_FALSE(controller->appsForFolder(applications + "/Vantreel/Loop"));
    EXPECT_FALSE(controller->appsForFolder(applications + "/missing"));
}

// The walk reports on the main thread, in order, and selects the first application found
// (the window's tests see it select none).
TEST_F(DiscoveryTest, TheThreadReportsOnTheMainThreadInOrder)
{
    app("", "Quill", "com.vantreel.Quill");
    app("Vantreel", "Inkwell", "com.vantreel.Inkwell");
    view.calls.clear();
    controller->startDiscoveryThread();
    EXPECT_TRUE(controller->isDiscovering());
    ASSERT_TRUE(
        Poll::until([&] { return !controller->isDiscovering(); }, std::chrono::seconds(10)));
    QCoreApplication::processEvents();
    EXPECT_EQ(view.calls, QStringList({"startProgress", "clientApplicationsChanged 2",
                                       "selectItem com.vantreel.Quill", "endProgress"}));
    EXPECT_FALSE(view.offMainThread);
    EXPECT_EQ(controller->VTAppItemWithBundleID("com.vantreel.Inkwell")->name, "Inkwell");

    // A controller going away stops the walk; nothing is left for the event loop to deliver.
    for (int i = 0; i < 300; ++i) {
        sandbox.mkdir(QStringLiteral("root/Applications/F%1/G/H").arg(i));
    }
    controller = AppController::init(&view);
    view.controller = controller.get();
    view.calls.clear();
    controller->startDiscoveryThread();
    controller.reset();
    QCoreApplication::processEvents();
    EXPECT_FALSE(view.calls.contains("endProgress"));
}
