// PlistValue and PlistDict: the one property-list value type, its ordered dictionary, the
// number-object conversions with Foundation's rules and copy-on-write sharing.
#include "platform/PlistValue.h"
#include "platform/PlistDict.h"

#include <QTimeZone>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

QStringList numberedKeys(int count, const QString &prefix = "key")
{
    QStringList keys;
    for (int i = 0; i < count; ++i) {
        keys.append(prefix + QString::number(i));
    }
    return keys;
}

// Checks that every key of the expected order is found with its value and that the
// dictionary lists exactly that order.
void expectDict(const PlistDict &dict, const QStringList &order)
{
    ASSERT_EQ(dict.size(), order.size());
    EXPECT_EQ(dict.keys(), order);
    for (int i = 0; i < order.size(); ++i) {
        EXPECT_TRUE(dict.contains(order[i])) << order[i].toStdString();
        EXPECT_EQ(dict.at(i).key, order[i]);
        const PlistValue *found = dict.find(order[i]);
        ASSERT_NE(found, nullptr) << order[i].toStdString();
        EXPECT_EQ(found, &dict.at(i).value) << "find must point at the entry in its place";
        EXPECT_EQ(dict.value(order[i]).string(), "v-" + order[i]);
    }
}

PlistDict dictWithKeys(const QStringList &keys)
{
    PlistDict dict;
    for (const QString &k : keys) {
        dict.insert(k, PlistValue("v-" + k));
    }
    return dict;
}

} // namespace

// Strings convert as Foundation's integerValue, doubleValue and boolValue do; a switch
// is on only for the exact string "1".
TEST(PlistValueTest, ConversionsOfStrings)
{
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    constexpr qint64 min = std::numeric_limits<qint64>::min();
    // Text, integerValue, doubleValue, boolValue, isSwitchOn.
    const std::tuple<const char *, qint64, double, bool, bool> cases[] = {
        {" 42abc", 42, 42, true, false},
        {"\t\n  -17 apples", -17, -17, true, false},
        {"+8", 8, 8, true, false},
        {"- 8", 0, 0, false, false},
        {"3.9", 3, 3.9, true, false},
        {"x42", 0, 0, false, false},
        {"", 0, 0, false, false},
        {"9223372036854775807", max, 9223372036854775807.0, true, false},
        // Overflow saturates instead of wrapping.
        {"99999999999999999999999", max, 1e23, true, false},
        {"-99999999999999999999999", min, -1e23, true, false},
        {"1", 1, 1, true, true},
        {"  1", 1, 1, true, false},
        {"0.5", 0, 0.5, false, false},
        {"YES", 0, 0, true, false},
        {"no", 0, 0, false, false},
        // Digits of other scripts are not decimal digits here.
        {"\xd9\xa3", 0, 0, false, false},
    };
    for (const auto &[text, integer, real, boolean, on] : cases) {
        SCOPED_TRACE(text);
        const PlistValue v(QString::fromUtf8(text));
        EXPECT_EQ(v.integerValue(), integer);
        EXPECT_DOUBLE_EQ(v.doubleValue(), real);
        EXPECT_EQ(v.boolValue(), boolean);
        EXPECT_EQ(v.isSwitchOn(), on);
        EXPECT_FALSE(v.numberEquals(integer));
    }
}

TEST(PlistValueTest, ConversionsOfNumbers)
{
    // Value, integerValue, boolValue, isSwitchOn.
    const std::tuple<PlistValue, qint64, bool, bool> cases[] = {
        {PlistValue(true), 1, true, true},
        {PlistValue(false), 0, false, false},
        {PlistValue(1), 1, true, true},
        {PlistValue(1.0), 1, true, true},
        {PlistValue(2), 2, true, false},
        {PlistValue(0.25), 0, true, false},
        {PlistValue(-3.9), -3, true, false},
        {PlistValue(1e300), std::numeric_limits<qint64>::max(), true, false},
        {PlistValue(-1e300), std::numeric_limits<qint64>::min(), true, false},
        {PlistValue(std::numeric_limits<double>::quiet_NaN()), 0, true, false},
        {PlistValue(QByteArray("12")), 0, false, false},
        {PlistValue(PlistArray{PlistValue("1")}), 0, false, false},
        {PlistValue(), 0, false, false},
    };
    for (const auto &[value, integer, boolean, on] : cases) {
        SCOPED_TRACE(value.description().toStdString());
        EXPECT_EQ(value.integerValue(), integer);
        if (!std::isnan(value.doubleValue())) {
            EXPECT_EQ(value.boolValue(), boolean);
        }
        EXPECT_EQ(value.isSwitchOn(), on);
    }
    EXPECT_DOUBLE_EQ(PlistValue(true).doubleValue(), 1.0);
    EXPECT_DOUBLE_EQ(PlistValue(3).doubleValue(), 3.0);
    EXPECT_TRUE(PlistValue(1.0).numberEquals(1));
    EXPECT_FALSE(PlistValue(1.5).numberEquals(1));
    EXPECT_FALSE(PlistValue(true).numberEquals(2));
    EXPECT_FALSE(PlistValue().numberEquals(0));
    EXPECT_TRUE(PlistValue().string().isNull());
}

// Integer 1 and boolean true are equal number objects; dictionaries compare by content in
// any key order, dates by the moment; equality holds in both directions.
TEST(PlistValueTest, Equality)
{
    const QDateTime t(QDate(2020, 1, 1), QTime(0, 0), QTimeZone::utc());
    const PlistValue xy(PlistDict{{"x", PlistValue(1)}, {"y", PlistValue("two")}});
    const PlistValue list(PlistArray{PlistValue(1), PlistValue("a")});
    const std::tuple<PlistValue, PlistValue, bool> cases[] = {
        {PlistValue(1), PlistValue(true), true},
        {PlistValue(2.0), PlistValue(2), true},
        {PlistValue(2), PlistValue(true), false},
        {PlistValue(1), PlistValue("1"), false},
        {PlistValue(), PlistValue(), true},
        {PlistValue(), PlistValue(0), false},
        {xy, PlistValue(PlistDict{{"y", PlistValue("two")}, {"x", PlistValue(true)}}), true},
        {xy, PlistValue(PlistDict{{"x", PlistValue(1)}}), false},
        {list, PlistValue(PlistArray{PlistValue(1), PlistValue("a")}), true},
        {list, PlistValue(PlistArray{PlistValue("a"), PlistValue(1)}), false},
        {PlistValue(PlistArray{}), PlistValue(PlistDict{}), false},
        {PlistValue(t), PlistValue(t.toTimeZone(QTimeZone(3600))), true},
        {PlistValue(t), PlistValue(t.addSecs(1)), false},
        {PlistValue(QByteArray("ab")), PlistValue(QByteArray("ab")), true},
    };
    for (const auto &[a, b, equal] : cases) {
        const std::string name =
            a.description().toStdString() + " / " + b.description().toStdString();
        EXPECT_EQ(a == b, equal) << name;
        EXPECT_EQ(b == a, equal) << name;
    }
}

// Values share their containers until one side changes them, through a value or a
// dictionary copied directly.
TEST(PlistValueTest, ChangingACopyNeverChangesTheOriginal)
{
    PlistValue original(PlistDict{
        {"name", PlistValue("first")},
        {"list", PlistValue(PlistArray{PlistValue(1), PlistValue(2)})},
        {"inner", PlistValue(PlistDict{{"deep", PlistValue(1)}})},
    });
    const PlistValue snapshot = original;

    PlistValue copy = original;
    copy.mutableDict().insert("name", PlistValue("second"));
    copy.mutableDict().find("list")->mutableArray().push_back(PlistValue(3));
    copy.mutableDict().find("inner")->mutableDict().insert("deep", PlistValue(99));
    EXPECT_EQ(original, snapshot);
    EXPECT_EQ(copy.dict().value("list").array().size(), 3u);
    EXPECT_EQ(copy.dict().value("inner").dict().value("deep"), PlistValue(99));

    // And the other way round: changing the original leaves the copy alone.
    PlistValue second = original;
    original.mutableDict().find("list")->mutableArray().clear();
    EXPECT_EQ(second, snapshot);

    // The mutable accessors turn another type into an empty container.
    PlistValue text("x");
    text.mutableArray().push_back(PlistValue(1));
    EXPECT_EQ(text, PlistValue(PlistArray{PlistValue(1)}));
    PlistValue none;
    none.mutableDict().insert("a", PlistValue(1));
    EXPECT_TRUE(none.isDictionary());
}

TEST(PlistDictTest, KeepsInsertionOrderAndReplacingKeepsThePlace)
{
    PlistDict dict{{"zeta", PlistValue("v-zeta")},
                   {"alpha", PlistValue("old")},
                   {QString(), PlistValue("v-")}};
    dict.insert("alpha", PlistValue("v-alpha"));
    expectDict(dict, {"zeta", "alpha", QString()});
    EXPECT_TRUE(dict.remove("zeta"));
    EXPECT_FALSE(dict.remove("zeta"));
    dict.insert("zeta", PlistValue("v-zeta"));
    expectDict(dict, {"alpha", QString(), "zeta"});
    EXPECT_FALSE(dict.value("missing").isValid());
    EXPECT_FALSE(dict.contains("ALPHA")) << "keys are case-sensitive";

    // In an initializer list the last duplicate wins, in the first one's place.
    const PlistDict listed{{"b", PlistValue(1)}, {"a", PlistValue(2)}, {"b", PlistValue(3)}};
    EXPECT_EQ(listed.keys(), (QStringList{"b", "a"}));
    EXPECT_EQ(listed.value("b").integerValue(), 3);
    dict.clear();
    EXPECT_TRUE(dict.isEmpty());
    EXPECT_FALSE(dict.contains("alpha"));
}

// Large dictionaries use a hash index: every operation must give the same answers past
// the threshold as below it, through growth, replacement, removal and re-insertion.
TEST(PlistDictTest, LargeDictionaryBehavesLikeASmallOne)
{
    for (const int count : {5, 23, 24, 25, 100, 2000}) {
        SCOPED_TRACE(count);
        QStringList order = numberedKeys(count);
        PlistDict dict = dictWithKeys(order);
        expectDict(dict, order);
        dict.insert(order[count / 3], PlistValue("v-" + order[count / 3])); // keeps its place
        expectDict(dict, order);

        // Remove some keys from the front, the middle and the end, then re-insert one.
        const QStringList removed{order.first(), order[count / 2], order.last()};
        for (const QString &k : removed) {
            EXPECT_TRUE(dict.remove(k));
            order.removeOne(k);
        }
        for (const QString &k : removed) {
            EXPECT_FALSE(dict.contains(k));
            EXPECT_EQ(dict.find(k), nullptr);
        }
        expectDict(dict, order);
        dict.insert(removed[1], PlistValue("v-" + removed[1]));
        order.append(removed[1]);
        expectDict(dict, order);

        // Shrink below the threshold and grow past it again, looking up new keys at once.
        while (order.size() > 3) {
            EXPECT_TRUE(dict.remove(order[1]));
            order.removeAt(1);
            EXPECT_EQ(dict.value(order.last()).string(), "v-" + order.last());
        }
        expectDict(dict, order);
        for (const QString &k : numberedKeys(60, "again")) {
            dict.insert(k, PlistValue("v-" + k));
            order.append(k);
            EXPECT_TRUE(dict.contains(k));
        }
        expectDict(dict, order);
    }
}

TEST(PlistDictTest, CopiesAndMovesOfLargeDictionariesKeepWorking)
{
    const QStringList order = numberedKeys(100);
    PlistDict original = dictWithKeys(order);
    ASSERT_TRUE(original.contains("key50")); // builds the index

    PlistDict copy = original;
    copy.insert("extra", PlistValue("v-extra"));
    copy.remove("key0");
    expectDict(original, order);
    EXPECT_FALSE(copy.contains("key0"));

    PlistDict assigned = dictWithKeys({"gone"});
    assigned = copy;
    PlistDict moved = std::move(assigned);
    EXPECT_EQ(moved.keys(), copy.keys());
    EXPECT_TRUE(moved.contains("extra"));

    // Assigning a small dictionary over a large one drops the old index.
    moved = dictWithKeys({"a"});
    EXPECT_FALSE(moved.contains("key42"));
    expectDict(moved, {"a"});

    // Equality ignores the order, not the values or keys.
    QStringList reversed = order;
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(original, dictWithKeys(reversed));
    PlistDict other = dictWithKeys(order);
    other.insert("key7", PlistValue("different"));
    EXPECT_NE(original, other);
}
