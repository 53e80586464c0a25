#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

#include <memory>

/** The application that JUCE starts and stops. It owns the one window, which owns everything else. */
class KelvaneApplication : public juce::JUCEApplication
{
public:
    KelvaneApplication();
    ~KelvaneApplication() override;

    const juce::String getApplicationName() override;
    const juce::String getApplicationVersion() override;
    bool moreThanOneInstanceAllowed() override;
    void initialise (const juce::String& commandLine) override;
    void shutdown() override;

private:
    class MainWindow;

    std::unique_ptr<MainWindow> mainWindow;
};
