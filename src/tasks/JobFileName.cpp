#include "JobFileName.h"

#include "platform/FileNames.h"
#include "platform/PropertyList.h"
#include "support/VTFormat.h"

#include <sys/stat.h>
#include <unistd.h>

JobFileName::Claim
JobFileName::claim(const QString &folder, bool root,
                   const std::function<std::optional<PlistDict>(const QString &)> &job)
{
    const QString prefix = root ? QStringLiteral("Root") : QString();
    for (int number = 1;; ++number) {
        const QString path =
            folder + VTFormat::string(QStringLiteral("/com.vantreel.%@ScheduledTask%d.plist"),
                                      prefix, number);
        if (FileNames::exists(path) || FileNames::isSymbolicLink(path)) {
            continue;
        }
        const std::optional<PlistDict> keys = job(path);
        if (!keys) {
            return Claim{path};
        }
        bool taken = false;
        if (PropertyList::createXml(PlistValue(*keys), path, &taken)) {
            Claim claim{path, true};
            struct stat st
            {};
            if (::lstat(FileNames::encode(path).constData(), &st) == 0) {
                claim.device = st.st_dev;
                claim.inode = st.st_ino;
            }
            return claim;
        }
        if (taken) {
            continue;
        }
        // A folder we may not write (root's jobs from an ordinary account): the name is
        // only checked, and the privileged write takes it.
        if (!FileNames::exists(path)) {
            return Claim{path};
        }
    }
}

void JobFileName::release(const Claim &claim)
{
    struct stat st
    {};
    const QByteArray path = FileNames::encode(claim.path);
    if (claim.created && ::lstat(path.constData(), &st) == 0 && st.st_dev == claim.device &&
        st.st_ino == claim.inode) {
        ::unlink(path.constData());
    }
}
