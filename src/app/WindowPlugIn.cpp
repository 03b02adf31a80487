#include "WindowPlugIn.h"

#include "platform/Console.h"
#include "platform/FileNames.h"
#include "support/VTToolPaths.h"

#include <QByteArray>
#include <QString>

#include <dlfcn.h>

namespace {

constexpr char kEntry[] = "kairoWindowedMain";

} // namespace

int WindowPlugIn::run(int argc, char **argv)
{
    // Beside this very executable, as the kernel records it: never argv[0] or the
    // environment, which whoever starts the process chooses.
    const QByteArray path = FileNames::encode(VTToolPaths::executableFolder() +
                                              QStringLiteral("/../PlugIns/" KAIRO_WINDOW_PLUGIN));
    void *handle = ::dlopen(path.constData(), RTLD_NOW | RTLD_LOCAL);
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
