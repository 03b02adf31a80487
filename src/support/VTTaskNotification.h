#pragma once

#include <QString>
#include <QVariant>

// Tells the client application that ran a headless command how its request ended: one
// message to its callback object on the session bus, "com.vantreel.VTQuillClientCallback"
// or else "com.vantreel.VTTesselClientCallback". Nobody listening is not an error; no
// failure ever reaches the caller.
class VTTaskNotification
{
public:
    static void postTaskFinished();
    static void postTaskErrorString(const QString &message);
    static void postTaskError(const QVariant &error);
    static void postIncrementProgress();
    static void postDisconnect();
};
