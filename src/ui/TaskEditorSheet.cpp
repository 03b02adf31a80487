#include "TaskEditorSheet.h"

#include "ClientGridModel.h"
#include "IconViewBox.h"
#include "VTProgressSpinner.h"
#include "app/AppControllerView.h"
#include "platform/FileNames.h"
#include "platform/Identity.h"
#include "platform/PathString.h"
#include "support/VTAlert.h"
#include "support/VTException.h"
#include "support/VTLocalPaths.h"

#include "ui_TaskWindow.h"

#include <QDir>
#include <QFileDialog>
#include <QGroupBox>
#include <QPropertyAnimation>
#include <QRegularExpressionValidator>
#include <QScopedValueRollback>

#include <algorithm>

namespace {

int s_animationDuration = 180;

const QString kAtSpecificInterval = QStringLiteral("At specific interval");
const QString kEveryXSeconds = QStringLiteral("Every x seconds");
const QString kWheneverDirectoryChanges = QStringLiteral("Whenever a directory changes");

qint64 integerValue(const QString &text)
{
    return PlistValue(text).integerValue();
}

} // namespace

TaskEditorSheet::TaskEditorSheet(AppController *controller, AppControllerView *view,
                                 QWidget *mainWindow)
    : QDialog(mainWindow), m_ui(std::make_unique<Ui::TaskWindow>()), m_controller(controller),
      m_view(view), m_mainWindow(mainWindow), m_clients(new ClientGridModel(this)),
      m_animation(new QPropertyAnimation(this, "geometry", this))
{
    m_ui->setupUi(this);
    setWindowModality(Qt::WindowModal);
    fitToFont();
    setMinimumWidth(width() * 4 / 5);

    // The parts keep the distances to the edges that the interface file gives them.
    m_sideMargin = m_ui->taskView->x();
    m_buttonsBottom = height() - (m_ui->addTaskBtn->y() + m_ui->addTaskBtn->height());
    m_addButtonRight = width() - (m_ui->addTaskBtn->x() + m_ui->addTaskBtn->width());
    m_cancelButtonRight = width() - (m_ui->cancelButton->x() + m_ui->cancelButton->width());
    m_spinnerRight = width() - (m_ui->taskSpinner->x() + m_ui->taskSpinner->width());
    m_belowTaskBox = height() - (m_ui->taskBox->y() + m_ui->taskBox->height());

    m_ui->taskCollectionView->setModel(m_clients);
    connect(m_ui->taskCollectionView->selectionModel(), &QItemSelectionModel::selectionChanged,
            this, &TaskEditorSheet::selectionIndexesChanged);
    connect(m_ui->taskCollectionView->selectionModel(), &QItemSelectionModel::selectionChanged,
            this, &TaskEditorSheet::updateGridHighlight);
    connect(m_ui->taskCollectionView->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &TaskEditorSheet::updateGridHighlight);
    m_ui->taskCollectionView->installEventFilter(this);

    // Digits, with a sign so that a negative number reaches the checks that refuse it.
    const QRegularExpression number(QStringLiteral("-?[0-9]{0,9}"));
    for (QLineEdit *field :
         {m_ui->intervalSecondsText, m_ui->intervalMinuteText, m_ui->intervalHourText,
          m_ui->intervalDayText, m_ui->intervalWeekdayText, m_ui->intervalMonthText}) {
        field->setValidator(new QRegularExpressionValidator(number, field));
    }
    for (QLineEdit *field :
         {m_ui->intervalSecondsText, m_ui->intervalMinuteText, m_ui->intervalHourText,
          m_ui->intervalDayText, m_ui->intervalWeekdayText, m_ui->intervalMonthText,
          m_ui->intervalDirectoryPath}) {
        connect(field, &QLineEdit::textEdited, this,
                [this, field] { controlTextDidChange(field); });
    }
    connect(m_ui->taskBoxRunPopUp, &QComboBox::activated, this,
            &TaskEditorSheet::taskScheduleChanged);
    connect(m_ui->intervalDirectoryBrowse, &QPushButton::clicked, this,
            &TaskEditorSheet::taskBrowseDirectory);
    connect(m_ui->cancelButton, &QPushButton::clicked, this, &TaskEditorSheet::cancelNewTask);
    connect(m_ui->addTaskBtn, &QPushButton::clicked, this, &TaskEditorSheet::addTask);
    m_animation->setEasingCurve(QEasingCurve::InOutQuad);
    // No application is selected until discovery finds one.
    selectItem(std::nullopt);
    updateGridHint();
    connect(m_animation, &QPropertyAnimation::finished, this,
            &TaskEditorSheet::updateMinimumHeight);
    updateIntervalPlace();
}

TaskEditorSheet::~TaskEditorSheet() = default;

void TaskEditorSheet::setAnimationDuration(int milliseconds)
{
    s_animationDuration = milliseconds;
}

int TaskEditorSheet::animationDuration()
{
    return s_animationDuration;
}

bool TaskEditorSheet::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_ui->taskCollectionView &&
        (event->type() == QEvent::FocusIn || event->type() == QEvent::FocusOut)) {
        updateGridHighlight();
    }
    return QDialog::eventFilter(watched, event);
}

void TaskEditorSheet::updateGridHighlight()
{
    QListView *grid = m_ui->taskCollectionView;
    const QModelIndex current = grid->currentIndex();
    for (int row = 0; row < m_clients->rowCount(); ++row) {
        const QModelIndex index = m_clients->index(row);
        if (auto *box = qobject_cast<IconViewBox *>(grid->indexWidget(index))) {
            box->setSelected(grid->selectionModel()->isSelected(index));
            box->setFocusShown(grid->hasFocus() && index == current);
        }
    }
}

void TaskEditorSheet::fitToFont()
{
    // The interface file's sizes suit the usual font; a larger one gets the room its text
    // needs, with the interface file's distances between the parts and to the edges.
    QLabel *label = m_ui->chooseLabel;
    VTProgressSpinner *spinner = m_ui->taskSpinner;
    QFrame *grid = m_ui->taskView;
    QGroupBox *taskBox = m_ui->taskBox;
    QPushButton *add = m_ui->addTaskBtn;
    QPushButton *cancel = m_ui->cancelButton;
    const int spinnerRight = width() - (spinner->x() + spinner->width());
    const int labelGap = grid->y() - (label->y() + label->height());
    const int gridGap = taskBox->y() - (grid->y() + grid->height());
    const int buttonsGap = add->y() - (taskBox->y() + taskBox->height());
    const int buttonsBottom = height() - (add->y() + add->height());
    const int addRight = width() - (add->x() + add->width());
    const int buttonGap = add->x() - (cancel->x() + cancel->width());

    label->resize(label->width(), std::max(label->height(), label->sizeHint().height()));
    const int gridHeight = std::max(grid->height(), ClientGridModel::itemSize().height() +
                                                        2 * m_ui->taskCollectionView->spacing() +
                                                        2 * grid->frameWidth() + 2);
    grid->setGeometry(grid->x(), label->y() + label->height() + labelGap, grid->width(),
                      gridHeight);

    QWidget *boxes[] = {m_ui->intervalBox, m_ui->secondIntervalBox, m_ui->thirdIntervalBox};
    const int oldH = m_ui->intervalBox->height();
    int H = oldH;
    for (QWidget *box : boxes) {
        H = std::max(H, box->layout()->minimumSize().height());
    }
    for (QWidget *box : boxes) {
        box->setFixedHeight(H);
    }
    taskBox->move(taskBox->x(), grid->y() + grid->height() + gridGap);
    taskBox->resize(taskBox->width(),
                    std::max(taskBox->height() - oldH + H, taskBox->minimumSizeHint().height()));

    const int buttonHeight =
        std::max({add->height(), add->sizeHint().height(), cancel->sizeHint().height()});
    for (QPushButton *button : {add, cancel}) {
        button->resize(std::max(button->width(), button->sizeHint().width()), buttonHeight);
    }
    const int w = std::max(width(), taskBox->minimumSizeHint().width() + 2 * grid->x());
    const int h = taskBox->y() + taskBox->height() + buttonsGap + buttonHeight + buttonsBottom;
    resize(w, h);
    spinner->move(w - spinnerRight - spinner->width(),
                  label->y() + (label->height() - spinner->height()) / 2);
    add->move(w - addRight - add->width(), h - buttonsBottom - buttonHeight);
    cancel->move(add->x() - buttonGap - cancel->width(), add->y());
}

void TaskEditorSheet::resizeEvent(QResizeEvent *event)
{
    QDialog::resizeEvent(event);
    layoutSheet();
}

void TaskEditorSheet::layoutSheet()
{
    const int w = width();
    const int h = height();
    const int inner = w - 2 * m_sideMargin;
    QWidget *spinner = m_ui->taskSpinner;
    spinner->move(w - m_spinnerRight - spinner->width(), spinner->y());
    QLabel *label = m_ui->chooseLabel;
    label->setGeometry(m_sideMargin, label->y(), spinner->x() - m_sideMargin - 8, label->height());
    m_ui->taskView->setGeometry(m_sideMargin, m_ui->taskView->y(), inner, m_ui->taskView->height());
    m_ui->taskBox->setGeometry(m_sideMargin, m_ui->taskBox->y(), inner, m_ui->taskBox->height());
    QPushButton *add = m_ui->addTaskBtn;
    add->move(w - m_addButtonRight - add->width(), h - m_buttonsBottom - add->height());
    QPushButton *cancel = m_ui->cancelButton;
    cancel->move(w - m_cancelButtonRight - cancel->width(), h - m_buttonsBottom - cancel->height());
}

void TaskEditorSheet::finishAnimation()
{
    // A frame change starts from where the last one ends.
    if (m_animation->state() == QAbstractAnimation::Running) {
        const QRect end = m_animation->endValue().toRect();
        m_animation->stop();
        setGeometry(end);
        updateMinimumHeight();
    }
}

int TaskEditorSheet::neededHeight() const
{
    const QWidget *box = m_ui->taskBox;
    return box->y() + (box->isHidden() ? 0 : box->height()) + m_belowTaskBox;
}

void TaskEditorSheet::updateMinimumHeight()
{
    if (m_animation->state() != QAbstractAnimation::Running) {
        setMinimumHeight(neededHeight());
    }
}

void TaskEditorSheet::setWindowFrame(const QRect &requested)
{
    // The grow and shrink steps can add up to less than the shown parts need (the task box
    // hidden while the interval box goes): the buttons would then cover the grid.
    QRect frame = requested;
    frame.setHeight(std::max(frame.height(), neededHeight()));
    setMinimumHeight(std::min(minimumHeight(), frame.height()));
    if (!isVisible() || s_animationDuration <= 0) {
        setGeometry(frame);
        return;
    }
    m_animation->setDuration(s_animationDuration);
    m_animation->setStartValue(geometry());
    m_animation->setEndValue(frame);
    m_animation->start();
}

void TaskEditorSheet::resizeTaskBox(int heightChange)
{
    // The box keeps its top edge.
    QRect box = m_ui->taskBox->geometry();
    box.setHeight(box.height() + heightChange);
    m_ui->taskBox->setGeometry(box);
}

void TaskEditorSheet::updateIntervalPlace()
{
    m_ui->intervalPlace->setVisible(!m_ui->intervalBox->isHidden() ||
                                    !m_ui->secondIntervalBox->isHidden() ||
                                    !m_ui->thirdIntervalBox->isHidden());
}

void TaskEditorSheet::selectFirstScheduleType()
{
    m_ui->taskBoxRunPopUp->setCurrentIndex(0);
    taskScheduleChanged();
}

void TaskEditorSheet::taskScheduleChanged()
{
    VTException::guard(VT_METHOD, [&] {
        QWidget *boxes[] = {m_ui->intervalBox, m_ui->secondIntervalBox, m_ui->thirdIntervalBox};
        const int H = m_ui->intervalBox->height();
        const QString title = m_ui->taskBoxRunPopUp->currentText();
        QWidget *chosen = nullptr;
        if (title == kAtSpecificInterval) {
            chosen = m_ui->intervalBox;
        } else if (title == kEveryXSeconds) {
            chosen = m_ui->secondIntervalBox;
        } else if (title == kWheneverDirectoryChanges) {
            chosen = m_ui->thirdIntervalBox;
        }
        const bool anyShown = std::any_of(std::begin(boxes), std::end(boxes),
                                          [](QWidget *box) { return !box->isHidden(); });
        if (chosen) {
            if (!anyShown) {
                finishAnimation();
                QRect frame = geometry();
                frame.setHeight(frame.height() + H);
                resizeTaskBox(H);
                setWindowFrame(frame);
            }
            for (QWidget *box : boxes) {
                box->setVisible(box == chosen);
            }
        } else if (anyShown) {
            finishAnimation();
            QRect frame = geometry();
            frame.setHeight(frame.height() - H);
            for (QWidget *box : boxes) {
                box->hide();
            }
            resizeTaskBox(-H);
            setWindowFrame(frame);
        }
        updateIntervalPlace();
        // The three boxes share one place; at most one of them is shown.
        m_ui->taskBox->layout()->activate();
        const QRect place(QPoint(0, 0), QSize(m_ui->intervalPlace->width(), H));
        for (QWidget *box : boxes) {
            box->setGeometry(place);
        }
        updateMinimumHeight();
    });
}

std::optional<QString> TaskEditorSheet::clampedIntervalText(const QString &key, const QString &text)
{
    struct Limit
    {
        const char *key;
        qint64 low;  // values below this become lowText
        qint64 high; // values at or above this become highText
        const char *lowText;
        const char *highText;
    };
    // Hour 0 cannot be typed: it becomes 1, as every limit here is meant.
    static const Limit kLimits[] = {{"Minute", 0, 60, "0", "59"},
                                    {"Hour", 1, 24, "1", "23"},
                                    {"Day", 1, 32, "1", "31"},
                                    {"Weekday", 0, 8, "0", "7"},
                                    {"Month", 1, 13, "1", "12"}};
    const qint64 value = integerValue(text);
    for (const Limit &limit : kLimits) {
        if (key != QLatin1String(limit.key)) {
            continue;
        }
        if (value < limit.low) {
            return QString::fromLatin1(limit.lowText);
        }
        if (value >= limit.high) {
            return QString::fromLatin1(limit.highText);
        }
        return std::nullopt;
    }
    return std::nullopt;
}

void TaskEditorSheet::controlTextDidChange(QLineEdit *field)
{
    VTException::guard(VT_METHOD, [&] {
        QLineEdit *minuteField = m_ui->intervalMinuteText;
        QLineEdit *hourField = m_ui->intervalHourText;
        QLineEdit *dayField = m_ui->intervalDayText;
        QLineEdit *weekdayField = m_ui->intervalWeekdayText;
        QLineEdit *monthField = m_ui->intervalMonthText;
        if (field != minuteField && field != hourField && field != dayField &&
            field != weekdayField && field != monthField) {
            return;
        }
        QString minute = minuteField->text();
        QString hour = hourField->text();
        QString day = dayField->text();
        QString weekday = weekdayField->text();
        QString month = monthField->text();
        if ((!hour.isEmpty() || !day.isEmpty() || !weekday.isEmpty() || !month.isEmpty()) &&
            minute.isEmpty()) {
            minute = QStringLiteral("00");
            minuteField->setText(minute);
        }
        const std::pair<const char *, std::pair<QLineEdit *, QString *>> order[] = {
            {"Hour", {hourField, &hour}},
            {"Minute", {minuteField, &minute}},
            {"Day", {dayField, &day}},
            {"Weekday", {weekdayField, &weekday}},
            {"Month", {monthField, &month}}};
        for (const auto &[key, target] : order) {
            const auto &[edit, text] = target;
            if (text->isEmpty()) {
                continue;
            }
            if (const auto replacement = clampedIntervalText(QLatin1String(key), *text)) {
                *text = *replacement;
                edit->setText(*replacement);
            }
        }
        m_ui->intervalFriendlyLabel->setText(
            VTScheduledTask::friendlyIntervalDescription(minute, hour, day, weekday, month));
    });
}

void TaskEditorSheet::openSheet()
{
    if (!isVisible()) {
        // Each opening starts at the height its shown parts need, whatever the last use
        // left.
        finishAnimation();
        setMinimumHeight(neededHeight());
        resize(width(), neededHeight());
    }
    if (!isVisible() && m_mainWindow) {
        // Like a sheet: at the top of the main window, centred across it.
        const QRect main = m_mainWindow->geometry();
        move(main.x() + (main.width() - width()) / 2, main.y() + 24);
    }
    open();
    raise();
    activateWindow();
}

void TaskEditorSheet::newTask()
{
    VTException::guard(VT_METHOD, [&] {
        controlTextDidChange(m_ui->intervalHourText);
        openSheet();
        m_controller->setEditMode(false);
        m_ui->addTaskBtn->setText(QStringLiteral("Add Task"));
    });
}

void TaskEditorSheet::editTask()
{
    VTException::guard(VT_METHOD, [&] {
        const int row = m_view->selectedTaskRow();
        if (row < 0) {
            return;
        }
        m_controller->setEditMode(true);
        m_ui->addTaskBtn->setText(QStringLiteral("Edit Task"));
        const VTScheduledTask::Ptr task = m_controller->dataArray().at(static_cast<size_t>(row));
        selectItem(task->taskBundleID() ? m_controller->VTAppItemWithBundleID(*task->taskBundleID())
                                        : std::nullopt);
        if (const auto description = task->descriptionFromArguments()) {
            const int item = m_ui->taskBoxTaskPopUp->findText(*description, Qt::MatchExactly);
            if (item >= 0) {
                m_ui->taskBoxTaskPopUp->setCurrentIndex(item);
            }
        }
        m_ui->taskBoxRunPopUp->setCurrentIndex(static_cast<int>(task->scheduleType().value_or(0)));
        if (task->intervalSeconds()) {
            m_ui->intervalSecondsText->setText(QString::number(*task->intervalSeconds()));
        }
        if (const auto &interval = task->interval()) {
            const std::pair<const char *, QLineEdit *> fields[] = {
                {"Minute", m_ui->intervalMinuteText},
                {"Hour", m_ui->intervalHourText},
                {"Day", m_ui->intervalDayText},
                {"Weekday", m_ui->intervalWeekdayText},
                {"Month", m_ui->intervalMonthText}};
            for (const auto &[key, field] : fields) {
                const PlistValue *value = interval->find(QLatin1String(key));
                field->setText(value ? QString::number(value->integerValue()) : QString());
            }
        }
        controlTextDidChange(m_ui->intervalHourText);
        if (const auto &folder = task->intervalDirectory()) {
            m_ui->intervalDirectoryPath->setText(PathString::abbreviatingWithTildeInPath(*folder));
        }
        taskScheduleChanged();
        openSheet();
    });
}

void TaskEditorSheet::cancelNewTask()
{
    VTException::guard(VT_METHOD, [&] {
        finishAnimation();
        QDialog::reject();
    });
}

void TaskEditorSheet::reject()
{
    cancelNewTask();
}

void TaskEditorSheet::selectItem(const std::optional<VTClientApplication> &item)
{
    VTException::guard(VT_METHOD, [&] {
        const int B = m_ui->taskBox->height();
        if (!item) {
            // The application selection and the task pop-up stay as they were.
            if (!m_ui->taskBox->isHidden()) {
                m_ui->taskBox->hide();
                finishAnimation();
                QRect frame = geometry();
                frame.setHeight(frame.height() - B);
                setWindowFrame(frame);
            }
            updateMinimumHeight();
            return;
        }
        const int row = m_clients->rowOfClient(*item);
        {
            // Selecting here must not select once more through the grid's notification.
            const QScopedValueRollback<bool> selecting(m_selecting, true);
            QItemSelectionModel *selection = m_ui->taskCollectionView->selectionModel();
            if (row >= 0) {
                const QModelIndex index = m_clients->index(row);
                selection->select(index, QItemSelectionModel::ClearAndSelect);
                selection->setCurrentIndex(index, QItemSelectionModel::NoUpdate);
            } else {
                selection->clearSelection();
            }
        }
        m_ui->taskBox->setTitle(item->name);
        m_ui->taskBoxTaskPopUp->clear();
        m_taskItems.clear();
        for (const PlistValue &entry : item->tasks.array()) {
            if (!entry.isDictionary()) {
                continue;
            }
            const PlistDict &task = entry.dict();
            const PlistValue *id = task.find(QStringLiteral("id"));
            const qint64 tag = id ? id->integerValue() : -1;
            m_ui->taskBoxTaskPopUp->addItem(task.value(QStringLiteral("description")).string(),
                                            QVariant(tag));
            m_taskItems.push_back(task);
        }
        if (m_ui->taskBox->isHidden()) {
            finishAnimation();
            QRect frame = geometry();
            frame.setHeight(frame.height() + B);
            setWindowFrame(frame);
            m_ui->taskBox->show();
        }
        updateMinimumHeight();
    });
}

std::optional<PlistDict> TaskEditorSheet::representedObject(int item) const
{
    if (item < 0 || item >= static_cast<int>(m_taskItems.size())) {
        return std::nullopt;
    }
    return m_taskItems[static_cast<size_t>(item)];
}

void TaskEditorSheet::selectionIndexesChanged()
{
    if (m_selecting) {
        return;
    }
    VTException::guard(VT_METHOD, [&] {
        const auto index = selectedClientIndex();
        const AppController::ClientList &clients = m_clients->clients();
        if (index && *index < static_cast<int>(clients.size())) {
            selectItem(clients[static_cast<size_t>(*index)]);
        } else {
            selectItem(std::nullopt);
        }
    });
}

void TaskEditorSheet::setClientApplications(const AppController::ClientList &clients)
{
    m_clients->setClients(clients);
    for (int row = 0; row < m_clients->rowCount(); ++row) {
        auto *box = new IconViewBox;
        box->setFixedSize(ClientGridModel::itemSize());
        box->setIcon(clients[static_cast<size_t>(row)].icon.value<QImage>());
        box->setTitle(clients[static_cast<size_t>(row)].name);
        m_ui->taskCollectionView->setIndexWidget(m_clients->index(row), box);
    }
    updateGridHighlight();
    updateGridHint();
}

std::optional<int> TaskEditorSheet::selectedClientIndex() const
{
    const QModelIndexList selected = m_ui->taskCollectionView->selectionModel()->selectedIndexes();
    if (selected.isEmpty()) {
        return std::nullopt;
    }
    int first = selected.first().row();
    for (const QModelIndex &index : selected) {
        first = std::min(first, index.row());
    }
    return first;
}

void TaskEditorSheet::startProgress()
{
    m_ui->taskSpinner->startAnimation();
}

void TaskEditorSheet::endProgress()
{
    m_ui->taskSpinner->stopAnimation();
    m_discoveryEnded = true;
    updateGridHint();
}

void TaskEditorSheet::updateGridHint()
{
    const bool empty = m_clients->rowCount() == 0;
    m_ui->taskCollectionView->setVisible(!empty);
    m_ui->gridHint->setVisible(empty);
    if (!empty) {
        return;
    }
    // Discovery starts with the window and runs once: until it ends, it is under way.
    if (!m_discoveryEnded) {
        m_ui->gridHint->setText(QStringLiteral("Looking for applications..."));
        return;
    }
    const QString folder = VTLocalPaths::applicationDirectory(false).value_or(QString());
    m_ui->gridHint->setText(
        QStringLiteral("No Vantreel application with scheduled tasks was found in %1 or the "
                       "folders inside it.")
            .arg(QDir::toNativeSeparators(folder)));
}

void TaskEditorSheet::showAlert(const QString &message)
{
    VTAlertRequest alert;
    alert.messageText = message;
    alert.defaultButton = QStringLiteral("OK");
    VTAlert::runModal(alert);
}

QString TaskEditorSheet::browseStartFolder() const
{
    // The folder typed so far, else the home; or the nearest one above it that exists and
    // that the panel can name (Qt names files in UTF-8 only), looked up by its bytes.
    const QString typed = m_ui->intervalDirectoryPath->text();
    QString folder = Identity::current().homeDirectory().value_or(QStringLiteral("/"));
    if (!typed.isEmpty()) {
        folder = PathString::expandingTildeInPath(typed);
    }
    if (!folder.startsWith(QLatin1Char('/'))) {
        folder.prepend(QLatin1Char('/'));
    }
    folder = QDir::cleanPath(folder);
    while (folder != QLatin1String("/") &&
           !(folder.isValidUtf16() && FileNames::isDirectory(folder))) {
        folder = PathString::deletingLastPathComponent(folder);
    }
    return folder;
}

void TaskEditorSheet::taskBrowseDirectory()
{
    VTException::guard(VT_METHOD, [&] {
        QFileDialog panel(this);
        panel.setDirectory(browseStartFolder());
        panel.setFileMode(QFileDialog::Directory);
        panel.setOption(QFileDialog::ShowDirsOnly);
        if (panel.exec() == QDialog::Accepted && !panel.selectedFiles().isEmpty()) {
            m_ui->intervalDirectoryPath->setText(
                PathString::abbreviatingWithTildeInPath(panel.selectedFiles().first()));
        }
    });
}

void TaskEditorSheet::addTask()
{
    VTException::guard(VT_METHOD, [&] {
        AppController::TaskList tasks = m_controller->dataArray();
        const auto selected = selectedClientIndex();
        const AppController::ClientList clients = m_controller->taskArray();
        if (!selected || *selected >= static_cast<int>(clients.size())) {
            return;
        }
        const VTClientApplication &item = clients[static_cast<size_t>(*selected)];

        qint64 seconds = 10;
        PlistDict interval;
        QString directory;
        const QString schedule = m_ui->taskBoxRunPopUp->currentText();
        if (schedule == kEveryXSeconds) {
            const QString text = m_ui->intervalSecondsText->text();
            if (text.isEmpty()) {
                showAlert(QStringLiteral("You must specify an interval."));
                return;
            }
            seconds = integerValue(text);
            if (seconds < 1) {
                showAlert(QStringLiteral("You must set an interval of 1 or above."));
                return;
            }
        } else if (schedule == kAtSpecificInterval) {
            // Each coarser field overwrites what a finer one set: a typed minute survives
            // only alone, a typed hour only without a day, weekday or month, and a month
            // starts on day 1. A key set again moves to the place of its last setting: the
            // job file keeps this order and its reader classifies by the first key, so
            // Hour 14 must come before its Minute 0 to read back as the schedule shown.
            const QString minute = m_ui->intervalMinuteText->text();
            const QString hour = m_ui->intervalHourText->text();
            const QString day = m_ui->intervalDayText->text();
            const QString weekday = m_ui->intervalWeekdayText->text();
            const QString month = m_ui->intervalMonthText->text();
            const auto set = [&interval](const char *key, qint64 value) {
                interval.remove(QLatin1String(key));
                interval.insert(QLatin1String(key), value);
            };
            if (!minute.isEmpty()) {
                set("Minute", integerValue(minute));
            }
            if (!hour.isEmpty()) {
                set("Hour", integerValue(hour));
                set("Minute", 0);
            }
            if (!day.isEmpty()) {
                set("Hour", 8);
                set("Minute", 0);
                set("Day", integerValue(day));
            }
            if (!weekday.isEmpty()) {
                set("Hour", 8);
                set("Minute", 0);
                set("Weekday", integerValue(weekday));
            }
            if (!month.isEmpty()) {
                set("Month", integerValue(month));
                set("Day", 1);
                set("Hour", 8);
                set("Minute", 0);
            }
            if (interval.isEmpty()) {
                showAlert(QStringLiteral(
                    "You must complete at least one of the boxes in the interval field."));
                return;
            }
        } else if (schedule == kWheneverDirectoryChanges) {
            const QString text = m_ui->intervalDirectoryPath->text();
            if (text.isEmpty()) {
                showAlert(QStringLiteral("You must specify a directory."));
                return;
            }
            directory = PathString::expandingTildeInPath(text);
            if (!directory.startsWith(QLatin1Char('/'))) {
                directory = QStringLiteral("/") + directory;
            }
        }

        const QString title = m_ui->taskBoxTaskPopUp->currentText();
        const qint64 scheduleType = m_ui->taskBoxRunPopUp->currentIndex();
        const QVariant icon = item.icon.value<QImage>().isNull() ? QVariant() : item.icon;
        if (m_controller->editMode()) {
            const VTScheduledTask::Ptr task =
                tasks.at(static_cast<size_t>(m_view->selectedTaskRow()));
            task->setTaskDescription(title);
            task->setTaskBundleID(item.bundleid);
            task->setTaskArguments(m_controller->taskArgumentsForDescription(title));
            task->setScheduleType(scheduleType);
            task->setIntervalSeconds(seconds);
            task->setInterval(interval);
            task->setIntervalDirectory(directory);
            task->setIcon(icon);
            task->saveData();
        } else {
            std::optional<bool> root;
            if (const auto entry = representedObject(m_ui->taskBoxTaskPopUp->currentIndex())) {
                if (const PlistValue *value = entry->find(QStringLiteral("root"))) {
                    root = value->boolValue();
                }
            }
            const VTScheduledTask::Ptr task = VTScheduledTask::taskWithBundleID(
                item.bundleid, m_controller->taskArgumentsForDescription(title), scheduleType,
                seconds, interval, root);
            if (task) {
                task->setIntervalDirectory(directory);
                if (icon.isValid()) {
                    task->setIcon(icon);
                }
                task->saveData();
                tasks.push_back(task);
                m_controller->setDataArray(tasks);
            } else {
                showAlert(QStringLiteral("Unable to add scheduled task"));
            }
        }
        cancelNewTask();
        m_view->applySortingForTableView();
    });
}
