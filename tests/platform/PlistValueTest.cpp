// PlistValue and PlistDict: the one property-list value type, its ordered dictionary, the
// number-object conversions with Foundation's rules and copy-on-write sharing.
#include "platform/PlistValue.h"
#include "platform/PlistDict.h"

#include <QTimeZone>

#include <gtest/gtest.h>

#include <limits>

namespace {

QStringList numberedKeys(int count, const QString &prefix = QStringLiteral("key"))
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
        EXPECT_EQ(dict.value(order[i]).string(), QStringLiteral("v-") + order[i]);
    }
}

PlistDict dictWithKeys(const QStringList &keys)
{
    PlistDict dict;
    for (const QString &k : keys) {
        dict.insert(k, PlistValue(QStringLiteral("v-") + k));
    }
    return dict;
}

} // namespace

TEST(PlistValueTest, DefaultIsNoValue)
{
    PlistValue v;
    EXPECT_FALSE(v.isValid());
    EXPECT_EQ(v.type(), PlistValue::Type::None);
    EXPECT_FALSE(v.isNumber());
    EXPECT_EQ(v.integerValue(), 0);
    EXPECT_FALSE(v.boolValue());
    EXPECT_TRUE(v.string().isNull());
    EXPECT_TRUE(v.array().empty());
    EXPECT_TRUE(v.dict().isEmpty());
    EXPECT_EQ(v, PlistValue());
    EXPECT_NE(v, PlistValue(0));
    EXPECT_NE(v, PlistValue(""));
}

TEST(PlistValueTest, IntegerValueOfStringsFollowsFoundation)
{
    EXPECT_EQ(PlistValue(" 42abc").integerValue(), 42);
    EXPECT_EQ(PlistValue("abc").integerValue(), 0);
    EXPECT_EQ(PlistValue("").integerValue(), 0);
    EXPECT_EQ(PlistValue("42").integerValue(), 42);
    EXPECT_EQ(PlistValue("\t\n  -17 apples").integerValue(), -17);
    EXPECT_EQ(PlistValue("+8").integerValue(), 8);
    EXPECT_EQ(PlistValue("- 8").integerValue(), 0);
    EXPECT_EQ(PlistValue("3.9").integerValue(), 3);
    EXPECT_EQ(PlistValue("007").integerValue(), 7);
    EXPECT_EQ(PlistValue("x42").integerValue(), 0);
    EXPECT_EQ(PlistValue("9223372036854775807").integerValue(), std::numeric_limits<qint64>::max());
    EXPECT_EQ(PlistValue("-9223372036854775808").integerValue(),
              std::numeric_limits<qint64>::min());
    // Overflow saturates instead of wrapping.
    EXPECT_EQ(PlistValue("99999999999999999999999").integerValue(),
              std::numeric_limits<qint64>::max());
    EXPECT_EQ(PlistValue("-99999999999999999999999").integerValue(),
              std::numeric_limits<qint64>::min());
    // Digits of other scripts are not decimal digits here.
    EXPECT_EQ(PlistValue(QString::fromUtf8("\xd9\xa3")).integerValue(), 0);
}

TEST(PlistValueTest, IntegerValueOfNumbers)
{
    EXPECT_EQ(PlistValue(3.9).integerValue(), 3);
    EXPECT_EQ(PlistValue(-3.9).integerValue(), -3);
    EXPECT_EQ(PlistValue(true).integerValue(), 1);
    EXPECT_EQ(PlistValue(false).integerValue(), 0);
    EXPECT_EQ(PlistValue(1e300).integerValue(), std::numeric_limits<qint64>::max());
    EXPECT_EQ(PlistValue(-1e300).integerValue(), std::numeric_limits<qint64>::min());
    EXPECT_EQ(PlistValue(std::numeric_limits<double>::quiet_NaN()).integerValue(), 0);
    EXPECT_EQ(PlistValue(QByteArray("12")).integerValue(), 0);
}

TEST(PlistValueTest, DoubleValue)
{
    EXPECT_DOUBLE_EQ(PlistValue(" 2.5").doubleValue(), 2.5);
    EXPECT_DOUBLE_EQ(PlistValue("7 days").doubleValue(), 7.0);
    EXPECT_DOUBLE_EQ(PlistValue("abc").doubleValue(), 0.0);
    EXPECT_DOUBLE_EQ(PlistValue(3).doubleValue(), 3.0);
    EXPECT_DOUBLE_EQ(PlistValue(true).doubleValue(), 1.0);
}

TEST(PlistValueTest, BoolValueOfStringsFollowsFoundation)
{
    EXPECT_TRUE(PlistValue("YES").boolValue());
    EXPECT_TRUE(PlistValue("yes").boolValue());
    EXPECT_TRUE(PlistValue("true").boolValue());
    EXPECT_TRUE(PlistValue("True").boolValue());
    EXPECT_TRUE(PlistValue("Y").boolValue());
    EXPECT_TRUE(PlistValue("1").boolValue());
    EXPECT_TRUE(PlistValue("  1").boolValue());
    EXPECT_TRUE(PlistValue("2").boolValue());
    EXPECT_TRUE(PlistValue("-1").boolValue());
    EXPECT_TRUE(PlistValue("01").boolValue());
    EXPECT_TRUE(PlistValue(" yes").boolValue());
    EXPECT_FALSE(PlistValue("0").boolValue());
    EXPECT_FALSE(PlistValue("00").boolValue());
    EXPECT_FALSE(PlistValue("no").boolValue());
    EXPECT_FALSE(PlistValue("NO").boolValue());
    EXPECT_FALSE(PlistValue("false").boolValue());
    EXPECT_FALSE(PlistValue("").boolValue());
    EXPECT_FALSE(PlistValue("   ").boolValue());
    EXPECT_FALSE(PlistValue("on").boolValue());
    EXPECT_FALSE(PlistValue("0.5").boolValue());
}

TEST(PlistValueTest, BoolValueOfNumbers)
{
    EXPECT_TRUE(PlistValue(true).boolValue());
    EXPECT_FALSE(PlistValue(false).boolValue());
    EXPECT_TRUE(PlistValue(1).boolValue());
    EXPECT_TRUE(PlistValue(-5).boolValue());
    EXPECT_FALSE(PlistValue(0).boolValue());
    EXPECT_TRUE(PlistValue(0.25).boolValue());
    EXPECT_FALSE(PlistValue(0.0).boolValue());
    EXPECT_FALSE(PlistValue(PlistArray{PlistValue(1)}).boolValue());
}

TEST(PlistValueTest, NumberEqualsComparesAsNumberObjects)
{
    EXPECT_TRUE(PlistValue(true).numberEquals(1));
    EXPECT_TRUE(PlistValue(false).numberEquals(0));
    EXPECT_FALSE(PlistValue(true).numberEquals(2));
    EXPECT_TRUE(PlistValue(1).numberEquals(1));
    EXPECT_TRUE(PlistValue(1.0).numberEquals(1));
    EXPECT_FALSE(PlistValue(1.5).numberEquals(1));
    EXPECT_FALSE(PlistValue("1").numberEquals(1));
    EXPECT_FALSE(PlistValue().numberEquals(0));

    // Integer 1 and boolean true are equal number objects, in both directions.
    EXPECT_EQ(PlistValue(1), PlistValue(true));
    EXPECT_EQ(PlistValue(true), PlistValue(1));
    EXPECT_EQ(PlistValue(0), PlistValue(false));
    EXPECT_EQ(PlistValue(2.0), PlistValue(2));
    EXPECT_NE(PlistValue(2), PlistValue(true));
    EXPECT_NE(PlistValue(1), PlistValue("1"));
}

TEST(PlistValueTest, SwitchIsOnForStringOneOrANumberEqualToTrue)
{
    EXPECT_TRUE(PlistValue("1").isSwitchOn());
    EXPECT_TRUE(PlistValue(true).isSwitchOn());
    EXPECT_TRUE(PlistValue(1).isSwitchOn());
    EXPECT_TRUE(PlistValue(1.0).isSwitchOn());
    EXPECT_FALSE(PlistValue("yes").isSwitchOn());
    EXPECT_FALSE(PlistValue("YES").isSwitchOn());
    EXPECT_FALSE(PlistValue("true").isSwitchOn());
    EXPECT_FALSE(PlistValue(" 1").isSwitchOn());
    EXPECT_FALSE(PlistValue("01").isSwitchOn());
    EXPECT_FALSE(PlistValue("0").isSwitchOn());
    EXPECT_FALSE(PlistValue(false).isSwitchOn());
    EXPECT_FALSE(PlistValue(2).isSwitchOn());
    EXPECT_FALSE(PlistValue().isSwitchOn());
    EXPECT_FALSE(PlistValue(PlistArray{PlistValue("1")}).isSwitchOn());
}

TEST(PlistValueTest, EqualityOfContainers)
{
    const PlistValue a(
        PlistDict{{QStringLiteral("x"), PlistValue(1)}, {QStringLiteral("y"), PlistValue("two")}});
    const PlistValue b(PlistDict{{QStringLiteral("y"), PlistValue("two")},
                                 {QStringLiteral("x"), PlistValue(true)}});
    EXPECT_EQ(a, b) << "dictionaries compare by content, in any key order";
    const PlistValue c(PlistDict{{QStringLiteral("x"), PlistValue(1)}});
    EXPECT_NE(a, c);
    EXPECT_EQ(PlistValue(PlistArray{PlistValue(1), PlistValue("a")}),
              PlistValue(PlistArray{PlistValue(1), PlistValue("a")}));
    EXPECT_NE(PlistValue(PlistArray{PlistValue(1), PlistValue("a")}),
              PlistValue(PlistArray{PlistValue("a"), PlistValue(1)}));
    EXPECT_NE(PlistValue(PlistArray{}), PlistValue(PlistDict{}));
    const QDateTime t(QDate(2020, 1, 1), QTime(0, 0), QTimeZone::utc());
    EXPECT_EQ(PlistValue(t), PlistValue(t.toTimeZone(QTimeZone(3600))));
    EXPECT_NE(PlistValue(t), PlistValue(t.addSecs(1)));
    EXPECT_EQ(PlistValue(QByteArray("ab")), PlistValue(QByteArray("ab")));
    EXPECT_NE(PlistValue(QByteArray("ab")), PlistValue("ab"));
}

TEST(PlistValueTest, ChangingACopyNeverChangesTheOriginal)
{
    PlistValue original(PlistDict{
        {QStringLiteral("name"), PlistValue("first")},
        {QStringLiteral("list"), PlistValue(PlistArray{PlistValue(1), PlistValue(2)})},
        {QStringLiteral("inner"), PlistValue(PlistDict{{QStringLiteral("deep"), PlistValue(1)}})},
    });
    const PlistValue snapshot = original;

    PlistValue copy = original;
    copy.mutableDict().insert(QStringLiteral("name"), PlistValue("second"));
    copy.mutableDict().insert(QStringLiteral("added"), PlistValue(true));
    copy.mutableDict().find(QStringLiteral("list"))->mutableArray().push_back(PlistValue(3));
    copy.mutableDict()
        .find(QStringLiteral("inner"))
        ->mutableDict()
        .insert(QStringLiteral("deep"), PlistValue(99));

    EXPECT_EQ(original.dict().value(QStringLiteral("name")).string(), QStringLiteral("first"));
    EXPECT_FALSE(original.dict().contains(QStringLiteral("added")));
    EXPECT_EQ(original.dict().value(QStringLiteral("list")).array().size(), 2u);
    EXPECT_EQ(original.dict().value(QStringLiteral("inner")).dict().value(QStringLiteral("deep")),
              PlistValue(1));
    EXPECT_EQ(original, snapshot);

    EXPECT_EQ(copy.dict().value(QStringLiteral("list")).array().size(), 3u);
    EXPECT_EQ(copy.dict().value(QStringLiteral("inner")).dict().value(QStringLiteral("deep")),
              PlistValue(99));

    // And the other way round: changing the original leaves the copy alone.
    PlistValue second = original;
    original.mutableDict().remove(QStringLiteral("name"));
    original.mutableDict().find(QStringLiteral("list"))->mutableArray().clear();
    EXPECT_EQ(second, snapshot);
}

TEST(PlistValueTest, CopiedArraysAndDictionariesAreIndependent)
{
    PlistValue array(PlistArray{PlistValue("a")});
    PlistValue arrayCopy = array;
    arrayCopy.mutableArray()[0] = PlistValue("changed");
    EXPECT_EQ(array.array()[0].string(), QStringLiteral("a"));

    // A PlistDict copied directly (not through a value) shares its nested containers only
    // until one side changes them.
    PlistDict dict;
    dict.insert(QStringLiteral("list"), PlistValue(PlistArray{PlistValue(1)}));
    PlistDict dictCopy = dict;
    dictCopy.find(QStringLiteral("list"))->mutableArray().push_back(PlistValue(2));
    EXPECT_EQ(dict.value(QStringLiteral("list")).array().size(), 1u);
    EXPECT_EQ(dictCopy.value(QStringLiteral("list")).array().size(), 2u);

    // A value made from a dictionary is a copy of it.
    PlistValue fromDict(dict);
    dict.insert(QStringLiteral("later"), PlistValue(1));
    EXPECT_FALSE(fromDict.dict().contains(QStringLiteral("later")));

    // The mutable accessors turn another type into an empty container.
    PlistValue text("x");
    text.mutableArray().push_back(PlistValue(1));
    EXPECT_TRUE(text.isArray());
    EXPECT_EQ(text.array().size(), 1u);
    PlistValue none;
    none.mutableDict().insert(QStringLiteral("a"), PlistValue(1));
    EXPECT_TRUE(none.isDictionary());
}

TEST(PlistDictTest, KeepsInsertionOrderAndReplacingKeepsThePlace)
{
    PlistDict dict;
    dict.insert(QStringLiteral("zeta"), PlistValue("v-zeta"));
    dict.insert(QStringLiteral("alpha"), PlistValue("old"));
    dict.insert(QStringLiteral("mid"), PlistValue("v-mid"));
    dict.insert(QStringLiteral("alpha"), PlistValue("v-alpha"));
    expectDict(dict, {QStringLiteral("zeta"), QStringLiteral("alpha"), QStringLiteral("mid")});

    EXPECT_TRUE(dict.remove(QStringLiteral("zeta")));
    EXPECT_FALSE(dict.remove(QStringLiteral("zeta")));
    dict.insert(QStringLiteral("zeta"), PlistValue("v-zeta"));
    expectDict(dict, {QStringLiteral("alpha"), QStringLiteral("mid"), QStringLiteral("zeta")});

    EXPECT_FALSE(dict.value(QStringLiteral("missing")).isValid());
    EXPECT_EQ(dict.find(QStringLiteral("missing")), nullptr);
    EXPECT_FALSE(dict.contains(QStringLiteral("ALPHA"))) << "keys are case-sensitive";

    dict.clear();
    EXPECT_TRUE(dict.isEmpty());
    EXPECT_FALSE(dict.contains(QStringLiteral("alpha")));
}

TEST(PlistDictTest, InitializerListKeepsOrderAndLastDuplicateWins)
{
    const PlistDict dict{{QStringLiteral("b"), PlistValue(1)},
                         {QStringLiteral("a"), PlistValue(2)},
                         {QStringLiteral("b"), PlistValue(3)}};
    EXPECT_EQ(dict.keys(), (QStringList{QStringLiteral("b"), QStringLiteral("a")}));
    EXPECT_EQ(dict.value(QStringLiteral("b")).integerValue(), 3);
}

TEST(PlistDictTest, EmptyAndUnusualKeys)
{
    PlistDict dict;
    dict.insert(QString(), PlistValue("v-"));
    dict.insert(QString::fromUtf8("\xf0\x9f\x98\x80 key"),
                PlistValue(QString::fromUtf8("v-\xf0\x9f\x98\x80 key")));
    expectDict(dict, {QString(), QString::fromUtf8("\xf0\x9f\x98\x80 key")});
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

        // Replace every third key: order unchanged.
        for (int i = 0; i < count; i += 3) {
            dict.insert(order[i], PlistValue(QStringLiteral("v-") + order[i]));
        }
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
        dict.insert(removed[1], PlistValue(QStringLiteral("v-") + removed[1]));
        order.append(removed[1]);
        expectDict(dict, order);

        // Grow after a removal and look up the new keys at once.
        const QStringList more = numberedKeys(40, QStringLiteral("more"));
        for (const QString &k : more) {
            dict.insert(k, PlistValue(QStringLiteral("v-") + k));
            order.append(k);
            EXPECT_TRUE(dict.contains(k));
        }
        expectDict(dict, order);

        // Shrink below the threshold and grow past it again.
        while (order.size() > 3) {
            EXPECT_TRUE(dict.remove(order[1]));
            order.removeAt(1);
            EXPECT_EQ(dict.value(order.last()).string(), QStringLiteral("v-") + order.last());
        }
        expectDict(dict, order);
        for (const QString &k : numberedKeys(60, QStringLiteral("again"))) {
            dict.insert(k, PlistValue(QStringLiteral("v-") + k));
            order.append(k);
        }
        expectDict(dict, order);
    }
}

TEST(PlistDictTest, CopiesAndMovesOfLargeDictionariesKeepWorking)
{
    const QStringList order = numberedKeys(100);
    PlistDict original = dictWithKeys(order);
    ASSERT_TRUE(original.contains(QStringLiteral("key50"))); // builds the index

    PlistDict copy = original;
    copy.insert(QStringLiteral("extra"), PlistValue("v-extra"));
    copy.remove(QStringLiteral("key0"));
    expectDict(original, order);
    EXPECT_TRUE(copy.contains(QStringLiteral("extra")));
    EXPECT_FALSE(copy.contains(QStringLiteral("key0")));
    EXPECT_EQ(copy.value(QStringLiteral("key99")).string(), QStringLiteral("v-key99"));

    PlistDict assigned;
    assigned.insert(QStringLiteral("gone"), PlistValue(1));
    assigned = copy;
    EXPECT_FALSE(assigned.contains(QStringLiteral("gone")));
    EXPECT_TRUE(assigned.contains(QStringLiteral("extra")));
    EXPECT_EQ(assigned.keys(), copy.keys());

    PlistDict moved = std::move(assigned);
    EXPECT_EQ(moved.keys(), copy.keys());
    EXPECT_EQ(moved.value(QStringLiteral("key42")).string(), QStringLiteral("v-key42"));
    moved.insert(QStringLiteral("after-move"), PlistValue(1));
    EXPECT_TRUE(moved.contains(QStringLiteral("after-move")));

    // Assigning a small dictionary over a large one drops the old index.
    PlistDict small = dictWithKeys({QStringLiteral("a")});
    moved = small;
    EXPECT_FALSE(moved.contains(QStringLiteral("key42")));
    expectDict(moved, {QStringLiteral("a")});
    moved = dictWithKeys(order);
    expectDict(moved, order);
}

TEST(PlistDictTest, EqualityIgnoresOrder)
{
    const QStringList order = numberedKeys(50);
    QStringList reversed = order;
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(dictWithKeys(order), dictWithKeys(reversed));
    PlistDict other = dictWithKeys(order);
    other.insert(QStringLiteral("key7"), PlistValue("different"));
    EXPECT_NE(dictWithKeys(order), other);
    other = dictWithKeys(order);
    other.remove(QStringLiteral("key7"));
    other.insert(QStringLiteral("key7x"), PlistValue("v-key7"));
    EXPECT_NE(dictWithKeys(order), other);
}
