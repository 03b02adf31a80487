#pragma once

#include "support/VTAlert.h"

#include <QStringList>

#include <vector>

// An alert presenter that answers with a chosen button and remembers what it was asked.
class RecordingAlerts : public VTAlertPresenter
{
public:
    int answer = VTAlert::DefaultReturn;
    std::vector<VTAlertRequest> asked;
    int runModal(const VTAlertRequest &request) override;
    // The message text of each alert asked, in order.
    QStringList messages() const;
};
