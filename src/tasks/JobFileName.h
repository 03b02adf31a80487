#pragma once

#include <QString>

#include <optional>

// The name of a new job file: the folder plus "/com.vantreel.%@ScheduledTask%d.plist" with
// the first free number, lowest first. Where the folder can be written, the name is
// claimed by creating the file exclusively, so two processes adding tasks at the same
// moment never get the same number; the placeholder stays empty until the job is written.
class JobFileName
{
public:
    struct Claim
    {
        QString path;
        // True when this process created the (empty) file and must remove it on failure.
        bool placeholder = false;
    };

    static Claim claim(const QString &folder, bool root);
    // Removes a placeholder that was never written.
    static void release(const Claim &claim);
};
