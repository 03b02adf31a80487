#pragma once

#include <QStringList>

// The platform's standard folders by (directory, domain), with the numbering of the
// maker's applications. This is the process's own answer: the user domain is the
// process's home, whoever sits at the console.
class StandardFolders
{
public:
    enum Directory
    {
        ApplicationDirectory = 1,
        AdminApplicationDirectory = 4,
        LibraryDirectory = 5,
        DocumentationDirectory = 8,
        DocumentDirectory = 9,
        DesktopDirectory = 12,
        CachesDirectory = 13,
        ApplicationSupportDirectory = 14,
    };
    enum Domain
    {
        UserDomain = 1,
        LocalDomain = 2,
        SystemDomain = 8,
    };

    // The folders of the directory in the domains of the mask, user domain first; empty
    // where the platform has none.
    static QStringList searchPaths(int directory, int domainMask);
};
