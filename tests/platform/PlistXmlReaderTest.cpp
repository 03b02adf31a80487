// The direct XML reader must read exactly what the general reader reads, or decline.
#include "platform/PlistXmlReader.h"
#include "platform/FileNames.h"
#include "platform/PropertyList.h"
#include "testsupport/TestFiles.h"

#include <QDirIterator>

#include <gtest/gtest.h>

namespace {

PlistDict sampleJob()
{
    return PlistDict{
        {QStringLiteral("Label"), QStringLiteral("com.vantreel.ScheduledTask7")},
        {QStringLiteral("Program"), QStringLiteral("/home/anna/Applications/A & B <x>.app")},
        {QStringLiteral("ProgramArguments"),
         PlistArray{QStringLiteral("A \"quoted\" 'one'"), QStringLiteral("  spaced\tout  "),
                    QString(), QStringLiteral("Grüße ✓"),
                    FileNames::decode(QByteArray("caf\xe9", 4))}},
        {QStringLiteral("LowPriorityIO"), true},
        {QStringLiteral("Disabled"), false},
        {QStringLiteral("Nice"), -15},
        {QStringLiteral("StartInterval"), qint64(123456789012345678)},
        {QStringLiteral("StartCalendarInterval"),
         PlistArray{PlistDict{{QStringLiteral("Hour"), 0}, {QStringLiteral("Minute"), 59}}}},
        {QStringLiteral("EnvironmentVariables"), PlistDict()},
        {QStringLiteral("WatchPaths"), PlistArray()},
    };
}

// Equal results, or both refused.
void expectSameAsGeneral(const QByteArray &bytes)
{
    const std::optional<PlistValue> direct = PropertyList::parse(bytes);
    const std::optional<PlistValue> general = PropertyList::parseGeneral(bytes);
    ASSERT_EQ(direct.has_value(), general.has_value()) << bytes.constData();
    if (direct) {
        EXPECT_TRUE(*direct == *general) << bytes.constData();
    }
}

TEST(PlistXmlReaderTest, ReadsWhatTheWriterWritesAsTheGeneralReaderDoes)
{
    const QByteArray xml = PropertyList::toXml(PlistValue(sampleJob()));
    const std::optional<PlistValue> direct = PlistXmlReader::read(xml.constData(), xml.size());
    ASSERT_TRUE(direct.has_value()) << "a plain job file must not be declined";
    EXPECT_TRUE(direct->dict() == sampleJob());
    expectSameAsGeneral(xml);

    // Hand-written variants of the same markup.
    const QByteArray variants[] = {
        "<plist version=\"1.0\"><dict><key>a</key><string>x</string></dict></plist>",
        "<?xml version=\"1.0\"?>\n<plist version=\"1.0\">\n<array/>\n</plist>\n",
        "<plist version=\"1.0\"><dict/></plist>",
        "<plist version=\"1.0\"><string>&amp;&lt;&gt;&quot;&apos;&amp;amp;</string></plist>",
        "<plist version=\"1.0\"><integer>0</integer></plist>",
        "<plist version=\"1.0\"><integer>-0</integer></plist>",
        "<plist version=\"1.0\"><integer>007</integer></plist>",
        "<plist version=\"1.0\"><integer>0x10</integer></plist>",
        "<plist version=\"1.0\"><integer>+3</integer></plist>",
        "<plist version=\"1.0\"><integer> 3 </integer></plist>",
        "<plist version=\"1.0\"><integer>99999999999999999999</integer></plist>",
        "<plist version=\"1.0\"><integer></integer></plist>",
        "<plist version=\"1.0\"><string>a&#65;b</string></plist>",
        "<plist version=\"1.0\"><string>a&bogus;b</string></plist>",
        "<plist version=\"1.0\"><string>a\r\nb</string></plist>",
        "<plist version=\"1.0\"><string><![CDATA[<x>]]></string></plist>",
        "<plist version=\"1.0\"><!-- note --><string>x</string></plist>",
        "<plist version=\"1.0\"><dict><key>a</key><true/><key>a</key><false/></dict></plist>",
        "<plist version=\"1.0\"><dict><key></key><true/></dict></plist>",
        "<plist version=\"1.0\"><dict><key>a</key></dict></plist>",
        "<plist version=\"1.0\"><dict><string>a</string></dict></plist>",
        "<plist version=\"1.0\"><string/></plist>",
        "<plist version=\"1.0\"><real>1.5</real></plist>",
        "<plist version=\"1.0\"><date>2026-01-01T00:00:00Z</date></plist>",
        "<plist version=\"1.0\"><data>AAEC</data></plist>",
        "<plist version=\"1.0\"><string>x</string></plist>trailing",
        "<plist version=\"1.0\"><string>x</string>",
        "<!DOCTYPE plist [<!ENTITY e \"y\">]><plist version=\"1.0\"><string>&e;</string></plist>",
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist "
        "version=\"1.0\"><string>\xe9</string>"
        "</plist>",
        "<plist version=\"1.0\"><array><string>a</string><string>b</string></plist>",
    };
    for (const QByteArray &variant : variants) {
        SCOPED_TRACE(variant.constData());
        expectSameAsGeneral(variant);
    }
}

// Every single-byte change of a job file, and every file the tests keep, reads the same way
// through both readers.
TEST(PlistXmlReaderTest, AgreesWithTheGeneralReaderOnDamagedAndStoredFiles)
{
    const QByteArray xml = PropertyList::toXml(PlistValue(sampleJob()));
    const char replacements[] = {'<',  '>',  '&', '/', '"', ' ', '\n',
                                 '\r', '\0', 'x', '-', '0', '[', '\xff'};
    for (qsizetype i = 0; i < xml.size(); ++i) {
        for (const char c : replacements) {
            QByteArray changed = xml;
            changed[i] = c;
            expectSameAsGeneral(changed);
        }
        expectSameAsGeneral(QByteArray(xml).remove(i, 1));
        expectSameAsGeneral(xml.left(i));
        if (HasFailure()) {
            FAIL() << "at byte " << i;
        }
    }
    int files = 0;
    QDirIterator it(QStringLiteral(KAIRO_TEST_DATA_DIR), QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        SCOPED_TRACE(path.toStdString());
        expectSameAsGeneral(TestFiles::read(path));
        ++files;
    }
    EXPECT_GT(files, 10);
}

} // namespace
