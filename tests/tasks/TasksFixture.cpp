#include "TasksFixture.h"

#include "platform/PropertyList.h"
#include "support/VTAuthorization.h"
#include "testsupport/ClientApps.h"

void TasksFixture::SetUp()
{
    identity->home = sandbox.home();
    identity->homes.insert("anna", sandbox.home());
    applications = sandbox.mkdir("Applications");
    sandbox.setEnv("VT_APP_SEARCH_PATH", applications);
    launchctl = std::make_unique<LaunchctlRecorder>(sandbox);
    // Unless a test says otherwise, every alert is answered with its second button.
    alerts->answer = VTAlert::AlternateReturn;
    VTAlert::setPresenter(alerts);
    VTAuthorization::resetForTesting();
    VTAuthorization::sharedController(false);
    quill = ClientApps::makeQuill(applications);
}

void TasksFixture::TearDown()
{
    VTAlert::setPresenter(nullptr);
    VTAuthorization::resetForTesting();
}

QString TasksFixture::agents() const
{
    return sandbox.home() + "/Library/LaunchAgents";
}

QString TasksFixture::daemons() const
{
    return sandbox.localRoot() + "/Library/LaunchDaemons";
}

PlistDict TasksFixture::readJob(const QString &path) const
{
    return PropertyList::readDictionary(path).value_or(PlistDict());
}
