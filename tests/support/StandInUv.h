#pragma once

#include <juce_core/juce_core.h>

#include <map>

/** A shell script in place of uv, named by the environment while this object exists.

    The body of a worker gets "run" as $1, the script's path as $2 and its arguments from $3.
*/
class StandInUv
{
public:
    explicit StandInUv (const juce::File& folderToUse) : folder (folderToUse)
    {
        folder.createDirectory();
        write ("uv", "#!/bin/sh\n"
                     "cd '"
                         + folder.getFullPathName()
                         + "'\nworker=$(basename \"$2\")\n"
                           "printf '%s\\n' \"$@\" > $worker.args\n"
                           ". ./$worker.sh\n");
        folder.getChildFile ("uv").setExecutePermission (true);
        setenv ("KELVANE_UV", folder.getChildFile ("uv").getFullPathName().toRawUTF8(), 1);
    }

    ~StandInUv() { unsetenv ("KELVANE_UV"); }

    StandInUv (const StandInUv&) = delete;
    StandInUv& operator= (const StandInUv&) = delete;

    void setWorker (const juce::String& name, const juce::String& body) { write (name + ".sh", body + "\n"); }

    /** @returns the body of a worker that detects the tempo and the key D */
    static juce::String detecting (double bpm)
    {
        return "echo 'RESULT::{\"bpm\": " + juce::String (bpm) + ", \"key_index\": 2}'";
    }

    /** Makes a worker print its process id to the file "pid" and then sleep. */
    void holdWorker (const juce::String& name)
    {
        getFile ("pid").deleteFile();
        setWorker (name, "echo $$ > pid.new; mv pid.new pid; echo printed; exec sleep 1000");
    }

    /** @returns the process id; empty if the thread ends before the worker starts */
    juce::String waitForHeldWorker (const juce::Thread& runner) const
    {
        while (! getFile ("pid").exists() && runner.isThreadRunning())
            juce::Thread::sleep (5);

        return getFile ("pid").loadFileAsString().trim();
    }

    /** @returns the arguments of the worker's last start; empty if it was not started */
    juce::StringArray getArguments (const juce::String& name) const
    {
        auto lines = juce::StringArray::fromLines (folder.getChildFile (name + ".args").loadFileAsString());
        lines.removeEmptyStrings();
        return lines;
    }

    /** @returns a file in the working folder of the workers */
    juce::File getFile (const juce::String& name) const { return folder.getChildFile (name); }

private:
    void write (const juce::String& name, const juce::String& text) const
    {
        folder.getChildFile (name).replaceWithText (text, false, false, "\n");
    }

    const juce::File folder;
};
