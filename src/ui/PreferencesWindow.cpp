#include "PreferencesWindow.h"

#include "VTShortcutKeyContainerView.h"
#include "platform/Console.h"
#include "platform/FileNames.h"
#include "platform/PathString.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"
#include "support/VTAuthorization.h"
#include "support/VTException.h"
#include "support/VTLocalPaths.h"
#include "support/VTLog.h"
#include "support/VTToolPaths.h"

#include "ui_Preferences.h"

#include <QCheckBox>
#include <QSignalBlocker>

#include <unistd.h>

namespace {

const QString kRequireAdminPassword = QStringLiteral("requireAdminPassword");

} // namespace

PreferencesWindow::PreferencesWindow(QWidget *parent)
    : QDialog(parent), m_ui(std::make_unique<Ui::Preferences>())
{
    m_ui->setupUi(this);
    setWindowFlag(Qt::Window);
    connect(m_ui->prefsAdminPass, &QCheckBox::clicked, this,
            &PreferencesWindow::prefsToggleAdminPass);
}

PreferencesWindow::~PreferencesWindow() = default;

void PreferencesWindow::showEvent(QShowEvent *event)
{
    // The shortcut panel reads the keyboard layout and the shared shortcut file: only when
    // the window is first shown, not at every start of the application.
    if (!m_shortcutKeys) {
        m_shortcutKeys = new VTShortcutKeyContainerView;
        m_ui->shortcutKeyPlace->addWidget(m_shortcutKeys);
    }
    QDialog::showEvent(event);
}

QCheckBox *PreferencesWindow::prefsAdminPass() const
{
    return m_ui->prefsAdminPass;
}

void PreferencesWindow::setAdminPassState(bool on)
{
    const QSignalBlocker blocker(m_ui->prefsAdminPass);
    m_ui->prefsAdminPass->setChecked(on);
}

void PreferencesWindow::prefsToggleAdminPass(bool on)
{
    VTException::guard(VT_METHOD, [&] {
        if (!on && !VTAuthorization::sharedController().authStart()) {
            setAdminPassState(true);
            return;
        }
        storeRequireAdminPassword(on ? 1 : 0);
    });
}

bool PreferencesWindow::storeRequireAdminPassword(int value)
{
    return VTException::guard(VT_METHOD, false, [&] {
        UserDefaults &defaults = UserDefaults::standardUserDefaults();
        if (defaults.setObjectForAnyUser(PlistValue(qint64(value)), kRequireAdminPassword)) {
            return true;
        }
        const QString target = defaults.machineFile();
        PlistDict values = PropertyList::readDictionary(target).value_or(PlistDict());
        values.insert(kRequireAdminPassword, qint64(value));
        const QString staged = VTLocalPaths::appendPathComponent(
            VTLocalPaths::tempDirectory(), VTLocalPaths::uuid() + QStringLiteral(".plist"));
        bool stored = PropertyList::writeXml(PlistValue(values), staged);
        if (stored) {
            VTAuthorization &auth = VTAuthorization::sharedController();
            const QString folder = PathString::deletingLastPathComponent(target);
            if (!FileNames::isDirectory(folder)) {
                auth.authCreateDir(folder);
            }
            stored = auth.authMoveFile(staged, target);
            if (stored) {
                auth.authExecTask(VTToolPaths::chown(), {QStringLiteral("root:root"), target},
                                  false);
                auth.authExecTask(VTToolPaths::chmod(), {QStringLiteral("644"), target}, false);
            }
        }
        ::unlink(FileNames::encode(staged).constData());
        defaults.synchronize();
        if (!stored) {
            const QString message =
                QStringLiteral("Unable to store %1 in %2").arg(kRequireAdminPassword, target);
            Console::log(message);
            VTLog::appendLog(QStringLiteral("%@"), message);
        }
        return stored;
    });
}
