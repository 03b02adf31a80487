#pragma once

#include "platform/PlistDict.h"
#include "support/VTAlert.h"
#include "tasks/VTScheduledTask.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/LaunchctlRecorder.h"
#include "testsupport/MockClock.h"
#include "testsupport/RecordingAlerts.h"
#include "testsupport/Sandbox.h"

#include <gtest/gtest.h>

#include <QPoint>

#include <memory>
#include <vector>

class MainWindow;
class QAbstractItemView;
class QWidget;

// Readable failure messages for Qt strings.
inline void PrintTo(const QString &string, std::ostream *os)
{
    *os << '"' << string.toStdString() << '"';
}

// The real main window on a sandboxed machine, as an ordinary user: the client
// applications "Quill" (com.vantreel.Quill: backup, clean, and the root task repair) and
// "Inkwell" (com.vantreel.Inkwell, in the folder Vantreel: spellcheck) in the local
// Applications folder, a recording launchctl, a clock that does not wait and alerts the
// test answers. Frame changes of the sheet are not animated.
class WindowFixture : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    MockClock::Scoped clock;
    std::unique_ptr<LaunchctlRecorder> launchctl;
    std::shared_ptr<RecordingAlerts> alerts = std::make_shared<RecordingAlerts>();
    QString applications;
    QString quill;
    QString inkwell;
    std::unique_ptr<MainWindow> window;

    void SetUp() override;
    void TearDown() override;

    // A task saved as the editor saves it, before the window opens.
    VTScheduledTask::Ptr makeTask(const QString &bundleID, const QStringList &arguments,
                                  qint64 type, const PlistDict &interval = PlistDict(),
                                  bool enabled = true);
    // Opens the window as the application does, and waits for the discovery to end.
    void openWindow();
    PlistDict readJob(const QString &path) const;
    // The job file's calendar interval, its single-key elements merged.
    PlistDict calendarOf(const QString &path) const;
    QStringList jobFiles() const;
    // The task descriptions down the table.
    QStringList tableDescriptions() const;

    // What a user would see as broken in the shown parts of a window: a control smaller than
    // its text needs, one outside its parent, or two that overlap.
    static QStringList layoutFaults(QWidget *window);

    static void click(QWidget *widget, const QPoint &point);
    static QPoint centerOf(QAbstractItemView *view, int row, int column);
};
