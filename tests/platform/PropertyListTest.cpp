// PropertyList: reading XML and binary property lists through libplist, refusing every
// kind of bad file without crashing, and writing XML atomically.
#include "platform/PropertyList.h"
#include "platform/FileNames.h"
#include "platform/PlistDict.h"

#include "PrintQt.h"
#include "testsupport/TestFiles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimeZone>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <limits>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char *const kXmlHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                               "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                               "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                               "<plist version=\"1.0\">\n";

QByteArray xmlDocument(const QByteArray &body)
{
    return QByteArray(kXmlHeader) + body + "\n</plist>\n";
}

struct PlistFree
{
    void operator()(plist_t p) const { plist_free(p); }
};
using Node = std::unique_ptr<void, PlistFree>;

QByteArray toBinary(plist_t node)
{
    char *bin = nullptr;
    uint32_t length = 0;
    plist_to_bin(node, &bin, &length);
    QByteArray out(bin, static_cast<qsizetype>(length));
    free(bin);
    return out;
}

// A job-like dictionary built with libplist itself, for the binary reading tests.
Node libplistJob()
{
    plist_t dict = plist_new_dict();
    plist_dict_set_item(dict, "Label", plist_new_string("com.vantreel.ScheduledTask1"));
    plist_t args = plist_new_array();
    plist_array_append_item(args, plist_new_string("/Applications/Quill.app/Contents/MacOS/Quill"));
    plist_array_append_item(args, plist_new_string("-backup"));
    plist_dict_set_item(dict, "ProgramArguments", args);
    plist_dict_set_item(dict, "Nice", plist_new_uint(static_cast<uint64_t>(-5)));
    plist_dict_set_item(dict, "LowPriorityIO", plist_new_bool(1));
    plist_dict_set_item(dict, "Ratio", plist_new_real(0.25));
    plist_dict_set_item(dict, "Blob", plist_new_data("\x00\x01\x02", 3));
    plist_dict_set_item(dict, "When", plist_new_date(86400, 0));
    plist_t env = plist_new_dict();
    plist_dict_set_item(env, "VTAppBundleID", plist_new_string("com.vantreel.Quill"));
    plist_dict_set_item(dict, "EnvironmentVariables", env);
    return Node(dict);
}

// Compares two values exactly: same types (an integer 1 is not a boolean true here), same
// contents, and dictionaries in the same key order.
void expectIdentical(const PlistValue &expected, const PlistValue &actual, const std::string &where)
{
    ASSERT_EQ(static_cast<int>(expected.type()), static_cast<int>(actual.type())) << where;
    switch (expected.type()) {
    case PlistValue::Type::None:
        break;
    case PlistValue::Type::String:
        EXPECT_EQ(expected.string(), actual.string()) << where;
        break;
    case PlistValue::Type::Integer:
        EXPECT_EQ(expected.integerValue(), actual.integerValue()) << where;
        break;
    case PlistValue::Type::Real:
        EXPECT_EQ(expected.doubleValue(), actual.doubleValue()) << where;
        break;
    case PlistValue::Type::Boolean:
        EXPECT_EQ(expected.boolValue(), actual.boolValue()) << where;
        break;
    case PlistValue::Type::Date:
        EXPECT_EQ(expected.date(), actual.date()) << where;
        EXPECT_EQ(actual.date().timeSpec(), Qt::UTC) << where;
        break;
    case PlistValue::Type::Data:
        EXPECT_EQ(expected.data(), actual.data()) << where;
        break;
    case PlistValue::Type::Array:
        ASSERT_EQ(expected.array().size(), actual.array().size()) << where;
        for (size_t i = 0; i < expected.array().size(); ++i) {
            expectIdentical(expected.array()[i], actual.array()[i],
                            where + "[" + std::to_string(i) + "]");
        }
        break;
    case PlistValue::Type::Dictionary:
        ASSERT_EQ(expected.dict().keys(), actual.dict().keys()) << where;
        for (const auto &entry : expected.dict()) {
            expectIdentical(entry.value, actual.dict().value(entry.key),
                            where + "." + entry.key.toStdString());
        }
        break;
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
    PlistDict nested;
    nested.insert(QStringLiteral("inner"),
                  PlistValue(PlistArray{
                      PlistValue(PlistArray{PlistValue(1), PlistValue("x")}),
                      PlistValue(PlistDict{{QStringLiteral("deep"), PlistValue(false)}}),
                      PlistValue(PlistArray{}),
                      PlistValue(PlistDict{}),
                  }));
    PlistDict root;
    root.insert(QStringLiteral("string"), PlistValue("plain"));
    root.insert(QStringLiteral("empty string"), PlistValue(""));
    root.insert(QStringLiteral("markup"),
                PlistValue("<key>&amp;</key> ]]> <!-- --> <![CDATA[x]]> & < >"));
    root.insert(QStringLiteral("lines"), PlistValue("first\nsecond\n\nfourth\n"));
    root.insert(QStringLiteral("tabs"), PlistValue("a\tb"));
    root.insert(QStringLiteral("padded"), PlistValue("  padded  "));
    root.insert(QStringLiteral("quotes"), PlistValue("it's \"quoted\" `back`"));
    root.insert(QStringLiteral("percent"), PlistValue("100% %@ %d %% %s %n"));
    root.insert(
        QStringLiteral("non-ascii"),
        PlistValue(QString::fromUtf8("caf\xc3\xa9 \xc3\xbc \xe6\x97\xa5\xe6\x9c\xac \xd0\x96")));
    root.insert(QStringLiteral("emoji"),
                PlistValue(QString::fromUtf8("\xf0\x9f\x98\x80\xf0\x9f\x91\x8d\xf0\x9f\x8f\xbd")));
    root.insert(QStringLiteral("zero"), PlistValue(0));
    root.insert(QStringLiteral("positive"), PlistValue(42));
    root.insert(QStringLiteral("negative"), PlistValue(-5));
    root.insert(QStringLiteral("int64 max"), PlistValue(std::numeric_limits<qint64>::max()));
    root.insert(QStringLiteral("int64 min"), PlistValue(std::numeric_limits<qint64>::min()));
    root.insert(QStringLiteral("big"), PlistValue(qint64(1) << 40));
    root.insert(QStringLiteral("big negative"), PlistValue(-(qint64(1) << 40)));
    root.insert(QStringLiteral("real"), PlistValue(2.5));
    root.insert(QStringLiteral("negative real"), PlistValue(-0.125));
    root.insert(QStringLiteral("tenth"), PlistValue(0.1));
    root.insert(QStringLiteral("third"), PlistValue(1.0 / 3.0));
    root.insert(QStringLiteral("large real"), PlistValue(1.5e300));
    root.insert(QStringLiteral("small real"), PlistValue(2.5e-300));
    root.insert(QStringLiteral("true"), PlistValue(true));
    root.insert(QStringLiteral("false"), PlistValue(false));
    root.insert(QStringLiteral("date"), PlistValue(utc(2011, 3, 4, 5, 6, 7)));
    root.insert(QStringLiteral("epoch date"), PlistValue(utc(2001, 1, 1, 0, 0, 0)));
    root.insert(QStringLiteral("old date"), PlistValue(utc(1987, 6, 15, 23, 59, 58)));
    root.insert(QStringLiteral("later date"), PlistValue(utc(2060, 12, 31, 23, 59, 59)));
    QByteArray allBytes;
    for (int i = 0; i < 256; ++i) {
        allBytes.append(static_cast<char>(i));
    }
    root.insert(QStringLiteral("data"), PlistValue(allBytes));
    root.insert(QStringLiteral("empty data"), PlistValue(QByteArray()));
    root.insert(QStringLiteral("nested"), PlistValue(nested));
    root.insert(QString::fromUtf8("key <&> \"\xc3\xa9\" \xf0\x9f\x98\x80"), PlistValue("odd key"));
    root.insert(QString(), PlistValue("empty key"));
    return PlistValue(root);
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
    QTemporaryDir m_dir{QDir::tempPath() + QStringLiteral("/kairo-plist-XXXXXX")};
};

} // namespace

TEST_F(PropertyListTest, ReadsXml)
{
    const QString file =
        write(QStringLiteral("job.plist"),
              xmlDocument("<dict>\n"
                          "  <key>Label</key><string>com.vantreel.ScheduledTask1</string>\n"
                          "  <key>Nice</key><integer>-5</integer>\n"
                          "  <key>Ratio</key><real>0.25</real>\n"
                          "  <key>On</key><true/>\n"
                          "  <key>Off</key><false/>\n"
                          "  <key>When</key><date>2011-03-04T05:06:07Z</date>\n"
                          "  <key>Blob</key><data>AAEC</data>\n"
                          "  <key>List</key><array><string>a</string><integer>1</integer></array>\n"
                          "  <key>Empty</key><dict/>\n"
                          "  <key>Escaped</key><string>&lt;x&gt; &amp; &quot;</string>\n"
                          "</dict>"));
    const auto dict = PropertyList::readDictionary(file);
    ASSERT_TRUE(dict);
    EXPECT_EQ(dict->keys(), (QStringList{"Label", "Nice", "Ratio", "On", "Off", "When", "Blob",
                                         "List", "Empty", "Escaped"}));
    EXPECT_EQ(dict->value("Label").string(), QStringLiteral("com.vantreel.ScheduledTask1"));
    EXPECT_TRUE(dict->value("Nice").isInteger());
    EXPECT_EQ(dict->value("Nice").integerValue(), -5);
    EXPECT_TRUE(dict->value("Ratio").isReal());
    EXPECT_EQ(dict->value("Ratio").doubleValue(), 0.25);
    EXPECT_TRUE(dict->value("On").isBoolean());
    EXPECT_TRUE(dict->value("On").boolValue());
    EXPECT_FALSE(dict->value("Off").boolValue());
    EXPECT_EQ(dict->value("When").date(), utc(2011, 3, 4, 5, 6, 7));
    EXPECT_EQ(dict->value("Blob").data(), QByteArray("\x00\x01\x02", 3));
    EXPECT_EQ(dict->value("List").array().size(), 2u);
    EXPECT_TRUE(dict->value("Empty").isDictionary());
    EXPECT_TRUE(dict->value("Empty").dict().isEmpty());
    EXPECT_EQ(dict->value("Escaped").string(), QStringLiteral("<x> & \""));
}

TEST_F(PropertyListTest, ReadsBinary)
{
    Node job = libplistJob();
    const QByteArray bin = toBinary(job.get());
    ASSERT_TRUE(bin.startsWith("bplist00"));
    const QString file = write(QStringLiteral("job.plist"), bin);
    const auto dict = PropertyList::readDictionary(file);
    ASSERT_TRUE(dict);
    EXPECT_EQ(dict->keys(), (QStringList{"Label", "ProgramArguments", "Nice", "LowPriorityIO",
                                         "Ratio", "Blob", "When", "EnvironmentVariables"}));
    EXPECT_EQ(dict->value("Label").string(), QStringLiteral("com.vantreel.ScheduledTask1"));
    EXPECT_EQ(dict->value("ProgramArguments").stringList(),
              (QStringList{"/Applications/Quill.app/Contents/MacOS/Quill", "-backup"}));
    EXPECT_EQ(dict->value("Nice").integerValue(), -5);
    EXPECT_TRUE(dict->value("LowPriorityIO").isBoolean());
    EXPECT_TRUE(dict->value("LowPriorityIO").boolValue());
    EXPECT_EQ(dict->value("Ratio").doubleValue(), 0.25);
    EXPECT_EQ(dict->value("Blob").data(), QByteArray("\x00\x01\x02", 3));
    EXPECT_EQ(dict->value("When").date(), utc(2001, 1, 2, 0, 0, 0));
    EXPECT_EQ(dict->value("EnvironmentVariables").dict().value("VTAppBundleID").string(),
              QStringLiteral("com.vantreel.Quill"));

    // What we write in XML reads back the same from its binary form.
    const PlistValue value = everyType();
    Node fromXml;
    const QByteArray xml = PropertyList::toXml(value);
    plist_t parsed = nullptr;
    plist_from_xml(xml.constData(), static_cast<uint32_t>(xml.size()), &parsed);
    fromXml.reset(parsed);
    ASSERT_TRUE(fromXml);
    const auto back = PropertyList::parse(toBinary(fromXml.get()));
    ASSERT_TRUE(back);
    expectIdentical(value, *back, "binary");
}

TEST_F(PropertyListTest, ReadsACheckedInBinaryFile)
{
    const QString file = QStringLiteral(KAIRO_TEST_DATA_DIR "/platform/binary-job.plist");
    ASSERT_TRUE(QFileInfo::exists(file));
    ASSERT_TRUE(TestFiles::read(file).startsWith("bplist00"));
    const auto dict = PropertyList::readDictionary(file);
    ASSERT_TRUE(dict);
    EXPECT_EQ(dict->value("Label").string(), QStringLiteral("com.vantreel.ScheduledTask7"));
    EXPECT_EQ(
        dict->value("ProgramArguments").stringList(),
        (QStringList{"/Applications/Tessel.app/Contents/MacOS/Tessel", "-verify", "all files"}));
    const PlistArray calendar = dict->value("StartCalendarInterval").array();
    ASSERT_EQ(calendar.size(), 2u);
    EXPECT_EQ(calendar[0].dict().value("Hour").integerValue(), 3);
    EXPECT_EQ(calendar[1].dict().value("Weekday").integerValue(), 0);
    EXPECT_TRUE(dict->value("Disabled").isBoolean());
}

TEST_F(PropertyListTest, RootTypeMustMatch)
{
    const QString array =
        write(QStringLiteral("array.plist"), xmlDocument("<array><string>a</string></array>"));
    const QString dict = write(QStringLiteral("dict.plist"),
                               xmlDocument("<dict><key>a</key><integer>1</integer></dict>"));
    const QString string =
        write(QStringLiteral("string.plist"), xmlDocument("<string>just text</string>"));

    EXPECT_FALSE(PropertyList::readDictionary(array));
    EXPECT_FALSE(PropertyList::readArray(dict));
    EXPECT_FALSE(PropertyList::readDictionary(string));
    EXPECT_FALSE(PropertyList::readArray(string));
    ASSERT_TRUE(PropertyList::readArray(array));
    EXPECT_EQ(PropertyList::readArray(array)->size(), 1u);
    ASSERT_TRUE(PropertyList::readDictionary(dict));
    ASSERT_TRUE(PropertyList::read(string));
    EXPECT_EQ(PropertyList::read(string)->string(), QStringLiteral("just text"));

    Node binArray(plist_new_array());
    const QString binary = write(QStringLiteral("bin-array.plist"), toBinary(binArray.get()));
    EXPECT_FALSE(PropertyList::readDictionary(binary));
    EXPECT_TRUE(PropertyList::readArray(binary));
}

TEST_F(PropertyListTest, MissingEmptyAndFolderAreNoValue)
{
    EXPECT_FALSE(PropertyList::read(path(QStringLiteral("missing.plist"))));
    EXPECT_FALSE(PropertyList::readDictionary(path(QStringLiteral("missing.plist"))));
    EXPECT_FALSE(PropertyList::readDictionary(path(QStringLiteral("no/such/folder/x.plist"))));
    EXPECT_FALSE(PropertyList::read(QString()));
    EXPECT_FALSE(PropertyList::read(write(QStringLiteral("empty.plist"), QByteArray())));
    EXPECT_FALSE(PropertyList::read(write(QStringLiteral("blank.plist"), "   \n\n  ")));
    EXPECT_FALSE(PropertyList::read(m_dir.path()));
    EXPECT_FALSE(PropertyList::parse(QByteArray()));
    // A FIFO nobody writes to is no file and is not waited for; nor is a device.
    const QString fifo = path(QStringLiteral("fifo.plist"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0644), 0);
    EXPECT_FALSE(PropertyList::read(fifo));
    EXPECT_FALSE(PropertyList::read(QStringLiteral("/dev/zero")));
}

TEST_F(PropertyListTest, UnreadableFileIsNoValue)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "running as root: permissions do not block reading";
    }
    const QString file = write(QStringLiteral("secret.plist"), xmlDocument("<dict/>"));
    ASSERT_EQ(::chmod(QFile::encodeName(file).constData(), 0), 0);
    EXPECT_FALSE(PropertyList::readDictionary(file));
    ::chmod(QFile::encodeName(file).constData(), 0600);
    EXPECT_TRUE(PropertyList::readDictionary(file));
}

TEST_F(PropertyListTest, MalformedFilesAreNoValue)
{
    const QList<QByteArray> bad{
        "not a property list at all",
        "<?xml version=\"1.0\"?>",
        xmlDocument("<dict><key>a</key><string>b</dict>"),
        xmlDocument("<dict><key>a</key><integer>1</integer>"),
        xmlDocument("<array><string>never closed"),
        xmlDocument("<unknown>x</unknown>"),
        xmlDocument("<date>not a date</date>").left(90),
        QByteArray("bplist00"),
        QByteArray("bplist00\x00\x01\x02\x03", 12),
        QByteArray("bplist00") + QByteArray(40, '\xff'),
        QByteArray("\x00\x00\x00\x00", 4),
        // A dictionary key in UTF-16 holding U+0000, on which libplist aborts the process.
        TestFiles::read(QStringLiteral(KAIRO_TEST_DATA_DIR "/fuzz/crash-nul-key-utf16.plist")),
    };
    for (int i = 0; i < bad.size(); ++i) {
        const QString file = write(QStringLiteral("bad%1.plist").arg(i), bad[i]);
        EXPECT_FALSE(PropertyList::readDictionary(file)) << i;
        EXPECT_FALSE(PropertyList::readArray(file)) << i;
    }
}

// Every prefix of a valid file, XML or binary, is read without a crash, and none is taken
// for the whole dictionary.
TEST_F(PropertyListTest, TruncatedFilesNeverCrash)
{
    const QByteArray xml = PropertyList::toXml(everyType());
    Node job = libplistJob();
    const QByteArray binary = toBinary(job.get());
    for (const QByteArray &whole : {xml, binary}) {
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
    const QString file = write(QStringLiteral("truncated.plist"), binary.left(binary.size() - 5));
    EXPECT_FALSE(PropertyList::readDictionary(file));
}

// Every single-byte change of a binary file is read without a crash (offsets, counts and
// object references that point anywhere).
TEST_F(PropertyListTest, CorruptBinaryFilesNeverCrash)
{
    Node job = libplistJob();
    const QByteArray binary = toBinary(job.get());
    int readable = 0;
    for (qsizetype i = 8; i < binary.size(); ++i) {
        for (const int byte : {0x00, 0x01, 0x0f, 0x7f, 0x80, 0xd5, 0xff}) {
            QByteArray corrupt = binary;
            corrupt[i] = static_cast<char>(byte);
            if (PropertyList::parse(corrupt)) {
                ++readable;
            }
        }
    }
    SUCCEED() << readable << " corrupt variants were still readable";
}

TEST_F(PropertyListTest, ReadsAHugeFile)
{
    QByteArray body = "<dict><key>items</key><array>\n";
    const QByteArray item = "<string>an item of the huge property list, number</string>\n";
    int count = 0;
    while (body.size() < 10 * 1024 * 1024) {
        body += item;
        ++count;
    }
    body += "</array><key>last</key><integer>7</integer></dict>";
    const QString file = write(QStringLiteral("huge.plist"), xmlDocument(body));
    ASSERT_GE(QFileInfo(file).size(), 10 * 1024 * 1024);
    const auto dict = PropertyList::readDictionary(file);
    ASSERT_TRUE(dict);
    EXPECT_EQ(static_cast<int>(dict->value("items").array().size()), count);
    EXPECT_EQ(dict->value("last").integerValue(), 7);
}

TEST_F(PropertyListTest, DeepXmlNestingIsRefused)
{
    const int depth = 100000;
    QByteArray body;
    body.reserve(depth * 16);
    for (int i = 0; i < depth; ++i) {
        body += "<array>";
    }
    for (int i = 0; i < depth; ++i) {
        body += "</array>";
    }
    const QString file = write(QStringLiteral("deep.plist"), xmlDocument(body));
    EXPECT_FALSE(PropertyList::read(file));
    EXPECT_FALSE(PropertyList::readArray(file));

    QByteArray dicts;
    for (int i = 0; i < depth; ++i) {
        dicts += "<dict><key>k</key>";
    }
    dicts += "<string>x</string>";
    for (int i = 0; i < depth; ++i) {
        dicts += "</dict>";
    }
    EXPECT_FALSE(PropertyList::parse(xmlDocument(dicts)));

    // Unclosed nesting is refused as well.
    EXPECT_FALSE(PropertyList::parse(xmlDocument(QByteArray("<array>").repeated(depth))));

    // Ordinary nesting is fine.
    QByteArray moderate = QByteArray("<array>").repeated(50) + "<integer>1</integer>" +
                          QByteArray("</array>").repeated(50);
    auto value = PropertyList::parse(xmlDocument(moderate));
    ASSERT_TRUE(value);
    const PlistValue *v = &*value;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(v->isArray());
        v = &v->array()[0];
    }
    EXPECT_EQ(v->integerValue(), 1);
}

// A binary file whose objects nest 100000 deep: each object an array holding the next.
TEST_F(PropertyListTest, DeepBinaryNestingIsRefused)
{
    const quint32 count = 100001;
    QByteArray bytes = "bplist00";
    std::vector<quint32> offsets;
    offsets.reserve(count);
    for (quint32 i = 0; i < count; ++i) {
        offsets.push_back(static_cast<quint32>(bytes.size()));
        if (i + 1 < count) {
            bytes += '\xa1';
            const quint32 ref = i + 1;
            bytes += static_cast<char>(ref >> 24);
            bytes += static_cast<char>(ref >> 16);
            bytes += static_cast<char>(ref >> 8);
            bytes += static_cast<char>(ref);
        } else {
            bytes += '\xa0';
        }
    }
    const quint64 tableOffset = static_cast<quint64>(bytes.size());
    for (quint32 o : offsets) {
        bytes += static_cast<char>(o >> 24);
        bytes += static_cast<char>(o >> 16);
        bytes += static_cast<char>(o >> 8);
        bytes += static_cast<char>(o);
    }
    const auto be64 = [&bytes](quint64 v) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(v >> shift);
        }
    };
    bytes += QByteArray(6, '\0');
    bytes += '\x04'; // offset size
    bytes += '\x04'; // object reference size
    be64(count);
    be64(0);
    be64(tableOffset);
    const QString file = write(QStringLiteral("deep-binary.plist"), bytes);
    EXPECT_FALSE(PropertyList::read(file));

    // The same layout, 50 deep, is an ordinary nested array.
    QByteArray shallow = "bplist00";
    std::vector<quint8> small;
    for (quint32 i = 0; i < 50; ++i) {
        small.push_back(static_cast<quint8>(shallow.size()));
        if (i + 1 < 50) {
            shallow += '\xa1';
            shallow += static_cast<char>(i + 1);
        } else {
            shallow += '\xa0';
        }
    }
    const quint64 smallTable = static_cast<quint64>(shallow.size());
    for (quint8 o : small) {
        shallow += static_cast<char>(o);
    }
    shallow += QByteArray(6, '\0');
    shallow += '\x01';
    shallow += '\x01';
    for (quint64 v : {quint64(50), quint64(0), smallTable}) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            shallow += static_cast<char>(v >> shift);
        }
    }
    const auto value = PropertyList::parse(shallow);
    ASSERT_TRUE(value);
    EXPECT_TRUE(value->isArray());
}

namespace {

// A binary property list of one-byte offsets and references: object i is an array of the
// given references.
QByteArray smallBinary(const std::vector<std::vector<int>> &arrays)
{
    QByteArray bytes = "bplist00";
    std::vector<int> offsets;
    for (const auto &refs : arrays) {
        offsets.push_back(static_cast<int>(bytes.size()));
        bytes += static_cast<char>(0xa0 | refs.size());
        for (int r : refs) {
            bytes += static_cast<char>(r);
        }
    }
    const quint64 table = static_cast<quint64>(bytes.size());
    for (int o : offsets) {
        bytes += static_cast<char>(o);
    }
    bytes += QByteArray(6, '\0');
    bytes += '\x01';
    bytes += '\x01';
    for (quint64 v : {quint64(arrays.size()), quint64(0), table}) {
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(v >> shift);
        }
    }
    return bytes;
}

} // namespace

// An array that holds itself, and arrays that each hold the next one twice (a tiny file
// that would become a billion nodes), are refused at once.
TEST_F(PropertyListTest, BinaryCyclesAndExplosionsAreRefused)
{
    EXPECT_FALSE(PropertyList::parse(smallBinary({{0}})));
    EXPECT_FALSE(PropertyList::parse(smallBinary({{1}, {2}, {0}})));

    std::vector<std::vector<int>> doubling;
    for (int i = 0; i < 40; ++i) {
        doubling.push_back(i + 1 < 40 ? std::vector<int>{i + 1, i + 1} : std::vector<int>{});
    }
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(PropertyList::parse(smallBinary(doubling)));
    EXPECT_LT(timer.elapsed(), 2000);

    // Sharing within reason is fine: one empty array referenced from ten places.
    std::vector<std::vector<int>> shared{{1, 1, 1, 1, 1, 1, 1, 1, 1, 1}, {}};
    const auto value = PropertyList::parse(smallBinary(shared));
    ASSERT_TRUE(value);
    EXPECT_EQ(value->array().size(), 10u);
}

TEST_F(PropertyListTest, RoundTripOfEveryType)
{
    const PlistValue value = everyType();
    const QString file = path(QStringLiteral("every.plist"));
    QString error;
    ASSERT_TRUE(PropertyList::writeXml(value, file, &error)) << error.toStdString();
    const auto back = PropertyList::read(file);
    ASSERT_TRUE(back);
    expectIdentical(value, *back, "root");

    // The written text is an XML property list with integers written as signed numbers.
    const QByteArray xml = TestFiles::read(file);
    EXPECT_TRUE(xml.startsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"))
        << xml.left(60).toStdString();
    EXPECT_TRUE(xml.contains("<plist version=\"1.0\">"));
    EXPECT_TRUE(xml.contains("<integer>-5</integer>"));
    EXPECT_TRUE(xml.contains("<integer>-9223372036854775808</integer>"));
    EXPECT_TRUE(xml.contains("<integer>9223372036854775807</integer>"));
    EXPECT_TRUE(xml.contains("<date>2011-03-04T05:06:07Z</date>"));
    EXPECT_TRUE(xml.contains("<date>1987-06-15T23:59:58Z</date>"));
    EXPECT_TRUE(xml.contains("<true/>"));
    EXPECT_FALSE(xml.contains("<key>&amp;</key>")) << "markup must be escaped";
}

TEST_F(PropertyListTest, DatesAreUtcToTheSecond)
{
    const QDateTime withMillis = utc(2011, 3, 4, 5, 6, 7).addMSecs(600);
    const QDateTime local(QDate(2011, 3, 4), QTime(7, 6, 7), QTimeZone(7200));
    const auto back = PropertyList::parse(PropertyList::toXml(
        PlistValue(PlistArray{PlistValue(withMillis), PlistValue(local),
                              PlistValue(utc(2000, 12, 31, 23, 59, 59).addMSecs(400))})));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->array().size(), 3u);
    EXPECT_EQ(back->array()[0].date(), utc(2011, 3, 4, 5, 6, 7));
    EXPECT_EQ(back->array()[0].date().timeSpec(), Qt::UTC);
    EXPECT_EQ(back->array()[1].date(), utc(2011, 3, 4, 5, 6, 7));
    EXPECT_EQ(back->array()[2].date(), utc(2000, 12, 31, 23, 59, 59));
}

TEST_F(PropertyListTest, KeyOrderSurvivesReadWriteRead)
{
    PlistDict dict;
    for (const char *key : {"zeta", "Alpha", "mid", "1", "beta", "Label", "aardvark"}) {
        dict.insert(QString::fromLatin1(key), PlistValue(QString::fromLatin1(key)));
    }
    for (int i = 99; i >= 0; --i) {
        dict.insert(QStringLiteral("k%1").arg((i * 37) % 100), PlistValue(i));
    }
    PlistDict inner;
    inner.insert(QStringLiteral("y"), PlistValue(1));
    inner.insert(QStringLiteral("x"), PlistValue(2));
    dict.insert(QStringLiteral("inner"), PlistValue(inner));

    const QString file = path(QStringLiteral("order.plist"));
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(dict), file));
    const QByteArray firstBytes = TestFiles::read(file);
    const auto first = PropertyList::readDictionary(file);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->keys(), dict.keys());
    EXPECT_EQ(first->value("inner").dict().keys(), (QStringList{"y", "x"}));

    ASSERT_TRUE(PropertyList::writeXml(PlistValue(*first), file));
    const auto second = PropertyList::readDictionary(file);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->keys(), dict.keys());
    EXPECT_EQ(TestFiles::read(file), firstBytes);
}

TEST_F(PropertyListTest, WriteReplacesAndLeavesNoTemporaryFiles)
{
    const QString file = path(QStringLiteral("prefs.plist"));
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(PropertyList::writeXml(
            PlistValue(PlistDict{{QStringLiteral("n"), PlistValue(i)}}), file));
    }
    EXPECT_EQ(folderEntries(m_dir.path()), QStringList{QStringLiteral("prefs.plist")});
    EXPECT_EQ(PropertyList::readDictionary(file)->value("n").integerValue(), 19);
}

TEST_F(PropertyListTest, CreatingTakesOnlyAFreeNameAndLeavesNoTemporary)
{
    const QString file = path(QStringLiteral("job.plist"));
    const PlistValue first(PlistDict{{QStringLiteral("Label"), PlistValue("first")}});
    bool taken = true;
    ASSERT_TRUE(PropertyList::createXml(first, file, &taken));
    EXPECT_FALSE(taken);
    EXPECT_FALSE(PropertyList::createXml(
        PlistValue(PlistDict{{QStringLiteral("Label"), PlistValue("second")}}), file, &taken));
    EXPECT_TRUE(taken);
    EXPECT_EQ(PropertyList::readDictionary(file)->value("Label").string(), QStringLiteral("first"));
    EXPECT_FALSE(PropertyList::createXml(first, path(QStringLiteral("no/folder.plist")), &taken));
    EXPECT_FALSE(taken);
    EXPECT_EQ(folderEntries(m_dir.path()), QStringList{QStringLiteral("job.plist")});
}

// Temporaries of killed writers go; one whose writer still holds it, other programs' files,
// and what is no file stay, and nothing is waited for.
TEST_F(PropertyListTest, StaleTemporariesOfKilledWritersAreRemoved)
{
    const QString stale = write(QStringLiteral(".com.vantreel.ScheduledTask1.plist.a1B2c3"), "x");
    const QString busy = write(QStringLiteral(".com.vantreel.ScheduledTask2.plist.Zz9yY8"), "x");
    const int writer = ::open(QFile::encodeName(busy).constData(), O_RDONLY);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::flock(writer, LOCK_EX), 0);
    const QStringList kept{write(QStringLiteral(".other.plist.a1B2c3"), "x"),
                           write(QStringLiteral(".com.vantreel.ScheduledTask3.plist.short"), "x"),
                           write(QStringLiteral("com.vantreel.ScheduledTask4.plist"), "x")};
    const QString fifo = path(QStringLiteral(".com.vantreel.ScheduledTask5.plist.fifo12"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0644), 0);

    PropertyList::removeStaleTemporaries(m_dir.path(), QStringLiteral("com.vantreel."));
    ::close(writer);
    EXPECT_FALSE(QFileInfo::exists(stale));
    EXPECT_TRUE(QFileInfo::exists(busy));
    EXPECT_TRUE(QFileInfo::exists(fifo));
    for (const QString &file : kept) {
        EXPECT_TRUE(QFileInfo::exists(file)) << file.toStdString();
    }
}

TEST_F(PropertyListTest, WriteFailuresAreReported)
{
    QString error;
    EXPECT_FALSE(PropertyList::writeXml(PlistValue(PlistDict{}),
                                        path(QStringLiteral("no/folder/x.plist")), &error));
    EXPECT_FALSE(error.isEmpty());
    error.clear();
    EXPECT_FALSE(PropertyList::writeXml(PlistValue(), path(QStringLiteral("none.plist")), &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("none.plist"))));

    // A folder in the way is not replaced.
    const QString folder = path(QStringLiteral("folder.plist"));
    QDir().mkpath(folder + QStringLiteral("/child"));
    EXPECT_FALSE(PropertyList::writeXml(PlistValue(PlistDict{}), folder));
    EXPECT_TRUE(QFileInfo(folder + QStringLiteral("/child")).isDir());
    EXPECT_EQ(folderEntries(m_dir.path()), QStringList{QStringLiteral("folder.plist")});
}

// A write that cannot complete (here: the file size limit of the process, which holds for
// root too) leaves the old file whole and no temporary file behind.
TEST_F(PropertyListTest, FailedWriteKeepsTheOldFileWhole)
{
    const QString file = path(QStringLiteral("job.plist"));
    const PlistValue old(PlistDict{{QStringLiteral("Label"), PlistValue("old")}});
    ASSERT_TRUE(PropertyList::writeXml(old, file));
    const QByteArray oldBytes = TestFiles::read(file);

    PlistArray big;
    for (int i = 0; i < 20000; ++i) {
        big.emplace_back(QStringLiteral("a line that makes the file large, number %1").arg(i));
    }
    const PlistValue bigValue(PlistDict{{QStringLiteral("Label"), PlistValue("new")},
                                        {QStringLiteral("Big"), PlistValue(big)}});

    struct rlimit saved
    {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    auto *const previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit limited = saved;
    limited.rlim_cur = 64 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    QString error;
    const bool written = PropertyList::writeXml(bigValue, file, &error);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previousHandler);

    EXPECT_FALSE(written);
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(TestFiles::read(file), oldBytes);
    EXPECT_EQ(PropertyList::readDictionary(file)->value("Label").string(), QStringLiteral("old"));
    EXPECT_EQ(folderEntries(m_dir.path()), QStringList{QStringLiteral("job.plist")});

    // Without the limit the same write succeeds.
    ASSERT_TRUE(PropertyList::writeXml(bigValue, file));
    EXPECT_EQ(PropertyList::readDictionary(file)->value("Label").string(), QStringLiteral("new"));
}

TEST_F(PropertyListTest, UnwritableFolderKeepsTheOldFile)
{
    if (geteuid() == 0) {
        GTEST_SKIP() << "running as root: permissions do not block writing";
    }
    const QString folder = path(QStringLiteral("locked"));
    QDir().mkpath(folder);
    const QString file = folder + QStringLiteral("/job.plist");
    ASSERT_TRUE(
        PropertyList::writeXml(PlistValue(PlistDict{{QStringLiteral("v"), PlistValue(1)}}), file));
    const QByteArray oldBytes = TestFiles::read(file);
    ASSERT_EQ(::chmod(QFile::encodeName(folder).constData(), 0555), 0);
    QString error;
    EXPECT_FALSE(PropertyList::writeXml(PlistValue(PlistDict{{QStringLiteral("v"), PlistValue(2)}}),
                                        file, &error));
    ::chmod(QFile::encodeName(folder).constData(), 0755);
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(TestFiles::read(file), oldBytes);
    EXPECT_EQ(folderEntries(folder), QStringList{QStringLiteral("job.plist")});
}

// While one thread rewrites a file again and again, another thread reading it always sees
// one whole version or the other, never a partial file.
TEST_F(PropertyListTest, ReaderNeverSeesAPartialFile)
{
    const QString file = path(QStringLiteral("busy.plist"));
    PlistArray a;
    PlistArray b;
    for (int i = 0; i < 5000; ++i) {
        a.emplace_back(QStringLiteral("version A line %1").arg(i));
        b.emplace_back(QStringLiteral("version B line %1 with more text").arg(i));
    }
    const PlistValue first(PlistDict{{QStringLiteral("v"), PlistValue("A")},
                                     {QStringLiteral("items"), PlistValue(a)}});
    const PlistValue second(PlistDict{{QStringLiteral("v"), PlistValue("B")},
                                      {QStringLiteral("items"), PlistValue(b)}});
    ASSERT_TRUE(PropertyList::writeXml(first, file));

    std::atomic<bool> done{false};
    std::atomic<int> reads{0};
    std::atomic<int> bad{0};
    std::thread reader([&] {
        while (!done.load()) {
            const auto value = PropertyList::readDictionary(file);
            const QString v = value ? value->value("v").string() : QString();
            const size_t n = value ? value->value("items").array().size() : 0;
            if (!value || (v != QLatin1String("A") && v != QLatin1String("B")) || n != 5000) {
                ++bad;
            }
            ++reads;
        }
    });
    for (int i = 0; i < 40; ++i) {
        EXPECT_TRUE(PropertyList::writeXml(i % 2 ? first : second, file));
    }
    while (reads.load() < 20) {
        std::this_thread::yield();
    }
    done = true;
    reader.join();
    EXPECT_EQ(bad.load(), 0) << "of " << reads.load() << " reads";
    EXPECT_EQ(folderEntries(m_dir.path()), QStringList{QStringLiteral("busy.plist")});
}

TEST_F(PropertyListTest, KeepsPermissionsAndWritesThroughSymbolicLinks)
{
    const QString file = path(QStringLiteral("mode.plist"));
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(PlistDict{}), file));
    ASSERT_EQ(::chmod(QFile::encodeName(file).constData(), 0640), 0);
    ASSERT_TRUE(
        PropertyList::writeXml(PlistValue(PlistDict{{QStringLiteral("a"), PlistValue(1)}}), file));
    struct stat st
    {};
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    // A new file gets the usual mode for the process's umask.
    const mode_t mask = ::umask(022);
    ::umask(mask);
    const QString fresh = path(QStringLiteral("fresh.plist"));
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(PlistDict{}), fresh));
    ASSERT_EQ(::stat(QFile::encodeName(fresh).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0666u & ~mask);

    const QString link = path(QStringLiteral("link.plist"));
    ASSERT_TRUE(QFile::link(file, link));
    ASSERT_TRUE(
        PropertyList::writeXml(PlistValue(PlistDict{{QStringLiteral("b"), PlistValue(2)}}), link));
    if (::geteuid() == 0) {
        // Root replaces a link instead: whoever planted it must not choose what root writes.
        EXPECT_FALSE(QFileInfo(link).isSymLink());
        EXPECT_NE(PropertyList::readDictionary(file)->value("b").integerValue(), 2);
        EXPECT_EQ(PropertyList::readDictionary(link)->value("b").integerValue(), 2);
    } else {
        EXPECT_TRUE(QFileInfo(link).isSymLink());
        EXPECT_EQ(PropertyList::readDictionary(file)->value("b").integerValue(), 2);
    }
}

TEST_F(PropertyListTest, UnusualFileNames)
{
    const QStringList names{
        QStringLiteral("with spaces in name.plist"),
        QStringLiteral("it's \"quoted\".plist"),
        QStringLiteral("new\nline.plist"),
        QStringLiteral("percent %@ %d.plist"),
        QString::fromUtf8("\xc3\xa9t\xc3\xa9 \xf0\x9f\x98\x80.plist"),
        QStringLiteral(" leading and trailing .plist "),
    };
    for (const QString &name : names) {
        const QString file = path(name);
        const PlistValue value(PlistDict{{QStringLiteral("name"), PlistValue(name)}});
        ASSERT_TRUE(PropertyList::writeXml(value, file)) << name.toStdString();
        EXPECT_TRUE(QFileInfo::exists(file)) << name.toStdString();
        const auto back = PropertyList::readDictionary(file);
        ASSERT_TRUE(back) << name.toStdString();
        EXPECT_EQ(back->value("name").string(), name);
    }
    QStringList expected = names;
    expected.sort();
    QStringList actual = folderEntries(m_dir.path());
    actual.sort();
    EXPECT_EQ(actual, expected);

    // A folder with such a name works as well.
    const QString folder = path(QStringLiteral("odd \"folder\"\nname"));
    QDir().mkpath(folder);
    ASSERT_TRUE(
        PropertyList::writeXml(PlistValue(PlistDict{}), folder + QStringLiteral("/x.plist")));
    EXPECT_TRUE(PropertyList::readDictionary(folder + QStringLiteral("/x.plist")));
}

// File names are bytes: one that is not UTF-8 (written by some other program) is read and
// written under exactly its own name.
TEST_F(PropertyListTest, FileNamesThatAreNotUtf8)
{
    const QByteArray folder = QFile::encodeName(m_dir.path());
    const QByteArray rawName("job-\xff\xfe-latin1-caf\xe9.plist");
    const QByteArray rawPath = folder + '/' + rawName;
    {
        const int fd = ::open(rawPath.constData(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        const QByteArray content = xmlDocument("<dict><key>Label</key><string>raw</string></dict>");
        ASSERT_EQ(::write(fd, content.constData(), static_cast<size_t>(content.size())),
                  content.size());
        ::close(fd);
    }

    // Found by listing the folder, read under that name.
    const QStringList listed = FileNames::entryList(m_dir.path());
    ASSERT_EQ(listed.size(), 1);
    const QString name = listed.first();
    EXPECT_EQ(FileNames::encode(name), rawName);
    EXPECT_EQ(FileNames::decode(rawName), name);
    const QString file = m_dir.path() + QLatin1Char('/') + name;
    const auto dict = PropertyList::readDictionary(file);
    ASSERT_TRUE(dict);
    EXPECT_EQ(dict->value("Label").string(), QStringLiteral("raw"));

    // Rewritten in place: still one file, with the same bytes as its name.
    ASSERT_TRUE(PropertyList::writeXml(
        PlistValue(PlistDict{{QStringLiteral("Label"), PlistValue("rewritten")}}), file));
    struct stat st
    {};
    EXPECT_EQ(::stat(rawPath.constData(), &st), 0);
    EXPECT_EQ(FileNames::entryList(m_dir.path()), QStringList{name});
    EXPECT_EQ(PropertyList::readDictionary(file)->value("Label").string(),
              QStringLiteral("rewritten"));

    // A new file under a name that is not UTF-8.
    const QString created = FileNames::decode(folder + "/new-\x80\x81.plist");
    ASSERT_TRUE(PropertyList::writeXml(PlistValue(PlistDict{}), created));
    EXPECT_EQ(::stat((folder + "/new-\x80\x81.plist").constData(), &st), 0);
    EXPECT_TRUE(PropertyList::readDictionary(created));

    // Qt cannot remove these names: clean up here.
    ::unlink(rawPath.constData());
    ::unlink((folder + "/new-\x80\x81.plist").constData());
}

TEST(FileNamesTest, DecodingKeepsEveryByte)
{
    EXPECT_EQ(FileNames::decode("plain/ascii.plist"), QStringLiteral("plain/ascii.plist"));
    const QByteArray utf8("caf\xc3\xa9 \xf0\x9f\x98\x80");
    EXPECT_EQ(FileNames::decode(utf8), QString::fromUtf8(utf8));
    EXPECT_EQ(FileNames::encode(QString::fromUtf8(utf8)), utf8);
    // Invalid sequences: lone continuation bytes, overlong forms, surrogates, cut-off
    // sequences, bytes that never occur in UTF-8.
    for (const QByteArray &raw : {QByteArray("\x80"), QByteArray("a\xff"), QByteArray("\xc0\xaf"),
                                  QByteArray("\xed\xa0\x80"), QByteArray("\xe2\x82"),
                                  QByteArray("\xf4\x90\x80\x80"), QByteArray("x\xe9y\xc3\xa9")}) {
        const QString name = FileNames::decode(raw);
        EXPECT_EQ(FileNames::encode(name), raw) << raw.toHex().toStdString();
        EXPECT_FALSE(name.contains(QChar(0xFFFD)));
    }
    EXPECT_EQ(FileNames::decode("x\xe9y\xc3\xa9"), QString::fromUtf16(u"x\xdce9y\u00e9"));
    EXPECT_TRUE(FileNames::entryList(QStringLiteral("/no/such/folder")).isEmpty());
}
