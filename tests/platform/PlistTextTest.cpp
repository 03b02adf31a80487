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

TEST(PlistTextTest, EmptyContainers)
{
    EXPECT_EQ(text(PlistValue(PlistDict())), "{\n}");
    EXPECT_EQ(text(PlistValue(PlistArray())), "(\n)");
}

TEST(PlistTextTest, ScalarsAtTheTop)
{
    EXPECT_EQ(text(PlistValue("word")), "word");
    EXPECT_EQ(text(PlistValue("two words")), "\"two words\"");
    EXPECT_EQ(text(PlistValue("")), "\"\"");
    EXPECT_EQ(text(PlistValue(42)), "42");
    EXPECT_EQ(text(PlistValue(-7)), "-7");
    EXPECT_EQ(text(PlistValue(true)), "1");
    EXPECT_EQ(text(PlistValue(false)), "0");
    EXPECT_EQ(text(PlistValue(1.5)), "1.5");
    EXPECT_EQ(text(PlistValue(QByteArray("\x01\xab", 2))), "<01ab>");
    EXPECT_EQ(text(PlistValue(QDateTime(QDate(2011, 3, 4), QTime(5, 6, 7), QTimeZone::utc()))),
              "\"2011-03-04 05:06:07 +0000\"");
    // A date in another zone is shown in UTC.
    EXPECT_EQ(text(PlistValue(QDateTime(QDate(2011, 3, 4), QTime(5, 6, 7), QTimeZone(7200)))),
              "\"2011-03-04 03:06:07 +0000\"");
    EXPECT_EQ(text(PlistValue()), "(null)");
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
    dict.insert(QStringLiteral("interval"), PlistValue(inner));
    dict.insert(QStringLiteral("empty"), PlistValue(PlistDict()));
    dict.insert(QStringLiteral("none"), PlistValue(PlistArray()));
    EXPECT_EQ(text(PlistValue(dict)), "{\n"
                                      "    empty =     {\n"
                                      "    };\n"
                                      "    interval =     {\n"
                                      "        Hour = 2;\n"
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

TEST(PlistTextTest, TwoLevelsDeep)
{
    PlistDict leaf{{QStringLiteral("c"), PlistValue(3)}};
    PlistDict middle{{QStringLiteral("b"), PlistValue(leaf)}};
    PlistDict top{{QStringLiteral("a"), PlistValue(middle)}};
    EXPECT_EQ(text(PlistValue(top)), "{\n"
                                     "    a =     {\n"
                                     "        b =         {\n"
                                     "            c = 3;\n"
                                     "        };\n"
                                     "    };\n"
                                     "}");
}

TEST(PlistTextTest, ArrayOfScalars)
{
    EXPECT_EQ(text(PlistValue(PlistArray{PlistValue(1), PlistValue("b c"), PlistValue(true)})),
              "(\n"
              "    1,\n"
              "    \"b c\",\n"
              "    1\n"
              ")");
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
    EXPECT_EQ(PlistText::quoted(QStringLiteral("plain_Word09")).toStdString(), "plain_Word09");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("a b")).toStdString(), "\"a b\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("say \"hi\"")).toStdString(), "\"say \\\"hi\\\"\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("back\\slash")).toStdString(), "\"back\\\\slash\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("line\nnext\ttab\rret")).toStdString(),
              "\"line\\nnext\\ttab\\rret\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("semi;colon")).toStdString(), "\"semi;colon\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("a=b")).toStdString(), "\"a=b\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("/Library/LaunchDaemons/x.plist")).toStdString(),
              "\"/Library/LaunchDaemons/x.plist\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("100%")).toStdString(), "\"100%\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("<tag>")).toStdString(), "\"<tag>\"");
    EXPECT_EQ(PlistText::quoted(QStringLiteral("-tasks")).toStdString(), "\"-tasks\"");
    // Control and non-ASCII characters as \U and four hex digits of UTF-16.
    EXPECT_EQ(PlistText::quoted(QString::fromUtf8("caf\xc3\xa9")).toStdString(), "\"caf\\U00e9\"");
    EXPECT_EQ(PlistText::quoted(QString::fromUtf8("\xf0\x9f\x98\x80")).toStdString(),
              "\"\\Ud83d\\Ude00\"");
    EXPECT_EQ(PlistText::quoted(QString(QChar(0x01))).toStdString(), "\"\\U0001\"");
    EXPECT_EQ(PlistText::quoted(QString(QChar(0x7f))).toStdString(), "\"\\U007f\"");
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
