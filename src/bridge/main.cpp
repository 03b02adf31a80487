#include "BridgeCommand.h"

#include "platform/FileNames.h"

#include <QCoreApplication>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <unistd.h>

int main(int argc, char **argv)
{
    // "exec PROGRAM ARGV0 ARGS...": the service of a job whose program systemd will not
    // start by its path becomes that program, argument bytes untouched.
    if (argc >= 4 && std::strcmp(argv[1], "exec") == 0) {
        ::execv(argv[2], argv + 3);
        std::fprintf(stderr, "kairo-launchctl: cannot run %s: %s\n", argv[2], std::strerror(errno));
        return 127;
    }
    QCoreApplication app(argc, argv);
    // Job file paths as the bytes they are, UTF-8 or not.
    QStringList arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.append(FileNames::decode(QByteArray(argv[i])));
    }
    // The units run the bridge by this path, so it keeps its bytes too.
    return BridgeCommand::run(arguments,
                              FileNames::canonicalPath(QStringLiteral("/proc/self/exe")));
}
