#pragma once

// The windowed application lives in a plug-in beside the executable (Contents/PlugIns), so
// that headless commands start without loading the GUI libraries. The plug-in resolves the
// core's symbols from the executable.
class WindowPlugIn
{
public:
    // Loads the plug-in and runs the windowed application; 1 when it cannot be loaded.
    static int run(int argc, char **argv);
};
