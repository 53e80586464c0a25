#pragma once

#include "audio/AudioFile.h"
#include "support/MessageThread.h"
#include "support/Signals.h"
#include "support/TemporaryFolder.h"

/** A song, and shell scripts in place of uv and the workers.

    A worker's shell script receives "run" as $1, the worker's path as $2 and the worker's arguments from $3 on.
*/
class JobFixture : public MessageThreadTest
{
protected:
    JobFixture()
    {
        juce::String error;
        audiofile::writeWav (song, signals::noise (2, 20000), 44100.0, 16, error);
        setWorker ("yt2wav.py", "mkdir -p \"$4\"; cp \"$song\" \"$4/A Title.wav\"; echo \"WAV_PATH::$4/A Title.wav\"");
        setDetection (112.04);
        setWorker ("separate.py", "for stem in $(echo $8 | tr , ' '); do cp \"$song\" \"$4/$stem.wav\"; done");
        write ("uv", "#!/bin/sh\ncd \"${0%/*}\"; song='../My Song.wav'; worker=${2##*/}; echo >>$worker.starts\n"
                     "printf '%s\\n' \"$@\" >$worker.args; . ./$worker.sh\n");
        file ("uv").setExecutePermission (true);
        setenv ("KELVANE_UV", file ("uv").getFullPathName().toRawUTF8(), 1);
        setenv ("TMPDIR", folder.getChild ("temporary").getFullPathName().toRawUTF8(), 1);
    }

    ~JobFixture() override
    {
        unsetenv ("KELVANE_UV");
        unsetenv ("TMPDIR");
    }

    void setWorker (const juce::String& name, const juce::String& body) { write (name + ".sh", body + "\n"); }

    /** Makes analyze.py report a tempo and the key D. */
    void setDetection (double bpm)
    {
        setWorker ("analyze.py", "echo 'RESULT::{\"bpm\": " + juce::String (bpm) + ", \"key_index\": 2}'");
    }

    /** Makes a worker wait for letGo() before it does its work. */
    void holdWorker (const juce::String& name)
    {
        setWorker (name, "echo $$ >new; mv new " + name + ".pid; while [ ! -f go ]; do sleep 0.02; done\n"
                             + file (name + ".sh").loadFileAsString());
    }

    void letGo() { file ("go").create(); }

    bool isHeld (const juce::String& worker)
    {
        return eventually ([&] { return file (worker + ".pid").existsAsFile(); });
    }

    bool isRunning (const juce::String& heldWorker) const
    {
        return juce::File ("/proc").getChildFile (file (heldWorker + ".pid").loadFileAsString().trim()).exists();
    }

    juce::int64 numStarts (const juce::String& worker) const { return file (worker + ".starts").getSize(); }

    /** @returns the arguments of the worker's last start, separated by vertical bars */
    juce::String arguments (const juce::String& worker) const
    {
        return file (worker + ".args").loadFileAsString().trim().replaceCharacter ('\n', '|');
    }

    template <typename Condition>
    bool eventually (Condition condition)
    {
        const auto deadline = juce::Time::getMillisecondCounter() + 60000;

        while (juce::Time::getMillisecondCounter() < deadline)
        {
            if (condition())
                return true;

            deliverMessages();
            juce::Thread::sleep (2);
        }

        return false;
    }

    int numTemporaryFolders (const juce::String& pattern = "*") const
    {
        return folder.getChild ("temporary/Kelvane").getNumberOfChildFiles (juce::File::findDirectories, pattern);
    }

    /** @returns a file in the folder in which the shell scripts run */
    juce::File file (const juce::String& name) const { return folder.getChild ("the workers").getChildFile (name); }

    TemporaryFolder folder;
    const juce::File song = folder.getChild ("My Song.wav");

private:
    void write (const juce::String& name, const juce::String& text) const
    {
        file (name).create();
        file (name).replaceWithText (text, false, false, "\n");
    }
};
