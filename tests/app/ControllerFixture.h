#pragma once

#include "app/MainComponent.h"
#include "audio/AudioFile.h"
#include "support/MessageThread.h"
#include "support/Signals.h"
#include "support/StandInUv.h"
#include "support/TemporaryFolder.h"

#include <optional>
#include <utility>

/** The window without a screen, on stand-in workers.

    The message thread waits for the test, except in deliverMessages(), eventually() and the functions that call them.
*/
class ControllerFixture : public MessageThreadTest
{
protected:
    ControllerFixture()
    {
        setenv ("TMPDIR", folder.getChild ("temporary").getFullPathName().toRawUTF8(), 1);
        juce::String error;
        audiofile::writeWav (song, signals::noise (2, 20000), 44100.0, 16, error);
        song.copyFileTo (uv.getFile ("song.wav"));

        uv.setWorker ("yt2wav.py", "echo >>downloads; mkdir -p \"$4\"; cp song.wav \"$4/A Title.wav\"; "
                                   "echo \"WAV_PATH::$4/A Title.wav\"");
        uv.setWorker ("analyze.py", StandInUv::detecting (112.04));
        uv.setWorker ("separate.py", "for stem in drums bass vocals other; do cp song.wav \"$4/$stem.wav\"; done");

        window.emplace();
        window->showMessage = [this] (auto icon, const auto& title, const auto& text)
        { dialogs.add ((icon == juce::MessageBoxIconType::WarningIcon ? "! " : "i ") + title + ": " + text); };
        input().selectedFile = song;
        output().outputFolder = folder.getChild ("out");
    }

    ~ControllerFixture() override
    {
        window.reset();
        unsetenv ("TMPDIR");
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
    juce::String detectedBpm() { return tempo().detectedBpmLabel.getText(); }

    /** The dialogs since the last call: "!" for a warning or "i", the title and the text of each. */
    juce::String takeDialogs() { return std::exchange (dialogs, {}).joinIntoString ("|"); }

    static void click (juce::Button& button)
    {
        ASSERT_TRUE (button.isEnabled());
        button.onClick();
    }

    static void turn (juce::Button& toggle, bool on) { toggle.setToggleState (on, juce::sendNotificationSync); }

    void wantFullSongAlone()
    {
        auto& panel = stems();
        for (auto* const stem : { &panel.drumsToggle, &panel.bassToggle, &panel.vocalsToggle, &panel.otherToggle })
            turn (*stem, false);
        turn (panel.fullSongToggle, true);
    }

    void useUrl (const juce::String& url)
    {
        turn (input().urlToggle, true);
        input().urlBox.setText (url, true);
        deliverMessages();
    }

    template <typename Condition>
    bool eventually (Condition condition)
    {
        const auto deadline = juce::Time::getMillisecondCounter() + 60000;

        while (! condition())
        {
            if (juce::Time::getMillisecondCounter() > deadline)
                return false;

            deliverMessages();
            juce::Thread::sleep (2);
        }

        return true;
    }

    /** Makes a worker wait for letGo() before it does its work. */
    void holdWorker (const juce::String& name, const juce::String& work = {})
    {
        uv.setWorker (name, "echo $$ >" + name + ".new; mv " + name + ".new " + name
                                + ".pid; while [ ! -f go ]; do sleep 0.02; done\n" + work);
    }

    bool isHeld (const juce::String& worker)
    {
        return eventually ([&] { return uv.getFile (worker + ".pid").existsAsFile(); });
    }

    void letGo() { uv.getFile ("go").create(); }

    bool isIdle() { return execute().getButtonText() == "Execute" && execute().isEnabled(); }

    bool becomesIdle()
    {
        return eventually ([this] { return isIdle(); });
    }

    bool analysisEnds()
    {
        return eventually ([this] { return analyze().isEnabled() && ! hasThread ("KelvaneAnalysis"); });
    }

    /** Waits for the end of a thread that has made a file, without delivering its messages. */
    static void waitForThread (const juce::String& name, const juce::File& file)
    {
        for (auto waited = 0; waited < 60000 && (! file.existsAsFile() || hasThread (name)); waited += 10)
            juce::Thread::sleep (10);
    }

    static bool hasThread (const juce::String& name)
    {
        for (const auto& task : juce::File ("/proc/self/task").findChildFiles (juce::File::findDirectories, false))
            if (task.getChildFile ("comm").loadFileAsString().trim() == name)
                return true;

        return false;
    }

    int numCacheFolders() const
    {
        return folder.getChild ("temporary/Kelvane").getNumberOfChildFiles (juce::File::findDirectories, "cache-*");
    }

    TemporaryFolder folder;
    StandInUv uv { folder.getChild ("stand-in uv") };
    const juce::File song = folder.getChild ("My Song.wav");
    juce::StringArray dialogs;
    std::optional<MainComponent> window;
};
