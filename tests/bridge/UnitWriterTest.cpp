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
    int number;
    PlistDict schedule;
    QStringList arguments = {"-backup"};
    bool disabled = false;
    bool daemon = false;
    std::optional<PlistDict> environment = std::nullopt;
    // ScheduledTaskN, else this label.
    QString label = QString();
};

const auto calendar = &BridgeTesting::calendar;
const QString hostileNewline = "x\n[Service]\nExecStartPre=/bin/false";

// Each schedule type the application writes for Foo Bar with -backup, and forms written by
// hand.
const Case cases[] = {
    {"type0-startup", 0, {{"RunAtLoad", true}}},
    {.name = "type0-startup-daemon",
     .number = 1,
     .schedule = {{"RunAtLoad", true}},
     .daemon = true,
     .label = "com.vantreel.RootScheduledTask1"},
    {"type1-mount", 1, {{"StartOnMount", true}}},
    {"type3-daily", 3, calendar({{{"Hour", 7}, {"Minute", 0}}})},
    {.name = "type3-daily-disabled",
     .number = 4,
     .schedule = calendar({{{"Hour", 7}, {"Minute", 0}}}),
     .disabled = true},
    {"type6-seconds", 7, {{"StartInterval", 300}}},
    // The writer's calendar form, one key per element, is one merged event.
    {"type7-calendar", 8, calendar({{{"Minute", 30}}, {{"Hour", 2}}})},
    {"type7-calendar-all-keys", 9,
     calendar({{{"Minute", 15}}, {{"Hour", 9}}, {{"Day", 31}}, {{"Weekday", 7}}, {{"Month", 12}}})},
    // Any other array keeps launchd's meaning, one event per element: a key twice, or an
    // element of more than one key.
    {"calendar-key-twice", 14, calendar({{{"Minute", 0}}, {{"Minute", 30}}})},
    {"calendar-per-element", 15, calendar({{{"Hour", 2}, {"Minute", 30}}, {{"Weekday", 1}}})},
    // A type-7 task saved with an empty interval: launchd never fires it.
    {"type7-calendar-empty", 10, calendar({})},
    // Written by hand: launchd fires on day 1 and on Sundays.
    {"calendar-day-or-weekday", 11,
     calendar({{{"Day", 1}, {"Weekday", 0}, {"Hour", 7}, {"Minute", 0}}})},
    {"type8-watch", 12, {{"WatchPaths", QStringList{"@SANDBOX@/home/anna/Documents/In box 100%"}}}},
    {.name = "hostile-arguments",
     .number = 13,
     .schedule = {{"StartInterval", 60}},
     .arguments = {"two words", "double \"quote\"", "single 'quote'", "back\\slash", "ends with\\",
                   "100%", "%n%%", "$HOME", "${HOME}", "$$", hostileNewline, "tab\there",
                   "bell\a and \x7f", "Grüße ✓ 日本", "", ";"},
     .environment = PlistDict{{"VTAppBundleID", "com.vantreel.FooBar"},
                              {"VTCommandID", "x\n[Install]\nWantedBy=evil.target"},
                              {"HOSTILE", "$HOME %h \"q\" \\"}}},
    // Characters systemd does not take in unit names.
    {.name = "awkward-label",
     .number = 0,
     .schedule = {{"StartInterval", 60}},
     .label = "com.vantreel.Scheduled Task@1/ü"},
};

QString programIn(const Sandbox &sandbox, const QString &name = "Foo Bar")
{
    return sandbox.localRoot() + "/Applications/" + name + ".app/Contents/MacOS/" + name;
}

// The units written where a manager would find them pass systemd-analyze verify.
void expectVerified(const std::vector<std::pair<QString, QString>> &units, bool user,
                    Sandbox &sandbox)
{
    const QString folder = sandbox.mkdir("units");
    QStringList files;
    for (const auto &[name, text] : units) {
        files.append(folder + "/" + name);
        TestFiles::write(files.last(), text.toUtf8());
    }
    QString report;
    EXPECT_TRUE(BridgeTesting::verify(files, user, sandbox.mkdir("runtime"), &report))
        << report.toStdString();
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
    const auto placeholders = [&](QString text) {
        return text.replace("@SANDBOX@", sandbox.path())
            .replace("@BRIDGE@", BridgeTesting::bridgeBinary());
    };
    PlistDict dict = BridgeTesting::writerJob(
        c.label.isEmpty() ? QString("com.vantreel.ScheduledTask%1").arg(c.number) : c.label,
        programIn(sandbox), c.arguments, c.schedule, c.disabled);
    if (c.environment) {
        dict.insert("EnvironmentVariables", *c.environment);
    }
    const QString path =
        BridgeTesting::writeJob(c.daemon ? sandbox.localRoot() + "/Library/LaunchDaemons"
                                         : sandbox.home() + "/Library/LaunchAgents",
                                dict);
    TestFiles::write(path, placeholders(QString::fromUtf8(TestFiles::read(path))).toUtf8());
    QString message;
    const std::optional<JobFile> job = JobFile::read(path, &message);
    ASSERT_TRUE(job) << message.toStdString();
    const ManagerScope scope = ManagerScope::forJobFile(path);
    const std::optional<UnitWriter> writer = UnitWriter::forJob(*job, scope, &message);
    ASSERT_TRUE(writer) << message.toStdString();
    EXPECT_TRUE(writer->warnings().isEmpty()) << writer->warnings().join("; ").toStdString();
    std::vector<std::pair<QString, QString>> units = writer->units();
    if (job->startOnMount()) {
        units.emplace_back(UnitWriter::mountWatcherName(),
                           UnitWriter::mountWatcherUnit(BridgeTesting::bridgeBinary(), scope));
    }

    const QString golden = KAIRO_TEST_DATA_DIR "/bridge/" + QString(c.name);
    if (qEnvironmentVariableIsSet("KAIRO_UPDATE_GOLDEN")) {
        QDir(golden).removeRecursively();
        for (const auto &[name, text] : units) {
            TestFiles::write(golden + "/" + name,
                             QString(text)
                                 .replace(BridgeTesting::bridgeBinary(), "@BRIDGE@")
                                 .replace(sandbox.path(), "@SANDBOX@")
                                 .toUtf8());
        }
    }
    QStringList names;
    for (const auto &[name, text] : units) {
        names.append(name);
        EXPECT_EQ(
            text.toStdString(),
            placeholders(QString::fromUtf8(TestFiles::read(golden + "/" + name))).toStdString())
            << name.toStdString();
    }
    names.sort();
    EXPECT_EQ(QDir(golden).entryList(QDir::Files, QDir::Name), names);
    expectVerified(units, !c.daemon, sandbox);
}

INSTANTIATE_TEST_SUITE_P(Jobs, UnitWriterGoldenTest, ::testing::ValuesIn(cases),
                         [](const ::testing::TestParamInfo<Case> &info) {
                             return QString(info.param.name).replace('-', '_').toStdString();
                         });

// Text from the job file can never start a line of its own in a unit: every unit has
// exactly the sections and directives the bridge means to write.
TEST(UnitWriterTest, HostileTextAddsNoDirective)
{
    Sandbox sandbox;
    const QString inject = hostileNewline + "\r\n[Install]\nWantedBy=evil.target\\";
    PlistDict dict =
        BridgeTesting::writerJob("job" + inject, programIn(sandbox), {inject, inject + "%"},
                                 {{"WatchPaths", QStringList{"/srv/ok", "/srv/" + inject}},
                                  {"StartInterval", 60},
                                  {"StartOnMount", true}});
    dict.insert("EnvironmentVariables", PlistDict{{"X", inject}});
    const QString path = BridgeTesting::writeJob(sandbox.home() + "/Library/LaunchAgents", dict);

    // systemd runs no program whose path has a control character; such a job is refused.
    PlistDict badProgram = dict;
    badProgram.insert("Program", "/" + hostileNewline);
    QString message;
    EXPECT_FALSE(JobFile::fromDictionary(badProgram, path, &message));
    EXPECT_TRUE(message.startsWith("launchctl: invalid Program")) << message.toStdString();

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
    for (const auto &[name, text] : writer->units()) {
        const QString type = name.section('.', -1);
        EXPECT_FALSE(text.contains('\r') || text.contains(QChar(0)));
        QStringList seen;
        for (const QString &line : text.split('\n', Qt::SkipEmptyParts)) {
            if (line.startsWith('#')) {
                continue;
            }
            // No line continues into the next: an odd number of backslashes would.
            const qsizetype backslashes =
                line.size() - QString(line).remove(QRegularExpression("\\\\+$")).size();
            EXPECT_EQ(backslashes % 2, 0) << line.toStdString();
            seen.append(line.startsWith('[') ? line : line.section('=', 0, 0));
        }
        seen.removeDuplicates();
        EXPECT_EQ(seen, allowed.at(type)) << name.toStdString();
        EXPECT_EQ(text.count("\nExecStart="), type == QLatin1String("service") ? 1 : 0);
    }
    ASSERT_EQ(writer->units().size(), 3u);
    expectVerified(writer->units(), true, sandbox);
}

// systemd runs no executable by a path that holds a quote or a backslash: the bridge's
// "exec" starts such a program in its place, with the job's own argument list, and the
// units pass systemd's checks. Without a usable bridge the job is refused.
TEST(UnitWriterTest, ProgramsSystemdWillNotStartRunThroughTheBridge)
{
    Sandbox sandbox;
    for (const QString name : {"Anna's Tools", "Back\\slash \"q\""}) {
        const QString program = programIn(sandbox, name);
        const QString out = sandbox.file("ran");
        TestFiles::writeScript(program, QStringLiteral("echo \"$*\" > '%1'").arg(out));
        const PlistDict dict = BridgeTesting::writerJob(
            "com.vantreel.ScheduledTask1", program, {"-backup", "a 'b'"}, {{"StartInterval", 60}});
        QString message;
        const std::optional<JobFile> job =
            JobFile::fromDictionary(dict, sandbox.file("job.plist"), &message);
        ASSERT_TRUE(job) << message.toStdString();
        EXPECT_FALSE(UnitWriter::forJob(*job, ManagerScope::user(), &message));
        EXPECT_TRUE(message.contains("systemd cannot run the program"));

        const std::optional<UnitWriter> writer =
            UnitWriter::forJob(*job, ManagerScope::user(), &message, BridgeTesting::bridgeBinary());
        ASSERT_TRUE(writer) << message.toStdString();
        expectVerified(writer->units(), true, sandbox);

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
    const QString service = writer->units().front().second;
    const std::optional<UnitHeader> header = UnitHeader::parse(service);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->jobPath(), jobPath);
    EXPECT_EQ(header->label(), job->label());
    EXPECT_TRUE(service.contains(QStringLiteral(" \"caf\\xe9\"\n"))) << service.toStdString();
    // verify wants UTF-8 and checks that ExecStart= names an executable: this one.
    expectVerified(writer->units(), true, sandbox);

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
