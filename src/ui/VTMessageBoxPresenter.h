#pragma once

#include "support/VTAlert.h"

class QWidget;

// Alerts as the desktop shows them: the message as the title line, the informative text
// below it, the default button first.
class VTMessageBoxPresenter : public VTAlertPresenter
{
public:
    explicit VTMessageBoxPresenter(QWidget *parent = nullptr) : m_parent(parent) {}
    int runModal(const VTAlertRequest &request) override;

private:
    QWidget *m_parent;
};
