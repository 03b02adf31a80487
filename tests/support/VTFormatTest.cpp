#include "support/VTFormat.h"
#include "platform/PlistDict.h"

#include <gtest/gtest.h>

// Objects and numbers fill their directives, with width, precision and flags; property list
// objects insert their description, a string object its own text. A directive without an
// argument stays as written rather than reading garbage.
TEST(VTFormatTest, DirectivesAndTheirArguments)
{
    const PlistDict dict{{"b", 2}, {"a", "x y"}};
    const std::pair<QString, const char *> cases[] = {
        {VTFormat::string("Unable to find task with task ID %@", "backup"),
         "Unable to find task with task ID backup"},
        {VTFormat::string("%@ and %@", 7, "x"), "7 and x"},
        {VTFormat::string("%d|%ld|%lld|%u", -4, 5L, 6LL, 7U), "-4|5|6|7"},
        {VTFormat::string("%0.2f GB", 15.5 / 4.0), "3.88 GB"},
        {VTFormat::string("%x %X %o", 255, 255, 8), "ff FF 10"},
        {VTFormat::string("[%5s][%-5s]", "ab", "cd"), "[   ab][cd   ]"},
        {VTFormat::string("[%04d][%+d]", 42, 3), "[0042][+3]"},
        {VTFormat::string("%@", PlistValue(dict)), "{\n    a = \"x y\";\n    b = 2;\n}"},
        {VTFormat::string("<%@>", PlistValue("x y")), "<x y>"},
        {VTFormat::string("100%% done"), "100% done"},
        {VTFormat::string("%@ and %d"), "%@ and %d"},
        {VTFormat::string("a %@ b %@", "one"), "a one b %@"},
        {VTFormat::string("odd %y and %"), "odd %y and %"},
        {VTFormat::string("%@", "%d stays"), "%d stays"},
        {VTFormat::string("Whenever %@ changes", "~/Dokumente/Ünï"),
         "Whenever ~/Dokumente/Ünï changes"},
    };
    for (const auto &[actual, expected] : cases) {
        EXPECT_EQ(actual, QString::fromUtf8(expected));
    }
}
