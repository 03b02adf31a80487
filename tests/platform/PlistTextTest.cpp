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
        {PlistValue("two words"), "\"two words\""},
        {PlistValue(""), "\"\""},
        {PlistValue(-7), "-7"},
        {PlistValue(true), "1"},
        {PlistValue(false), "0"},
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
    EXPECT_EQ(PlistValue(7).description(), QStringLiteral("7"));
}

TEST(PlistTextTest, DictionaryKeysAreSortedAndIndentedByFour)
{
    PlistDict dict;
    dict.insert(QStringLiteral("zeta"), PlistValue(1));
    dict.insert(QStringLiteral("alpha"), PlistValue("hello world"));
    dict.insert(QStringLiteral("Mid"), PlistValue(true));
    dict.insert(QStringLiteral("beta"), PlistValue(false));
    EXPECT_EQ(text(PlistValue(dict)), "{\n"
                                      "    Mid = 1;\n"
                                      "    alpha = \"hello world\";\n"
                                      "    beta = 0;\n"
                                      "    zeta = 1;\n"
                                      "}");
    // The dictionary itself keeps its own order.
    EXPECT_EQ(dict.keys().first(), QStringLiteral("zeta"));
}

TEST(PlistTextTest, NestedContainers)
{
    PlistDict inner;
    inner.insert(QStringLiteral("Minute"), PlistValue(30));
    inner.insert(QStringLiteral("Hour"), PlistValue(2));
    PlistDict dict;
    dict.insert(QStringLiteral("taskArguments"),
                PlistValue(PlistArray{PlistValue("-backup"), PlistValue("all files")}));
    dict.insert(QStringLiteral("empty"), PlistValue(PlistDict()));
    dict.insert(QStringLiteral("none"), PlistValue(PlistArray()));
    inner.insert(QStringLiteral("Leaf"),
                 PlistValue(PlistDict{{QStringLiteral("c"), PlistValue(3)}}));
    dict.insert(QStringLiteral("interval"), PlistValue(inner));
    EXPECT_EQ(text(PlistValue(dict)), "{\n"
                                      "    empty =     {\n"
                                      "    };\n"
                                      "    interval =     {\n"
                                      "        Hour = 2;\n"
                                      "        Leaf =         {\n"
                                      "            c = 3;\n"
                                      "        };\n"
                                      "        Minute = 30;\n"
                                      "    };\n"
                                      "    none =     (\n"
                                      "    );\n"
                                      "    taskArguments =     (\n"
                                      "        \"-backup\",\n"
                                      "        \"all files\"\n"
                                      "    );\n"
                                      "}");
}

// Inside an array a nested container is set off by its own indentation as well, the way
// an array has always described itself.
TEST(PlistTextTest, ArrayOfContainers)
{
    PlistArray array{PlistValue(PlistDict{{QStringLiteral("name"), PlistValue("foo")}}),
                     PlistValue(PlistArray{PlistValue(1)})};
    EXPECT_EQ(text(PlistValue(array)), "(\n"
                                       "        {\n"
                                       "        name = foo;\n"
                                       "    },\n"
                                       "        (\n"
                                       "        1\n"
                                       "    )\n"
                                       ")");
}

TEST(PlistTextTest, QuotingAndEscaping)
{
    const std::pair<QString, const char *> cases[] = {
        {QStringLiteral("plain_Word09"), "plain_Word09"},
        {QStringLiteral("a b"), "\"a b\""},
        {QStringLiteral("say \"hi\""), "\"say \\\"hi\\\"\""},
        {QStringLiteral("back\\slash"), "\"back\\\\slash\""},
        {QStringLiteral("line\nnext\ttab\rret"), "\"line\\nnext\\ttab\\rret\""},
        {QStringLiteral("semi;colon"), "\"semi;colon\""},
        {QStringLiteral("a=b"), "\"a=b\""},
        {QStringLiteral("/Library/LaunchDaemons/x.plist"), "\"/Library/LaunchDaemons/x.plist\""},
        {QStringLiteral("100%"), "\"100%\""},
        {QStringLiteral("<tag>"), "\"<tag>\""},
        {QStringLiteral("-tasks"), "\"-tasks\""},
        // Control and non-ASCII characters as \U and four hex digits of UTF-16.
        {QString::fromUtf8("caf\xc3\xa9"), "\"caf\\U00e9\""},
        {QString::fromUtf8("\xf0\x9f\x98\x80"), "\"\\Ud83d\\Ude00\""},
        {QString(QChar(0x01)), "\"\\U0001\""},
        {QString(QChar(0x7f)), "\"\\U007f\""},
    };
    for (const auto &[input, expected] : cases) {
        EXPECT_EQ(PlistText::quoted(input).toStdString(), expected);
    }
    // Output is plain ASCII whatever the input.
    const QString rendered = PlistText::render(PlistValue(
        PlistDict{{QString::fromUtf8("\xc3\xbc"), PlistValue(QString::fromUtf8("\xe2\x82\xac"))}}));
    for (QChar c : rendered) {
        EXPECT_LT(c.unicode(), 0x80);
    }
    EXPECT_EQ(rendered.toStdString(), "{\n    \"\\U00fc\" = \"\\U20ac\";\n}");
}

TEST(PlistTextTest, KeysAreQuotedLikeStrings)
{
    PlistDict dict;
    dict.insert(QStringLiteral("/home/anna/Library/LaunchAgents/com.vantreel.ScheduledTask1.plist"),
                PlistValue(PlistDict{{QStringLiteral("enabled"), PlistValue(true)},
                                     {QStringLiteral("taskID"), PlistValue("backup now")}}));
    dict.insert(QStringLiteral("with \"quote\""), PlistValue(0));
    dict.insert(QString(), PlistValue(1));
    EXPECT_EQ(text(PlistValue(dict)),
              "{\n"
              "    \"\" = 1;\n"
              "    \"/home/anna/Library/LaunchAgents/com.vantreel.ScheduledTask1.plist\" =     {\n"
              "        enabled = 1;\n"
              "        taskID = \"backup now\";\n"
              "    };\n"
              "    \"with \\\"quote\\\"\" = 0;\n"
              "}");
}
