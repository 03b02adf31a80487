#include "support/VTException.h"
#include "support/VTLog.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/Sandbox.h"
#include "testsupport/TestFiles.h"

#include <gtest/gtest.h>

#include <stdexcept>

TEST(VTExceptionTest, QualifiedNameComesFromTheSignature)
{
    EXPECT_EQ(VTException::qualifiedName(
                  "static std::optional<QString> VTLocalPaths::pathForDirectory(int, int)"),
              QStringLiteral("VTLocalPaths::pathForDirectory"));
    EXPECT_EQ(VTException::qualifiedName("void AppController::deleteTask(QObject*)"),
              QStringLiteral("AppController::deleteTask"));
    EXPECT_EQ(VTException::qualifiedName("QMap<QString, int> Foo::bar() const"),
              QStringLiteral("Foo::bar"));
    EXPECT_EQ(VTException::qualifiedName("const QString& VTTask::name(std::pair<int, int>)"),
              QStringLiteral("VTTask::name"));
    EXPECT_EQ(VTException::qualifiedName("int main(int, char**)"), QStringLiteral("main"));
}

TEST(VTExceptionTest, NamesFollowTheSystemsVocabulary)
{
    EXPECT_EQ(VTException::nameOf(std::out_of_range("index 3 beyond bounds")),
              QStringLiteral("NSRangeException"));
    EXPECT_EQ(VTException::nameOf(std::invalid_argument("x")),
              QStringLiteral("NSInvalidArgumentException"));
    EXPECT_EQ(VTException::nameOf(VTException(QStringLiteral("NSPortTimeoutException"), {})),
              QStringLiteral("NSPortTimeoutException"));
    EXPECT_TRUE(VTException::didTimeout(VTException(QStringLiteral("NSPortTimeoutException"), {})));
    EXPECT_FALSE(VTException::didTimeout(VTException(QStringLiteral("NSPortTimeout"), {})));
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
        VTLog::createNewLog(QStringLiteral("GuardTest"));
    }

    QStringList logLines()
    {
        VTLog::finishWriting();
        return TestFiles::lines(VTLog::currentLogPath());
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
    EXPECT_TRUE(logLines().last().endsWith(QStringLiteral(
        "Exception in Widget::count. NSRangeException - index (4) beyond bounds (3).")));
    VTException::guard("void Job::run()", [] {
        throw VTException(QStringLiteral("NSGenericException"), QStringLiteral("50%% done"));
    });
    EXPECT_TRUE(logLines().last().endsWith(QStringLiteral("NSGenericException - 50% done.")));
    EXPECT_TRUE(VTException::guard("bool X::y()", true, []() -> bool { throw 42; }));
    const QString printed = console.finish();
    EXPECT_TRUE(printed.contains(QStringLiteral(
        "Exception in Widget::count. NSRangeException - index (4) beyond bounds (3).")));
    EXPECT_TRUE(printed.contains(QStringLiteral("NSGenericException - 50%% done.")));
    EXPECT_TRUE(printed.contains(QStringLiteral("Exception in X::y. NSGenericException")));
}
