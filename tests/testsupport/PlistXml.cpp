#include "PlistXml.h"

#include <QDateTime>
#include <QXmlStreamReader>

namespace {

QVariant readElement(QXmlStreamReader &xml, bool &ok)
{
    const QString name = xml.name().toString();
    if (name == QLatin1String("dict")) {
        QVariantList pairs;
        while (xml.readNextStartElement()) {
            if (xml.name() != QLatin1String("key")) {
                ok = false;
                return {};
            }
            const QString key = xml.readElementText();
            if (!xml.readNextStartElement()) {
                ok = false;
                return {};
            }
            pairs.append(QVariant(QVariantList{key, readElement(xml, ok)}));
        }
        return pairs.isEmpty() ? QVariant(QVariantList()) : QVariant(pairs);
    }
    if (name == QLatin1String("array")) {
        QVariantList items;
        while (xml.readNextStartElement()) {
            items.append(readElement(xml, ok));
        }
        // Arrays are marked so that an empty array and an empty dictionary differ.
        return QVariant::fromValue(QVariantMap{{QStringLiteral("array"), items}});
    }
    if (name == QLatin1String("string")) {
        return xml.readElementText();
    }
    if (name == QLatin1String("integer")) {
        return xml.readElementText().toLongLong(&ok);
    }
    if (name == QLatin1String("real")) {
        return xml.readElementText().toDouble(&ok);
    }
    if (name == QLatin1String("true") || name == QLatin1String("false")) {
        xml.skipCurrentElement();
        return name == QLatin1String("true");
    }
    if (name == QLatin1String("data")) {
        return QByteArray::fromBase64(xml.readElementText().toLatin1());
    }
    if (name == QLatin1String("date")) {
        return QDateTime::fromString(xml.readElementText(), Qt::ISODate);
    }
    ok = false;
    return {};
}

} // namespace

QVariant PlistXml::parse(const QByteArray &bytes)
{
    QXmlStreamReader xml(bytes);
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("plist") ||
        !xml.readNextStartElement()) {
        return {};
    }
    bool ok = true;
    QVariant root = readElement(xml, ok);
    if (!ok || xml.hasError()) {
        return {};
    }
    return root;
}

QVariant PlistXml::value(const QVariant &dict, const QString &key)
{
    for (const QVariant &pair : dict.toList()) {
        const QVariantList kv = pair.toList();
        if (kv.size() == 2 && kv[0].toString() == key) {
            return kv[1];
        }
    }
    return {};
}

QStringList PlistXml::keys(const QVariant &dict)
{
    QStringList out;
    for (const QVariant &pair : dict.toList()) {
        out.append(pair.toList().value(0).toString());
    }
    return out;
}

QVariantList PlistXml::items(const QVariant &array)
{
    return array.toMap().value(QStringLiteral("array")).toList();
}

bool PlistXml::isArray(const QVariant &value)
{
    return value.typeId() == QMetaType::QVariantMap &&
           value.toMap().contains(QStringLiteral("array"));
}
