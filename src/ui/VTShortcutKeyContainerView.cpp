#include "VTShortcutKeyContainerView.h"

#include "VTShortcutKeyTableDelegate.h"
#include "platform/Console.h"
#include "support/VTLog.h"

#include <QVBoxLayout>

VTShortcutKeyContainerView::VTShortcutKeyContainerView(QWidget *parent)
    : QWidget(parent), m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    if (!VTShortcutKeyTableDelegate::sharedController().loadInterface()) {
        const QString message = QStringLiteral("Error: unable to load keyboard shortcut interface");
        Console::log(message);
        VTLog::appendLog(message);
    }
}

VTShortcutKeyContainerView::~VTShortcutKeyContainerView()
{
    // The panel belongs to the shared delegate and outlives its containers.
    QWidget *panel = VTShortcutKeyTableDelegate::sharedController().parentView();
    if (panel && panel->parentWidget() == this) {
        m_layout->removeWidget(panel);
        panel->hide();
        panel->setParent(nullptr);
    }
}

void VTShortcutKeyContainerView::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    viewDidMoveToWindow();
}

void VTShortcutKeyContainerView::viewDidMoveToWindow()
{
    QWidget *panel = VTShortcutKeyTableDelegate::sharedController().parentView();
    if (!panel || !window() || panel->parentWidget() == this) {
        return;
    }
    if (QWidget *previous = panel->parentWidget(); previous && previous->layout()) {
        previous->layout()->removeWidget(panel);
    }
    panel->setParent(this);
    m_layout->addWidget(panel);
    panel->show();
}
