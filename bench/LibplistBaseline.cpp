#include "LibplistBaseline.h"

#include <QByteArray>
#include <QFile>

#include <plist/plist.h>

#include <time.h>

void LibplistBaseline::parse(const QStringList &files)
{
    for (const QString &path : files) {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        const QByteArray bytes = file.readAll();
        plist_t root = nullptr;
        plist_from_memory(bytes.constData(), static_cast<uint32_t>(bytes.size()), &root);
        plist_free(root);
    }
}

double LibplistBaseline::processCpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}
