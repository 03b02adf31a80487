#include "BridgeTesting.h"

#include "UnitName.h"

#include <gtest/gtest.h>

TEST(UnitNameTest, ValidLabelsStayAsTheyAre)
{
    for (const char *label : {"com.vantreel.ScheduledTask3", "com.vantreel.RootScheduledTask12",
                              "my-job_2:x", "a.b-c"}) {
        EXPECT_EQ(UnitName::escape(QString::fromLatin1(label)), QString::fromLatin1(label));
    }
    EXPECT_EQ(
        UnitName::forLabel(QStringLiteral("com.vantreel.ScheduledTask3"), QStringLiteral("timer")),
        QStringLiteral("com.vantreel.ScheduledTask3.timer"));
}

TEST(UnitNameTest, OtherLabelsAreEscapedExactlyAsSystemdEscapeDoes)
{
    const QStringList awkward{QStringLiteral("com.vantreel.Scheduled Task"),
                              QStringLiteral("a/b/c"),
                              QStringLiteral("/leading/slash"),
                              QStringLiteral(".hidden"),
                              QStringLiteral("..two"),
                              QStringLiteral("Grüße-日本"),
                              QStringLiteral("at@sign"),
                              QStringLiteral("back\\slash"),
                              QStringLiteral("tab\tnew\nline"),
                              QStringLiteral("dash-and space"),
                              QStringLiteral("quote\"'$%*?[]"),
                              QStringLiteral("\\x20")};
    for (const QString &label : awkward) {
        const BridgeTesting::Run escaped =
            BridgeTesting::run(QStringLiteral("systemd-escape"), {QStringLiteral("--"), label});
        ASSERT_EQ(escaped.status, 0) << escaped.err.toStdString();
        EXPECT_EQ(UnitName::escape(label), escaped.out.trimmed()) << label.toStdString();
    }
}

TEST(UnitNameTest, NamesLongerThanSystemdTakesAreRefused)
{
    // systemd takes names of up to 255 bytes.
    EXPECT_EQ(UnitName::forLabel(QString(247, QLatin1Char('a')), QStringLiteral("service"))->size(),
              255);
    EXPECT_FALSE(UnitName::forLabel(QString(248, QLatin1Char('a')), QStringLiteral("service")));
    // Escaping counts: one "ü" is eight bytes once escaped.
    EXPECT_FALSE(UnitName::forLabel(QString(31, QChar(0xfc)), QStringLiteral("service")));
    EXPECT_TRUE(UnitName::forLabel(QString(30, QChar(0xfc)), QStringLiteral("service")));
}
