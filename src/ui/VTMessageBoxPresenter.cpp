#include "VTMessageBoxPresenter.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

namespace {

// A long path wraps after one of its slashes rather than inside a name: each slash is
// followed by a break opportunity that draws nothing.
QString breakableAtSlashes(QString text)
{
    return text.replace(QLatin1Char('/'), QStringLiteral("/\u200B"));
}

} // namespace

int VTMessageBoxPresenter::runModal(const VTAlertRequest &request)
{
    QMessageBox box(m_parent ? m_parent : QApplication::activeWindow());
    box.setIcon(request.alternateButton.isEmpty() ? QMessageBox::Warning : QMessageBox::Question);
    box.setWindowTitle(QStringLiteral("Kairo Planner"));
    box.setText(breakableAtSlashes(request.messageText));
    box.setInformativeText(breakableAtSlashes(request.informativeText));
    QPushButton *defaultButton = box.addButton(
        request.defaultButton.isEmpty() ? QStringLiteral("OK") : request.defaultButton,
        QMessageBox::AcceptRole);
    QPushButton *alternateButton = nullptr;
    QPushButton *otherButton = nullptr;
    if (!request.alternateButton.isEmpty()) {
        alternateButton = box.addButton(request.alternateButton, QMessageBox::RejectRole);
    }
    if (!request.otherButton.isEmpty()) {
        otherButton = box.addButton(request.otherButton, QMessageBox::DestructiveRole);
    }
    box.setDefaultButton(defaultButton);
    box.setEscapeButton(alternateButton ? static_cast<QAbstractButton *>(alternateButton)
                                        : defaultButton);
    box.exec();
    if (box.clickedButton() == alternateButton && alternateButton) {
        return VTAlert::AlternateReturn;
    }
    if (box.clickedButton() == otherButton && otherButton) {
        return VTAlert::OtherReturn;
    }
    return VTAlert::DefaultReturn;
}
