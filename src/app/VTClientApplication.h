#pragma once

#include "platform/PlistValue.h"

#include <QString>
#include <QVariant>

// An installed client application that offers scheduled tasks: its name, bundle
// identifier, icon (48 by 48, a QImage when the windowed side provides icons) and the value of its
// catalogue's "VTTasks".
struct VTClientApplication
{
    QString name;
    QString bundleid;
    QVariant icon;
    PlistValue tasks;
};
