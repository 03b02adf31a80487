#include "WindowFixture.h"

#include "platform/PropertyList.h"
#include "support/VTAuthorization.h"
#include "testsupport/ClientApps.h"
#include "testsupport/Poll.h"
#include "ui/MainWindow.h"
#include "ui/TaskEditorSheet.h"
#include "ui/TaskTableModel.h"

#include <QtTest>
#include <QtWidgets>

void WindowFixture::SetUp()
{
    identity->home = sandbox.home();
    identity->homes.insert("anna", sandbox.home());
    applications = sandbox.mkdir("root/Applications");
    launchctl = std::make_unique<LaunchctlRecorder>(sandbox);
    VTAlert::setPresenter(alerts);
    VTAuthorization::resetForTesting();
    TaskEditorSheet::setAnimationDuration(0);

    quill = ClientApps::makeQuill(applications);
    inkwell = ClientApps::make(
        sandbox.mkdir("root/Applications/Vantreel"), "Inkwell", "com.vantreel.Inkwell",
        PlistValue(PlistArray{ClientApps::entry("spellcheck", {"-spelling"}, "Update spelling")}));
}

void WindowFixture::TearDown()
{
    window.reset();
    VTAlert::setPresenter(nullptr);
    VTAuthorization::resetForTesting();
}

VTScheduledTask::Ptr WindowFixture::makeTask(const QString &bundleID, const QStringList &arguments,
                                             qint64 type, const PlistDict &interval, bool enabled)
{
    VTScheduledTask::Ptr task = VTScheduledTask::taskWithBundleID(
        bundleID, arguments, type, qint64(10), interval, std::optional<bool>(false));
    EXPECT_TRUE(task) << bundleID.toStdString();
    if (task && !enabled) {
        task->setEnabled(false);
        task->saveData();
    }
    return task;
}

void WindowFixture::openWindow()
{
    window = std::make_unique<MainWindow>();
    ASSERT_TRUE(window->awakeFromNib());
    ASSERT_TRUE(Poll::until([&] { return !window->controller()->isDiscovering(); }));
}

PlistDict WindowFixture::readJob(const QString &path) const
{
    return PropertyList::readDictionary(path).value_or(PlistDict());
}

PlistDict WindowFixture::calendarOf(const QString &path) const
{
    PlistDict merged;
    const PlistValue calendar = readJob(path).value("StartCalendarInterval");
    for (const PlistValue &element : calendar.array()) {
        for (const auto &entry : element.dict()) {
            merged.insert(entry.key, entry.value);
        }
    }
    return merged;
}

QStringList WindowFixture::jobFiles() const
{
    QStringList files;
    const QString agents = sandbox.home() + "/Library/LaunchAgents";
    for (const QString &name : QDir(agents).entryList(QDir::Files, QDir::Name)) {
        files.append(agents + '/' + name);
    }
    return files;
}

QStringList WindowFixture::tableDescriptions() const
{
    QStringList out;
    TaskTableModel *model = window->taskModel();
    for (int row = 0; row < model->rowCount(); ++row) {
        out.append(model->index(row, TaskTableModel::ColumnTask).data().toString());
    }
    return out;
}

void WindowFixture::click(QWidget *widget, const QPoint &point)
{
    QTest::mouseClick(widget, Qt::LeftButton, Qt::NoModifier, point);
}

QPoint WindowFixture::centerOf(QAbstractItemView *view, int row, int column)
{
    return view->visualRect(view->model()->index(row, column)).center();
}

QStringList WindowFixture::layoutFaults(QWidget *window)
{
    QStringList faults;
    const auto name = [](const QWidget *w) {
        return w->objectName().isEmpty() ? QString::fromLatin1(w->metaObject()->className())
                                         : w->objectName();
    };
    QList<QWidget *> controls;
    for (QWidget *w : window->findChildren<QWidget *>()) {
        // The contents of tables, grids and scrolled panes move and are cut on purpose.
        bool scrolled = false;
        for (QWidget *up = w->parentWidget(); up && up != window; up = up->parentWidget()) {
            scrolled = scrolled || up->inherits("QAbstractScrollArea");
        }
        const auto *label = qobject_cast<const QLabel *>(w);
        if (!w->isVisibleTo(window) || w->isWindow() || scrolled ||
            !(label || qobject_cast<const QAbstractButton *>(w) ||
              qobject_cast<const QLineEdit *>(w) || qobject_cast<const QComboBox *>(w))) {
            continue;
        }
        controls.append(w);
        const QSize need = w->minimumSizeHint();
        const int needHeight =
            w->hasHeightForWidth() ? w->heightForWidth(w->width()) : need.height();
        if (w->height() < needHeight ||
            (!(label && label->wordWrap()) && w->width() < need.width())) {
            faults.append(QString("%1 is %2x%3, needs %4x%5")
                              .arg(name(w))
                              .arg(w->width())
                              .arg(w->height())
                              .arg(need.width())
                              .arg(needHeight));
        }
        if (!w->parentWidget()->rect().contains(w->geometry())) {
            faults.append(name(w) + " is outside " + name(w->parentWidget()));
        }
    }
    for (int i = 0; i < controls.size(); ++i) {
        for (int j = i + 1; j < controls.size(); ++j) {
            const QRect a(controls[i]->mapTo(window, QPoint(0, 0)), controls[i]->size());
            const QRect b(controls[j]->mapTo(window, QPoint(0, 0)), controls[j]->size());
            if (a.intersects(b) && !controls[i]->isAncestorOf(controls[j]) &&
                !controls[j]->isAncestorOf(controls[i])) {
                faults.append(name(controls[i]) + " overlaps " + name(controls[j]));
            }
        }
    }
    return faults;
}
