#pragma once

#include "platform/PlistDict.h"
#include "support/VTAlert.h"
#include "testsupport/FakeIdentity.h"
#include "testsupport/LaunchctlRecorder.h"
#include "testsupport/MockClock.h"
#include "testsupport/RecordingAlerts.h"
#include "testsupport/Sandbox.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

// A sandboxed machine with one client application, "Quill" (com.vantreel.Quill), whose
// catalogue has "backup" (-backup), "clean" (-clean -quiet) and the root task "repair".
class TasksFixture : public ::testing::Test
{
protected:
    Sandbox sandbox;
    FakeIdentity::Scoped identity;
    MockClock::Scoped clock;
    std::unique_ptr<LaunchctlRecorder> launchctl;
    std::shared_ptr<RecordingAlerts> alerts = std::make_shared<RecordingAlerts>();
    QString applications;
    QString quill;

    void SetUp() override;
    void TearDown() override;

    QString agents() const;
    QString daemons() const;
    PlistDict readJob(const QString &path) const;
};
