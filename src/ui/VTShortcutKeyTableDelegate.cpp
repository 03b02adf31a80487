#include "VTShortcutKeyTableDelegate.h"

#include "VTKeyCodeTable.h"
#include "VTKeyboardLayout.h"
#include "VTShortcutKeyFieldEditor.h"
#include "VTShortcutKeyTableModel.h"
#include "VTShortcutKeyTableview.h"
#include "VTShortcutKeyTextCell.h"
#include "platform/Bundle.h"
#include "platform/Console.h"
#include "platform/DistributedNotification.h"
#include "platform/FileNames.h"
#include "platform/PathString.h"
#include "platform/PosixFile.h"
#include "platform/PropertyList.h"
#include "platform/Workspace.h"
#include "support/VTException.h"
#include "support/VTFormat.h"
#include "support/VTLocalPaths.h"
#include "support/VTLog.h"
#include "support/VTTask.h"

#include "ui_VTShortcutKeyConfig.h"

#include <QApplication>
#include <QCoreApplication>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>

#include <algorithm>

const QString VTShortcutKeyTableDelegate::kDescriptionColumn = QStringLiteral("description");
const QString VTShortcutKeyTableDelegate::kShortcutKeyColumn = QStringLiteral("shortcutkey");

namespace {

const QString kWatchlist = QStringLiteral("watchlist");
const QString kBundleID = QStringLiteral("bundleid");
const QString kKeyCode = QStringLiteral("keycode");
const QString kModifiers = QStringLiteral("modifiers");
const QString kCommandID = QStringLiteral("commandid");
const QString kCommandParams = QStringLiteral("commandparams");
const QString kKeyName = QStringLiteral("keyname");
const QString kID = QStringLiteral("id");
const QString kUnknown = QStringLiteral("Unknown");

// The classic event modifier bits of the shared file.
constexpr quint64 kCmdKey = 0x100;
constexpr quint64 kShiftKey = 0x200;
constexpr quint64 kOptionKey = 0x800;
constexpr quint64 kControlKey = 0x1000;

struct SpecialKey
{
    char16_t character;
    const char *name;
};

// The first character of a translation that names a key rather than typing something.
constexpr SpecialKey kSpecialKeys[] = {
    {0xF700, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Up Arrow")},
    {0xF701, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Down Arrow")},
    {0xF702, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Left Arrow")},
    {0xF703, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Right Arrow")},
    {0xF729, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Home")},
    {0xF72B, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "End")},
    {0xF72C, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Page Up")},
    {0xF72D, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Page Down")},
    {0x1E, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Up Arrow")},
    {0x1F, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Down Arrow")},
    {0x1C, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Left Arrow")},
    {0x1D, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Right Arrow")},
    {0x01, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Home")},
    {0x04, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "End")},
    {0x0B, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Page Up")},
    {0x0C, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Page Down")},
    {0x03, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Return")},
    {0x09, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Tab")},
    {0x19, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Backtab")},
    {0x0D, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Enter")},
    {0x08, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Backspace")},
    {0x7F, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Delete")},
    {0x1B, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Escape")},
    {0x20, QT_TRANSLATE_NOOP("VTShortcutKeyTableDelegate", "Space")},
};

void report(const QString &message)
{
    Console::log(message);
    VTLog::appendLog(QStringLiteral("%@"), message);
}

std::optional<QString> stringValue(const PlistValue &value)
{
    return value.isString() ? std::optional<QString>(value.string()) : std::nullopt;
}

bool isThisApplicationsEntry(const PlistValue &entry, const QString &bundleID)
{
    return entry.isDictionary() && entry.dict().value(kBundleID) == PlistValue(bundleID);
}

} // namespace

VTShortcutKeyTableDelegate &VTShortcutKeyTableDelegate::sharedController()
{
    // Created once, thread-safely, and never destroyed: the panel it owns may be on screen
    // until the application's last moment.
    static VTShortcutKeyTableDelegate *const instance = new VTShortcutKeyTableDelegate();
    return *instance;
}

VTShortcutKeyTableDelegate::VTShortcutKeyTableDelegate() = default;

VTShortcutKeyTableDelegate::~VTShortcutKeyTableDelegate() = default;

bool VTShortcutKeyTableDelegate::loadInterface()
{
    if (m_parentView) {
        return true;
    }
    auto *panel = new QWidget();
    Ui::VTShortcutKeyConfig form;
    form.setupUi(panel);

    // The panel's parts are found by name, so an interface file that lacks one fails here.
    auto *table =
        panel->findChild<VTShortcutKeyTableview *>(QStringLiteral("shortcutKeyTableView"));
    auto *alert = panel->findChild<QLabel *>(QStringLiteral("versionAlertText"));
    if (panel->objectName() != QLatin1String("parentView") || !table || !alert) {
        delete panel;
        return false;
    }
    m_parentView = panel;
    m_shortcutKeyTableView = table;
    m_versionAlertText = alert;
    m_clearButton = panel->findChild<QPushButton *>(QStringLiteral("clearButton"));
    if (m_clearButton) {
        connect(m_clearButton, &QPushButton::clicked, this,
                &VTShortcutKeyTableDelegate::clearShortcutKey);
    }
    awakeFromNib();
    return true;
}

void VTShortcutKeyTableDelegate::awakeFromNib()
{
    VTException::guard(VT_METHOD, [&] {
        if (!m_fieldEditor) {
            m_fieldEditor = new VTShortcutKeyFieldEditor(m_parentView);
            m_fieldEditor->hide();
        }
        connect(this, &VTShortcutKeyTableDelegate::shortcutKeyChanged, this,
                &VTShortcutKeyTableDelegate::keyChanged, Qt::UniqueConnection);
        connect(this, &VTShortcutKeyTableDelegate::shortcutKeyCleared, this,
                &VTShortcutKeyTableDelegate::keyCleared, Qt::UniqueConnection);

        if (m_shortcutKeyTableView && !m_model) {
            m_model =
                new VTShortcutKeyTableModel(this, m_shortcutKeyTableView, m_shortcutKeyTableView);
            m_textCell = new VTShortcutKeyTextCell(m_shortcutKeyTableView);
            m_shortcutKeyTableView->setModel(m_model);
            m_shortcutKeyTableView->setItemDelegateForColumn(
                VTShortcutKeyTableModel::columnForIdentifier(kShortcutKeyColumn), m_textCell);
            m_shortcutKeyTableView->setIconSize(QSize(16, 16));
            m_shortcutKeyTableView->horizontalHeader()->setSectionResizeMode(
                VTShortcutKeyTableModel::columnForIdentifier(kDescriptionColumn),
                QHeaderView::Stretch);
        }
        populateKeyData();
    });
}

void VTShortcutKeyTableDelegate::populateKeyData()
{
    VTException::guard(VT_METHOD, [&] {
        const std::optional<QString> manager = shortcutKeyManagerPath();
        const bool managerExists = manager && FileNames::exists(*manager);
        if (m_versionAlertText) {
            m_versionAlertText->setVisible(!managerExists);
        }
        if (m_shortcutKeyTableView) {
            m_shortcutKeyTableView->setEnabled(managerExists);
        }

        std::vector<PlistDict> rows;
        if (const std::optional<Bundle> bundle = Bundle::mainBundle()) {
            const std::optional<PlistDict> catalogue = PropertyList::readDictionary(
                bundle->bundlePath() + QStringLiteral("/Contents/VTKeys.plist"));
            if (catalogue) {
                const PlistValue keys = catalogue->value(QStringLiteral("VTKeys"));
                for (const PlistValue &entry : keys.array()) {
                    if (entry.isDictionary()) {
                        rows.push_back(entry.dict());
                    }
                }
            }
        }

        const QString bundleID = bundleIdentifier();
        const PlistValue watchlist = readShortcutKeys().value(kWatchlist);
        for (const PlistValue &entry : watchlist.array()) {
            if (!isThisApplicationsEntry(entry, bundleID)) {
                continue;
            }
            const PlistDict &assignment = entry.dict();
            const PlistValue commandID = assignment.value(kCommandID);
            if (!commandID.isValid()) {
                continue;
            }
            const auto row = std::find_if(rows.begin(), rows.end(), [&](const PlistDict &r) {
                return r.value(kID) == commandID;
            });
            if (row != rows.end()) {
                row->insert(kKeyName, nameForKeyCode(assignment.value(kKeyCode).integerValue(),
                                                     assignment.value(kModifiers).integerValue())
                                          .value_or(kUnknown));
            }
        }

        m_dataArray = std::move(rows);
        m_cellImage = QIcon();
        reloadTable();
    });
}

QWidget *VTShortcutKeyTableDelegate::parentView() const
{
    return m_parentView;
}

VTShortcutKeyTableview *VTShortcutKeyTableDelegate::shortcutKeyTableView() const
{
    return m_shortcutKeyTableView;
}

QLabel *VTShortcutKeyTableDelegate::versionAlertText() const
{
    return m_versionAlertText;
}

VTShortcutKeyFieldEditor *VTShortcutKeyTableDelegate::fieldEditor() const
{
    return m_fieldEditor;
}

int VTShortcutKeyTableDelegate::numberOfRowsInTableView(QTableView *) const
{
    return static_cast<int>(m_dataArray.size());
}

std::optional<QString>
VTShortcutKeyTableDelegate::tableView(QTableView *, const QString &objectValueForTableColumn,
                                      int row) const
{
    if (row < 0 || row >= static_cast<int>(m_dataArray.size())) {
        return std::nullopt;
    }
    const PlistDict &data = m_dataArray[static_cast<size_t>(row)];
    if (objectValueForTableColumn == kDescriptionColumn) {
        return stringValue(data.value(QStringLiteral("description")));
    }
    if (objectValueForTableColumn == kShortcutKeyColumn) {
        return stringValue(data.value(kKeyName));
    }
    return std::nullopt;
}

void VTShortcutKeyTableDelegate::tableView(QTableView *, QIcon &willDisplayCellImage,
                                           const QString &forTableColumn, int) const
{
    if (forTableColumn != kDescriptionColumn) {
        return;
    }
    if (m_cellImage.isNull()) {
        QPixmap image;
        const QIcon applicationIcon = QApplication::windowIcon();
        if (!applicationIcon.isNull()) {
            image = applicationIcon.pixmap(QSize(16, 16));
        } else if (const std::optional<Bundle> bundle = Bundle::mainBundle()) {
            image = QPixmap::fromImage(
                Workspace::iconForFile(bundle->bundlePath(), QSize(16, 16)).value<QImage>());
        }
        if (!image.isNull()) {
            m_cellImage =
                QIcon(image.scaled(QSize(16, 16), Qt::KeepAspectRatio, Qt::SmoothTransformation));
        }
    }
    willDisplayCellImage = m_cellImage;
}

QWidget *VTShortcutKeyTableDelegate::windowWillReturnFieldEditor(QWidget *, QObject *toObject)
{
    if (!toObject || toObject != m_shortcutKeyTableView) {
        return nullptr;
    }
    if (!m_fieldEditor) {
        m_fieldEditor = new VTShortcutKeyFieldEditor(m_parentView);
        m_fieldEditor->hide();
    }
    m_fieldEditor->clear();
    return m_fieldEditor;
}

void VTShortcutKeyTableDelegate::keyChanged(const QVariantMap &userInfo)
{
    VTException::guard(VT_METHOD, [&] {
        const int row = selectedRow();
        if (userInfo.isEmpty() || row < 0) {
            return;
        }
        const quint64 keycode = userInfo.value(kKeyCode).toULongLong();
        const bool shift = userInfo.value(QStringLiteral("shift")).toBool();
        const bool ctrl = userInfo.value(QStringLiteral("ctrl")).toBool();
        const bool opt = userInfo.value(QStringLiteral("opt")).toBool();
        const bool cmd = userInfo.value(QStringLiteral("cmd")).toBool();
        const quint64 modifiers = (shift ? kShiftKey : 0) | (ctrl ? kControlKey : 0) |
                                  (opt ? kOptionKey : 0) | (cmd ? kCmdKey : 0);

        PlistDict &data = m_dataArray.at(static_cast<size_t>(row));
        data.insert(kKeyName, nameForKeyCode(keycode, modifiers).value_or(kUnknown));
        const std::optional<QString> commandID = stringValue(data.value(kID));
        reloadTable();
        setKeyboardShortcutWithID(commandID, std::nullopt, keycode, shift, cmd, opt, ctrl);
    });
    endEditingShortcutKeyCell();
}

void VTShortcutKeyTableDelegate::keyCleared()
{
    VTException::guard(VT_METHOD, [&] {
        // With no row selected this throws, and the guard reports it: nothing is cleared.
        PlistDict &data = m_dataArray.at(static_cast<size_t>(selectedRow()));
        data.remove(kKeyName);
        const PlistValue commandID = data.value(kID);

        PlistDict shortcutKeys = readShortcutKeys();
        PlistArray watchlist = shortcutKeys.value(kWatchlist).array();
        const QString bundleID = bundleIdentifier();
        std::erase_if(watchlist, [&](const PlistValue &entry) {
            return isThisApplicationsEntry(entry, bundleID) && commandID.isString() &&
                   entry.dict().value(kCommandID) == commandID;
        });
        shortcutKeys.insert(kWatchlist, PlistValue(std::move(watchlist)));
        writeShortcutKeys(shortcutKeys);
        DistributedNotification::post(QStringLiteral("VTShortcutKeysReload"));
        reloadTable();
        runShortcutKeyManager();
    });
}

void VTShortcutKeyTableDelegate::clearShortcutKey()
{
    keyCleared();
}

void VTShortcutKeyTableDelegate::setKeyboardShortcutWithID(const std::optional<QString> &commandID,
                                                           const std::optional<PlistArray> &params,
                                                           quint64 keycode, bool shift, bool cmd,
                                                           bool opt, bool ctrl)
{
    VTException::guard(VT_METHOD, [&] {
        if (!commandID && !params) {
            throw VTException(QStringLiteral("NSInvalidArgumentException"),
                              QStringLiteral("A shortcut key needs a command id or parameters"));
        }
        PlistDict shortcutKeys = readShortcutKeys();
        PlistArray watchlist = shortcutKeys.value(kWatchlist).array();
        const QString bundleID = bundleIdentifier();
        std::erase_if(watchlist, [&](const PlistValue &entry) {
            if (!isThisApplicationsEntry(entry, bundleID)) {
                return false;
            }
            if (commandID) {
                return entry.dict().value(kCommandID) == PlistValue(*commandID);
            }
            return entry.dict().value(kCommandParams) == PlistValue(*params);
        });

        const quint64 modifiers = (shift ? kShiftKey : 0) | (ctrl ? kControlKey : 0) |
                                  (opt ? kOptionKey : 0) | (cmd ? kCmdKey : 0);
        PlistDict entry;
        entry.insert(kBundleID, PlistValue(bundleID));
        entry.insert(kKeyCode, PlistValue(keycode));
        entry.insert(kModifiers, PlistValue(modifiers));
        if (commandID) {
            entry.insert(kCommandID, PlistValue(*commandID));
        } else {
            entry.insert(kCommandParams, PlistValue(*params));
        }
        watchlist.push_back(PlistValue(std::move(entry)));

        shortcutKeys.insert(kWatchlist, PlistValue(std::move(watchlist)));
        writeShortcutKeys(shortcutKeys);
        DistributedNotification::post(QStringLiteral("VTShortcutKeysReload"));
        runShortcutKeyManager();
    });
}

std::optional<QString> VTShortcutKeyTableDelegate::nameForKeyCode(quint64 keyCode,
                                                                  quint64 modifiers)
{
    return VTException::guard(VT_METHOD, std::optional<QString>(), [&]() -> std::optional<QString> {
        QString name;
        if (modifiers & kControlKey) {
            name += QStringLiteral("Ctrl+");
        }
        if (modifiers & kShiftKey) {
            name += QStringLiteral("Shift+");
        }
        if (modifiers & kOptionKey) {
            name += QStringLiteral("Alt+");
        }
        if (modifiers & kCmdKey) {
            name += QStringLiteral("Cmd+");
        }
        // Key codes are 16 bits wide; a larger number in the file names no key.
        std::optional<QString> key =
            keyCode <= 0xFFFF ? stringForKeyCode(static_cast<quint16>(keyCode), 0) : std::nullopt;
        if (!key) {
            return std::nullopt;
        }
        if (key->size() == 1) {
            *key = key->toUpper();
        }
        return name + *key;
    });
}

std::optional<QString> VTShortcutKeyTableDelegate::stringForKeyCode(quint16 keyCode,
                                                                    quint32 withModifierFlags)
{
    return VTException::guard(VT_METHOD, std::optional<QString>(), [&]() -> std::optional<QString> {
        const std::shared_ptr<const VTKeyboardLayout> layout = VTKeyboardLayout::current();
        if (!layout) {
            report(
                QStringLiteral("Couldn't find a suitable keyboard layout from which to translate"));
            return std::nullopt;
        }
        // A code the fixed table does not list is a key this keyboard lacks: no characters.
        VTKeyboardLayout::Translation translation;
        if (const std::optional<quint32> xkbKeycode =
                VTKeyCodeTable::xkbKeycodeForMacKeyCode(keyCode)) {
            translation = layout->translate(*xkbKeycode, withModifierFlags);
        }
        if (translation.status != 0) {
            report(VTFormat::string(
                QStringLiteral("There was an %s error translating from the '%ld' "
                               "key code to a human readable string: %s"),
                translation.errorName, translation.status, translation.errorComment));
            return std::nullopt;
        }
        if (translation.characters.isEmpty()) {
            report(VTFormat::string(
                QStringLiteral("Couldn't find a translation for the '%d' key code"), int(keyCode)));
            return std::nullopt;
        }
        const char16_t first = translation.characters.at(0).unicode();
        for (const SpecialKey &special : kSpecialKeys) {
            if (special.character == first) {
                return QCoreApplication::translate("VTShortcutKeyTableDelegate", special.name);
            }
        }
        return translation.characters;
    });
}

QString VTShortcutKeyTableDelegate::bundleIdentifier()
{
    if (const std::optional<Bundle> bundle = Bundle::mainBundle()) {
        if (const std::optional<QString> identifier = bundle->bundleIdentifier()) {
            return *identifier;
        }
    }
    return QStringLiteral(KAIRO_BUNDLE_ID);
}

std::optional<QString> VTShortcutKeyTableDelegate::shortcutKeysFilePath()
{
    const std::optional<QString> prefs = VTLocalPaths::prefsDirectory(true);
    if (!prefs) {
        return std::nullopt;
    }
    return VTLocalPaths::appendPathComponent(*prefs,
                                             QStringLiteral("com.vantreel.shortcutkeys.plist"));
}

std::optional<QString> VTShortcutKeyTableDelegate::shortcutKeyManagerPath()
{
    const std::optional<QString> appSupport = VTLocalPaths::appSupportDirectory(false);
    if (!appSupport) {
        return std::nullopt;
    }
    return VTLocalPaths::appendPathComponent(
        *appSupport, QStringLiteral("Vantreel/Shared Resources/VTShortcutKeyManager"));
}

void VTShortcutKeyTableDelegate::postShortcutKeyChanged(const QVariantMap &userInfo)
{
    Q_EMIT sharedController().shortcutKeyChanged(userInfo);
}

void VTShortcutKeyTableDelegate::postShortcutKeyCleared()
{
    Q_EMIT sharedController().shortcutKeyCleared();
}

int VTShortcutKeyTableDelegate::selectedRow() const
{
    if (!m_shortcutKeyTableView || !m_shortcutKeyTableView->selectionModel()) {
        return -1;
    }
    const QModelIndexList rows = m_shortcutKeyTableView->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void VTShortcutKeyTableDelegate::reloadTable()
{
    if (m_model) {
        m_model->reloadData();
    }
}

void VTShortcutKeyTableDelegate::endEditingShortcutKeyCell()
{
    if (m_textCell && m_fieldEditor && m_fieldEditor->isVisible()) {
        m_textCell->endEditing(m_fieldEditor);
    }
}

PlistDict VTShortcutKeyTableDelegate::readShortcutKeys()
{
    const std::optional<QString> path = shortcutKeysFilePath();
    if (!path) {
        return PlistDict();
    }
    return PropertyList::readDictionary(*path).value_or(PlistDict());
}

void VTShortcutKeyTableDelegate::writeShortcutKeys(const PlistDict &shortcutKeys)
{
    const std::optional<QString> path = shortcutKeysFilePath();
    QString error = QStringLiteral("no preferences folder");
    if (path) {
        // By its bytes: under a home whose name is not UTF-8, Qt would make another folder.
        PosixFile::makeFolders(PathString::deletingLastPathComponent(*path));
        if (PropertyList::writeXml(PlistValue(shortcutKeys), *path, &error)) {
            return;
        }
    }
    report(VTFormat::string(QStringLiteral("Unable to save shortcut keys to %@ - %@"),
                            path.value_or(QStringLiteral("com.vantreel.shortcutkeys.plist")),
                            error));
}

void VTShortcutKeyTableDelegate::runShortcutKeyManager()
{
    const std::optional<QString> manager = shortcutKeyManagerPath();
    if (manager && FileNames::exists(*manager)) {
        VTTask::runTask(*manager, {QStringLiteral("-setup")});
        return;
    }
    report(QStringLiteral("Unable to setup shortcut keys - shortcut key manager doesn't exist. "
                          "Please reinstall this software."));
}
