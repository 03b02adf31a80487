#pragma once

#include "platform/PlistDict.h"

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QVariantMap>

#include <optional>
#include <vector>

class QLabel;
class QPushButton;
class QTableView;
class QWidget;
class VTShortcutKeyFieldEditor;
class VTShortcutKeyTableModel;
class VTShortcutKeyTableview;
class VTShortcutKeyTextCell;

// The keyboard shortcut panel: lists the commands of this application's "VTKeys.plist",
// shows their shortcuts from the shared "com.vantreel.shortcutkeys.plist" and stores the
// shortcut the user presses there. The shortcut-key manager program does the watching; it
// is told of every change with "-setup" and every process of the session with the
// "VTShortcutKeysReload" signal.
//
// One instance per process, on the main thread. It owns the panel and is its table's data
// source; the two signals stand for the in-process notifications "VTShortcutKeyChanged"
// and "VTShortcutKeyCleared", which the field editor and the table post.
class VTShortcutKeyTableDelegate : public QObject
{
    Q_OBJECT

public:
    // Column identifiers of the shortcut table.
    static const QString kDescriptionColumn;
    static const QString kShortcutKeyColumn;

    static VTShortcutKeyTableDelegate &sharedController();

    // Builds the panel from its interface file once and connects it (awakeFromNib). False
    // when the interface lacks one of the panel's parts.
    bool loadInterface();
    void awakeFromNib();

    // Rebuilds the rows from the command catalogue and the shared file.
    void populateKeyData();

    int numberOfRowsInTableView(QTableView *tableView) const;
    // The text of a cell: the row's "description" or "keyname"; none for other columns.
    std::optional<QString> tableView(QTableView *tableView,
                                     const QString &objectValueForTableColumn, int row) const;
    // The image of a cell about to be shown: the application icon at 16 by 16 points in
    // the description column.
    void tableView(QTableView *tableView, QIcon &willDisplayCellImage,
                   const QString &forTableColumn, int row) const;
    // The emptied field editor when the shortcut table asks for an editor; null otherwise,
    // which means the default editor.
    QWidget *windowWillReturnFieldEditor(QWidget *window, QObject *toObject);

    // Stores one assignment of this application: replaces the command's old entry (by
    // id, or by parameters when there is no id), writes the shared file, tells the session
    // and runs the manager.
    void setKeyboardShortcutWithID(const std::optional<QString> &commandID,
                                   const std::optional<PlistArray> &params, quint64 keycode,
                                   bool shift, bool cmd, bool opt, bool ctrl);

    // "Ctrl+", "Shift+", "Alt+", "Cmd+" for the modifier bits that are set (0x1000, 0x200,
    // 0x800, 0x100), then the key's character, upper-cased when it is a single one. None
    // when the key cannot be translated.
    static std::optional<QString> nameForKeyCode(quint64 keyCode, quint64 modifiers);
    // The key's characters in the desktop's layout with the given modifier bits (see
    // VTKeyboardLayout::translate), or the name of a special key; none with the reason on
    // the console.
    static std::optional<QString> stringForKeyCode(quint16 keyCode, quint32 withModifierFlags);

    // The panel's view and parts; null until the interface is loaded.
    QWidget *parentView() const;
    VTShortcutKeyTableview *shortcutKeyTableView() const;
    QLabel *versionAlertText() const;
    VTShortcutKeyFieldEditor *fieldEditor() const;
    const std::vector<PlistDict> &dataArray() const { return m_dataArray; }

    // This application's bundle identifier, the owner of its entries in the shared file.
    static QString bundleIdentifier();
    static std::optional<QString> shortcutKeysFilePath();
    static std::optional<QString> shortcutKeyManagerPath();

    // Posting the in-process notifications.
    static void postShortcutKeyChanged(const QVariantMap &userInfo);
    static void postShortcutKeyCleared();

public Q_SLOTS:
    void keyChanged(const QVariantMap &userInfo);
    void keyCleared();
    void clearShortcutKey();

Q_SIGNALS:
    // "VTShortcutKeyChanged": "keycode" (integer), "shift", "ctrl", "opt", "cmd" (booleans).
    void shortcutKeyChanged(const QVariantMap &userInfo);
    // "VTShortcutKeyCleared".
    void shortcutKeyCleared();

private:
    VTShortcutKeyTableDelegate();
    ~VTShortcutKeyTableDelegate() override;

    int selectedRow() const;
    void reloadTable();
    void endEditingShortcutKeyCell();
    void writeShortcutKeys(const PlistDict &shortcutKeys);
    static PlistDict readShortcutKeys();
    static void runShortcutKeyManager();

    std::vector<PlistDict> m_dataArray;
    QPointer<VTShortcutKeyFieldEditor> m_fieldEditor;
    QPointer<VTShortcutKeyTableview> m_shortcutKeyTableView;
    QPointer<QWidget> m_parentView;
    QPointer<QLabel> m_versionAlertText;
    QPointer<QPushButton> m_clearButton;
    QPointer<VTShortcutKeyTableModel> m_model;
    QPointer<VTShortcutKeyTextCell> m_textCell;
    mutable QIcon m_cellImage;
};
