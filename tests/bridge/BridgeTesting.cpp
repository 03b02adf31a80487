#include "BridgeTesting.h"

#include "platform/PropertyList.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QtCore>

#include <cstdlib>
#include <ctime>

QString BridgeTesting::bridgeBinary()
{
    return QStringLiteral(KAIRO_BINARY_DIR "/Kairo Planner.app/Contents/MacOS/kairo-launchctl");
}

BridgeTesting::Run BridgeTesting::run(const QString &program, const QStringList &arguments,
                                      const std::map<QString, QString> &environment)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const auto &[name, value] : environment) {
        env.insert(name, value);
    }
    process.setProcessEnvironment(env);
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(20000)) {
        process.kill();
        process.waitForFinished();
        result.err = "did not finish: " + process.errorString();
        return result;
    }
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

BridgeTesting::Run BridgeTesting::bridge(const QStringList &arguments,
                                         const std::map<QString, QString> &environment)
{
    return run(bridgeBinary(), arguments, environment);
}

BridgeTesting::StandIn::StandIn(Sandbox &sandbox) : m_folder(sandbox.mkdir("systemctl"))
{
    const QString script = TestFiles::writeScript(
        m_folder + "/systemctl",
        QStringLiteral(
            "dir='%1'\n"
            "echo \"$*\" >> \"$dir/calls\"\n"
            "for a in \"$@\"; do case \"$a\" in -*) ;; *) verb=\"$a\"; break;; esac; done\n"
            "if [ \"$verb\" = show ] && [ -f \"$dir/show\" ]; then cat \"$dir/show\"; fi\n"
            "if [ -f \"$dir/fail-$verb\" ]; then\n"
            "  echo \"Failed to $verb: the stand-in refuses\" >&2\n"
            "  exit $(cat \"$dir/fail-$verb\")\n"
            "fi\n"
            "exit 0")
            .arg(m_folder));
    sandbox.setEnv("VT_SYSTEMCTL", script);
}

QStringList BridgeTesting::StandIn::calls() const
{
    return TestFiles::lines(m_folder + "/calls");
}

void BridgeTesting::StandIn::clearCalls() const
{
    QFile::remove(m_folder + "/calls");
}

void BridgeTesting::StandIn::fail(const QString &verb, int status) const
{
    TestFiles::write(m_folder + "/fail-" + verb, QByteArray::number(status));
}

void BridgeTesting::StandIn::answerShow(const QString &output) const
{
    TestFiles::write(m_folder + "/show", output.toUtf8());
}

PlistDict BridgeTesting::writerJob(const QString &label, const QString &program,
                                   const QStringList &arguments, const PlistDict &schedule,
                                   bool disabled)
{
    PlistDict job{
        {"Label", label},
        {"Program", program},
        {"ProgramArguments", QStringList{QFileInfo(program).completeBaseName()} + arguments},
        {"LowPriorityIO", true},
        {"Nice", 15}};
    for (const PlistDict::Entry &entry : schedule) {
        job.insert(entry.key, entry.value);
    }
    if (disabled) {
        job.insert("Disabled", true);
    }
    job.insert("EnvironmentVariables",
               PlistDict{{"VTAppBundleID", "com.vantreel.FooBar"}, {"VTCommandID", "backup"}});
    return job;
}

QString BridgeTesting::writeJob(const QString &folder, const PlistDict &job)
{
    // The writer names the file after the label; a "/" cannot be part of a file name.
    const QString name = job.value("Label").string().replace('/', '_');
    const QString path = folder + '/' + name + ".plist";
    QDir().mkpath(folder);
    PropertyList::writeXml(PlistValue(job), path);
    const QString program = job.value("Program").string();
    if (program.startsWith('/') && !QFileInfo::exists(program)) {
        TestFiles::writeScript(program, "exit 0");
    }
    return path;
}

QString BridgeTesting::job(const Sandbox &sandbox, const QString &label, const PlistDict &schedule,
                           bool disabled, bool daemon)
{
    const QString folder = daemon ? sandbox.localRoot() + "/Library/LaunchDaemons"
                                  : sandbox.home() + "/Library/LaunchAgents";
    const QString program = sandbox.localRoot() + "/Applications/Foo.app/Contents/MacOS/Foo";
    return writeJob(folder, writerJob(label, program, {"-backup"}, schedule, disabled));
}

PlistDict BridgeTesting::calendar(std::initializer_list<PlistDict> elements)
{
    PlistArray array;
    for (const PlistDict &element : elements) {
        array.push_back(PlistValue(element));
    }
    return PlistDict{{"StartCalendarInterval", PlistValue(array)}};
}

PlistDict BridgeTesting::daily()
{
    return calendar({PlistDict{{"Hour", 7}, {"Minute", 0}}});
}

bool BridgeTesting::verify(const QStringList &unitFiles, bool userUnits, const QString &runtimeDir,
                           QString *report)
{
    QStringList arguments;
    if (userUnits) {
        arguments << "--user";
    }
    arguments << "verify"
              << "--man=no" << unitFiles;
    const Run result = run("systemd-analyze", arguments, {{"XDG_RUNTIME_DIR", runtimeDir}});
    *report = result.err + result.out;
    if (result.status != 0) {
        return false;
    }
    // Anything said about one of the units (a warning still passes verify) is a problem.
    for (const QString &file : unitFiles) {
        if (result.err.contains(file) || result.err.contains(QFileInfo(file).fileName())) {
            return false;
        }
    }
    return true;
}

std::vector<std::vector<qint64>> BridgeTesting::systemdFirings(const QStringList &lines,
                                                               qint64 base, int iterations,
                                                               const QString &zone,
                                                               QStringList *normalized)
{
    const Run result = run("systemd-analyze",
                           QStringList{"calendar", QStringLiteral("--base-time=@%1").arg(base),
                                       QStringLiteral("--iterations=%1").arg(iterations)} +
                               lines,
                           {{"TZ", zone}});
    static const QRegularExpression elapse(
        QStringLiteral("^\\s*(?:Next elapse|Iter\\. #\\d+|\\(in UTC\\)): \\w+ "
                       "(\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d) (\\S+)$"));
    std::vector<std::vector<qint64>> firings;
    if (normalized) {
        normalized->clear();
    }
    for (const QString &block : result.out.split("\n\n", Qt::SkipEmptyParts)) {
        std::vector<qint64> times;
        for (const QString &line : block.split('\n')) {
            if (normalized && line.trimmed().startsWith(QLatin1String("Normalized form: "))) {
                normalized->append(line.trimmed().mid(17));
            }
            const QRegularExpressionMatch match = elapse.match(line);
            if (!match.hasMatch() || match.captured(2) != QLatin1String("UTC")) {
                continue;
            }
            QDateTime time = QDateTime::fromString(match.captured(1), "yyyy-MM-dd HH:mm:ss");
            time.setTimeZone(QTimeZone::utc());
            times.push_back(time.toSecsSinceEpoch());
        }
        firings.push_back(times);
    }
    return firings;
}

BridgeTesting::TimeZone::TimeZone(const QString &zone)
{
    if (const char *old = getenv("TZ")) {
        m_old = QByteArray(old);
    }
    setenv("TZ", zone.toLocal8Bit().constData(), 1);
    tzset();
}

BridgeTesting::TimeZone::~TimeZone()
{
    if (m_old) {
        setenv("TZ", m_old->constData(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
}
