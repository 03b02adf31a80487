// Trash: the freedesktop.org trash, with a .trashinfo file for every file moved into it.
#include "platform/Trash.h"

#include "PrintQt.h"
#include "testsupport/MockClock.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <gtest/gtest.h>

namespace {

class TrashTest : public ::testing::Test
{
protected:
    QString filesFolder() const { return m_sandbox.home() + "/.local/share/Trash/files"; }
    QString infoFolder() const { return m_sandbox.home() + "/.local/share/Trash/info"; }
    QString infoFile(const QString &name) const
    {
        return infoFolder() + QLatin1Char('/') + name + ".trashinfo";
    }
    QString make(const QString &relative, const QByteArray &content = "data") const
    {
        const QString path = m_sandbox.file(relative);
        TestFiles::write(path, content);
        return path;
    }
    Sandbox m_sandbox;
    MockClock::Scoped m_clock{QDateTime(QDate(2011, 3, 4), QTime(12, 34, 56))};
};

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

// The info file records the original path, absolute and percent-encoded, and the time.
TEST_F(TrashTest, MovesTheFileAndWritesItsInfo)
{
    const QString original = make("docs/report.txt", "the report");
    const auto trashed = Trash::moveToTrash(original, filesFolder());
    ASSERT_TRUE(trashed);
    EXPECT_EQ(*trashed, filesFolder() + "/report.txt");
    EXPECT_FALSE(QFileInfo::exists(original));
    EXPECT_EQ(TestFiles::read(*trashed), QByteArray("the report"));
    EXPECT_EQ(
        TestFiles::lines(infoFile("report.txt")),
        (QStringList{"[Trash Info]", "Path=" + original, "DeletionDate=2011-03-04T12:34:56"}));

    const QString odd =
        make(QString::fromUtf8("odd/a b%c#d?e&f;g=h caf\xc3\xa9 \xf0\x9f\x98\x80.txt"));
    ASSERT_TRUE(Trash::moveToTrash(odd, filesFolder()));
    EXPECT_EQ(
        TestFiles::lines(infoFile(QFileInfo(odd).fileName())).value(1),
        "Path=" + QString::fromLatin1(QFile::encodeName(m_sandbox.path()).toPercentEncoding("/")) +
            "/odd/a%20b%25c%23d%3Fe%26f%3Bg%3Dh%20caf%C3%A9%20%F0%9F%98%80.txt");

    // A missing file is no value and leaves nothing behind.
    EXPECT_FALSE(Trash::moveToTrash(m_sandbox.path() + "/missing.txt", filesFolder()));
    EXPECT_EQ(entries(filesFolder()).size(), 2);
    EXPECT_EQ(entries(infoFolder()).size(), 2);
}

// A name taken in either folder (also by a leftover of the other) gets another free name
// and its own info; long names, folders and hidden files too.
TEST_F(TrashTest, TakenNamesGetAnotherFreeName)
{
    TestFiles::write(infoFile("a.txt"), "[Trash Info]\n");
    TestFiles::write(filesFolder() + "/b.txt", "old");
    const QString longName = QString(240, QLatin1Char('n')) + ".plist";
    QStringList originals;
    for (const QString &name :
         {QString("a.txt"), QString("b.txt"), QString("job.plist"), QString("job.plist"),
          QString("job.plist"), longName, longName, QString(".hidden"), QString(".hidden")}) {
        originals << make(QString("x%1/").arg(originals.size()) + name, name.toUtf8());
    }
    const QString folder = m_sandbox.mkdir("project/output");
    TestFiles::write(folder + "/inside.txt", "x");
    originals << folder;
    QSet<QString> names;
    for (const QString &original : originals) {
        const auto trashed = Trash::moveToTrash(original, filesFolder());
        ASSERT_TRUE(trashed) << original.toStdString();
        EXPECT_EQ(QFileInfo(*trashed).absolutePath(), filesFolder());
        const QString name = QFileInfo(*trashed).fileName();
        EXPECT_FALSE(names.contains(name));
        names.insert(name);
        EXPECT_EQ(TestFiles::lines(infoFile(name)).value(1), "Path=" + original)
            << name.toStdString();
    }
    EXPECT_FALSE(names.contains("a.txt"));
    EXPECT_FALSE(names.contains("b.txt"));
    EXPECT_EQ(TestFiles::read(filesFolder() + "/b.txt"), QByteArray("old"));
    EXPECT_EQ(TestFiles::read(infoFile("a.txt")), QByteArray("[Trash Info]\n"));
    EXPECT_TRUE(QFileInfo(filesFolder() + "/output/inside.txt").isFile());
    EXPECT_EQ(entries(filesFolder()).size(), originals.size() + 1);
    EXPECT_EQ(entries(infoFolder()).size(), originals.size() + 1);
}

// A link planted at the info file's name is never written through.
TEST_F(TrashTest, APlantedInfoLinkIsNeverWrittenThrough)
{
    QDir().mkpath(infoFolder());
    const QString victim = make("victim.txt", "keep");
    const QString planted = filesFolder() + "/planted.txt";
    TestFiles::write(planted, "x");
    ASSERT_TRUE(QFile::link(victim, infoFile("planted.txt")));
    EXPECT_FALSE(Trash::writeTrashInfo(planted, "/home/anna/planted.txt"));
    EXPECT_EQ(TestFiles::read(victim), "keep");
}
