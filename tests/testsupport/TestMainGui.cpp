#include "platform/WorkspaceIcons.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char **argv)
{
    // Widget tests never need a display.
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    WorkspaceIcons::install();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
