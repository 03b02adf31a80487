#pragma once

#include <QString>

// A generated Applications folder for the discovery benchmarks: plain folders three levels
// deep, with application bundles among them, half of them the maker's with a catalogue.
class AppTree
{
public:
    struct Counts
    {
        int folders = 0;
        int bundles = 0;
        int clients = 0;
    };
    static Counts make(const QString &applications, int folders, int bundles);
};
