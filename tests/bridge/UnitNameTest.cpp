#include "BridgeTesting.h"

#include "UnitName.h"

#include <gtest/gtest.h>

// Valid labels stay as they are (systemd-escape would still escape their "-"); any other is
// escaped exactly as systemd-escape does.
TEST(UnitNameTest, LabelsAreEscapedExactlyAsSystemdEscapeDoes)
{
    for (const QString label : {"com.vantreel.ScheduledTask3", "my-job_2:x", "a.b-c"}) {
        EXPECT_EQ(UnitName::escape(label), label);
    }
    for (const QString label : {"com.vantreel.Scheduled Task", "a/b/c", "/leading/slash", ".hidden",
                                "..two", "Grüße-日本", "at@sign", "back\\slash", "tab\tnew\nline",
                                "dash-and space", "quote\"'$%*?[]", "\\x20"}) {
        const BridgeTesting::Run escaped = BridgeTesting::run("systemd-escape", {"--", label});
        ASSERT_EQ(escaped.status, 0) << escaped.err.toStdString();
        EXPECT_EQ(UnitName::escape(label), escaped.out.trimmed()) << label.toStdString();
    }
    EXPECT_EQ(UnitName::forLabel("com.vantreel.ScheduledTask3", "timer"),
              "com.vantreel.ScheduledTask3.timer");
}

TEST(UnitNameTest, NamesLongerThanSystemdTakesAreRefused)
{
    // systemd takes names of up to 255 bytes.
    EXPECT_EQ(UnitName::forLabel(QString(247, 'a'), "service")->size(), 255);
    EXPECT_FALSE(UnitName::forLabel(QString(248, 'a'), "service"));
    // Escaping counts: one "ü" is eight bytes once escaped.
    EXPECT_FALSE(UnitName::forLabel(QString(31, QChar(0xfc)), "service"));
    EXPECT_TRUE(UnitName::forLabel(QString(30, QChar(0xfc)), "service"));
}
