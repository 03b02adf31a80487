#pragma once

#include <QByteArray>
#include <QVariant>

// An XML property-list reader written on QXmlStreamReader, independent of the library the
// system uses, so golden checks do not trust the code they check. Dictionaries become a
// QVariantList of {key, value} pairs, keeping their order; arrays are read with items();
// integers are qlonglong, reals double, booleans bool, strings QString, data QByteArray,
// dates QDateTime. An invalid QVariant means the text is not a property list.
class PlistXml
{
public:
    static QVariant parse(const QByteArray &xml);
    // The value under key of a parsed dictionary, or an invalid QVariant.
    static QVariant value(const QVariant &dict, const QString &key);
    static QStringList keys(const QVariant &dict);
    static QVariantList items(const QVariant &array);
    static bool isArray(const QVariant &value);
};
