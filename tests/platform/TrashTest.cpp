// Trash: the freedesktop.org trash, with a .trashinfo file for every file moved into it.
#include "platform/Trash.h"

#include "PrintQt.h"
#include "testsupport/MockClock.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace {

class TrashTest : public ::testing::Test
{
protected:
    QString filesFolder() const
    {
        return m_sandbox.home() + QStringLiteral("/.local/share/Trash/files");
    }
    QString infoFolder() const
    {
        return m_sandbox.home() + QStringLiteral("/.local/share/Trash/info");
    }
    QString infoFile(const QString &name) const
    {
        return infoFolder() + QLatin1Char('/') + name + QStringLiteral(".trashinfo");
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

TEST_F(TrashTest, MovesTheFileAndWritesItsInfo)
{
    const QString original = make(QStringLiteral("docs/report.txt"), "the report");
    const auto trashed = Trash::moveToTrash(original, filesFolder());
    ASSERT_TRUE(trashed);
    EXPECT_EQ(*trashed, filesFolder() + QStringLiteral("/report.txt"));
    EXPECT_FALSE(QFileInfo::exists(original));
    EXPECT_EQ(TestFiles::read(*trashed), QByteArray("the report"));
    EXPECT_EQ(TestFiles::lines(infoFile(QStringLiteral("report.txt"))),
              (QStringList{QStringLiteral("[Trash Info]"), QStringLiteral("Path=") + original,
                           QStringLiteral("DeletionDate=2011-03-04T12:34:56")}));

    // A relative path is recorded as absolute.
    const QString notes = make(QStringLiteral("work/notes.txt"));
    const QString saved = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(m_sandbox.path() + QStringLiteral("/work")));
    const auto relative = Trash::moveToTrash(QStringLiteral("notes.txt"), filesFolder());
    QDir::setCurrent(saved);
    ASSERT_TRUE(relative);
    EXPECT_EQ(TestFiles::lines(infoFile(QStringLiteral("notes.txt"))).value(1),
              QStringLiteral("Path=") + notes);

    // A missing file is no value and leaves nothing behind.
    EXPECT_FALSE(
        Trash::moveToTrash(m_sandbox.path() + QStringLiteral("/missing.txt"), filesFolder()));
    EXPECT_EQ(entries(filesFolder()).size(), 2);
    EXPECT_EQ(entries(infoFolder()).size(), 2);
}

TEST_F(TrashTest, PathIsPercentEncoded)
{
    const QString original =
        make(QString::fromUtf8("odd/a b%c#d?e&f;g=h caf\xc3\xa9 \xf0\x9f\x98\x80.txt"));
    const auto trashed = Trash::moveToTrash(original, filesFolder());
    ASSERT_TRUE(trashed);
    const QStringList lines = TestFiles::lines(infoFile(QFileInfo(original).fileName()));
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines[0], QStringLiteral("[Trash Info]"));
    const QString expectedPath =
        QString::fromLatin1(QFile::encodeName(m_sandbox.path()).toPercentEncoding("/")) +
        QStringLiteral("/odd/a%20b%25c%23d%3Fe%26f%3Bg%3Dh%20caf%C3%A9%20%F0%9F%98%80.txt");
    EXPECT_EQ(lines[1], QStringLiteral("Path=") + expectedPath);
    EXPECT_TRUE(lines[2].startsWith(QStringLiteral("DeletionDate=")));
    // The encoded path decodes to the original path.
    EXPECT_EQ(QString::fromUtf8(QByteArray::fromPercentEncoding(lines[1].mid(5).toLatin1())),
              original);
}

TEST_F(TrashTest, SameNameGetsAnotherFreeNameAndItsOwnInfo)
{
    const QString first = make(QStringLiteral("one/job.plist"), "first");
    const QString second = make(QStringLiteral("two/job.plist"), "second");
    const QString third = make(QStringLiteral("three/job.plist"), "third");
    const auto a = Trash::moveToTrash(first, filesFolder());
    const auto b = Trash::moveToTrash(second, filesFolder());
    const auto c = Trash::moveToTrash(third, filesFolder());
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(TestFiles::read(*a) + TestFiles::read(*b) + TestFiles::read(*c),
              QByteArray("firstsecondthird"));
    for (const auto &[trashed, original] :
         {std::pair{*a, first}, std::pair{*b, second}, std::pair{*c, third}}) {
        const QString name = QFileInfo(trashed).fileName();
        EXPECT_EQ(QFileInfo(trashed).absolutePath(), filesFolder());
        EXPECT_EQ(TestFiles::lines(infoFile(name)).value(1), QStringLiteral("Path=") + original)
            << name.toStdString();
    }
    EXPECT_EQ(entries(filesFolder()).size(), 3);
    EXPECT_EQ(entries(infoFolder()).size(), 3);
    // Every name in files has its info file and the other way round.
    for (const QString &name : entries(filesFolder())) {
        EXPECT_TRUE(QFileInfo::exists(infoFile(name))) << name.toStdString();
    }
}

TEST_F(TrashTest, NamesTakenOnlyInOneFolderAreAvoided)
{
    // A leftover info file without its file, and a file without its info file.
    TestFiles::write(infoFile(QStringLiteral("a.txt")), "[Trash Info]\n");
    TestFiles::write(filesFolder() + QStringLiteral("/b.txt"), "old");
    const auto a = Trash::moveToTrash(make(QStringLiteral("x/a.txt")), filesFolder());
    const auto b = Trash::moveToTrash(make(QStringLiteral("x/b.txt"), "new"), filesFolder());
    ASSERT_TRUE(a && b);
    EXPECT_NE(*a, filesFolder() + QStringLiteral("/a.txt"));
    EXPECT_NE(*b, filesFolder() + QStringLiteral("/b.txt"));
    EXPECT_EQ(TestFiles::read(filesFolder() + QStringLiteral("/b.txt")), QByteArray("old"));
    EXPECT_EQ(TestFiles::read(infoFile(QStringLiteral("a.txt"))), QByteArray("[Trash Info]\n"));
}

TEST_F(TrashTest, LongNamesFoldersAndHiddenFiles)
{
    const QString name = QString(240, QLatin1Char('n')) + QStringLiteral(".plist");
    const QString original = make(QStringLiteral("long/") + name);
    ASSERT_TRUE(QFileInfo::exists(original));
    const auto trashed = Trash::moveToTrash(original, filesFolder());
    ASSERT_TRUE(trashed);
    EXPECT_FALSE(QFileInfo::exists(original));
    const QString trashedName = QFileInfo(*trashed).fileName();
    EXPECT_TRUE(QFileInfo::exists(infoFile(trashedName)));
    EXPECT_EQ(TestFiles::lines(infoFile(trashedName)).value(1), QStringLiteral("Path=") + original);

    // A second one of the same long name too.
    const QString again = make(QStringLiteral("long2/") + name);
    const auto second = Trash::moveToTrash(again, filesFolder());
    ASSERT_TRUE(second);
    EXPECT_NE(*second, *trashed);
    EXPECT_TRUE(QFileInfo::exists(infoFile(QFileInfo(*second).fileName())));

    // Folders go whole; hidden files of the same name get two names.
    const QString folder = m_sandbox.mkdir(QStringLiteral("project/build output"));
    TestFiles::write(folder + QStringLiteral("/inside.txt"), "x");
    const auto trashedFolder = Trash::moveToTrash(folder, filesFolder());
    ASSERT_TRUE(trashedFolder);
    EXPECT_TRUE(QFileInfo(*trashedFolder + QStringLiteral("/inside.txt")).isFile());
    EXPECT_TRUE(QFileInfo::exists(infoFile(QStringLiteral("build output"))));
    const auto hidden1 = Trash::moveToTrash(make(QStringLiteral("h1/.hidden")), filesFolder());
    const auto hidden2 = Trash::moveToTrash(make(QStringLiteral("h2/.hidden")), filesFolder());
    ASSERT_TRUE(hidden1 && hidden2);
    EXPECT_NE(*hidden1, *hidden2);
}

TEST_F(TrashTest, WriteTrashInfoForAFileAlreadyMoved)
{
    const QString moved = filesFolder() + QStringLiteral("/moved.txt");
    TestFiles::write(moved, "x");
    ASSERT_TRUE(Trash::writeTrashInfo(moved, QStringLiteral("/home/anna/moved.txt")));
    EXPECT_EQ(
        TestFiles::lines(infoFile(QStringLiteral("moved.txt"))),
        (QStringList{QStringLiteral("[Trash Info]"), QStringLiteral("Path=/home/anna/moved.txt"),
                     QStringLiteral("DeletionDate=2011-03-04T12:34:56")}));

    // A link planted at the info file's name is never written through.
    const QString victim = make(QStringLiteral("victim.txt"), "keep");
    const QString planted = filesFolder() + QStringLiteral("/planted.txt");
    TestFiles::write(planted, "x");
    ASSERT_TRUE(QFile::link(victim, infoFile(QStringLiteral("planted.txt"))));
    EXPECT_FALSE(Trash::writeTrashInfo(planted, QStringLiteral("/home/anna/planted.txt")));
    EXPECT_EQ(TestFiles::read(victim), "keep");
}
