#pragma once

#include <QIcon>
#include <QString>

// Images by name: the files in the main bundle's Resources ("KairoPlanner.icns",
// "disableall.png"), with built-in copies when the program runs outside its bundle, and the
// drawn images of the toolbar's task items.
class VTImages
{
public:
    static QIcon imageNamed(const QString &name);
    static QIcon applicationIcon();
    // "NewTask", "EditTask" or "DeleteTask".
    static QIcon toolbarImage(const QString &name);
};
