#pragma once

#include "app/MainComponent.h"
#include "audio/AudioFile.h"
#include "support/MessageThread.h"
#include "support/Signals.h"
#include "support/StandInUv.h"
#include "support/TemporaryFolder.h"

#include <optional>
#include <pthread.h>

/** While it lives no thread can be started: each would get a stack that no address space has room for. */
class NoMoreThreads
{
public:
    NoMoreThreads()
    {
        pthread_getattr_default_np (&before);
        auto attributes = before;
        pthread_attr_setstacksize (&attributes, size_t { 1 } << 60);
        EXPECT_EQ (pthread_setattr_default_np (&attributes), 0);
    }

    ~NoMoreThreads()
    {
        pthread_setattr_default_np (&before);
        pthread_attr_destroy (&before);
    }

    NoMoreThreads (const NoMoreThreads&) = delete;
    NoMoreThreads& operator= (const NoMoreThreads&) = delete;

private:
    pthread_attr_t before {};
};

/** The program's window without a screen, on stand-in workers, driven from another thread than its own. */
class ControllerFixture : public testing::Test
{
protected:
    struct Dialog
    {
        juce::MessageBoxIconType icon;
        juce::String title, text;
    };

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

        onMessageThread (
            [this]
            {
                window.emplace();
                window->showMessage = [this] (auto icon, const auto& title, const auto& text)
                { dialogs.push_back ({ icon, title, text }); };
                child<InputPanel>().selectedFile = song;
                child<OutputPanel>().outputFolder = folder.getChild ("out");
            });
    }

    ~ControllerFixture() override
    {
        onMessageThread ([this] { window.reset(); });
        unsetenv ("TMPDIR");
    }

    /** Waits until something holds on the message thread. */
    template <typename Condition>
    static bool eventually (Condition condition)
    {
        const auto deadline = juce::Time::getMillisecondCounter() + 60000;

        while (! onMessageThread (condition))
        {
            if (juce::Time::getMillisecondCounter() > deadline)
                return false;
            juce::Thread::sleep (2);
        }

        return true;
    }

    /** The window's child of a type, the first of several. */
    template <typename Child>
    Child& child()
    {
        for (auto* const one : window->getChildren())
            if (auto* const found = dynamic_cast<Child*> (one))
                return *found;

        throw std::logic_error ("no such child");
    }

    juce::TextButton& execute() { return child<juce::TextButton>(); }
    juce::TextButton& analyze() { return child<TempoPanel>().analyzeButton; }
    juce::String status() { return dynamic_cast<juce::Label&> (*window->getChildComponent (10)).getText(); }

    void click (juce::Button& button)
    {
        ASSERT_TRUE (button.isEnabled());
        button.onClick();
    }

    void clickExecute()
    {
        onMessageThread ([this] { click (execute()); });
    }

    void clickAnalyze()
    {
        onMessageThread ([this] { click (analyze()); });
    }

    static void turn (juce::Button& toggle, bool on) { toggle.setToggleState (on, juce::sendNotificationSync); }

    void wantStems (bool drums, bool bass, bool vocals, bool other)
    {
        onMessageThread (
            [&]
            {
                auto index = 0;
                for (const auto wanted : { drums, bass, vocals, other })
                    turn (dynamic_cast<juce::Button&> (*child<StemPanel>().getChildComponent (index++)), wanted);
            });
    }

    /** So that no worker is needed. */
    void wantFullSongAlone()
    {
        wantStems (false, false, false, false);
        onMessageThread ([this] { turn (child<StemPanel>().fullSongToggle, true); });
    }

    void useUrl (const juce::String& url)
    {
        onMessageThread (
            [&]
            {
                auto& panel = child<InputPanel>();
                turn (panel.urlToggle, true);
                panel.urlBox.setText (url, true);
            });
        deliverMessages();
    }

    /** Has a worker wait, after what it is to do first, until there is the file "go". */
    void holdWorker (const juce::String& name, const juce::String& first, const juce::String& afterwards)
    {
        uv.setWorker (name, first + "\ntouch held; while [ ! -f go ]; do sleep 0.02; done\n" + afterwards);
    }

    bool isHeld()
    {
        return eventually ([this] { return uv.getFile ("held").existsAsFile(); });
    }

    void letGo() { uv.getFile ("go").create(); }

    bool isIdle() { return execute().getButtonText() == "Execute" && execute().isEnabled(); }

    bool becomesIdle()
    {
        return eventually ([this] { return isIdle(); });
    }

    /** By the system's own account, as nobody else tells when a job's thread is gone. */
    static int numThreadsNamed (const juce::String& name)
    {
        auto count = 0;
        for (const auto& task : juce::File ("/proc/self/task").findChildFiles (juce::File::findDirectories, false))
            count += task.getChildFile ("comm").loadFileAsString().trim() == name ? 1 : 0;
        return count;
    }

    int numDownloads() const
    {
        return juce::StringArray::fromLines (uv.getFile ("downloads").loadFileAsString()).size() - 1;
    }

    int numCacheFolders() const
    {
        return folder.getChild ("temporary/Kelvane").getNumberOfChildFiles (juce::File::findDirectories, "cache-*");
    }

    TemporaryFolder folder;
    StandInUv uv { folder.getChild ("stand-in uv") };
    const juce::File song = folder.getChild ("My Song.wav");
    std::vector<Dialog> dialogs;
    std::optional<MainComponent> window;
};
