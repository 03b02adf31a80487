#pragma once

// The windowed application: the main window with its task table, the editor sheet and the
// preferences, on the desktop's application loop.
class WindowedApplication
{
public:
    static int run(int argc, char **argv);
};
