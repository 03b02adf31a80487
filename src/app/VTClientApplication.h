#pragma once

#include "platform/PlistValue.h"

#include <QImage>
#include <QString>

// An installed client application that offers scheduled tasks: its name, bundle
// identifier, icon (48 by 48) and the value of its catalogue's "VTTasks".
struct VTClientApplication
{
    QString name;
    QString bundleid;
    QImage icon;
    PlistValue tasks;
};
