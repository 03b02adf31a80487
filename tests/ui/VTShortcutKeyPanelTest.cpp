#include "platform/Bundle.h"
#include "platform/FileNames.h"
#include "platform/PropertyList.h"
#include "support/VTLog.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"
#include "ui/VTKeyCodeTable.h"
#include "ui/VTKeyboardLayout.h"
#include "ui/VTShortcutKeyContainerView.h"
#include "ui/VTShortcutKeyFieldEditor.h"
#include "ui/VTShortcutKeyTableDelegate.h"
#include "ui/VTShortcutKeyTableview.h"

#include <gtest/gtest.h>

#include <QtTest>
#include <QtWidgets>

#include <memory>
#include <set>

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &string, std::ostream *os)
{
    *os << '"' << string.toStdString() << '"';
}

namespace {

const QString kOurs = "com.vantreel.KairoPlanner";
const QString kQuill = "com.vantreel.Quill";
using Delegate = VTShortcutKeyTableDelegate;

std::optional<QString> some(const QString &s)
{
    return s;
}

PlistValue entry(const QString &bundleID, qint64 keycode, qint64 modifiers,
                 const QString &commandID)
{
    return PlistValue(PlistDict{{"bundleid", bundleID},
                                {"keycode", keycode},
                                {"modifiers", modifiers},
                                {"commandid", commandID}});
}

} // namespace

// Key codes, their names and characters, with the US layout unless a test chooses another.
class VTShortcutKeyNameTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;

    void SetUp() override
    {
        identity->home = sandbox.home();
        for (const char *name : {"XKB_DEFAULT_RULES", "XKB_DEFAULT_MODEL", "XKB_DEFAULT_VARIANT",
                                 "XKB_DEFAULT_OPTIONS"}) {
            sandbox.setEnv(name, std::nullopt);
        }
        sandbox.setEnv("XKB_DEFAULT_LAYOUT", "us");
    }
};

class VTShortcutKeyPanelTest : public VTShortcutKeyNameTest
{
protected:
    VTShortcutKeyTableDelegate &delegate = VTShortcutKeyTableDelegate::sharedController();
    std::unique_ptr<VTShortcutKeyContainerView> container;
    QString shortcutFile;
    QString manager;
    QString managerRecord;

    void SetUp() override
    {
        VTShortcutKeyNameTest::SetUp();
        identity->uid = 4123456;
        VTLog::createNewLog("Kairo Planner");

        const QString bundle =
            TestFiles::makeBundle(sandbox.mkdir("root/Applications"), "Kairo Planner",
                                  PlistDict{{"CFBundleIdentifier", kOurs},
                                            {"CFBundleName", "Kairo Planner"},
                                            {"CFBundleIconFile", "AppIcon"}});
        QImage icon(64, 64, QImage::Format_ARGB32);
        icon.fill(Qt::red);
        ASSERT_TRUE(icon.save(bundle + "/Contents/Resources/AppIcon.png"));
        // The shipped catalogue: newtask, enableall, disableall.
        ASSERT_TRUE(
            QFile::copy(qEnvironmentVariable("KAIRO_SOURCE_DIR") + "/resources/VTKeys.plist",
                        bundle + "/Contents/VTKeys.plist"));
        Bundle::setMainBundlePath(bundle);

        shortcutFile = sandbox.home() + "/Library/Preferences/com.vantreel.shortcutkeys.plist";
        manager = sandbox.localRoot() +
                  "/Library/Application Support/Vantreel/Shared Resources/VTShortcutKeyManager";
        managerRecord = sandbox.file("manager.txt");
        // The stand-in records its arguments and the shared file as it found it.
        TestFiles::writeScript(
            manager,
            QString("echo \"$@\" >> '%1'\ncat '%2' >> '%1'").arg(managerRecord, shortcutFile));

        container = std::make_unique<VTShortcutKeyContainerView>();
        container->resize(480, 320);
        container->show();
        delegate.populateKeyData();
        table()->clearSelection();
    }

    void TearDown() override { container.reset(); }

    VTShortcutKeyTableview *table() const { return delegate.shortcutKeyTableView(); }
    QAbstractItemModel *model() const { return table()->model(); }

    QString keyName(int row) const { return model()->index(row, 1).data().toString(); }

    PlistDict sharedFile() const
    {
        return PropertyList::readDictionary(shortcutFile).value_or(PlistDict());
    }
    PlistArray watchlist() const { return sharedFile().value("watchlist").array(); }

    void writeSharedFile(const PlistArray &watchlist, PlistDict dict = {}) const
    {
        dict.insert("watchlist", watchlist);
        QDir().mkpath(QFileInfo(shortcutFile).absolutePath());
        ASSERT_TRUE(PropertyList::writeXml(PlistValue(dict), shortcutFile));
    }

    qsizetype managerRuns() const { return TestFiles::lines(managerRecord).count("-setup"); }

    // Double-clicks a row's shortcut cell, as the user starts editing it.
    VTShortcutKeyFieldEditor *editRow(int row)
    {
        const QModelIndex index = model()->index(row, 1);
        table()->selectRow(row);
        const QPoint centre = table()->visualRect(index).center();
        // A double click is a click followed by a double-click event.
        QTest::mouseClick(table()->viewport(), Qt::LeftButton, Qt::NoModifier, centre);
        QTest::mouseDClick(table()->viewport(), Qt::LeftButton, Qt::NoModifier, centre);
        VTShortcutKeyFieldEditor *editor = delegate.fieldEditor();
        if (!editor || !editor->isVisible() || table()->indexWidget(index) != editor) {
            ADD_FAILURE() << "the shortcut cell did not start editing";
            return nullptr;
        }
        return editor;
    }

    void press(int row, Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        VTShortcutKeyFieldEditor *editor = editRow(row);
        ASSERT_TRUE(editor);
        QTest::keyClick(editor, key, modifiers);
    }
};

TEST_F(VTShortcutKeyPanelTest, ThePanelListsTheCommandsWithTheirAssignments)
{
    writeSharedFile({entry(kOurs, 0x60, 0x1800, "enableall"),
                     // Another application's command of the same id is not ours.
                     entry(kQuill, 0x00, 0x300, "newtask"),
                     // A key the table does not know.
                     entry(kOurs, 0x34, 0x300, "disableall"),
                     entry(kOurs, 0x01, 0x300, "nosuchcommand")});
    TestFiles::CaptureStderr capture;
    delegate.populateKeyData();
    const QString console = capture.finish();

    ASSERT_EQ(model()->rowCount(), 3);
    EXPECT_EQ(model()->index(2, 0).data().toString(), "Disable All Tasks");
    EXPECT_FALSE(model()->index(0, 1).data().isValid());
    EXPECT_EQ(keyName(1), "Ctrl+Alt+F5");
    EXPECT_EQ(keyName(2), "Unknown");
    EXPECT_TRUE(console.contains("Couldn't find a translation for the '52' key code"));

    // The command's icon is the application's, at 16 by 16.
    const QIcon icon = model()->index(0, 0).data(Qt::DecorationRole).value<QIcon>();
    EXPECT_EQ(icon.availableSizes().value(0), QSize(16, 16));
    EXPECT_EQ(icon.pixmap(QSize(16, 16)).toImage().pixelColor(8, 8), QColor(Qt::red));
    EXPECT_FALSE(model()->flags(model()->index(0, 0)).testFlag(Qt::ItemIsEditable));
}

// A key pressed alone is stored with Command and Shift; editing ends, and the manager is told
// after the file was written. Keys a table or a dialog would act on are captured too.
TEST_F(VTShortcutKeyPanelTest, TheCapturedModifiersFollowTheForcedModifierRule)
{
    struct Case
    {
        Qt::Key key;
        Qt::KeyboardModifiers modifiers;
        qint64 keycode;
        qint64 mask;
        const char *name;
    };
    const Case cases[] = {
        {Qt::Key_A, Qt::NoModifier, 0x00, 0x300, "Shift+Cmd+A"},
        {Qt::Key_A, Qt::MetaModifier, 0x00, 0x100, "Cmd+A"},
        {Qt::Key_A, Qt::ShiftModifier, 0x00, 0x200, "Shift+A"},
        {Qt::Key_A, Qt::ControlModifier, 0x00, 0x1000, "Ctrl+A"},
        {Qt::Key_A, Qt::AltModifier, 0x00, 0x800, "Alt+A"},
        {Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier,
         0x06, 0x1B00, "Ctrl+Shift+Alt+Cmd+Z"},
        {Qt::Key_Tab, Qt::NoModifier, 0x30, 0x300, "Shift+Cmd+Tab"},
        {Qt::Key_Return, Qt::NoModifier, 0x24, 0x300, "Shift+Cmd+Enter"},
        {Qt::Key_Enter, Qt::KeypadModifier, 0x4C, 0x300, "Shift+Cmd+Return"},
        {Qt::Key_Backspace, Qt::ControlModifier, 0x33, 0x1000, "Ctrl+Backspace"},
    };
    // A modifier alone is no shortcut; a key is taken by its position (XKB keycode 39 is the
    // S position), whatever the layout calls it.
    VTShortcutKeyFieldEditor *editor = editRow(1);
    ASSERT_TRUE(editor);
    QTest::keyClick(editor, Qt::Key_Shift, Qt::ShiftModifier);
    QTest::keyClick(editor, Qt::Key_Control, Qt::ControlModifier);
    EXPECT_TRUE(editor->isVisible());
    EXPECT_FALSE(QFileInfo::exists(shortcutFile));
    QKeyEvent position(QEvent::KeyPress, Qt::Key_Q, Qt::NoModifier, 39, 0x71, 0, "q");
    QApplication::sendEvent(editor, &position);
    EXPECT_EQ(keyName(1), "Shift+Cmd+S");

    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        press(0, c.key, c.modifiers);
        EXPECT_EQ(keyName(0), QString::fromLatin1(c.name));
        const PlistArray list = watchlist();
        ASSERT_EQ(list.size(), 2u);
        EXPECT_EQ(list[1], entry(kOurs, c.keycode, c.mask, "newtask"));
        EXPECT_FALSE(delegate.fieldEditor()->isVisible());
    }
    EXPECT_EQ(managerRuns(), qsizetype(std::size(cases)) + 1);
    EXPECT_TRUE(TestFiles::read(managerRecord).contains("<string>newtask</string>"));
}

TEST_F(VTShortcutKeyPanelTest, ANewAssignmentReplacesTheOldAndOtherEntriesSurvive)
{
    const PlistArray params{PlistValue("-run"), PlistValue("newtask")};
    writeSharedFile({entry(kQuill, 0x00, 0x300, "newtask"),
                     PlistValue(PlistDict{{"bundleid", kOurs},
                                          {"keycode", 0x01},
                                          {"modifiers", 0x300},
                                          {"commandparams", params}}),
                     entry(kOurs, 0x02, 0x300, "enableall")},
                    {{"version", 3}});
    delegate.populateKeyData();
    // The file is replaced whole, never rewritten in place: a reader that opened the old
    // file keeps seeing it whole, and no temporary file is left beside it.
    const QByteArray before = TestFiles::read(shortcutFile);
    const QString reader = sandbox.file("reader.plist");
    ASSERT_EQ(
        ::link(QFile::encodeName(shortcutFile).constData(), QFile::encodeName(reader).constData()),
        0);

    press(0, Qt::Key_A);
    EXPECT_EQ(TestFiles::read(reader), before);
    EXPECT_EQ(QDir(QFileInfo(shortcutFile).absolutePath()).entryList(QDir::Files | QDir::Hidden),
              QStringList{"com.vantreel.shortcutkeys.plist"});
    press(0, Qt::Key_F5, Qt::ControlModifier | Qt::AltModifier);

    const PlistDict file = sharedFile();
    EXPECT_EQ(file.value("version").integerValue(), 3);
    const PlistArray list = file.value("watchlist").array();
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0], entry(kQuill, 0x00, 0x300, "newtask"));
    EXPECT_EQ(list[1].dict().value("commandparams"), PlistValue(params));
    EXPECT_EQ(list[2], entry(kOurs, 0x02, 0x300, "enableall"));
    EXPECT_EQ(list[3], entry(kOurs, 0x60, 0x1800, "newtask"));
    EXPECT_EQ(keyName(0), "Ctrl+Alt+F5");
    EXPECT_EQ(keyName(1), "Shift+Cmd+D");
    EXPECT_EQ(managerRuns(), 2);
}

// The delete keys and the clear button clear the selected shortcut; other keys move the
// selection.
TEST_F(VTShortcutKeyPanelTest, DeleteKeysAndTheClearButtonClearTheSelectedShortcut)
{
    QPushButton *clear = delegate.parentView()->findChild<QPushButton *>("clearButton");
    ASSERT_TRUE(clear);
    // With no row selected nothing changes.
    writeSharedFile({entry(kQuill, 0, 0x300, "x")});
    const QByteArray before = TestFiles::read(shortcutFile);
    delegate.populateKeyData();
    table()->clearSelection();
    TestFiles::CaptureStderr capture;
    QTest::keyClick(table(), Qt::Key_Backspace);
    const QString console = capture.finish();
    EXPECT_EQ(TestFiles::read(shortcutFile), before);
    EXPECT_EQ(managerRuns(), 0);
    EXPECT_TRUE(console.contains("Exception in VTShortcutKeyTableDelegate::keyCleared"))
        << console.toStdString();

    for (const Qt::Key key : {Qt::Key_Backspace, Qt::Key_Delete, Qt::Key_Clear, Qt::Key_unknown}) {
        SCOPED_TRACE(key);
        writeSharedFile({entry(kOurs, 0x00, 0x300, "newtask"),
                         entry(kQuill, 0x01, 0x300, "enableall"),
                         entry(kOurs, 0x02, 0x300, "enableall")});
        QFile::remove(managerRecord);
        delegate.populateKeyData();
        ASSERT_EQ(keyName(1), "Shift+Cmd+D");

        table()->selectRow(1);
        table()->setFocus();
        if (key == Qt::Key_unknown) {
            QTest::mouseClick(clear, Qt::LeftButton);
        } else {
            QTest::keyClick(table(), key);
        }
        EXPECT_EQ(keyName(1), QString());
        EXPECT_EQ(keyName(0), "Shift+Cmd+A");
        EXPECT_EQ(watchlist(), (PlistArray{entry(kOurs, 0x00, 0x300, "newtask"),
                                           entry(kQuill, 0x01, 0x300, "enableall")}));
        EXPECT_EQ(managerRuns(), 1);
        // The selection stays on the row.
        EXPECT_EQ(table()->selectionModel()->selectedRows().value(0).row(), 1);
    }
    table()->setCurrentIndex(model()->index(0, 0));
    table()->setFocus();
    QTest::keyClick(table(), Qt::Key_Down);
    EXPECT_EQ(table()->currentIndex().row(), 1);
    EXPECT_EQ(managerRuns(), 1);
}

TEST_F(VTShortcutKeyPanelTest, AMissingManagerDisablesThePanelButAssignmentsAreStillWritten)
{
    QFile::remove(manager);
    delegate.populateKeyData();
    EXPECT_FALSE(table()->isEnabled());
    EXPECT_FALSE(delegate.versionAlertText()->isHidden());

    TestFiles::CaptureStderr capture;
    delegate.setKeyboardShortcutWithID("newtask", std::nullopt, 0x0B, true, true, false, false);
    const QString console = capture.finish();
    EXPECT_TRUE(console.contains("Unable to setup shortcut keys - shortcut key manager doesn't "
                                 "exist. Please reinstall this software."))
        << console.toStdString();
    ASSERT_EQ(watchlist().size(), 1u);
    EXPECT_EQ(watchlist()[0], entry(kOurs, 0x0B, 0x300, "newtask"));

    // Installed again, the next look makes the panel usable.
    TestFiles::writeScript(manager, "exit 0");
    delegate.populateKeyData();
    EXPECT_TRUE(table()->isEnabled());
    EXPECT_TRUE(delegate.versionAlertText()->isHidden());
    EXPECT_EQ(keyName(0), "Shift+Cmd+B");
}

// Under a home whose name is not UTF-8 the assignment is written into that very home.
TEST_F(VTShortcutKeyPanelTest, AHomeThatIsNotUtf8KeepsItsAssignments)
{
    const QString home = sandbox.path() + FileNames::decode("/caf\xe9");
    sandbox.setEnv("HOME", home);
    identity->home = home;
    shortcutFile = home + "/Library/Preferences/com.vantreel.shortcutkeys.plist";
    delegate.setKeyboardShortcutWithID(QStringLiteral("newtask"), std::nullopt, 0x0B, true, true,
                                       false, false);
    ASSERT_EQ(watchlist().size(), 1u);
    EXPECT_EQ(FileNames::entryList(sandbox.path()).filter(QStringLiteral("caf")),
              QStringList{FileNames::decode("caf\xe9")});
}

// Each entry both ways, by its Qt key when an event carries no native code, and by the
// native code (the key's position) over whatever Qt key the layout gave.
TEST_F(VTShortcutKeyNameTest, EveryKeyMapsToItsMacCodeAndBack)
{
    std::set<quint16> macCodes;
    std::set<quint32> xkbKeycodes;
    for (const VTKeyCodeTable::Entry &entry : VTKeyCodeTable::entries()) {
        SCOPED_TRACE(entry.macKeyCode);
        EXPECT_TRUE(macCodes.insert(entry.macKeyCode).second) << "Mac code listed twice";
        EXPECT_TRUE(xkbKeycodes.insert(entry.xkbKeycode).second) << "XKB keycode listed twice";
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForXkbKeycode(entry.xkbKeycode), entry.macKeyCode);
        EXPECT_EQ(VTKeyCodeTable::xkbKeycodeForMacKeyCode(entry.macKeyCode), entry.xkbKeycode);
        const QKeyEvent native(QEvent::KeyPress, Qt::Key_A, Qt::NoModifier, entry.xkbKeycode, 0, 0);
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(native), entry.macKeyCode);
        if (entry.qtKey != 0) {
            const QKeyEvent synthesised(QEvent::KeyPress, entry.qtKey,
                                        entry.keypad ? Qt::KeypadModifier : Qt::NoModifier);
            EXPECT_EQ(VTKeyCodeTable::macKeyCodeForKeyEvent(synthesised), entry.macKeyCode);
        }
    }

    // The keypad's and the main block's keys of the same Qt key are told apart; Enter exists
    // only on the keypad. Modifier keys have no entry, whatever Qt calls them.
    const std::tuple<int, bool, std::optional<quint16>> qtKeys[] = {
        {Qt::Key_Minus, false, 0x1B}, {Qt::Key_Minus, true, 0x4E},  {Qt::Key_1, false, 0x12},
        {Qt::Key_1, true, 0x53},      {Qt::Key_Enter, false, 0x4C}, {Qt::Key_Return, false, 0x24},
        {Qt::Key_Shift, false, {}},   {Qt::Key_AltGr, false, {}},   {0, false, {}}};
    for (const auto &[key, keypad, mac] : qtKeys) {
        EXPECT_EQ(VTKeyCodeTable::macKeyCodeForQtKey(key, keypad), mac) << key;
    }
}

// Modifiers in the order Ctrl, Shift, Alt, Cmd (the panel's tests name all four); the key named
// without its modifiers (Shift+1 is not "!") and upper-cased when it is one character. Caps lock
// (0x400) and other bits name nothing. The Return key types a carriage return, named "Enter"; the
// keypad's Enter key types 0x03, named "Return".
TEST_F(VTShortcutKeyNameTest, NamesAndCharactersOfKeysAndModifiers)
{
    const std::tuple<quint16, quint64, const char *> keys[] = {
        {0x00, 0, "A"},     {0x0E, 0x1800, "Ctrl+Alt+E"}, {0x12, 0x1200, "Ctrl+Shift+1"},
        {0x00, 0x481, "A"}, {0x12, 0x200, "Shift+1"},     {0x2C, 0x300, "Shift+Cmd+/"},
        {0x7A, 0, "F1"}};
    for (const auto &[keyCode, modifiers, expected] : keys) {
        EXPECT_EQ(Delegate::nameForKeyCode(keyCode, modifiers), some(expected)) << keyCode;
    }
    const std::pair<quint16, const char *> special[] = {
        {0x7E, "Up Arrow"}, {0x7D, "Down Arrow"}, {0x7B, "Left Arrow"}, {0x7C, "Right Arrow"},
        {0x73, "Home"},     {0x77, "End"},        {0x74, "Page Up"},    {0x79, "Page Down"},
        {0x24, "Enter"},    {0x4C, "Return"},     {0x30, "Tab"},        {0x35, "Escape"},
        {0x31, "Space"},    {0x33, "Backspace"},  {0x75, "Delete"}};
    for (const auto &[keyCode, expected] : special) {
        EXPECT_EQ(Delegate::nameForKeyCode(keyCode, 0x300), some(QString("Shift+Cmd+") + expected))
            << keyCode;
    }
    // The characters change with Shift and caps lock, not with Command; Shift+Tab is
    // back-tab.
    const std::tuple<quint16, quint64, const char *> characters[] = {
        {0x00, 0, "a"},     {0x00, 0x200, "A"},       {0x00, 0x400, "A"},
        {0x12, 0x200, "!"}, {0x30, 0x200, "Backtab"}, {0x00, 0x100, "a"}};
    for (const auto &[keyCode, modifiers, expected] : characters) {
        EXPECT_EQ(Delegate::stringForKeyCode(keyCode, modifiers), some(expected)) << expected;
    }
}

TEST_F(VTShortcutKeyNameTest, TheDesktopsLayoutIsUsed)
{
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", std::nullopt);
    VTKeyboardLayout::RuleNames names = VTKeyboardLayout::desktopRuleNames();
    EXPECT_EQ(names.rules, "evdev");
    EXPECT_EQ(names.model, "pc105");
    EXPECT_EQ(names.layout, "us");
    EXPECT_TRUE(names.variant.isEmpty());

    sandbox.setEnv("XKB_DEFAULT_LAYOUT", "de");
    sandbox.setEnv("XKB_DEFAULT_VARIANT", "nodeadkeys");
    sandbox.setEnv("XKB_DEFAULT_MODEL", QString());
    names = VTKeyboardLayout::desktopRuleNames();
    EXPECT_EQ(names.layout, "de");
    EXPECT_EQ(names.variant, "nodeadkeys");
    EXPECT_EQ(names.model, "pc105");
    // The key in the Z position types y on a German keyboard, and the one in the Y position z.
    EXPECT_EQ(Delegate::nameForKeyCode(0x06, 0x300), some("Shift+Cmd+Y"));
    EXPECT_EQ(Delegate::nameForKeyCode(0x10, 0x300), some("Shift+Cmd+Z"));
    EXPECT_EQ(Delegate::nameForKeyCode(0x29, 0), some("\u00d6"));
    // Option is the third level, where the German layout has @ on Q.
    EXPECT_EQ(Delegate::stringForKeyCode(0x0C, 0x800), some("@"));

    sandbox.setEnv("XKB_DEFAULT_LAYOUT", "fr");
    sandbox.setEnv("XKB_DEFAULT_VARIANT", std::nullopt);
    EXPECT_EQ(Delegate::nameForKeyCode(0x00, 0), some("Q"));
    EXPECT_EQ(VTKeyboardLayout::current()->ruleNames().layout, "fr");
}

TEST_F(VTShortcutKeyNameTest, UntranslatableKeysHaveNoNameAndSayWhy)
{
    const auto layout = VTKeyboardLayout::current();
    ASSERT_TRUE(layout);
    for (const quint32 xkb : {0u, 7u, 100000u}) {
        const VTKeyboardLayout::Translation translation = layout->translate(xkb, 0);
        EXPECT_EQ(translation.status, VTKeyboardLayout::kKeycodeNotInKeymap);
        EXPECT_EQ(translation.errorName, "xkb_keymap_key_get_name");
        EXPECT_TRUE(translation.characters.isEmpty());
    }

    // A code the table lacks is the panel's test ("Unknown").
    TestFiles::CaptureStderr capture;
    EXPECT_EQ(Delegate::nameForKeyCode(0x10000, 0), std::nullopt);
    sandbox.setEnv("XKB_DEFAULT_LAYOUT", "no-such-layout");
    EXPECT_EQ(Delegate::nameForKeyCode(0x00, 0x300), std::nullopt);
    EXPECT_EQ(VTKeyboardLayout::current(), nullptr);
    const QString console = capture.finish();
    EXPECT_TRUE(
        console.contains("Couldn't find a suitable keyboard layout from which to translate"))
        << console.toStdString();
    // libxkbcommon's own complaints go to the log, not to the console.
    EXPECT_FALSE(console.contains("xkbcommon")) << console.toStdString();
}
