#pragma once

#include <juce_core/juce_core.h>

#include <memory>

/** Holds a runner's current worker, so that another thread can kill it.

    One thread starts the worker, reads from it and empties the slot. It never holds the lock while it reads.
*/
class ChildSlot
{
public:
    /** Starts a process with its output streams merged, in place of the one in the slot.
        @returns the process, which stays valid until the slot is emptied, or nullptr if it could not be started
    */
    juce::ChildProcess* start (const juce::StringArray& args);

    /** Deletes the process, which must have ended or been killed. */
    void empty();

    /** Kills the process, if there is one. May be called on any thread. */
    void kill();

private:
    juce::CriticalSection lock;
    std::unique_ptr<juce::ChildProcess> child;
};
