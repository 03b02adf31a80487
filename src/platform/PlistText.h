#pragma once

#include "PlistValue.h"

#include <QString>

#include <functional>

// The old-style (OpenStep) property-list text, as a dictionary describes itself:
//   {
//       key = value;
//       "quoted key" = "a string";
//       nested =     {
//           ...
//       };
//       list =     (
//           word,
//                   {
//               ...
//           }
//       );
//   }
// A nested container, whether a dictionary value or an array element, starts on its line
// after an extra indentation of its own level, as Foundation's descriptions do.
// Dictionary keys are listed in ascending order. Strings that are not plain words are
// quoted, with \" \\ \n \t \r and \Uxxxx for control and non-ASCII characters.
class PlistText
{
public:
    using Sink = std::function<void(const QString &piece)>;

    static QString render(const PlistValue &value);
    // The same text handed to sink in pieces that end between top-level entries, so that a
    // long listing is never held whole.
    static void write(const PlistValue &value, const Sink &sink);
    static QString quoted(const QString &string);

private:
    static void append(QString &out, const PlistValue &value, int level, const Sink *sink);
    static void appendQuoted(QString &out, const QString &string);
};
