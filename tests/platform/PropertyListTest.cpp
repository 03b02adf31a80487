// PropertyList: reading XML and binary property lists through libplist, refusing every
// kind of bad file without crashing, and writing XML atomically.
#include "platform/PropertyList.h"
#include "platform/FileNames.h"
#include "platform/PlistDict.h"

#include "PrintQt.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <csignal>
#include <limits>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray xmlDocument(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           body + "\n</plist>\n";
}

// What libplist itself writes for a value, in its binary form.
QByteArray binaryOf(const PlistValue &value)
{
    const QByteArray xml = PropertyList::toXml(value);
    plist_t node = nullptr;
    plist_from_xml(xml.constData(), static_cast<uint32_t>(xml.size()), &node);
    char *bin = nullptr;
    uint32_t length = 0;
    if (node) {
        plist_to_bin(node, &bin, &length);
        plist_free(node);
    }
    QByteArray out(bin, static_cast<qsizetype>(length));
    free(bin);
    return out;
}

// A binary property list in which object i is an array of the given references; offsets
// and references take four bytes once there are more than 255 objects.
QByteArray binaryArrays(const std::vector<std::vector<quint32>> &arrays)
{
    const int width = arrays.size() > 255 ? 4 : 1;
    const auto append = [](QByteArray &bytes, quint64 v, int size) {
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
            bytes += static_cast<char>(v >> shift);
        }
    };
    QByteArray bytes = "bplist00";
    std::vector<quint64> offsets;
    for (const auto &refs : arrays) {
        offsets.push_back(static_cast<quint64>(bytes.size()));
        bytes += static_cast<char>(0xa0 | refs.size());
        for (quint32 r : refs) {
            append(bytes, r, width);
        }
    }
    const quint64 table = static_cast<quint64>(bytes.size());
    for (quint64 o : offsets) {
        append(bytes, o, width);
    }
    bytes += QByteArray(6, '\0');
    bytes += static_cast<char>(width);
    bytes += static_cast<char>(width);
    append(bytes, arrays.size(), 8);
    append(bytes, 0, 8);
    append(bytes, table, 8);
    return bytes;
}

// Equal, and of the same types throughout (PlistValue's == takes 1 for true), with
// dictionaries in the same key order and dates in UTC.
void expectIdentical(const PlistValue &expected, const PlistValue &actual, const std::string &where)
{
    ASSERT_EQ(static_cast<int>(expected.type()), static_cast<int>(actual.type())) << where;
    if (expected.isArray()) {
        ASSERT_EQ(expected.array().size(), actual.array().size()) << where;
        for (size_t i = 0; i < expected.array().size(); ++i) {
            expectIdentical(expected.array()[i], actual.array()[i], where + "[]");
        }
    } else if (expected.isDictionary()) {
        ASSERT_EQ(expected.dict().keys(), actual.dict().keys()) << where;
        for (const auto &entry : expected.dict()) {
            expectIdentical(entry.value, actual.dict().value(entry.key),
                            where + "." + entry.key.toStdString());
        }
    } else {
        EXPECT_TRUE(expected == actual) << where;
        EXPECT_TRUE(!actual.isDate() || actual.date().timeSpec() == Qt::UTC) << where;
    }
}

QStringList folderEntries(const QString &folder)
{
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

QDateTime utc(int y, int mo, int d, int h, int mi, int s)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), QTimeZone::utc());
}

PlistValue everyType()
{
    QByteArray allBytes;
    for (int i = 0; i < 256; ++i) {
        allBytes.append(static_cast<char>(i));
    }
    PlistDict root;
    const std::vector<std::pair<QString, PlistValue>> entries{
        {"string", PlistValue("plain")},
        {"empty string", PlistValue("")},
        {"markup", PlistValue("<key>&amp;</key> ]]> <!-- --> <![CDATA[x]]> & < >")},
        {"lines", PlistValue("first\nsecond\n\nfourth\n\ta  b  ")},
        {"non-ascii", PlistValue(QString::fromUtf8("caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac "
                                                   "\xf0\x9f\x98\x80\xf0\x9f\x91\x8d"))},
        {"negative", PlistValue(-5)},
        {"int64 max", PlistValue(std::numeric_limits<qint64>::max())},
        {"int64 min", PlistValue(std::numeric_limits<qint64>::min())},
        {"real", PlistValue(-0.125)},
        {"third", PlistValue(1.0 / 3.0)},
        {"large real", PlistValue(1.5e300)},
        {"true", PlistValue(true)},
        {"false", PlistValue(false)},
        {"date", PlistValue(utc(2011, 3, 4, 5, 6, 7))},
        {"old date", PlistValue(utc(1987, 6, 15, 23, 59, 58))},
        {"data", PlistValue(allBytes)},
        {"empty data", PlistValue(QByteArray())},
        {"nested", PlistValue(PlistArray{PlistValue(PlistArray{PlistValue(1), PlistValue("x")}),
                                         PlistValue(PlistDict{{"deep", PlistValue(false)}}),
                                         PlistValue(PlistArray{}), PlistValue(PlistDict{})})},
        {QString::fromUtf8("key <&> \"\xc3\xa9\" \xf0\x9f\x98\x80"), PlistValue("odd key")},
        {QString(), PlistValue("empty key")},
    };
    for (const auto &[key, value] : entries) {
        root.insert(key, value);
    }
    return PlistValue(root);
}

PlistValue labelled(const PlistValue &label)
{
    return PlistValue(PlistDict{{"Label", label}});
}

class PropertyListTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }
    QString path(const QString &name) const { return m_dir.path() + QLatin1Char('/') + name; }
    QString write(const QString &name, const QByteArray &bytes) const
    {
        const QString p = path(name);
        TestFiles::write(p, bytes);
        return p;
    }
    QString label(const QString &file) const
    {
        const auto dict = PropertyList::readDictionary(file);
        return dict ? dict->value("Label").string() : "(unreadable)";
    }
    QTemporaryDir m_dir{QDir::tempPath() + "/kairo-plist-XXXXXX"};
};

} // namespace

// XML as other programs write it and binary as libplist writes it.
TEST_F(PropertyListTest, ReadsXmlAndBinary)
{
    const auto xml = PropertyList::parse(
        xmlDocument("<dict>\n"
                    "  <key>Nice</key><integer>-5</integer>\n"
                    "  <key>Ratio</key><real>0.25</real>\n"
                    "  <key>On</key><true/>\n"
                    "  <key>When</key><date>2011-03-04T05:06:07Z</date>\n"
                    "  <key>Blob</key><data>AAEC</data>\n"
                    "  <key>List</key><array><string>a</string><integer>1</integer></array>\n"
                    "  <key>Empty</key><dict/>\n"
                    "  <key>Escaped</key><string>&lt;x&gt; &amp; &quot;</string>\n"
                    "</dict>"));
    ASSERT_TRUE(xml);
    const PlistValue expected(PlistDict{
        {"Nice", PlistValue(-5)},
        {"Ratio", PlistValue(0.25)},
        {"On", PlistValue(true)},
        {"When", PlistValue(utc(2011, 3, 4, 5, 6, 7))},
        {"Blob", PlistValue(QByteArray("\x00\x01\x02", 3))},
        {"List", PlistValue(PlistArray{PlistValue("a"), PlistValue(1)})},
        {"Empty", PlistValue(PlistDict{})},
        {"Escaped", PlistValue("<x> & \"")},
    });
    expectIdentical(expected, *xml, "xml");

    const auto binary = PropertyList::readDictionary(write("every.plist", binaryOf(everyType())));
    ASSERT_TRUE(binary);
    expectIdentical(everyType(), PlistValue(*binary), "binary");
}

// Each reader takes only its own root type; a malformed file of any kind is no value.
TEST_F(PropertyListTest, RootTypesAndMalformedFiles)
{
    const std::tuple<QByteArray, bool, bool> cases[] = {
        {xmlDocument("<array><string>a</string></array>"), false, true},
        {xmlDocument("<dict><key>a</key><integer>1</integer></dict>"), true, false},
        {xmlDocument("<string>just text</string>"), false, false},
        {binaryArrays({{}}), false, true},
        {"not a property list at all", false, false},
        {xmlDocument("<dict><key>a</key><string>b</dict>"), false, false},
        {xmlDocument("<dict><key>a</key><integer>1</integer>"), false, false},
        {xmlDocument("<unknown>x</unknown>"), false, false},
        {xmlDocument("<date>not a date</date>").left(90), false, false},
        {"bplist00", false, false},
        {QByteArray("bplist00") + QByteArray(40, '\xff'), false, false},
        {binaryOf(everyType()).chopped(5), false, false},
        // A dictionary key in UTF-16 holding U+0000, on which libplist aborts the process.
        {TestFiles::read(KAIRO_TEST_DATA_DIR "/fuzz/crash-nul-key-utf16.plist"), false, false},
        {"", false, false},
    };
    int i = 0;
    for (const auto &[bytes, isDictionary, isArray] : cases) {
        const QString file = write(QString("file%1.plist").arg(i), bytes);
        EXPECT_EQ(PropertyList::readDictionary(file).has_value(), isDictionary) << i;
        EXPECT_EQ(PropertyList::readArray(file).has_value(), isArray) << i;
        ++i;
    }
    EXPECT_EQ(PropertyList::read(path("file2.plist"))->string(), "just text");
}

// Every prefix of a valid file, XML or binary, and every single-byte change of a binary
// one (offsets, counts and references that point anywhere) is read without a crash; no
// prefix is taken for the whole dictionary.
TEST_F(PropertyListTest, TruncatedAndCorruptFilesNeverCrash)
{
    const QByteArray binary = binaryOf(everyType());
    for (const QByteArray &whole : {PropertyList::toXml(everyType()), binary}) {
        const auto full = PropertyList::parse(whole);
        ASSERT_TRUE(full);
        // An XML file cut after the root dictionary's closing tag still holds all of it.
        const qsizetype complete =
            whole.startsWith("bplist") ? whole.size() : whole.lastIndexOf("</dict>") + 7;
        for (qsizetype length = 0; length < complete; ++length) {
            const auto part = PropertyList::parse(whole.left(length));
            if (part && part->isDictionary()) {
                EXPECT_NE(part->dict().keys(), full->dict().keys()) << "length " << length;
            }
        }
    }
    for (qsizetype i = 8; i < binary.size(); ++i) {
        for (const int byte : {0x00, 0x01, 0x0f, 0x7f, 0x80, 0xd5, 0xff}) {
            QByteArray corrupt = binary;
            corrupt[i] = static_cast<char>(byte);
            PropertyList::parse(corrupt);
        }
    }
}

// Nesting 100000 deep (closed or not, XML or binary), an array that holds itself and
// arrays that each hold the next one twice (a tiny file that would become a billion
// nodes) are refused at once; ordinary nesting and sharing are fine.
TEST_F(PropertyListTest, HostileNestingIsRefused)
{
    const int depth = 100000;
    const QByteArray arrays = QByteArray("<array>").repeated(depth);
    EXPECT_FALSE(PropertyList::read(
        write("deep.plist", xmlDocument(arrays + QByteArray("</array>").repeated(depth)))));
    EXPECT_FALSE(PropertyList::parse(xmlDocument(arrays)));
    EXPECT_FALSE(PropertyList::parse(xmlDocument(QByteArray("<dict><key>k</key>").repeated(depth) +
                                                 "<string>x</string>" +
                                                 QByteArray("</dict>").repeated(depth))));
    EXPECT_TRUE(PropertyList::parse(
        xmlDocument(QByteArray("<array>").repeated(50) + QByteArray("</array>").repeated(50))));

    const auto chain = [](quint32 length, quint32 refs) {
        std::vector<std::vector<quint32>> objects;
        for (quint32 i = 0; i + 1 < length; ++i) {
            objects.emplace_back(refs, i + 1);
        }
        objects.emplace_back();
        return binaryArrays(objects);
    };
    EXPECT_FALSE(PropertyList::read(write("deep-binary.plist", chain(depth + 1, 1))));
    EXPECT_TRUE(PropertyList::parse(chain(50, 1)));
    EXPECT_FALSE(PropertyList::parse(binaryArrays({{0}})));
    EXPECT_FALSE(PropertyList::parse(binaryArrays({{1}, {2}, {0}})));
    EXPECT_FALSE(PropertyList::parse(chain(40, 2)));
    const auto shared = PropertyList::parse(binaryArrays({std::vector<quint32>(10, 1), {}}));
    ASSERT_TRUE(shared);
    EXPECT_EQ(shared->array().size(), 10u);
}

// Every type survives writing and reading; the text is an XML property list with signed
// integers, escaped markup and dates in UTC to the second; reading and rewriting a file
// gives the same bytes, key order included.
TEST_F(PropertyListTest, RoundTripOfEveryType)
{
    PlistDict dict = everyType().dict();
    for (int i = 99; i >= 0; --i) {
        dict.insert(QStringLiteral("k%1").arg((i * 37) % 100), PlistValue(i));
    }
    const QString file = path("every.plist");
    QString error;
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(dict), file, &error)) << error.toStdString();
    const auto back = PropertyList::read(file);
    ASSERT_TRUE(back);
    expectIdentical(PlistValue(dict), *back, "root");

    const QByteArray xml = TestFiles::read(file);
    EXPECT_TRUE(xml.startsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
    for (const char *text :
         {"<plist version=\"1.0\">", "<integer>-5</integer>",
          "<integer>-9223372036854775808</integer>", "<integer>9223372036854775807</integer>",
          "<date>1987-06-15T23:59:58Z</date>", "<true/>"}) {
        EXPECT_TRUE(xml.contains(text)) << text;
    }
    EXPECT_FALSE(xml.contains("<key>&amp;</key>")) << "markup must be escaped";
    ASSERT_TRUE(PropertyList::writeXml(*back, file));
    EXPECT_EQ(TestFiles::read(file), xml);

    const QDateTime local(QDate(2011, 3, 4), QTime(7, 6, 7), QTimeZone(7200));
    const auto dates = PropertyList::parse(PropertyList::toXml(PlistValue(
        PlistArray{PlistValue(utc(2011, 3, 4, 5, 6, 7).addMSecs(600)), PlistValue(local)})));
    ASSERT_TRUE(dates);
    expectIdentical(PlistValue(PlistArray{PlistValue(utc(2011, 3, 4, 5, 6, 7)),
                                          PlistValue(utc(2011, 3, 4, 5, 6, 7))}),
                    *dates, "dates");
}

// Temporaries of killed writers go; one whose writer still holds it, other programs' files,
// and what is no file stay, and nothing is waited for.
TEST_F(PropertyListTest, StaleTemporariesOfKilledWritersAreRemoved)
{
    const QString stale = write(".com.vantreel.ScheduledTask1.plist.a1B2c3", "x");
    const QString busy = write(".com.vantreel.ScheduledTask2.plist.Zz9yY8", "x");
    const int writer = ::open(QFile::encodeName(busy).constData(), O_RDONLY);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::flock(writer, LOCK_EX), 0);
    const QStringList kept{busy, write(".other.plist.a1B2c3", "x"),
                           write(".com.vantreel.ScheduledTask3.plist.short", "x"),
                           write("com.vantreel.ScheduledTask4.plist", "x"),
                           path(".com.vantreel.ScheduledTask5.plist.fifo12")};
    ASSERT_EQ(::mkfifo(QFile::encodeName(kept.last()).constData(), 0644), 0);

    PropertyList::removeStaleTemporaries(m_dir.path(), "com.vantreel.");
    ::close(writer);
    EXPECT_FALSE(QFileInfo::exists(stale));
    for (const QString &file : kept) {
        EXPECT_TRUE(QFileInfo::exists(file)) << file.toStdString();
    }
}

// A write that cannot complete (no folder, no value, a folder in the way, or the file size
// limit of the process, which holds for root too) is reported and leaves the old file
// whole and no temporary file behind.
TEST_F(PropertyListTest, FailedWritesKeepTheOldFileWhole)
{
    QString error;
    EXPECT_FALSE(
        PropertyList::writeXml(PlistValue(PlistDict{}), path("no/folder/x.plist"), &error));
    EXPECT_FALSE(error.isEmpty());
    error.clear();
    EXPECT_FALSE(PropertyList::writeXml(PlistValue(), path("none.plist"), &error));
    EXPECT_FALSE(error.isEmpty());
    const QString folder = path("folder.plist");
    QDir().mkpath(folder + "/child");
    EXPECT_FALSE(PropertyList::writeXml(PlistValue(PlistDict{}), folder));
    EXPECT_TRUE(QFileInfo(folder + "/child").isDir());

    const QString file = path("job.plist");
    ASSERT_TRUE(PropertyList::writeXml(labelled(PlistValue("old")), file));
    const QByteArray oldBytes = TestFiles::read(file);
    PlistArray big;
    for (int i = 0; i < 20000; ++i) {
        big.emplace_back(QStringLiteral("a line that makes the file large, number %1").arg(i));
    }
    const PlistValue bigValue(PlistDict{{"Label", PlistValue("new")}, {"Big", PlistValue(big)}});
    struct rlimit saved
    {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto *const previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = saved;
    limited.rlim_cur = 64 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    error.clear();
    const bool written = PropertyList::writeXml(bigValue, file, &error);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);
    EXPECT_FALSE(written);
    EXPECT_FALSE(error.isEmpty());
    // Empty text is what toXml gives for a value it cannot express: never staged.
    EXPECT_EQ(PropertyList::stageXml(QByteArray(), file), nullptr);
    EXPECT_EQ(TestFiles::read(file), oldBytes);
    EXPECT_EQ(folderEntries(m_dir.path()), (QStringList{"folder.plist", "job.plist"}));
    ASSERT_TRUE(PropertyList::writeXml(bigValue, file));
    EXPECT_EQ(label(file), "new");
}

TEST_F(PropertyListTest, KeepsPermissionsAndWritesThroughSymbolicLinks)
{
    const QString file = path("mode.plist");
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(PlistDict{}), file));
    ASSERT_EQ(::chmod(QFile::encodeName(file).constData(), 0640), 0);
    ASSERT_TRUE(PropertyList::writeXml(labelled(PlistValue("a")), file));
    struct stat st
    {};
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    // A new file gets the usual mode for the process's umask.
    const mode_t mask = ::umask(022);
    ::umask(mask);
    const QString fresh = path("fresh.plist");
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(PlistDict{}), fresh));
    ASSERT_EQ(::stat(QFile::encodeName(fresh).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0666u & ~mask);

    const QString link = path("link.plist");
    ASSERT_TRUE(QFile::link(file, link));
    ASSERT_TRUE(PropertyList::writeXml(labelled(PlistValue("b")), link));
    EXPECT_EQ(label(link), "b");
    // Root replaces a link instead: whoever planted it must not choose what root writes.
    EXPECT_EQ(QFileInfo(link).isSymLink(), ::geteuid() != 0);
    EXPECT_EQ(label(file), QLatin1String(::geteuid() == 0 ? "a" : "b"));
}

TEST(FileNamesTest, DecodingKeepsEveryByte)
{
    // Valid UTF-8, then invalid sequences: lone continuation bytes, overlong forms,
    // surrogates, cut-off sequences, bytes that never occur in UTF-8.
    for (const QByteArray &raw :
         {QByteArray("plain/ascii.plist"), QByteArray("caf\xc3\xa9 \xf0\x9f\x98\x80"),
          QByteArray("\x80"), QByteArray("a\xff"), QByteArray("\xc0\xaf"),
          QByteArray("\xed\xa0\x80"), QByteArray("\xe2\x82"), QByteArray("\xf4\x90\x80\x80")}) {
        const QString name = FileNames::decode(raw);
        EXPECT_EQ(FileNames::encode(name), raw) << raw.toHex().toStdString();
        EXPECT_FALSE(name.contains(QChar(0xFFFD)));
    }
    EXPECT_EQ(FileNames::decode("caf\xc3\xa9"), QString::fromUtf8("caf\xc3\xa9"));
    EXPECT_EQ(FileNames::decode("x\xe9y\xc3\xa9"), QString::fromUtf16(u"x\xdce9y\u00e9"));
    EXPECT_TRUE(FileNames::entryList("/no/such/folder").isEmpty());
}
