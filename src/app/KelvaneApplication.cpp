#include "app/KelvaneApplication.h"

#include "app/DisplayPoll.h"
#include "app/DropWindow.h"
#include "app/MainComponent.h"
#include "pipeline/WorkingFolder.h"
#include "ui/Theme.h"

#include <BinaryData.h>

#include <iostream>

class KelvaneApplication::MainWindow : public DropWindow
{
public:
    explicit MainWindow (const juce::String& name)
        : DropWindow (name, theme::bg, juce::DocumentWindow::allButtons, true)
    {
        setUsingNativeTitleBar (true);
        auto* const content = new MainComponent;
        setContentOwned (content, true);
        onFilesDropped = [content] (const juce::StringArray& paths) { content->takeDroppedFiles (paths); };
        onTextDropped = [content] (const juce::String& text) { content->takeDroppedText (text); };
        setResizable (true, false);
        setResizeLimits (1120, 500, 10000, 10000);
        centreWithSize (getWidth(), getHeight());
        setVisible (true);
        showIcon();
    }

    ~MainWindow() override = default;

    void closeButtonPressed() override { juce::JUCEApplication::getInstance()->systemRequestedQuit(); }

private:
    /** Sets the icon on Linux. On other systems the executable contains it. */
    void showIcon()
    {
#if JUCE_LINUX
        // Two pixels per cell of the logo. The full image exceeds the size limit of a window property.
        const auto logo = juce::ImageFileFormat::loadFrom (BinaryData::Logo_png, BinaryData::Logo_pngSize);
        if (auto* const peer = getPeer())
            peer->setIcon (logo.rescaled (104, 104));
#endif
    }

#if JUCE_LINUX
    DisplayPoll displayPoll { *this };
#endif

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (MainWindow)
};

static bool hasDisplay()
{
    return ! juce::Desktop::getInstance().getDisplays().displays.isEmpty();
}

/** Reports a missing display here, because JUCE skips initialise() if another Kelvane is running. */
KelvaneApplication::KelvaneApplication()
{
    if (hasDisplay())
        return;

    std::cerr << "Kelvane could not open a window, as there is no display. kelvane-render works without one.\n";
    setApplicationReturnValue (1);
}

KelvaneApplication::~KelvaneApplication() = default;

const juce::String KelvaneApplication::getApplicationName()
{
    return "Kelvane";
}

const juce::String KelvaneApplication::getApplicationVersion()
{
    return KELVANE_VERSION;
}

bool KelvaneApplication::moreThanOneInstanceAllowed()
{
    return false;
}

void KelvaneApplication::initialise (const juce::String&)
{
    // JUCE crashes when it opens a window without a display.
    if (! hasDisplay())
    {
        quit();
        return;
    }

    enterScriptsFolder();
    mainWindow = std::make_unique<MainWindow> (getApplicationName());
}

void KelvaneApplication::shutdown()
{
    mainWindow.reset();
}

START_JUCE_APPLICATION (KelvaneApplication)
