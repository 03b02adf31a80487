#pragma once

#include <QDialog>

#include <memory>

namespace Ui {
class Preferences;
}
class QCheckBox;
class VTShortcutKeyContainerView;

// The preferences window: whether opening the application needs an administrator
// password (a setting for every user of the machine), and the keyboard shortcuts.
class PreferencesWindow : public QDialog
{
    Q_OBJECT

public:
    explicit PreferencesWindow(QWidget *parent = nullptr);
    ~PreferencesWindow() override;

    QCheckBox *prefsAdminPass() const;
    void setAdminPassState(bool on);
    // The checkbox's action; its state has changed already. Removing the protection needs
    // the administrator's authorization, adding it does not.
    void prefsToggleAdminPass(bool on);

    // Writes "requireAdminPassword" machine-wide. That file belongs to root on a real
    // system: when it cannot be written directly it is staged and moved into place with
    // administrator rights (turning the protection off has authenticated already; turning
    // it on may ask for the password here).
    static bool storeRequireAdminPassword(int value);

protected:
    void showEvent(QShowEvent *event) override;

private:
    std::unique_ptr<Ui::Preferences> m_ui;
    VTShortcutKeyContainerView *m_shortcutKeys = nullptr;
};
