#pragma once

#include "PlistValue.h"

#include <QByteArray>
#include <QString>

#include <optional>

// A direct reader for the plain XML property lists that job files, catalogues and
// preferences are: dictionaries, arrays, keys, strings, decimal integers and booleans, with
// the five named entities. It builds the values straight from the text, without the node
// tree of the general reader and its conversion. Whatever it does not know for certain
// (other value types, comments, character references, carriage returns, duplicate keys,
// odd markup) it declines, and the general reader decides; so it never differs from it.
class PlistXmlReader
{
public:
    // The value, or nothing when the text is not one this reader is sure of; malformed text
    // is declined too, for the general reader to refuse.
    static std::optional<PlistValue> read(const char *bytes, qsizetype size);

    // A dictionary key as text. The same few keys come back in file after file (Label,
    // ProgramArguments, Hour...), so each thread hands out shared copies of the keys it has
    // made instead of converting and allocating every one again; both readers use it.
    static QString dictionaryKey(const QByteArray &bytes);
};
