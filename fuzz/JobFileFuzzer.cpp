// libFuzzer target: any bytes as a property list (read alike by the direct and the general
// reader), and any dictionary among them as a launchd job translated into systemd units, as
// the application and the launchctl bridge read them.
#include "JobFile.h"
#include "ManagerScope.h"
#include "UnitWriter.h"
#include "platform/PlistText.h"
#include "platform/PropertyList.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const std::optional<PlistValue> value = PropertyList::parse(bytes);
    // The direct reader of plain XML reads exactly what the general one reads.
    const std::optional<PlistValue> general = PropertyList::parseGeneral(bytes);
    if (value.has_value() != general.has_value() || (value && !(*value == *general))) {
        __builtin_trap();
    }
    if (!value) {
        return 0;
    }
    // What was read can be shown and written again.
    PlistText::render(*value);
    PropertyList::toXml(*value);
    if (!value->isDictionary()) {
        return 0;
    }
    QString message;
    const std::optional<JobFile> job = JobFile::fromDictionary(
        value->dict(), QStringLiteral("/Library/LaunchDaemons/job.plist"), &message);
    if (!job) {
        return 0;
    }
    for (const ManagerScope &scope : {ManagerScope::user(), ManagerScope::system()}) {
        UnitWriter::forJob(*job, scope, &message, QStringLiteral("/usr/bin/kairo-launchctl"));
    }
    return 0;
}
