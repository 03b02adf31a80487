#include "RecordingAlerts.h"

int RecordingAlerts::runModal(const VTAlertRequest &request)
{
    asked.push_back(request);
    return answer;
}

QStringList RecordingAlerts::messages() const
{
    QStringList out;
    for (const VTAlertRequest &request : asked) {
        out.append(request.messageText);
    }
    return out;
}
