#include "support/VTException.h"
#include "support/VTLog.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <stdexcept>

// The method's name comes from the signature, the exception's from the system's vocabulary.
TEST(VTExceptionTest, QualifiedNamesAndExceptionNames)
{
    const std::pair<const char *, const char *> signatures[] = {
        {"static std::optional<QString> VTLocalPaths::pathForDirectory(int, int)",
         "VTLocalPaths::pathForDirectory"},
        {"QMap<QString, int> Foo::bar() const", "Foo::bar"},
        {"const QString& VTTask::name(std::pair<int, int>)", "VTTask::name"},
        {"int main(int, char**)", "main"},
    };
    for (const auto &[signature, name] : signatures) {
        EXPECT_EQ(VTException::qualifiedName(signature), QLatin1String(name));
    }
    const VTException timeout("NSPortTimeoutException", {});
    EXPECT_EQ(VTException::nameOf(std::invalid_argument("x")), "NSInvalidArgumentException");
    EXPECT_EQ(VTException::nameOf(timeout), "NSPortTimeoutException");
    EXPECT_TRUE(VTException::didTimeout(timeout));
    EXPECT_FALSE(VTException::didTimeout(VTException("NSPortTimeout", {})));
    EXPECT_FALSE(VTException::didTimeout(std::runtime_error("NSPortTimeoutException")));
}

class VTExceptionGuardTest : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;

    void SetUp() override
    {
        identity->home = sandbox.home();
        VTLog::createNewLog("GuardTest");
    }
};

// The guard returns the neutral value and reports the method, whatever was thrown; a
// reason is read once more as a format by the log, not by the console.
TEST_F(VTExceptionGuardTest, GuardReturnsTheNeutralValueAndReportsTheMethod)
{
    TestFiles::CaptureStderr console;
    EXPECT_EQ(
        VTException::guard("static int Widget::count(int)", 7,
                           []() -> int { throw std::out_of_range("index (4) beyond bounds (3)"); }),
        7);
    EXPECT_TRUE(TestFiles::logMessages().last().endsWith(QStringLiteral(
        "Exception in Widget::count. NSRangeException - index (4) beyond bounds (3).")));
    VTException::guard("void Job::run()",
                       [] { throw VTException("NSGenericException", "50%% done"); });
    EXPECT_TRUE(TestFiles::logMessages().last().endsWith("NSGenericException - 50% done."));
    EXPECT_TRUE(VTException::guard("bool X::y()", true, []() -> bool { throw 42; }));
    const QString printed = console.finish();
    EXPECT_TRUE(printed.contains(QStringLiteral(
        "Exception in Widget::count. NSRangeException - index (4) beyond bounds (3).")));
    EXPECT_TRUE(printed.contains("NSGenericException - 50%% done."));
    EXPECT_TRUE(printed.contains("Exception in X::y. NSGenericException"));
}
