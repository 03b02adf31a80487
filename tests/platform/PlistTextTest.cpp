// PlistText: the old-style property-list text of a value, as "-tasks" prints it.
#include "platform/PlistText.h"
#include "platform/PlistDict.h"

#include <QTimeZone>

#include <gtest/gtest.h>

namespace {

std::string text(const PlistValue &value)
{
    return PlistText::render(value).toStdString();
}

} // namespace

TEST(PlistTextTest, ScalarsAndFlatContainers)
{
    const std::pair<PlistValue, const char *> cases[] = {
        {PlistValue(PlistDict()), "{\n}"},
        {PlistValue(PlistArray()), "(\n)"},
        {PlistValue("word"), "word"},
        {PlistValue(""), "\"\""},
        {PlistValue(-7), "-7"},
        {PlistValue(true), "1"},
        {PlistValue(1.5), "1.5"},
        {PlistValue(QByteArray("\x01\xab", 2)), "<01ab>"},
        {PlistValue(QDateTime(QDate(2011, 3, 4), QTime(5, 6, 7), QTimeZone::utc())),
         "\"2011-03-04 05:06:07 +0000\""},
        // A date in another zone is shown in UTC.
        {PlistValue(QDateTime(QDate(2011, 3, 4), QTime(5, 6, 7), QTimeZone(7200))),
         "\"2011-03-04 03:06:07 +0000\""},
        {PlistValue(), "(null)"},
        {PlistValue(PlistArray{PlistValue(1), PlistValue("b c"), PlistValue(true)}),
         "(\n    1,\n    \"b c\",\n    1\n)"},
    };
    for (const auto &[value, expected] : cases) {
        EXPECT_EQ(text(value), expected);
    }
    EXPECT_EQ(PlistValue(7).description(), "7");
}

// Keys are sorted (the dictionary keeps its own order) and quoted like strings; nesting
// indents by four, and inside an array a nested container is set off by its own
// indentation as well, the way an array has always described itself.
TEST(PlistTextTest, NestedContainers)
{
    const PlistDict dict{
        {"zeta", PlistValue(1)},
        {"empty", PlistValue(PlistDict())},
        {"Mid", PlistValue(true)},
        {"/home/anna/x.plist",
         PlistValue(PlistArray{
             PlistValue(PlistDict{{"name", PlistValue(PlistDict{{"c", PlistValue(3)}})}}),
             PlistValue(PlistArray{PlistValue(1)})})},
        {QString(), PlistValue(1)},
    };
    EXPECT_EQ(text(PlistValue(dict)), "{\n"
                                      "    \"\" = 1;\n"
                                      "    \"/home/anna/x.plist\" =     (\n"
                                      "                {\n"
                                      "            name =             {\n"
                                      "                c = 3;\n"
                                      "            };\n"
                                      "        },\n"
                                      "                (\n"
                                      "            1\n"
                                      "        )\n"
                                      "    );\n"
                                      "    Mid = 1;\n"
                                      "    empty =     {\n"
                                      "    };\n"
                                      "    zeta = 1;\n"
                                      "}");
    EXPECT_EQ(dict.keys().first(), "zeta");
}

TEST(PlistTextTest, QuotingAndEscaping)
{
    const std::pair<QString, const char *> cases[] = {
        {"plain_Word09", "plain_Word09"},
        {"a b", "\"a b\""},
        {"say \"hi\"", "\"say \\\"hi\\\"\""},
        {"back\\slash", "\"back\\\\slash\""},
        {"line\nnext\ttab\rret", "\"line\\nnext\\ttab\\rret\""},
        {"a=b", "\"a=b\""},
        {"100%", "\"100%\""},
        {"-tasks", "\"-tasks\""},
        // Control and non-ASCII characters as \U and four hex digits of UTF-16.
        {QString::fromUtf8("caf\xc3\xa9"), "\"caf\\U00e9\""},
        {QString::fromUtf8("\xf0\x9f\x98\x80"), "\"\\Ud83d\\Ude00\""},
        {QString(QChar(0x01)), "\"\\U0001\""},
        {QString(QChar(0x7f)), "\"\\U007f\""},
    };
    for (const auto &[input, expected] : cases) {
        EXPECT_EQ(PlistText::quoted(input).toStdString(), expected);
    }
    // Keys and values alike: the output is plain ASCII whatever the input.
    EXPECT_EQ(text(PlistValue(PlistDict{
                  {QString::fromUtf8("\xc3\xbc"), PlistValue(QString::fromUtf8("\xe2\x82\xac"))}})),
              "{\n    \"\\U00fc\" = \"\\U20ac\";\n}");
}

// A long listing goes out in pieces that break only between top-level entries and add up
// to exactly the whole text.
TEST(PlistTextTest, WriteHandsOverTheSameTextInPieces)
{
    for (const int count : {0, 3, 2000}) {
        PlistDict dict;
        for (int i = 0; i < count; ++i) {
            dict.insert(QStringLiteral("/jobs/%1.plist").arg(i),
                        PlistValue(PlistDict{{"a", PlistValue(PlistArray{PlistValue(i)})}}));
        }
        QStringList pieces;
        PlistText::write(PlistValue(dict), [&](const QString &piece) { pieces << piece; });
        EXPECT_EQ(pieces.join(QString()), PlistText::render(PlistValue(dict)));
        EXPECT_EQ(pieces.size() > 1, count == 2000);
        for (qsizetype i = 0; i + 1 < pieces.size(); ++i) {
            EXPECT_TRUE(pieces[i].endsWith(QLatin1String("    };\n"))) << i;
        }
    }
}
