#pragma once

#include <juce_core/juce_core.h>

#include <map>

/** A shell script in the place of uv, which the environment names while this object lives.

    A worker's body sees what a worker is given: "run" and the script's path as $1 and $2, its arguments from $3 on.
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

    /** The body of a worker that detects a tempo, and the key D. */
    static juce::String detecting (double bpm)
    {
        return "echo 'RESULT::{\"bpm\": " + juce::String (bpm) + ", \"key_index\": 2}'";
    }

    /** What the worker was started with, or nothing if it was not. */
    juce::StringArray getArguments (const juce::String& name) const
    {
        auto lines = juce::StringArray::fromLines (folder.getChildFile (name + ".args").loadFileAsString());
        lines.removeEmptyStrings();
        return lines;
    }

    /** A file that bodies can name in short, as their working folder is this one. */
    juce::File getFile (const juce::String& name) const { return folder.getChildFile (name); }

private:
    void write (const juce::String& name, const juce::String& text) const
    {
        folder.getChildFile (name).replaceWithText (text, false, false, "\n");
    }

    const juce::File folder;
};
