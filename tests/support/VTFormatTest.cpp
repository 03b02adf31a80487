#include "support/VTFormat.h"
#include "platform/PlistDict.h"

#include <gtest/gtest.h>

TEST(VTFormatTest, ObjectsAndNumbersFillTheirDirectives)
{
    EXPECT_EQ(VTFormat::string(QStringLiteral("Unable to find task with task ID %@"),
                               QStringLiteral("backup")),
              QStringLiteral("Unable to find task with task ID backup"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("%@ and %@"), 7, QStringLiteral("x")),
              QStringLiteral("7 and x"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("/%@.%i.log"), QStringLiteral("App"), 3),
              QStringLiteral("/App.3.log"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("%d|%ld|%lld|%u"), -4, 5L, 6LL, 7U),
              QStringLiteral("-4|5|6|7"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("%0.2f GB"), 15.5 / 4.0), QStringLiteral("3.88 GB"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("'%ld' key"), 122L), QStringLiteral("'122' key"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("%x %X %o"), 255, 255, 8),
              QStringLiteral("ff FF 10"));
}

TEST(VTFormatTest, WidthPrecisionAndFlags)
{
    EXPECT_EQ(VTFormat::string(QStringLiteral("[%5s][%-5s]"), "ab", "cd"),
              QStringLiteral("[   ab][cd   ]"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("[%.2s]"), "abcdef"), QStringLiteral("[ab]"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("[%04d][%+d]"), 42, 3), QStringLiteral("[0042][+3]"));
}

TEST(VTFormatTest, PropertyListObjectsUseTheirDescription)
{
    PlistDict dict{{QStringLiteral("b"), 2}, {QStringLiteral("a"), QStringLiteral("x y")}};
    EXPECT_EQ(VTFormat::string(QStringLiteral("%@"), PlistValue(dict)),
              QStringLiteral("{\n    a = \"x y\";\n    b = 2;\n}"));
    // A string object inserts its own text, not its quoted description.
    EXPECT_EQ(VTFormat::string(QStringLiteral("<%@>"), PlistValue(QStringLiteral("x y"))),
              QStringLiteral("<x y>"));
}

TEST(VTFormatTest, PercentSignsAndMissingArguments)
{
    EXPECT_EQ(VTFormat::string(QStringLiteral("100%% done")), QStringLiteral("100% done"));
    // A directive without an argument stays as written rather than reading garbage.
    EXPECT_EQ(VTFormat::string(QStringLiteral("%@ and %d")), QStringLiteral("%@ and %d"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("a %@ b %@"), "one"), QStringLiteral("a one b %@"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("odd %y and %")), QStringLiteral("odd %y and %"));
    EXPECT_EQ(VTFormat::string(QStringLiteral("%@"), QStringLiteral("%d stays")),
              QStringLiteral("%d stays"));
}

TEST(VTFormatTest, NonAsciiTextPassesThrough)
{
    EXPECT_EQ(
        VTFormat::string(QStringLiteral("Whenever %@ changes"), QStringLiteral("~/Dokumente/Ünï")),
        QStringLiteral("Whenever ~/Dokumente/Ünï changes"));
}
