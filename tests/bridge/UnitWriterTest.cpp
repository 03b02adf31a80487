#include "BridgeTesting.h"

#include "JobFile.h"
#include "ManagerScope.h"
#include "UnitHeader.h"
#include "UnitWriter.h"

#include "platform/FileNames.h"

#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QRegularExpression>

namespace {

struct Case
{
    const char *name;
    bool daemon;
    QString label;
    QStringList arguments;
    PlistDict schedule;
    bool disabled = false;
    std::optional<PlistDict> environment = std::nullopt;
};

const auto calendar = &BridgeTesting::calendar;

QString hostileNewline()
{
    return QStringLiteral("x\n[Service]\nExecStartPre=/bin/false");
}

// An agent of the application's writer running Foo Bar with -backup: ScheduledTaskN.
Case agent(const char *name, int number, const PlistDict &schedule)
{
    return {name,
            false,
            QStringLiteral("com.vantreel.ScheduledTask%1").arg(number),
            {"-backup"},
            schedule};
}

// Each schedule type the application writes, and forms written by hand.
std::vector<Case> cases()
{
    std::vector<Case> all{
        agent("type0-startup", 0, {{"RunAtLoad", true}}),
        agent("type0-startup-daemon", 1, {{"RunAtLoad", true}}),
        agent("type1-mount", 1, {{"StartOnMount", true}}),
        agent("type2-hourly", 2, calendar({{{"Minute", 0}}})),
        agent("type3-daily", 3, calendar({{{"Hour", 7}, {"Minute", 0}}})),
        agent("type3-daily-disabled", 4, calendar({{{"Hour", 7}, {"Minute", 0}}})),
        agent("type4-weekly", 5, calendar({{{"Weekday", 1}, {"Hour", 7}, {"Minute", 0}}})),
        agent("type5-monthly", 6, calendar({{{"Day", 1}, {"Hour", 7}, {"Minute", 0}}})),
        agent("type6-seconds", 7, {{"StartInterval", 300}}),
        // The writer's calendar form, one key per element, is one merged event.
        agent("type7-calendar", 8, calendar({{{"Minute", 30}}, {{"Hour", 2}}})),
        agent("type7-calendar-all-keys", 9,
              calendar({{{"Minute", 15}},
                        {{"Hour", 9}},
                        {{"Day", 31}},
                        {{"Weekday", 7}},
                        {{"Month", 12}}})),
        // Any other array keeps launchd's meaning, one event per element: a key twice, or
        // an element of more than one key.
        agent("calendar-key-twice", 14, calendar({{{"Minute", 0}}, {{"Minute", 30}}})),
        agent("calendar-per-element", 15,
              calendar({{{"Hour", 2}, {"Minute", 30}}, {{"Weekday", 1}}})),
        // A type-7 task saved with an empty interval: launchd never fires it.
        agent("type7-calendar-empty", 10, calendar({})),
        // Written by hand: launchd fires on day 1 and on Sundays.
        agent("calendar-day-or-weekday", 11,
              calendar({{{"Day", 1}, {"Weekday", 0}, {"Hour", 7}, {"Minute", 0}}})),
        agent("type8-watch", 12,
              {{"WatchPaths", QStringList{"@SANDBOX@/home/anna/Documents/In box 100%"}}}),
        agent("hostile-arguments", 13, {{"StartInterval", 60}}),
        // Characters systemd does not take in unit names.
        agent("awkward-label", 0, {{"StartInterval", 60}}),
    };
    all[1].daemon = true;
    all[1].label = QStringLiteral("com.vantreel.RootScheduledTask1");
    all[5].disabled = true;
    Case &hostile = all[all.size() - 2];
    hostile.arguments = {"two words",
                         "double \"quote\"",
                         "single 'quote'",
                         "back\\slash",
                         "ends with\\",
                         "100%",
                         "%n%%",
                         "$HOME",
                         "${HOME}",
                         "$$",
                         hostileNewline(),
                         "tab\there",
                         "bell\a and \x7f",
                         "Grüße ✓ 日本",
                         "",
                         ";"};
    hostile.environment = PlistDict{{"VTAppBundleID", "com.vantreel.FooBar"},
                                    {"VTCommandID", "x\n[Install]\nWantedBy=evil.target"},
                                    {"HOSTILE", "$HOME %h \"q\" \\"}};
    all.back().label = QStringLiteral("com.vantreel.Scheduled Task@1/ü");
    return all;
}

QString goldenFolder(const Case &c)
{
    return QStringLiteral(KAIRO_TEST_DATA_DIR "/bridge/") + QLatin1String(c.name);
}

QString placeholders(QString text, const Sandbox &sandbox)
{
    return text.replace(QStringLiteral("@SANDBOX@"), sandbox.path())
        .replace(QStringLiteral("@BRIDGE@"), BridgeTesting::bridgeBinary());
}

QString withPlaceholders(QString text, const Sandbox &sandbox)
{
    return text.replace(BridgeTesting::bridgeBinary(), QStringLiteral("@BRIDGE@"))
        .replace(sandbox.path(), QStringLiteral("@SANDBOX@"));
}

struct Generated
{
    std::vector<std::pair<QString, QString>> units;
    QStringList warnings;
};

Generated generate(const Case &c, Sandbox &sandbox)
{
    const QString program =
        sandbox.localRoot() + QStringLiteral("/Applications/Foo Bar.app/Contents/MacOS/Foo Bar");
    PlistDict schedule;
    for (const PlistDict::Entry &entry : c.schedule) {
        if (entry.key == QLatin1String("WatchPaths")) {
            QStringList paths;
            for (const QString &watched : entry.value.stringList()) {
                paths.append(placeholders(watched, sandbox));
            }
            schedule.insert(entry.key, PlistValue(paths));
        } else {
            schedule.insert(entry.key, entry.value);
        }
    }
    PlistDict dict = BridgeTesting::writerJob(c.label, program, c.arguments, schedule, c.disabled);
    if (c.environment) {
        dict.insert(QStringLiteral("EnvironmentVariables"), *c.environment);
    }
    const QString folder = c.daemon ? sandbox.localRoot() + QStringLiteral("/Library/LaunchDaemons")
                                    : sandbox.home() + QStringLiteral("/Library/LaunchAgents");
    const QString path = BridgeTesting::writeJob(folder, dict);
    QString message;
    const std::optional<JobFile> job = JobFile::read(path, &message);
    EXPECT_TRUE(job) << message.toStdString();
    if (!job) {
        return {};
    }
    const ManagerScope scope = ManagerScope::forJobFile(path);
    const std::optional<UnitWriter> writer = UnitWriter::forJob(*job, scope, &message);
    EXPECT_TRUE(writer) << message.toStdString();
    if (!writer) {
        return {};
    }
    Generated generated{writer->units(), writer->warnings()};
    if (job->startOnMount()) {
        generated.units.emplace_back(
            UnitWriter::mountWatcherName(),
            UnitWriter::mountWatcherUnit(BridgeTesting::bridgeBinary(), scope));
    }
    return generated;
}

class UnitWriterGoldenTest : public ::testing::TestWithParam<Case>
{
protected:
    Sandbox sandbox;
};

} // namespace

TEST_P(UnitWriterGoldenTest, UnitsAreExactlyTheGoldenOnesAndPassSystemdVerify)
{
    const Case &c = GetParam();
    const Generated generated = generate(c, sandbox);
    ASSERT_FALSE(generated.units.empty());
    EXPECT_TRUE(generated.warnings.isEmpty()) << generated.warnings.join("; ").toStdString();

    const QString golden = goldenFolder(c);
    if (qEnvironmentVariableIsSet("KAIRO_UPDATE_GOLDEN")) {
        QDir(golden).removeRecursively();
        for (const auto &[name, text] : generated.units) {
            TestFiles::write(golden + QLatin1Char('/') + name,
                             withPlaceholders(text, sandbox).toUtf8());
        }
    }
    QStringList names;
    for (const auto &[name, text] : generated.units) {
        names.append(name);
        const QString expected = placeholders(
            QString::fromUtf8(TestFiles::read(golden + QLatin1Char('/') + name)), sandbox);
        EXPECT_EQ(text.toStdString(), expected.toStdString()) << name.toStdString();
    }
    names.sort();
    EXPECT_EQ(QDir(golden).entryList(QDir::Files, QDir::Name), names);

    // The files as they would lie in the manager's folder.
    const QString folder = sandbox.mkdir(QStringLiteral("units"));
    QStringList files;
    for (const auto &[name, text] : generated.units) {
        files.append(folder + QLatin1Char('/') + name);
        TestFiles::write(files.last(), text.toUtf8());
    }
    QString report;
    EXPECT_TRUE(
        BridgeTesting::verify(files, !c.daemon, sandbox.mkdir(QStringLiteral("runtime")), &report))
        << report.toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Jobs, UnitWriterGoldenTest, ::testing::ValuesIn(cases()),
    [](const ::testing::TestParamInfo<Case> &info) {
        return QString::fromLatin1(info.param.name).replace('-', '_').toStdString();
    });

// Text from the job file can never start a line of its own in a unit: every unit has
// exactly the sections and directives the bridge means to write.
TEST(UnitWriterTest, HostileTextAddsNoDirective)
{
    Sandbox sandbox;
    const QString inject =
        hostileNewline() + QStringLiteral("\r\n[Install]\nWantedBy=evil.target\\");
    const QString agents = sandbox.home() + QStringLiteral("/Library/LaunchAgents");
    const QString program =
        sandbox.localRoot() + QStringLiteral("/Applications/Foo Bar.app/Contents/MacOS/Foo Bar");
    PlistDict dict =
        BridgeTesting::writerJob(QStringLiteral("job") + inject, program, {inject, inject + "%"},
                                 {{"WatchPaths", QStringList{"/srv/ok", "/srv/" + inject}},
                                  {"StartInterval", 60},
                                  {"StartOnMount", true}});
    dict.insert(QStringLiteral("EnvironmentVariables"), PlistDict{{"X", inject}});
    const QString path = BridgeTesting::writeJob(agents, dict);

    // systemd runs no program whose path has a control character; such a job is refused.
    PlistDict badProgram = dict;
    badProgram.insert(QStringLiteral("Program"),
                      QStringLiteral("/x\n[Service]\nExecStartPre=/bin/false"));
    QString message;
    EXPECT_FALSE(JobFile::fromDictionary(badProgram, path, &message));
    EXPECT_TRUE(message.startsWith(QStringLiteral("launchctl: invalid Program")))
        << message.toStdString();

    const std::optional<JobFile> job = JobFile::read(path, &message);
    ASSERT_TRUE(job) << message.toStdString();
    const std::optional<UnitWriter> writer =
        UnitWriter::forJob(*job, ManagerScope::user(), &message);
    ASSERT_TRUE(writer) << message.toStdString();
    // The path systemd could not read back is left out, and said so.
    EXPECT_EQ(writer->warnings().size(), 1) << writer->warnings().join("; ").toStdString();

    const std::map<QString, QStringList> allowed{
        {"service",
         {"[Unit]", "Description", "[Service]", "Type", "ExecStart", "Nice", "IOSchedulingClass",
          "Environment"}},
        {"timer",
         {"[Unit]", "Description", "[Timer]", "OnActiveSec", "OnUnitActiveSec", "AccuracySec",
          "[Install]", "WantedBy"}},
        {"path", {"[Unit]", "Description", "[Path]", "PathModified", "[Install]", "WantedBy"}}};
    const QString folder = sandbox.mkdir(QStringLiteral("units"));
    QStringList files;
    for (const auto &[name, text] : writer->units()) {
        const QString type = name.section(QLatin1Char('.'), -1);
        EXPECT_FALSE(text.contains(QLatin1Char('\r')) || text.contains(QChar(0)));
        QStringList seen;
        for (const QString &line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
            if (line.startsWith(QLatin1Char('#'))) {
                continue;
            }
            // No line continues into the next: an odd number of backslashes would.
            const qsizetype backslashes =
                line.size() -
                QString(line).remove(QRegularExpression(QStringLiteral("\\\\+$"))).size();
            EXPECT_EQ(backslashes % 2, 0) << line.toStdString();
            seen.append(line.startsWith(QLatin1Char('[')) ? line
                                                          : line.section(QLatin1Char('='), 0, 0));
        }
        seen.removeDuplicates();
        EXPECT_EQ(seen, allowed.at(type)) << name.toStdString();
        EXPECT_EQ(text.count(QStringLiteral("\nExecStart=")),
                  type == QLatin1String("service") ? 1 : 0);
        files.append(folder + QLatin1Char('/') + name);
        TestFiles::write(files.last(), text.toUtf8());
    }
    ASSERT_EQ(files.size(), 3);
    QString report;
    EXPECT_TRUE(
        BridgeTesting::verify(files, true, sandbox.mkdir(QStringLiteral("runtime")), &report))
        << report.toStdString();
}

// systemd runs no executable by a path that holds a quote or a backslash: the bridge's
// "exec" starts such a program in its place, with the job's own argument list, and the
// units pass systemd's checks. Without a usable bridge the job is refused.
TEST(UnitWriterTest, ProgramsSystemdWillNotStartRunThroughTheBridge)
{
    Sandbox sandbox;
    for (const QString &name :
         {QStringLiteral("Anna's Tools"), QStringLiteral("Back\\slash \"q\"")}) {
        const QString program = sandbox.localRoot() + QStringLiteral("/Applications/") + name +
                                QStringLiteral(".app/Contents/MacOS/") + name;
        const QString out = sandbox.file(QStringLiteral("ran"));
        TestFiles::writeScript(program, QStringLiteral("echo \"$*\" > '%1'").arg(out));
        const PlistDict dict =
            BridgeTesting::writerJob(QStringLiteral("com.vantreel.ScheduledTask1"), program,
                                     {"-backup", "a 'b'"}, {{"StartInterval", 60}});
        QString message;
        const std::optional<JobFile> job =
            JobFile::fromDictionary(dict, sandbox.file(QStringLiteral("job.plist")), &message);
        ASSERT_TRUE(job) << message.toStdString();
        EXPECT_FALSE(UnitWriter::forJob(*job, ManagerScope::user(), &message));
        EXPECT_TRUE(message.contains(QStringLiteral("systemd cannot run the program")));

        const std::optional<UnitWriter> writer =
            UnitWriter::forJob(*job, ManagerScope::user(), &message, BridgeTesting::bridgeBinary());
        ASSERT_TRUE(writer) << message.toStdString();
        const QString folder = sandbox.mkdir(QStringLiteral("units"));
        QStringList files;
        for (const auto &[unit, text] : writer->units()) {
            files.append(folder + QLatin1Char('/') + unit);
            TestFiles::write(files.last(), text.toUtf8());
        }
        QString report;
        EXPECT_TRUE(
            BridgeTesting::verify(files, true, sandbox.mkdir(QStringLiteral("runtime")), &report))
            << report.toStdString();

        // What ExecStart= runs: the bridge, which becomes the program.
        const BridgeTesting::Run run =
            BridgeTesting::bridge({"exec", program, name, "-backup", "a 'b'"});
        EXPECT_EQ(run.status, 0) << run.err.toStdString();
        EXPECT_EQ(TestFiles::read(out), QByteArray("-backup a 'b'\n"));
    }
}

// Names that are not UTF-8 keep their bytes in units that are UTF-8 themselves. Paths that
// systemd takes verbatim cannot hold such bytes: a job watching or passing one is refused
// rather than loaded never to run.
TEST(UnitWriterTest, NamesThatAreNotUtf8KeepTheirBytes)
{
    Sandbox sandbox;
    const QString latin1 = FileNames::decode("caf\xe9");
    const QString program =
        TestFiles::writeScript(sandbox.localRoot() + "/" + latin1, QStringLiteral("exit 0"));
    const QString jobPath = sandbox.home() + "/" + latin1 + ".plist";
    const PlistDict dict = BridgeTesting::writerJob(QStringLiteral("com.vantreel.") + latin1,
                                                    program, {latin1}, {{"StartInterval", 60}});
    QString message;
    const std::optional<JobFile> job = JobFile::fromDictionary(dict, jobPath, &message);
    ASSERT_TRUE(job) << message.toStdString();
    const std::optional<UnitWriter> writer =
        UnitWriter::forJob(*job, ManagerScope::user(), &message);
    ASSERT_TRUE(writer) << message.toStdString();
    const QString folder = sandbox.mkdir(QStringLiteral("units"));
    QStringList files;
    for (const auto &[name, text] : writer->units()) {
        files.append(folder + QLatin1Char('/') + name);
        TestFiles::write(files.last(), text.toUtf8());
    }
    const QString service = writer->units().front().second;
    const std::optional<UnitHeader> header = UnitHeader::parse(service);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->jobPath(), jobPath);
    EXPECT_EQ(header->label(), job->label());
    EXPECT_TRUE(service.contains(QStringLiteral(" \"caf\\xe9\"\n"))) << service.toStdString();
    // verify wants UTF-8 and checks that ExecStart= names an executable: this one.
    QString report;
    EXPECT_TRUE(
        BridgeTesting::verify(files, true, sandbox.mkdir(QStringLiteral("runtime")), &report))
        << report.toStdString();

    for (const auto &[key, value] :
         {std::pair<QString, PlistValue>{"WatchPaths", QStringList{"/srv/" + latin1}},
          std::pair<QString, PlistValue>{"EnvironmentVariables", PlistDict{{"X", latin1}}}}) {
        PlistDict refused = dict;
        refused.insert(key, value);
        const std::optional<JobFile> other = JobFile::fromDictionary(refused, jobPath, &message);
        ASSERT_TRUE(other) << message.toStdString();
        EXPECT_FALSE(UnitWriter::forJob(*other, ManagerScope::user(), &message));
        EXPECT_TRUE(message.contains(QStringLiteral("not UTF-8"))) << message.toStdString();
    }
}
