#include "JobFileName.h"

#include "support/VTFormat.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

JobFileName::Claim JobFileName::claim(const QString &folder, bool root)
{
    const QString prefix = root ? QStringLiteral("Root") : QString();
    for (int number = 1;; ++number) {
        const QString path =
            folder + VTFormat::string(QStringLiteral("/com.vantreel.%@ScheduledTask%d.plist"),
                                      prefix, number);
        const int fd = ::open(QFile::encodeName(path).constData(),
                              O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd >= 0) {
            ::close(fd);
            return Claim{path, true};
        }
        if (errno == EEXIST) {
            continue;
        }
        // A folder we may not write (root's jobs from an ordinary account): the name is
        // only checked, and the privileged write takes it.
        if (!QFileInfo::exists(path)) {
            return Claim{path, false};
        }
    }
}

void JobFileName::release(const Claim &claim)
{
    if (claim.placeholder && QFileInfo(claim.path).size() == 0) {
        QFile::remove(claim.path);
    }
}
