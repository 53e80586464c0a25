#pragma once

#include "app/MainComponent.h"
#include "support/JobFixture.h"

#include <optional>
#include <utility>

/** Runs the window without a screen.

    The message thread waits for the test, except in deliverMessages(), eventually() and the functions that call them.
*/
class WindowFixture : public JobFixture
{
protected:
    WindowFixture()
    {
        window.emplace();
        window->showMessage = [this] (auto icon, const auto& title, const auto& text)
        { dialogs.add ((icon == juce::MessageBoxIconType::WarningIcon ? "! " : "i ") + title + ": " + text); };
        input().selectedFile = song;
        output().outputFolder = folder.getChild ("out");
    }

    template <typename Child>
    Child& child (const char* id)
    {
        return dynamic_cast<Child&> (*window->findChildWithID (id));
    }

    InputPanel& input() { return child<InputPanel> ("inputPanel"); }
    StemPanel& stems() { return child<StemPanel> ("stemPanel"); }
    TempoPanel& tempo() { return child<TempoPanel> ("tempoPanel"); }
    OutputPanel& output() { return child<OutputPanel> ("outputPanel"); }
    juce::TextButton& execute() { return child<juce::TextButton> ("executeButton"); }
    juce::TextButton& analyze() { return tempo().analyzeButton; }
    juce::String status() { return child<juce::Label> ("statusLabel").getText(); }
    juce::String detected() { return tempo().detectedBpmLabel.getText() + " " + tempo().detectedKeyLabel.getText(); }

    /** @returns the dialogs shown since the last call, each as "!" (warning) or "i" (information), title and text */
    juce::String takeDialogs() { return std::exchange (dialogs, {}).joinIntoString ("|"); }

    static void click (juce::Button& button)
    {
        ASSERT_TRUE (button.isEnabled());
        button.onClick();
    }

    static void turn (juce::Button& toggle, bool on) { toggle.setToggleState (on, juce::sendNotificationSync); }

    void wantFullSongAlone()
    {
        for (auto* const toggle : stems().getChildren())
            if (auto* const button = dynamic_cast<juce::ToggleButton*> (toggle))
                turn (*button, button == &stems().fullSongToggle);
    }

    void useUrl (const juce::String& url)
    {
        turn (input().urlToggle, true);
        input().urlBox.setText (url, true);
        deliverMessages();
    }

    bool isIdle() { return execute().getButtonText() == "Execute" && execute().isEnabled(); }

    bool jobsEnd()
    {
        return eventually ([this] { return isIdle() && analyze().isEnabled() && ! hasThread(); });
    }

    /** Clicks a button and waits until its job has ended. */
    void run (juce::Button& button)
    {
        click (button);
        ASSERT_TRUE (jobsEnd());
    }

    /** Waits until a job has created a file and ended, without delivering the job's messages. */
    static void waitForThread (const juce::File& file)
    {
        for (auto waited = 0; waited < 60000 && (! file.existsAsFile() || hasThread()); waited += 10)
            juce::Thread::sleep (10);
    }

    /** @returns true if a job's thread is running; the names of these threads begin with "Kelvane" */
    static bool hasThread()
    {
        for (const auto& task : juce::File ("/proc/self/task").findChildFiles (juce::File::findDirectories, false))
            if (task.getChildFile ("comm").loadFileAsString().startsWith ("Kelvane"))
                return true;

        return false;
    }

    juce::StringArray dialogs;
    std::optional<MainComponent> window;
};
