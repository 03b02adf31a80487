#pragma once

#include <QString>

#include <memory>

// A modal alert: the title is the message text, the body the informative text.
struct VTAlertRequest
{
    QString messageText;
    QString informativeText;
    QString defaultButton;
    QString alternateButton;
    QString otherButton;
};

// Shows alerts; the windowed application installs one that opens real alert windows.
class VTAlertPresenter
{
public:
    virtual ~VTAlertPresenter();
    virtual int runModal(const VTAlertRequest &request) = 0;
};

class VTAlert
{
public:
    // The button that ended the alert.
    enum Result
    {
        DefaultReturn = 1,
        AlternateReturn = 0,
        OtherReturn = -1
    };

    static int runModal(const VTAlertRequest &request);
    static void setPresenter(std::shared_ptr<VTAlertPresenter> presenter);
};

// Without a window of its own: a real alert window (through the alert program installed
// beside the application) when a display is available, else the question on the terminal
// when standard input is one, else the cautious answer (the alternate button when there
// is one), so that nothing is removed without a person's answer.
class VTHeadlessAlertPresenter : public VTAlertPresenter
{
public:
    int runModal(const VTAlertRequest &request) override;

private:
    static bool displayAvailable();
    static int askOnTerminal(const VTAlertRequest &request);
};
