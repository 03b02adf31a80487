#include "WindowPlugIn.h"

#include "platform/Console.h"
#include "platform/FileNames.h"

#include <QByteArray>
#include <QString>

#include <dlfcn.h>
#include <limits.h>
#include <unistd.h>

namespace {

constexpr char kEntry[] = "kairoWindowedMain";

// The plug-in of this very executable, found from the kernel's record of it: neither argv[0]
// nor the environment, which whoever starts the process chooses.
QByteArray plugInPath()
{
    char buffer[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) {
        return QByteArray();
    }
    QByteArray path(buffer, length);
    path.truncate(path.lastIndexOf('/'));
    return path + "/../PlugIns/" KAIRO_WINDOW_PLUGIN;
}

} // namespace

int WindowPlugIn::run(int argc, char **argv)
{
    const QByteArray path = plugInPath();
    void *handle = path.isEmpty() ? nullptr : ::dlopen(path.constData(), RTLD_NOW | RTLD_LOCAL);
    using Entry = int (*)(int, char **);
    const auto entry = handle ? reinterpret_cast<Entry>(::dlsym(handle, kEntry)) : nullptr;
    if (!entry) {
        const char *reason = ::dlerror();
        Console::log(
            QStringLiteral("Unable to load the window from %1: %2")
                .arg(FileNames::decode(path), QString::fromLocal8Bit(reason ? reason : "")));
        return 1;
    }
    return entry(argc, argv);
}
